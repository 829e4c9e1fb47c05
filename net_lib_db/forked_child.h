// SPDX-License-Identifier: Apache-2.0
//
// What becomes of the segments in the child of a fork(2). The child is a process
// of its own: it must not pass for its parent where others look for the holder of
// a lock, nor keep alive what its parent has announced (complib/cl_plock_owner.h).
#ifndef YBNET_NET_LIB_DB_FORKED_CHILD_H
#define YBNET_NET_LIB_DB_FORKED_CHILD_H

// True when the handler that runs in children is in place; puts it there when it is not yet.
bool forked_children_are_seen();

#endif
