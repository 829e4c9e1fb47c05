// SPDX-License-Identifier: Apache-2.0
//
// The process-shared lock in each segment's trailer: a pthread read/write lock
// that is only ever taken exclusively (pthread_rwlock_wrlock(3p) with
// PTHREAD_PROCESS_SHARED), with a state word beside it. A failed precondition or
// lock call is reported (cl_assert.h) and the caller goes on; what a NULL lock
// makes impossible is stepped over.
#ifndef YBNET_COMPLIB_CL_PASSIVELOCK_H
#define YBNET_COMPLIB_CL_PASSIVELOCK_H

#include <pthread.h>

#include "net_lib_db/complib/cl_assert.h"
#include "ybnet/net_lib_db_layout.h"

static_assert(sizeof(pthread_rwlock_t) == sizeof(cl_plock_t::rwlock),
              "the segment format holds glibc's lock");
static_assert(alignof(pthread_rwlock_t) <= alignof(cl_plock_t));

#define CL_PLOCK_ASSERT(condition) CL_ASSERT(condition, "complib/cl_passivelock")

inline pthread_rwlock_t *cl_plock_rwlock(cl_plock_t *plock) {
    return reinterpret_cast<pthread_rwlock_t *>(plock->rwlock);
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

inline void cl_plock_excl_acquire(cl_plock_t *plock) {
    if (!CL_PLOCK_ASSERT(plock != nullptr))
        return;
    (void)CL_PLOCK_ASSERT(plock->state == CL_PLOCK_INITIALIZED);
    const int failed = pthread_rwlock_wrlock(cl_plock_rwlock(plock));
    (void)CL_PLOCK_ASSERT(failed == 0);
}

inline void cl_plock_release(cl_plock_t *plock) {
    if (!CL_PLOCK_ASSERT(plock != nullptr))
        return;
    (void)CL_PLOCK_ASSERT(plock->state == CL_PLOCK_INITIALIZED);
    const int failed = pthread_rwlock_unlock(cl_plock_rwlock(plock));
    (void)CL_PLOCK_ASSERT(failed == 0);
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
