// SPDX-License-Identifier: Apache-2.0
//
// Sequences of the attribute builders (ybnet/yb_net_rtnl.h, net_lib/rtnl/attributes.h) into a request of any
// size. The buffer ends where its block ends. What was built is held against a message built the plain way,
// and must parse back with libnl.
//
// Input: buffer size and length of the message (2 bytes each), whether the length is to be wild, then
// operations.
#include "net_lib/rtnl/attributes.h"

#include <netlink/attr.h>
#include <netlink/msg.h>
#include <vector>

#include "tests/fuzz/support/check.h"
#include "tests/fuzz/support/input.h"
#include "tests/fuzz/support/silent_stderr.h"

namespace {

constexpr size_t buffer_size_max = 4096;
constexpr size_t data_size = 65600; // more than any length asks for

enum operation : uint8_t { add, add_for_alias, add_number, nest_begin, nest_end, operations };

uint32_t aligned(size_t size) {
    return static_cast<uint32_t>((size + NLMSG_ALIGNTO - 1) / NLMSG_ALIGNTO * NLMSG_ALIGNTO);
}

// The message as it ought to be.
struct model {
    std::vector<uint8_t> bytes;

    bool append(int32_t room, int32_t type, const uint8_t *data, int64_t size) {
        if (size < 0 || size + NLA_HDRLEN > UINT16_MAX ||
            aligned(bytes.size()) + int64_t{aligned(static_cast<size_t>(size) + NLA_HDRLEN)} > room)
            return false;
        bytes.resize(aligned(bytes.size()));
        const nlattr header = {static_cast<uint16_t>(size + NLA_HDRLEN), static_cast<uint16_t>(type)};
        const auto *const header_bytes = reinterpret_cast<const uint8_t *>(&header);
        bytes.insert(bytes.end(), header_bytes, header_bytes + sizeof(header));
        bytes.insert(bytes.end(), data, data + size);
        bytes.resize(aligned(bytes.size()));
        put_message_length();
        return true;
    }
    void close(size_t nest) {
        const auto length = static_cast<uint16_t>(bytes.size() - nest);
        memcpy(bytes.data() + nest, &length, sizeof(length));
    }
    void put_message_length() {
        const auto length = static_cast<uint32_t>(bytes.size());
        memcpy(bytes.data(), &length, sizeof(length));
    }
};

struct open_nest {
    rtattr *position;
    size_t offset;
    bool fitted;
};

// Attributes that stand one behind the other, to the end.
void check_it_parses(const void *attributes, int size) {
    const auto *at = static_cast<const nlattr *>(attributes);
    int remaining = size;
    for (; nla_ok(at, remaining); at = nla_next(at, &remaining))
        ;
    FUZZ_CHECK(remaining == 0);
}

class request {
  public:
    request(size_t size, uint32_t length) : size_(size), block_(static_cast<uint8_t *>(calloc(1, size))) {
        model_.bytes.resize(std::min<size_t>(length, size));
        header()->nlmsg_len = length;
        model_.put_message_length();
    }
    ~request() {
        free(block_);
    }
    request(const request &) = delete;
    request &operator=(const request &) = delete;

    void apply(fuzz::input &in) {
        static const std::vector<uint8_t> data(data_size, 0xC3);
        const auto what = in.take<uint8_t>() % operations;
        const auto type = static_cast<int32_t>(in.take<uint16_t>()) - 1; // -1 too
        // Up to one 64th of the buffer is held back, as callers do who leave room for what follows.
        const auto room = static_cast<int32_t>(size_ - std::min<size_t>(in.take<uint8_t>(), size_ / 64));
        switch (what) {
        case add:
        case add_for_alias: {
            const auto length = static_cast<int32_t>(in.take<uint16_t>()) - 16; // some negative ones
            const bool fits = model_.append(room, type, data.data(), length);
            const int32_t result = what == add ? addattr_l(header(), room, type, data.data(), length)
                                               : __alias_addattr_l(header(), room, type, data.data(), length);
            FUZZ_CHECK(result == (fits ? 0 : what == add ? -1 : 1));
            break;
        }
        case add_number: {
            const auto number = in.take<uint32_t>();
            const bool fits =
                model_.append(room, type, reinterpret_cast<const uint8_t *>(&number), sizeof(number));
            FUZZ_CHECK(addattr32(header(), room, type, number) == (fits ? 0 : -1));
            break;
        }
        case nest_begin: {
            // With all of the room: an attribute that follows a nest without room must not fit either.
            const size_t offset = aligned(model_.bytes.size());
            const bool fits = model_.append(static_cast<int32_t>(size_), type, nullptr, 0);
            rtattr *const position = addattr_nest(header(), static_cast<int32_t>(size_), type);
            FUZZ_CHECK(position == reinterpret_cast<rtattr *>(block_ + offset));
            nests_.push_back({position, offset, fits});
            break;
        }
        case nest_end:
            if (nests_.empty())
                break;
            if (nests_.back().fitted)
                model_.close(nests_.back().offset);
            FUZZ_CHECK(addattr_nest_end(header(), nests_.back().position) ==
                       static_cast<int32_t>(header()->nlmsg_len));
            nests_.pop_back();
            break;
        default:
            break;
        }
    }

    void check() const {
        FUZZ_CHECK(header()->nlmsg_len == model_.bytes.size());
        FUZZ_CHECK(memcmp(block_, model_.bytes.data(), model_.bytes.size()) == 0);
        FUZZ_CHECK(std::all_of(block_ + model_.bytes.size(), block_ + size_,
                               [](uint8_t each) { return each == 0; }));
    }

    // From where the first attribute stands; nests are closed from the innermost on.
    void check_parsed(size_t first) {
        while (!nests_.empty()) {
            const open_nest nest = nests_.back();
            nests_.pop_back();
            (void)addattr_nest_end(header(), nest.position);
            if (nest.fitted)
                check_it_parses(RTA_DATA(nest.position), nest.position->rta_len - NLA_HDRLEN);
        }
        if (header()->nlmsg_len > first)
            check_it_parses(block_ + first, static_cast<int>(header()->nlmsg_len - first));
    }

    // Of a message whose length is beyond its buffer: everything is refused, and nothing written.
    void check_refusal(fuzz::input &in) {
        const uint32_t length = header()->nlmsg_len;
        const auto alen = in.take<int32_t>();
        FUZZ_CHECK(addattr_l(header(), static_cast<int32_t>(size_), 1, nullptr, alen) == -1);
        FUZZ_CHECK(__alias_addattr_l(header(), static_cast<int32_t>(size_), 1, nullptr, alen) == 1);
        FUZZ_CHECK(addattr32(header(), static_cast<int32_t>(size_), 1, 1) == -1);
        (void)addattr_nest_end(header(), addattr_nest(header(), static_cast<int32_t>(size_), 1));
        FUZZ_CHECK(header()->nlmsg_len == length);
        check_rest_is_untouched();
    }

  private:
    [[nodiscard]] nlmsghdr *header() const {
        return reinterpret_cast<nlmsghdr *>(block_);
    }
    void check_rest_is_untouched() const {
        for (size_t i = sizeof(uint32_t); i < size_; i++)
            FUZZ_CHECK(block_[i] == 0);
    }

    size_t size_;
    uint8_t *block_;
    model model_;
    std::vector<open_nest> nests_;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz::silence_stderr();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::input in(data, size);
    const size_t buffer_size =
        sizeof(nlmsghdr) + in.take<uint16_t>() % (buffer_size_max - sizeof(nlmsghdr) + 1);
    const auto spare = static_cast<uint32_t>(buffer_size - sizeof(nlmsghdr));
    const auto length = in.take<uint16_t>();
    if (in.take<uint8_t>() == 1) { // wild
        const uint32_t beyond = static_cast<uint32_t>(buffer_size) + 1 + in.take<uint32_t>();
        request wild(buffer_size, std::max(beyond, static_cast<uint32_t>(buffer_size) + 1));
        wild.check_refusal(in);
        return 0;
    }
    const uint32_t start = static_cast<uint32_t>(sizeof(nlmsghdr)) + length % (spare + 1);
    request built(buffer_size, start);
    while (!in.empty())
        built.apply(in);
    built.check();
    built.check_parsed(aligned(start));
    return 0;
}
