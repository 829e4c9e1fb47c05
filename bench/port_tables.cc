// SPDX-License-Identifier: Apache-2.0
//
// See port_tables.h.
#include "bench/port_tables.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

#include "bench/floor_lock.h"
#include "ybnet/net_lib_db.h"
#include "ybnet/platform/yb_util.h"

namespace {

constexpr size_t body_size = offsetof(net_lib_db_ports_segment_t, trailer);
constexpr size_t sample_size = 1024;

[[noreturn]] void give_up(const char *step) {
    perror(step);
    abort();
}

uint32_t key_of(uint32_t i, keys choice) {
    if (choice == keys::in_sequence)
        return i;
    uint32_t mixed = i * 0x9E3779B9u; // a bijection, so that no key comes twice
    mixed ^= mixed >> 15;
    mixed *= 0x85EBCA6Bu;
    mixed ^= mixed >> 13;
    mixed *= 0xC2B2AE35u;
    return mixed ^ mixed >> 16;
}

const port_table *current;

} // namespace

yb_net_port_info_t port_info_of(uint32_t sys_ifindex, uint32_t log_port) {
    yb_net_port_info_t info = {};
    info.attr_b = YB_NET_PORT_ATTR_B_NONE;
    info.protocol = 1;
    info.log_port = log_port;
    memcpy(info.name, "swp", 3); // not printed into: it would count as part of each change
    info.attr_i = sys_ifindex;
    return info;
}

uint16_t home_of_port(uint32_t sys_ifindex) {
    alignas(uint32_t) static uint8_t area[YB_CRC_WORK_AREA_SIZE];
    return crc_16(area, reinterpret_cast<const uint8_t *>(&sys_ifindex), sizeof(sys_ifindex), 0x8D95);
}

net_lib_db_ports_segment_t &library_segment() {
    static auto &body = map_segment_again<net_lib_db_ports_segment_t>(YB_NET_PORTS_SEGMENT_NAME);
    return body;
}

port_table::port_table(const char *table_name, uint32_t ports, keys choice) : name(table_name) {
    if (net_lib_db_ports_load(1) != YB_STATUS_SUCCESS)
        give_up("ports database");
    uint32_t i = 0;
    const auto next_key = [&] {
        do
            i++;
        while (key_of(i, choice) == 0 || home_of_port(key_of(i, choice)) == 0); // such ports are not kept
        return key_of(i, choice);
    };
    while (infos.size() < ports) {
        const uint32_t key = next_key();
        infos.push_back(port_info_of(key, i << 8));
        if (net_lib_db_port_set(key, &infos.back()) != YB_STATUS_SUCCESS)
            give_up("filling the ports database");
    }
    while (fresh.size() < batch)
        fresh.push_back(next_key());
    const auto *const bytes = reinterpret_cast<const uint8_t *>(&library_segment());
    contents_.assign(bytes, bytes + body_size);

    for (const net_lib_port_entry_t &bucket : library_segment().port_table)
        if (bucket.hash != 0)
            known.push_back({bucket.sys_ifindex, bucket.info.log_port});
    if (known.size() != ports)
        give_up("counting the ports");
    std::shuffle(known.begin(), known.end(), std::mt19937{ports});
    known.resize(std::min(known.size(), sample_size));
    current = nullptr;
}

void port_table::restore() const {
    memcpy(static_cast<void *>(&library_segment()), contents_.data(), body_size);
    current = this;
}

void port_table::use() const {
    if (current != this)
        restore();
}

void port_table::spoiled() {
    current = nullptr;
}
