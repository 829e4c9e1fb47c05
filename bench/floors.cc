// SPDX-License-Identifier: Apache-2.0
//
// See floors.h.
#include "bench/floors.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <immintrin.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include "bench/floor_lock.h"

namespace {

constexpr size_t segment_size = sizeof(net_lib_db_interfaces_segment_t);

net_lib_db_interfaces_segment_t &segment() {
    static auto &mapped = map_segment_again<net_lib_db_interfaces_segment_t>(YB_NET_INTERFACES_SEGMENT_NAME);
    return mapped;
}

[[noreturn]] void give_up(const char *step) {
    perror(step);
    abort();
}

net_lib_db_interfaces_segment_t *make_segment(const char *name) {
    const int descriptor = shm_open(name, O_RDWR | O_CREAT | O_EXCL, 0600);
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
    pthread_rwlock_init(reinterpret_cast<pthread_rwlock_t *>(body->trailer.plock.rwlock), &attribute);
    pthread_rwlockattr_destroy(&attribute);
    memset(body->entries, 0, sizeof(body->entries));
    for (net_lib_db_interface_entry_t &entry : body->entries) {
        entry.record.rif = YB_NET_RIF_NONE;
        entry.record.vrid = YB_NET_VRID_NONE;
    }
    return body;
}

} // namespace

bool floor_get(uint32_t sys_ifindex, yb_net_interface_record_t *out) {
    const floor_lock held(segment().trailer.plock);
    for (const net_lib_db_interface_entry_t &entry : segment().entries) {
        if (entry.record.sys_ifindex == sys_ifindex && entry.in_use != 0) {
            *out = entry.record;
            return true;
        }
    }
    return false;
}

bool floor_get_by_netdev(uint32_t linux_ifindex, const char *ns, yb_net_interface_record_t *out) {
    const floor_lock held(segment().trailer.plock);
    for (const net_lib_db_interface_entry_t &entry : segment().entries) {
        if (entry.record.linux_ifindex == linux_ifindex && entry.in_use != 0 &&
            strcmp(entry.record.params.ns_name, ns) == 0) {
            *out = entry.record;
            return true;
        }
    }
    return false;
}

bool has_vectors() {
    return __builtin_cpu_supports("avx2") != 0;
}

__attribute__((target("avx2"))) bool vector_get(uint32_t sys_ifindex, yb_net_interface_record_t *out) {
    constexpr int stride = sizeof(net_lib_db_interface_entry_t) / sizeof(int);
    constexpr int lanes = 8;
    static_assert(sizeof(net_lib_db_interface_entry_t) % sizeof(int) == 0);
    static_assert(YB_NET_INTERFACES_MAX % lanes == 0);
    const floor_lock held(segment().trailer.plock);
    const net_lib_db_interface_entry_t *const table = segment().entries;
    const __m256i key = _mm256_set1_epi32(static_cast<int>(sys_ifindex));
    const __m256i places =
        _mm256_mullo_epi32(_mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7), _mm256_set1_epi32(stride));
    for (int i = 0; i < YB_NET_INTERFACES_MAX; i += lanes) {
        const __m256i keys =
            _mm256_i32gather_epi32(reinterpret_cast<const int *>(&table[i]), places, sizeof(int));
        if (_mm256_movemask_epi8(_mm256_cmpeq_epi32(keys, key)) == 0)
            continue;
        for (int lane = 0; lane < lanes; lane++) {
            if (table[i + lane].record.sys_ifindex == sys_ifindex && table[i + lane].in_use != 0) {
                *out = table[i + lane].record;
                return true;
            }
        }
    }
    return false;
}

void floor_add_and_remove(const net_lib_db_interface_entry_t &added) {
    {
        const floor_lock held(segment().trailer.plock);
        net_lib_db_interface_entry_t *place = nullptr;
        for (net_lib_db_interface_entry_t &entry : segment().entries) {
            if (entry.in_use == 0) {
                if (place == nullptr)
                    place = &entry;
            } else if (entry.record.sys_ifindex == added.record.sys_ifindex ||
                       entry.record.linux_ifindex == added.record.linux_ifindex) {
                abort(); // the benchmark adds what is not there
            }
        }
        *place = added;
        msync(&segment(), segment_size, MS_SYNC);
    }
    const floor_lock held(segment().trailer.plock);
    for (net_lib_db_interface_entry_t &entry : segment().entries) {
        if (entry.record.sys_ifindex == added.record.sys_ifindex && entry.in_use != 0) {
            entry = {};
            break;
        }
    }
}

void floor_load_and_unload() {
    constexpr const char *name = "/ybnet_bench_floor";
    net_lib_db_interfaces_segment_t *const body = make_segment(name);
    msync(body, segment_size, MS_SYNC); // after the contents
    msync(body, segment_size, MS_SYNC); // after the registration
    msync(body, segment_size, MS_SYNC); // after the deregistration
    munmap(body, segment_size);
    shm_unlink(name);
}
