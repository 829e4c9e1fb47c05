// SPDX-License-Identifier: Apache-2.0
//
// See port_floors.h.
#include "bench/port_floors.h"

#include <pthread.h>
#include <sys/mman.h>

#include "bench/port_tables.h"

namespace {

class floor_lock {
  public:
    floor_lock() {
        pthread_rwlock_wrlock(lock());
    }
    ~floor_lock() {
        pthread_rwlock_unlock(lock());
    }
    floor_lock(const floor_lock &) = delete;
    floor_lock &operator=(const floor_lock &) = delete;

  private:
    static pthread_rwlock_t *lock() {
        return reinterpret_cast<pthread_rwlock_t *>(floor_ports_segment().trailer.plock.rwlock);
    }
};

uint32_t &slot(uint32_t log_port) {
    return floor_ports_segment().port_to_ifindex[YB_NET_LOG_PORT_PORT_INDEX(log_port)];
}

void flush() {
    msync(&floor_ports_segment(), sizeof(net_lib_db_ports_segment_t), MS_SYNC);
}

} // namespace

void floor_port_get(uint16_t bucket, yb_net_port_info_t *out) {
    const floor_lock held;
    *out = floor_ports_segment().port_table[bucket].info;
}

uint32_t floor_log_port_get(uint32_t log_port) {
    const floor_lock held;
    return slot(log_port);
}

void floor_port_set(uint16_t bucket, uint32_t sys_ifindex, const yb_net_port_info_t &info) {
    const floor_lock held;
    net_lib_port_entry_t &entry = floor_ports_segment().port_table[bucket];
    entry.sys_ifindex = sys_ifindex;
    entry.info = info;
    entry.hash = bucket;
    slot(info.log_port) = sys_ifindex;
    flush();
}

void floor_port_remove(uint16_t bucket, uint32_t log_port) {
    const floor_lock held;
    net_lib_port_entry_t &entry = floor_ports_segment().port_table[bucket];
    entry.sys_ifindex = 0;
    entry.info = {};
    entry.deleted = 1;
    slot(log_port) = 0;
    flush();
}

uint32_t floor_ports_get_all(uint32_t protocol, yb_net_port_info_t *out) {
    const floor_lock held;
    uint32_t count = 0;
    for (const net_lib_port_entry_t &entry : floor_ports_segment().port_table) {
        if (entry.hash == 0 || entry.deleted != 0 || entry.info.protocol != protocol)
            continue;
        if (out != nullptr)
            out[count] = entry.info;
        count++;
    }
    return count;
}
