// SPDX-License-Identifier: Apache-2.0
//
// One reading of a segment, live or from a file, without taking its lock, mapping
// it, registering in it or changing a byte of it. So it works beside a holder that
// is slow, stopped or dead, and no process of the stack ever waits for it.
//
// A live segment is read until two readings in a row agree and its lock was seen
// free between them: nothing was being written then. When that does not come about
// within a few rounds, the copy says so.
#ifndef YBNET_YBNETCTL_SEGMENTS_SEGMENT_COPY_H
#define YBNET_YBNETCTL_SEGMENTS_SEGMENT_COPY_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <sys/types.h>

#include "tools/ybnetctl/segments/fields.h"
#include "tools/ybnetctl/session.h"
#include "ybnet/net_lib_db_layout.h"

namespace ybnetctl {

struct segment_copy {
    segment_kind kind = segment_kind::interfaces;
    std::string path; // "/dev/shm/net_lib_ifc", or the file given
    bool live = true; // not a copy given by --file
    bool present = false;

    // Of the file; nothing below counts when it is not present.
    dev_t device = 0;
    ino_t inode = 0;
    mode_t mode = 0;
    uid_t owner = 0;
    gid_t group = 0;
    uint64_t size = 0;

    std::string unreadable; // of look_at_segment(): why nothing could be read, and what to do; else ""

    std::vector<std::byte> bytes; // all of the file, at most the format's size
    bool fits = false;          // size and size check are this build's: the body and the trailer may be read
    bool settled = true;        // two readings agreed
    bool lock_seen_free = true; // between them; else the record that its holder writes may be half-written

    [[nodiscard]] const segment_format &format() const {
        return format_of(kind);
    }

    // Of a copy that fits.
    [[nodiscard]] const net_lib_db_trailer_t &trailer() const;
    [[nodiscard]] const net_lib_db_interfaces_segment_t &interfaces() const;
    [[nodiscard]] const net_lib_db_ports_segment_t &ports() const;
};

// How much trouble to take: until two readings agree, or one reading, for those who look at the trailer only.
enum class reading { settled, once };

// Reads the segment, or the copy of it among run.files. A live segment that does not exist is not present; a file that
// cannot be read, or is given but of the other kind, throws failure.
segment_copy read_segment(const session &run, segment_kind kind, reading how = reading::settled);

// The same for those who tell of a segment whatever it is like, in one reading: a live one that is there and cannot be
// read is present, and says why it is unreadable.
segment_copy look_at_segment(const session &run, segment_kind kind);

// Where the live segment is and which file it is, without opening it.
segment_copy locate_segment(segment_kind kind);

// As read_segment(), for commands that cannot go on without the contents: throws failure, exit code 3 when it is not
// present and 1 when it does not fit.
segment_copy read_contents(const session &run, segment_kind kind);

// The same for commands to which no live segment is an answer too: it is not present then.
segment_copy read_contents_if_any(const session &run, segment_kind kind);

// Any file as a segment; its size tells which. Throws failure.
segment_copy read_segment_file(const std::string &path);

// A notice on standard error (text) when the copy did not settle or was read beside a holder; for JSON the commands
// carry "settled" and "lock_seen_free".
void warn_when_unsettled(session &run, const segment_copy &copy);

} // namespace ybnetctl

#endif
