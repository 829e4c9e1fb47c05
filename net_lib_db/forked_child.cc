// SPDX-License-Identifier: Apache-2.0
//
// See forked_child.h. In the child of a fork(2) only async-signal-safe calls are
// made: other threads of the parent may have been anywhere.
#include "net_lib_db/forked_child.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "net_lib_db/complib/cl_plock_owner.h"
#include "net_lib_db/interfaces_segment.h"
#include "net_lib_db/ports_segment.h"

segment_process segment_this_process;

namespace {

// ---- Descriptors of the child's own -----------------------------------------

// The mapping holds on to the parent's description too: one of the child's own takes its place.
void map_anew(const segment &seg) {
    const size_t size = seg.description.size;
    void *const own = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, seg.place.descriptor, 0);
    if (own != MAP_FAILED && mremap(own, size, size, MREMAP_MAYMOVE | MREMAP_FIXED, seg.body) == MAP_FAILED)
        (void)munmap(own, size); // it stays with its parent's
}

// Gives the child an open file description of its own under the same number. Without one it goes on with its
// parent's: then each counts as alive while the other is, and nobody is robbed.
void replace_description(segment &seg) {
    const int own = cl_plock_open_again(seg.place);
    if (own < 0)
        return; // also when the process has closed it: the number is something else's by now
    if (dup3(own, seg.place.descriptor, O_CLOEXEC) >= 0) {
        seg.description_is_shared = false;
        map_anew(seg);
    }
    close(own);
}

// On its parent's two inquests could be held at once. And the parent may be in the middle of one: if it dies there,
// nobody must keep its locks.
void replace_spare(segment &seg) {
    struct stat file;
    const bool is_another = fstatat(seg.spare.descriptor, "", &file, AT_EMPTY_PATH) == 0 &&
                            (file.st_dev != seg.place.device || file.st_ino != seg.place.inode);
    if (!is_another) // nor unknown: nobody opens anything here meanwhile, and closing nothing does no harm
        close(seg.spare.descriptor);
    seg.spare = {cl_plock_open_again(seg.place), 0};
}

// What is announced on it is its parent's; the child opens one of its own when it needs one.
void drop_late_descriptor(segment &seg) {
    if (cl_plock_is_file(seg.late_descriptor, seg.place))
        close(seg.late_descriptor);
    seg.late_descriptor = -1;
}

void stop_sharing(segment &seg) {
    if (seg.body == nullptr)
        return;
    drop_late_descriptor(seg);
    seg.description_is_shared = true;
    replace_description(seg);
    replace_spare(seg);
}

// A number that no thread of the parent knows: who has one from there announces itself anew.
void renumber(segment &seg) {
    seg.descriptors++;
    __atomic_store_n(&segment_this_process.descriptors[seg.description.number], seg.descriptors,
                     __ATOMIC_RELAXED);
}

// ---- Children ---------------------------------------------------------------

enum : uint32_t { STATE_UNKNOWN = 0 /* as wiped */, STATE_IN_WORK = 1, STATE_KNOWN = 2 };

// These a child inherits.
bool page_is_wiped;
bool handler_is_in_place;
uint32_t processes;

void forget_parent() {
    segment_this_process = {};
}

void in_child() {
    const int kept = errno;
    forget_parent(); // where the kernel did not
    (void)process_number();
    errno = kept;
}

void watch_for_children() {
    if (!page_is_wiped)
        page_is_wiped = madvise(&segment_this_process, sizeof(segment_this_process), MADV_WIPEONFORK) == 0;
    if (!handler_is_in_place)
        handler_is_in_place = pthread_atfork(nullptr, nullptr, in_child) == 0;
}

void become_a_process() {
    watch_for_children();
    if (processes == 0) // children inherit it
        segment_watch_threads();
    cl_plock_owner_forked();
    stop_sharing(interfaces_segment);
    stop_sharing(ports_segment);
    renumber(interfaces_segment);
    renumber(ports_segment);
    processes++;
}

} // namespace

uint32_t process_number() {
    uint32_t *const state = &segment_this_process.state;
    while (__atomic_load_n(state, __ATOMIC_ACQUIRE) != STATE_KNOWN) {
        uint32_t expected = STATE_UNKNOWN;
        if (__atomic_compare_exchange_n(state, &expected, STATE_IN_WORK, false, __ATOMIC_ACQUIRE,
                                        __ATOMIC_RELAXED)) {
            become_a_process();
            __atomic_store_n(state, STATE_KNOWN, __ATOMIC_RELEASE);
        } else { // another thread is at it
            constexpr timespec a_moment = {0, 100'000};
            (void)nanosleep(&a_moment, nullptr);
        }
    }
    return processes;
}

bool forked_children_are_seen() {
    return page_is_wiped || handler_is_in_place;
}
