// SPDX-License-Identifier: Apache-2.0
//
// What each operation on interfaces costs at least: the same bytes under the
// same lock, through a second mapping of the library's own segment, the lock
// taken by plain pthread calls.
#ifndef YBNET_BENCH_FLOORS_H
#define YBNET_BENCH_FLOORS_H

#include <cstdint>

#include "ybnet/net_lib_db_layout.h"

// Lock, plain scan to the key, copy of the record, unlock. True when found.
bool floor_get(uint32_t sys_ifindex, yb_net_interface_record_t *out);
bool floor_get_by_netdev(uint32_t linux_ifindex, const char *ns, yb_net_interface_record_t *out);

// The same as floor_get(), eight keys at a time; only where has_vectors().
bool has_vectors();
bool vector_get(uint32_t sys_ifindex, yb_net_interface_record_t *out);

// Lock, one pass over the table, copy in, msync(2), unlock; lock, scan, clear, unlock.
void floor_add_and_remove(const net_lib_db_interface_entry_t &entry);

// The system calls of a load that creates and an unload that removes, with the bytes they write; no library is to
// have the segment loaded meanwhile.
void floor_load_and_unload();

#endif
