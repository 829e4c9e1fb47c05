// SPDX-License-Identifier: Apache-2.0
//
// The routing attribute builders: bytes appended, bounds to the byte, nothing
// written behind a buffer. What requests are built with them is
// port_netdev_test.cc's.
#include "net_lib/rtnl/attributes.h"

#include <climits>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/guarded_bytes.h"
#include "tests/support/log_lines.h"
#include "tests/support/system_calls.h"
#include "tests/support/tool_shims.h"
#include "ybnet/net_lib.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint32_t header_size = sizeof(struct nlmsghdr);

class rtnl_attributes : public testing::Test {
  protected:
    static constexpr int32_t capacity = 64;
    static constexpr uint8_t untouched = 0xEE;

    rtnl_attributes() : buffer_(capacity) {
        platform::reset();
        calls::reset();
        memset(buffer_.data(), untouched, capacity);
        n = reinterpret_cast<struct nlmsghdr *>(buffer_.data());
        *n = {};
        n->nlmsg_len = header_size;
    }

    std::vector<uint8_t> bytes(uint32_t from, uint32_t to) {
        return {buffer_.data() + from, buffer_.data() + to};
    }
    std::vector<uint8_t> everything() {
        return bytes(0, capacity);
    }
    struct rtattr *attribute_at(uint32_t offset) {
        return reinterpret_cast<struct rtattr *>(buffer_.data() + offset);
    }
    static std::vector<logged> exceeded(const std::string &bound) {
        return {error_line("addattr_l ERROR: message exceeded bound of " + bound + "\n")};
    }

    // The attribute is refused: result, message and buffer unchanged, one line.
    void expect_refused(int32_t maxlen, int32_t alen) {
        const std::vector<uint8_t> before = everything();
        platform::reset();
        const uint8_t data[capacity] = {};
        EXPECT_EQ(-1, addattr_l(n, maxlen, 7, data, alen)) << "maxlen " << maxlen << " alen " << alen;
        EXPECT_EQ(before, everything()) << "maxlen " << maxlen << " alen " << alen;
        EXPECT_EQ(exceeded(std::to_string(maxlen)), logged_lines());
    }

    struct nlmsghdr *n;

  private:
    guarded_bytes buffer_;
};

} // namespace

TEST_F(rtnl_attributes, attribute_is_header_and_data_and_padding_is_not_written) {
    EXPECT_EQ(0, addattr_l(n, capacity, 0x0103, "abcde", 5));
    EXPECT_EQ(header_size + 12, n->nlmsg_len);
    EXPECT_THAT(bytes(header_size, header_size + 14),
                ElementsAre(9, 0, 3, 1, 'a', 'b', 'c', 'd', 'e', untouched, untouched, untouched, untouched,
                            untouched));
    EXPECT_THAT(logged_lines(), IsEmpty());
}

TEST_F(rtnl_attributes, attribute_starts_at_the_aligned_end_of_the_message) {
    n->nlmsg_len = header_size + 1;
    EXPECT_EQ(0, addattr_l(n, capacity, 1, "x", 1));
    EXPECT_THAT(bytes(header_size, header_size + 9),
                ElementsAre(untouched, untouched, untouched, untouched, 5, 0, 1, 0, 'x'));
    EXPECT_EQ(header_size + 12, n->nlmsg_len);
}

TEST_F(rtnl_attributes, empty_attribute_needs_no_data) {
    EXPECT_EQ(0, addattr_l(n, capacity, 2, nullptr, 0));
    EXPECT_THAT(bytes(header_size, header_size + 5), ElementsAre(4, 0, 2, 0, untouched));
    EXPECT_EQ(header_size + 4, n->nlmsg_len);
}

TEST_F(rtnl_attributes, number_is_appended_in_host_byte_order) {
    const uint32_t value = 0x01020304;
    EXPECT_EQ(0, addattr32(n, capacity, 9, value));
    EXPECT_THAT(bytes(header_size, header_size + 4), ElementsAre(8, 0, 9, 0));
    EXPECT_EQ(0, memcmp(attribute_at(header_size + 4), &value, sizeof(value)));
    EXPECT_EQ(header_size + 8, n->nlmsg_len);
}

TEST_F(rtnl_attributes, exact_fit_succeeds_and_one_byte_more_fails) {
    const uint8_t data[capacity] = {};
    expect_refused(capacity, capacity - static_cast<int32_t>(header_size) - 4 + 1); // one byte of data more
    expect_refused(header_size + 4 + 8 - 1, 8);                                     // one byte of room less
    expect_refused(header_size + 4 + 8 - 1, 5);                                     // the padding counts
    EXPECT_EQ(0, addattr_l(n, capacity, 7, data, capacity - static_cast<int32_t>(header_size) - 4));
    EXPECT_EQ(static_cast<uint32_t>(capacity), n->nlmsg_len);
    expect_refused(capacity, 0); // full
}

TEST_F(rtnl_attributes, exact_fit_behind_an_unaligned_message_counts_the_aligned_length) {
    n->nlmsg_len = header_size + 3;
    expect_refused(header_size + 4 + 8 - 1, 4);
    EXPECT_EQ(0, addattr_l(n, header_size + 4 + 8, 7, "abcd", 4));
    EXPECT_EQ(header_size + 12, n->nlmsg_len);
}

TEST_F(rtnl_attributes, number_that_does_not_fit_is_refused_with_the_same_line) {
    EXPECT_EQ(-1, addattr32(n, header_size + 7, 9, 1));
    EXPECT_EQ(header_size, n->nlmsg_len);
    EXPECT_EQ(exceeded("23"), logged_lines());
    EXPECT_EQ(0, addattr32(n, header_size + 8, 9, 1));
}

TEST_F(rtnl_attributes, negative_length_appends_nothing) {
    for (const int32_t alen : {-1, -3, -4, -5, -8, -1000, INT_MIN, INT_MIN + 3})
        expect_refused(capacity, alen);
    for (const int32_t alen : {-4, -5, INT_MIN})
        expect_refused(INT_MAX, alen);
}

TEST_F(rtnl_attributes, length_near_the_limits_does_not_wrap_into_fitting) {
    for (const int32_t alen : {INT_MAX, INT_MAX - 1, INT_MAX - 3, INT_MAX - 7})
        expect_refused(capacity, alen);
}

TEST_F(rtnl_attributes, length_that_16_bits_cannot_hold_is_refused) {
    expect_refused(INT_MAX, UINT16_MAX - 4 + 1);
    guarded_bytes large(header_size + UINT16_MAX + 1);
    auto *const message = reinterpret_cast<struct nlmsghdr *>(large.data());
    message->nlmsg_len = header_size;
    const std::vector<uint8_t> data(UINT16_MAX - 4, 0x5A);
    EXPECT_EQ(0, addattr_l(message, INT_MAX, 7, data.data(), UINT16_MAX - 4));
    EXPECT_EQ(header_size + UINT16_MAX + 1, message->nlmsg_len);
    EXPECT_EQ(0xFF, large.data()[header_size]);
    EXPECT_EQ(0xFF, large.data()[header_size + 1]);
    EXPECT_EQ(0x5A, large.data()[header_size + UINT16_MAX - 1]);
    EXPECT_EQ(0, large.data()[header_size + UINT16_MAX]); // padding
}

TEST_F(rtnl_attributes, huge_message_length_does_not_wrap_into_fitting) {
    for (const uint32_t length :
         {0xFFFFFFFFu, 0xFFFFFFFDu, 0xFFFFFFFCu, 0xFFFFFFF0u, 0x80000000u, 0x7FFFFFFFu}) {
        n->nlmsg_len = length;
        expect_refused(capacity, 0);
        expect_refused(INT_MAX, 8);
    }
}

TEST_F(rtnl_attributes, bound_of_nothing_or_less_is_always_exceeded) {
    for (const int32_t maxlen : {0, -1, INT_MIN})
        expect_refused(maxlen, 0);
}

TEST_F(rtnl_attributes, verbosity_0_silences_the_line_not_the_refusal) {
    uint32_t level = 0;
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_log_verbosity_level(YB_ACCESS_CMD_SET, &level));
    EXPECT_EQ(-1, addattr_l(n, 1, 7, "", 0));
    EXPECT_THAT(logged_lines(), IsEmpty());
    level = 3;
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_log_verbosity_level(YB_ACCESS_CMD_SET, &level));
}

// ---- Nests ------------------------------------------------------------------

TEST_F(rtnl_attributes, nest_is_an_empty_attribute_without_the_nested_flag) {
    struct rtattr *const nest = addattr_nest(n, capacity, 18);
    EXPECT_EQ(attribute_at(header_size), nest);
    EXPECT_THAT(bytes(header_size, header_size + 5), ElementsAre(4, 0, 18, 0, untouched));
    EXPECT_EQ(header_size + 4, n->nlmsg_len);
}

TEST_F(rtnl_attributes, nest_without_children_has_length_4) {
    struct rtattr *const nest = addattr_nest(n, capacity, 18);
    EXPECT_EQ(static_cast<int32_t>(header_size + 4), addattr_nest_end(n, nest));
    EXPECT_EQ(4, nest->rta_len);
    EXPECT_EQ(header_size + 4, n->nlmsg_len);
}

TEST_F(rtnl_attributes, nests_end_behind_all_that_was_appended_since) {
    struct rtattr *const outer = addattr_nest(n, capacity, 1);
    addattr_l(n, capacity, 2, "abc", 3);
    struct rtattr *const inner = addattr_nest(n, capacity, 3);
    addattr32(n, capacity, 4, 5);
    EXPECT_EQ(static_cast<int32_t>(header_size + 24), addattr_nest_end(n, inner));
    EXPECT_EQ(static_cast<int32_t>(header_size + 24), addattr_nest_end(n, outer));
    EXPECT_EQ(attribute_at(header_size + 12), inner);
    EXPECT_EQ(4 + 8, inner->rta_len);
    EXPECT_EQ(4 + 8 + 4 + 8, outer->rta_len);
}

TEST_F(rtnl_attributes, nest_ends_at_the_aligned_end_of_an_unaligned_message) {
    struct rtattr *const nest = addattr_nest(n, capacity, 1);
    n->nlmsg_len += 5;
    EXPECT_EQ(static_cast<int32_t>(header_size + 9), addattr_nest_end(n, nest)); // as it is, not aligned
    EXPECT_EQ(12, nest->rta_len);
}

TEST_F(rtnl_attributes, nest_that_did_not_fit_is_returned_and_its_end_writes_nothing) {
    n->nlmsg_len = capacity; // the nest would lie on the page that cannot be touched
    const std::vector<uint8_t> before = everything();
    struct rtattr *const nest = addattr_nest(n, capacity, 18);
    EXPECT_EQ(attribute_at(capacity), nest);
    EXPECT_EQ(exceeded("64"), logged_lines());
    EXPECT_EQ(capacity, addattr_nest_end(n, nest));
    EXPECT_EQ(before, everything());
}

TEST_F(rtnl_attributes, nest_in_a_message_of_nonsense_length_writes_nothing) {
    for (const uint32_t length : {0xFFFFFFFFu, 0xFFFFFFF0u}) {
        n->nlmsg_len = length;
        const std::vector<uint8_t> before = everything();
        EXPECT_EQ(static_cast<int32_t>(length), addattr_nest_end(n, addattr_nest(n, capacity, 18)));
        EXPECT_EQ(before, everything());
    }
}

// ---- The alias request's appender -------------------------------------------

TEST_F(rtnl_attributes, alias_appender_lays_out_the_same_bytes) {
    EXPECT_EQ(0, __alias_addattr_l(n, header_size + 12, 0x0103, "abcde", 5));
    const std::vector<uint8_t> alias = everything();
    n->nlmsg_len = header_size;
    EXPECT_EQ(0, addattr_l(n, header_size + 12, 0x0103, "abcde", 5));
    EXPECT_EQ(everything(), alias);
}

TEST_F(rtnl_attributes, alias_appender_says_on_standard_error_that_it_does_not_fit) {
    const std::vector<uint8_t> before = everything();
    stderr_capture captured;
    EXPECT_EQ(1, __alias_addattr_l(n, header_size + 11, 3, "abcde", 5));
    EXPECT_EQ("addattr_l ERROR: message exceeded bound of 27\n", captured.text());
    EXPECT_EQ(1, __alias_addattr_l(n, capacity, 3, "abcde", -1));
    EXPECT_EQ(before, everything());
    EXPECT_THAT(logged_lines(), IsEmpty());
}
