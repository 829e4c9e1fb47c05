// SPDX-License-Identifier: Apache-2.0
//
// See link_message.h. Rests on rtnetlink(7); attributes are walked by libnl.
#include "tools/ybnetctl/kernel/link_message.h"

#include <array>
#include <cstring>

#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netlink/attr.h>
#include <vector>

#include "net_lib/event_parse.h"
#include "ybnet/yb_net_event.h"

namespace ybnetctl {

namespace {

void read_attributes(std::byte *payload, size_t size, link_message &message) {
    std::array<nlattr *, IFLA_MAX + 1> found{};
    std::array<nla_policy, IFLA_MAX + 1> policy{};
    policy[IFLA_CARRIER].type = NLA_U8; // its length is checked; names are copied within theirs
    if (nla_parse(found.data(), IFLA_MAX, reinterpret_cast<nlattr *>(payload), static_cast<int>(size),
                  policy.data()) != 0)
        return;
    if (found[IFLA_IFNAME] != nullptr) {
        std::array<char, IFNAMSIZ> name{};
        (void)nla_strlcpy(name.data(), found[IFLA_IFNAME], name.size());
        message.name = name.data();
    }
    if (found[IFLA_CARRIER] != nullptr)
        message.carrier = message.up && nla_get_u8(found[IFLA_CARRIER]) != 0;
}

} // namespace

std::optional<link_message> parse_link_message(const void *datagram, size_t size) {
    link_event event{};
    if (!link_event_parse(datagram, size, &event) || event.event_type == YB_NET_IF_EVENT_NONE)
        return std::nullopt;
    link_message message{.event_type = event.event_type, .ifindex = event.linux_ifindex, .name = {}};

    nlmsghdr header{};
    std::memcpy(&header, datagram, sizeof(header)); // whole, or the event would not have been parsed
    ifinfomsg link{};
    constexpr size_t fixed = NLMSG_HDRLEN + NLMSG_ALIGN(sizeof(link));
    if (header.nlmsg_len < fixed)
        return message;
    const auto *const bytes = static_cast<const std::byte *>(datagram);
    std::memcpy(&link, bytes + NLMSG_HDRLEN, sizeof(link));
    message.up = (link.ifi_flags & IFF_UP) != 0;
    message.bridge_port = link.ifi_family == AF_BRIDGE;
    std::vector<std::byte> attributes(bytes + fixed, bytes + header.nlmsg_len); // aligned as libnl wants it
    read_attributes(attributes.data(), attributes.size(), message);
    return message;
}

} // namespace ybnetctl
