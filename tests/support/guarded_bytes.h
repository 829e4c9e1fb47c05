// SPDX-License-Identifier: Apache-2.0
//
// Bytes in front of a page that cannot be touched: whoever reads or writes
// behind them crashes.
#ifndef YBNET_TESTS_GUARDED_BYTES_H
#define YBNET_TESTS_GUARDED_BYTES_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sys/mman.h>

class guarded_bytes {
  public:
    // Starts aligned to 4, so up to 3 bytes behind an odd size can be touched unnoticed.
    explicit guarded_bytes(size_t size) {
        const size_t room = (size + page - 1) / page * page;
        whole_ = room + page;
        memory_ = static_cast<uint8_t *>(
            mmap(nullptr, whole_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        if (memory_ == MAP_FAILED || mprotect(memory_ + room, page, PROT_NONE) != 0) {
            perror("guarded_bytes");
            abort();
        }
        bytes_ = memory_ + room - (size + 3) / 4 * 4;
    }
    ~guarded_bytes() {
        (void)munmap(memory_, whole_);
    }
    guarded_bytes(const guarded_bytes &) = delete;
    guarded_bytes &operator=(const guarded_bytes &) = delete;

    uint8_t *data() {
        return bytes_;
    }

  private:
    static constexpr size_t page = 4096;
    uint8_t *memory_ = nullptr;
    uint8_t *bytes_ = nullptr;
    size_t whole_ = 0;
};

#endif
