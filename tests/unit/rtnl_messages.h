// SPDX-License-Identifier: Apache-2.0
//
// Netlink messages as a kernel, or something broken, would send them.
#ifndef YBNET_TESTS_RTNL_MESSAGES_H
#define YBNET_TESTS_RTNL_MESSAGES_H

#include <cstdint>
#include <cstring>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <vector>

namespace rtnl_messages {

using bytes = std::vector<uint8_t>;

constexpr uint32_t our_port = 4711;
constexpr uint32_t our_sequence = 1000;

inline bytes operator+(bytes left, const bytes &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline bytes with_length(bytes of, uint32_t length) {
    memcpy(of.data(), &length, sizeof(length));
    return of;
}

inline bytes message(size_t size, uint32_t sequence, uint32_t port, uint16_t type) {
    struct nlmsghdr header = {};
    header.nlmsg_len = static_cast<uint32_t>(size);
    header.nlmsg_type = type;
    header.nlmsg_seq = sequence;
    header.nlmsg_pid = port;
    bytes whole(size < sizeof(header) ? sizeof(header) : size, 0);
    memcpy(whole.data(), &header, sizeof(header));
    whole.resize(size);
    return whole;
}

// A message that answers somebody else.
inline bytes other_message(size_t size) {
    return message(size, our_sequence + 77, our_port, RTM_NEWLINK);
}

inline bytes answer(int32_t error, uint32_t sequence = our_sequence, uint32_t port = our_port) {
    bytes whole = message(sizeof(struct nlmsghdr) + sizeof(struct nlmsgerr), sequence, port, NLMSG_ERROR);
    memcpy(whole.data() + sizeof(struct nlmsghdr), &error, sizeof(error));
    return whole;
}

} // namespace rtnl_messages

#endif
