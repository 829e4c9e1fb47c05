// SPDX-License-Identifier: Apache-2.0
//
// Two processes at the same work on the same database: how many operations a
// second they get done together, and how many of them the slower one. The
// library, the same work under the bare lock of the C library, LMDB and Redis.
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "bench/lmdb_ports.h"
#include "bench/port_floors.h"
#include "bench/port_tables.h"
#include "bench/redis_ports.h"
#include "bench/sandboxed.h"
#include "ybnet/net_lib_db.h"

namespace {

using clock_type = std::chrono::steady_clock;

constexpr size_t workers = 2;
constexpr auto window = std::chrono::milliseconds(20);
constexpr size_t windows = 50;
constexpr const char *table_name = "contended";

// One operation on a port: a lookup, or a change.
using operation = std::function<void(const known_port &port, bool change)>;

struct alignas(64) progress {
    std::atomic<uint64_t> done;
};
struct alignas(64) shared_state {
    std::array<progress, workers> of;
    std::atomic<bool> over;
};

struct way_of_working {
    const char *kind;                // "" for the library
    std::function<operation()> open; // runs in each process and returns what it works with
};

struct job {
    const char *name;
    unsigned changes; // of 100 operations
    std::vector<way_of_working> ways;
};

void work(const port_table &table, unsigned seed, unsigned changes, const operation &run,
          shared_state &shared) {
    std::minstd_rand random(seed);
    std::atomic<uint64_t> &done = shared.of[seed].done;
    while (!shared.over.load(std::memory_order_relaxed)) {
        run(table.known[random() % table.known.size()], random() % 100 < changes);
        done.store(done.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }
}

using counts = std::array<uint64_t, workers>;

counts counted(const shared_state &shared) {
    return {shared.of[0].done.load(std::memory_order_relaxed),
            shared.of[1].done.load(std::memory_order_relaxed)};
}

// Operations a second of each process, in each window. The children end without unloading: they share this process's
// registration.
std::vector<std::array<double, workers>> in_two_processes(const port_table &table, unsigned changes,
                                                          const way_of_working &way) {
    table.restore();
    void *const memory =
        mmap(nullptr, sizeof(shared_state), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        abort();
    auto &shared = *new (memory) shared_state{};
    (void)fflush(stdout);
    for (unsigned i = 0; i < workers; i++) {
        const pid_t child = fork();
        if (child < 0)
            abort();
        if (child == 0) {
            work(table, i, changes, way.open(), shared);
            _exit(0);
        }
    }
    while (counted(shared)[0] == 0 || counted(shared)[1] == 0)
        std::this_thread::sleep_for(window);
    std::vector<std::array<double, workers>> rates;
    counts before = counted(shared);
    auto start = clock_type::now();
    while (rates.size() < windows) {
        std::this_thread::sleep_for(window);
        const counts after = counted(shared);
        const auto end = clock_type::now();
        if (after == before)
            continue; // neither ran: the machine was busy elsewhere
        const double seconds = std::chrono::duration<double>(end - start).count();
        rates.push_back({static_cast<double>(after[0] - before[0]) / seconds,
                         static_cast<double>(after[1] - before[1]) / seconds});
        before = after;
        start = end;
    }
    shared.over = true;
    for (size_t i = 0; i < workers; i++) {
        int status = 0;
        if (waitpid(-1, &status, 0) < 0 || status != 0)
            abort();
    }
    munmap(memory, sizeof(shared_state));
    return rates;
}

// ---- The ways ---------------------------------------------------------------

operation library() {
    return [](const known_port &port, bool change) {
        yb_net_port_info_t info = port_info_of(port.sys_ifindex, port.log_port);
        if ((change ? net_lib_db_port_set(port.sys_ifindex, &info)
                    : net_lib_db_port_get(port.sys_ifindex, &info)) != YB_STATUS_SUCCESS)
            abort();
    };
}

operation bare_lock() {
    return [](const known_port &port, bool change) {
        yb_net_port_info_t info = port_info_of(port.sys_ifindex, port.log_port);
        if (change)
            floor_port_set(port.sys_ifindex, info);
        else
            floor_port_get(port.sys_ifindex, &info);
    };
}

template <typename ports_t> operation with(const std::shared_ptr<ports_t> &ports) {
    return [ports](const known_port &port, bool change) {
        yb_net_port_info_t info = port_info_of(port.sys_ifindex, port.log_port);
        if (change)
            ports->set(port.sys_ifindex, info);
        else if (!ports->get(port.sys_ifindex, &info))
            abort();
    };
}

operation lmdb() {
    return with(std::make_shared<lmdb_ports>(table_name));
}

operation redis() {
    return with(std::make_shared<redis_ports>(table_name));
}

// The least that can be done under the lock: one word is read.
operation library_word() {
    return [](const known_port &port, bool) {
        uint32_t sys_ifindex = 0;
        if (net_lib_db_log_port_get(port.log_port, &sys_ifindex) != YB_STATUS_SUCCESS)
            abort();
    };
}

operation bare_lock_word() {
    return [](const known_port &port, bool) {
        if (floor_log_port_get(port.log_port) == 0)
            abort();
    };
}

// In the form in which Google Benchmark's results are kept: one repetition a window, with the time that an operation
// of either took, and the operations a second of each.
void print_results(const std::string &name, const std::vector<std::array<double, workers>> &rates) {
    static const char *separator = "";
    for (const auto &rate : rates) {
        printf("%s\n    {\"run_name\": \"%s\", \"run_type\": \"iteration\", \"real_time\": %.3f, "
               "\"time_unit\": \"ns\", \"rates\": [%.0f, %.0f]}",
               separator, name.c_str(), 1e9 / (rate[0] + rate[1]), rate[0], rate[1]);
        separator = ",";
    }
}

} // namespace

int main() {
    if (!sandboxed())
        return 1;
    if (!start_redis() || net_lib_db_ports_load(0) != YB_STATUS_SUCCESS)
        return 1;
    const port_table table(table_name, YB_NET_PORTS_MAX / 2, keys::in_sequence);
    lmdb_ports(table_name).fill(table.infos); // closed again before the processes start
    redis_ports(table_name).fill(table.infos);

    const std::vector<job> jobs = {
        {"log_port get", 0, {{"", library_word}, {"/floor", bare_lock_word}}},
        {"port get", 0, {{"", library}, {"/floor", bare_lock}, {"/lmdb", lmdb}, {"/redis", redis}}},
        {"90 % port get, 10 % port set",
         10,
         {{"", library}, {"/floor", bare_lock}, {"/lmdb", lmdb}, {"/redis", redis}}},
    };
    printf("{\"benchmarks\": [");
    for (const job &each : jobs)
        for (const way_of_working &way : each.ways)
            print_results("two processes: " + std::string(each.name) + way.kind,
                          in_two_processes(table, each.changes, way));
    printf("]}\n");
    (void)net_lib_db_ports_unload(0);
    return 0;
}
