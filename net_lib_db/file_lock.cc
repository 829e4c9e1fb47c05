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

void file_unlock(int descriptor) {
    (void)flock(descriptor, LOCK_UN); // as above
}
