// SPDX-License-Identifier: Apache-2.0
//
// See lock_wait.h.
#include "tools/ybnetctl/change/lock_wait.h"

#include <chrono>
#include <ctime>
#include <fcntl.h>
#include <sstream>
#include <unistd.h>

#include "tools/ybnetctl/change/interrupts.h"
#include "tools/ybnetctl/see/procfs.h"
#include "tools/ybnetctl/see/segment_report.h"

namespace ybnetctl {

namespace {

// All that most commands ever do here.
bool is_taken(segment_kind kind) {
    const segment_format &format = format_of(kind);
    const int descriptor = open((std::string("/dev/shm") + format.name).c_str(),
                                O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW); // a FIFO must not stop it
    if (descriptor < 0)
        return false;
    net_lib_db_trailer_t trailer = {};
    const ssize_t got =
        pread(descriptor, &trailer, sizeof(trailer), static_cast<off_t>(format.trailer_offset));
    (void)close(descriptor); // opened for reading only
    return got == sizeof(trailer) && lock_words_of(trailer).taken();
}

// How often a thread was put off its processor: as long as this stays, it has slept, or was stopped. "" when it cannot
// be told.
std::string switches_of(const lock_holder &holder) {
    std::istringstream status(read_whole_file("/proc/" + std::to_string(holder.pid) + "/task/" +
                                              std::to_string(holder.thread) + "/status")
                                  .value_or(""));
    std::string switches;
    for (std::string line; std::getline(status, line);)
        if (line.find("ctxt_switches:") != std::string::npos)
            switches += line;
    return switches;
}

bool may_go_on(holder_fate fate) {
    return fate == holder_fate::alive || fate == holder_fate::stopped || fate == holder_fate::traced;
}

} // namespace

int wait_behind_sleeper(session &run, segment_kind kind, const sigset_t &signals) {
    using clock = std::chrono::steady_clock;
    constexpr std::chrono::seconds patience(1);
    constexpr timespec between_looks = {0, 100'000'000};
    const auto began = clock::now();
    bool said = false;
    while (is_taken(kind)) {
        const status_report all = look_at_segments(run);
        const lock_report &lock = kind == segment_kind::interfaces ? all.interfaces.lock : all.ports.lock;
        if (lock.condition != lock_condition::held || !lock.holder || !may_go_on(lock.holder->fate))
            return 0;
        const std::string before = switches_of(*lock.holder);
        if (const int number = sigtimedwait(&signals, nullptr, &between_looks); number > 0)
            return number;
        if (interrupted() != 0)
            return interrupted();
        if (before.empty() || before != switches_of(*lock.holder))
            return 0;
        if (!said && clock::now() - began >= patience) {
            note(run,
                 std::string("waits for the lock of ") + format_of(kind).name + ": " + lock_in_words(lock));
            said = true;
        }
    }
    return 0;
}

} // namespace ybnetctl
