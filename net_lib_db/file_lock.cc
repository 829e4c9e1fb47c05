// SPDX-License-Identifier: Apache-2.0
//
// See file_lock.h.
#include "net_lib_db/file_lock.h"

#include <cerrno>
#include <sys/file.h>

// Fails otherwise only on a descriptor that the process itself has closed: an unload goes on without then,
// for refusing it would leave a registration behind.
void file_lock(int descriptor) {
    while (flock(descriptor, LOCK_EX) != 0 && errno == EINTR)
        continue;
}

// A lock that stays blocks every other load and unload while this process lives. Kernels that allocate memory for a
// release may lack it for a moment.
void file_unlock(int descriptor) {
    constexpr int tries = 10;
    for (int i = 0; i < tries; i++) {
        if (flock(descriptor, LOCK_UN) == 0 || errno == EBADF) // as above: then there is no lock either
            return;
    }
}
