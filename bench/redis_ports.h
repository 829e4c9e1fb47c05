// SPDX-License-Identifier: Apache-2.0
//
// The ports database's job done with Redis, a server that processes talk to
// through a unix socket: one hash by system ifindex, one by logical port, both
// changed in one transaction. The server keeps all in memory and writes no file.
#ifndef YBNET_BENCH_REDIS_PORTS_H
#define YBNET_BENCH_REDIS_PORTS_H

#include <cstdint>
#include <string>
#include <vector>

#include "ybnet/yb_net_port.h"

struct redisContext;

// Starts a server of this process's own under /run, which is a tmpfs of this process's own too (sandboxed.h); it
// ends with the process. False, with a line on standard error, when it does not come up.
bool start_redis();

// One connection. Every failure but "not found" ends the program. Not to be used across fork(2).
class redis_ports {
  public:
    explicit redis_ports(const std::string &table_name);
    ~redis_ports();
    redis_ports(const redis_ports &) = delete;
    redis_ports &operator=(const redis_ports &) = delete;

    void fill(const std::vector<yb_net_port_info_t> &infos); // system ifindex: attr_i
    bool get(uint32_t sys_ifindex, yb_net_port_info_t *out);
    uint32_t log_port_get(uint32_t log_port);
    void set(uint32_t sys_ifindex, const yb_net_port_info_t &info);
    void remove(uint32_t sys_ifindex);
    uint32_t get_all(uint32_t protocol, yb_net_port_info_t *out);

  private:
    void append_set(uint32_t sys_ifindex, const yb_net_port_info_t &info);
    void take_replies(size_t count);
    bool get_value(const std::string &table, uint32_t key, void *out, size_t size);

    redisContext *connection_;
    std::string by_ifindex_;
    std::string by_log_port_;
};

#endif
