// SPDX-License-Identifier: Apache-2.0
//
// See segment_copy.h. Reads with pread(2): a file that shrinks meanwhile gives
// short reads, where a mapping would give SIGBUS.
#include "tools/ybnetctl/segments/segment_copy.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <ostream>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/ybnetctl/segments/lock_words.h"

namespace ybnetctl {

namespace {

constexpr int rounds_max = 50;
constexpr const char *copy_advice = "a copy made by cp /dev/shm/net_lib_ifc FILE";
constexpr const char *in_the_way = "removing it: no segment can be made while it is there";
constexpr timespec between_rounds = {0, 1'000'000};

struct descriptor {
    int number = -1;

    explicit descriptor(int opened) : number(opened) {}
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;
    ~descriptor() {
        if (number >= 0)
            (void)close(number); // opened for reading only
    }
};

std::string in_words(int error) {
    return std::strerror(error);
}

// Fills as much of out as the file has from offset on, and returns how much.
size_t read_at(int descriptor, std::byte *out, size_t size, size_t offset) {
    size_t done = 0;
    while (done < size) {
        const ssize_t got = pread(descriptor, out + done, size - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        done += static_cast<size_t>(got);
    }
    return done;
}

std::vector<std::byte> read_all(int descriptor, size_t size) {
    std::vector<std::byte> bytes(size);
    bytes.resize(read_at(descriptor, bytes.data(), size, 0));
    return bytes;
}

bool lock_is_free(int descriptor, const segment_format &format) {
    net_lib_db_trailer_t trailer{};
    if (read_at(descriptor, reinterpret_cast<std::byte *>(&trailer), sizeof(trailer),
                format.trailer_offset) != sizeof(trailer))
        return true; // no trailer, no lock
    return !lock_words_of(trailer).held;
}

// The trailer moves with every taking of the lock; only the body has to agree.
bool bodies_agree(const std::vector<std::byte> &one, const std::vector<std::byte> &other,
                  const segment_format &format) {
    const size_t body = format.trailer_offset;
    return one.size() == other.size() &&
           std::memcmp(one.data(), other.data(), std::min(body, one.size())) == 0;
}

void read_live(int descriptor, size_t size, segment_copy &copy) {
    const segment_format &format = copy.format();
    copy.bytes = read_all(descriptor, size);
    copy.settled = false;
    copy.lock_seen_free = false;
    for (int round = 0; round < rounds_max && !(copy.settled && copy.lock_seen_free); round++) {
        if (round > 0)
            (void)nanosleep(&between_rounds, nullptr);
        copy.lock_seen_free = lock_is_free(descriptor, format);
        std::vector<std::byte> again = read_all(descriptor, size);
        copy.settled = bodies_agree(copy.bytes, again, format);
        copy.bytes = std::move(again);
    }
}

bool fits(const segment_copy &copy) {
    if (copy.size != copy.format().size || copy.bytes.size() != copy.format().size)
        return false;
    return copy.trailer().size_check == copy.format().size;
}

std::string kind_in_words(mode_t mode) {
    return S_ISDIR(mode)    ? "is a directory"
           : S_ISFIFO(mode) ? "is a FIFO"
           : S_ISCHR(mode)  ? "is a character device"
           : S_ISBLK(mode)  ? "is a block device"
                            : "is no regular file";
}

failure no_segment(const segment_copy &copy, const std::string &reason) {
    return {exit_code::failed, copy.path, reason, copy.live ? in_the_way : copy_advice, {}};
}

std::string database_name(segment_kind kind) {
    return kind == segment_kind::interfaces ? "interfaces database" : "ports database";
}

void describe_file(segment_copy &copy, const struct stat &status) {
    copy.present = true;
    copy.device = status.st_dev;
    copy.inode = status.st_ino;
    copy.mode = status.st_mode;
    copy.owner = status.st_uid;
    copy.group = status.st_gid;
    copy.size = static_cast<uint64_t>(status.st_size);
}

segment_copy read_opened(int opened, segment_copy copy, reading how) {
    struct stat status {};
    if (fstat(opened, &status) != 0)
        throw failure{exit_code::failed, copy.path, in_words(errno), "", {}};
    if (!S_ISREG(status.st_mode))
        throw no_segment(copy, kind_in_words(status.st_mode));
    describe_file(copy, status);
    const size_t size = std::min<size_t>(copy.size, copy.format().size);
    if (copy.live && how == reading::settled)
        read_live(opened, size, copy);
    else
        copy.bytes = read_all(opened, size);
    copy.fits = fits(copy);
    return copy;
}

} // namespace

const net_lib_db_trailer_t &segment_copy::trailer() const {
    return *reinterpret_cast<const net_lib_db_trailer_t *>(bytes.data() + format().trailer_offset);
}

const net_lib_db_interfaces_segment_t &segment_copy::interfaces() const {
    return *reinterpret_cast<const net_lib_db_interfaces_segment_t *>(bytes.data());
}

const net_lib_db_ports_segment_t &segment_copy::ports() const {
    return *reinterpret_cast<const net_lib_db_ports_segment_t *>(bytes.data());
}

segment_copy read_segment_file(const std::string &path) {
    const descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.number < 0) {
        const int error = errno;
        const bool refused = error == EACCES || error == EPERM;
        throw failure{error == ENOENT ? exit_code::not_found : exit_code::failed,
                      path,
                      in_words(error),
                      refused ? "run it as a user who may read the file" : copy_advice,
                      {}};
    }
    segment_copy copy;
    copy.path = path;
    copy.live = false;
    struct stat status {};
    if (fstat(file.number, &status) != 0)
        throw failure{exit_code::failed, path, in_words(errno), "", {}};
    if (!S_ISREG(status.st_mode))
        throw no_segment(copy, kind_in_words(status.st_mode));
    const auto size = static_cast<size_t>(status.st_size);
    if (size == format_of(segment_kind::ports).size)
        copy.kind = segment_kind::ports;
    else if (size != format_of(segment_kind::interfaces).size)
        throw no_segment(copy, "has " + std::to_string(size) + " bytes, which is neither segment's size (" +
                                   std::to_string(format_of(segment_kind::interfaces).size) + " and " +
                                   std::to_string(format_of(segment_kind::ports).size) + ')');
    return read_opened(file.number, copy, reading::once);
}

segment_copy read_segment(const session &run, segment_kind kind, reading how) {
    segment_copy copy;
    for (const std::string &path : run.files) {
        segment_copy given = read_segment_file(path);
        if (given.kind != kind)
            continue;
        if (copy.present)
            throw failure{exit_code::usage,
                          "--file",
                          copy.path + " and " + path + " are both copies of " + given.format().name +
                              ": which one is meant?",
                          "one copy of each segment; ybnetctl diff compares two of one",
                          {}};
        copy = std::move(given);
    }
    if (copy.present)
        return copy;
    copy.kind = kind;
    copy.path = std::string("/dev/shm") + copy.format().name;
    if (!run.files.empty()) {
        copy.live = false; // only copies were given: the live segment has no business among them
        copy.path = "--file";
        return copy;
    }
    const descriptor file(open(copy.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
    if (file.number < 0) {
        if (errno == ENOENT)
            return copy;
        const int error = errno;
        throw failure{exit_code::failed,
                      copy.path,
                      in_words(error),
                      error == ELOOP ? in_the_way : "run it as a user who may read the segment",
                      {}};
    }
    return read_opened(file.number, copy, how);
}

segment_copy locate_segment(segment_kind kind) {
    segment_copy copy;
    copy.kind = kind;
    copy.path = std::string("/dev/shm") + copy.format().name;
    struct stat status {};
    if (lstat(copy.path.c_str(), &status) == 0)
        describe_file(copy, status);
    return copy;
}

segment_copy look_at_segment(const session &run, segment_kind kind) {
    try {
        return read_segment(run, kind, reading::once);
    } catch (const failure &what) {
        if (!run.files.empty())
            throw;
        segment_copy copy = locate_segment(kind);
        copy.unreadable = what.reason + (what.advice.empty() ? "" : "; try: " + what.advice);
        return copy;
    }
}

segment_copy read_contents(const session &run, segment_kind kind) {
    segment_copy copy = read_contents_if_any(run, kind);
    if (!copy.present)
        throw failure{exit_code::not_found,
                      database_name(kind),
                      "there is none: not loaded, or its file was deleted",
                      "ybnetctl status",
                      {}};
    return copy;
}

segment_copy read_contents_if_any(const session &run, segment_kind kind) {
    segment_copy copy = read_segment(run, kind);
    const std::string what = database_name(kind);
    if (!copy.present && !copy.live)
        throw failure{exit_code::not_found,
                      what,
                      "none of the files given is a copy of it",
                      "--file with a copy of /dev/shm" + std::string(copy.format().name),
                      {}};
    if (copy.present && !copy.fits)
        throw failure{exit_code::failed,
                      what,
                      copy.path + " has another layout than this build's, or was never finished",
                      "ybnetctl status",
                      {}};
    return copy;
}

void warn_when_unsettled(session &run, const segment_copy &copy) {
    if (run.json_wanted || (copy.settled && copy.lock_seen_free))
        return;
    run.err << "ybnetctl: " << copy.path
            << (copy.settled ? ": read while its lock was held: one record may be half-written\n"
                             : ": kept changing while it was read: records may be of different moments\n");
}

} // namespace ybnetctl
