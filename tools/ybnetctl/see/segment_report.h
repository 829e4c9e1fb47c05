// SPDX-License-Identifier: Apache-2.0
//
// One segment as `ybnetctl status` tells of it: the file, its users by their count
// and by /proc, its lock, and whether the file may be deleted now. What is found is
// one plain structure; what it means is said by functions without side effects.
#ifndef YBNET_YBNETCTL_SEE_SEGMENT_REPORT_H
#define YBNET_YBNETCTL_SEE_SEGMENT_REPORT_H

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "tools/ybnetctl/see/lock_watch.h"
#include "tools/ybnetctl/see/mappers.h"
#include "tools/ybnetctl/segments/segment_copy.h"
#include "tools/ybnetctl/session.h"

namespace ybnetctl {

struct segment_report {
    segment_copy copy; // its trailer and size; its body may be of several moments
    bool has_trailer = false;
    uint32_t users = 0; // registered
    uint32_t size_check = 0;
    unsigned marker = 0;
    lock_report lock;
    mappers_of_segment mappers;
};

struct status_report {
    segment_report interfaces;
    segment_report ports;
    std::vector<pid_t> unreadable; // as in mappers_survey
    bool all_shown = true;
    bool first_pid_namespace = true;
    bool copies = false; // of files given: no process maps them
};

status_report look_at_segments(const session &run);

// What is known about the processes that use a segment.
struct users_known {
    uint32_t registered = 0;
    std::vector<pid_t> live;
    std::vector<pid_t> deleted;
    size_t unreadable = 0;
    bool all_shown = true;
    bool first_pid_namespace = true;
};
users_known users_of(const status_report &all, const segment_report &one);

enum class agreement { agree, leaked, shared, cannot_tell };
agreement agreement_of(const users_known &users);

// "3 users are registered, 2 processes map the segment (pids 12, 13): 1 registration was ..."
std::string users_in_words(const users_known &users);

// Processes that work on a deleted file of the name; "" when there are none.
std::string stranded_in_words(const users_known &users);

// Whether the file may be deleted: true, false, or nothing when it cannot be told.
std::optional<bool> deleting_is_safe(const users_known &users);
std::string deleting_in_words(const users_known &users);

// "475,216 bytes, this build's layout, initialised", or what is wrong with it; ok tells which.
struct condition {
    bool ok = true;
    std::string words;
};
condition condition_of(const segment_report &one);

json to_json(const status_report &all, const segment_report &one);

} // namespace ybnetctl

#endif
