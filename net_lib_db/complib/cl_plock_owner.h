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
// ends, however it ends, and shows it to every namespace.
//
// An announced thread with the id T is dead when
//  - the caller gets a write lock on the bytes of T in all other namespaces; and
//  - gets one on the byte of T in its own, or its namespace has no such thread but a
//    zombie. (A thread that ended in a process that lives leaves its byte locked.)
// As long as the caller keeps these locks, no other thread with the id T can
// announce itself, and nobody else holds the same inquest.
// A thread of another build announces nothing: there the first rule asks for the id
// alone, and such builds must share one namespace.
//
// No heap, no libstdc++; everything works without /proc too, if more cautiously: a
// zombie is not known from a living thread then.
#ifndef YBNET_COMPLIB_CL_PLOCK_OWNER_H
#define YBNET_COMPLIB_CL_PLOCK_OWNER_H

#include <cstdint>
#include <sys/types.h>

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

// Announces the calling thread, whose id this is, on the descriptor of the lock's file. Waits while somebody
// holds an inquest on the same id. False when the kernel refuses.
bool cl_plock_announce(int descriptor, uint32_t id);

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

// True when every thread with this id that may hold the lock is dead; it stays so until the inquest is closed.
// announced: the id was recorded by a thread that announces itself. id_is_own: the caller has it, and does not
// hold the lock.
bool cl_plock_owner_is_dead(const cl_plock_inquest &inquest, uint32_t id, bool announced, bool id_is_own);

void cl_plock_inquest_close(cl_plock_inquest *inquest);

#endif
