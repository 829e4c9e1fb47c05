// SPDX-License-Identifier: Apache-2.0
//
// A link request in its buffer (rtnetlink(7)), as link_state.cc and port_netdev.cc
// send it: the two headers, and room for the attributes that attributes.h appends.
#ifndef YBNET_NET_LIB_RTNL_LINK_REQUEST_H
#define YBNET_NET_LIB_RTNL_LINK_REQUEST_H

#include <cstddef>
#include <linux/rtnetlink.h>

#include "ybnet/yb_net_rtnl.h"

struct link_request {
    struct nlmsghdr header;
    struct ifinfomsg link;
    std::byte attributes[YB_NET_RTNL_REQ_SIZE - sizeof(struct nlmsghdr) - sizeof(struct ifinfomsg)];
};
static_assert(sizeof(link_request) == YB_NET_RTNL_REQ_SIZE);

#endif
