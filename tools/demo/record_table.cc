// SPDX-License-Identifier: Apache-2.0
//
// See record_table.h.
#include "tools/demo/record_table.h"

#include <cstdio>
#include <string>

#include "ybnet/net_lib_db.h"
#include "ybnet/net_lib_db_layout.h"
#include "ybnet/platform/yb_util.h"

namespace {

std::string vlan_of(const yb_net_interface_params_t &params) {
    if (params.type == YB_L2_INTERFACE_TYPE_VLAN)
        return std::to_string(params.by_type.vlan.vlan_id);
    if (params.type == YB_L2_INTERFACE_TYPE_PORT_VLAN)
        return std::to_string(params.by_type.port_vlan.vlan_id);
    return "-";
}

std::string unless(unsigned none, unsigned value) {
    return value == none ? "-" : std::to_string(value);
}

} // namespace

void print_record_table() {
    printf("%6s  %-9s  %-15s  %-9s  %5s  %-6s  %4s  %4s  %4s\n", "SYSIF", "TYPE", "NETDEV", "NAMESPACE",
           "LINUX", "VRF", "VLAN", "RIF", "VRID");
    for (uint32_t index = 0; index < YB_NET_INTERFACES_MAX; index++) {
        yb_net_interface_record_t record;
        if (net_lib_db_interface_get_by_db_index(index, &record) != YB_STATUS_SUCCESS)
            continue;
        const yb_net_interface_params_t &params = record.params;
        printf("%6u  %-9s  %-15.15s  %-9.32s  %5u  %-6.16s  %4s  %4s  %4s\n", record.sys_ifindex,
               yb_router_interface_type_str(params.type), params.name,
               params.ns_name[0] != '\0' ? params.ns_name : "-", record.linux_ifindex,
               params.vrf_valid == 1 ? params.vrf_name : "-", vlan_of(params).c_str(),
               unless(YB_NET_RIF_NONE, record.rif).c_str(), unless(YB_NET_VRID_NONE, record.vrid).c_str());
    }
}
