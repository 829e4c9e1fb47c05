// SPDX-License-Identifier: Apache-2.0
//
// See ack.h. Rests on the message layout of netlink(7).
#include "net_lib/rtnl/ack.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <linux/netlink.h>

#include "net_lib_db/probe.h"

namespace {

constexpr size_t header_size = sizeof(struct nlmsghdr);

// An answer of type NLMSG_ERROR, payload_size bytes of it.
rtnl_ack error_answer(const std::byte *payload, size_t payload_size) {
    struct nlmsgerr answer;
    if (payload_size < sizeof(answer)) {
        (void)fputs("ERROR truncated\n", stderr);
        return rtnl_ack::failed;
    }
    memcpy(&answer, payload, sizeof(answer));
    // Negated in unsigned arithmetic: a broken answer may carry INT_MIN.
    const int reason = static_cast<int>(-static_cast<uint32_t>(answer.error));
    YB_PROBE(ack, answer.msg.nlmsg_type, answer.msg.nlmsg_seq, reason);
    if (answer.error == 0)
        return rtnl_ack::acknowledged;
    (void)fprintf(stderr, "RTNETLINK answers [%d]: %s\n", reason, strerror(reason));
    errno = reason;
    return rtnl_ack::failed;
}

} // namespace

rtnl_ack rtnl_ack_find(const void *datagram, size_t size, bool truncated, uint32_t port_id,
                       uint32_t sequence) {
    const auto *at = static_cast<const std::byte *>(datagram);
    size_t remaining = size;
    while (remaining >= header_size) {
        struct nlmsghdr header;
        memcpy(&header, at, sizeof(header));
        const size_t length = header.nlmsg_len;
        if (length < header_size || length > remaining) {
            if (truncated)
                (void)fputs("Truncated message\n", stderr);
            else
                (void)fprintf(stderr, "!!!malformed message: len=%d\n", static_cast<int>(length));
            return rtnl_ack::failed;
        }
        if (header.nlmsg_pid == port_id && header.nlmsg_seq == sequence) {
            if (header.nlmsg_type == NLMSG_ERROR)
                return error_answer(at + header_size, length - header_size);
            (void)fputs("Unexpected reply!!!\n", stderr);
        }
        // The last message may end unaligned: its padding is not part of the datagram.
        const size_t step = NLMSG_ALIGN(length);
        if (step >= remaining) {
            remaining = 0;
            break;
        }
        remaining -= step;
        at += step;
    }
    if (truncated) {
        (void)fputs("Message truncated\n", stderr);
        return rtnl_ack::receive_further;
    }
    if (remaining != 0) {
        (void)fprintf(stderr, "!!!Remnant of size %d\n", static_cast<int>(remaining));
        return rtnl_ack::failed;
    }
    return rtnl_ack::receive_further;
}
