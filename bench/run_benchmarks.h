// SPDX-License-Identifier: Apache-2.0
//
// The main of every benchmark program. A benchmark NAME has its floor in
// NAME/floor, and the same job done by other software in NAME/PEER; report puts
// what belongs together into one row.
#ifndef YBNET_BENCH_RUN_BENCHMARKS_H
#define YBNET_BENCH_RUN_BENCHMARKS_H

#include <benchmark/benchmark.h>

// Runs all registered benchmarks; arguments are Google Benchmark's. The program's exit status.
inline int run_benchmarks(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

#endif
