/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The netdevs of a test. They exist for the kit only, that is: for
 * if_nametoindex(3) and if_indextoname(3), for requests and dumps on
 * NETLINK_ROUTE sockets, for the kit's ip and vconfig, and as
 * /sys/class/net/NAME/carrier. Every namespace begins with lo, number 1.
 *
 * Each change of a netdev in the test's own namespace is announced to the sockets
 * that subscribed to link events, as the kernel does it: what appears, disappears,
 * goes up or down, with ifi_change set; another name or carrier, without. One
 * change is one event (the kernel sometimes sends several).
 *
 * Numbers are never given out twice in a test; ybtk_reset() starts again at 2.
 */
#ifndef YBNET_TESTKIT_NETDEVS_H
#define YBNET_TESTKIT_NETDEVS_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Netdevs ------------------------------------------------------------ */

/*
 * Makes a netdev: down, carrier on. out_ifindex may be NULL. EEXIST, EINVAL,
 * ENAMETOOLONG for its name; ENOENT: no such namespace.
 */
int ybtk_netdev_add(const char *ns, const char *name, uint32_t *out_ifindex);

/* ENODEV when there is none. Netdevs that lie on it (VLANs) go with it. */
int ybtk_netdev_remove(const char *ns, const char *name);

/* Administratively up or down; carrier. A state that it has already is no change. */
int ybtk_netdev_set_up(const char *ns, const char *name, int up);
int ybtk_netdev_set_carrier(const char *ns, const char *name, int carrier);

/* Its number, 0 when there is none; its flags as a dump shows them (IFF_UP, IFF_RUNNING ...), 0 for none. */
uint32_t ybtk_netdev_ifindex(const char *ns, const char *name);
uint32_t ybtk_netdev_flags(const char *ns, const char *name);

/* Namespaces, with their netdevs. EEXIST, EINVAL; ENOENT. */
int ybtk_namespace_add(const char *ns);
int ybtk_namespace_remove(const char *ns);

/* ---- Link events -------------------------------------------------------- */

/*
 * Waits until this many living sockets are subscribed to link events. ETIMEDOUT
 * after limit_ms milliseconds. Changes made earlier are not seen by them.
 */
int ybtk_wait_for_subscribers(unsigned count, unsigned limit_ms);

/* Sends a link message without a change: RTM_NEWLINK or RTM_DELLINK, of a link that need not exist. */
int ybtk_link_event(uint16_t type, uint32_t ifindex, uint32_t flags, uint32_t change);

/* Sends any bytes as one datagram, broken ones too. */
int ybtk_event_datagram(const void *datagram, size_t size);

/*
 * Lets subscribers lose events: their next receive fails with ENOBUFS, before
 * what is queued. The same happens by itself to a socket with 128 messages, or as
 * many as the limit says, not yet received.
 */
int ybtk_events_lost(void);
int ybtk_event_queue_limit(unsigned messages);

#ifdef __cplusplus
}
#endif

#endif
