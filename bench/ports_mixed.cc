// SPDX-License-Identifier: Apache-2.0
//
// See ports_mixed.h.
#include "bench/ports_mixed.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <random>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/lmdb_ports.h"
#include "ybnet/net_lib_db.h"

namespace {

using clock_type = std::chrono::steady_clock;

constexpr size_t workers = 2;
constexpr auto duration = std::chrono::seconds(1);
constexpr const char *environment = "ports mixed";

// One operation on a port: a lookup, or a change.
using operation = std::function<void(const known_port &port, bool change)>;
using rates = std::array<double, workers>; // operations a second

double work(const port_table &table, unsigned seed, const operation &run) {
    std::minstd_rand random(seed);
    uint64_t done = 0;
    const auto start = clock_type::now();
    auto now = start;
    while (now - start < duration) {
        for (int i = 0; i < 64; i++)
            run(table.known[random() % table.known.size()], random() % 10 == 0);
        done += 64;
        now = clock_type::now();
    }
    return static_cast<double>(done) / std::chrono::duration<double>(now - start).count();
}

// open() runs in each process and returns what it works with. The children end without unloading: they share
// this process's registration.
rates in_two_processes(const port_table &table, const std::function<operation()> &open) {
    void *const memory =
        mmap(nullptr, sizeof(rates), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        abort();
    auto *const shared = static_cast<rates *>(memory);
    (void)fflush(stdout);
    for (unsigned i = 0; i < workers; i++) {
        const pid_t child = fork();
        if (child < 0)
            abort();
        if (child == 0) {
            (*shared)[i] = work(table, i + 1, open());
            _exit(0);
        }
    }
    for (size_t i = 0; i < workers; i++) {
        int status = 0;
        if (wait(&status) < 0 || status != 0)
            abort();
    }
    const rates result = *shared;
    munmap(memory, sizeof(rates));
    return result;
}

operation library() {
    return [](const known_port &port, bool change) {
        yb_net_port_info_t info = port_info_of(port.sys_ifindex, port.log_port);
        if ((change ? net_lib_db_port_set(port.sys_ifindex, &info)
                    : net_lib_db_port_get(port.sys_ifindex, &info)) != YB_STATUS_SUCCESS)
            abort();
    };
}

operation lmdb() {
    const auto ports = std::make_shared<lmdb_ports>(environment);
    return [ports](const known_port &port, bool change) {
        yb_net_port_info_t info = port_info_of(port.sys_ifindex, port.log_port);
        if (change)
            ports->set(port.sys_ifindex, info);
        else if (!ports->get(port.sys_ifindex, &info))
            abort();
    };
}

void print_row(const char *name, const rates &measured) {
    printf("%-34s  %12.0f  %12.0f\n", name, measured[0], measured[1]);
}

} // namespace

void measure_mixed_work(const port_table &table) {
    lmdb_ports(environment).fill(table.infos); // closed again before the processes start
    const rates of_library = in_two_processes(table, library);
    const rates of_lmdb = in_two_processes(table, lmdb);
    printf("\n%-34s  %12s  %12s\n", "90 % get, 10 % set, operations/s", "process 1", "process 2");
    print_row("library", of_library);
    print_row("lmdb", of_lmdb);
}
