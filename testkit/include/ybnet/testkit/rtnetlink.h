/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The peer of NETLINK_ROUTE sockets that are made while the kit is active.
 *
 * Unless the test scripts another answer, it answers from the netdevs of the test
 * (netdevs.h) in the test's own namespace and changes them:
 *
 *   RTM_GETLINK                  a dump of all, or one link by number or name
 *   RTM_NEWLINK, RTM_DELLINK     a netdev of any link kind is made, one set up or down, one removed
 *   RTM_NEWADDR, RTM_DELADDR     acknowledged when the netdev exists; recorded, not kept
 *   others                       EOPNOTSUPP
 *
 * Port ids are taken as the kernel gives them: one socket can have the process id,
 * a second one gets another, or EADDRINUSE when it insists. Rights are not checked.
 */
#ifndef YBNET_TESTKIT_RTNETLINK_H
#define YBNET_TESTKIT_RTNETLINK_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The next times requests of this type (0: of any) are answered otherwise, and
 * have no other effect. Scripted answers are used up in the order given.
 *
 * _error: by an acknowledgement with this errno, 0 for success.
 * _datagram: by these bytes. A first message with sequence number and port id 0
 * gets those of the request.
 * _silence: not at all. libybnet waits for its answers without a time-out.
 *
 * EINVAL when times is 0.
 */
int ybtk_rtnetlink_answer_error(uint16_t type, int reason, unsigned times);
int ybtk_rtnetlink_answer_datagram(uint16_t type, const void *datagram, size_t size, unsigned times);
int ybtk_rtnetlink_answer_silence(uint16_t type, unsigned times);

/*
 * Requests that the processes of the test have sent, in order, as they were sent.
 * Copies at most size bytes of number index; returns its length, or 0 when there
 * is none.
 */
size_t ybtk_rtnetlink_request_count(void);
size_t ybtk_rtnetlink_request_get(size_t index, void *request, size_t size);

#ifdef __cplusplus
}
#endif

#endif
