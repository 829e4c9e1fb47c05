// SPDX-License-Identifier: Apache-2.0
//
// The processes that map a segment now, as /proc/PID/maps shows them: of the
// file that has the name, and of a deleted file that had it, whose users see
// nothing of what the others do.
#ifndef YBNET_YBNETCTL_SEE_MAPPERS_H
#define YBNET_YBNETCTL_SEE_MAPPERS_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <sys/types.h>

#include "tools/ybnetctl/segments/fields.h"
#include "tools/ybnetctl/segments/segment_copy.h"
#include "tools/ybnetctl/session.h"

namespace ybnetctl {

struct mapper {
    pid_t pid = 0;
    std::string name;
    std::string command_line;
    uid_t user = 0;
    std::string user_name;
    double age = 0; // seconds since the process started
    unsigned threads = 0;
    char state = '?';     // as in procfs.h
    uint64_t address = 0; // where the process has the segment
};

struct mappers_of_segment {
    std::vector<mapper> live;    // of the file that has the name
    std::vector<mapper> deleted; // of a file that had it
};

struct mappers_survey {
    std::array<mappers_of_segment, 2> segments; // by segment_kind
    std::vector<pid_t> unreadable;              // processes whose maps may not be read
    bool all_shown = true;                      // /proc shows every process of its PID namespace
    bool first_pid_namespace = true;            // and there are no processes outside of it

    [[nodiscard]] const mappers_of_segment &of(segment_kind kind) const {
        return segments[kind == segment_kind::interfaces ? 0 : 1];
    }
};

// One line of maps, with the parts that identify a file.
struct mapped_file {
    uint64_t address = 0;
    dev_t device = 0;
    ino_t inode = 0;
    std::string path; // with " (deleted)" behind it when it is
};
mapped_file parse_map_line(const std::string &line);

// Of live segments, present or not.
mappers_survey find_mappers(const segment_copy &interfaces, const segment_copy &ports);

json to_json(const mapper &who);

} // namespace ybnetctl

#endif
