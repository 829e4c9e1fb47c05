// SPDX-License-Identifier: Apache-2.0
//
// The ports database as its rules describe it, acting on plain bytes: no header
// of the library, no structure, only offsets. What the library leaves in the
// segment, returns and logs is compared with what this does.
#ifndef YBNET_TESTS_PORT_MODEL_H
#define YBNET_TESTS_PORT_MODEL_H

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

class port_model {
  public:
    static constexpr size_t record_size = 72;
    static constexpr size_t body_size = 5772704; // of the segment, up to its trailer

    using record = std::array<uint8_t, record_size>;
    using message = std::pair<uint32_t, std::string>; // severity and text
    using hash = std::function<uint16_t(uint32_t)>;

    explicit port_model(hash hash_of_key);

    // Each returns the status; said() then has what is logged at a verbosity of INFO.
    uint32_t set(uint32_t key, const record &given);
    uint32_t remove(uint32_t key);
    uint32_t get(uint32_t key, record *out);
    uint32_t lag_set(uint32_t key, uint32_t log_port);
    uint32_t log_port_get(uint32_t log_port, uint32_t *out);
    uint32_t lag_get(uint32_t mlag_id, uint32_t *out);
    uint32_t mlag_get(uint32_t log_port, uint16_t *out);
    // out NULL: counts only.
    uint32_t get_all(uint32_t protocol, std::vector<record> *out, uint32_t *size);

    // What a load that erases does.
    void initialize();
    // Goes on from these body_size bytes.
    void adopt(std::vector<uint8_t> body);
    // Goes on with this byte changed.
    void overwrite(size_t offset, uint8_t value) {
        body_.at(offset) = value;
    }

    const std::vector<uint8_t> &body() const {
        return body_;
    }
    const std::vector<message> &said() const {
        return said_;
    }

  private:
    struct found {
        uint32_t status;
        uint32_t bucket;
    };
    found search(uint32_t key);

    uint32_t word(size_t offset) const;
    uint32_t half(size_t offset) const;
    void put_word(size_t offset, uint32_t value);
    void put_half(size_t offset, uint32_t value);
    void say(uint32_t severity, const char *format, ...) __attribute__((format(printf, 3, 4)));

    hash hash_of_key_;
    std::vector<uint8_t> body_;
    std::vector<message> said_;
};

#endif
