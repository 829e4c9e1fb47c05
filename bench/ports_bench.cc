// SPDX-License-Identifier: Apache-2.0
//
// The ports database in tables of several sizes: each operation of the library
// next to its floor (port_floors.h), and to LMDB and Redis doing the same
// (lmdb_ports.h, redis_ports.h).
#include <chrono>
#include <cstdlib>
#include <string>
#include <type_traits>
#include <vector>

#include "bench/lmdb_ports.h"
#include "bench/port_floors.h"
#include "bench/port_tables.h"
#include "bench/redis_ports.h"
#include "bench/run_benchmarks.h"
#include "bench/sandboxed.h"
#include "ybnet/net_lib_db.h"

namespace {

using clock_type = std::chrono::steady_clock;

// ---- Four ways to do the job, with the same functions each -------------------

struct library_ports {
    static bool get(uint32_t sys_ifindex, yb_net_port_info_t *out) {
        return net_lib_db_port_get(sys_ifindex, out) == YB_STATUS_SUCCESS;
    }
    static uint32_t log_port_get(uint32_t log_port) {
        uint32_t sys_ifindex = 0;
        (void)net_lib_db_log_port_get(log_port, &sys_ifindex);
        return sys_ifindex;
    }
    static void set(uint32_t sys_ifindex, const yb_net_port_info_t &info) {
        if (net_lib_db_port_set(sys_ifindex, &info) != YB_STATUS_SUCCESS)
            abort();
    }
    static void remove(uint32_t sys_ifindex) {
        if (net_lib_db_port_remove(sys_ifindex) != YB_STATUS_SUCCESS)
            abort();
    }
    static uint32_t get_all(uint32_t protocol, yb_net_port_info_t *out) {
        uint32_t size = YB_NET_PORTS_MAX;
        if (net_lib_db_ports_get_all(protocol, out, &size) != YB_STATUS_SUCCESS)
            abort();
        return size;
    }
};

struct floor_ports {
    static bool get(uint32_t sys_ifindex, yb_net_port_info_t *out) {
        floor_port_get(sys_ifindex, out);
        return true;
    }
    static uint32_t log_port_get(uint32_t log_port) {
        return floor_log_port_get(log_port);
    }
    static void set(uint32_t sys_ifindex, const yb_net_port_info_t &info) {
        floor_port_set(sys_ifindex, info);
    }
    static void remove(uint32_t sys_ifindex) {
        floor_port_remove(sys_ifindex);
    }
    static uint32_t get_all(uint32_t protocol, yb_net_port_info_t *out) {
        return floor_ports_get_all(protocol, out);
    }
};

// One table, in each of them.
struct ports_case {
    port_table table;
    library_ports library;
    floor_ports floor;
    lmdb_ports lmdb;
    redis_ports redis;

    ports_case(const char *name, uint32_t ports, keys choice)
        : table(name, ports, choice), lmdb(("ports " + std::string(name)).c_str()), redis(name) {
        lmdb.fill(table.infos);
        redis.fill(table.infos);
    }
};

// ---- Reads ------------------------------------------------------------------

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

const auto get = [](benchmark::State &state, const ports_case &on, auto &ports) {
    const auto &known = on.table.known;
    repeat(state, on, known.size(), [&](size_t i) {
        yb_net_port_info_t out;
        benchmark::DoNotOptimize(ports.get(known[i].sys_ifindex, &out));
        benchmark::DoNotOptimize(out);
    });
};

const auto get_missing = [](benchmark::State &state, const ports_case &on, auto &ports) {
    const auto &fresh = on.table.fresh;
    repeat(state, on, fresh.size(), [&](size_t i) {
        yb_net_port_info_t out = {};
        benchmark::DoNotOptimize(ports.get(fresh[i], &out));
        benchmark::DoNotOptimize(out);
    });
};

const auto log_port_get = [](benchmark::State &state, const ports_case &on, auto &ports) {
    const auto &known = on.table.known;
    repeat(state, on, known.size(),
           [&](size_t i) { benchmark::DoNotOptimize(ports.log_port_get(known[i].log_port)); });
};

template <typename ports_t>
void list(benchmark::State &state, const ports_case &on, ports_t &ports, yb_net_port_info_t *out) {
    repeat(state, on, 1, [&](size_t) {
        if (ports.get_all(1, out) != on.table.infos.size())
            state.SkipWithError("not all ports");
    });
}

const auto count = [](benchmark::State &state, const ports_case &on, auto &ports) {
    list(state, on, ports, nullptr);
};

const auto get_all = [](benchmark::State &state, const ports_case &on, auto &ports) {
    static std::vector<yb_net_port_info_t> array(YB_NET_PORTS_MAX);
    list(state, on, ports, array.data());
};

// ---- Changes ----------------------------------------------------------------

// Times a batch of operations as one, on the table as it was; undo(i) is for those that are not put back with it.
template <typename ports_t, typename operation_t, typename undo_t>
void in_batches(benchmark::State &state, const ports_case &on, ports_t &, operation_t operation,
                undo_t undo) {
    constexpr size_t batch = port_table::batch;
    constexpr bool in_the_table = std::is_empty_v<ports_t>;
    for (auto _ : state) {
        on.table.restore(); // the others start with the same caches
        port_table::spoiled();
        const auto start = clock_type::now();
        for (size_t i = 0; i < batch; i++)
            operation(i);
        state.SetIterationTime(std::chrono::duration<double>(clock_type::now() - start).count() / batch);
        if constexpr (!in_the_table) {
            for (size_t i = 0; i < batch; i++)
                undo(i);
        }
    }
}

const auto set_known = [](benchmark::State &state, const ports_case &on, auto &ports) {
    const auto set = [&](size_t i) {
        const known_port &port = on.table.known[i];
        ports.set(port.sys_ifindex, port_info_of(port.sys_ifindex, port.log_port));
    };
    in_batches(state, on, ports, set, [](size_t) {});
};

const auto set_new = [](benchmark::State &state, const ports_case &on, auto &ports) {
    constexpr uint32_t unused_log_port = 0xFF00'0000;
    const auto &fresh = on.table.fresh;
    const auto set = [&](size_t i) {
        ports.set(fresh[i], port_info_of(fresh[i], unused_log_port + static_cast<uint32_t>(i)));
    };
    in_batches(state, on, ports, set, [&](size_t i) { ports.remove(fresh[i]); });
};

const auto remove_known = [](benchmark::State &state, const ports_case &on, auto &ports) {
    const auto &known = on.table.known;
    const auto set_again = [&](size_t i) {
        ports.set(known[i].sys_ifindex, port_info_of(known[i].sys_ifindex, known[i].log_port));
    };
    in_batches(
        state, on, ports, [&](size_t i) { ports.remove(known[i].sys_ifindex); }, set_again);
};

// ---- All of them ------------------------------------------------------------

// batches: how many make a repetition, else 0. Google Benchmark would count a batch as long as one operation.
template <typename measure_t>
void add(const std::string &name, ports_case &on, measure_t measure, int batches) {
    const auto add_one = [&](const char *kind, auto &ports) {
        auto *const added = benchmark::RegisterBenchmark(
            (name + ", " + on.table.name + kind).c_str(),
            [&on, &ports, measure](benchmark::State &state) { measure(state, on, ports); });
        if (batches != 0)
            added->UseManualTime()->Iterations(batches);
    };
    add_one("", on.library);
    add_one("/floor", on.floor);
    add_one("/lmdb", on.lmdb);
    add_one("/redis", on.redis);
}

template <typename measure_t> void add_reading(const char *name, ports_case &on, measure_t measure) {
    add(name, on, measure, 0);
}

template <typename measure_t> void add_change(const char *name, ports_case &on, measure_t measure) {
    add(name, on, measure, 4);
}

} // namespace

int main(int argc, char **argv) {
    if (!sandboxed())
        return 1;
    if (!start_redis() || net_lib_db_ports_load(0) != YB_STATUS_SUCCESS)
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
            add_reading("port get", *on, get);
        for (ports_case *const on : {&low, &high, &high_crowded})
            add_reading("port get missing", *on, get_missing);
        for (ports_case *const on : {&low, &high})
            add_reading("log_port get", *on, log_port_get);
        for (ports_case *const on : {&low, &half, &high, &high_crowded})
            add_change("port set new", *on, set_new);
        for (ports_case *const on : {&low, &high})
            add_change("port set known", *on, set_known);
        for (ports_case *const on : {&low, &high})
            add_change("port remove", *on, remove_known);
        for (ports_case *const on : {&none, &few, &all}) {
            add_reading("ports get_all count", *on, count);
            add_reading("ports get_all", *on, get_all);
        }
        const int status = run_benchmarks(argc, argv);
        if (status != 0)
            return status;
    }
    (void)net_lib_db_ports_unload(0);
    return 0;
}
