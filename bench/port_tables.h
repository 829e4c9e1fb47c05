// SPDX-License-Identifier: Apache-2.0
//
// Ports tables of several sizes, filled once through the library and kept as
// bytes: a benchmark puts one back instead of growing the chains that removed
// ports leave behind.
#ifndef YBNET_BENCH_PORT_TABLES_H
#define YBNET_BENCH_PORT_TABLES_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ybnet/net_lib_db_layout.h"

// How system ifindexes are chosen: one after the other, which the checksum spreads evenly, or all over the
// 32 bits, which makes ports crowd.
enum class keys { in_sequence, scattered };

// A recorded port.
struct known_port {
    uint32_t sys_ifindex;
    uint32_t log_port;
};

class port_table {
  public:
    static constexpr size_t batch = 256;

    // Erases the library's database and fills it with so many ports.
    port_table(const char *name, uint32_t ports, keys choice);

    // Puts the contents back into the library's segment.
    void restore() const;
    // The same, unless the last table put back was this one and nobody has called spoiled() since.
    void use() const;
    static void spoiled();

    const char *name;
    std::vector<yb_net_port_info_t> infos; // as they were set, with their sys_ifindex in attr_i
    std::vector<known_port> known;         // recorded ones, in random order; empty when there are none
    std::vector<uint32_t> fresh;           // `batch` keys that are not recorded, in the same choice

  private:
    std::vector<uint8_t> contents_;
};

// A record that carries its key.
yb_net_port_info_t port_info_of(uint32_t sys_ifindex, uint32_t log_port);

// The home bucket of a key.
uint16_t home_of_port(uint32_t sys_ifindex);

// A second mapping of the ports segment, made at the first call.
net_lib_db_ports_segment_t &library_segment();

#endif
