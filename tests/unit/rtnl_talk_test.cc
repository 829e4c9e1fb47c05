// SPDX-License-Identifier: Apache-2.0
//
// Sending a request and waiting for its acknowledgement: against scripted
// answers, and against this machine's kernel. How a datagram is read is
// rtnl_ack_test.cc's.
#include "net_lib/rtnl/request.h"

#include <cerrno>
#include <deque>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/log_lines.h"
#include "tests/support/system_calls.h"
#include "tests/support/tool_shims.h"
#include "tests/unit/rtnl_messages.h"

using namespace rtnl_messages;

namespace {

struct datagram {
    bytes content;
    int flags = 0;
    socklen_t address_length = 12;
    int reason = 0; // when not 0, receiving fails with it
};

class rtnl_talking : public testing::Test {
  protected:
    void SetUp() override {
        platform::reset();
        calls::reset();
        rth = {33, {AF_NETLINK, 0, our_port, 0}, our_sequence - 1, 1}; // nobody's descriptor
        request.nlmsg_len = sizeof(request);
        request.nlmsg_type = RTM_NEWLINK;
        request.nlmsg_flags = NLM_F_REQUEST | NLM_F_EXCL;
        calls::on_sendmsg() = [this](int descriptor, const struct msghdr *message, int flags) {
            return send(descriptor, message, flags);
        };
        calls::on_recvmsg() = [this](int descriptor, struct msghdr *message, int flags) {
            return receive(descriptor, message, flags);
        };
    }
    void TearDown() override {
        EXPECT_THAT(logged_lines(), testing::IsEmpty()) << "this layer speaks on standard error only";
        calls::reset();
        rth = {-1, {}, 0, 0};
    }

    // What the request gets, and what is said then. All answers are taken unless the test says otherwise.
    void expect_talk(int32_t result, const std::string &said, size_t answers_left = 0) {
        stderr_capture captured;
        EXPECT_EQ(result, rtnl_talk(&request));
        EXPECT_EQ(said, captured.text());
        EXPECT_EQ(answers_left, answers.size());
    }

    struct nlmsghdr request = {};
    std::deque<datagram> answers;
    std::vector<bytes> sent;
    uint32_t source_port = 0;

  private:
    ssize_t send(int descriptor, const struct msghdr *message, int flags) {
        EXPECT_EQ(33, descriptor);
        EXPECT_EQ(0, flags);
        EXPECT_EQ(1u, message->msg_iovlen);
        EXPECT_EQ(nullptr, message->msg_control);
        EXPECT_EQ(0u, message->msg_controllen);
        const struct sockaddr_nl kernel = {AF_NETLINK, 0, 0, 0};
        EXPECT_EQ(sizeof(kernel), message->msg_namelen);
        EXPECT_EQ(0, memcmp(&kernel, message->msg_name, sizeof(kernel)));
        const auto *const start = static_cast<const uint8_t *>(message->msg_iov[0].iov_base);
        sent.emplace_back(start, start + message->msg_iov[0].iov_len);
        return static_cast<ssize_t>(message->msg_iov[0].iov_len);
    }

    ssize_t receive(int descriptor, struct msghdr *message, int flags) {
        EXPECT_EQ(33, descriptor);
        EXPECT_EQ(0, flags);
        EXPECT_EQ(1u, message->msg_iovlen);
        EXPECT_EQ(16384u, message->msg_iov[0].iov_len);
        EXPECT_EQ(12u, message->msg_namelen);
        if (answers.empty()) {
            errno = ETIME; // a real one would block
            return -1;
        }
        const datagram next = answers.front();
        answers.pop_front();
        if (next.reason != 0) {
            errno = next.reason;
            return -1;
        }
        static_cast<struct sockaddr_nl *>(message->msg_name)->nl_pid = source_port;
        message->msg_namelen = next.address_length;
        message->msg_flags = next.flags;
        std::copy(next.content.begin(), next.content.end(),
                  static_cast<uint8_t *>(message->msg_iov[0].iov_base));
        return static_cast<ssize_t>(next.content.size());
    }
};

// As receive() answers when a test's answers have run out.
const char *const would_block = "netlink receive error Timer expired (62)\n";

} // namespace

TEST_F(rtnl_talking, request_is_stamped_and_sent_as_its_builder_left_it) {
    answers.push_back({answer(0)});
    expect_talk(0, "");
    EXPECT_EQ(our_sequence, rth.seq);
    EXPECT_EQ(our_sequence, request.nlmsg_seq);
    EXPECT_EQ(NLM_F_REQUEST | NLM_F_EXCL | NLM_F_ACK, request.nlmsg_flags);
    EXPECT_EQ(RTM_NEWLINK, request.nlmsg_type);
    EXPECT_EQ(0u, request.nlmsg_pid);
    ASSERT_EQ(1u, sent.size());
    EXPECT_EQ(sizeof(request), sent[0].size());
    EXPECT_EQ(0, memcmp(&request, sent[0].data(), sizeof(request)));
}

TEST_F(rtnl_talking, as_many_bytes_are_sent_as_the_header_says) {
    struct {
        struct nlmsghdr header;
        uint8_t more[100];
    } larger = {request, {1, 2, 3}};
    larger.header.nlmsg_len = sizeof(request) + 3;
    answers.push_back({answer(0)});
    ASSERT_EQ(0, rtnl_talk(&larger.header));
    EXPECT_EQ(sizeof(request) + 3, sent[0].size());
    EXPECT_EQ(3, sent[0].back());
}

TEST_F(rtnl_talking, sequence_counts_every_request_and_wraps) {
    rth.seq = UINT32_MAX - 1;
    answers.push_back({answer(0, UINT32_MAX)});
    expect_talk(0, "");
    answers.push_back({answer(0, 0)});
    expect_talk(0, "");
    EXPECT_EQ(0u, rth.seq);
    EXPECT_EQ(0u, request.nlmsg_seq);
}

TEST_F(rtnl_talking, send_failure) {
    calls::fail("sendmsg", ECONNREFUSED);
    expect_talk(1, "Cannot talk to rtnetlink: Connection refused\n");
    EXPECT_EQ(our_sequence, rth.seq) << "the number is used up";
    EXPECT_EQ(0, calls::count("recvmsg"));
}

TEST_F(rtnl_talking, handle_that_was_never_opened_has_no_socket) {
    rth = {-1, {}, 0, 0};
    calls::on_sendmsg() = nullptr; // the real one
    expect_talk(1, "Cannot talk to rtnetlink: Bad file descriptor\n");
    EXPECT_EQ(1u, request.nlmsg_seq);
}

TEST_F(rtnl_talking, interrupted_and_empty_handed_receptions_are_repeated) {
    for (int i = 0; i < 100; i++)
        answers.push_back({{}, 0, 12, i % 2 == 0 ? EINTR : EAGAIN});
    answers.push_back({answer(0)});
    expect_talk(0, "");
}

TEST_F(rtnl_talking, other_reception_failures_end_it) {
    answers.push_back({{}, 0, 12, ENOBUFS});
    answers.push_back({answer(0)});
    expect_talk(1, "netlink receive error No buffer space available (105)\n", 1);
}

TEST_F(rtnl_talking, end_of_file_ends_it) {
    answers.push_back({{}});
    answers.push_back({answer(0)});
    expect_talk(1, "EOF on netlink\n", 1);
}

TEST_F(rtnl_talking, sender_address_of_wrong_length_ends_it) {
    for (const socklen_t length : {0u, 11u, 16u}) {
        answers = {{answer(0), 0, length}};
        rth.seq = our_sequence - 1;
        expect_talk(1, "sender address length == " + std::to_string(length) + "\n");
    }
}

TEST_F(rtnl_talking, port_of_the_sender_is_not_examined) {
    source_port = 999;
    answers.push_back({answer(0)});
    expect_talk(0, "");
}

TEST_F(rtnl_talking, acknowledgement_with_another_sequence_is_ignored_and_the_wait_goes_on) {
    answers = {{answer(0, our_sequence - 1)}, {answer(0, our_sequence + 1)}, {answer(-EPERM, 0)}};
    expect_talk(1, would_block);
    answers = {{answer(0, 1)}, {answer(-EPERM, 2)}, {answer(0, our_sequence + 1)}};
    expect_talk(0, "");
}

TEST_F(rtnl_talking, acknowledgement_for_another_port_is_ignored_and_the_wait_goes_on) {
    answers = {{answer(0, our_sequence, our_port - 1)}, {answer(-EPERM, our_sequence, 0)}};
    expect_talk(1, would_block);
}

TEST_F(rtnl_talking, kernel_error_17_is_told_and_left_in_errno) {
    answers.push_back({answer(-EEXIST)});
    stderr_capture captured;
    errno = 0;
    const int32_t result = rtnl_talk(&request);
    const int reason = errno;
    EXPECT_EQ(1, result);
    EXPECT_EQ(EEXIST, reason);
    EXPECT_EQ("RTNETLINK answers [17]: File exists\n", captured.text());
}

TEST_F(rtnl_talking, broken_datagram_ends_it) {
    answers = {{other_message(20) + bytes{1, 2}}, {answer(0)}};
    expect_talk(1, "!!!Remnant of size 2\n", 1);
    answers = {{with_length(answer(0), 99)}, {answer(0)}};
    expect_talk(1, "!!!malformed message: len=99\n", 1);
}

TEST_F(rtnl_talking, truncated_datagram_is_told_and_the_wait_goes_on) {
    answers = {{other_message(20), MSG_TRUNC}, {answer(0)}};
    expect_talk(0, "Message truncated\n");
}

TEST_F(rtnl_talking, truncated_message_ends_it) {
    answers = {{with_length(other_message(20), 21), MSG_TRUNC}, {answer(0)}};
    expect_talk(1, "Truncated message\n", 1);
}

TEST_F(rtnl_talking, flags_of_one_datagram_do_not_count_for_the_next) {
    answers = {{other_message(20), MSG_TRUNC}, {other_message(20)}, {answer(0)}};
    expect_talk(0, "Message truncated\n");
}

TEST_F(rtnl_talking, other_reply_is_told_and_the_wait_goes_on) {
    answers = {{message(32, our_sequence, our_port, RTM_NEWLINK)}, {answer(0)}};
    expect_talk(0, "Unexpected reply!!!\n");
}

TEST_F(rtnl_talking, acknowledgement_behind_an_unaligned_message_is_waited_for_in_the_next_datagram) {
    answers = {{other_message(39)}, {answer(0)}};
    expect_talk(0, "");
}

TEST_F(rtnl_talking, what_an_earlier_datagram_left_in_the_buffer_is_not_read) {
    answers = {{other_message(20) + answer(0, 1)}, {other_message(20)}};
    expect_talk(1, would_block);
}

TEST_F(rtnl_talking, datagram_that_fills_the_buffer_is_read_to_its_end) {
    bytes filled = other_message(16384 - answer(0).size());
    filled = filled + answer(0);
    ASSERT_EQ(16384u, filled.size());
    answers.push_back({filled});
    expect_talk(0, "");
}

// ---- With the kernel --------------------------------------------------------

namespace {

class rtnl_talking_to_the_kernel : public testing::Test {
  protected:
    void SetUp() override {
        platform::reset();
        calls::reset();
        rth = {-1, {}, 0, 0};
        ASSERT_EQ(0, rtnl_open());
        request.header.nlmsg_len = sizeof(request);
        request.header.nlmsg_flags = NLM_F_REQUEST;
    }
    void TearDown() override {
        close(rth.fd);
        rth = {-1, {}, 0, 0};
    }
    void expect_talk(int32_t result, const std::string &said) {
        stderr_capture captured;
        EXPECT_EQ(result, rtnl_talk(&request.header));
        EXPECT_EQ(said, captured.text());
    }
    struct {
        struct nlmsghdr header;
        struct ifinfomsg link;
    } request = {};
};

} // namespace

TEST_F(rtnl_talking_to_the_kernel, no_operation_is_acknowledged) {
    request.header.nlmsg_type = NLMSG_NOOP;
    expect_talk(0, "");
}

TEST_F(rtnl_talking_to_the_kernel, refusal_is_told) {
    request.header.nlmsg_type = RTM_DELLINK;
    request.link.ifi_index = 0x7FFFFFFF;
    expect_talk(1, "RTNETLINK answers [19]: No such device\n");
}

TEST_F(rtnl_talking_to_the_kernel, reply_in_front_of_the_acknowledgement_is_unexpected) {
    request.header.nlmsg_type = RTM_GETLINK;
    request.link.ifi_index = 1;
    expect_talk(0, "Unexpected reply!!!\n");
}

TEST_F(rtnl_talking_to_the_kernel, late_acknowledgement_of_an_earlier_request_is_not_taken_for_this_one) {
    request.header.nlmsg_type = NLMSG_NOOP;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    request.header.nlmsg_seq = rth.seq;
    ASSERT_EQ(static_cast<ssize_t>(sizeof(request)), send(rth.fd, &request, sizeof(request), 0));
    request.header.nlmsg_type = RTM_DELLINK;
    request.link.ifi_index = 0x7FFFFFFF;
    expect_talk(1, "RTNETLINK answers [19]: No such device\n");
}
