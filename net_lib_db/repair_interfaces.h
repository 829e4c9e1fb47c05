// SPDX-License-Identifier: Apache-2.0
//
// What a process that died in the middle of a change left in the interfaces
// segment. interface_records.cc writes a record before it sets its in-use byte and
// clears that byte before the record, so that no half of one is ever in use.
#ifndef YBNET_NET_LIB_DB_REPAIR_INTERFACES_H
#define YBNET_NET_LIB_DB_REPAIR_INTERFACES_H

#include <cstdint>

// In the first entry's first reserved byte, 0 at all other times: the segment is being erased.
constexpr uint8_t INTERFACES_ERASING = 0xE5;

// With the lock held. Clears free records that hold a part of one, and finishes an erasing. One WARN line each.
void repair_interfaces(void *body);

#endif
