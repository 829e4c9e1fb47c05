// SPDX-License-Identifier: Apache-2.0
//
// Receiving one link event and translating it to the stack's identifiers. The
// socket is event_socket.cc's, the datagram's bytes are event_parse.cc's.
#include "ybnet/net_lib.h"

#include <cerrno>
#include <linux/netlink.h>
#include <sys/socket.h>

#include "net_lib/carrier.h"
#include "net_lib/event_parse.h"
#include "net_lib/net_lib_log.h"
#include "net_lib_db/probe.h"
#include "net_lib_db/text_field.h"
#include "ybnet/net_lib_db.h"

namespace {

constexpr size_t receive_buffer_size = 8192;

// Up and change tell nothing about a partition key's link: its carrier does.
bool is_decided_by_carrier(uint32_t event_type, const yb_net_interface_record_t &record) {
    return record.params.type == YB_L2_INTERFACE_TYPE_PKEY &&
           (event_type == YB_NET_IF_EVENT_LINK_UP || event_type == YB_NET_IF_EVENT_LINK_CHANGE);
}

yb_status_t __ifinfomsg_to_event_data_struct(const link_event &link, yb_net_if_event_t *event) {
    event->event_type = link.event_type;
    if (link.event_type == YB_NET_IF_EVENT_NONE)
        return YB_STATUS_SUCCESS; // sys_ifindex keeps what the caller had in it

    yb_net_interface_record_t record;
    const yb_status_t status = net_lib_db_interface_get_by_linux_ifindex(link.linux_ifindex, &record);
    if (status != YB_STATUS_SUCCESS) {
        // No newline at the end: consumers match it as it is.
        NET_LIB_LOG(YB_LEVEL_DEBUG, "Received an event from an unknown interface (linux ifindex = %d)",
                    static_cast<int32_t>(link.linux_ifindex));
        event->sys_ifindex = 0;
        if (status == YB_STATUS_ENTRY_NOT_FOUND)
            return YB_STATUS_SUCCESS; // a netdev that the library does not manage
        return status;
    }
    event->sys_ifindex = record.sys_ifindex;
    if (is_decided_by_carrier(link.event_type, record)) {
        const auto name = text_of_field(record.params.name);
        event->event_type =
            __get_ib_if_carrier_state(name.text) != 0 ? YB_NET_IF_EVENT_LINK_UP : YB_NET_IF_EVENT_LINK_DOWN;
    }
    return YB_STATUS_SUCCESS;
}

yb_status_t __yb_net_if_state_event_receive(const int32_t *fd, yb_net_if_event_t *event) {
    // Not cleared: nothing is read but what was received, and a failed receive counts as no bytes.
    alignas(struct nlmsghdr) std::byte buffer[receive_buffer_size];
    const ssize_t received = recv(*fd, buffer, sizeof(buffer), 0);
    const int reason = received < 0 ? errno : 0;
    if (received == 0) {
        YB_PROBE(event_failed, received, reason);
        NET_LIB_LOG(YB_LEVEL_ERROR,
                    "__yb_net_if_state_event_receive: buffer is empty, didn't receive any message\n");
        return YB_STATUS_ERROR;
    }
    link_event link = {};
    if (!link_event_parse(buffer, received < 0 ? 0 : static_cast<size_t>(received), &link)) {
        YB_PROBE(event_failed, received, reason);
        // The wording is kept: consumers match it.
        NET_LIB_LOG(YB_LEVEL_ERROR, "__yb_net_if_state_event_receive: netlink message is not truncated\n");
        return YB_STATUS_ERROR;
    }
    const yb_status_t status = __ifinfomsg_to_event_data_struct(link, event);
    const uint32_t sys_ifindex = link.event_type == YB_NET_IF_EVENT_NONE ? 0 : event->sys_ifindex;
    YB_PROBE(event, event->event_type, link.linux_ifindex, sys_ifindex, status);
    return status;
}

} // namespace

YB_EXPORT yb_status_t yb_net_if_event_receive(yb_net_sk_t *in_net_sk, yb_net_if_event_t *received_event) {
    NET_LIB_TRACE_FUNCTION();
    if (in_net_sk == nullptr) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "yb_net_if_event_receive: in_net_sk is NULL\n");
        return YB_STATUS_PARAM_NULL;
    }
    if (received_event == nullptr) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "yb_net_if_event_receive: received_event is NULL\n");
        return YB_STATUS_PARAM_NULL;
    }
    if (in_net_sk->type != YB_NET_SK_TYPE_RAW)
        return YB_STATUS_PARAM_ERROR; // a libnl socket too
    return __yb_net_if_state_event_receive(&in_net_sk->fd, received_event);
}
