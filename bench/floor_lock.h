// SPDX-License-Identifier: Apache-2.0
//
// A second mapping of a segment that the library has loaded, and its lock as a
// program without the library takes it. Floors work on these: the same memory,
// so that neither side is luckier with caches.
#ifndef YBNET_BENCH_FLOOR_LOCK_H
#define YBNET_BENCH_FLOOR_LOCK_H

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include "ybnet/net_lib_db_layout.h"

template <typename segment_t> segment_t &map_segment_again(const char *name) {
    const int descriptor = shm_open(name, O_RDWR, 0);
    void *const memory =
        descriptor < 0 ? MAP_FAILED
                       : mmap(nullptr, sizeof(segment_t), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (memory == MAP_FAILED) {
        perror(name);
        abort();
    }
    close(descriptor);
    return *static_cast<segment_t *>(memory);
}

class floor_lock {
  public:
    explicit floor_lock(cl_plock_t &plock) : lock_(reinterpret_cast<pthread_rwlock_t *>(plock.rwlock)) {
        pthread_rwlock_wrlock(lock_);
    }
    ~floor_lock() {
        pthread_rwlock_unlock(lock_);
    }
    floor_lock(const floor_lock &) = delete;
    floor_lock &operator=(const floor_lock &) = delete;

  private:
    pthread_rwlock_t *lock_;
};

#endif
