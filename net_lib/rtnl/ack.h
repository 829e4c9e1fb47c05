// SPDX-License-Identifier: Apache-2.0
//
// Finding the answer to a request in a received datagram: pure, so that any
// bytes can be put through it. request.cc receives them.
#ifndef YBNET_NET_LIB_RTNL_ACK_H
#define YBNET_NET_LIB_RTNL_ACK_H

#include <cstddef>
#include <cstdint>

enum class rtnl_ack {
    acknowledged, // the request's acknowledgement with error 0
    failed, // a kernel error or a broken datagram; said on standard error, errno as rtnl_talk() leaves it
    receive_further // no answer in this datagram
};

// datagram: size bytes as received, at any alignment; truncated: MSG_TRUNC was set. port_id and sequence tell
// an answer to the request from other messages. Reads nothing behind size.
rtnl_ack rtnl_ack_find(const void *datagram, size_t size, bool truncated, uint32_t port_id,
                       uint32_t sequence);

#endif
