// SPDX-License-Identifier: Apache-2.0
//
// The port hash table in the ports segment: finding the bucket of a key.
// port_records.cc, its only user, fills, empties and reads the buckets.
//
// The rules of port_table.cc are a format that all processes of the stack share:
// one process must find what another stored, byte for byte where it stored it.
#ifndef YBNET_NET_LIB_DB_PORT_TABLE_H
#define YBNET_NET_LIB_DB_PORT_TABLE_H

#include <cstdint>

#include "ybnet/net_lib_db_layout.h"
#include "ybnet/yb_status.h"

// All with the ports segment's lock held.

// Finds the bucket that sys_ifindex goes into. When the key has a live entry, *out_existing points at it and
// *out_index is its bucket; else *out_existing is left alone and the caller fills bucket *out_index from
// *scratch (port_fill(): it may be marked), older ports having made room for it. YB_STATUS_ERROR when the table
// is full (ERROR): what *scratch then holds has lost its bucket.
yb_status_t __net_lib_hashtable_entry_set(uint32_t sys_ifindex, const yb_net_port_info_t *info,
                                          net_lib_port_entry_t *scratch, uint16_t *out_index,
                                          net_lib_port_entry_t **out_existing);

// The bucket of sys_ifindex, or the empty one that ended the search; NULL when it ended otherwise (ERROR).
net_lib_port_entry_t *port_find(uint32_t sys_ifindex);

// port_find() by index. YB_STATUS_PARAM_ERROR for a NULL out_index (ERROR), YB_STATUS_ENTRY_NOT_FOUND when there is
// no bucket.
yb_status_t __net_lib_hashtable_entry_get(uint32_t sys_ifindex, uint16_t *out_index);

#endif
