// SPDX-License-Identifier: Apache-2.0
//
// What becomes of the segments in a child process. It is a process of its own: it
// must not pass for its parent where others look for the holder of a lock, nor keep
// alive what its parent has announced (complib/cl_plock_owner.h).
//
// A child of fork(2) becomes one at once, by a handler of pthread_atfork(3p). One made
// by _Fork(3) or clone(2), which run no handlers, does the first time that it loads,
// unloads or uses a lock: it finds segment_this_process (segment.h) wiped. Until then
// its parent looks alive in other PID namespaces.
// Kernels before 4.14 cannot wipe memory: there such children are not seen.
#ifndef YBNET_NET_LIB_DB_FORKED_CHILD_H
#define YBNET_NET_LIB_DB_FORKED_CHILD_H

#include <cstdint>

// Makes this a process of its own, if it is not yet. Which one it is, counted from its first ancestor that used the
// library.
uint32_t process_number();

// True when children are, in one of the two ways.
bool forked_children_are_seen();

#endif
