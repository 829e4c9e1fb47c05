// SPDX-License-Identifier: Apache-2.0
//
// See segment.h. Sections: messages; the trailer; creating; loading; unloading.
// Rests on shm_overview(7), mmap(2) and msync(2).
#include "net_lib_db/segment.h"

#include <cerrno>
#include <ctime>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "net_lib_db/complib/cl_shared_memory.h"
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
    seg.reference = mmap(nullptr, seg.description.size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    seg.body = seg.reference == MAP_FAILED ? nullptr : seg.reference;
    return seg.body != nullptr;
}

// ---- Creating ---------------------------------------------------------------

// Takes back what segment_create() did to the name and the references.
yb_status_t give_up_creation(segment &seg) {
    seg.reference = nullptr;
    seg.body = nullptr;
    (void)cl_shm_destroy(seg.description.name); // the failure already has its message
    return YB_STATUS_NO_MEMORY;
}

} // namespace

// YB_STATUS_SUCCESS with seg.reference NULL: another process made the segment first.
yb_status_t segment_create(segment &seg) {
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
    // The descriptor stays open for the life of the process, here as in every load.
    if (ftruncate(descriptor, static_cast<off_t>(description.size)) != 0) {
        SEGMENT_LOG(YB_LEVEL_ERROR, function, description.resize_failed);
        return give_up_creation(seg);
    }
    if (!map_segment(seg, descriptor)) {
        SEGMENT_LOG(YB_LEVEL_ERROR, function, description.map_failed);
        return give_up_creation(seg);
    }
    if (cl_plock_init_pshared(&segment_trailer(seg).plock) != 0) {
        SEGMENT_LOG(YB_LEVEL_ERROR, function, description.lock_init_failed);
        (void)munmap(seg.body, description.size); // the failure already has its message
        return give_up_creation(seg);
    }
    initialize_contents(seg);
    // Last: a segment whose creator died before this fails the check of its later users.
    __atomic_store_n(&segment_trailer(seg).size_check, description.size, __ATOMIC_RELEASE);

    if (g_yb_log_module_func_enable != 0)
        YB_MESSAGE_WRITE(net_lib_db_verbosity, "net_lib_db", YB_LEVEL_DEBUG, function, __LINE__,
                         "%s - left \n", function);
    return YB_STATUS_SUCCESS;
}

// ---- Loading ----------------------------------------------------------------

namespace {

// How long a load waits for another process that is creating the segment right now.
constexpr int creator_wait_rounds = 2000;
constexpr timespec creator_wait_round = {0, 1'000'000};

// A creator makes the file, sizes it in one step, and writes the size check last. Only its two unfinished
// states, an empty file and a size check of 0, are worth waiting for; all others tell the layout at once.
// Never reads beyond the file's end.
bool layout_matches(segment &seg, int descriptor) {
    for (int round = 0;; round++) {
        struct stat status;
        if (fstat(descriptor, &status) != 0)
            return false;
        const bool sized = status.st_size >= static_cast<off_t>(seg.description.size);
        const uint32_t size_check = sized ? size_check_of(seg) : 0;
        if (size_check == seg.description.size)
            return true;
        if (size_check != 0 || (!sized && status.st_size != 0) || round == creator_wait_rounds)
            return false;
        (void)nanosleep(&creator_wait_round, nullptr);
    }
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

yb_status_t attach(segment &seg, int descriptor, uint32_t reinitialize) {
    const segment_description &description = seg.description;
    const char *const function = description.load_function;

    if (!map_segment(seg, descriptor)) {
        // The reference keeps MAP_FAILED: a second load then counts as one, until an unload clears it.
        SEGMENT_LOG(YB_LEVEL_ERROR, function, description.map_failed);
        return YB_STATUS_NO_MEMORY;
    }
    if (!layout_matches(seg, descriptor)) {
        SEGMENT_LOG(YB_LEVEL_ERROR, function, description.mismatch);
        if (munmap(seg.body, description.size) != 0)
            SEGMENT_LOG(YB_LEVEL_ERROR, function, description.unmap_failed);
        seg.body = nullptr; // the reference stays set, as above
        return YB_STATUS_ERROR;
    }
    // Exactly 1 here, any non-zero value in reload(): callers rely on both.
    if (reinitialize == 1)
        initialize_contents(seg);
    register_user(seg);
    // Tested after the registration, which an unload takes back.
    if (segment_trailer(seg).initialized_marker != YB_NET_DB_INITIALIZED_MARKER) {
        SEGMENT_LOG(YB_LEVEL_ERROR, function, description.not_initialized);
        return YB_STATUS_DB_NOT_INITIALIZED;
    }
    return YB_STATUS_SUCCESS;
}

// A segment can vanish between a lost creation race and the second look, when its last user unloads; more
// rounds than this mean that something else is wrong.
constexpr int creation_rounds = 64;

} // namespace

yb_status_t segment_load(segment &seg, uint32_t reinitialize) {
    if (seg.reference != nullptr)
        return reload(seg, reinitialize);

    const segment_description &description = seg.description;
    yb_status_t status = YB_STATUS_NO_MEMORY;
    for (int round = 0; round < creation_rounds; round++) {
        int descriptor = -1;
        if (cl_shm_open(description.name, &descriptor) == 0)
            return attach(seg, descriptor, reinitialize);
        if (round > 0 && errno != ENOENT)
            break; // it exists and cannot be opened: creating it again would not help
        status = segment_create(seg);
        if (status != YB_STATUS_SUCCESS)
            break;
        if (seg.reference != nullptr) {
            register_user(seg);
            return YB_STATUS_SUCCESS;
        }
        status = YB_STATUS_NO_MEMORY; // another process was first: open what it made
    }
    SEGMENT_LOG(YB_LEVEL_ERROR, description.load_function, description.init_failed);
    return status;
}

// ---- Unloading --------------------------------------------------------------

yb_status_t segment_unload(segment &seg) {
    if (seg.body == nullptr) {
        seg.reference = nullptr;
        return YB_STATUS_SUCCESS;
    }
    unregister_user(seg);
    const bool last_user = segment_trailer(seg).user_count == 0;
    if (last_user)
        cl_plock_destroy(&segment_trailer(seg).plock);
    const bool unmapped = munmap(seg.body, seg.description.size) == 0;
    if (!unmapped)
        SEGMENT_LOG(YB_LEVEL_ERROR, seg.description.unload_function, seg.description.unmap_failed);
    seg.reference = nullptr;
    seg.body = nullptr;
    if (last_user)
        (void)cl_shm_destroy(seg.description.name); // gone already is as good
    return unmapped ? YB_STATUS_SUCCESS : YB_STATUS_ERROR;
}

// ---- Flushing ---------------------------------------------------------------

void segment_flush(segment &seg) {
    (void)msync(seg.body, seg.description.size, MS_SYNC); // a memory file system has nothing to lose
}
