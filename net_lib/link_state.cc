// SPDX-License-Identifier: Apache-2.0
//
// The exported functions that set and read the administrative state of an
// interface's netdev (rtnetlink(7)) and set the operational state that the
// switch's kernel driver shows for it.
#include "ybnet/net_lib.h"

#include <cstdio>
#include <net/if.h>

#include "net_lib/carrier.h"
#include "net_lib/driver_proc.h"
#include "net_lib/link_dump.h"
#include "net_lib/net_lib_log.h"
#include "net_lib/netdev_name.h"
#include "net_lib/rtnl/link_request.h"
#include "net_lib/rtnl/request.h"
#include "net_lib_db/text_field.h"
#include "ybnet/net_lib_db.h"

namespace {

constexpr size_t proc_command_size = 96;

bool is_state(uint32_t state) {
    return state == YB_NET_IF_STATE_UP || state == YB_NET_IF_STATE_DOWN;
}

const char *state_text(uint32_t state) {
    return state == YB_NET_IF_STATE_UP ? "up" : "down";
}

} // namespace

YB_EXPORT yb_status_t yb_net_interface_state_set(uint32_t sys_ifindex, uint32_t state) {
    NET_LIB_TRACE_FUNCTION();
    yb_net_interface_record_t record;
    if (net_lib_db_interface_get(sys_ifindex, &record) != YB_STATUS_SUCCESS) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "yb_net_interface_state_set: Cannot find device with system ifindex %u\n",
                    sys_ifindex);
        return YB_STATUS_PARAM_ERROR;
    }
    if (!is_state(state))
        return YB_STATUS_PARAM_ERROR;
    if (rtnl_open() != 0)
        return YB_STATUS_PARAM_ERROR; // said on standard error

    link_request request = {};
    request.header.nlmsg_len = NLMSG_LENGTH(sizeof(struct ifinfomsg));
    request.header.nlmsg_type = RTM_NEWLINK;
    request.header.nlmsg_flags = NLM_F_REQUEST;
    request.link.ifi_family = AF_NETLINK; // not AF_UNSPEC: kept, the kernel does not look at it
    request.link.ifi_index = static_cast<int>(record.linux_ifindex);
    request.link.ifi_change = IFF_UP;
    // Down sets every other flag: kept, the kernel only looks at the one in ifi_change.
    request.link.ifi_flags = state == YB_NET_IF_STATE_UP ? uint32_t{IFF_UP} : ~uint32_t{IFF_UP};
    if (rtnl_talk(&request.header) != 0) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "yb_net_interface_state_set: rtnl_talk: set interface state %s.\n",
                    state_text(state));
        return YB_STATUS_ERROR;
    }
    return YB_STATUS_SUCCESS;
}

YB_EXPORT yb_status_t yb_net_interface_state_get(uint32_t sys_ifindex, uint32_t *state) {
    NET_LIB_TRACE_FUNCTION();
    if (state == nullptr)
        return YB_STATUS_PARAM_NULL;
    yb_net_interface_record_t record;
    yb_status_t status = net_lib_db_interface_get(sys_ifindex, &record);
    if (status != YB_STATUS_SUCCESS) {
        NET_LIB_LOG(YB_LEVEL_INFO,
                    "yb_net_interface_state_get: Failed retrieving interface with system ifindex %u from the "
                    "Netlib DB\n",
                    sys_ifindex);
        return status;
    }
    status = __if_state_get(record.linux_ifindex, state);
    if (status == YB_STATUS_SUCCESS && *state == YB_NET_IF_STATE_UP &&
        record.params.type == YB_L2_INTERFACE_TYPE_PKEY) {
        const auto name = text_of_field(record.params.name);
        if (__get_ib_if_carrier_state(name.text) == 0)
            *state = YB_NET_IF_STATE_DOWN;
    }
    return status;
}

YB_EXPORT yb_status_t yb_net_interface_oper_state_set(uint32_t sys_ifindex, uint32_t state) {
    NET_LIB_TRACE_FUNCTION();
    yb_net_interface_record_t record;
    if (net_lib_db_interface_get(sys_ifindex, &record) != YB_STATUS_SUCCESS) {
        NET_LIB_LOG(YB_LEVEL_ERROR,
                    "yb_net_interface_oper_state_set: Cannot find interface with system ifindex %u\n",
                    sys_ifindex);
        return YB_STATUS_PARAM_ERROR;
    }
    if (!is_state(state))
        return YB_STATUS_PARAM_ERROR;
    const auto name = text_of_field(record.params.name);
    char command[proc_command_size] = {};
    (void)snprintf(command, sizeof(command), "oper_dev %s %s", name.text, state_text(state)); // fits by far
    // A line break or a blank in the name would make another command of it.
    const yb_status_t status = is_netdev_name(name.text) ? __qrn_proc_write(command, driver_command_file)
                                                         : yb_status_t{YB_STATUS_ERROR};
    if (status != YB_STATUS_SUCCESS)
        NET_LIB_LOG(YB_LEVEL_ERROR, "%s: writing Command \"%s\" to qrn proc failed. err: [%d]\n", __func__,
                    command, static_cast<int32_t>(status));
    return status;
}
