// SPDX-License-Identifier: Apache-2.0
//
// See progress.h.
#include "tools/ybnetctl/change/progress.h"

#include <algorithm>
#include <cmath>
#include <ostream>

namespace ybnetctl {

namespace {

constexpr auto between_looks = std::chrono::milliseconds(100);
constexpr int bar_width = 30;

} // namespace

std::string progress_line(double share, uint64_t commands, uint64_t failed, double seconds) {
    std::string line;
    if (share >= 0) {
        const double part = std::min(share, 1.0);
        const auto filled = static_cast<size_t>(std::lround(part * bar_width));
        const std::string percent = std::to_string(std::lround(part * 100));
        line = '[' + std::string(filled, '#') + std::string(bar_width - filled, '.') + "] " +
               std::string(3 - std::min<size_t>(3, percent.size()), ' ') + percent + " %   ";
    }
    line += std::to_string(commands) + (commands == 1 ? " command" : " commands");
    if (failed != 0)
        line += ", " + std::to_string(failed) + " failed";
    if (seconds > 0)
        line += ", " + std::to_string(std::llround(static_cast<double>(commands) / seconds)) + "/s";
    return line;
}

progress::progress(session &run) : run_(run), start_(clock::now()), shown_(start_) {}

progress::~progress() {
    clear();
}

double progress::seconds() const {
    return std::chrono::duration<double>(clock::now() - start_).count();
}

void progress::show(double share, uint64_t commands, uint64_t failed) {
    if (!run_.err_is_terminal || clock::now() - shown_ < between_looks)
        return;
    shown_ = clock::now();
    visible_ = true;
    run_.err << "\r\033[K" << progress_line(share, commands, failed, seconds()) << std::flush;
}

void progress::clear() {
    if (visible_)
        run_.err << "\r\033[K" << std::flush;
    visible_ = false;
}

} // namespace ybnetctl
