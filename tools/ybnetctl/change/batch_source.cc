// SPDX-License-Identifier: Apache-2.0
//
// See batch_source.h.
#include "tools/ybnetctl/change/batch_source.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/ybnetctl/change/interrupts.h"
#include "tools/ybnetctl/outcome.h"

namespace ybnetctl {

namespace {

constexpr size_t part_size = 1U << 16;

failure unreadable(const std::string &name) {
    return {exit_code::failed,
            name,
            std::string("cannot be read: ") + std::strerror(errno),
            "-b FILE with one command a line; -b - reads standard input",
            {}};
}

} // namespace

batch_source::batch_source(const std::string &path)
    : name_(path == "-" ? "standard input" : path),
      descriptor_(path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC)), reader_({}) {
    if (descriptor_ < 0)
        throw unreadable(name_);
    struct stat status = {};
    if (fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode))
        size_ = static_cast<uint64_t>(status.st_size);
}

batch_source::~batch_source() {
    if (descriptor_ != STDIN_FILENO)
        close(descriptor_); // opened for reading only
}

// Puts what comes next behind what is not passed yet.
bool batch_source::read_more() {
    passed_ += reader_.done();
    text_.erase(0, reader_.done());
    const size_t line = reader_.done_line();
    const size_t kept = text_.size();
    text_.resize(kept + part_size);
    ssize_t got = -1;
    while (interrupted() == 0) {
        got = read(descriptor_, text_.data() + kept, part_size);
        if (got >= 0 || errno != EINTR)
            break;
    }
    text_.resize(kept + static_cast<size_t>(got > 0 ? got : 0));
    reader_ = batch_reader(text_, line);
    if (got < 0 && interrupted() == 0)
        throw unreadable(name_);
    ended_ = got <= 0;
    return !ended_;
}

bool batch_source::next(batch_command *out) {
    for (;;) {
        const bool found = interrupted() == 0 && reader_.next(out);
        if (interrupted() != 0 || (ended_ && !found))
            return false;
        if (found && (ended_ || reader_.complete()))
            return true;
        (void)read_more(); // what was found may go on in the next part; at the end it is looked at once more
    }
}

double batch_source::share() const {
    return size_ == 0 ? -1 : static_cast<double>(passed_ + reader_.done()) / static_cast<double>(size_);
}

} // namespace ybnetctl
