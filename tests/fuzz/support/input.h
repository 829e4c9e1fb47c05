// SPDX-License-Identifier: Apache-2.0
//
// A fuzzer's input read from its front, value by value, so that the files of the corpus can be written by
// hand. Behind the end everything is zero: no input is too short.
#ifndef YBNET_TESTS_FUZZ_INPUT_H
#define YBNET_TESTS_FUZZ_INPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <type_traits>

namespace fuzz {

class input {
  public:
    input() = default;
    input(const uint8_t *data, size_t size) : rest_(data, size) {}

    [[nodiscard]] bool empty() const {
        return rest_.empty();
    }

    // At most this many bytes.
    std::span<const uint8_t> take_bytes(size_t size) {
        const std::span<const uint8_t> taken = rest_.first(std::min(size, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return taken;
    }

    input take_part(size_t size) {
        const std::span<const uint8_t> part = take_bytes(size);
        return {part.data(), part.size()};
    }

    // A number or a structure without padding, little-endian.
    template <typename value_t> value_t take() {
        static_assert(std::is_trivially_copyable_v<value_t>);
        value_t value = {};
        const std::span<const uint8_t> bytes = take_bytes(sizeof(value));
        if (!bytes.empty())
            memcpy(&value, bytes.data(), bytes.size());
        return value;
    }

    // A length in one byte and that many characters, ended by the first NUL among them: in a block of its
    // own, so that nothing behind it can be read unseen.
    std::unique_ptr<char[]> take_text() {
        const std::span<const uint8_t> bytes = take_bytes(take<uint8_t>());
        const std::string text(bytes.begin(), std::find(bytes.begin(), bytes.end(), 0));
        auto copy = std::make_unique<char[]>(text.size() + 1);
        memcpy(copy.get(), text.c_str(), text.size() + 1);
        return copy;
    }

  private:
    std::span<const uint8_t> rest_;
};

// The bytes at an odd address, with nothing behind them: what reads a received datagram may count on neither.
class misaligned_copy {
  public:
    misaligned_copy(const uint8_t *data, size_t size) : bytes_(std::make_unique<uint8_t[]>(size + 1)) {
        if (size != 0)
            memcpy(bytes_.get() + 1, data, size);
    }
    [[nodiscard]] const void *data() const {
        return bytes_.get() + 1;
    }

  private:
    std::unique_ptr<uint8_t[]> bytes_;
};

} // namespace fuzz

#endif
