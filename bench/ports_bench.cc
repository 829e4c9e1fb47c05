// SPDX-License-Identifier: Apache-2.0
//
// The ports database, each operation next to its floor (port_floors.h) and to
// LMDB doing the same (lmdb_ports.h), in tables of several sizes; then two
// processes at mixed work, the library's and LMDB's.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/lmdb_ports.h"
#include "bench/port_floors.h"
#include "bench/port_tables.h"
#include "bench/ports_mixed.h"
#include "bench/ratio_reporter.h"
#include "bench/sandboxed.h"
#include "ybnet/net_lib_db.h"

namespace {

using clock_type = std::chrono::steady_clock;

// One table, and the same ports in LMDB.
struct ports_case {
    port_table table;
    lmdb_ports lmdb;

    ports_case(const char *name, uint32_t ports, keys choice)
        : table(name, ports, choice), lmdb(("ports " + std::string(name)).c_str()) {
        lmdb.fill(table.infos);
    }
};

std::vector<yb_net_port_info_t> array(YB_NET_PORTS_MAX);

// Calls operation(i) with i going around `length`, on a table that it does not spoil.
template <typename operation_t>
void repeat(benchmark::State &state, const ports_case &on, size_t length, operation_t operation) {
    on.table.use();
    size_t i = 0;
    for (auto _ : state) {
        operation(i);
        i = i + 1 == length ? 0 : i + 1;
    }
}

// Times a batch of operations as one and puts the table back afterwards.
template <typename operation_t, typename undo_t>
void in_batches(benchmark::State &state, const ports_case &on, operation_t operation, undo_t undo) {
    constexpr size_t batch = port_table::batch;
    for (auto _ : state) {
        on.table.restore();
        port_table::spoiled();
        const auto start = clock_type::now();
        for (size_t i = 0; i < batch; i++)
            operation(i);
        state.SetIterationTime(std::chrono::duration<double>(clock_type::now() - start).count() / batch);
        undo();
    }
}

void expect(benchmark::State &state, yb_status_t status) {
    if (status != YB_STATUS_SUCCESS)
        state.SkipWithError("an operation failed");
}

template <typename run_t> auto *add(const std::string &name, ports_case &on, const char *kind, run_t run) {
    return benchmark::RegisterBenchmark((name + ", " + on.table.name + kind).c_str(), run);
}

// The repetitions' length is given: Google Benchmark would count a batch as long as one operation.
template <typename run_t>
void add_batched(const std::string &name, ports_case &on, const char *kind, run_t run) {
    add(name, on, kind, run)->UseManualTime()->Iterations(20);
}

// ---- Reads ------------------------------------------------------------------

void register_get_hit(ports_case &on) {
    const auto &known = on.table.known;
    add("port get", on, "", [&](benchmark::State &state) {
        repeat(state, on, known.size(), [&](size_t i) {
            yb_net_port_info_t out;
            benchmark::DoNotOptimize(net_lib_db_port_get(known[i].sys_ifindex, &out));
            benchmark::DoNotOptimize(out);
        });
    });
    add("port get", on, "/floor", [&](benchmark::State &state) {
        repeat(state, on, known.size(), [&](size_t i) {
            yb_net_port_info_t out;
            floor_port_get(known[i].bucket, &out);
            benchmark::DoNotOptimize(out);
        });
    });
    add("port get", on, "/lmdb", [&](benchmark::State &state) {
        repeat(state, on, known.size(), [&](size_t i) {
            yb_net_port_info_t out;
            benchmark::DoNotOptimize(on.lmdb.get(known[i].sys_ifindex, &out));
            benchmark::DoNotOptimize(out);
        });
    });
}

void register_get_miss(ports_case &on) {
    const auto &fresh = on.table.fresh;
    add("port get missing", on, "", [&](benchmark::State &state) {
        repeat(state, on, fresh.size(), [&](size_t i) {
            yb_net_port_info_t out = {};
            benchmark::DoNotOptimize(net_lib_db_port_get(fresh[i], &out));
            benchmark::DoNotOptimize(out);
        });
    });
    add("port get missing", on, "/floor", [&](benchmark::State &state) {
        repeat(state, on, fresh.size(), [&](size_t i) {
            yb_net_port_info_t out;
            floor_port_get(on.table.fresh_homes[i], &out);
            benchmark::DoNotOptimize(out);
        });
    });
    add("port get missing", on, "/lmdb", [&](benchmark::State &state) {
        repeat(state, on, fresh.size(), [&](size_t i) {
            yb_net_port_info_t out = {};
            benchmark::DoNotOptimize(on.lmdb.get(fresh[i], &out));
            benchmark::DoNotOptimize(out);
        });
    });
}

void register_log_port_get(ports_case &on) {
    const auto &known = on.table.known;
    add("log_port get", on, "", [&](benchmark::State &state) {
        repeat(state, on, known.size(), [&](size_t i) {
            uint32_t sys_ifindex;
            expect(state, net_lib_db_log_port_get(known[i].log_port, &sys_ifindex));
            benchmark::DoNotOptimize(sys_ifindex);
        });
    });
    add("log_port get", on, "/floor", [&](benchmark::State &state) {
        repeat(state, on, known.size(),
               [&](size_t i) { benchmark::DoNotOptimize(floor_log_port_get(known[i].log_port)); });
    });
    add("log_port get", on, "/lmdb", [&](benchmark::State &state) {
        repeat(state, on, known.size(),
               [&](size_t i) { benchmark::DoNotOptimize(on.lmdb.log_port_get(known[i].log_port)); });
    });
}

void register_get_all(ports_case &on, const std::string &name, yb_net_port_info_t *out) {
    const auto check_count = [&](benchmark::State &state, size_t count) {
        if (count != on.table.infos.size())
            state.SkipWithError("not all ports");
    };
    add(name, on, "", [&on, out, check_count](benchmark::State &state) {
        repeat(state, on, 1, [&](size_t) {
            uint32_t size = YB_NET_PORTS_MAX;
            expect(state, net_lib_db_ports_get_all(1, out, &size));
            check_count(state, size);
        });
    });
    add(name, on, "/floor", [&on, out, check_count](benchmark::State &state) {
        repeat(state, on, 1, [&](size_t) { check_count(state, floor_ports_get_all(1, out)); });
    });
    add(name, on, "/lmdb", [&on, out, check_count](benchmark::State &state) {
        repeat(state, on, 1, [&](size_t) { check_count(state, on.lmdb.get_all(1, out)); });
    });
}

// ---- Changes ----------------------------------------------------------------

void register_set_known(ports_case &on) {
    const auto &known = on.table.known;
    const auto info_of = [&](size_t i) { return port_info_of(known[i].sys_ifindex, known[i].log_port); };
    const auto nothing = [] {};
    add_batched("port set known", on, "", [&on, &known, info_of, nothing](benchmark::State &state) {
        in_batches(
            state, on,
            [&](size_t i) {
                const yb_net_port_info_t info = info_of(i);
                expect(state, net_lib_db_port_set(known[i].sys_ifindex, &info));
            },
            nothing);
    });
    add_batched("port set known", on, "/floor", [&on, &known, info_of, nothing](benchmark::State &state) {
        in_batches(
            state, on, [&](size_t i) { floor_port_set(known[i].bucket, known[i].sys_ifindex, info_of(i)); },
            nothing);
    });
    add_batched("port set known", on, "/lmdb", [&on, &known, info_of, nothing](benchmark::State &state) {
        in_batches(
            state, on, [&](size_t i) { on.lmdb.set(known[i].sys_ifindex, info_of(i)); }, nothing);
    });
}

// Of no recorded port.
uint32_t fresh_log_port(size_t i) {
    return 0xFF00'0000 + static_cast<uint32_t>(i);
}

void register_set_new(ports_case &on) {
    const auto &fresh = on.table.fresh;
    const auto info_of = [&](size_t i) { return port_info_of(fresh[i], fresh_log_port(i)); };
    const auto nothing = [] {};
    add_batched("port set new", on, "", [&on, &fresh, info_of, nothing](benchmark::State &state) {
        in_batches(
            state, on,
            [&](size_t i) {
                const yb_net_port_info_t info = info_of(i);
                expect(state, net_lib_db_port_set(fresh[i], &info));
            },
            nothing);
    });
    add_batched("port set new", on, "/floor", [&on, &fresh, info_of, nothing](benchmark::State &state) {
        in_batches(
            state, on, [&](size_t i) { floor_port_set(on.table.fresh_homes[i], fresh[i], info_of(i)); },
            nothing);
    });
    add_batched("port set new", on, "/lmdb", [&on, &fresh, info_of](benchmark::State &state) {
        in_batches(
            state, on, [&](size_t i) { on.lmdb.set(fresh[i], info_of(i)); },
            [&] {
                for (const uint32_t key : fresh)
                    on.lmdb.remove(key);
            });
    });
}

void register_remove(ports_case &on) {
    const auto &known = on.table.known;
    const auto nothing = [] {};
    add_batched("port remove", on, "", [&on, &known, nothing](benchmark::State &state) {
        in_batches(
            state, on, [&](size_t i) { expect(state, net_lib_db_port_remove(known[i].sys_ifindex)); },
            nothing);
    });
    add_batched("port remove", on, "/floor", [&on, &known, nothing](benchmark::State &state) {
        in_batches(
            state, on, [&](size_t i) { floor_port_remove(known[i].bucket, known[i].log_port); }, nothing);
    });
    add_batched("port remove", on, "/lmdb", [&on, &known](benchmark::State &state) {
        in_batches(
            state, on, [&](size_t i) { on.lmdb.remove(known[i].sys_ifindex); },
            [&] {
                for (size_t i = 0; i < port_table::batch; i++)
                    on.lmdb.set(known[i].sys_ifindex, port_info_of(known[i].sys_ifindex, known[i].log_port));
            });
    });
}

} // namespace

int main(int argc, char **argv) {
    if (!sandboxed())
        return 1;
    if (net_lib_db_ports_load(0) != YB_STATUS_SUCCESS)
        return 1;
    uint32_t silent = 0; // a port that is not found is a message otherwise
    (void)net_lib_db_log_verbosity_level(YB_ACCESS_CMD_SET, &silent);
    {
        ports_case none("0 ports", 0, keys::in_sequence);
        ports_case few("512 ports", 512, keys::in_sequence);
        ports_case low("1 %", YB_NET_PORTS_MAX / 100, keys::in_sequence);
        ports_case half("50 %", YB_NET_PORTS_MAX / 2, keys::in_sequence);
        ports_case high("95 %", YB_NET_PORTS_MAX / 100 * 95, keys::in_sequence);
        ports_case all("65,536 ports", YB_NET_PORTS_MAX, keys::in_sequence);
        ports_case half_crowded("50 % crowded", YB_NET_PORTS_MAX / 2, keys::scattered);
        ports_case high_crowded("95 % crowded", YB_NET_PORTS_MAX / 100 * 95, keys::scattered);

        for (ports_case *const on : {&low, &half, &high, &half_crowded, &high_crowded})
            register_get_hit(*on);
        for (ports_case *const on : {&low, &high, &high_crowded})
            register_get_miss(*on);
        for (ports_case *const on : {&low, &high})
            register_log_port_get(*on);
        for (ports_case *const on : {&low, &half, &high, &high_crowded})
            register_set_new(*on);
        for (ports_case *const on : {&low, &high}) {
            register_set_known(*on);
            register_remove(*on);
        }
        for (ports_case *const on : {&none, &few, &all}) {
            register_get_all(*on, "ports get_all count", nullptr);
            register_get_all(*on, "ports get_all", array.data());
        }
        const int status = run_benchmarks(argc, argv);
        half.table.restore();
        if (status != 0)
            return status;
        measure_mixed_work(half.table);
    }
    (void)net_lib_db_ports_unload(0);
    return 0;
}
