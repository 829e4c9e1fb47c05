// SPDX-License-Identifier: Apache-2.0
//
// See forked_child.h. A handler of pthread_atfork(3p) that makes only
// async-signal-safe calls: other threads of the parent may have been anywhere.
#include "net_lib_db/forked_child.h"

#include <cerrno>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include "net_lib_db/complib/cl_plock_owner.h"
#include "net_lib_db/interfaces_segment.h"
#include "net_lib_db/ports_segment.h"

namespace {

// "/proc/self/fd/N", without the C library's formatting.
struct descriptor_path {
    char text[32] = "/proc/self/fd/";

    explicit descriptor_path(int descriptor) {
        char digits[12];
        int count = 0;
        do {
            digits[count++] = static_cast<char>('0' + descriptor % 10);
            descriptor /= 10;
        } while (descriptor != 0);
        char *at = text + sizeof("/proc/self/fd/") - 1;
        while (count > 0)
            *at++ = digits[--count];
        *at = '\0';
    }
};

// The mapping holds on to the parent's description too: one of the child's own takes its place.
void map_anew(const segment &seg) {
    const size_t size = seg.description.size;
    void *const own = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, seg.descriptor, 0);
    if (own != MAP_FAILED && mremap(own, size, size, MREMAP_MAYMOVE | MREMAP_FIXED, seg.body) == MAP_FAILED)
        (void)munmap(own, size); // it stays with its parent's
}

// Gives the child an open file description of its own under the same number. Without one it goes on with its
// parent's: then each counts as alive while the other is, and nobody is robbed.
void stop_sharing(segment &seg) {
    if (seg.body == nullptr || seg.descriptor < 0)
        return;
    seg.description_is_shared = true;
    if (!cl_plock_is_file(seg.descriptor, seg.device, seg.inode))
        return; // the process has closed it: the number is something else's by now
    const int own = open(descriptor_path(seg.descriptor).text, O_RDWR | O_CLOEXEC);
    if (own < 0)
        return;
    if (dup3(own, seg.descriptor, O_CLOEXEC) >= 0) {
        seg.description_is_shared = false;
        map_anew(seg);
    }
    close(own);
}

void in_child() {
    const int kept = errno;
    // Only the thread that forked is here. It holds no lock, whatever its parent held.
    for (cl_plock_user &user : segment_lock_users)
        user = {};
    cl_plock_owner_forked();
    stop_sharing(interfaces_segment);
    stop_sharing(ports_segment);
    errno = kept;
}

bool in_place;

} // namespace

bool forked_children_are_seen() {
    // Two threads at once put it there twice, which does no harm.
    if (!__atomic_load_n(&in_place, __ATOMIC_ACQUIRE) && pthread_atfork(nullptr, nullptr, in_child) == 0)
        __atomic_store_n(&in_place, true, __ATOMIC_RELEASE);
    return __atomic_load_n(&in_place, __ATOMIC_ACQUIRE);
}
