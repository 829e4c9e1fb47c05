// SPDX-License-Identifier: Apache-2.0
//
// Interface records as the changing commands read them, through the library, and show them.
#ifndef YBNET_YBNETCTL_CHANGE_INTERFACE_RECORD_H
#define YBNET_YBNETCTL_CHANGE_INTERFACE_RECORD_H

#include <cstdint>
#include <string>

#include "tools/ybnetctl/change/changing.h"
#include "ybnet/yb_net_interface.h"

namespace ybnetctl {

// "interface 110"
std::string interface_thing(uint32_t sys_ifindex);

// Throws failure, exit code 3 when there is none.
yb_net_interface_record_t record_of(library &lib, uint32_t sys_ifindex);

// What was made: the record for JSON, and "interface 110: vlan10 in namespace blue, Linux ifindex 7".
change_result made_result(library &lib, uint32_t sys_ifindex);

// As `interface list` has it, but for the slot.
json to_json(const yb_net_interface_record_t &record);

} // namespace ybnetctl

#endif
