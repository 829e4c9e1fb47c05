/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Building rtnetlink requests: the process's request handle and the routing
 * attribute builders (rtnetlink(7), netlink(7)).
 *
 * A request lives in a buffer of its owner, zeroed before building:
 *
 *   0          16               nlmsg_len
 *   | nlmsghdr | family header | attribute | attribute | ...
 *                                4 bytes aligned each
 *
 * The builders append at the end of the message, in place; the zeroed buffer
 * supplies the padding. They allocate nothing, take no lock and may be called
 * from any thread as long as the message is used by one.
 */
#ifndef YBNET_YB_NET_RTNL_H
#define YBNET_YB_NET_RTNL_H

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <stdint.h>

#include "ybnet/yb_static_assert.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Bytes of every request buffer of this library, header included. */
#define YB_NET_RTNL_REQ_SIZE 1056

/*
 * The process's NETLINK_ROUTE request socket. Opened by the first call of
 * yb_net_interface_state_set() or of a function that makes or removes a port
 * netdev, in the network namespace of that call, where its requests go ever
 * after; never closed, not even when it cannot be made ready: the next call makes
 * another one then. To be read, not written, by others: its port id
 * (local.nl_pid) is usually the process id, which an event socket of the same
 * process then cannot have. Not guarded: functions that send requests are called
 * from one thread at a time. A child made by fork(2) shares the socket: only one
 * of the two may send requests, else each may take the other's answer.
 */
typedef struct rtnl_handle {
    int32_t fd;               /* -1 before the first open */
    struct sockaddr_nl local; /* the socket's own address */
    uint32_t seq;             /* last sequence number used */
    uint32_t opened;          /* 1 once open */
} rtnl_handle_t;

YB_ASSERT_SIZE(rtnl_handle_t, 24);
YB_ASSERT_OFFSET(rtnl_handle_t, fd, 0);
YB_ASSERT_OFFSET(rtnl_handle_t, local, 4);
YB_ASSERT_OFFSET(rtnl_handle_t, seq, 16);
YB_ASSERT_OFFSET(rtnl_handle_t, opened, 20);

/* The one handle of the process. */
extern rtnl_handle_t rth;

/*
 * Appends one attribute: its 4-byte header and alen bytes of data.
 *
 * n: the message. maxlen: bytes of the buffer that the message may fill. data:
 * may be NULL when alen is 0.
 * Returns 0, or -1 when the attribute does not fit into maxlen, alen is
 * negative or the attribute's 16-bit length cannot hold it: the message is then
 * unchanged and "addattr_l ERROR: message exceeded bound of %d\n" logged at
 * ERROR.
 */
int32_t addattr_l(struct nlmsghdr *n, int32_t maxlen, int32_t type, const void *data, int32_t alen);

/* addattr_l() of a 32-bit value in host byte order. */
int32_t addattr32(struct nlmsghdr *n, int32_t maxlen, int32_t type, uint32_t value);

/*
 * Starts a nested attribute (no NLA_F_NESTED bit is added) and returns its
 * position, for addattr_nest_end(), whether or not it fitted.
 */
struct rtattr *addattr_nest(struct nlmsghdr *n, int32_t maxlen, int32_t type);

/*
 * Closes a nested attribute: everything appended since addattr_nest() lies
 * inside it. A nest that did not fit is left alone. Returns nlmsg_len.
 */
int32_t addattr_nest_end(struct nlmsghdr *n, struct rtattr *nest);

#ifdef __cplusplus
}
#endif

#endif
