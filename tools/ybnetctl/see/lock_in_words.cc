// SPDX-License-Identifier: Apache-2.0
//
// What is said of a lock, to people and in JSON; what is known of it is found in
// lock_watch.cc.
#include "tools/ybnetctl/see/lock_watch.h"

#include <array>
#include <cstdio>

namespace ybnetctl {

namespace {

std::string seconds_text(double seconds) {
    std::array<char, 32> text{};
    (void)std::snprintf(text.data(), text.size(), "%.1f s", seconds);
    return text.data();
}

std::string waiting_in_words(const std::vector<pid_t> &waiting) {
    if (waiting.empty())
        return "";
    std::string words = waiting.size() == 1
                            ? "; 1 thread waits for it ("
                            : "; " + std::to_string(waiting.size()) + " threads wait for it (";
    for (size_t i = 0; i < waiting.size(); i++)
        words += (i == 0 ? "" : ", ") + std::to_string(waiting[i]);
    return words + ')';
}

std::string held_in_words(const lock_report &lock) {
    const lock_holder &holder = *lock.holder;
    const std::string thread = "thread " + std::to_string(holder.thread);
    if (lock.copied)
        return "held by " + thread + " when it was copied";
    std::string duration = "held by ";
    if (lock.held_for)
        duration = "held for at least " + seconds_text(*lock.held_for) + " by ";
    else if (lock.looks > 1)
        duration = "held in each of " + std::to_string(lock.looks) + " looks within " +
                   seconds_text(lock.watched) + " by ";
    const std::string process = " (" + holder.thread_name + ") of process " + std::to_string(holder.pid) +
                                " (" + holder.process_name + ")";
    switch (holder.fate) {
    case holder_fate::alive:
        return duration + thread + process + ", which is alive";
    case holder_fate::stopped:
        return duration + thread + process +
               ", which is stopped: nobody gets the lock before it goes on (kill -CONT " +
               std::to_string(holder.pid) + ")";
    case holder_fate::traced:
        return duration + thread + process + ", which a debugger has stopped";
    case holder_fate::ended:
        return duration + thread +
               ", which is dead: it ended without giving the lock up, and the next thread that waits for the "
               "lock takes it over";
    case holder_fate::unknown:
        break;
    }
    return duration + thread +
           ", which none of the processes that may be looked into has: it is dead, or belongs to another one";
}

const char *name_of(lock_condition condition) {
    switch (condition) {
    case lock_condition::free:
        return "free";
    case lock_condition::in_use:
        return "in_use";
    case lock_condition::held:
        return "held";
    case lock_condition::held_by_nobody:
        return "held_by_nobody";
    case lock_condition::not_usable:
        break;
    }
    return "not_usable";
}

const char *name_of(holder_fate fate) {
    switch (fate) {
    case holder_fate::alive:
        return "alive";
    case holder_fate::stopped:
        return "stopped";
    case holder_fate::traced:
        return "traced";
    case holder_fate::ended:
        return "dead";
    case holder_fate::unknown:
        break;
    }
    return "unknown";
}

} // namespace

std::string lock_in_words(const lock_report &lock) {
    switch (lock.condition) {
    case lock_condition::free:
        return "free" + waiting_in_words(lock.waiting);
    case lock_condition::in_use:
        return "in use: it changed hands while it was watched for " + seconds_text(lock.watched) +
               waiting_in_words(lock.waiting);
    case lock_condition::held:
        return held_in_words(lock) + waiting_in_words(lock.waiting);
    case lock_condition::held_by_nobody:
        return "held, with no holder recorded in it" + waiting_in_words(lock.waiting);
    case lock_condition::not_usable:
        break;
    }
    if (lock.state == CL_PLOCK_DESTROYING)
        return "being destroyed by the last user";
    if (lock.state == CL_PLOCK_DESTROYED)
        return "destroyed: the last user is removing the segment, or died before it did";
    return "not made yet";
}

json to_json(const lock_report &lock) {
    json object;
    object["condition"] = name_of(lock.condition);
    object["state"] = lock.state;
    object["waiting"] = lock.waiting;
    object["looks"] = lock.looks;
    object["watched_seconds"] = lock.watched;
    object["holder"] = nullptr;
    if (lock.holder) {
        const lock_holder &holder = *lock.holder;
        const bool found = holder.pid != 0;
        json &who = object["holder"];
        who["thread"] = holder.thread;
        who["fate"] = name_of(holder.fate);
        who["pid"] = found ? json(holder.pid) : json(nullptr);
        who["process_name"] = found ? json(holder.process_name) : json(nullptr);
        who["thread_name"] = found ? json(holder.thread_name) : json(nullptr);
        who["held_for_at_least_seconds"] = lock.held_for ? json(*lock.held_for) : json(nullptr);
        who["children"] = json::array();
        for (const child_command &child : holder.children)
            who["children"].push_back({{"pid", child.pid},
                                       {"parent", child.parent},
                                       {"command_line", child.command_line},
                                       {"age_seconds", child.age}});
    }
    object["in_words"] = lock_in_words(lock);
    return object;
}

} // namespace ybnetctl
