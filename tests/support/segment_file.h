// SPDX-License-Identifier: Apache-2.0
//
// A shared-memory segment seen from outside: as the file under /dev/shm, by byte
// offset, not through the library's structures. Offsets and sizes are written out
// here once more, so that a moved field is noticed.
#ifndef YBNET_TESTS_SEGMENT_FILE_H
#define YBNET_TESTS_SEGMENT_FILE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

// What is fixed about a segment.
struct segment_format {
    const char *path;
    size_t size;
    size_t lock; // offset of the trailer, which begins with the 56 bytes of the lock

    size_t lock_state() const {
        return lock + 56;
    }
    size_t marker() const {
        return lock + 64;
    }
    size_t user_count() const {
        return lock + 68;
    }
    size_t size_check() const {
        return lock + 72;
    }
};

constexpr segment_format interfaces_format = {"/dev/shm/net_lib_ifc", 475216, 0x74000};
constexpr segment_format ports_format = {"/dev/shm/net_lib_port", 5772784, 0x5815A0};

bool segment_exists(const segment_format &format);
void segment_remove(const segment_format &format);
std::vector<uint8_t> segment_bytes(const segment_format &format);
// Makes a file of this many zero bytes, as an interrupted or a foreign creator leaves it.
void segment_make(const segment_format &format, size_t size);

// Whether a thread stands announced on the file, in any PID namespace, as a description sees it that announced nothing.
bool segment_announces(const segment_format &format, pid_t thread);

// A mapping of the file: goes on living when the file's name is gone.
class segment_view {
  public:
    explicit segment_view(const segment_format &format);
    ~segment_view();
    segment_view(const segment_view &) = delete;
    segment_view &operator=(const segment_view &) = delete;

    uint8_t byte(size_t offset) const;
    uint16_t half(size_t offset) const;
    uint32_t word(size_t offset) const;
    void set_byte(size_t offset, uint8_t value);
    void set_word(size_t offset, uint32_t value);
    void fill(size_t from, size_t to, uint8_t value);
    std::vector<uint8_t> bytes(size_t from, size_t to) const;

    uint32_t user_count() const {
        return word(format_.user_count());
    }
    // Whether any thread of any process holds the lock.
    bool locked() const;

  private:
    segment_format format_;
    volatile uint8_t *memory_; // other processes change it
    size_t size_;
};

// Waits until the process sleeps in a futex, as it does when it waits for a lock; false when it never does.
bool wait_until_blocked_on_lock(pid_t pid);

#endif
