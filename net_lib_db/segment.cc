// SPDX-License-Identifier: Apache-2.0
//
// See segment.h; the lock's rare parts are segment_lock.cc's. Sections: messages;
// the trailer; creating; loading; unloading.
// Rests on shm_overview(7), mmap(2), msync(2) and flock(2). The order of the steps,
// and what a death between two of them leaves, is modelled in tests/model/segment.pml.
#include "net_lib_db/segment.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "net_lib_db/complib/cl_assert.h"
#include "net_lib_db/complib/cl_plock_owner.h"
#include "net_lib_db/complib/cl_shared_memory.h"
#include "net_lib_db/file_lock.h"
#include "net_lib_db/forked_child.h"
#include "net_lib_db/monotonic_clock.h"
#include "net_lib_db/net_lib_db_log.h"

namespace {

// ---- Messages ---------------------------------------------------------------

// The formats come from a description's constants and take no arguments, which compilers cannot see.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
template <uint32_t level>
void write_message(const char *function, int32_t line, const segment_message &text) {
    constexpr uint32_t index = yb_level_index(level);
    if (net_lib_db_verbosity.load(std::memory_order_relaxed) < index)
        return;
    if constexpr (index < YB_INDEX_POSITIONED)
        (void)yb_log(yb_level_severity(level), YB_MODULE_NAME, text.plain);
    else
        (void)yb_log(yb_level_severity(level), YB_MODULE_NAME, text.positioned, "net_lib_db", line, function);
    (void)yb_trace_cbuff_log(text.traced, yb_level_name(index), YB_MODULE_NAME, function, line);
}
#pragma GCC diagnostic pop

#define SEGMENT_LOG(level, function, text) write_message<level>(function, __LINE__, text)

// ---- The trailer ------------------------------------------------------------

uint32_t size_check_of(segment &seg) {
    return __atomic_load_n(&segment_trailer(seg).size_check, __ATOMIC_ACQUIRE);
}

void initialize_contents(segment &seg) {
    segment_lock(seg);
    segment_trailer(seg).initialized_marker = YB_NET_DB_INITIALIZED_MARKER;
    seg.description.initialize_body(seg.body);
    segment_flush(seg);
    segment_unlock(seg);
}

void register_user(segment &seg) {
    segment_lock(seg);
    segment_trailer(seg).user_count++;
    segment_flush(seg);
    segment_unlock(seg);
}

void unregister_user(segment &seg) {
    segment_lock(seg);
    if (segment_trailer(seg).user_count != 0)
        segment_trailer(seg).user_count--;
    segment_flush(seg);
    segment_unlock(seg);
}

bool map_segment(segment &seg, int descriptor) {
    struct stat file = {};
    (void)fstatat(descriptor, "", &file, AT_EMPTY_PATH); // a file 0:0 is no descriptor's
    seg.place = {seg.description.name, descriptor, file.st_dev, file.st_ino, &seg.spare};
    seg.descriptors++;
    __atomic_store_n(&segment_this_process.descriptors[seg.description.number], seg.descriptors,
                     __ATOMIC_RELAXED);
    seg.description_is_shared = false;
    seg.reference = mmap(nullptr, seg.description.size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    seg.body = seg.reference == MAP_FAILED ? nullptr : seg.reference;
    return seg.body != nullptr;
}

// ---- Creating ---------------------------------------------------------------

// Sets the file's size and takes the memory for it: a full /dev/shm is met here, not as SIGBUS at some later
// write.
bool resize(int descriptor, uint32_t size) {
    if (ftruncate(descriptor, static_cast<off_t>(size)) != 0)
        return false;
    int failed;
    do {
        failed = posix_fallocate(descriptor, 0, static_cast<off_t>(size));
    } while (failed == EINTR);
    return failed == 0;
}

// Takes back what a creation did to the name and the references.
yb_status_t give_up_creation(segment &seg, int descriptor) {
    seg.reference = nullptr;
    seg.body = nullptr;
    (void)cl_shm_destroy(seg.description.name); // the failure already has its message
    file_unlock(descriptor);
    return YB_STATUS_NO_MEMORY;
}

// segment_create() that leaves the new segment's file locked.
yb_status_t create_locked(segment &seg) {
    const segment_description &description = seg.description;
    const char *const function = description.create_function;

    int descriptor = -1;
    if (cl_shm_create(description.name, &descriptor) != 0) {
        if (errno == EEXIST) {
            SEGMENT_LOG(YB_LEVEL_DEBUG, function, description.already_exists);
            return YB_STATUS_SUCCESS;
        }
        SEGMENT_LOG(YB_LEVEL_ERROR, function, description.create_failed);
        return YB_STATUS_NO_MEMORY;
    }
    file_lock(descriptor);
    if (!resize(descriptor, description.size)) {
        SEGMENT_LOG(YB_LEVEL_ERROR, function, description.resize_failed);
        return give_up_creation(seg, descriptor);
    }
    if (!map_segment(seg, descriptor)) {
        SEGMENT_LOG(YB_LEVEL_ERROR, function, description.map_failed);
        return give_up_creation(seg, descriptor);
    }
    if (cl_plock_init_pshared(&segment_trailer(seg).plock) != 0) {
        SEGMENT_LOG(YB_LEVEL_ERROR, function, description.lock_init_failed);
        (void)munmap(seg.body, description.size); // the failure already has its message
        return give_up_creation(seg, descriptor);
    }
    initialize_contents(seg);
    // Last: a segment whose creator died before this fails the check of its later users.
    __atomic_store_n(&segment_trailer(seg).size_check, description.size, __ATOMIC_RELEASE);

    if (g_yb_log_module_func_enable != 0)
        YB_MESSAGE_WRITE(net_lib_db_verbosity, "net_lib_db", YB_LEVEL_DEBUG, function, __LINE__,
                         "%s - left \n", function);
    return YB_STATUS_SUCCESS;
}

} // namespace

yb_status_t segment_create(segment &seg) {
    const yb_status_t status = create_locked(seg);
    if (seg.reference != nullptr)
        file_unlock(seg.place.descriptor);
    return status;
}

// ---- Loading ----------------------------------------------------------------

namespace {

// How long a load waits for another process that is creating the segment right now, and how often it looks.
constexpr int64_t creator_wait = 2 * nanoseconds_of_a_second;
constexpr timespec creator_wait_round = {0, 1'000'000};

enum class layout {
    matches,
    unfinished, // its creator is not done, or died
    foreign,    // of another build
    gone        // the name stands for it no more: its last user has left, or its creator gave up
};

// A creator makes the file, sizes it in one step and writes the size check last: only its two unfinished
// states, an empty file and a size check of 0, are worth waiting for. Never reads behind the file's end.
layout layout_of(segment &seg) {
    struct stat status;
    if (fstat(seg.place.descriptor, &status) != 0)
        return layout::foreign;
    if (status.st_nlink == 0)
        return layout::gone;
    if (status.st_size < static_cast<off_t>(seg.description.size))
        return status.st_size == 0 ? layout::unfinished : layout::foreign;
    const uint32_t size_check = size_check_of(seg);
    if (size_check == seg.description.size)
        return layout::matches;
    return size_check == 0 ? layout::unfinished : layout::foreign;
}

// What a mapped segment turns out to be; its file is locked when it matches. The lock is not waited for
// before: its creator holds it, and may be stopped or dead.
layout lock_and_check(segment &seg) {
    const int64_t deadline = monotonic_deadline(creator_wait);
    layout found = layout_of(seg);
    while (found == layout::unfinished && monotonic_now() < deadline) {
        (void)nanosleep(&creator_wait_round, nullptr);
        found = layout_of(seg);
    }
    if (found != layout::matches)
        return found;

    file_lock(seg.place.descriptor);
    const uint32_t lock_state = segment_trailer(seg).plock.state;
    if (layout_of(seg) == layout::gone)
        return layout::gone; // its last user left while the lock was waited for
    if (lock_state != CL_PLOCK_DESTROYING && lock_state != CL_PLOCK_DESTROYED)
        return layout::matches;
    // Its last user died between destroying the lock and removing the name: finish that.
    (void)cl_shm_destroy(seg.description.name);
    return layout::gone;
}

yb_status_t reload(segment &seg, uint32_t reinitialize) {
    const segment_description &description = seg.description;
    if (reinitialize == 0) {
        SEGMENT_LOG(YB_LEVEL_WARN, description.load_function, description.already_loaded);
        return YB_STATUS_ALREADY_INITIALIZED;
    }
    if (seg.body == nullptr || size_check_of(seg) != description.size) {
        SEGMENT_LOG(YB_LEVEL_ERROR, description.load_function, description.loaded_mismatch);
        return YB_STATUS_ERROR;
    }
    initialize_contents(seg);
    return YB_STATUS_SUCCESS;
}

// False when the segment behind the descriptor is gone, with nothing changed; else the load's status is
// known.
bool attach(segment &seg, int descriptor, uint32_t reinitialize, yb_status_t *out_status) {
    const segment_description &description = seg.description;
    const char *const function = description.load_function;

    if (!map_segment(seg, descriptor)) {
        // The reference keeps MAP_FAILED: a second load then counts as one, until an unload clears it.
        SEGMENT_LOG(YB_LEVEL_ERROR, function, description.map_failed);
        *out_status = YB_STATUS_NO_MEMORY;
        return true;
    }
    const layout found = lock_and_check(seg);
    if (found == layout::gone) {
        (void)munmap(seg.body, description.size); // an orphan's mapping: nobody misses it
        seg.reference = nullptr;
        seg.body = nullptr;
        close(descriptor); // and with it the file's lock; only descriptors of segments that were loaded stay
        return false;
    }
    if (found != layout::matches) {
        SEGMENT_LOG(YB_LEVEL_ERROR, function, description.mismatch);
        if (munmap(seg.body, description.size) != 0)
            SEGMENT_LOG(YB_LEVEL_ERROR, function, description.unmap_failed);
        seg.body = nullptr; // the reference stays set, as above
        *out_status = YB_STATUS_ERROR;
        return true;
    }
    // Exactly 1 here, any non-zero value in reload(): callers rely on both.
    if (reinitialize == 1)
        initialize_contents(seg);
    register_user(seg);
    *out_status = YB_STATUS_SUCCESS;
    // Tested after the registration, which an unload takes back.
    if (segment_trailer(seg).initialized_marker != YB_NET_DB_INITIALIZED_MARKER) {
        SEGMENT_LOG(YB_LEVEL_ERROR, function, description.not_initialized);
        *out_status = YB_STATUS_DB_NOT_INITIALIZED;
    }
    file_unlock(descriptor);
    return true;
}

// For takeovers by a process that has given up its privileges by then.
void get_spare(segment &seg) {
    seg.spare = {segment_open_second(seg), 0};
    static bool said;
    if (seg.spare.descriptor >= 0 || said)
        return;
    said = true;
    NET_LIB_DB_LOG(
        YB_LEVEL_WARN,
        "%s - its file cannot be opened a second time (errno %d): should that last, no lock is taken "
        "over from a process that dies\n",
        seg.description.title, errno);
}

// A segment can vanish between a lost creation race and the next look, when its last user unloads; more
// rounds than this mean that something else is wrong.
constexpr int rounds_max = 1000;

} // namespace

yb_status_t segment_load(segment &seg, uint32_t reinitialize) {
    (void)process_number(); // a child's file lock is not to be its parent's
    if (seg.reference != nullptr)
        return reload(seg, reinitialize);

    const segment_description &description = seg.description;
    yb_status_t status = YB_STATUS_NO_MEMORY;
    bool creation_tried = false;
    for (int round = 0; round < rounds_max; round++) {
        int descriptor = -1;
        if (cl_shm_open(description.name, &descriptor) == 0) {
            if (!attach(seg, descriptor, reinitialize, &status))
                continue;
            if (seg.body != nullptr)
                get_spare(seg);
            return status;
        }
        if (creation_tried && errno != ENOENT)
            break; // it exists and cannot be opened: creating it again would not help
        creation_tried = true;
        status = create_locked(seg);
        if (status != YB_STATUS_SUCCESS)
            break;
        if (seg.reference != nullptr) {
            register_user(seg);
            get_spare(seg);
            file_unlock(seg.place.descriptor);
            return YB_STATUS_SUCCESS;
        }
        status = YB_STATUS_NO_MEMORY; // another process was first: open what it made
    }
    SEGMENT_LOG(YB_LEVEL_ERROR, description.load_function, description.init_failed);
    return status;
}

// ---- Unloading --------------------------------------------------------------

namespace {

// A thread that leaves cannot keep the lock: a load that has the file lock, which the unload needs, may be waiting
// for it.
void give_back_lock(segment &seg) {
    segment_meet_thread();
    if (!CL_ASSERT(!cl_plock_holds(segment_user(seg)), "net_lib_db/segment"))
        segment_unlock(seg);
}

// A file removed by hand leaves its users on an orphan; the name may stand for a new segment by now.
void remove_name(const segment &seg) {
    struct stat status;
    if (fstat(seg.place.descriptor, &status) != 0 || status.st_nlink != 0)
        (void)cl_shm_destroy(seg.description.name); // gone already is as good
}

} // namespace

yb_status_t segment_unload(segment &seg) {
    if (seg.body == nullptr) {
        seg.reference = nullptr;
        return YB_STATUS_SUCCESS;
    }
    give_back_lock(seg);
    file_lock(seg.place.descriptor);
    unregister_user(seg);
    const bool last_user = segment_trailer(seg).user_count == 0;
    if (last_user)
        cl_plock_destroy(&segment_trailer(seg).plock);
    const bool unmapped = munmap(seg.body, seg.description.size) == 0;
    if (!unmapped)
        SEGMENT_LOG(YB_LEVEL_ERROR, seg.description.unload_function, seg.description.unmap_failed);
    seg.reference = nullptr;
    seg.body = nullptr;
    if (!seg.description_is_shared && cl_plock_is_file(seg.place.descriptor, seg.place))
        cl_plock_withdraw_all(seg.place.descriptor); // it stays open, and must not speak for threads that end
    for (const int descriptor : {seg.spare.descriptor, seg.late_descriptor})
        if (cl_plock_is_file(descriptor, seg.place))
            close(descriptor);
    seg.spare = {};
    seg.late_descriptor = -1;
    if (last_user)
        remove_name(seg);
    file_unlock(seg.place.descriptor);
    return unmapped ? YB_STATUS_SUCCESS : YB_STATUS_ERROR;
}

// ---- Opening once more --------------------------------------------------------

int segment_open_second(const segment &seg) {
    int descriptor = cl_plock_open_again(seg.place);
    if (descriptor >= 0 || cl_shm_open(seg.description.name, &descriptor) != 0)
        return descriptor;
    if (cl_plock_is_file(descriptor, seg.place))
        return descriptor;
    close(descriptor); // the name is another's already
    errno = ENOENT;
    return -1;
}

// ---- Flushing ---------------------------------------------------------------

void segment_flush(segment &seg) {
    (void)msync(seg.body, seg.description.size, MS_SYNC); // a memory file system has nothing to lose
}
