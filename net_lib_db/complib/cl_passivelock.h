// SPDX-License-Identifier: Apache-2.0
//
// The process-shared lock in each segment's trailer: glibc's pthread_rwlock_t, only ever taken exclusively,
// with a state word beside it. A failed precondition or lock call is reported (cl_assert.h) and the caller goes
// on; what a NULL lock makes impossible is stepped over. Waiting, and taking over what a dead holder left, are
// cl_passivelock.cc's; who is dead is cl_plock_owner.h's to say.
//
// How the holder is recorded. A holder that is killed must be known at every instant, and glibc records it
// (__cur_writer) some instructions after a lock is taken and until some before it is free. So the lock is taken
// and given back by one 8-byte compare-and-exchange each, of glibc's flags in __readers together with the
// holder in __writers, the word behind it: its thread id and some bits of its PID namespace (cl_plock_bytes.h).
// glibc's own calls use __writers only in locks that prefer writers, which this one is not (__flags 0). All else
// is done as pthread_rwlock_trywrlock(3p) and pthread_rwlock_unlock(3p) do it, word for word. Other builds that
// use pthread calls only see, and leave, a lock like any other.
//
//   __readers  __writers
//   free       0          nobody has it
//   locked     T          the owner T has it
//   locked     0          another build has it; __cur_writer records it but for its first and last instructions
#ifndef YBNET_COMPLIB_CL_PASSIVELOCK_H
#define YBNET_COMPLIB_CL_PASSIVELOCK_H

#include <cstddef>
#include <cstdint>
#include <pthread.h>

#include "net_lib_db/complib/cl_assert.h"
#include "net_lib_db/complib/cl_plock_owner.h"
#include "ybnet/net_lib_db_layout.h"

static_assert(sizeof(pthread_rwlock_t) == sizeof(cl_plock_t::rwlock),
              "the segment format holds glibc's lock");
static_assert(alignof(pthread_rwlock_t) <= alignof(cl_plock_t));

#define CL_PLOCK_ASSERT(condition) CL_ASSERT(condition, "complib/cl_passivelock")

inline pthread_rwlock_t *cl_plock_rwlock(cl_plock_t *plock) {
    return reinterpret_cast<pthread_rwlock_t *>(plock->rwlock);
}

// ---- glibc's words ----------------------------------------------------------

// Fixed by the same ABI that fixes the 56 bytes: processes with different versions of glibc share them.
using cl_plock_word [[gnu::may_alias]] = uint32_t;
using cl_plock_pair [[gnu::may_alias]] = uint64_t; // __readers, and above it __writers

#define CL_PLOCK_WORD(plock, member)                                                                         \
    (reinterpret_cast<cl_plock_word *>(reinterpret_cast<char *>((plock)->rwlock) +                           \
                                       offsetof(pthread_rwlock_t, __data.member)))
static_assert(offsetof(pthread_rwlock_t, __data.__readers) == 0);
static_assert(offsetof(pthread_rwlock_t, __data.__writers) == 4);

enum : uint32_t {
    // In __readers. The count of readers is above these.
    CL_PLOCK_WRITE_PHASE = 1,
    CL_PLOCK_WRITE_LOCKED = 2,
    CL_PLOCK_READERS_WAIT = 4,
    CL_PLOCK_FLAGS = 7,
    // In __writers_futex and __wrphase_futex.
    CL_PLOCK_FUTEX_ON = 1,
    CL_PLOCK_FUTEX_USED = 2 // somebody sleeps on it
};
constexpr int CL_PLOCK_OWNER_SHIFT = 32; // of __writers, in the pair

inline cl_plock_pair *cl_plock_words(cl_plock_t *plock) {
    return reinterpret_cast<cl_plock_pair *>(plock->rwlock);
}

// ---- Taking and releasing ---------------------------------------------------

constexpr uint32_t CL_PLOCK_NOWHERE = UINT32_MAX;

// One thread's side of one lock. Thread-local, so it tells for sure whether the calling thread holds the lock: an
// equal id in the lock may be another namespace's.
struct cl_plock_user {
    uint32_t id = 0; // the thread's, as glibc records it
    // What tells others whose it is, and whether that is alive (cl_plock_owner.h); 0 nothing.
    uint32_t owner = 0;
    uint32_t announced_on = CL_PLOCK_NOWHERE; // the caller's: which file it is announced on
    uint32_t turns = 0;                       // how often it took or released the lock: odd while it holds it
};

inline bool cl_plock_holds(const cl_plock_user &own) {
    return (own.turns & 1) != 0;
}

// Initialises the lock in shared memory. 0, or 1 when one of the pthread calls fails.
inline int cl_plock_init_pshared(cl_plock_t *plock) {
    if (!CL_PLOCK_ASSERT(plock != nullptr))
        return 1;
    pthread_rwlockattr_t attribute{};
    int failed = pthread_rwlockattr_init(&attribute);
    if (failed == 0)
        failed = pthread_rwlockattr_setpshared(&attribute, PTHREAD_PROCESS_SHARED);
    if (failed == 0)
        failed = pthread_rwlock_init(cl_plock_rwlock(plock), &attribute);
    (void)pthread_rwlockattr_destroy(&attribute);
    if (failed != 0)
        return 1;
    plock->state = CL_PLOCK_INITIALIZED;
    return 0;
}

// What comes after the compare-and-exchange that has taken the lock.
inline void cl_plock_record(cl_plock_t *plock, cl_plock_user &own, bool starts_write_phase) {
    __atomic_store_n(CL_PLOCK_WORD(plock, __writers_futex), CL_PLOCK_FUTEX_ON, __ATOMIC_RELAXED);
    if (starts_write_phase)
        __atomic_store_n(CL_PLOCK_WORD(plock, __wrphase_futex), CL_PLOCK_FUTEX_ON, __ATOMIC_RELAXED);
    __atomic_store_n(CL_PLOCK_WORD(plock, __cur_writer), own.id, __ATOMIC_RELAXED);
    own.turns++;
}

// False when it is not free. seen: what the pair may hold.
inline bool cl_plock_try(cl_plock_t *plock, cl_plock_user &own, uint64_t seen) {
    const uint64_t taken =
        uint64_t{own.owner} << CL_PLOCK_OWNER_SHIFT | CL_PLOCK_WRITE_PHASE | CL_PLOCK_WRITE_LOCKED;
    do {
        if ((seen & ~uint64_t{CL_PLOCK_WRITE_PHASE | CL_PLOCK_READERS_WAIT}) != 0)
            return false;
    } while (!__atomic_compare_exchange_n(cl_plock_words(plock), &seen, seen | taken, false, __ATOMIC_ACQUIRE,
                                          __ATOMIC_RELAXED));
    cl_plock_record(plock, own, (seen & CL_PLOCK_WRITE_PHASE) == 0);
    return true;
}

// Waits for a lock that was not free. The dead owner that it was taken over from (cl_plock_bytes.h), else 0.
uint32_t cl_plock_wait(cl_plock_t *plock, cl_plock_user &own, const cl_plock_place &place);

// Takes the lock. Not 0 when it is taken over: the owner that died with it; what it was working on may be half
// done.
inline uint32_t cl_plock_excl_acquire(cl_plock_t *plock, cl_plock_user &own, const cl_plock_place &place) {
    if (!CL_PLOCK_ASSERT(plock != nullptr))
        return 0;
    (void)CL_PLOCK_ASSERT(plock->state == CL_PLOCK_INITIALIZED);
    // Not looked at first: it is free more often than not.
    if (__builtin_expect(cl_plock_try(plock, own, CL_PLOCK_WRITE_PHASE), true))
        return 0;
    // Not waited for: it is this thread's own.
    if (!CL_PLOCK_ASSERT(!cl_plock_holds(own)))
        return 0;
    return cl_plock_wait(plock, own, place);
}

// Wakes those who slept until the lock was released.
void cl_plock_wake(cl_plock_t *plock, bool readers, bool a_writer);

// What the calling thread does not hold is reported and left alone.
inline void cl_plock_release(cl_plock_t *plock, cl_plock_user &own) {
    if (!CL_PLOCK_ASSERT(plock != nullptr))
        return;
    (void)CL_PLOCK_ASSERT(plock->state == CL_PLOCK_INITIALIZED);
    if (!CL_PLOCK_ASSERT(cl_plock_holds(own)))
        return;
    own.turns++;
    __atomic_store_n(CL_PLOCK_WORD(plock, __cur_writer), 0U, __ATOMIC_RELAXED);
    const bool a_writer_sleeps =
        (__atomic_exchange_n(CL_PLOCK_WORD(plock, __writers_futex), 0U, __ATOMIC_RELAXED) &
         CL_PLOCK_FUTEX_USED) != 0;
    uint64_t seen =
        uint64_t{own.owner} << CL_PLOCK_OWNER_SHIFT | CL_PLOCK_WRITE_PHASE | CL_PLOCK_WRITE_LOCKED;
    uint32_t readers;
    uint32_t freed;
    do {
        readers = static_cast<uint32_t>(seen);
        freed = readers & ~uint32_t{CL_PLOCK_WRITE_LOCKED};
        if ((readers & ~uint32_t{CL_PLOCK_FLAGS}) != 0) // another build's: the phase becomes theirs
            freed &= ~uint32_t{CL_PLOCK_WRITE_PHASE};
    } while (!__atomic_compare_exchange_n(cl_plock_words(plock), &seen, uint64_t{freed}, false,
                                          __ATOMIC_RELEASE, __ATOMIC_RELAXED));
    const bool readers_wait = (readers & ~uint32_t{CL_PLOCK_FLAGS}) != 0;
    if (__builtin_expect(a_writer_sleeps || readers_wait, false))
        cl_plock_wake(plock, readers_wait, a_writer_sleeps);
}

inline void cl_plock_destroy(cl_plock_t *plock) {
    if (!CL_PLOCK_ASSERT(plock != nullptr))
        return;
    plock->state = CL_PLOCK_DESTROYING;
    const int failed = pthread_rwlock_destroy(cl_plock_rwlock(plock));
    (void)CL_PLOCK_ASSERT(failed == 0);
    plock->state = CL_PLOCK_DESTROYED;
}

#endif
