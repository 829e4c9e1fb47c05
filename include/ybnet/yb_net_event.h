/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Link events: the socket that a caller owns and polls, and the record that one
 * received event fills in. The functions are in net_lib.h, "Link events".
 */
#ifndef YBNET_YB_NET_EVENT_H
#define YBNET_YB_NET_EVENT_H

#include <stdint.h>

#include "ybnet/yb_static_assert.h"

/* libnl-3's socket; only pointers to it are used here. */
struct nl_sock;

/* What a yb_net_sk_t holds: its type field. */
enum {
    YB_NET_SK_TYPE_NONE = 0, /* nothing: not registered, or deregistered */
    YB_NET_SK_TYPE_RAW = 1,  /* fd, made by yb_net_register_net_if_event_group() */
    YB_NET_SK_TYPE_LIBNL = 2 /* sk, made and freed by the caller with libnl-3 */
};

/* The one group that can be registered: the kernel's link messages. */
#define YB_NET_IF_EVENT_GROUP_LINK 0

/*
 * An event socket, in the caller's memory. Zero it before the first use: that is
 * YB_NET_SK_TYPE_NONE. For a libnl socket the caller sets type and sk itself.
 *
 *   0      4         8
 *   | type | padding | fd or sk |
 */
typedef struct yb_net_sk {
    uint32_t type; /* YB_NET_SK_TYPE_* */
    __extension__ union {
        struct nl_sock *sk; /* YB_NET_SK_TYPE_LIBNL: the libnl socket. First, so that {0} clears all of it */
        int32_t fd; /* YB_NET_SK_TYPE_RAW: the descriptor. The caller closes it, the library never does */
    };
} yb_net_sk_t;

/*
 * What happened to a link: the event_type field of yb_net_if_event_t. The kernel
 * says in ifi_change which flags of the link changed (rtnetlink(7)).
 */
enum {
    YB_NET_IF_EVENT_NONE = 0,      /* the message was not about a link */
    YB_NET_IF_EVENT_LINK_DOWN = 1, /* IFF_UP or IFF_RUNNING marked as changed, IFF_UP clear; a new link too */
    YB_NET_IF_EVENT_LINK_UP = 2,   /* IFF_UP or IFF_RUNNING marked as changed, IFF_UP set, carrier or not */
    YB_NET_IF_EVENT_LINK_CHANGE =
        3, /* neither is marked: name, MTU, master, also a carrier that came or went */
    YB_NET_IF_EVENT_LINK_DELETED = 4 /* RTM_DELLINK: the link is gone, or has left its bridge */
};

/* One event, filled in by yb_net_if_event_receive(). */
typedef struct yb_net_if_event {
    uint32_t event_type;  /* YB_NET_IF_EVENT_* */
    uint32_t sys_ifindex; /* of the interface record that has the link's Linux ifindex; 0 when none has */
} yb_net_if_event_t;

YB_ASSERT_SIZE(yb_net_sk_t, 16);
YB_ASSERT_OFFSET(yb_net_sk_t, type, 0);
YB_ASSERT_OFFSET(yb_net_sk_t, fd, 8);
YB_ASSERT_OFFSET(yb_net_sk_t, sk, 8);

YB_ASSERT_SIZE(yb_net_if_event_t, 8);
YB_ASSERT_OFFSET(yb_net_if_event_t, event_type, 0);
YB_ASSERT_OFFSET(yb_net_if_event_t, sys_ifindex, 4);

#endif
