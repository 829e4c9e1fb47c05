// SPDX-License-Identifier: Apache-2.0
//
// See port_floors.h.
#include "bench/port_floors.h"

#include <sys/mman.h>

#include "bench/floor_lock.h"
#include "bench/port_tables.h"

namespace {

net_lib_db_ports_segment_t &segment() {
    static net_lib_db_ports_segment_t &mapped = library_segment();
    return mapped;
}

net_lib_port_entry_t &walk_to(uint32_t sys_ifindex, uint16_t home) {
    net_lib_port_entry_t *const table = segment().port_table;
    uint16_t index = home;
    uint16_t steps = 0;
    // Ends where the table's order says that the key is not there.
    while (table[index].sys_ifindex != sys_ifindex && table[index].hash != 0 &&
           static_cast<uint16_t>(index - table[index].hash) >= steps) {
        index++;
        steps++;
    }
    return table[index];
}

uint32_t &slot(uint32_t log_port) {
    return segment().port_to_ifindex[YB_NET_LOG_PORT_PORT_INDEX(log_port)];
}

void flush() {
    msync(&segment(), sizeof(net_lib_db_ports_segment_t), MS_SYNC);
}

} // namespace

void floor_port_get(uint32_t sys_ifindex, yb_net_port_info_t *out) {
    const floor_lock held(segment().trailer.plock);
    *out = walk_to(sys_ifindex, home_of_port(sys_ifindex)).info;
}

uint32_t floor_log_port_get(uint32_t log_port) {
    const floor_lock held(segment().trailer.plock);
    return slot(log_port);
}

void floor_port_set(uint32_t sys_ifindex, const yb_net_port_info_t &info) {
    const floor_lock held(segment().trailer.plock);
    const uint16_t home = home_of_port(sys_ifindex);
    net_lib_port_entry_t &entry = walk_to(sys_ifindex, home);
    entry.sys_ifindex = sys_ifindex;
    entry.info = info;
    entry.hash = home;
    slot(info.log_port) = sys_ifindex;
    flush();
}

void floor_port_remove(uint32_t sys_ifindex) {
    const floor_lock held(segment().trailer.plock);
    net_lib_port_entry_t &entry = walk_to(sys_ifindex, home_of_port(sys_ifindex));
    slot(entry.info.log_port) = 0;
    entry.sys_ifindex = 0;
    entry.info = {};
    entry.deleted = 1;
    flush();
}

uint32_t floor_ports_get_all(uint32_t protocol, yb_net_port_info_t *out) {
    const floor_lock held(segment().trailer.plock);
    uint32_t count = 0;
    for (const net_lib_port_entry_t &entry : segment().port_table) {
        if (entry.hash == 0 || entry.deleted != 0 || entry.info.protocol != protocol)
            continue;
        if (out != nullptr)
            out[count] = entry.info;
        count++;
    }
    return count;
}
