// SPDX-License-Identifier: Apache-2.0
//
// Event sockets: subscribing one to the kernel's link messages, its descriptor
// and its buffers. Rests on netlink(7), socket(7) and, for sockets that the
// caller made with it, libnl-3. Receiving is event_receive.cc's.
#include "ybnet/net_lib.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/rtnetlink.h>
#include <netlink/socket.h>
#include <sys/socket.h>
#include <unistd.h>

#include "net_lib/net_lib_log.h"

namespace {

yb_status_t register_link_group(yb_net_sk_t *event_socket) {
    event_socket->type = YB_NET_SK_TYPE_RAW; // stays, whatever fails
    event_socket->fd = socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE);
    if (event_socket->fd < 0) {
        NET_LIB_LOG_AS("yb_net_register_net_if_event_group", YB_LEVEL_ERROR,
                       "yb_net_register_net_if_event_group: cannot open NETLINK_ROUTE socket\n");
        return YB_STATUS_ERROR;
    }
    (void)fcntl(event_socket->fd, F_SETFD, FD_CLOEXEC); // cannot fail on a descriptor just made
    struct sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_pid = static_cast<uint32_t>(getpid());
    address.nl_groups = RTMGRP_LINK;
    if (bind(event_socket->fd, reinterpret_cast<const struct sockaddr *>(&address), sizeof(address)) < 0) {
        NET_LIB_LOG_AS("yb_net_register_net_if_event_group", YB_LEVEL_ERROR,
                       "yb_net_register_net_if_event_group: cannot bind NETLINK_ROUTE socket, "
                       "please check you are root\n");
        return YB_STATUS_ERROR;
    }
    return YB_STATUS_SUCCESS;
}

yb_status_t set_raw_socket_buffers(int fd, uint32_t rx_size, uint32_t tx_size) {
    if (setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &tx_size, sizeof(tx_size)) < 0) {
        const char *const reason = strerror(errno);
        NET_LIB_LOG_AS("yb_net_set_buffer_size", YB_LEVEL_ERROR,
                       "yb_net_set_buffer_size: setsockopt for SO_SNDBUF returned error (%s)\n", reason);
        return YB_STATUS_ERROR;
    }
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &rx_size, sizeof(rx_size)) < 0) {
        const char *const reason = strerror(errno);
        NET_LIB_LOG_AS("yb_net_set_buffer_size", YB_LEVEL_ERROR,
                       "yb_net_set_buffer_size: setsockopt for SO_RCVBUF returned error (%s)\n", reason);
        return YB_STATUS_ERROR;
    }
    return YB_STATUS_SUCCESS;
}

} // namespace

YB_EXPORT yb_status_t yb_net_register_net_if_event_group(yb_access_cmd_t cmd, uint32_t group,
                                                         yb_net_sk_t *in_net_sk) {
    NET_LIB_TRACE_FUNCTION();
    if (in_net_sk == nullptr)
        return YB_STATUS_PARAM_NULL;
    switch (cmd) {
    case YB_ACCESS_CMD_CREATE:
        if (group != YB_NET_IF_EVENT_GROUP_LINK)
            return YB_STATUS_PARAM_ERROR;
        return register_link_group(in_net_sk);
    case YB_ACCESS_CMD_DESTROY:
        if (in_net_sk->type != YB_NET_SK_TYPE_RAW)
            return YB_STATUS_PARAM_ERROR;
        in_net_sk->type = YB_NET_SK_TYPE_NONE; // the descriptor is the caller's to close
        return YB_STATUS_SUCCESS;
    default:
        return YB_STATUS_CMD_UNSUPPORTED;
    }
}

YB_EXPORT yb_status_t yb_net_get_fd(yb_net_sk_t *in_net_sk, int32_t *out_fd) {
    NET_LIB_TRACE_FUNCTION();
    if (in_net_sk == nullptr) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "yb_net_get_fd: in_net_sk is NULL\n");
        return YB_STATUS_PARAM_NULL;
    }
    if (out_fd == nullptr) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "yb_net_get_fd: out_fd is NULL\n");
        return YB_STATUS_PARAM_NULL;
    }
    switch (in_net_sk->type) {
    case YB_NET_SK_TYPE_RAW:
        *out_fd = in_net_sk->fd;
        return YB_STATUS_SUCCESS;
    case YB_NET_SK_TYPE_LIBNL:
        if (in_net_sk->sk == nullptr) {
            NET_LIB_LOG(YB_LEVEL_ERROR, "yb_net_get_fd: in_net_sk->sk is NULL\n");
            return YB_STATUS_PARAM_NULL;
        }
        *out_fd = nl_socket_get_fd(in_net_sk->sk);
        return YB_STATUS_SUCCESS;
    default:
        return YB_STATUS_PARAM_ERROR;
    }
}

// Two of its messages name yb_net_get_fd(): kept, consumers match them.
YB_EXPORT yb_status_t yb_net_set_buffer_size(yb_net_sk_t *in_net_sk, uint32_t rx_size, uint32_t tx_size) {
    NET_LIB_TRACE_FUNCTION();
    if (in_net_sk == nullptr) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "yb_net_get_fd: in_net_sk is NULL\n");
        return YB_STATUS_PARAM_NULL;
    }
    switch (in_net_sk->type) {
    case YB_NET_SK_TYPE_RAW:
        return set_raw_socket_buffers(in_net_sk->fd, rx_size, tx_size);
    case YB_NET_SK_TYPE_LIBNL: {
        if (in_net_sk->sk == nullptr) {
            NET_LIB_LOG(YB_LEVEL_ERROR, "yb_net_get_fd: in_net_sk->sk is NULL\n");
            return YB_STATUS_PARAM_NULL;
        }
        const int result =
            nl_socket_set_buffer_size(in_net_sk->sk, static_cast<int>(rx_size), static_cast<int>(tx_size));
        if (result < 0) {
            NET_LIB_LOG(YB_LEVEL_ERROR,
                        "yb_net_set_buffer_size: nl_socket_set_buffer_size returned error (%d)\n", result);
            return YB_STATUS_ERROR;
        }
        return YB_STATUS_SUCCESS;
    }
    default:
        return YB_STATUS_PARAM_ERROR;
    }
}
