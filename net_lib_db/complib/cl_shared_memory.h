// SPDX-License-Identifier: Apache-2.0
//
// Opening, creating and removing a named POSIX shared-memory object
// (shm_open(3)). Each returns 0, or 1 with errno as the system call left it; a
// NULL argument is reported (cl_assert.h) and fails with EINVAL.
#ifndef YBNET_COMPLIB_CL_SHARED_MEMORY_H
#define YBNET_COMPLIB_CL_SHARED_MEMORY_H

// Descriptors are close-on-exec: shm_open(3) sets FD_CLOEXEC itself.
int cl_shm_create(const char *name, int *out_descriptor);
int cl_shm_open(const char *name, int *out_descriptor);
int cl_shm_destroy(const char *name);

#endif
