// SPDX-License-Identifier: Apache-2.0
//
// What each operation on ports costs at least: the same bytes under the same
// lock and, of changes, the same msync(2). A port is found by its checksum and a
// plain walk to its key. All work on library_segment().
#ifndef YBNET_BENCH_PORT_FLOORS_H
#define YBNET_BENCH_PORT_FLOORS_H

#include <cstdint>

#include "ybnet/net_lib_db_layout.h"

// A port that is not there yields the bucket that shows it.
void floor_port_get(uint32_t sys_ifindex, yb_net_port_info_t *out);
uint32_t floor_log_port_get(uint32_t log_port);

// Writes the port's bucket, or the one that shows that it is not there, and the map slot of info.log_port, a single
// port's.
void floor_port_set(uint32_t sys_ifindex, const yb_net_port_info_t &info);
void floor_port_remove(uint32_t sys_ifindex);

// Walks all buckets and looks at the same three fields; out may be NULL. Returns how many ports have the
// protocol.
uint32_t floor_ports_get_all(uint32_t protocol, yb_net_port_info_t *out);

#endif
