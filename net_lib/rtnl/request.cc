// SPDX-License-Identifier: Apache-2.0
//
// See request.h. Rests on netlink(7) and rtnetlink(7).
#include "net_lib/rtnl/request.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/socket.h>

#include "net_lib/rtnl/ack.h"
#include "net_lib_db/message.h"
#include "net_lib_db/probe.h"

YB_EXPORT rtnl_handle_t rth = {-1, {}, 0, 0};

namespace {

constexpr int YB_NET_RTNL_SNDBUF_SIZE = 32768;
constexpr int YB_NET_RTNL_RCVBUF_SIZE = 1048576;
constexpr size_t YB_NET_RTNL_RECV_BUF_SIZE = 16384;

constexpr socklen_t address_size = sizeof(struct sockaddr_nl);
static_assert(address_size == 12);

int32_t open_failed(const char *step) {
    perror(step);
    return 1; // the descriptor is dropped, open: the next call makes a fresh socket
}

// The netdev that a request names; 0 when it names none or has no family header.
uint32_t ifindex_of(const struct nlmsghdr *n) {
    static_assert(offsetof(struct ifinfomsg, ifi_index) == offsetof(struct ifaddrmsg, ifa_index));
    struct ifaddrmsg family;
    if (n->nlmsg_len < NLMSG_LENGTH(sizeof(family)))
        return 0;
    memcpy(&family, NLMSG_DATA(n), sizeof(family));
    return family.ifa_index;
}

} // namespace

int32_t rtnl_open() {
    if (rth.opened == 1)
        return 0;
    rth = {};
    rth.fd = socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE);
    if (rth.fd < 0)
        return open_failed("Cannot open netlink socket");
    (void)fcntl(rth.fd, F_SETFD, FD_CLOEXEC); // cannot fail on a descriptor just made
    if (setsockopt(rth.fd, SOL_SOCKET, SO_SNDBUF, &YB_NET_RTNL_SNDBUF_SIZE, sizeof(int)) < 0)
        return open_failed("SO_SNDBUF");
    if (setsockopt(rth.fd, SOL_SOCKET, SO_RCVBUF, &YB_NET_RTNL_RCVBUF_SIZE, sizeof(int)) < 0)
        return open_failed("SO_RCVBUF");
    rth.local.nl_family = AF_NETLINK;
    if (bind(rth.fd, reinterpret_cast<const struct sockaddr *>(&rth.local), address_size) < 0)
        return open_failed("Cannot bind netlink socket");
    socklen_t size = address_size;
    if (getsockname(rth.fd, reinterpret_cast<struct sockaddr *>(&rth.local), &size) < 0)
        return open_failed("Cannot getsockname");
    if (size != address_size) {
        (void)fprintf(stderr, "Wrong address length %d\n", static_cast<int>(size));
        return 1;
    }
    if (rth.local.nl_family != AF_NETLINK) {
        (void)fprintf(stderr, "Wrong address family %d\n", rth.local.nl_family);
        return 1;
    }
    rth.seq = static_cast<uint32_t>(time(nullptr));
    rth.opened = 1;
    return 0;
}

namespace {

// Sends a stamped request and waits for the answer to it: rtnl_talk()'s result.
int32_t exchange(struct nlmsghdr *n, uint32_t sequence) {
    struct sockaddr_nl kernel = {};
    kernel.nl_family = AF_NETLINK;

    struct iovec part = {n, n->nlmsg_len};
    struct msghdr message = {};
    message.msg_name = &kernel;
    message.msg_namelen = address_size;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (sendmsg(rth.fd, &message, 0) < 0) {
        perror("Cannot talk to rtnetlink");
        return 1;
    }

    alignas(struct nlmsghdr) std::byte buffer[YB_NET_RTNL_RECV_BUF_SIZE] = {};
    for (;;) {
        struct sockaddr_nl source = {};
        part = {buffer, sizeof(buffer)};
        message = {};
        message.msg_name = &source;
        message.msg_namelen = address_size;
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        const ssize_t received = recvmsg(rth.fd, &message, 0);
        if (received < 0) {
            const int reason = errno;
            if (reason == EINTR || reason == EAGAIN)
                continue;
            (void)fprintf(stderr, "netlink receive error %s (%d)\n", strerror(reason), reason);
            return 1;
        }
        if (received == 0) {
            (void)fputs("EOF on netlink\n", stderr);
            return 1;
        }
        if (message.msg_namelen != address_size) {
            (void)fprintf(stderr, "sender address length == %d\n", static_cast<int>(message.msg_namelen));
            return 1;
        }
        const bool truncated = (message.msg_flags & MSG_TRUNC) != 0;
        const rtnl_ack answer =
            rtnl_ack_find(buffer, static_cast<size_t>(received), truncated, rth.local.nl_pid, sequence);
        if (answer != rtnl_ack::receive_further)
            return answer == rtnl_ack::acknowledged ? 0 : 1;
    }
}

} // namespace

int32_t rtnl_talk(struct nlmsghdr *n) {
    const uint32_t sequence = ++rth.seq;
    n->nlmsg_seq = sequence;
    n->nlmsg_flags |= NLM_F_ACK;

    YB_PROBE(request, n->nlmsg_type, ifindex_of(n), sequence);
    const int32_t result = exchange(n, sequence);
    YB_PROBE(request_end, n->nlmsg_type, sequence, result);
    return result;
}
