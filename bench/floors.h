// SPDX-License-Identifier: Apache-2.0
//
// What each operation costs at least: the same lock and the same bytes, without
// the library. Each works on a segment of its own, made by hand.
#ifndef YBNET_BENCH_FLOORS_H
#define YBNET_BENCH_FLOORS_H

#include <cstdint>

#include "ybnet/net_lib_db_layout.h"

// A mapped shared-memory object with the interfaces layout, its lock initialised.
class floor_segment {
  public:
    floor_segment();
    ~floor_segment();
    floor_segment(const floor_segment &) = delete;
    floor_segment &operator=(const floor_segment &) = delete;

    net_lib_db_interfaces_segment_t &body() {
        return *body_;
    }
    void lock();
    void unlock();
    void flush();

  private:
    net_lib_db_interfaces_segment_t *body_;
};

// Lock, plain scan to the key, copy of the record, unlock. True when found.
bool floor_get(floor_segment &segment, uint32_t sys_ifindex, yb_net_interface_record_t *out);
bool floor_get_by_netdev(floor_segment &segment, uint32_t linux_ifindex, const char *ns,
                         yb_net_interface_record_t *out);

// Lock, one pass over the table, copy in, msync(2), unlock; lock, scan, clear, unlock.
void floor_add_and_remove(floor_segment &segment, const net_lib_db_interface_entry_t &entry);

// The system calls of a load that creates and an unload that removes, with the bytes they write.
void floor_load_and_unload();

#endif
