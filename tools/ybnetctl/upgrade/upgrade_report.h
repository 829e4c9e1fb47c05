// SPDX-License-Identifier: Apache-2.0
//
// A new build compared with the builds and the segments that are there: pure, so
// that any of them can be put through it. see/upgrade.cc reads and prints.
#ifndef YBNET_YBNETCTL_UPGRADE_UPGRADE_REPORT_H
#define YBNET_YBNETCTL_UPGRADE_UPGRADE_REPORT_H

#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "tools/ybnetctl/upgrade/shared_library.h"

namespace ybnetctl {

// A build to compare with: of processes that map a segment, or this tool's own when none can be read.
struct running_library {
    shared_library library;
    std::vector<pid_t> processes; // empty: this tool's own
};

struct running_segment {
    std::string name; // "/net_lib_ifc"
    bool present = false;
    uint64_t size = 0;                  // of the file
    std::optional<uint32_t> size_check; // none when the file is too short for one
};

enum class fit { fits, not_running, does_not_fit, cannot_tell };

// As in JSON.
const char *key_of(fit what);

struct segment_fit {
    running_segment running;
    std::optional<uint32_t> new_size;
    fit what = fit::cannot_tell;
    std::vector<std::string> reasons; // why it does not fit, or cannot be told
};

struct library_fit {
    std::string path;
    std::vector<pid_t> processes;
    std::string soname;
    bool same_soname = true;
    std::vector<std::string> missing; // what it exports and the new build does not
};

struct upgrade_report {
    std::string path;
    std::string soname;
    bool is_libybnet = true; // by its name or its layout note
    bool has_note = false;
    std::string note_problem;
    std::vector<segment_fit> segments;
    std::vector<library_fit> libraries;
    fit verdict = fit::cannot_tell; // never not_running
    std::string sentence;
};

// references: not empty.
upgrade_report compare_upgrade(const shared_library &candidate,
                               const std::vector<running_library> &references,
                               const std::vector<running_segment> &segments);

} // namespace ybnetctl

#endif
