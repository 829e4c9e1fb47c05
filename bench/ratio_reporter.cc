// SPDX-License-Identifier: Apache-2.0
//
// See ratio_reporter.h.
#include "bench/ratio_reporter.h"

#include <cstdio>

namespace {

const std::string floor_suffix = "/floor";

// "get/first" of "get/first/repeats:5".
std::string base_name(const benchmark::BenchmarkReporter::Run &run) {
    std::string name = run.run_name.function_name;
    if (!run.run_name.args.empty())
        name += "/" + run.run_name.args;
    return name;
}

void print_time(double nanoseconds) {
    if (nanoseconds < 10'000)
        printf("  %9.1f ns", nanoseconds);
    else
        printf("  %9.1f us", nanoseconds / 1'000);
}

} // namespace

bool ratio_reporter::ReportContext(const Context &) {
    return true;
}

void ratio_reporter::ReportRuns(const std::vector<Run> &runs) {
    for (const Run &run : runs) {
        if (run.error_occurred)
            printf("%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
        else if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median")
            results_.push_back({base_name(run), run.GetAdjustedRealTime() * 1e9 /
                                                    benchmark::GetTimeUnitMultiplier(run.time_unit)});
    }
}

void ratio_reporter::Finalize() {
    printf("%-34s  %12s  %12s  %6s\n", "operation", "median", "floor", "ratio");
    for (const result &operation : results_) {
        for (const result &floor : results_) {
            if (floor.name != operation.name + floor_suffix)
                continue;
            printf("%-34s", operation.name.c_str());
            print_time(operation.nanoseconds);
            print_time(floor.nanoseconds);
            printf("  %6.2f\n", operation.nanoseconds / floor.nanoseconds);
        }
    }
}

int run_benchmarks(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    ratio_reporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}
