// SPDX-License-Identifier: Apache-2.0
//
// One link message of the kernel, as monitor shows it. What kind of event it is
// comes from net_lib/event_parse.h, the library's own rule; this adds the link's
// name and state. Pure: any bytes can be put through it.
#ifndef YBNET_YBNETCTL_KERNEL_LINK_MESSAGE_H
#define YBNET_YBNETCTL_KERNEL_LINK_MESSAGE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace ybnetctl {

struct link_message {
    uint32_t event_type = 0; // YB_NET_IF_EVENT_*, never NONE
    uint32_t ifindex = 0;
    std::string name; // "" when the message has none
    bool up = false;
    bool carrier = false;     // never without up, as sysfs has it
    bool bridge_port = false; // the message is the bridge's: "deleted" then means that the netdev left it
};

// The first message of a datagram; nothing when it is not about a link or not whole.
std::optional<link_message> parse_link_message(const void *datagram, size_t size);

} // namespace ybnetctl

#endif
