// SPDX-License-Identifier: Apache-2.0
//
// rtnetlink messages as the kernel writes them (netlink(7), rtnetlink(7)): of a
// netdev, of an answer, of the end of a dump.
#ifndef YBNET_TESTKIT_LINK_MESSAGE_H
#define YBNET_TESTKIT_LINK_MESSAGE_H

#include <cstdint>
#include <linux/netlink.h>
#include <string>
#include <string_view>

#include "testkit/netdev_table.h"

namespace testkit {

// RTM_NEWLINK or RTM_DELLINK; change: the flags marked as changed. An event unless flags, sequence and port
// id say whose answer it is.
std::string link_message(uint16_t type, const netdev &device, uint32_t change, uint16_t flags = 0,
                         uint32_t sequence = 0, uint32_t port_id = 0);
// The same without attributes, of a link that need not exist.
std::string bare_link_message(uint16_t type, uint32_t ifindex, uint32_t flags, uint32_t change);

// The acknowledgement of a request (error 0), or its refusal.
std::string answer_message(std::string_view request, int error, uint32_t port_id);
std::string done_message(uint32_t sequence, uint32_t port_id);

// The first header of a message or datagram; zeros when it is too short.
struct nlmsghdr header_of(std::string_view message);

// The payload of the first attribute of this type among the attributes given; empty when there is none.
std::string_view attribute_in(std::string_view attributes, uint16_t type);
// The text of it, up to its NUL or its end.
std::string attribute_text(std::string_view attributes, uint16_t type);

} // namespace testkit

#endif
