// SPDX-License-Identifier: Apache-2.0
//
// What a process that died in the middle of a change left in the ports segment,
// known by the marks of port_change.h.
#ifndef YBNET_NET_LIB_DB_REPAIR_PORTS_H
#define YBNET_NET_LIB_DB_REPAIR_PORTS_H

// With the lock held. Completes a move, a removal, an erasing, a change whose new record lies somewhere whole and
// the entry of a new port in the maps; takes back a port that was not written to its end. One WARN line each.
void repair_ports(void *body);

#endif
