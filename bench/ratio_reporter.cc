// SPDX-License-Identifier: Apache-2.0
//
// See ratio_reporter.h.
#include "bench/ratio_reporter.h"

#include <algorithm>
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
            results_.push_back(
                {run.family_index, base_name(run),
                 run.GetAdjustedRealTime() * 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit)});
    }
}

const ratio_reporter::result *ratio_reporter::find(const std::string &name) const {
    for (const result &candidate : results_)
        if (candidate.name == name)
            return &candidate;
    return nullptr;
}

const ratio_reporter::result *ratio_reporter::find_peer(const std::string &name) const {
    for (const result &candidate : results_)
        if (candidate.name.starts_with(name + "/") && candidate.name != name + floor_suffix)
            return &candidate;
    return nullptr;
}

void ratio_reporter::Finalize() {
    std::stable_sort(results_.begin(), results_.end(),
                     [](const result &left, const result &right) { return left.order < right.order; });
    const bool peers = std::any_of(results_.begin(), results_.end(), [&](const result &operation) {
        return find_peer(operation.name) != nullptr;
    });
    printf("%-34s  %12s  %12s  %6s", "operation", "median", "floor", "ratio");
    if (peers)
        printf("  %12s  %6s", "peer", "ratio");
    printf("\n");
    for (const result &operation : results_) {
        const result *const floor = find(operation.name + floor_suffix);
        if (floor == nullptr)
            continue;
        printf("%-34s", operation.name.c_str());
        print_time(operation.nanoseconds);
        print_time(floor->nanoseconds);
        printf("  %6.2f", operation.nanoseconds / floor->nanoseconds);
        if (const result *const peer = find_peer(operation.name); peer != nullptr) {
            print_time(peer->nanoseconds);
            printf("  %6.2f  %s", operation.nanoseconds / peer->nanoseconds,
                   peer->name.substr(operation.name.size() + 1).c_str());
        }
        printf("\n");
    }
    fflush(stdout);
}

int run_benchmarks(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    ratio_reporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}
