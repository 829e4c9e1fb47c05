// SPDX-License-Identifier: Apache-2.0
//
// See link_watch.h. Rests on netlink(7) and socket(7).
#include "tools/ybnetctl/see/link_watch.h"

#include <array>
#include <cerrno>
#include <cstring>

#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <sys/socket.h>

#include "tools/ybnetctl/outcome.h"

namespace ybnetctl {

namespace {

// The kernel's link messages have a few KiB; alternative names can make them longer.
constexpr size_t datagram_size = 1 << 17;

} // namespace

link_watch::link_watch(const std::string &ns, uint32_t buffer_size) : ns_(ns), datagram_(datagram_size) {
    route_socket opened = open_route_socket(ns, RTMGRP_LINK);
    if (opened.descriptor.number() < 0)
        throw failure{opened.error == ENOENT ? exit_code::not_found : exit_code::failed,
                      namespace_in_words(ns),
                      opened.error == ENOENT ? "there is none of this name"
                                             : opened.step + ": " + std::strerror(opened.error),
                      opened.error == ENOENT ? "ip netns list" : "run it as root",
                      {}};
    descriptor_ = std::move(opened.descriptor);
    identity_ = opened.of;
    // The first may go beyond net.core.rmem_max, and is root's.
    if (setsockopt(descriptor_.number(), SOL_SOCKET, SO_RCVBUFFORCE, &buffer_size, sizeof(buffer_size)) != 0)
        (void)setsockopt(descriptor_.number(), SOL_SOCKET, SO_RCVBUF, &buffer_size, sizeof(buffer_size));
}

uint32_t link_watch::buffer_size() const {
    uint32_t size = 0;
    socklen_t length = sizeof(size);
    if (getsockopt(descriptor_.number(), SOL_SOCKET, SO_RCVBUF, &size, &length) != 0)
        return 0;
    return size / 2; // the kernel doubles what it is asked for
}

bool link_watch::is_current() const {
    return ns_.empty() || identity_of_namespace(ns_) == identity_;
}

link_watch::reception link_watch::receive(link_message &message) {
    sockaddr_nl sender{};
    socklen_t sender_size = sizeof(sender);
    ssize_t received;
    do {
        received = recvfrom(descriptor_.number(), datagram_.data(), datagram_.size(), MSG_DONTWAIT,
                            reinterpret_cast<sockaddr *>(&sender), &sender_size);
    } while (received < 0 && errno == EINTR);
    if (received < 0) {
        if (errno == EAGAIN)
            return reception::nothing_left;
        if (errno == ENOBUFS)
            return reception::lost;
        throw failure{exit_code::failed,
                      namespace_in_words(ns_),
                      std::string("receiving link events: ") + std::strerror(errno),
                      "",
                      {}};
    }
    if (sender.nl_pid != 0)
        return reception::other; // not the kernel
    const auto parsed = parse_link_message(datagram_.data(), static_cast<size_t>(received));
    if (!parsed)
        return reception::other;
    message = *parsed;
    return reception::message;
}

std::optional<uint32_t> link_watch::take_dropped() {
    std::array<uint32_t, SK_MEMINFO_VARS> numbers{};
    socklen_t size = sizeof(numbers);
    if (getsockopt(descriptor_.number(), SOL_SOCKET, SO_MEMINFO, numbers.data(), &size) != 0 ||
        size <= SK_MEMINFO_DROPS * sizeof(uint32_t))
        return std::nullopt;
    const uint32_t dropped = numbers[SK_MEMINFO_DROPS] - dropped_before_;
    dropped_before_ = numbers[SK_MEMINFO_DROPS];
    return dropped;
}

} // namespace ybnetctl
