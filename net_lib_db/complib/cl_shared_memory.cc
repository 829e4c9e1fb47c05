// SPDX-License-Identifier: Apache-2.0
//
// See cl_shared_memory.h.
#include "net_lib_db/complib/cl_shared_memory.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>

#include "net_lib_db/complib/cl_assert.h"

#define CL_SHM_ASSERT(condition) CL_ASSERT(condition, "complib/cl_shared_memory")

namespace {

constexpr mode_t everybody_reads_and_writes = 0666; // less the process's umask

int refuse_null() {
    errno = EINVAL;
    return 1;
}

} // namespace

int cl_shm_create(const char *name, int *out_descriptor) {
    if (!CL_SHM_ASSERT(name != nullptr && out_descriptor != nullptr))
        return refuse_null();
    *out_descriptor = shm_open(name, O_RDWR | O_CREAT | O_EXCL, everybody_reads_and_writes);
    return *out_descriptor < 0 ? 1 : 0;
}

int cl_shm_open(const char *name, int *out_descriptor) {
    if (!CL_SHM_ASSERT(name != nullptr && out_descriptor != nullptr))
        return refuse_null();
    *out_descriptor = shm_open(name, O_RDWR, everybody_reads_and_writes);
    return *out_descriptor < 0 ? 1 : 0;
}

int cl_shm_destroy(const char *name) {
    if (!CL_SHM_ASSERT(name != nullptr))
        return refuse_null();
    return shm_unlink(name) == 0 ? 0 : 1;
}
