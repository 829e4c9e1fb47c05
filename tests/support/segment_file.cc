// SPDX-License-Identifier: Apache-2.0
//
// See segment_file.h.
#include "tests/support/segment_file.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace {

// Fails the test that stands here, and leaves the others alone.
[[noreturn]] void give_up(const char *step) {
    throw std::system_error(errno, std::generic_category(), step);
}

[[noreturn]] void beyond_the_end() {
    throw std::out_of_range("segment_view: beyond the end");
}

} // namespace

bool segment_exists(const segment_format &format) {
    return access(format.path, F_OK) == 0;
}

void segment_remove(const segment_format &format) {
    (void)unlink(format.path);
}

std::vector<uint8_t> segment_bytes(const segment_format &format) {
    std::ifstream file(format.path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void segment_make(const segment_format &format, size_t size) {
    const int descriptor = open(format.path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (descriptor < 0 || ftruncate(descriptor, static_cast<off_t>(size)) != 0)
        give_up(format.path);
    close(descriptor);
}

segment_view::segment_view(const segment_format &format) : format_(format), memory_(nullptr), size_(0) {
    const int descriptor = open(format.path, O_RDWR | O_CLOEXEC);
    struct stat status = {};
    if (descriptor < 0 || fstat(descriptor, &status) != 0)
        give_up(format.path);
    size_ = static_cast<size_t>(status.st_size);
    void *const memory = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (memory == MAP_FAILED)
        give_up("mmap");
    close(descriptor);
    memory_ = static_cast<volatile uint8_t *>(memory);
}

segment_view::~segment_view() {
    (void)munmap(const_cast<uint8_t *>(memory_), size_);
}

uint8_t segment_view::byte(size_t offset) const {
    if (offset >= size_)
        beyond_the_end();
    return memory_[offset];
}

uint16_t segment_view::half(size_t offset) const {
    return static_cast<uint16_t>(byte(offset) | byte(offset + 1) << 8);
}

uint32_t segment_view::word(size_t offset) const {
    return half(offset) | static_cast<uint32_t>(half(offset + 2)) << 16;
}

void segment_view::set_byte(size_t offset, uint8_t value) {
    if (offset >= size_)
        beyond_the_end();
    memory_[offset] = value;
}

void segment_view::set_word(size_t offset, uint32_t value) {
    for (size_t i = 0; i < sizeof(value); i++)
        set_byte(offset + i, static_cast<uint8_t>(value >> (8 * i)));
}

void segment_view::fill(size_t from, size_t to, uint8_t value) {
    for (size_t i = from; i < to; i++)
        set_byte(i, value);
}

std::vector<uint8_t> segment_view::bytes(size_t from, size_t to) const {
    std::vector<uint8_t> copy;
    for (size_t i = from; i < to; i++)
        copy.push_back(byte(i));
    return copy;
}

bool segment_view::locked() const {
    return (word(format_.lock) & 2) != 0; // glibc's flag for a write lock
}

bool segment_announces(const segment_format &format, pid_t thread) {
    const int look = open(format.path, O_RDWR | O_CLOEXEC);
    struct flock range = {};
    range.l_type = F_WRLCK;
    range.l_whence = SEEK_SET;
    range.l_start = (off_t{1} << 60) + (static_cast<off_t>(thread) << 32);
    range.l_len = off_t{1} << 32;
    const bool asked = fcntl(look, F_OFD_GETLK, &range) == 0;
    (void)close(look);
    if (!asked)
        throw std::system_error(errno, std::generic_category(), format.path);
    return range.l_type == F_RDLCK;
}

bool wait_until_blocked_on_lock(pid_t pid) {
    const std::string path = "/proc/" + std::to_string(pid) + "/syscall";
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < deadline) {
        std::ifstream file(path);
        long number = -1; // "running", or a line that begins with the number of the system call
        if (file >> number && number == SYS_futex)
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}
