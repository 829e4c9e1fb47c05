// SPDX-License-Identifier: Apache-2.0
//
// Netlink datagrams made by hand, right and wrong ones, and a place to put them
// where a read behind their end does not go unnoticed.
#ifndef YBNET_TESTS_NETLINK_BYTES_H
#define YBNET_TESTS_NETLINK_BYTES_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

using byte_vector = std::vector<uint8_t>;

template <typename value_t> byte_vector bytes_of(const value_t &value) {
    byte_vector bytes(sizeof(value));
    memcpy(bytes.data(), &value, sizeof(value));
    return bytes;
}

inline byte_vector operator+(byte_vector left, const byte_vector &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline byte_vector padded(byte_vector bytes) {
    bytes.resize((bytes.size() + 3) & ~size_t{3});
    return bytes;
}

// A message with the given payload; length 0 means the right one. Not padded.
inline byte_vector message(uint16_t type, const byte_vector &payload, uint32_t length = 0) {
    struct nlmsghdr header = {};
    header.nlmsg_len = length != 0 ? length : static_cast<uint32_t>(sizeof(header) + payload.size());
    header.nlmsg_type = type;
    return bytes_of(header) + payload;
}

inline byte_vector link_header(int index, uint32_t flags, uint32_t change = 0) {
    struct ifinfomsg link = {};
    link.ifi_index = index;
    link.ifi_flags = flags;
    link.ifi_change = change;
    return bytes_of(link);
}

// An attribute with the given payload, padded; length 0xFFFF means the right one.
inline byte_vector attribute(uint16_t type, const byte_vector &payload, uint16_t length = 0xFFFF) {
    const struct rtattr header = {
        length != 0xFFFF ? length : static_cast<uint16_t>(sizeof(struct rtattr) + payload.size()), type};
    return padded(bytes_of(header) + payload);
}

inline byte_vector text_bytes(const std::string &text) {
    byte_vector bytes(text.begin(), text.end());
    bytes.push_back(0);
    return bytes;
}

// A link as the kernel's dump has it: with a name.
inline byte_vector named_link(int index, uint32_t flags) {
    return message(RTM_NEWLINK, link_header(index, flags) + attribute(IFLA_IFNAME, text_bytes("link")));
}

inline byte_vector done_message() {
    return message(NLMSG_DONE, bytes_of(int32_t{0}));
}

inline byte_vector error_message(int32_t error) {
    struct nlmsgerr answer = {};
    answer.error = error;
    return message(NLMSG_ERROR, bytes_of(answer));
}

// The bytes right before a page that cannot be touched: reading one byte too many ends the program.
class guarded_bytes {
  public:
    explicit guarded_bytes(const byte_vector &bytes)
        : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))), span_((bytes.size() / page_ + 2) * page_),
          size_(bytes.size()) {
        void *const memory = mmap(nullptr, span_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED)
            abort();
        memory_ = static_cast<uint8_t *>(memory);
        if (mprotect(memory_ + span_ - page_, page_, PROT_NONE) != 0)
            abort();
        if (!bytes.empty())
            memcpy(memory_ + span_ - page_ - size_, bytes.data(), size_);
    }
    ~guarded_bytes() {
        (void)munmap(memory_, span_);
    }
    guarded_bytes(const guarded_bytes &) = delete;
    guarded_bytes &operator=(const guarded_bytes &) = delete;

    const uint8_t *data() const {
        return memory_ + span_ - page_ - size_;
    }
    size_t size() const {
        return size_;
    }

  private:
    size_t page_;
    size_t span_;
    size_t size_;
    uint8_t *memory_;
};

#endif
