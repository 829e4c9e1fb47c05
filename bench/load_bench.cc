// SPDX-License-Identifier: Apache-2.0
//
// A load that creates the interfaces segment and an unload that removes it, next
// to the bare system calls and the bytes they write (floors.h).
#include <cstdio>
#include <sys/resource.h>

#include "bench/floors.h"
#include "bench/run_benchmarks.h"
#include "bench/sandboxed.h"
#include "ybnet/net_lib_db.h"

namespace {

// Each load keeps its descriptor, by design: a bounded number of rounds, and room for them.
constexpr int rounds = 300;
constexpr rlim_t descriptors = 65536;

void load_and_unload(benchmark::State &state) {
    for (auto _ : state) {
        if (net_lib_db_interfaces_load(0) != YB_STATUS_SUCCESS ||
            net_lib_db_interfaces_unload(0) != YB_STATUS_SUCCESS)
            state.SkipWithError("load or unload failed");
    }
}

void load_and_unload_floor(benchmark::State &state) {
    for (auto _ : state)
        floor_load_and_unload();
}

} // namespace

int main(int argc, char **argv) {
    if (!sandboxed())
        return 1;
    struct rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max < descriptors ? limit.rlim_max : descriptors;
    setrlimit(RLIMIT_NOFILE, &limit);

    benchmark::RegisterBenchmark("load + unload", load_and_unload)->Iterations(rounds);
    benchmark::RegisterBenchmark("load + unload/floor", load_and_unload_floor)->Iterations(rounds);
    return run_benchmarks(argc, argv);
}
