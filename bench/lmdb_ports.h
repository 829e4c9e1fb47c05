// SPDX-License-Identifier: Apache-2.0
//
// The ports database's job done with LMDB, a shared memory-mapped B+tree: ports
// by system ifindex and a second tree by logical port, kept in step in one
// transaction for each change. The environment lies in /dev/shm, like the
// library's segment, and syncs each commit, as the library flushes each change.
#ifndef YBNET_BENCH_LMDB_PORTS_H
#define YBNET_BENCH_LMDB_PORTS_H

#include <cstdint>
#include <lmdb.h>
#include <vector>

#include "ybnet/yb_net_port.h"

// Every failure but "not found" ends the program. Not to be used across fork(2).
class lmdb_ports {
  public:
    // Opens or makes the environment, a directory under /dev/shm.
    explicit lmdb_ports(const char *name);
    ~lmdb_ports();
    lmdb_ports(const lmdb_ports &) = delete;
    lmdb_ports &operator=(const lmdb_ports &) = delete;

    void fill(const std::vector<yb_net_port_info_t> &infos); // system ifindex: attr_i
    bool get(uint32_t sys_ifindex, yb_net_port_info_t *out);
    uint32_t log_port_get(uint32_t log_port);
    void set(uint32_t sys_ifindex, const yb_net_port_info_t &info);
    void remove(uint32_t sys_ifindex);
    uint32_t get_all(uint32_t protocol, yb_net_port_info_t *out);

  private:
    MDB_env *env_ = nullptr;
    MDB_txn *reader_ = nullptr; // reset between reads, and renewed for each
    MDB_dbi by_ifindex_ = 0;
    MDB_dbi by_log_port_ = 0;
};

#endif
