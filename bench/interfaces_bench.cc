// SPDX-License-Identifier: Apache-2.0
//
// The interfaces database: lookups in a table that is full but for one slot, and
// adding to and removing from it, each next to its floor (floors.h) and lookups
// also next to a scan with vector instructions.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/floors.h"
#include "bench/run_benchmarks.h"
#include "bench/sandboxed.h"
#include "ybnet/net_lib_db.h"

namespace {

constexpr uint32_t records = YB_NET_INTERFACES_MAX - 1; // one slot is left for adding
constexpr uint32_t first_key = 100'000;
constexpr uint32_t absent_key = 7;
constexpr const char *ns = "blue";

yb_net_interface_params_t params_of(const char *ns_name) {
    yb_net_interface_params_t params = {};
    params.type = YB_L2_INTERFACE_TYPE_LOOPBACK;
    (void)snprintf(params.ns_name, sizeof(params.ns_name), "%s", ns_name);
    return params;
}

// Record number i of the table.
net_lib_db_interface_entry_t entry_of(uint32_t i) {
    net_lib_db_interface_entry_t entry = {};
    entry.record = {first_key + i, first_key + i, params_of(ns), YB_NET_RIF_NONE, YB_NET_VRID_NONE};
    entry.in_use = 1;
    return entry;
}

void fill() {
    for (uint32_t i = 0; i < records; i++) {
        const net_lib_db_interface_entry_t entry = entry_of(i);
        if (net_lib_db_interface_add(entry.record.sys_ifindex, entry.record.linux_ifindex,
                                     &entry.record.params) != YB_STATUS_SUCCESS)
            abort();
    }
}

void get(benchmark::State &state, uint32_t key) {
    yb_net_interface_record_t record;
    for (auto _ : state) {
        benchmark::DoNotOptimize(net_lib_db_interface_get(key, &record));
        benchmark::DoNotOptimize(record);
    }
}

void get_floor(benchmark::State &state, uint32_t key) {
    yb_net_interface_record_t record;
    for (auto _ : state) {
        benchmark::DoNotOptimize(floor_get(key, &record));
        benchmark::DoNotOptimize(record);
    }
}

void get_vectorised(benchmark::State &state, uint32_t key) {
    yb_net_interface_record_t record;
    for (auto _ : state) {
        benchmark::DoNotOptimize(vector_get(key, &record));
        benchmark::DoNotOptimize(record);
    }
}

void get_by_netdev(benchmark::State &state, uint32_t linux_ifindex) {
    yb_net_interface_record_t record;
    for (auto _ : state) {
        benchmark::DoNotOptimize(net_lib_db_interface_get_by_linux_ifindex_ns(linux_ifindex, ns, &record));
        benchmark::DoNotOptimize(record);
    }
}

void get_by_netdev_floor(benchmark::State &state, uint32_t linux_ifindex) {
    yb_net_interface_record_t record;
    for (auto _ : state) {
        benchmark::DoNotOptimize(floor_get_by_netdev(linux_ifindex, ns, &record));
        benchmark::DoNotOptimize(record);
    }
}

void add_and_remove(benchmark::State &state) {
    const yb_net_interface_params_t params = params_of(ns);
    for (auto _ : state) {
        if (net_lib_db_interface_add(absent_key, absent_key, &params) != YB_STATUS_SUCCESS ||
            net_lib_db_interface_remove(absent_key) != YB_STATUS_SUCCESS)
            state.SkipWithError("add or remove failed");
    }
}

void add_and_remove_floor(benchmark::State &state) {
    net_lib_db_interface_entry_t entry = entry_of(0);
    entry.record.sys_ifindex = absent_key;
    entry.record.linux_ifindex = absent_key;
    for (auto _ : state)
        floor_add_and_remove(entry);
}

void register_pair(const char *name, void (*run)(benchmark::State &, uint32_t),
                   void (*floor)(benchmark::State &, uint32_t), uint32_t key) {
    benchmark::RegisterBenchmark(name, run, key);
    benchmark::RegisterBenchmark((std::string(name) + "/floor").c_str(), floor, key);
}

void register_get(const std::string &which, uint32_t key) {
    const std::string name = "interface get, " + which;
    register_pair(name.c_str(), get, get_floor, key);
    if (has_vectors())
        benchmark::RegisterBenchmark((name + "/avx2").c_str(), get_vectorised, key);
}

} // namespace

int main(int argc, char **argv) {
    if (!sandboxed())
        return 1;
    if (net_lib_db_interfaces_load(0) != YB_STATUS_SUCCESS)
        return 1;
    fill();

    register_get("first", first_key);
    register_get("middle", first_key + records / 2);
    register_get("last", first_key + records - 1);
    register_get("missing", absent_key);
    register_pair("interface get by netdev, first", get_by_netdev, get_by_netdev_floor, first_key);
    register_pair("interface get by netdev, last", get_by_netdev, get_by_netdev_floor,
                  first_key + records - 1);
    benchmark::RegisterBenchmark("interface add + remove", add_and_remove);
    benchmark::RegisterBenchmark("interface add + remove/floor", add_and_remove_floor);
    const int status = run_benchmarks(argc, argv);
    (void)net_lib_db_interfaces_unload(0);
    return status;
}
