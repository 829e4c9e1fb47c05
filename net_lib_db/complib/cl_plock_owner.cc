// SPDX-License-Identifier: Apache-2.0
//
// See cl_plock_owner.h. Rests on F_OFD_SETLK and F_OFD_GETLK (fcntl(2)),
// tkill(2), and /proc/PID/stat and /proc/self/status (proc(5)).
#include "net_lib_db/complib/cl_plock_owner.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "net_lib_db/monotonic_clock.h"

namespace {

// ---- The bytes --------------------------------------------------------------

using namespace cl_plock_bytes;

bool lock_bytes(int descriptor, int command, short type, off_t start, off_t length) {
    struct flock range = {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = start;
    range.l_len = length;
    int failed;
    do {
        failed = fcntl(descriptor, command, &range);
    } while (failed != 0 && errno == EINTR);
    return failed == 0;
}

// Against all others than the inquest's own. True for a range of no length, which fcntl(2) would take for all that
// follows.
bool lock_range(const cl_plock_inquest &inquest, off_t start, off_t end) {
    return start == end || lock_bytes(inquest.descriptor, F_OFD_SETLK, F_WRLCK, start, end - start);
}

// ---- This process's namespace -----------------------------------------------

// Reads the beginning of a file of /proc; false when there is none.
bool read_beginning(const char *path, char *text, size_t size) {
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    const ssize_t length = read(descriptor, text, size - 1);
    close(descriptor);
    text[length > 0 ? length : 0] = '\0';
    return length > 0;
}

// The namespace's inode number, as the kernel gives it out once for each; 0 when it cannot be learned.
uint32_t read_namespace() {
    struct stat status;
    return stat("/proc/self/ns/pid", &status) == 0 ? static_cast<uint32_t>(status.st_ino) : 0;
}

// Whether the ids under /proc are this process's: it may be mounted from a namespace further up, and then shows
// the process under one id for each level.
bool read_proc_is_own() {
    char text[4096];
    if (!read_beginning("/proc/self/status", text, sizeof(text)))
        return false;
    static constexpr char label[] = "\nNSpid:\t";
    const char *ids = strstr(text, label);
    if (ids == nullptr)
        return false;
    ids += sizeof(label) - 1;
    return ids[strspn(ids, "0123456789")] == '\n'; // else more ids follow, or the line's end was not read
}

// Asked for once in a process, by whichever thread comes first; the same for all.
constexpr uint32_t namespace_known = 1;
constexpr uint32_t proc_is_own = 2;
uint32_t namespace_flags;
uint32_t namespace_number;

uint32_t own_namespace() {
    if ((__atomic_load_n(&namespace_flags, __ATOMIC_ACQUIRE) & namespace_known) == 0) {
        __atomic_store_n(&namespace_number, read_namespace(), __ATOMIC_RELAXED);
        __atomic_store_n(&namespace_flags, namespace_known | (read_proc_is_own() ? proc_is_own : 0),
                         __ATOMIC_RELEASE);
    }
    return __atomic_load_n(&namespace_number, __ATOMIC_RELAXED);
}

bool proc_shows_own_ids() {
    (void)own_namespace();
    return (__atomic_load_n(&namespace_flags, __ATOMIC_RELAXED) & proc_is_own) != 0;
}

// ---- A thread of this namespace ---------------------------------------------

bool exists_and_is_no_zombie(uint32_t id) {
    if (syscall(SYS_tkill, static_cast<pid_t>(id), 0) != 0 && errno == ESRCH)
        return false;
    if (!proc_shows_own_ids())
        return true;
    char path[32];
    char text[512];
    (void)snprintf(path, sizeof(path), "/proc/%u/stat", id);
    if (!read_beginning(path, text, sizeof(text)))
        return true; // hidden (hidepid); or it has ended just now, which the next look will tell
    const char *const name_end = strrchr(text, ')');
    if (name_end == nullptr || name_end[1] != ' ')
        return true;
    static constexpr char ended[] = {'Z', 'X', 'x'};
    return memchr(ended, name_end[2], sizeof(ended)) == nullptr;
}

} // namespace

// An inquest lasts some microseconds. Who keeps the byte for longer would keep the caller for ever.
uint32_t cl_plock_announce(int descriptor, uint32_t id) {
    constexpr int64_t patience = 200'000'000;
    constexpr timespec nap = {0, 1'000'000};
    const uint32_t space = own_namespace();
    const int64_t end = monotonic_deadline(patience);
    while (!lock_bytes(descriptor, F_OFD_SETLK, F_RDLCK, byte_of(id, space), 1)) {
        if (errno != EAGAIN || monotonic_now() >= end)
            return unannounced | id;
        (void)nanosleep(&nap, nullptr);
    }
    return owner_of(id, space);
}

uint32_t cl_plock_namesake_here(uint32_t id) {
    return owner_of(id, own_namespace());
}

bool cl_plock_is_elsewhere(uint32_t owner) {
    return owner != cl_plock_namesake_here(id_of(owner));
}

void cl_plock_withdraw(int descriptor, uint32_t id) {
    (void)lock_bytes(descriptor, F_OFD_SETLK, F_UNLCK, byte_of(id, own_namespace()), 1); // as below
}

void cl_plock_withdraw_all(int descriptor) {
    (void)lock_bytes(descriptor, F_OFD_SETLK, F_UNLCK, bytes_begin, 0); // what stays makes others cautious
}

void cl_plock_owner_forked() {
    __atomic_store_n(&namespace_flags, 0, __ATOMIC_RELEASE);
}

int cl_plock_open_again(const cl_plock_place &place) {
    if (!cl_plock_is_file(place.descriptor, place)) {
        errno = EBADF;
        return -1;
    }
    // "/proc/self/fd/N", without the C library's formatting: this also runs in a forked child.
    char path[32] = "/proc/self/fd/";
    char digits[12];
    int count = 0;
    for (int left = place.descriptor; count == 0 || left != 0; left /= 10)
        digits[count++] = static_cast<char>('0' + left % 10);
    char *at = path + strlen(path);
    while (count > 0)
        *at++ = digits[--count];
    *at = '\0';
    const int opened = open(path, O_RDWR | O_CLOEXEC);
    if (opened >= 0 && !cl_plock_is_file(opened, place)) { // closed by somebody meanwhile
        close(opened);
        errno = EBADF;
        return -1;
    }
    return opened;
}

// A description of its own for each inquest is best: nobody else can come to share it. The spare is not.
bool cl_plock_inquest_open(cl_plock_inquest *inquest, const cl_plock_place &place) {
    *inquest = {cl_plock_open_again(place), nullptr};
    if (inquest->descriptor >= 0 || place.spare == nullptr ||
        __atomic_exchange_n(&place.spare->in_use, 1U, __ATOMIC_ACQUIRE) != 0)
        return inquest->descriptor >= 0;
    *inquest = {place.spare->descriptor, place.spare};
    if (cl_plock_is_file(inquest->descriptor, place))
        return true;
    cl_plock_inquest_close(inquest);
    return false;
}

bool cl_plock_is_file(int descriptor, const cl_plock_place &place) {
    struct stat file;
    return fstatat(descriptor, "", &file, AT_EMPTY_PATH) == 0 && file.st_dev == place.device &&
           file.st_ino == place.inode;
}

bool cl_plock_owner_is_dead(const cl_plock_inquest &inquest, uint32_t owner, bool is_own) {
    const uint32_t id = id_of(owner);
    if (id == 0 || !cl_plock_is_announced(owner))
        return false; // a damaged lock, of which nothing can be said, or a thread of which nothing is known
    const uint32_t space = own_namespace();
    const off_t first = first_byte_of_owner(owner);
    const off_t end = first + bytes_of_one_owner;

    // The other namespaces first: from then on none of them can bring the owner up again.
    if (space == 0 || cl_plock_is_elsewhere(owner)) {
        if (!lock_range(inquest, first, end))
            return false;
        // Others that do not know their namespace either lie on the same byte, which was free then.
        return space != 0 || is_own || !exists_and_is_no_zombie(id);
    }
    const off_t here = byte_of(id, space);
    if (!lock_range(inquest, first, here) || !lock_range(inquest, here + 1, end))
        return false;
    // Whoever has the id now and has not announced itself cannot do so until this is over.
    return is_own || lock_range(inquest, here, here + 1) || !exists_and_is_no_zombie(id);
}

bool cl_plock_stranger_is_dead(const cl_plock_inquest &inquest, uint32_t id, bool is_own) {
    if (id == 0 || id > id_mask)
        return false;
    const off_t first = first_byte_of_id(id);
    const off_t end = first + bytes_of_one_id;
    const uint32_t space = own_namespace();
    // The caller's own, maybe; when it knows its namespace, no stranger's.
    const off_t here = byte_of(id, space);
    const off_t spared = space == 0 ? 0 : 1;
    if (!lock_range(inquest, first, here) || !lock_range(inquest, here + spared, end))
        return false;
    return is_own || !exists_and_is_no_zombie(id);
}

void cl_plock_inquest_close(cl_plock_inquest *inquest) {
    // Not left to close(2): a child that another thread forks at this moment has the description too.
    if (inquest->descriptor >= 0)
        (void)lock_bytes(inquest->descriptor, F_OFD_SETLK, F_UNLCK, bytes_begin, 0);
    if (inquest->spare != nullptr)
        __atomic_store_n(&inquest->spare->in_use, 0U, __ATOMIC_RELEASE);
    else if (inquest->descriptor >= 0)
        close(inquest->descriptor);
    *inquest = {-1, nullptr};
}
