// SPDX-License-Identifier: Apache-2.0
//
// What a datagram of an event socket says about a link: pure, so that any bytes
// can be put through it. event_receive.cc receives them and looks the link up.
#ifndef YBNET_NET_LIB_EVENT_PARSE_H
#define YBNET_NET_LIB_EVENT_PARSE_H

#include <cstddef>
#include <cstdint>

struct link_event {
    uint32_t event_type;    // YB_NET_IF_EVENT_*; NONE when the message is not about a link
    uint32_t linux_ifindex; // 0 with NONE
};

// Reads the first message of a datagram of size bytes as received, at any alignment; what follows it is not
// looked at. False, with *event untouched, when there is no whole message. Reads nothing behind the message;
// a link message too short for its fields has zeros in them.
bool link_event_parse(const void *datagram, size_t size, link_event *event);

#endif
