// SPDX-License-Identifier: Apache-2.0
//
// See cl_passivelock.h. Rests on pthread_rwlock_wrlock(3p) with
// PTHREAD_PROCESS_SHARED.
#include "net_lib_db/complib/cl_passivelock.h"

#include <pthread.h>

#include "net_lib_db/complib/cl_assert.h"

#define CL_PLOCK_ASSERT(condition) CL_ASSERT(condition, "complib/cl_passivelock")

static_assert(sizeof(pthread_rwlock_t) == sizeof(cl_plock_t::rwlock),
              "the segment format holds glibc's lock");
static_assert(alignof(pthread_rwlock_t) <= alignof(cl_plock_t));

namespace {

pthread_rwlock_t *rwlock_of(cl_plock_t *plock) {
    return reinterpret_cast<pthread_rwlock_t *>(plock->rwlock);
}

} // namespace

int cl_plock_init_pshared(cl_plock_t *plock) {
    if (!CL_PLOCK_ASSERT(plock != nullptr))
        return 1;
    pthread_rwlockattr_t attribute{};
    int failed = pthread_rwlockattr_init(&attribute);
    if (failed == 0)
        failed = pthread_rwlockattr_setpshared(&attribute, PTHREAD_PROCESS_SHARED);
    if (failed == 0)
        failed = pthread_rwlock_init(rwlock_of(plock), &attribute);
    (void)pthread_rwlockattr_destroy(&attribute);
    if (failed != 0)
        return 1;
    plock->state = CL_PLOCK_INITIALIZED;
    return 0;
}

void cl_plock_excl_acquire(cl_plock_t *plock) {
    if (!CL_PLOCK_ASSERT(plock != nullptr))
        return;
    (void)CL_PLOCK_ASSERT(plock->state == CL_PLOCK_INITIALIZED);
    const int failed = pthread_rwlock_wrlock(rwlock_of(plock));
    (void)CL_PLOCK_ASSERT(failed == 0);
}

void cl_plock_release(cl_plock_t *plock) {
    if (!CL_PLOCK_ASSERT(plock != nullptr))
        return;
    (void)CL_PLOCK_ASSERT(plock->state == CL_PLOCK_INITIALIZED);
    const int failed = pthread_rwlock_unlock(rwlock_of(plock));
    (void)CL_PLOCK_ASSERT(failed == 0);
}

void cl_plock_destroy(cl_plock_t *plock) {
    if (!CL_PLOCK_ASSERT(plock != nullptr))
        return;
    plock->state = CL_PLOCK_DESTROYING;
    const int failed = pthread_rwlock_destroy(rwlock_of(plock));
    (void)CL_PLOCK_ASSERT(failed == 0);
    plock->state = CL_PLOCK_DESTROYED;
}
