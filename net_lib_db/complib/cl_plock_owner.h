// SPDX-License-Identifier: Apache-2.0
//
// Who may be behind a thread id that a process-shared lock records, and whether
// it is provably dead. cl_passivelock.cc asks before it takes a lock over.
//
// An id means something in its own PID namespace only (pid_namespaces(7)). So each
// thread announces itself to all of them before it takes a lock for the first
// time: it read-locks one byte, far beyond the end of the segment's file, that
// stands for its id and its namespace. The lock belongs to the open file
// description (F_OFD_SETLK, fcntl(2)), so the kernel drops it when the process
// ends, however it ends, and shows it to every namespace. With its id the lock
// records some bits of the namespace: an owner (cl_plock_bytes.h).
//
// An announced thread of the owner T is dead when
//  - the caller gets a write lock on the bytes of T in all other namespaces that it
//    may be of; and
//  - it cannot be of the caller's own, or the caller gets one on its byte there, too,
//    or the namespace has no such thread but a zombie. (A thread that ended in a
//    process that lives leaves its byte locked.)
// As long as the caller keeps these locks, no other thread of the owner T can
// announce itself, and nobody else holds the same inquest.
// A thread of another build announces nothing: its id alone is known, which must be
// announced in no namespace and unknown in the caller's; such builds must share one.
// A thread of this build that cannot announce itself says so, and is never judged.
//
// No heap, no libstdc++; everything works without /proc too, if more cautiously: a
// zombie is not known from a living thread then.
#ifndef YBNET_COMPLIB_CL_PLOCK_OWNER_H
#define YBNET_COMPLIB_CL_PLOCK_OWNER_H

#include <cstdint>
#include <sys/types.h>

#include "net_lib_db/complib/cl_plock_bytes.h"

// An open file description for inquests, got while the file could be opened: a process that has dropped its
// privileges, or left /proc behind, cannot open it once more.
struct cl_plock_spare {
    int descriptor = -1; // none
    uint32_t in_use = 0; // one inquest at a time: locks of one description do not exclude each other
};

// Where a lock lies; descriptor -1 for a lock in no file, which is never taken over.
struct cl_plock_place {
    const char *name = nullptr;
    int descriptor = -1;
    // The file that the descriptor has to be of.
    dev_t device = 0;
    ino_t inode = 0;
    cl_plock_spare *spare = nullptr;
};

// Announces the calling thread, whose id this is, on the descriptor of the lock's file. Waits for a moment while
// somebody holds an inquest on it. The owner to be recorded; one that is never judged when the kernel refuses, or
// somebody keeps the byte.
uint32_t cl_plock_announce(int descriptor, uint32_t id);

// Whether an owner is announced, and can be judged.
inline bool cl_plock_is_announced(uint32_t owner) {
    return owner < cl_plock_bytes::unannounced;
}

// Whether the thread is of another PID namespace than the caller.
bool cl_plock_is_elsewhere(uint32_t owner);

// The owner that a thread of the caller's namespace with this id is.
uint32_t cl_plock_namesake_here(uint32_t id);

// Takes one thread's announcement back.
void cl_plock_withdraw(int descriptor, uint32_t id);

// Takes all announcements back that were made on the descriptor.
void cl_plock_withdraw_all(int descriptor);

// To be called in the child of a fork(2): its namespace may be another. Async-signal-safe.
void cl_plock_owner_forked();

// A look at the announcements through an open file description of its own: locks of the description that asks
// are invisible to it.
struct cl_plock_inquest {
    int descriptor;
    cl_plock_spare *spare; // that the description is of, if it is one
};

// False when the file cannot be opened once more and the spare is missing or in use: nothing can be proved now.
bool cl_plock_inquest_open(cl_plock_inquest *inquest, const cl_plock_place &place);

// A description of the file for later inquests; -1 when there is none to be had, errno says why.
int cl_plock_open_again(const cl_plock_place &place);

// Whether a descriptor is still of the place's file: a process may have closed it, and the number be something else's.
// Announcements and inquests on another file would prove the living dead. Async-signal-safe.
bool cl_plock_is_file(int descriptor, const cl_plock_place &place);

// True when every thread that may be this owner is dead; it stays so until the inquest is closed. is_own: it is the
// caller's, which does not hold the lock.
bool cl_plock_owner_is_dead(const cl_plock_inquest &inquest, uint32_t owner, bool is_own);

// The same of a thread of another build, of which the id is all that is known.
bool cl_plock_stranger_is_dead(const cl_plock_inquest &inquest, uint32_t id, bool is_own);

void cl_plock_inquest_close(cl_plock_inquest *inquest);

#endif
