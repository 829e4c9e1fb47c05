// SPDX-License-Identifier: Apache-2.0
//
// The frame of both shared-memory databases: creating, loading, registering in
// and unloading a segment, and its lock. The two segments differ only in what
// their descriptions say (interfaces_segment.cc, ports_segment.cc).
#ifndef YBNET_NET_LIB_DB_SEGMENT_H
#define YBNET_NET_LIB_DB_SEGMENT_H

#include <cstddef>
#include <cstdint>
#include <sys/types.h>

#include "net_lib_db/complib/cl_passivelock.h"
#include "net_lib_db/message.h"
#include "net_lib_db/probe.h"
#include "ybnet/net_lib_db_layout.h"
#include "ybnet/yb_status.h"

// One message without arguments, in each form that the log knows.
struct segment_message {
    const char *plain;
    const char *positioned;
    const char *traced;
};
#define SEGMENT_MESSAGE(text)                                                                                \
    { text, YB_POSITION_PREFIX text, YB_TRACE_PREFIX text }

// There are two segments; a thread's side of a segment's lock is found by its number.
constexpr uint32_t SEGMENTS = 2;

struct segment_description {
    uint32_t number;
    const char *name;
    const char *title; // in messages
    uint32_t size;
    size_t trailer_offset;

    // Brings the body to its initial contents; called with the lock held. The trailer is the frame's.
    void (*initialize_body)(void *body);

    // Completes or takes back what a process that died in the middle of a change left; called with the lock
    // held. Says what it did.
    void (*repair_body)(void *body);

    // The names under which the frame's steps report.
    const char *create_function;
    const char *load_function;
    const char *unload_function;

    // In the order in which a load meets them.
    segment_message already_exists;
    segment_message create_failed;
    segment_message resize_failed;
    segment_message map_failed;
    segment_message lock_init_failed;
    segment_message already_loaded;
    segment_message loaded_mismatch;
    segment_message init_failed;
    segment_message not_initialized;
    segment_message mismatch;
    segment_message unmap_failed;
};

// One segment as this process knows it. Not guarded: loads and unloads run beside nothing else.
struct segment {
    const segment_description &description;

    // What decides whether a load is the process's first: NULL when not loaded. A failed mapping and a layout
    // mismatch leave it set, so it is never dereferenced.
    void *reference;

    // The mapping while it may be used, else NULL.
    void *body;

    // The segment that reference was mapped from. Its descriptor is open for the life of the process, as every
    // one of a segment. The file behind it, so that one that the process has closed and given to something else
    // is known; and how many there were, so that a thread knows on which it has announced itself.
    cl_plock_place place;
    uint32_t descriptors;

    // The open file description behind it is another process's too: this one is its forked child and could not get
    // one of its own (forked_child.h). What is announced on it is not this process's to withdraw.
    bool description_is_shared;

    // While it is loaded, for takeovers.
    cl_plock_spare spare;

    // For the announcements of threads that come when the process has closed place.descriptor, -1 until then.
    int late_descriptor = -1;
};

// YB_STATUS_SUCCESS with reference NULL: another process made the segment first.
yb_status_t segment_create(segment &seg);
yb_status_t segment_load(segment &seg, uint32_t reinitialize);
yb_status_t segment_unload(segment &seg);

// The rest is for a segment that is loaded (body not NULL).

inline net_lib_db_trailer_t &segment_trailer(segment &seg) {
    return *reinterpret_cast<net_lib_db_trailer_t *>(static_cast<std::byte *>(seg.body) +
                                                     seg.description.trailer_offset);
}

// The calling thread's side of both locks. In the program's own block of thread-local storage, so that the way
// there is one addition.
extern __thread cl_plock_user segment_lock_users[SEGMENTS] __attribute__((tls_model("initial-exec")));

// What holds for this process and no child of it: in a page of its own that the kernel hands to children, however
// they are made, as zeros (forked_child.h).
struct alignas(4096) segment_process {
    uint32_t
        descriptors[SEGMENTS]; // as in the segments; 0, on which nobody is announced, in a child at first
    uint32_t state;            // forked_child.cc's
};
extern segment_process segment_this_process __attribute__((visibility("hidden")));

inline cl_plock_user &segment_user(const segment &seg) {
    cl_plock_user *user = &segment_lock_users[seg.description.number];
    asm("" : "+r"(user)); // computed once: compilers think it is cheaper to do it again at each use
    return *user;
}

inline bool segment_thread_is_announced(const segment &seg, const cl_plock_user &user) {
    return user.announced_on ==
           __atomic_load_n(&segment_this_process.descriptors[seg.description.number], __ATOMIC_RELAXED);
}

// Makes the thread known to all that may wait for it; done before it takes the lock for the first time.
__attribute__((cold)) void segment_announce(segment &seg, cl_plock_user &user);

// Has the ends of threads seen; done once, before any thread of the process or of its children is announced.
__attribute__((cold)) void segment_watch_threads();

// Makes the calling thread forget what it is the copy of: the thread that made a child of its process.
__attribute__((cold)) void segment_meet_thread();

// segment_unlock() for a thread that may have to forget that it holds the lock.
__attribute__((cold)) void segment_unlock_unannounced(segment &seg);

// With the lock just taken over from an owner that died: says so, and repairs.
__attribute__((cold)) void segment_taken_over(segment &seg, uint32_t dead);

// A second description of a loaded segment's file: where there is no /proc to open it by, by its name. -1 when there
// is none to be had, errno says why.
int segment_open_second(const segment &seg);

inline void segment_lock(segment &seg) {
    cl_plock_t *const plock = &segment_trailer(seg).plock;
    cl_plock_user &user = segment_user(seg);
    if (__builtin_expect(!segment_thread_is_announced(seg, user), false))
        segment_announce(seg, user);
    const uint32_t dead = cl_plock_excl_acquire(plock, user, seg.place);
    YB_PROBE(lock_acquired, seg.description.name, plock, user.id);
    if (__builtin_expect(dead != 0, false))
        segment_taken_over(seg, dead);
}

inline void segment_unlock(segment &seg) {
    cl_plock_t *const plock = &segment_trailer(seg).plock;
    cl_plock_user &user = segment_user(seg);
    if (__builtin_expect(!segment_thread_is_announced(seg, user), false)) {
        segment_unlock_unannounced(seg);
        return;
    }
    YB_PROBE(lock_release, seg.description.name, plock, user.id);
    cl_plock_release(plock, user);
}

void segment_flush(segment &seg);

#endif
