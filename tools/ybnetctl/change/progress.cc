// SPDX-License-Identifier: Apache-2.0
//
// See progress.h.
#include "tools/ybnetctl/change/progress.h"

#include <algorithm>
#include <cmath>
#include <streambuf>

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

// Clears the bar before the first byte of whatever is printed, and passes it on.
class progress::stream_behind_bar : public std::streambuf {
  public:
    stream_behind_bar(progress &bar, std::ostream &stream)
        : bar_(bar), stream_(stream), target_(stream.rdbuf(this)) {}
    ~stream_behind_bar() override {
        const std::ios::iostate state = stream_.rdstate(); // which the next call forgets
        stream_.rdbuf(target_);
        stream_.setstate(state);
    }
    stream_behind_bar(const stream_behind_bar &) = delete;
    stream_behind_bar &operator=(const stream_behind_bar &) = delete;

  protected:
    int_type overflow(int_type character) override {
        bar_.clear();
        return traits_type::eq_int_type(character, traits_type::eof())
                   ? traits_type::not_eof(character)
                   : target_->sputc(traits_type::to_char_type(character));
    }
    std::streamsize xsputn(const char *text, std::streamsize size) override {
        bar_.clear();
        return target_->sputn(text, size);
    }
    int sync() override {
        return target_->pubsync();
    }

  private:
    progress &bar_;
    std::ostream &stream_;
    std::streambuf *const target_;
};

progress::progress(session &run) : run_(run), bar_(run.err.rdbuf()), start_(clock::now()), shown_(start_) {
    if (!run.err_is_terminal)
        return;
    out_ = std::make_unique<stream_behind_bar>(*this, run.out);
    err_ = std::make_unique<stream_behind_bar>(*this, run.err);
}

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
    run_.out.flush(); // what was printed before
    visible_ = true;
    bar_ << "\r\033[K" << progress_line(share, commands, failed, seconds()) << std::flush;
}

void progress::clear() {
    if (visible_)
        bar_ << "\r\033[K" << std::flush;
    visible_ = false;
}

} // namespace ybnetctl
