// SPDX-License-Identifier: Apache-2.0
//
// Prints each measured operation beside its floor. A benchmark NAME and its
// floor NAME/floor run in the same process, interleaved at random; the table
// shows the median of the repetitions of each and their ratio. NAME/PEER, where
// there is one, is the same job done by other software: its median, and the
// operation's as a part of it.
#ifndef YBNET_BENCH_RATIO_REPORTER_H
#define YBNET_BENCH_RATIO_REPORTER_H

#include <benchmark/benchmark.h>
#include <cstdint>
#include <string>
#include <vector>

class ratio_reporter : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context &context) override;
    void ReportRuns(const std::vector<Run> &runs) override;
    void Finalize() override;

  private:
    struct result {
        int64_t order; // of registration: repetitions that are interleaved end in any order
        std::string name;
        double nanoseconds;
    };
    const result *find(const std::string &name) const;
    const result *find_peer(const std::string &name) const;

    std::vector<result> results_;
};

// Runs all registered benchmarks through a ratio_reporter; the main of every benchmark program. Arguments are
// Google Benchmark's.
int run_benchmarks(int argc, char **argv);

#endif
