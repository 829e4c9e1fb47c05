// SPDX-License-Identifier: Apache-2.0
//
// The shared memory of a rehearsal (rehearsal.h): files without a name that the library maps instead of the segments,
// filled from those or left to the library to make.
#include "tools/ybnetctl/change/rehearsal.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include "tools/ybnetctl/change/record_changes.h"
#include "tools/ybnetctl/segments/segment_copy.h"

namespace ybnetctl {

namespace {

constexpr segment_kind kinds[] = {segment_kind::interfaces, segment_kind::ports};

failure not_copied(const segment_copy &copy) {
    return {exit_code::failed,
            copy.path,
            std::string("cannot be copied for a dry run: ") + std::strerror(errno),
            "",
            {}};
}

// The copy's lock is nobody's: whoever holds the live one is not waited for.
bool free_lock(net_lib_db_trailer_t *trailer) {
    pthread_rwlockattr_t attributes;
    pthread_rwlock_t lock = {};
    if (pthread_rwlockattr_init(&attributes) != 0 ||
        pthread_rwlockattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED) != 0 ||
        pthread_rwlock_init(&lock, &attributes) != 0)
        return false;
    static_assert(sizeof(lock) == sizeof(trailer->plock.rwlock));
    std::memcpy(trailer->plock.rwlock, &lock, sizeof(lock));
    return pthread_rwlockattr_destroy(&attributes) == 0;
}

bool write_all(int descriptor, const std::vector<std::byte> &bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written =
            pwrite(descriptor, bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        done += static_cast<size_t>(written);
    }
    return true;
}

} // namespace

void rehearsal::prepare(segment_kind kind) {
    if (segments_.contains(kind))
        return;
    segment_copy live = read_segment(run_, kind);
    private_segment &own = segments_[kind];
    if (!live.present)
        return; // the library will want to make it
    own.not_writable =
        live.live && faccessat(AT_FDCWD, live.path.c_str(), R_OK | W_OK, AT_EACCESS) != 0 ? errno : 0;
    own.exists = true;
    if (live.fits && live.trailer().plock.state == CL_PLOCK_INITIALIZED) {
        net_lib_db_trailer_t trailer = live.trailer();
        if (!free_lock(&trailer))
            throw not_copied(live);
        std::memcpy(live.bytes.data() + live.format().trailer_offset, &trailer, sizeof(trailer));
    }
    if (!make_file(own) || !write_all(own.descriptor, live.bytes))
        throw not_copied(live);
}

bool rehearsal::make_file(private_segment &own) {
    if (own.descriptor >= 0)
        close(own.descriptor);
    own.descriptor = memfd_create("ybnetctl --dry-run", MFD_CLOEXEC);
    return own.descriptor >= 0 && fstat(own.descriptor, &own.identity) == 0;
}

// NULL, with errno set, for a name that is not a segment's.
rehearsal::private_segment *rehearsal::segment_called(const char *name) {
    for (const segment_kind kind : kinds)
        if (std::strcmp(name, format_of(kind).name) == 0)
            return &segments_[kind];
    errno = ENOENT;
    return nullptr;
}

int rehearsal::open_segment(const char *name, int flags) {
    private_segment *const found = segment_called(name);
    if (found == nullptr)
        return -1;
    private_segment &own = *found;
    if (own.not_writable != 0) {
        errno = own.not_writable;
        return -1;
    }
    if ((flags & O_CREAT) == 0) {
        if (!own.exists) {
            errno = ENOENT;
            return -1;
        }
        return fcntl(own.descriptor, F_DUPFD_CLOEXEC, 0);
    }
    if (own.exists) {
        errno = EEXIST;
        return -1;
    }
    own.exists = make_file(own);
    return own.exists ? fcntl(own.descriptor, F_DUPFD_CLOEXEC, 0) : -1;
}

int rehearsal::unlink_segment(const char *name) {
    private_segment *const found = segment_called(name);
    if (found == nullptr)
        return -1;
    if (!found->exists) {
        errno = ENOENT;
        return -1;
    }
    found->exists = false;
    return 0;
}

// A private copy has no name; to the library it must have the one it was opened by.
void rehearsal::show_as_named(struct stat *status) const {
    for (const auto &[kind, own] : segments_)
        if (own.exists && own.descriptor >= 0 && status->st_dev == own.identity.st_dev &&
            status->st_ino == own.identity.st_ino)
            status->st_nlink = 1;
}

std::vector<std::byte> rehearsal::bytes_of(segment_kind kind) const {
    const auto found = segments_.find(kind);
    if (found == segments_.end() || !found->second.exists)
        return {};
    std::vector<std::byte> bytes(format_of(kind).size);
    const ssize_t got = pread(found->second.descriptor, bytes.data(), bytes.size(), 0);
    if (got != static_cast<ssize_t>(bytes.size()))
        return {}; // of another size: the library refuses it
    return bytes;
}

void rehearsal::note_record_changes() {
    const auto stand_in = [](const field &each, unsigned long long number) {
        return std::strcmp(each.name, "linux_ifindex") == 0 && stand_in_netdevs::is_stand_in(number);
    };
    for (auto &[kind, own] : segments_) {
        std::vector<std::byte> bytes = bytes_of(kind);
        if (!bytes.empty() && bytes.size() == own.shown.size())
            for (record_change &change : record_changes(format_of(kind), own.shown, bytes, stand_in))
                add_step({"record", std::move(change.text), std::move(change.details), ""});
        own.shown = std::move(bytes);
    }
}

} // namespace ybnetctl
