// SPDX-License-Identifier: Apache-2.0
//
// A segment's lock, watched for a moment from outside: free, in use or held, by
// which thread of which process, what became of that, which commands it runs, and
// how long it has held the lock at least.
#ifndef YBNET_YBNETCTL_SEE_LOCK_WATCH_H
#define YBNET_YBNETCTL_SEE_LOCK_WATCH_H

#include <array>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "tools/ybnetctl/see/mappers.h"
#include "tools/ybnetctl/segments/lock_words.h"
#include "tools/ybnetctl/segments/segment_copy.h"
#include "tools/ybnetctl/session.h"

namespace ybnetctl {

enum class lock_condition {
    free,
    in_use,         // taken, and it changed hands while it was watched
    held,           // by one thread in every look
    held_by_nobody, // taken in every look, but no holder is recorded in it
    not_usable,     // being destroyed, destroyed or never made: its state says which
};

// What was seen of one lock, in one look or several.
struct lock_history {
    std::vector<lock_words> looks;
    double seconds = 0; // from the first look to the last
    std::optional<bool>
        announced; // whether the last look's holder stands announced on the file, see is_announced()
};

lock_condition condition_of(const lock_history &history);

// Looks at both locks; where one is taken, five times within a tenth of a second. No looks where there is no trailer.
std::array<lock_history, 2> watch_locks(const segment_copy &interfaces, const segment_copy &ports);

enum class holder_fate {
    alive,
    stopped, // by a signal
    traced,  // stopped by a debugger
    ended,   // no process that maps the segment has such a thread, or the kernel has dropped its announcement
    unknown, // not found, but it may be in a process that is not seen
};

struct child_command {
    pid_t pid = 0;
    pid_t parent = 0;
    std::string command_line;
    double age = 0; // seconds since it started
};

struct lock_holder {
    uint32_t thread = 0; // as the lock has it: its id in the holder's PID namespace
    holder_fate fate = holder_fate::unknown;

    // Of a holder that was found.
    pid_t pid = 0;
    std::string process_name;
    std::string thread_name;
    std::vector<child_command> children; // and their children, parents first
};

// The holder of the last look.
lock_holder find_holder(const lock_history &history, segment_kind kind, const mappers_survey &survey);

// The threads that sleep until this lock is free, as far as they may be looked into; in /proc's PID namespace.
std::vector<pid_t> find_waiters(segment_kind kind, const mappers_survey &survey);

// Whether the library runs such commands while it holds the interfaces lock.
bool is_command_of_library(const std::string &command_line);

// How many seconds the holder has had the lock at least: as long as a command runs that the library runs under the lock
// and waits for; or as long as it was watched, when the holder is not running: one that runs may have given the lock up
// and taken it again between two looks, and then nothing is known.
std::optional<double> held_for_at_least(const lock_history &history, const lock_holder &holder);

// Everything about one lock.
struct lock_report {
    lock_condition condition = lock_condition::free;
    bool copied = false; // of a copy: nothing is known about the processes then
    uint32_t state = 0;  // CL_PLOCK_*
    std::vector<pid_t> waiting;
    size_t looks = 0;
    double watched = 0; // seconds from the first look to the last
    std::optional<lock_holder> holder;
    std::optional<double> held_for; // seconds, at least
};

lock_report report_lock(const lock_history &history, segment_kind kind, const mappers_survey &survey);

// One sentence.
std::string lock_in_words(const lock_report &lock);

json to_json(const lock_report &lock);

} // namespace ybnetctl

#endif
