// SPDX-License-Identifier: Apache-2.0
//
// The rare parts of a segment's lock (segment.h): a thread's first time and its
// end, and what comes after a takeover. The common part is inline; how a dead
// holder is known is complib's (cl_passivelock.h).
#include "net_lib_db/segment.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "net_lib_db/complib/cl_plock_owner.h"
#include "net_lib_db/forked_child.h"
#include "net_lib_db/net_lib_db_log.h"

__thread cl_plock_user segment_lock_users[SEGMENTS] __attribute__((tls_model("initial-exec")));

namespace {

// Initial-exec like the above: otherwise the loader is called for it, and may allocate.
__thread uint32_t process_of_thread __attribute__((tls_model("initial-exec")));

// ---- The end of a thread ----------------------------------------------------

constexpr int NOT_WITHDRAWN = -1;
// The descriptor, while the thread is announced.
__thread int announced_through[SEGMENTS] __attribute__((tls_model("initial-exec")));

// Calls threads_end() at the end of each thread that asked for it.
constexpr uint32_t NO_KEY = UINT32_MAX; // none was to be had, or the library is being unloaded
uint32_t end_key = NO_KEY;

void ask_for_threads_end();

// Takes back what the thread has announced: its id is soon another's, which nobody should take for a holder that
// lives. Later destructors may take a lock again; then this is called once more. A lock that the thread keeps
// against all rules stays announced, and it the lock's holder: it might still give it back.
void threads_end(void *) {
    for (uint32_t number = 0; number < SEGMENTS; number++) {
        cl_plock_user &user = segment_lock_users[number];
        if (user.announced_on !=
                __atomic_load_n(&segment_this_process.descriptors[number], __ATOMIC_RELAXED) ||
            announced_through[number] == NOT_WITHDRAWN)
            continue; // announced nowhere, for a file not used any more, or on a description that is not its own
        if (cl_plock_holds(user)) {
            ask_for_threads_end();
            continue;
        }
        user.announced_on = CL_PLOCK_NOWHERE;
        user.owner = 0;
        cl_plock_withdraw(announced_through[number], user.id);
    }
}

// Without a key to be had the announcements stay until an unload or the end of the process: others are more cautious
// then than they need be.
void ask_for_threads_end() {
    const uint32_t key = __atomic_load_n(&end_key, __ATOMIC_RELAXED);
    if (key != NO_KEY)
        (void)pthread_setspecific(key, segment_lock_users); // any pointer but NULL
}

// Threads may outlive the library.
__attribute__((destructor)) void let_threads_end_without() {
    const uint32_t key = __atomic_exchange_n(&end_key, NO_KEY, __ATOMIC_RELAXED);
    if (key != NO_KEY)
        (void)pthread_key_delete(key);
}

} // namespace

void segment_watch_threads() {
    pthread_key_t key;
    if (pthread_key_create(&key, threads_end) == 0)
        __atomic_store_n(&end_key, key, __ATOMIC_RELAXED);
}

// ---- Its first time ---------------------------------------------------------

void segment_meet_thread() {
    const uint32_t process = process_number();
    if (process_of_thread == process)
        return;
    process_of_thread = process;
    for (cl_plock_user &user : segment_lock_users)
        user = {};
}

// What a thread announces itself on; -1 when the process has closed it and no other is to be had.
static int announcing_descriptor(segment &seg) {
    for (int look = 0; look < 2; look++) // one alone may fail for want of memory
        if (cl_plock_is_file(seg.place.descriptor, seg.place))
            return seg.place.descriptor;
    int known = __atomic_load_n(&seg.late_descriptor, __ATOMIC_RELAXED);
    if (cl_plock_is_file(known, seg.place))
        return known;
    const int opened = segment_open_second(seg);
    if (opened == seg.place.descriptor)
        return opened; // the number was free, and is the file's again
    if (opened >= 0 && !__atomic_compare_exchange_n(&seg.late_descriptor, &known, opened, false,
                                                    __ATOMIC_RELAXED, __ATOMIC_RELAXED)) {
        close(opened); // another thread was first
        return known;
    }
    return opened;
}

void segment_announce(segment &seg, cl_plock_user &user) {
    segment_meet_thread();
    user.id = static_cast<uint32_t>(syscall(SYS_gettid));
    user.owner = cl_plock_bytes::unannounced | user.id;
    // A child that is not seen to be one would go on under its parent's id: better to ask at each lock then.
    const int descriptor = forked_children_are_seen() ? announcing_descriptor(seg) : -1;
    if (descriptor < 0)
        return;
    user.owner = cl_plock_announce(descriptor, user.id);
    if (!cl_plock_is_announced(user.owner))
        return;
    user.announced_on = seg.descriptors;
    // On a description that is its parent's too, the byte may be the parent's as well.
    announced_through[seg.description.number] = seg.description_is_shared ? NOT_WITHDRAWN : descriptor;
    if (!seg.description_is_shared)
        ask_for_threads_end();
}

void segment_unlock_unannounced(segment &seg) {
    segment_meet_thread();
    cl_plock_t *const plock = &segment_trailer(seg).plock;
    cl_plock_user &user = segment_lock_users[seg.description.number];
    YB_PROBE(lock_release, seg.description.name, plock, user.id);
    cl_plock_release(plock, user);
}

void segment_taken_over(segment &seg, uint32_t dead) {
    NET_LIB_DB_LOG(YB_LEVEL_WARN, "%s - lock taken over from thread %u%s, which died holding it\n",
                   seg.description.title, cl_plock_bytes::id_of(dead),
                   cl_plock_is_elsewhere(dead) ? " of another PID namespace" : "");
    seg.description.repair_body(seg.body);
    segment_flush(seg);
}
