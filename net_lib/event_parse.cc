// SPDX-License-Identifier: Apache-2.0
//
// See event_parse.h. Rests on the message layout of netlink(7) and rtnetlink(7).
#include "net_lib/event_parse.h"

#include <algorithm>
#include <cstring>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include "ybnet/yb_net_event.h"

namespace {

uint32_t event_type_of(uint16_t message_type, const struct ifinfomsg &link) {
    switch (message_type) {
    case RTM_NEWLINK:
        if ((link.ifi_change & (IFF_UP | IFF_RUNNING)) == 0)
            return YB_NET_IF_EVENT_LINK_CHANGE;
        return (link.ifi_flags & IFF_UP) != 0 ? YB_NET_IF_EVENT_LINK_UP : YB_NET_IF_EVENT_LINK_DOWN;
    case RTM_DELLINK:
        return YB_NET_IF_EVENT_LINK_DELETED;
    default:
        return YB_NET_IF_EVENT_NONE;
    }
}

} // namespace

bool link_event_parse(const void *datagram, size_t size, link_event *event) {
    const auto *const bytes = static_cast<const std::byte *>(datagram);
    struct nlmsghdr header;
    if (size < sizeof(header))
        return false;
    memcpy(&header, bytes, sizeof(header));
    if (header.nlmsg_len < sizeof(header) || header.nlmsg_len > size)
        return false;
    struct ifinfomsg link = {};
    memcpy(&link, bytes + sizeof(header), std::min(header.nlmsg_len - sizeof(header), sizeof(link)));
    event->event_type = event_type_of(header.nlmsg_type, link);
    event->linux_ifindex =
        event->event_type == YB_NET_IF_EVENT_NONE ? 0 : static_cast<uint32_t>(link.ifi_index);
    return true;
}
