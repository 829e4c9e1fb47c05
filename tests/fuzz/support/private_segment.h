// SPDX-License-Identifier: Apache-2.0
//
// A segment of the library for this process alone: in a file without a name instead of /dev/shm, mapped so
// that what an input did to it is undone by dropping the pages it changed. Nothing can be read or written
// beside it unseen. Needs the wraps of shm_open and shm_unlink that CMakeLists.txt links.
#ifndef YBNET_TESTS_FUZZ_PRIVATE_SEGMENT_H
#define YBNET_TESTS_FUZZ_PRIVATE_SEGMENT_H

#include <cstddef>

#include "net_lib_db/segment.h"

namespace fuzz {

class private_segment {
  public:
    // Has the library make the segment, and fills it: what that leaves is what each restore() comes back to.
    private_segment(segment &seg, yb_status_t (*load)(uint32_t), void (*fill)());

    void restore();

    // The lock is free, and what the library's operations have no business to change is what it was at the
    // last call of note_trailer().
    void note_trailer();
    void check_trailer() const;

    // The last 16 bytes, behind the lock: for an input to overwrite.
    [[nodiscard]] std::byte *behind_lock() const;

  private:
    segment &segment_;
    net_lib_db_trailer_t noted_ = {};
};

} // namespace fuzz

#endif
