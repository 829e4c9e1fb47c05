// SPDX-License-Identifier: Apache-2.0
//
// Two readings of one segment compared, decoded by the table of fields: what a command would record, to the byte. The
// trailer (lock, user count) is left out: it moves with every call.
#ifndef YBNET_YBNETCTL_CHANGE_RECORD_CHANGES_H
#define YBNET_YBNETCTL_CHANGE_RECORD_CHANGES_H

#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "tools/ybnetctl/segments/fields.h"
#include "tools/ybnetctl/session.h"

namespace ybnetctl {

struct record_change {
    std::string text; // "interfaces[3]: sys_ifindex 0 -> 110, name \"\" -> \"vlan10\""
    json details;     // segment, region, index, fields: [{field, from, to}]
};

// A number in the place of one that only the kernel can give (a stand-in of a rehearsal), told by this.
using is_stand_in = std::function<bool(const field &each, unsigned long long number)>;

// Both must have the format's size.
std::vector<record_change> record_changes(const segment_format &format, std::span<const std::byte> before,
                                          std::span<const std::byte> after, const is_stand_in &stand_in);

} // namespace ybnetctl

#endif
