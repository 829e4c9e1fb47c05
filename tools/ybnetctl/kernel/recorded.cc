// SPDX-License-Identifier: Apache-2.0
//
// See recorded.h.
#include "tools/ybnetctl/kernel/recorded.h"

#include <cstring>

namespace ybnetctl {

namespace {

template <size_t size> std::string text_of(const char (&field)[size]) {
    return {field, strnlen(field, size)};
}

std::optional<uint16_t> vlan_id_of(const yb_net_interface_params_t &params) {
    switch (params.type) {
    case YB_L2_INTERFACE_TYPE_VLAN:
        return params.by_type.vlan.vlan_id;
    case YB_L2_INTERFACE_TYPE_PORT_VLAN:
        return params.by_type.port_vlan.vlan_id;
    default:
        return std::nullopt;
    }
}

} // namespace

std::vector<recorded_interface> recorded_interfaces(const segment_copy &copy) {
    std::vector<recorded_interface> records;
    for (const net_lib_db_interface_entry_t &entry : copy.interfaces().entries) {
        if (entry.in_use == 0)
            continue;
        const yb_net_interface_record_t &record = entry.record;
        records.push_back({.sys_ifindex = record.sys_ifindex,
                           .linux_ifindex = record.linux_ifindex,
                           .name = text_of(record.params.name),
                           .ns = text_of(record.params.ns_name),
                           .type = record.params.type,
                           .vlan_id = vlan_id_of(record.params),
                           .port_name = record.params.type == YB_L2_INTERFACE_TYPE_PORT_VLAN
                                            ? text_of(record.params.by_type.port_vlan.port_name)
                                            : std::string()});
    }
    return records;
}

} // namespace ybnetctl
