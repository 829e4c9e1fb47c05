// SPDX-License-Identifier: Apache-2.0
//
// See interface_view.h.
#include "tools/ybnetctl/see/interface_view.h"

#include <array>
#include <iterator>

#include "tools/ybnetctl/segments/decode.h"
#include "tools/ybnetctl/table.h"

namespace ybnetctl {

namespace {

struct type_name {
    uint32_t number;
    const char *name;
    const char *word;
};

constexpr std::array<type_name, 5> types = {{{YB_L2_INTERFACE_TYPE_VLAN, "VLAN", "vlan"},
                                             {YB_L2_INTERFACE_TYPE_PORT_VLAN, "PORT_VLAN", "port-vlan"},
                                             {YB_L2_INTERFACE_TYPE_PORT, "PORT", "port"},
                                             {YB_L2_INTERFACE_TYPE_PKEY, "PKEY", "pkey"},
                                             {YB_L2_INTERFACE_TYPE_LOOPBACK, "LOOPBACK", "loopback"}}};

template <size_t size> std::string text_of(const char (&characters)[size]) {
    return text_at(reinterpret_cast<const std::byte *>(characters), size);
}

template <typename value_type> cell cell_of(const std::optional<value_type> &value) {
    return value ? cell(*value) : cell("");
}

template <typename value_type> json json_of(const std::optional<value_type> &value) {
    return value ? json(*value) : json(nullptr);
}

std::string place_in_words(const interface_view &one) {
    return "Linux ifindex " + std::to_string(one.linux_ifindex) + " in " +
           (one.ns.empty() ? "the default namespace" : "namespace " + one.ns);
}

} // namespace

std::string interface_type_name(uint32_t type) {
    for (const type_name &each : types) {
        if (each.number == type)
            return each.name;
    }
    return "type " + std::to_string(type);
}

uint32_t interface_type_number(const std::string &word) {
    for (const type_name &each : types) {
        if (each.word == word)
            return each.number;
    }
    return UINT32_MAX;
}

const std::vector<std::string> &interface_type_words() {
    static const std::vector<std::string> words = [] {
        std::vector<std::string> all;
        for (const type_name &each : types)
            all.emplace_back(each.word);
        return all;
    }();
    return words;
}

interface_view view_of(const net_lib_db_interface_entry_t &entry, uint32_t slot) {
    const yb_net_interface_record_t &record = entry.record;
    const yb_net_interface_params_t &params = record.params;
    interface_view one;
    one.slot = slot;
    one.sys_ifindex = record.sys_ifindex;
    one.linux_ifindex = record.linux_ifindex;
    one.type = params.type;
    one.name = text_of(params.name);
    one.ns = text_of(params.ns_name);
    one.vrf_name = text_of(params.vrf_name);
    if (params.vrf_valid == 1)
        one.vrf = one.vrf_name;
    if (params.type == YB_L2_INTERFACE_TYPE_VLAN)
        one.vlan = params.by_type.vlan.vlan_id;
    else if (params.type == YB_L2_INTERFACE_TYPE_PORT_VLAN)
        one.vlan = params.by_type.port_vlan.vlan_id;
    if (record.rif != YB_NET_RIF_NONE)
        one.rif = record.rif;
    if (record.vrid != YB_NET_VRID_NONE)
        one.vrid = record.vrid;
    return one;
}

std::vector<interface_view> interfaces_in(const net_lib_db_interfaces_segment_t &segment) {
    std::vector<interface_view> all;
    for (uint32_t slot = 0; slot < YB_NET_INTERFACES_MAX; slot++) {
        if (segment.entries[slot].in_use != 0)
            all.push_back(view_of(segment.entries[slot], slot));
    }
    return all;
}

std::vector<std::string> interface_notes(const interface_view &one, const std::vector<interface_view> &all) {
    std::vector<std::string> notes;
    for (const interface_view &other : all) {
        if (other.slot >= one.slot)
            break;
        const std::string slot = "slot " + std::to_string(other.slot);
        if (other.sys_ifindex == one.sys_ifindex)
            notes.push_back("the library answers " + slot + " for system ifindex " +
                            std::to_string(one.sys_ifindex) + ", never this record");
        else if (other.linux_ifindex == one.linux_ifindex && other.ns == one.ns)
            notes.push_back("for " + place_in_words(one) + " the library answers " +
                            std::to_string(other.sys_ifindex) + " (" + slot + ')' +
                            (other.vrf_name != one.vrf_name ? ", unless the VRF is asked for too" : ""));
    }
    return notes;
}

void print_interfaces(session &run, const std::vector<interface_view> &shown) {
    table rows({{"SYSIF", side::right},
                {"TYPE", side::left},
                {"NETDEV", side::left},
                {"NAMESPACE", side::left},
                {"LINUX", side::right},
                {"VRF", side::left},
                {"VLAN", side::right},
                {"RIF", side::right},
                {"VRID", side::right}});
    for (const interface_view &one : shown)
        rows.add({one.sys_ifindex, interface_type_name(one.type), printable(one.name), printable(one.ns),
                  one.linux_ifindex, printable(one.vrf.value_or("")), cell_of(one.vlan), cell_of(one.rif),
                  cell_of(one.vrid)});
    rows.print(run.out, run.colourful());
}

json to_json(const interface_view &one) {
    json object;
    object["slot"] = one.slot;
    object["sys_ifindex"] = one.sys_ifindex;
    object["type"] = interface_type_name(one.type);
    object["type_number"] = one.type;
    object["name"] = one.name;
    object["namespace"] = one.ns;
    object["linux_ifindex"] = one.linux_ifindex;
    object["vrf"] = json_of(one.vrf);
    object["vlan_id"] = json_of(one.vlan);
    object["rif"] = json_of(one.rif);
    object["vrid"] = json_of(one.vrid);
    return object;
}

} // namespace ybnetctl
