// SPDX-License-Identifier: Apache-2.0
//
// Prints each measured operation beside its floor. A benchmark NAME and its
// floor NAME/floor run in the same process, interleaved at random; the table
// shows the median of the repetitions of each and their ratio.
#ifndef YBNET_BENCH_RATIO_REPORTER_H
#define YBNET_BENCH_RATIO_REPORTER_H

#include <benchmark/benchmark.h>
#include <string>
#include <vector>

class ratio_reporter : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context &context) override;
    void ReportRuns(const std::vector<Run> &runs) override;
    void Finalize() override;

  private:
    struct result {
        std::string name;
        double nanoseconds;
    };
    std::vector<result> results_;
};

// Runs all registered benchmarks through a ratio_reporter; the main of every benchmark program. Arguments are
// Google Benchmark's.
int run_benchmarks(int argc, char **argv);

#endif
