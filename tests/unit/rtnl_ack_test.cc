// SPDX-License-Identifier: Apache-2.0
//
// Finding the acknowledgement in a datagram: every datagram lies in front of a
// page that cannot be touched, so a step too far crashes. Receiving datagrams is
// rtnl_talk_test.cc's.
#include "net_lib/rtnl/ack.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <random>

#include "tests/support/guarded_bytes.h"
#include "tests/support/tool_shims.h"
#include "tests/unit/rtnl_messages.h"

using namespace rtnl_messages;

namespace {

struct found {
    rtnl_ack result;
    std::string said;
};

found find(const bytes &datagram, bool truncated = false) {
    guarded_bytes guarded(datagram.size());
    std::copy(datagram.begin(), datagram.end(), static_cast<uint8_t *>(guarded.data()));
    stderr_capture captured;
    const rtnl_ack result = rtnl_ack_find(guarded.data(), datagram.size(), truncated, our_port, our_sequence);
    return {result, captured.text()};
}

void expect(const found &what, rtnl_ack result, const std::string &said) {
    EXPECT_EQ(static_cast<int>(result), static_cast<int>(what.result));
    EXPECT_EQ(said, what.said);
}

} // namespace

TEST(rtnl_ack_find, error_0_with_our_sequence_and_port_is_the_acknowledgement) {
    expect(find(answer(0)), rtnl_ack::acknowledged, "");
}

TEST(rtnl_ack_find, payload_of_exactly_20_bytes_is_enough) {
    ASSERT_EQ(36u, answer(0).size());
    bytes longer = answer(0);
    longer.resize(40);
    expect(find(with_length(longer, 40)), rtnl_ack::acknowledged, "");
}

TEST(rtnl_ack_find, answers_of_other_sequences_and_ports_are_skipped_silently) {
    expect(find(answer(-EPERM, our_sequence - 1)), rtnl_ack::receive_further, "");
    expect(find(answer(0, our_sequence + 1)), rtnl_ack::receive_further, "");
    expect(find(answer(0, our_sequence, our_port + 1)), rtnl_ack::receive_further, "");
    expect(find(answer(0, our_sequence, 0)), rtnl_ack::receive_further, "");
}

TEST(rtnl_ack_find, acknowledgement_is_found_behind_other_messages) {
    expect(find(answer(-EPERM, 1) + answer(0, our_sequence, 1) + answer(0)), rtnl_ack::acknowledged, "");
}

TEST(rtnl_ack_find, what_follows_the_acknowledgement_is_not_looked_at) {
    expect(find(answer(0) + bytes{1, 2, 3}), rtnl_ack::acknowledged, "");
}

TEST(rtnl_ack_find, acknowledgement_is_found_behind_an_unaligned_message) {
    bytes odd = other_message(17);
    odd.resize(20);
    expect(find(odd + answer(0)), rtnl_ack::acknowledged, "");
}

TEST(rtnl_ack_find, unaligned_last_message_ends_the_walk) {
    for (const size_t size : {17u, 18u, 19u, 37u, 38u, 39u})
        expect(find(other_message(size)), rtnl_ack::receive_further, "");
    expect(find(answer(-EPERM, 1) + other_message(21)), rtnl_ack::receive_further, "");
}

TEST(rtnl_ack_find, kernel_error_is_told_and_left_in_errno) {
    errno = 0;
    expect(find(answer(-EEXIST)), rtnl_ack::failed,
           std::string("RTNETLINK answers [17]: ") + strerror(EEXIST) + "\n");
    EXPECT_EQ(EEXIST, errno);
    expect(find(answer(-EPERM)), rtnl_ack::failed, "RTNETLINK answers [1]: Operation not permitted\n");
    EXPECT_EQ(EPERM, errno);
}

TEST(rtnl_ack_find, errors_no_kernel_sends_fail_too) {
    expect(find(answer(5)), rtnl_ack::failed, "RTNETLINK answers [-5]: Unknown error -5\n");
    expect(find(answer(INT_MIN)), rtnl_ack::failed,
           "RTNETLINK answers [-2147483648]: Unknown error -2147483648\n");
    expect(find(answer(INT_MAX)), rtnl_ack::failed,
           "RTNETLINK answers [-2147483647]: Unknown error -2147483647\n");
}

TEST(rtnl_ack_find, error_message_without_its_20_bytes_is_truncated) {
    for (const size_t size : {16u, 17u, 20u, 32u, 35u}) {
        bytes short_answer = answer(0);
        short_answer.resize(size);
        expect(find(with_length(short_answer, static_cast<uint32_t>(size))), rtnl_ack::failed,
               "ERROR truncated\n");
    }
}

TEST(rtnl_ack_find, other_reply_is_told_and_the_walk_goes_on) {
    expect(find(message(20, our_sequence, our_port, RTM_NEWLINK)), rtnl_ack::receive_further,
           "Unexpected reply!!!\n");
    expect(find(message(20, our_sequence, our_port, NLMSG_DONE) + answer(0)), rtnl_ack::acknowledged,
           "Unexpected reply!!!\n");
    expect(find(message(20, our_sequence, our_port, 3) + message(20, our_sequence, our_port, 1)),
           rtnl_ack::receive_further, "Unexpected reply!!!\nUnexpected reply!!!\n");
}

TEST(rtnl_ack_find, length_below_the_header_is_malformed) {
    for (const uint32_t length : {0u, 1u, 15u})
        expect(find(with_length(answer(0), length)), rtnl_ack::failed,
               "!!!malformed message: len=" + std::to_string(length) + "\n");
}

TEST(rtnl_ack_find, length_beyond_the_datagram_is_malformed) {
    expect(find(with_length(answer(0), 37)), rtnl_ack::failed, "!!!malformed message: len=37\n");
    expect(find(with_length(answer(0), 0x7FFFFFFF)), rtnl_ack::failed,
           "!!!malformed message: len=2147483647\n");
    expect(find(with_length(answer(0), 0x80000000)), rtnl_ack::failed,
           "!!!malformed message: len=-2147483648\n");
    expect(find(with_length(answer(0), 0xFFFFFFFF)), rtnl_ack::failed, "!!!malformed message: len=-1\n");
    expect(find(with_length(answer(0), 0xFFFFFFFD)), rtnl_ack::failed, "!!!malformed message: len=-3\n");
}

TEST(rtnl_ack_find, second_message_is_measured_by_what_remains) {
    expect(find(other_message(20) + with_length(answer(0), 40)), rtnl_ack::failed,
           "!!!malformed message: len=40\n");
}

TEST(rtnl_ack_find, length_that_lies_in_a_truncated_datagram_is_a_truncated_message) {
    expect(find(with_length(answer(0), 37), true), rtnl_ack::failed, "Truncated message\n");
    expect(find(with_length(answer(0), 3), true), rtnl_ack::failed, "Truncated message\n");
}

TEST(rtnl_ack_find, truncated_datagram_without_an_answer_is_told_and_waits_on) {
    expect(find(other_message(36), true), rtnl_ack::receive_further, "Message truncated\n");
    expect(find(other_message(36) + bytes{1, 2, 3, 4}, true), rtnl_ack::receive_further,
           "Message truncated\n");
}

TEST(rtnl_ack_find, acknowledgement_in_a_truncated_datagram_counts) {
    expect(find(answer(0), true), rtnl_ack::acknowledged, "");
}

TEST(rtnl_ack_find, bytes_behind_the_last_message_are_a_remnant) {
    expect(find(other_message(20) + bytes{1}), rtnl_ack::failed, "!!!Remnant of size 1\n");
    expect(find(other_message(20) + bytes(15, 0)), rtnl_ack::failed, "!!!Remnant of size 15\n");
    expect(find(bytes(4, 0)), rtnl_ack::failed, "!!!Remnant of size 4\n");
}

TEST(rtnl_ack_find, datagram_may_lie_at_any_address) {
    const bytes datagram = other_message(20) + answer(0);
    for (size_t shift = 0; shift < 4; shift++) {
        const bytes shifted = bytes(shift, 0xAA) + datagram;
        EXPECT_EQ(static_cast<int>(rtnl_ack::acknowledged),
                  static_cast<int>(
                      rtnl_ack_find(shifted.data() + shift, datagram.size(), false, our_port, our_sequence)));
    }
}

TEST(rtnl_ack_find, any_bytes_end_in_a_result_without_a_step_behind_them) {
    std::mt19937 random(20240607); // the same bytes in every run
    const auto up_to = [&random](uint32_t limit) { return static_cast<uint32_t>(random() % limit); };
    int results[3] = {};
    for (int round = 0; round < 20000; round++) {
        bytes datagram;
        for (uint32_t messages = up_to(4); messages-- != 0;) {
            bytes next = up_to(2) != 0 ? answer(static_cast<int32_t>(up_to(3)) - 2, our_sequence + up_to(2))
                                       : other_message(16 + up_to(24));
            if (up_to(4) == 0)
                next = with_length(next, up_to(2) != 0 ? up_to(48) : static_cast<uint32_t>(random()));
            datagram = datagram + next;
        }
        datagram.resize(datagram.size() + up_to(8));
        for (uint32_t flips = up_to(3); flips-- != 0 && !datagram.empty();)
            datagram[up_to(static_cast<uint32_t>(datagram.size()))] = static_cast<uint8_t>(random());
        if (!datagram.empty())
            results[static_cast<int>(find(datagram, up_to(4) == 0).result)]++;
    }
    for (const int seen : results)
        EXPECT_GT(seen, 500);
}
