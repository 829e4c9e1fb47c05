// SPDX-License-Identifier: Apache-2.0
//
// Interface records as the commands compare them with the kernel: plain values
// out of a copy of the segment.
#ifndef YBNET_YBNETCTL_KERNEL_RECORDED_H
#define YBNET_YBNETCTL_KERNEL_RECORDED_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/ybnetctl/segments/segment_copy.h"

namespace ybnetctl {

struct recorded_interface {
    uint32_t sys_ifindex = 0;
    uint32_t linux_ifindex = 0;
    std::string name;
    std::string ns; // "" is the default one
    uint32_t type = 0;
    std::optional<uint16_t> vlan_id = {}; // of VLAN and PORT_VLAN
    std::string port_name = {};           // of PORT_VLAN: the netdev that it is stacked on

    bool operator==(const recorded_interface &other) const = default;
};

// Of a copy that fits, in the order of the slots.
std::vector<recorded_interface> recorded_interfaces(const segment_copy &copy);

} // namespace ybnetctl

#endif
