// SPDX-License-Identifier: Apache-2.0
//
// See floors.h.
#include "bench/floors.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr const char *floor_name = "/ybnet_bench_floor";
constexpr size_t segment_size = sizeof(net_lib_db_interfaces_segment_t);

[[noreturn]] void give_up(const char *step) {
    perror(step);
    abort();
}

pthread_rwlock_t *lock_of(net_lib_db_interfaces_segment_t *body) {
    return reinterpret_cast<pthread_rwlock_t *>(body->trailer.plock.rwlock);
}

net_lib_db_interfaces_segment_t *make_segment() {
    const int descriptor = shm_open(floor_name, O_RDWR | O_CREAT | O_EXCL, 0600);
    if (descriptor < 0 || ftruncate(descriptor, segment_size) != 0 ||
        posix_fallocate(descriptor, 0, segment_size) != 0)
        give_up("floor segment");
    void *const memory = mmap(nullptr, segment_size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (memory == MAP_FAILED)
        give_up("floor segment");
    // The descriptor stays open, as the library's do: what a load costs includes the pages kept by it.
    auto *const body = static_cast<net_lib_db_interfaces_segment_t *>(memory);
    pthread_rwlockattr_t attribute;
    pthread_rwlockattr_init(&attribute);
    pthread_rwlockattr_setpshared(&attribute, PTHREAD_PROCESS_SHARED);
    pthread_rwlock_init(lock_of(body), &attribute);
    pthread_rwlockattr_destroy(&attribute);
    memset(body->entries, 0, sizeof(body->entries));
    for (net_lib_db_interface_entry_t &entry : body->entries) {
        entry.record.rif = YB_NET_RIF_NONE;
        entry.record.vrid = YB_NET_VRID_NONE;
    }
    return body;
}

} // namespace

floor_segment::floor_segment() : body_(make_segment()) {
    shm_unlink(floor_name);
}

floor_segment::~floor_segment() {
    munmap(body_, segment_size);
}

void floor_segment::lock() {
    pthread_rwlock_wrlock(lock_of(body_));
}

void floor_segment::unlock() {
    pthread_rwlock_unlock(lock_of(body_));
}

void floor_segment::flush() {
    msync(body_, segment_size, MS_SYNC);
}

bool floor_get(floor_segment &segment, uint32_t sys_ifindex, yb_net_interface_record_t *out) {
    bool found = false;
    segment.lock();
    for (const net_lib_db_interface_entry_t &entry : segment.body().entries) {
        if (entry.record.sys_ifindex == sys_ifindex && entry.in_use != 0) {
            *out = entry.record;
            found = true;
            break;
        }
    }
    segment.unlock();
    return found;
}

bool floor_get_by_netdev(floor_segment &segment, uint32_t linux_ifindex, const char *ns,
                         yb_net_interface_record_t *out) {
    bool found = false;
    segment.lock();
    for (const net_lib_db_interface_entry_t &entry : segment.body().entries) {
        if (entry.record.linux_ifindex == linux_ifindex && entry.in_use != 0 &&
            strcmp(entry.record.params.ns_name, ns) == 0) {
            *out = entry.record;
            found = true;
            break;
        }
    }
    segment.unlock();
    return found;
}

void floor_add_and_remove(floor_segment &segment, const net_lib_db_interface_entry_t &added) {
    segment.lock();
    net_lib_db_interface_entry_t *place = nullptr;
    for (net_lib_db_interface_entry_t &entry : segment.body().entries) {
        if (entry.in_use == 0) {
            if (place == nullptr)
                place = &entry;
        } else if (entry.record.sys_ifindex == added.record.sys_ifindex ||
                   entry.record.linux_ifindex == added.record.linux_ifindex) {
            abort(); // the benchmark adds what is not there
        }
    }
    *place = added;
    segment.flush();
    segment.unlock();

    segment.lock();
    for (net_lib_db_interface_entry_t &entry : segment.body().entries) {
        if (entry.record.sys_ifindex == added.record.sys_ifindex && entry.in_use != 0) {
            entry = {};
            break;
        }
    }
    segment.unlock();
}

void floor_load_and_unload() {
    net_lib_db_interfaces_segment_t *const body = make_segment();
    msync(body, segment_size, MS_SYNC); // after the contents
    msync(body, segment_size, MS_SYNC); // after the registration
    msync(body, segment_size, MS_SYNC); // after the deregistration
    munmap(body, segment_size);
    shm_unlink(floor_name);
}
