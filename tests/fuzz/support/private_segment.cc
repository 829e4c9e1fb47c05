// SPDX-License-Identifier: Apache-2.0
//
// See private_segment.h. Rests on memfd_create(2) and on MADV_DONTNEED of a private mapping (madvise(2)),
// after which its pages are the file's again.
#include "tests/fuzz/support/private_segment.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sanitizer/asan_interface.h>
#include <sys/mman.h>

#include "tests/fuzz/support/check.h"

extern "C" int __wrap_shm_open(const char *name, int flags, mode_t) {
    if ((flags & O_CREAT) == 0) {
        errno = ENOENT;
        return -1;
    }
    return memfd_create(name + 1, MFD_CLOEXEC);
}

extern "C" int __wrap_shm_unlink(const char *) {
    return 0;
}

namespace fuzz {

namespace {

constexpr size_t page = 4096;
constexpr size_t guard = 16 * page;

} // namespace

private_segment::private_segment(segment &seg, yb_status_t (*load)(uint32_t), void (*fill)())
    : segment_(seg) {
    FUZZ_CHECK(load(0) == YB_STATUS_SUCCESS);
    fill();

    const size_t size = seg.description.size;
    const size_t mapped = (size + page - 1) / page * page;
    auto *const around = static_cast<std::byte *>(
        mmap(nullptr, mapped + 2 * guard, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    FUZZ_CHECK(around != MAP_FAILED);
    void *const body = mmap(around + guard, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED,
                            seg.place.descriptor, 0);
    FUZZ_CHECK(body == around + guard);
    ASAN_POISON_MEMORY_REGION(around + guard + size, mapped - size);
    FUZZ_CHECK(munmap(seg.body, size) == 0);
    seg.body = body;
    seg.reference = body;
}

void private_segment::restore() {
    FUZZ_CHECK(madvise(segment_.body, segment_.description.size, MADV_DONTNEED) == 0);
}

void private_segment::note_trailer() {
    noted_ = segment_trailer(segment_);
}

void private_segment::check_trailer() const {
    const net_lib_db_trailer_t &trailer = segment_trailer(segment_);
    pthread_rwlock_t lock;
    memcpy(&lock, trailer.plock.rwlock, sizeof(lock));
    FUZZ_CHECK((lock.__data.__readers & CL_PLOCK_WRITE_LOCKED) == 0);
    FUZZ_CHECK(lock.__data.__writers == 0 && lock.__data.__cur_writer == 0);
    constexpr size_t rest = offsetof(net_lib_db_trailer_t, plock.state);
    FUZZ_CHECK(memcmp(reinterpret_cast<const std::byte *>(&trailer) + rest,
                      reinterpret_cast<const std::byte *>(&noted_) + rest, sizeof(trailer) - rest) == 0);
}

std::byte *private_segment::behind_lock() const {
    return reinterpret_cast<std::byte *>(&segment_trailer(segment_)) +
           offsetof(net_lib_db_trailer_t, initialized_marker);
}

} // namespace fuzz
