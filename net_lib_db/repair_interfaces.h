// SPDX-License-Identifier: Apache-2.0
//
// What a process that died in the middle of a change left in the interfaces
// segment. interface_records.cc writes a record before it sets its in-use byte and
// clears that byte before the record, so that no half of one is ever in use.
#ifndef YBNET_NET_LIB_DB_REPAIR_INTERFACES_H
#define YBNET_NET_LIB_DB_REPAIR_INTERFACES_H

#include <cstddef>
#include <cstdint>

#include "net_lib_db/change_order.h"
#include "ybnet/net_lib_db_layout.h"

// In the first entry's three reserved bytes: the segment is being erased. What costs every record should not be met
// by chance.
constexpr uint32_t INTERFACES_ERASING = 0xE5A3D1;

// The in-use byte and the reserved ones behind it.
static_assert(offsetof(net_lib_db_interface_entry_t, in_use) % sizeof(change_word) == 0 &&
              sizeof(net_lib_db_interface_entry_t) % sizeof(change_word) == 0 &&
              offsetof(net_lib_db_interface_entry_t, reserved) ==
                  offsetof(net_lib_db_interface_entry_t, in_use) + 1);
inline change_word *interface_mark_word(net_lib_db_interface_entry_t &entry) {
    return reinterpret_cast<change_word *>(reinterpret_cast<char *>(&entry) +
                                           offsetof(net_lib_db_interface_entry_t, in_use));
}

// With the lock held. Clears free records that hold a part of one, and finishes an erasing. One WARN line each.
void repair_interfaces(void *body);

#endif
