// SPDX-License-Identifier: Apache-2.0
//
// The walk over datagrams of a link dump, with right bytes and wrong ones, each
// before a page that cannot be read.
#include "net_lib/link_dump.h"

#include <cerrno>
#include <gtest/gtest.h>

#include "tests/unit/netlink_bytes.h"

namespace {

constexpr int wanted = 7;

link_dump walk(const byte_vector &datagram, link_dump dump = {}) {
    const guarded_bytes bytes(datagram);
    link_dump_walk(bytes.data(), bytes.size(), wanted, &dump);
    return dump;
}

// What a walk says that has not come across anything that matters.
void expect_nothing(const link_dump &dump) {
    EXPECT_FALSE(dump.done);
    EXPECT_FALSE(dump.found);
    EXPECT_FALSE(dump.failed);
}

void expect_found(const link_dump &dump, uint32_t state) {
    EXPECT_TRUE(dump.found);
    EXPECT_TRUE(dump.done);
    EXPECT_FALSE(dump.failed);
    EXPECT_EQ(dump.state, state);
}

byte_vector cut(byte_vector bytes, size_t size) {
    bytes.resize(size);
    return bytes;
}

} // namespace

TEST(link_dump_walk, finds_a_link_that_is_up_or_down_by_iff_up_alone) {
    expect_found(walk(named_link(wanted, IFF_UP)), 1);
    expect_found(walk(named_link(wanted, 0xFFFFFFFF)), 1);
    expect_found(walk(named_link(wanted, ~uint32_t{IFF_UP})), 0);
    expect_found(walk(named_link(wanted, 0)), 0);
}

TEST(link_dump_walk, finds_the_link_among_others) {
    expect_found(walk(padded(named_link(1, 0)) + padded(named_link(wanted, IFF_UP)) + named_link(8, 0)), 1);
}

TEST(link_dump_walk, finds_a_name_behind_other_attributes) {
    const byte_vector attributes = attribute(IFLA_MTU, bytes_of(uint32_t{1500})) +
                                   attribute(IFLA_QDISC, text_bytes("noqueue")) + attribute(IFLA_MAP, {}) +
                                   attribute(IFLA_IFNAME, text_bytes("x"));
    expect_found(walk(message(RTM_NEWLINK, link_header(wanted, IFF_UP) + attributes)), 1);
}

TEST(link_dump_walk, passes_over_a_link_without_a_name) {
    expect_nothing(walk(message(RTM_NEWLINK, link_header(wanted, IFF_UP))));
    expect_nothing(walk(
        message(RTM_NEWLINK, link_header(wanted, IFF_UP) + attribute(IFLA_MTU, bytes_of(uint32_t{1500})))));
}

TEST(link_dump_walk, passes_over_other_links_and_other_messages) {
    expect_nothing(walk(named_link(8, IFF_UP)));
    expect_nothing(
        walk(message(RTM_DELLINK, link_header(wanted, IFF_UP) + attribute(IFLA_IFNAME, text_bytes("link")))));
    expect_nothing(walk(message(NLMSG_NOOP, {})));
}

TEST(link_dump_walk, ends_with_done_and_without_the_link) {
    const link_dump dump = walk(padded(named_link(8, IFF_UP)) + done_message());
    EXPECT_TRUE(dump.done);
    EXPECT_FALSE(dump.found);
    EXPECT_FALSE(dump.failed);
}

TEST(link_dump_walk, takes_an_error_in_done_for_a_failed_dump) {
    for (const int32_t error : {-EMSGSIZE, INT32_MIN}) {
        const link_dump dump = walk(padded(named_link(8, IFF_UP)) + message(NLMSG_DONE, bytes_of(error)));
        EXPECT_TRUE(dump.done);
        EXPECT_TRUE(dump.failed);
        EXPECT_FALSE(dump.found);
        EXPECT_EQ(dump.reason, error == -EMSGSIZE ? EMSGSIZE : INT32_MIN);
    }
}

TEST(link_dump_walk, takes_other_payloads_of_done_for_its_end) {
    for (const byte_vector &payload : {bytes_of(int32_t{5}), byte_vector(3, 0xFF), byte_vector()}) {
        const link_dump dump = walk(message(NLMSG_DONE, payload));
        EXPECT_TRUE(dump.done);
        EXPECT_FALSE(dump.failed);
    }
}

TEST(link_dump_walk, keeps_a_link_that_came_before_the_dump_was_broken_off) {
    expect_found(walk(padded(named_link(wanted, IFF_UP)) + message(NLMSG_DONE, bytes_of(-EMSGSIZE))), 1);
}

TEST(link_dump_walk, goes_on_behind_done_and_behind_a_match) {
    expect_found(walk(padded(done_message()) + named_link(wanted, IFF_UP)), 1);
    expect_found(walk(padded(named_link(wanted, IFF_UP)) + named_link(wanted, 0)), 0); // the last one counts
}

TEST(link_dump_walk, keeps_what_earlier_datagrams_said) {
    expect_found(walk(named_link(8, 0), walk(named_link(wanted, IFF_UP))), 1);
}

TEST(link_dump_walk, takes_an_error_answer_for_a_failed_dump) {
    const link_dump dump = walk(error_message(-EPERM));
    EXPECT_TRUE(dump.failed);
    EXPECT_TRUE(dump.done);
    EXPECT_EQ(dump.reason, EPERM);
}

TEST(link_dump_walk, takes_an_error_answer_with_the_strangest_number) {
    EXPECT_TRUE(walk(error_message(INT32_MIN)).failed);
    EXPECT_TRUE(walk(error_message(EPERM)).failed);
}

TEST(link_dump_walk, passes_over_an_acknowledgement) {
    expect_nothing(walk(error_message(0)));
}

TEST(link_dump_walk, takes_an_error_answer_too_short_for_its_number_for_a_failed_dump) {
    for (const size_t size : {0u, 3u}) {
        const link_dump dump = walk(message(NLMSG_ERROR, byte_vector(size, 0)));
        EXPECT_TRUE(dump.failed) << size;
        EXPECT_EQ(dump.reason, EPROTO) << size;
    }
}

TEST(link_dump_walk, stops_at_a_message_length_that_does_not_fit) {
    const byte_vector behind = named_link(wanted, IFF_UP);
    for (const uint32_t length :
         {1u, 15u, 5000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFF0u, 0xFFFFFFFDu, 0xFFFFFFFFu})
        expect_nothing(walk(message(NLMSG_NOOP, {}, length) + behind));
    expect_nothing(walk(byte_vector(16, 0) + behind)); // length 0
}

TEST(link_dump_walk, stops_where_the_buffer_cut_the_datagram) {
    const byte_vector whole = padded(named_link(8, 0)) + named_link(wanted, IFF_UP);
    for (size_t size = 0; size < whole.size(); size++)
        expect_nothing(walk(cut(whole, size)));
    expect_found(walk(whole), 1);
}

TEST(link_dump_walk, ends_behind_a_last_message_without_its_padding) {
    for (size_t odd = 1; odd < 4; odd++) {
        const link_dump dump =
            walk(padded(named_link(wanted, IFF_UP)) + message(NLMSG_NOOP, byte_vector(odd, 1)));
        expect_found(dump, 1);
    }
}

TEST(link_dump_walk, stops_at_an_attribute_length_that_does_not_fit) {
    const byte_vector name = attribute(IFLA_IFNAME, text_bytes("link"));
    for (const uint16_t length : std::vector<uint16_t>{0, 1, 2, 3, 17, 200, 0xFFFC, 0xFFFD, 0xFFFE}) {
        const byte_vector lying = attribute(IFLA_MTU, {}, length);
        expect_nothing(walk(message(RTM_NEWLINK, link_header(wanted, IFF_UP) + lying + name)));
    }
}

TEST(link_dump_walk, stops_at_a_name_whose_length_does_not_fit) {
    for (const uint16_t length : std::vector<uint16_t>{0, 3, 13, 0xFFFE}) {
        const byte_vector lying = attribute(IFLA_IFNAME, text_bytes("abc"), length);
        expect_nothing(walk(message(RTM_NEWLINK, link_header(wanted, IFF_UP) + lying)));
    }
}

TEST(link_dump_walk, takes_an_attribute_from_its_own_message_only) {
    // The message ends within the name; what makes it whole lies in the next one.
    const byte_vector name = attribute(IFLA_IFNAME, text_bytes("abcdefg"));
    for (uint32_t inside = 0; inside < 12; inside++) {
        byte_vector bytes = message(RTM_NEWLINK, link_header(wanted, IFF_UP) + name, 32 + inside);
        expect_nothing(walk(bytes));
    }
}

TEST(link_dump_walk, passes_over_a_link_message_too_short_for_its_fields) {
    const byte_vector whole = link_header(wanted, IFF_UP);
    for (size_t size = 0; size < whole.size(); size++)
        expect_nothing(walk(message(RTM_NEWLINK, cut(whole, size))));
}

TEST(link_dump_walk, ends_behind_a_last_attribute_without_its_padding) {
    for (uint16_t odd = 1; odd < 4; odd++) {
        const byte_vector bytes = link_header(wanted, IFF_UP) +
                                  bytes_of(rtattr{static_cast<uint16_t>(4 + odd), IFLA_MTU}) +
                                  byte_vector(odd, 1);
        expect_nothing(walk(message(RTM_NEWLINK, bytes)));
    }
}
