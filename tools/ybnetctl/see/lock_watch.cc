// SPDX-License-Identifier: Apache-2.0
//
// See lock_watch.h. The words of the lock are read with pread(2): nothing waits
// for the lock here, and nobody waits because of this.
#include "tools/ybnetctl/see/lock_watch.h"

#include <algorithm>
#include <ctime>
#include <fcntl.h>
#include <map>
#include <sstream>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "tools/ybnetctl/see/procfs.h"

namespace ybnetctl {

namespace {

constexpr int looks_max = 5;
constexpr timespec between_looks = {0, 25'000'000};

double now() {
    timespec time{};
    (void)clock_gettime(CLOCK_MONOTONIC, &time); // this clock always exists
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// The file that was read, as long as the path stands for it.
bool look(const segment_copy &segment, lock_history &history) {
    bool seen = false;
    const int file = open(segment.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW);
    if (file < 0)
        return false;
    struct stat status {};
    net_lib_db_trailer_t trailer{};
    if (fstat(file, &status) == 0 && status.st_dev == segment.device && status.st_ino == segment.inode &&
        pread(file, &trailer, sizeof(trailer), static_cast<off_t>(segment.format().trailer_offset)) ==
            static_cast<ssize_t>(sizeof(trailer))) {
        const lock_words words = lock_words_of(trailer);
        history.looks.push_back(words);
        history.announced = words.holder() != 0 ? is_announced(file, words.holder()) : std::nullopt;
        seen = true;
    }
    (void)close(file); // opened for reading only
    return seen;
}

holder_fate fate_of(char state) {
    switch (state) {
    case 'T':
        return holder_fate::stopped;
    case 't':
        return holder_fate::traced;
    case 'Z':
    case 'X':
        return holder_fate::ended;
    default:
        return holder_fate::alive;
    }
}

std::vector<child_command> children_of(pid_t process) {
    std::multimap<pid_t, child_command> by_parent;
    for (const pid_t each : numbers_in("/proc")) {
        if (const auto line = read_process_line("/proc/" + std::to_string(each)))
            by_parent.emplace(line->parent, child_command{each, line->parent, "", line->age});
    }
    std::vector<child_command> children;
    std::vector<pid_t> parents = {process};
    while (!parents.empty() && children.size() < by_parent.size()) {
        const auto [first, last] = by_parent.equal_range(parents.back());
        parents.pop_back();
        for (auto each = first; each != last; ++each) {
            each->second.command_line = command_line_of(each->second.pid);
            children.push_back(each->second);
            parents.push_back(each->second.pid);
        }
    }
    return children;
}

} // namespace

lock_condition condition_of(const lock_history &history) {
    if (history.looks.empty() || history.looks.back().state != CL_PLOCK_INITIALIZED)
        return lock_condition::not_usable;
    if (std::none_of(history.looks.begin(), history.looks.end(),
                     [](const lock_words &each) { return each.taken(); }))
        return lock_condition::free;
    const lock_words &first = history.looks.front();
    const bool same =
        std::all_of(history.looks.begin(), history.looks.end(), [&first](const lock_words &each) {
            return each.taken() && each.holder() == first.holder();
        });
    if (!same)
        return lock_condition::in_use;
    return first.holder() == 0 ? lock_condition::held_by_nobody : lock_condition::held;
}

std::array<lock_history, 2> watch_locks(const segment_copy &interfaces, const segment_copy &ports) {
    const std::array<const segment_copy *, 2> segments = {&interfaces, &ports};
    std::array<lock_history, 2> histories;
    const double begin = now();
    bool taken = true;
    for (int round = 0; round < looks_max && taken; round++) {
        if (round > 0)
            (void)nanosleep(&between_looks, nullptr);
        taken = false;
        for (size_t i = 0; i < segments.size(); i++) {
            const segment_copy &segment = *segments[i];
            lock_history &history = histories[i];
            if (!segment.present || segment.bytes.size() != segment.format().size ||
                (round > 0 && (history.looks.empty() || !history.looks.front().taken())))
                continue;
            if (!segment.live) {
                history.looks.push_back(lock_words_of(segment.trailer()));
            } else if (look(segment, history)) {
                history.seconds = now() - begin;
                taken = taken || history.looks.back().taken();
            }
        }
    }
    for (lock_history &history : histories) {
        if (history.looks.size() < 2)
            history.seconds = 0;
    }
    return histories;
}

lock_holder find_holder(const lock_history &history, segment_kind kind, const mappers_survey &survey) {
    const lock_words &words = history.looks.back();
    const uint32_t thread = words.holder();
    lock_holder holder;
    holder.thread = thread;
    for (const mapper &who : survey.of(kind).live) {
        const std::string tasks = "/proc/" + std::to_string(who.pid) + "/task";
        for (const pid_t task : numbers_in(tasks)) {
            const std::string directory = tasks + '/' + std::to_string(task);
            const std::vector<uint32_t> ids = ids_of(directory);
            // Its id in the namespace where it lives, or in that of /proc: the users of a segment share one.
            if (ids.empty() || (ids.back() != thread && ids.front() != thread))
                continue;
            const auto line = read_process_line(directory);
            holder.fate = line ? fate_of(line->state) : holder_fate::ended;
            holder.pid = who.pid;
            holder.process_name = who.name;
            holder.thread_name = line ? line->name : "";
            holder.children = children_of(who.pid);
            return holder;
        }
    }
    const bool all_seen = survey.unreadable.empty() && survey.all_shown;
    const bool elsewhere = history.announced == true && !survey.first_pid_namespace;
    const bool dropped = words.announced == thread && history.announced == false;
    holder.fate = dropped || (all_seen && !elsewhere) ? holder_fate::ended : holder_fate::unknown;
    return holder;
}

std::vector<pid_t> find_waiters(segment_kind kind, const mappers_survey &survey) {
    std::vector<pid_t> waiters;
    const uint64_t lock_offset = format_of(kind).trailer_offset;
    for (const mapper &who : survey.of(kind).live) {
        const std::string tasks = "/proc/" + std::to_string(who.pid) + "/task";
        for (const pid_t task : numbers_in(tasks)) {
            // The number of the call that it is in and its arguments, or "running".
            std::istringstream call(
                read_whole_file(tasks + '/' + std::to_string(task) + "/syscall").value_or(""));
            long number = -1;
            uint64_t word = 0;
            call >> number >> std::hex >> word;
            const uint64_t lock = who.address + lock_offset;
            if (number == SYS_futex && word >= lock && word < lock + sizeof(cl_plock_t))
                waiters.push_back(task);
        }
    }
    return waiters;
}

bool is_command_of_library(const std::string &command_line) {
    std::string command = command_line;
    for (const char *const shell : {"sh -c -- ", "sh -c "}) {
        if (command.rfind(shell, 0) == 0) {
            command = command.substr(std::char_traits<char>::length(shell));
            break;
        }
    }
    for (const char *const begin :
         {"ip netns exec ", "ip link ", "vconfig ", "cat /sys/devices/virtual/net/"}) {
        if (command.rfind(begin, 0) == 0)
            return true;
    }
    return false;
}

std::optional<double> held_for_at_least(const lock_history &history, const lock_holder &holder) {
    const bool may_run = holder.fate == holder_fate::alive || holder.fate == holder_fate::unknown;
    double longest = may_run ? 0 : history.seconds;
    for (const child_command &child : holder.children) {
        if (child.parent == holder.pid && is_command_of_library(child.command_line))
            longest = std::max(longest, child.age);
    }
    return longest > 0 ? std::optional(longest) : std::nullopt;
}

lock_report report_lock(const lock_history &history, segment_kind kind, const mappers_survey &survey) {
    lock_report report;
    report.condition = condition_of(history);
    if (history.looks.empty())
        return report;
    const lock_words &last = history.looks.back();
    report.state = last.state;
    if (last.slept_on)
        report.waiting = find_waiters(kind, survey);
    report.looks = history.looks.size();
    report.watched = history.seconds;
    if (report.condition == lock_condition::held) {
        report.holder = find_holder(history, kind, survey);
        report.held_for = held_for_at_least(history, *report.holder);
    }
    return report;
}

} // namespace ybnetctl
