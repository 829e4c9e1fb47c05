// SPDX-License-Identifier: Apache-2.0
//
// The process-shared lock in each segment's trailer: a pthread read/write lock
// that is only ever taken exclusively, with a state word beside it. A failed
// precondition or lock call is reported (cl_assert.h) and the caller goes on.
#ifndef YBNET_COMPLIB_CL_PASSIVELOCK_H
#define YBNET_COMPLIB_CL_PASSIVELOCK_H

#include "ybnet/net_lib_db_layout.h"

// Initialises the lock in shared memory. 0, or 1 when one of the pthread calls fails.
int cl_plock_init_pshared(cl_plock_t *plock);

void cl_plock_excl_acquire(cl_plock_t *plock);
void cl_plock_release(cl_plock_t *plock);
void cl_plock_destroy(cl_plock_t *plock);

#endif
