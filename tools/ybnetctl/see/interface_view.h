// SPDX-License-Identifier: Apache-2.0
//
// Router interfaces in a copy of their segment, as the queries show them, and what
// the library would answer for a key: the first slot that matches.
#ifndef YBNET_YBNETCTL_SEE_INTERFACE_VIEW_H
#define YBNET_YBNETCTL_SEE_INTERFACE_VIEW_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/ybnetctl/session.h"
#include "ybnet/net_lib_db_layout.h"

namespace ybnetctl {

struct interface_view {
    uint32_t slot = 0;
    uint32_t sys_ifindex = 0;
    uint32_t linux_ifindex = 0;
    uint32_t type = 0;
    std::string name;
    std::string ns;                 // "" is the default one
    std::optional<std::string> vrf; // when vrf_valid says that it counts
    std::string vrf_name;           // what the record has there in any case: lookups compare it
    std::optional<unsigned> vlan;
    std::optional<unsigned> rif;
    std::optional<unsigned> vrid;
};

// "VLAN", "PORT_VLAN", ...; "type 9" of one that is not known.
std::string interface_type_name(uint32_t type);

// The number of "vlan", "port-vlan", "port", "pkey" or "loopback".
uint32_t interface_type_number(const std::string &word);
const std::vector<std::string> &interface_type_words();

interface_view view_of(const net_lib_db_interface_entry_t &entry, uint32_t slot);

// Every slot in use, in slot order.
std::vector<interface_view> interfaces_in(const net_lib_db_interfaces_segment_t &segment);

// Where the library's answers are not this record, in words.
std::vector<std::string> interface_notes(const interface_view &one, const std::vector<interface_view> &all);

// Columns as in `interface list`.
void print_interfaces(session &run, const std::vector<interface_view> &shown);
json to_json(const interface_view &one);

} // namespace ybnetctl

#endif
