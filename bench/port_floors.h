// SPDX-License-Identifier: Apache-2.0
//
// What each operation on ports costs at least: the same lock, the same bytes
// and, of changes, the same msync(2), with the place of the port given. All work
// on floor_ports_segment().
#ifndef YBNET_BENCH_PORT_FLOORS_H
#define YBNET_BENCH_PORT_FLOORS_H

#include <cstdint>

#include "ybnet/net_lib_db_layout.h"

void floor_port_get(uint16_t bucket, yb_net_port_info_t *out);
uint32_t floor_log_port_get(uint32_t log_port);

// Writes the bucket and the map slot of info.log_port, a single port's.
void floor_port_set(uint16_t bucket, uint32_t sys_ifindex, const yb_net_port_info_t &info);
void floor_port_remove(uint16_t bucket, uint32_t log_port);

// Walks all buckets and looks at the same three fields; out may be NULL. Returns how many ports have the
// protocol.
uint32_t floor_ports_get_all(uint32_t protocol, yb_net_port_info_t *out);

#endif
