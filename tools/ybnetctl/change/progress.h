// SPDX-License-Identifier: Apache-2.0
//
// How far a batch has come, on one line of a terminal's standard error that is written anew ten times a second and is
// gone before anything else is printed: while a progress lives, both streams of the session go through it.
#ifndef YBNET_YBNETCTL_CHANGE_PROGRESS_H
#define YBNET_YBNETCTL_CHANGE_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>

#include "tools/ybnetctl/session.h"

namespace ybnetctl {

// "[######......]  50 %   1200 commands, 2 failed, 400/s"; share below 0: without bar.
std::string progress_line(double share, uint64_t commands, uint64_t failed, double seconds);

class progress {
  public:
    explicit progress(session &run);
    ~progress();
    progress(const progress &) = delete;
    progress &operator=(const progress &) = delete;

    void show(double share, uint64_t commands, uint64_t failed);
    void clear();
    [[nodiscard]] double seconds() const;

  private:
    using clock = std::chrono::steady_clock;
    class stream_behind_bar;

    session &run_;
    std::ostream bar_; // standard error itself
    std::unique_ptr<stream_behind_bar> out_;
    std::unique_ptr<stream_behind_bar> err_;
    clock::time_point start_;
    clock::time_point shown_;
    bool visible_ = false;
};

} // namespace ybnetctl

#endif
