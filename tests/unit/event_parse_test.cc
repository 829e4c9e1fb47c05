// SPDX-License-Identifier: Apache-2.0
//
// The parser of one event datagram, with right bytes and wrong ones. Each lies
// before a page that cannot be read.
#include "net_lib/event_parse.h"

#include <gtest/gtest.h>

#include "tests/unit/netlink_bytes.h"
#include "ybnet/yb_net_event.h"

namespace {

constexpr uint32_t untouched = 77;

struct parsed {
    bool whole;
    link_event event;
};

parsed parse(const byte_vector &datagram) {
    const guarded_bytes bytes(datagram);
    parsed result = {false, {untouched, untouched}};
    result.whole = link_event_parse(bytes.data(), bytes.size(), &result.event);
    return result;
}

uint32_t type_of(uint16_t message_type, uint32_t flags, uint32_t change) {
    const parsed result = parse(message(message_type, link_header(5, flags, change)));
    EXPECT_TRUE(result.whole);
    return result.event.event_type;
}

byte_vector cut(byte_vector bytes, size_t size) {
    bytes.resize(size);
    return bytes;
}

} // namespace

TEST(event_parse, change_mask_with_up_and_flag_set_is_up) {
    EXPECT_EQ(type_of(RTM_NEWLINK, IFF_UP, IFF_UP), uint32_t{YB_NET_IF_EVENT_LINK_UP});
}

TEST(event_parse, change_mask_with_only_running_and_up_set_is_up) {
    EXPECT_EQ(type_of(RTM_NEWLINK, IFF_UP, 0x40), uint32_t{YB_NET_IF_EVENT_LINK_UP});
}

TEST(event_parse, change_mask_with_up_or_running_and_up_clear_is_down) {
    EXPECT_EQ(type_of(RTM_NEWLINK, ~uint32_t{IFF_UP}, IFF_UP), uint32_t{YB_NET_IF_EVENT_LINK_DOWN});
    EXPECT_EQ(type_of(RTM_NEWLINK, IFF_RUNNING, IFF_RUNNING), uint32_t{YB_NET_IF_EVENT_LINK_DOWN});
    EXPECT_EQ(type_of(RTM_NEWLINK, 0, 0xFFFFFFFF), uint32_t{YB_NET_IF_EVENT_LINK_DOWN});
}

TEST(event_parse, change_mask_without_up_and_running_is_a_change) {
    EXPECT_EQ(type_of(RTM_NEWLINK, IFF_UP, 0), uint32_t{YB_NET_IF_EVENT_LINK_CHANGE});
    EXPECT_EQ(type_of(RTM_NEWLINK, 0, ~uint32_t{0x41}), uint32_t{YB_NET_IF_EVENT_LINK_CHANGE});
}

TEST(event_parse, deletion_is_deleted_whatever_the_flags_say) {
    EXPECT_EQ(type_of(RTM_DELLINK, IFF_UP, 0xFFFFFFFF), uint32_t{YB_NET_IF_EVENT_LINK_DELETED});
    EXPECT_EQ(type_of(RTM_DELLINK, 0, 0), uint32_t{YB_NET_IF_EVENT_LINK_DELETED});
}

TEST(event_parse, message_of_another_kind_is_none_without_an_ifindex) {
    const std::vector<uint16_t> types = {RTM_NEWADDR, RTM_GETLINK, RTM_SETLINK,
                                         NLMSG_DONE,  NLMSG_ERROR, NLMSG_NOOP};
    for (const uint16_t type : types) {
        const parsed result = parse(message(type, link_header(5, IFF_UP, IFF_UP)));
        EXPECT_TRUE(result.whole);
        EXPECT_EQ(result.event.event_type, uint32_t{YB_NET_IF_EVENT_NONE}) << type;
        EXPECT_EQ(result.event.linux_ifindex, 0u) << type;
    }
}

TEST(event_parse, ifindex_is_the_messages) {
    EXPECT_EQ(parse(message(RTM_NEWLINK, link_header(0x12345678, 0))).event.linux_ifindex, 0x12345678u);
    EXPECT_EQ(parse(message(RTM_DELLINK, link_header(-1, 0))).event.linux_ifindex, 0xFFFFFFFFu);
}

TEST(event_parse, only_the_first_message_counts) {
    const parsed result =
        parse(message(RTM_DELLINK, link_header(5, 0)) + message(RTM_NEWLINK, link_header(6, IFF_UP, IFF_UP)));
    EXPECT_EQ(result.event.event_type, uint32_t{YB_NET_IF_EVENT_LINK_DELETED});
    EXPECT_EQ(result.event.linux_ifindex, 5u);
}

TEST(event_parse, datagram_shorter_than_a_header_is_no_message) {
    const byte_vector whole = message(RTM_NEWLINK, link_header(5, IFF_UP, IFF_UP));
    for (size_t size = 0; size < 16; size++) {
        const parsed result = parse(cut(whole, size));
        EXPECT_FALSE(result.whole) << size;
        EXPECT_EQ(result.event.event_type, untouched) << size;
        EXPECT_EQ(result.event.linux_ifindex, untouched) << size;
    }
}

TEST(event_parse, length_below_the_header_is_no_message) {
    for (const uint32_t length : {1u, 4u, 15u})
        EXPECT_FALSE(parse(message(RTM_NEWLINK, link_header(5, 0), length)).whole) << length;
    EXPECT_FALSE(parse(byte_vector(32, 0)).whole); // length 0
}

TEST(event_parse, length_behind_the_datagram_is_no_message) {
    for (const uint32_t length : {33u, 36u, 8192u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu})
        EXPECT_FALSE(parse(message(RTM_NEWLINK, link_header(5, 0), length)).whole) << length;
}

TEST(event_parse, datagram_cut_by_the_buffer_is_no_message) {
    const byte_vector whole = message(RTM_NEWLINK, link_header(5, IFF_UP, IFF_UP) + byte_vector(9000, 1));
    EXPECT_FALSE(parse(cut(whole, 8192)).whole);
}

TEST(event_parse, link_message_too_short_for_its_fields_has_zeros_in_them) {
    for (size_t size = 16; size < 32; size++) {
        const byte_vector payload = cut(link_header(0x01010101, 0xFFFFFFFF, 0xFFFFFFFF), size - 16);
        const parsed result = parse(message(RTM_NEWLINK, payload));
        EXPECT_TRUE(result.whole) << size;
        // ifi_change lies at 28: before all its bytes came it may miss IFF_UP, which is in the first of them.
        EXPECT_EQ(result.event.event_type,
                  size > 28 ? uint32_t{YB_NET_IF_EVENT_LINK_UP} : uint32_t{YB_NET_IF_EVENT_LINK_CHANGE})
            << size;
        EXPECT_EQ(result.event.linux_ifindex == 0x01010101u, size >= 24) << size;
    }
}

TEST(event_parse, fields_are_not_taken_from_the_message_behind) {
    const parsed result = parse(message(RTM_NEWLINK, {}) + link_header(5, IFF_UP, IFF_UP));
    EXPECT_TRUE(result.whole);
    EXPECT_EQ(result.event.event_type, uint32_t{YB_NET_IF_EVENT_LINK_CHANGE});
    EXPECT_EQ(result.event.linux_ifindex, 0u);
}

TEST(event_parse, bytes_may_lie_at_any_alignment) {
    for (size_t shift = 0; shift < 4; shift++) {
        const byte_vector bytes = byte_vector(shift, 0xEE) + message(RTM_DELLINK, link_header(9, 0));
        link_event event = {};
        EXPECT_TRUE(link_event_parse(bytes.data() + shift, bytes.size() - shift, &event));
        EXPECT_EQ(event.linux_ifindex, 9u);
    }
}
