// SPDX-License-Identifier: Apache-2.0
//
// The words of a segment's lock as glibc keeps them on x86-64 (see the format pages
// for their offsets): who holds it, and whether others wait. The library's side is
// net_lib_db/complib/cl_passivelock.h and cl_plock_owner.h.
#ifndef YBNET_YBNETCTL_SEGMENTS_LOCK_WORDS_H
#define YBNET_YBNETCTL_SEGMENTS_LOCK_WORDS_H

#include <cstdint>
#include <optional>

#include "ybnet/net_lib_db_layout.h"

namespace ybnetctl {

struct lock_words {
    bool held = false; // taken for writing, which is the only way it is taken

    // Thread ids, each in its thread's own PID namespace; 0 none. Of the holder, as glibc records it but for the
    // first and last instructions:
    uint32_t writer = 0;
    // Of a thread of this library that is taking the lock, has it, or is releasing it (cl_passivelock.h). Such
    // threads have announced themselves, see announcement_of().
    uint32_t announced = 0;

    bool slept_on = false; // a thread sleeps until the lock is free, or did and died
    uint32_t state = 0;    // CL_PLOCK_*

    // Nobody else of this library gets it before this thread is done with it.
    [[nodiscard]] bool taken() const {
        return held || announced != 0;
    }
    // Who that is; 0 when it is not recorded. Another build may have come in while `announced` was releasing.
    [[nodiscard]] uint32_t holder() const {
        return held && writer != 0 ? writer : announced;
    }
};

lock_words lock_words_of(const net_lib_db_trailer_t &trailer);

// Whether a thread with this id stands announced on the segment's file, in any PID namespace: a lock on a byte far
// beyond its end, which the kernel drops when the process ends. Asks only (F_OFD_GETLK). Nothing when it cannot be
// asked.
std::optional<bool> is_announced(int descriptor, uint32_t thread);

} // namespace ybnetctl

#endif
