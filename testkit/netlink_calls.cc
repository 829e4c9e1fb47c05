// SPDX-License-Identifier: Apache-2.0
//
// The C library's socket functions, interposed for NETLINK_ROUTE sockets that are
// made while the kit is active; all others go to the real functions. Such a
// socket is what event_queue.h says: poll(2), fcntl(2) and the like just work.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

#include "testkit/directory.h"
#include "testkit/event_queue.h"
#include "testkit/netlink_peer.h"
#include "testkit/real_calls.h"

namespace {

using namespace testkit;

// For each descriptor that is a socket of the kit: the process that made it, and its port id (0: not bound).
constexpr int descriptors = 65536;
std::atomic<uint64_t> sockets[descriptors];

// A descriptor may have been closed past close(), by dup2(2) or close_range(2), and be something else now.
bool is_ours(int descriptor) {
    if (descriptor < 0 || descriptor >= descriptors || sockets[descriptor].load() == 0)
        return false;
    int domain = 0;
    socklen_t size = sizeof(domain);
    const int before = errno;
    if (getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_UNIX)
        return true;
    errno = before;
    sockets[descriptor] = 0;
    return false;
}

uint32_t port_of(int descriptor) {
    return static_cast<uint32_t>(sockets[descriptor].load());
}

void mark(int descriptor, uint32_t port_id) {
    sockets[descriptor] = static_cast<uint64_t>(getpid()) << 32 | port_id;
}

int answer(int error) {
    if (error == 0)
        return 0;
    errno = error;
    return -1;
}

// Callers hold the directory's lock.
int give_port(int descriptor, uint32_t wanted) {
    uint32_t port_id = wanted;
    const int error = endpoint_bind(descriptor, &port_id);
    if (error == 0)
        mark(descriptor, port_id);
    return error;
}

ssize_t send_request(int descriptor, const std::string &request) {
    if (port_of(descriptor) == 0) {
        const directory_lock lock;
        if (const int error = give_port(descriptor, 0); error != 0)
            return answer(error);
    }
    if (!peer_take_request(port_of(descriptor), request))
        return answer(ENETDOWN); // its test has ended
    return static_cast<ssize_t>(request.size());
}

// Waits for a datagram like the real call would; false with errno.
bool receive(int descriptor, int flags, std::string *datagram) {
    for (;;) {
        char wake = 0;
        const int how = MSG_PEEK | (flags & MSG_DONTWAIT);
        if (CALL_REAL(recv, ssize_t(int, void *, size_t, int), descriptor, &wake, 1, how) < 0)
            return false;
        const directory_lock lock;
        switch (queue_take(descriptor, port_of(descriptor), (flags & MSG_PEEK) != 0, datagram)) {
        case taken::message:
            return true;
        case taken::loss:
            errno = ENOBUFS;
            return false;
        case taken::nothing:
            break; // another thread was faster
        }
    }
}

void write_address(uint32_t port_id, void *address, socklen_t *size) {
    struct sockaddr_nl kernel = {};
    kernel.nl_family = AF_NETLINK;
    kernel.nl_pid = port_id;
    if (address != nullptr)
        memcpy(address, &kernel, std::min<size_t>(*size, sizeof(kernel)));
    *size = sizeof(kernel);
}

ssize_t copy_out(const std::string &datagram, void *buffer, size_t size, int flags) {
    const size_t copied = std::min(size, datagram.size());
    memcpy(buffer, datagram.data(), copied);
    return static_cast<ssize_t>((flags & MSG_TRUNC) != 0 ? datagram.size() : copied);
}

} // namespace

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
    if (domain != AF_NETLINK || protocol != NETLINK_ROUTE || !is_active())
        return CALL_REAL(socket, int(int, int, int), domain, type, protocol);
    const int flags = type & (SOCK_CLOEXEC | SOCK_NONBLOCK);
    const int descriptor = CALL_REAL(socket, int(int, int, int), AF_UNIX, SOCK_DGRAM | flags, 0);
    if (descriptor >= descriptors) {
        (void)close(descriptor);
        return answer(EMFILE);
    }
    if (descriptor >= 0)
        mark(descriptor, 0);
    return descriptor;
}

int close(int descriptor) {
    if (is_ours(descriptor)) {
        const uint64_t held = sockets[descriptor].exchange(0);
        const auto port_id = static_cast<uint32_t>(held);
        // A child's copy is only a copy.
        if (port_id != 0 && static_cast<pid_t>(held >> 32) == getpid()) {
            const directory_lock lock;
            endpoint_remove(port_id);
        }
    }
    return CALL_REAL(close, int(int), descriptor);
}

int bind(int descriptor, const struct sockaddr *address, socklen_t size) noexcept {
    if (!is_ours(descriptor))
        return CALL_REAL(bind, int(int, const struct sockaddr *, socklen_t), descriptor, address, size);
    struct sockaddr_nl wanted = {};
    if (size < sizeof(wanted) || address->sa_family != AF_NETLINK || port_of(descriptor) != 0)
        return answer(EINVAL);
    memcpy(&wanted, address, sizeof(wanted));
    const directory_lock lock;
    const int error = give_port(descriptor, wanted.nl_pid);
    if (error == 0 && (wanted.nl_groups & RTMGRP_LINK) != 0)
        endpoint_subscribe(port_of(descriptor), true);
    return answer(error);
}

int getsockname(int descriptor, struct sockaddr *address, socklen_t *size) noexcept {
    if (!is_ours(descriptor))
        return CALL_REAL(getsockname, int(int, struct sockaddr *, socklen_t *), descriptor, address, size);
    write_address(port_of(descriptor), address, size);
    return 0;
}

int setsockopt(int descriptor, int level, int option, const void *value, socklen_t size) noexcept {
    if (!is_ours(descriptor) || level != SOL_NETLINK)
        return CALL_REAL(setsockopt, int(int, int, int, const void *, socklen_t), descriptor, level, option,
                         value, size);
    const bool joins = option == NETLINK_ADD_MEMBERSHIP;
    if (!joins && option != NETLINK_DROP_MEMBERSHIP)
        return 0; // about the kernel's manners only
    int group = 0;
    if (size < sizeof(group))
        return answer(EINVAL);
    memcpy(&group, value, sizeof(group));
    const directory_lock lock;
    if (port_of(descriptor) == 0) {
        if (const int error = give_port(descriptor, 0); error != 0)
            return answer(error);
    }
    if (group == RTNLGRP_LINK)
        endpoint_subscribe(port_of(descriptor), joins);
    return 0;
}

ssize_t sendmsg(int descriptor, const struct msghdr *message, int flags) {
    if (!is_ours(descriptor))
        return CALL_REAL(sendmsg, ssize_t(int, const struct msghdr *, int), descriptor, message, flags);
    std::string request;
    for (size_t i = 0; i < message->msg_iovlen; i++)
        request.append(static_cast<const char *>(message->msg_iov[i].iov_base), message->msg_iov[i].iov_len);
    return send_request(descriptor, request);
}

ssize_t sendto(int descriptor, const void *data, size_t size, int flags, const struct sockaddr *address,
               socklen_t address_size) {
    if (!is_ours(descriptor))
        return CALL_REAL(sendto, ssize_t(int, const void *, size_t, int, const struct sockaddr *, socklen_t),
                         descriptor, data, size, flags, address, address_size);
    return send_request(descriptor, std::string(static_cast<const char *>(data), size));
}

ssize_t send(int descriptor, const void *data, size_t size, int flags) {
    if (!is_ours(descriptor))
        return CALL_REAL(send, ssize_t(int, const void *, size_t, int), descriptor, data, size, flags);
    return send_request(descriptor, std::string(static_cast<const char *>(data), size));
}

ssize_t recvmsg(int descriptor, struct msghdr *message, int flags) {
    if (!is_ours(descriptor))
        return CALL_REAL(recvmsg, ssize_t(int, struct msghdr *, int), descriptor, message, flags);
    std::string datagram;
    if (!receive(descriptor, flags, &datagram))
        return -1;
    size_t copied = 0;
    for (size_t i = 0; i < message->msg_iovlen; i++) {
        const size_t part = std::min(message->msg_iov[i].iov_len, datagram.size() - copied);
        memcpy(message->msg_iov[i].iov_base, datagram.data() + copied, part);
        copied += part;
    }
    message->msg_controllen = 0;
    message->msg_flags = copied < datagram.size() ? MSG_TRUNC : 0;
    if (message->msg_name != nullptr)
        write_address(0, message->msg_name, &message->msg_namelen);
    return static_cast<ssize_t>((flags & MSG_TRUNC) != 0 ? datagram.size() : copied);
}

ssize_t recvfrom(int descriptor, void *buffer, size_t size, int flags, struct sockaddr *address,
                 socklen_t *address_size) {
    if (!is_ours(descriptor))
        return CALL_REAL(recvfrom, ssize_t(int, void *, size_t, int, struct sockaddr *, socklen_t *),
                         descriptor, buffer, size, flags, address, address_size);
    std::string datagram;
    if (!receive(descriptor, flags, &datagram))
        return -1;
    if (address_size != nullptr)
        write_address(0, address, address_size);
    return copy_out(datagram, buffer, size, flags);
}

ssize_t recv(int descriptor, void *buffer, size_t size, int flags) {
    if (!is_ours(descriptor))
        return CALL_REAL(recv, ssize_t(int, void *, size_t, int), descriptor, buffer, size, flags);
    std::string datagram;
    return receive(descriptor, flags, &datagram) ? copy_out(datagram, buffer, size, flags) : -1;
}

// What the two become in programs built with _FORTIFY_SOURCE.
ssize_t __recv_chk(int descriptor, void *buffer, size_t size, size_t room, int flags) {
    if (size > room)
        abort();
    return recv(descriptor, buffer, size, flags);
}

ssize_t __recvfrom_chk(int descriptor, void *buffer, size_t size, size_t room, int flags,
                       struct sockaddr *address, socklen_t *address_size) {
    if (size > room)
        abort();
    return recvfrom(descriptor, buffer, size, flags, address, address_size);
}

} // extern "C"
