// SPDX-License-Identifier: Apache-2.0
//
// See fields.h.
#include "tools/ybnetctl/segments/fields.h"

#include <array>

#include "ybnet/net_lib_db_layout.h"

namespace ybnetctl {

namespace {

using entry = net_lib_db_interface_entry_t;

#define IN_RECORD(path) offsetof(entry, record.path), sizeof(entry{}.record.path), 1
#define BY_TYPE(path)                                                                                        \
    offsetof(entry, record.params.by_type.path), sizeof(entry{}.record.params.by_type.path), 1

constexpr std::array interface_entry_fields = {
    field{"sys_ifindex", IN_RECORD(sys_ifindex), field_kind::number, every_type,
          "the stack's number of the interface, the key"},
    field{"linux_ifindex", IN_RECORD(linux_ifindex), field_kind::number, every_type,
          "the kernel's number of the netdev in its namespace"},
    field{"name", IN_RECORD(params.name), field_kind::text, every_type, "name of the netdev"},
    field{"ns_name", IN_RECORD(params.ns_name), field_kind::text, every_type,
          "network namespace; empty is the default one"},
    field{"vrf_name", IN_RECORD(params.vrf_name), field_kind::text, every_type, "VRF, when vrf_valid is 1"},
    field{"vrf_valid", IN_RECORD(params.vrf_valid), field_kind::number, every_type,
          "1: vrf_name counts, also when duplicates are looked for"},
    field{"type", IN_RECORD(params.type), field_kind::number, every_type,
          "0 VLAN, 1 PORT_VLAN, 2 PORT, 3 PKEY, 6 LOOPBACK"},
    field{"swid", BY_TYPE(vlan.swid), field_kind::number, YB_L2_INTERFACE_TYPE_VLAN,
          "switch partition, 0 to 7, or 254"},
    field{"reserved_vlan", BY_TYPE(vlan.reserved), field_kind::reserved, YB_L2_INTERFACE_TYPE_VLAN,
          "not used"},
    field{"vlan_id", BY_TYPE(vlan.vlan_id), field_kind::number, YB_L2_INTERFACE_TYPE_VLAN, "802.1Q id"},
    field{"name_format", BY_TYPE(vlan.name_format), field_kind::number, YB_L2_INTERFACE_TYPE_VLAN,
          "0 swidN_eth.ID, 1 vlanID"},
    field{"parent_given", BY_TYPE(vlan.parent_given), field_kind::number, YB_L2_INTERFACE_TYPE_VLAN,
          "not 0: stacked on parent_name instead of swidN_eth"},
    field{"parent_name", BY_TYPE(vlan.parent_name), field_kind::text, YB_L2_INTERFACE_TYPE_VLAN,
          "parent netdev, when parent_given is not 0"},
    field{"unused_port_vlan", BY_TYPE(port_vlan.unused), field_kind::reserved, YB_L2_INTERFACE_TYPE_PORT_VLAN,
          "not used"},
    field{"vlan_id", BY_TYPE(port_vlan.vlan_id), field_kind::number, YB_L2_INTERFACE_TYPE_PORT_VLAN,
          "802.1Q id"},
    field{"port_name", BY_TYPE(port_vlan.port_name), field_kind::text, YB_L2_INTERFACE_TYPE_PORT_VLAN,
          "the port's netdev, the VLAN's parent"},
    field{"unused_tail", BY_TYPE(port_vlan.unused_tail), field_kind::reserved, YB_L2_INTERFACE_TYPE_PORT_VLAN,
          "not used"},
    field{"value1", BY_TYPE(port.value1), field_kind::number, YB_L2_INTERFACE_TYPE_PORT,
          "first word for the kernel driver"},
    field{"value2", BY_TYPE(port.value2), field_kind::hex, YB_L2_INTERFACE_TYPE_PORT,
          "second word for the kernel driver"},
    field{"unused_port", BY_TYPE(port.unused), field_kind::reserved, YB_L2_INTERFACE_TYPE_PORT, "not used"},
    field{"by_type_pkey", BY_TYPE(bytes), field_kind::bytes, YB_L2_INTERFACE_TYPE_PKEY,
          "the owner's; this library does not read it"},
    field{"by_type_loopback", BY_TYPE(bytes), field_kind::bytes, YB_L2_INTERFACE_TYPE_LOOPBACK, "not used"},
    field{"rif", IN_RECORD(rif), field_kind::number, every_type, "router interface id; 65535 none"},
    field{"vrid", IN_RECORD(vrid), field_kind::number, every_type, "virtual router id; 255 none"},
    field{"in_use", offsetof(entry, in_use), 1, 1, field_kind::number, every_type,
          "1: the slot holds a record; 0: free, whatever else it holds"},
    field{"reserved", offsetof(entry, reserved), sizeof(entry::reserved), 1, field_kind::reserved, every_type,
          "not used; of the first slot D1 A3 E5 while the segment is being erased"},
};

using port = net_lib_port_entry_t;
#define IN_PORT(path) offsetof(port, info.path), sizeof(port{}.info.path), 1

constexpr std::array port_entry_fields = {
    field{"sys_ifindex", offsetof(port, sys_ifindex), sizeof(port::sys_ifindex), 1, field_kind::number,
          every_type, "the stack's number of the port, the key; 0 in a removed entry"},
    field{"attr_a", IN_PORT(attr_a), field_kind::number, every_type, "the owner's"},
    field{"attr_b", IN_PORT(attr_b), field_kind::number, every_type,
          "the owner's; 255 in an update: leave it"},
    field{"reserved1", IN_PORT(reserved1), field_kind::reserved, every_type, "not used"},
    field{"attr_c", IN_PORT(attr_c), field_kind::number, every_type, "the owner's"},
    field{"protocol", IN_PORT(protocol), field_kind::number, every_type, "1 or 2; 0 none"},
    field{"log_port", IN_PORT(log_port), field_kind::hex, every_type, "logical port; 0 none"},
    field{"lag_log_port", IN_PORT(lag_log_port), field_kind::hex, every_type,
          "logical port of the LAG that the port is a member of; 0 none"},
    field{"attr_d", offsetof(port, info.attr_d), 1, sizeof(port{}.info.attr_d), field_kind::number,
          every_type, "the owner's"},
    field{"reserved2", IN_PORT(reserved2), field_kind::reserved, every_type, "not used"},
    field{"attr_e", IN_PORT(attr_e), field_kind::number, every_type, "the owner's"},
    field{"mlag_id", IN_PORT(mlag_id), field_kind::number, every_type, "MLAG id of a LAG; 0 none"},
    field{"name", IN_PORT(name), field_kind::text, every_type,
          "name of the port; not necessarily NUL-terminated"},
    field{"attr_f", IN_PORT(attr_f), field_kind::number, every_type, "the owner's"},
    field{"reserved3", IN_PORT(reserved3), field_kind::reserved, every_type, "not used"},
    field{"attr_g", offsetof(port, info.attr_g), sizeof(port{}.info.attr_g[0]), 4, field_kind::number,
          every_type, "the owner's"},
    field{"attr_h", IN_PORT(attr_h), field_kind::number, every_type, "the owner's"},
    field{"reserved4", IN_PORT(reserved4), field_kind::reserved, every_type, "not used"},
    field{"attr_i", IN_PORT(attr_i), field_kind::number, every_type, "the owner's"},
    field{"deleted", offsetof(port, deleted), 1, 1, field_kind::number, every_type,
          "1: the port was removed; other values than 0 and 1 mark a change that is under way"},
    field{"reserved", offsetof(port, reserved), sizeof(port::reserved), 1, field_kind::reserved, every_type,
          "not used between changes: while a bucket is marked, another's index or two bytes of a record that "
          "is "
          "being changed; of bucket 0, with deleted, 29 D1 A3 E5 while the segment is being erased"},
    field{"hash", offsetof(port, hash), sizeof(port::hash), 1, field_kind::number, every_type,
          "home bucket, CRC-16 of the key's four bytes (polynomial 0x8D95); 0: the bucket is empty, whatever "
          "else it holds"},
};

using trailer = net_lib_db_trailer_t;

// The words of the lock as glibc has them on x86-64.
constexpr std::array trailer_fields = {
    field{"lock_readers", 0, 4, 1, field_kind::hex, every_type,
          "__readers: bit 0 write phase, bit 1 write-locked, bit 2 writers wait, above: readers"},
    field{"lock_writers", 4, 4, 1, field_kind::hex, every_type,
          "__writers: the holder's thread id in bits 0 to 21, in 22 to 29 those of the number of its PID "
          "namespace that are lowest, or bit 30: it is announced nowhere; 0 none"},
    field{"lock_write_phase_futex", 8, 4, 1, field_kind::hex, every_type, "__wrphase_futex"},
    field{"lock_writers_futex", 12, 4, 1, field_kind::hex, every_type, "__writers_futex"},
    field{"lock_pad3", 16, 4, 1, field_kind::reserved, every_type, "glibc's"},
    field{"lock_pad4", 20, 4, 1, field_kind::reserved, every_type, "glibc's"},
    field{"lock_current_writer", 24, 4, 1, field_kind::number, every_type,
          "__cur_writer: thread id of the holder, 0 none"},
    field{"lock_shared", 28, 4, 1, field_kind::number, every_type,
          "__shared: 1, for the lock is process-shared"},
    field{"lock_elision", 32, 8, 1, field_kind::reserved, every_type, "glibc's"},
    field{"lock_pad2", 40, 8, 1, field_kind::reserved, every_type, "glibc's"},
    field{"lock_flags", 48, 4, 1, field_kind::number, every_type, "__flags: kind of the lock"},
    field{"lock_tail", 52, 4, 1, field_kind::reserved, every_type, "padding"},
    field{"lock_state", offsetof(trailer, plock.state), 4, 1, field_kind::number, every_type,
          "2 initialised, 3 being destroyed, 4 destroyed"},
    field{"lock_reserved", offsetof(trailer, plock.reserved), 4, 1, field_kind::reserved, every_type,
          "not used"},
    field{"initialized_marker", offsetof(trailer, initialized_marker), 1, 1, field_kind::number, every_type,
          "222 once the contents were initialised"},
    field{"reserved1", offsetof(trailer, reserved1), sizeof(trailer::reserved1), 1, field_kind::reserved,
          every_type, "not used"},
    field{"user_count", offsetof(trailer, user_count), 4, 1, field_kind::number, every_type,
          "loads that registered and have not unloaded"},
    field{"size_check", offsetof(trailer, size_check), 4, 1, field_kind::number, every_type,
          "the segment's own size, written last at creation"},
    field{"reserved2", offsetof(trailer, reserved2), 4, 1, field_kind::reserved, every_type, "not used"},
};

constexpr std::array interface_regions = {
    region{"interfaces", 0, YB_NET_INTERFACES_MAX, &interface_entry_structure, sizeof(entry),
           field_kind::bytes, "interface records, in slots that are taken lowest first"},
    region{"trailer", offsetof(net_lib_db_interfaces_segment_t, trailer), 1, &trailer_structure,
           sizeof(trailer), field_kind::bytes, "lock, marker, user count, size check"},
};

using ports_segment = net_lib_db_ports_segment_t;

constexpr std::array port_regions = {
    region{"ports", 0, YB_NET_PORTS_MAX, &port_entry_structure, sizeof(port), field_kind::bytes,
           "hash table of ports"},
    region{"lag_to_mlag", offsetof(ports_segment, lag_to_mlag), YB_NET_LAG_TO_MLAG_LENGTH, nullptr, 2,
           field_kind::number, "MLAG id of each LAG index; 0 none"},
    region{"mlag_to_lag", offsetof(ports_segment, mlag_to_lag), YB_NET_MLAG_TO_LAG_LENGTH, nullptr, 4,
           field_kind::hex, "logical port of the LAG that each MLAG id is bound to; 0 none"},
    region{"lag_to_ifindex", offsetof(ports_segment, lag_to_ifindex), YB_NET_LAG_TO_IFINDEX_LENGTH, nullptr,
           4, field_kind::number,
           "system ifindex of each LAG index; that of index 255 is the first of port_to_ifindex"},
    region{"port_to_ifindex", offsetof(ports_segment, port_to_ifindex), YB_NET_PORT_TO_IFINDEX_LENGTH,
           nullptr, 4, field_kind::number, "system ifindex of each port index"},
    region{"trailer", offsetof(ports_segment, trailer), 1, &trailer_structure, sizeof(trailer),
           field_kind::bytes, "lock, marker, user count, size check"},
};

} // namespace

const structure interface_entry_structure = {"net_lib_db_interface_entry_t", sizeof(entry),
                                             interface_entry_fields, "one slot of the interfaces table"};
const structure port_entry_structure = {"net_lib_port_entry_t", sizeof(port), port_entry_fields,
                                        "one bucket of the ports table"};
const structure trailer_structure = {"net_lib_db_trailer_t", sizeof(trailer), trailer_fields,
                                     "the end of both segments"};

const segment_format &format_of(segment_kind kind) {
    static const segment_format interfaces = {segment_kind::interfaces,
                                              YB_NET_INTERFACES_SEGMENT_NAME,
                                              sizeof(net_lib_db_interfaces_segment_t),
                                              offsetof(net_lib_db_interfaces_segment_t, trailer),
                                              interface_regions,
                                              "router interfaces and the netdevs that stand for them"};
    static const segment_format ports = {
        segment_kind::ports,   YB_NET_PORTS_SEGMENT_NAME,
        sizeof(ports_segment), offsetof(ports_segment, trailer),
        port_regions,          "the switch's ports with their LAG and MLAG bindings"};
    return kind == segment_kind::interfaces ? interfaces : ports;
}

} // namespace ybnetctl
