// SPDX-License-Identifier: Apache-2.0
//
// See lock_words.h.
#include "tools/ybnetctl/segments/lock_words.h"

#include <cstring>
#include <fcntl.h>
#include <pthread.h>

#include "net_lib_db/complib/cl_plock_bytes.h"

namespace ybnetctl {

lock_words lock_words_of(const net_lib_db_trailer_t &trailer) {
    constexpr unsigned write_locked = 2; // PTHREAD_RWLOCK_WRLOCKED in __readers
    constexpr unsigned futex_used = 2;   // PTHREAD_RWLOCK_FUTEX_USED in __writers_futex
    pthread_rwlock_t lock;
    static_assert(sizeof(lock) == sizeof(trailer.plock.rwlock));
    std::memcpy(&lock, trailer.plock.rwlock, sizeof(lock));
    return {.held = (lock.__data.__readers & write_locked) != 0,
            .writer = static_cast<uint32_t>(lock.__data.__cur_writer),
            .announced = cl_plock_bytes::id_of(lock.__data.__writers),
            .slept_on = (lock.__data.__writers_futex & futex_used) != 0,
            .state = trailer.plock.state};
}

std::optional<bool> is_announced(int descriptor, uint32_t thread) {
    struct flock range {};
    range.l_type = F_WRLCK; // would conflict with every announcement
    range.l_whence = SEEK_SET;
    range.l_start = cl_plock_bytes::first_byte_of_id(thread);
    range.l_len = cl_plock_bytes::bytes_of_one_id; // a byte for each namespace
    if (fcntl(descriptor, F_OFD_GETLK, &range) != 0)
        return std::nullopt;
    return range.l_type != F_UNLCK;
}

} // namespace ybnetctl
