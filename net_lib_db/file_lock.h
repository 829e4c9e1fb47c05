// SPDX-License-Identifier: Apache-2.0
//
// The lock on a segment's file, beside the lock inside the segment: loads,
// unloads and creations of one segment exclude each other by it, so that nobody
// registers in a segment that is being removed. Held by the open file, so it
// ends with the process (flock(2)).
#ifndef YBNET_NET_LIB_DB_FILE_LOCK_H
#define YBNET_NET_LIB_DB_FILE_LOCK_H

void file_lock(int descriptor);
void file_unlock(int descriptor);

#endif
