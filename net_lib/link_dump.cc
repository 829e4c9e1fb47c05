// SPDX-License-Identifier: Apache-2.0
//
// See link_dump.h. Rests on netlink(7) and rtnetlink(7).
#include "net_lib/link_dump.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include "net_lib/net_lib_log.h"
#include "net_lib_db/probe.h"

namespace {

constexpr size_t receive_buffer_size = 8192;
constexpr uint32_t sequence = 1; // the socket's only request

// The request with its one byte of payload, and the padding that is not sent.
struct dump_request {
    struct nlmsghdr header;
    struct rtgenmsg family;
    std::byte padding[3];
};
static_assert(sizeof(dump_request) == 20);

template <typename header_t> header_t header_at(const std::byte *bytes) {
    header_t header;
    memcpy(&header, bytes, sizeof(header));
    return header;
}

// What is left behind a message or attribute of length bytes, which may lack its padding at the end.
size_t step_over(size_t length, size_t remaining) {
    const size_t step = NLMSG_ALIGN(length);
    return step < remaining ? step : remaining;
}

bool has_name(const std::byte *attributes, size_t size) {
    while (size >= sizeof(struct rtattr)) {
        const auto attribute = header_at<struct rtattr>(attributes);
        if (attribute.rta_len < sizeof(attribute) || attribute.rta_len > size)
            return false;
        if (attribute.rta_type == IFLA_IFNAME)
            return true;
        const size_t step = step_over(attribute.rta_len, size);
        attributes += step;
        size -= step;
    }
    return false;
}

// Only a link message with a name counts.
void link_message(const std::byte *payload, size_t size, uint32_t linux_ifindex, link_dump *dump) {
    if (size < sizeof(struct ifinfomsg))
        return;
    const auto link = header_at<struct ifinfomsg>(payload);
    if (static_cast<uint32_t>(link.ifi_index) != linux_ifindex ||
        !has_name(payload + sizeof(link), size - sizeof(link)))
        return;
    dump->state = (link.ifi_flags & IFF_UP) != 0 ? 1 : 0;
    dump->found = true;
    dump->done = true;
}

void fail_with(int error, link_dump *dump) {
    dump->reason = static_cast<int>(-static_cast<uint32_t>(error)); // unsigned: INT_MIN has no negative
    dump->failed = true;
    dump->done = true;
}

void error_message(const std::byte *payload, size_t size, link_dump *dump) {
    // Without room for a number it is an error all the same: no dump will follow.
    const int error = size < sizeof(int) ? -EPROTO : header_at<int>(payload);
    if (error != 0)
        fail_with(error, dump);
}

// The kernel also ends a dump that it had to break off, with the reason in the payload. A link seen before
// that is an answer all the same.
void done_message(const std::byte *payload, size_t size, link_dump *dump) {
    const int error = size < sizeof(int) ? 0 : header_at<int>(payload);
    if (error < 0 && !dump->found)
        fail_with(error, dump);
    dump->done = true;
}

bool send_request(int fd) {
    dump_request request = {};
    request.header.nlmsg_len = NLMSG_LENGTH(sizeof(request.family));
    request.header.nlmsg_type = RTM_GETLINK;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ROOT | NLM_F_MATCH;
    request.header.nlmsg_seq = sequence;
    request.header.nlmsg_pid = static_cast<uint32_t>(getpid());
    request.family.rtgen_family = AF_PACKET;

    struct sockaddr_nl kernel = {};
    kernel.nl_family = AF_NETLINK;
    struct iovec part = {&request, request.header.nlmsg_len};
    struct msghdr message = {};
    message.msg_name = &kernel;
    message.msg_namelen = sizeof(kernel);
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    return sendmsg(fd, &message, 0) >= 0;
}

// Bytes of the next datagram of the dump, 0 for none; negative when receiving failed. *truncated: it was
// larger than the buffer.
ssize_t receive_datagram(int fd, std::byte *buffer, size_t size, bool *truncated) {
    for (;;) {
        struct iovec part = {buffer, size};
        struct msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        const ssize_t received = recvmsg(fd, &message, 0);
        if (received >= 0 || errno != EINTR) {
            *truncated = (message.msg_flags & MSG_TRUNC) != 0;
            return received;
        }
    }
}

// The dump, from its request on. Failures are logged under the exported helper's name.
yb_status_t dump_links(int fd, uint32_t linux_ifindex, uint32_t *state) {
    if (!send_request(fd)) {
        NET_LIB_LOG_AS("__if_state_get", YB_LEVEL_ERROR, "__if_state_get: sendmsg has failed\n");
        return YB_STATUS_ERROR;
    }
    alignas(struct nlmsghdr) std::byte buffer[receive_buffer_size];
    link_dump dump = {};
    while (!dump.done) {
        bool truncated = false;
        const ssize_t received = receive_datagram(fd, buffer, sizeof(buffer), &truncated);
        if (received < 0) {
            NET_LIB_LOG_AS("__if_state_get", YB_LEVEL_ERROR, "__if_state_get: recvmsg has failed\n");
            return YB_STATUS_ERROR; // what the buffer holds is no answer
        }
        if (received == 0)
            break;
        link_dump_walk(buffer, static_cast<size_t>(received), linux_ifindex, &dump);
        if (truncated && !dump.done) {
            // The link, or the end of the dump, may have been in what is lost: no use waiting for it.
            NET_LIB_LOG_AS("__if_state_get", YB_LEVEL_ERROR, "__if_state_get: recvmsg has failed\n");
            return YB_STATUS_ERROR;
        }
    }
    if (dump.failed) {
        const char *const reason = strerror(dump.reason);
        NET_LIB_LOG_AS("__if_state_get", YB_LEVEL_ERROR,
                       "__if_state_get: link dump was answered with error [%d]: %s\n", dump.reason, reason);
        return YB_STATUS_ERROR;
    }
    if (!dump.found)
        return YB_STATUS_PARAM_ERROR;
    *state = dump.state;
    return YB_STATUS_SUCCESS;
}

} // namespace

void link_dump_walk(const void *datagram, size_t size, uint32_t linux_ifindex, link_dump *dump) {
    const auto *at = static_cast<const std::byte *>(datagram);
    // To the datagram's end, also after the link was found.
    while (size >= sizeof(struct nlmsghdr)) {
        const auto header = header_at<struct nlmsghdr>(at);
        if (header.nlmsg_len < sizeof(header) || header.nlmsg_len > size)
            return;
        const std::byte *const payload = at + sizeof(header);
        const size_t payload_size = header.nlmsg_len - sizeof(header);
        switch (header.nlmsg_type) {
        case NLMSG_DONE:
            done_message(payload, payload_size, dump);
            break;
        case NLMSG_ERROR:
            error_message(payload, payload_size, dump);
            break;
        case RTM_NEWLINK:
            link_message(payload, payload_size, linux_ifindex, dump);
            break;
        default:
            break;
        }
        const size_t step = step_over(header.nlmsg_len, size);
        at += step;
        size -= step;
    }
}

yb_status_t __if_state_get(uint32_t linux_ifindex, uint32_t *state) {
    const int fd = socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE);
    if (fd < 0) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "__if_state_get: cannot open NETLINK_ROUTE socket\n");
        return YB_STATUS_ERROR;
    }
    (void)fcntl(fd, F_SETFD, FD_CLOEXEC); // cannot fail on a descriptor just made
    YB_PROBE(request, RTM_GETLINK, 0, sequence);
    const yb_status_t status = dump_links(fd, linux_ifindex, state);
    YB_PROBE(request_end, RTM_GETLINK, sequence, status == YB_STATUS_ERROR ? 1 : 0);
    (void)close(fd);
    return status;
}
