// SPDX-License-Identifier: Apache-2.0
//
// Port netdevs: both requests byte for byte, the checks in front of them, what
// becomes of answers. The host tier has the same requests decoded by strace, the
// lab a kernel that knows the link kind.
#include "net_lib/port_netdev.h"

#include <algorithm>
#include <net/if.h>

#include "tests/unit/netdev_fixture.h"
#include "tests/unit/rtnl_messages.h"

using rtnl_messages::answer;
using rtnl_messages::bytes;
using rtnl_messages::our_port;
using rtnl_messages::our_sequence;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class port_netdev : public netdev_test {
  protected:
    void SetUp() override {
        netdev_test::SetUp();
        rth = {-1, {AF_NETLINK, 0, our_port, 0}, our_sequence - 1, 1}; // open, as far as anybody looks
        calls::on_sendmsg() = [this](int, const struct msghdr *message, int) {
            const auto *const start = static_cast<const uint8_t *>(message->msg_iov[0].iov_base);
            const size_t size = message->msg_iov[0].iov_len;
            sent.emplace_back(start, start + size);
            rest_of_buffer.assign(start + size, start + YB_NET_RTNL_REQ_SIZE);
            return static_cast<ssize_t>(size);
        };
        calls::on_recvmsg() = [this](int, struct msghdr *message, int) {
            const bytes reply = answer(error, rth.seq);
            memcpy(message->msg_iov[0].iov_base, reply.data(), reply.size());
            return static_cast<ssize_t>(reply.size());
        };
    }
    static yb_status_t create(const yb_net_interface_params_t &params) {
        return yb_net_port_if_set(YB_ACCESS_CMD_CREATE, &params);
    }
    static yb_status_t destroy(const yb_net_interface_params_t &params) {
        return yb_net_port_if_set(YB_ACCESS_CMD_DESTROY, &params);
    }
    void expect_refused(yb_access_cmd_t cmd, const yb_net_interface_params_t &params, yb_status_t status,
                        const std::vector<logged> &lines) {
        platform::recorded().log.clear();
        EXPECT_EQ(status, yb_net_port_if_set(cmd, &params));
        EXPECT_EQ(lines, logged_lines());
        EXPECT_THAT(sent, IsEmpty());
    }

    std::vector<bytes> sent;
    bytes rest_of_buffer; // behind the last request
    int32_t error = 0;    // of the kernel's answer
};

} // namespace

// ---- Bytes ------------------------------------------------------------------

TEST_F(port_netdev, create_request_byte_for_byte) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(port_params("swp1", "red", 0x01020304, 0xA0B0C0D0)));
    ASSERT_EQ(1u, sent.size());
    EXPECT_THAT(sent[0],
                ElementsAre(
                    // header: length 84, RTM_NEWLINK, REQUEST | ACK | EXCL | CREATE, sequence 1000, port id 0
                    84, 0, 0, 0, 16, 0, 0x05, 0x06, 0xE8, 0x03, 0, 0, 0, 0, 0, 0,
                    // ifinfomsg: family 16, type 0, index 0, flags 0, change 0
                    16, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                    // IFLA_IFNAME of 5 bytes, with its NUL
                    9, 0, 3, 0, 's', 'w', 'p', '1', 0, 0, 0, 0,
                    // IFLA_LINKINFO
                    40, 0, 18, 0,
                    // IFLA_INFO_KIND of 9 bytes, without a NUL
                    13, 0, 1, 0, 'y', 'b', '_', 'n', 'e', 't', 'd', 'e', 'v', 0, 0, 0,
                    // IFLA_INFO_DATA
                    20, 0, 2, 0,
                    // both values
                    8, 0, 1, 0, 0x04, 0x03, 0x02, 0x01, 8, 0, 2, 0, 0xD0, 0xC0, 0xB0, 0xA0));
    expect_nothing_logged();
}

TEST_F(port_netdev, buffer_of_1056_bytes_is_zero_behind_the_request) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(port_params("swp1", "", UINT32_MAX, UINT32_MAX)));
    EXPECT_EQ(1056u, sent[0].size() + rest_of_buffer.size());
    EXPECT_THAT(rest_of_buffer, Each(0));
}

TEST_F(port_netdev, destroy_request_byte_for_byte) {
    make_netdev("swp1");
    const auto index = static_cast<uint8_t>(ifindex_of("swp1"));
    EXPECT_EQ(YB_STATUS_SUCCESS, destroy(port_params("swp1", "", 1, 2)));
    ASSERT_EQ(1u, sent.size());
    EXPECT_THAT(sent[0],
                ElementsAre(32, 0, 0, 0, 17, 0, 0x05, 0, 0xE8, 0x03, 0, 0, 0, 0, 0, 0, //
                            16, 0, 0, 0, index, ifindex_of("swp1") >> 8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
    EXPECT_EQ(1056u, sent[0].size() + rest_of_buffer.size());
    EXPECT_THAT(rest_of_buffer, Each(0));
    expect_nothing_logged();
}

TEST_F(port_netdev, kind_has_exactly_9_characters_and_the_name_its_nul) {
    for (const char *const name : {"a", "abc", "abcd", "0123456789abcde"}) {
        sent.clear();
        ASSERT_EQ(YB_STATUS_SUCCESS, create(port_params(name)));
        const size_t length = strlen(name);
        const size_t aligned = (4 + length + 1 + 3) / 4 * 4;
        ASSERT_EQ(32 + aligned + 40, sent[0].size()) << name;
        EXPECT_EQ(sent[0].size(), sent[0][0]);
        EXPECT_EQ(4 + length + 1, sent[0][32]);
        EXPECT_EQ(name, std::string(reinterpret_cast<const char *>(sent[0].data()) + 36));
        EXPECT_EQ(4 + 9, sent[0][32 + aligned + 4]);
        EXPECT_EQ("yb_netdev",
                  std::string(reinterpret_cast<const char *>(sent[0].data()) + 32 + aligned + 8));
    }
}

TEST_F(port_netdev, name_reaches_the_kernel_as_it_is_for_no_shell_sees_it) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(port_params("-a $(b);'\n\xC3\xA9")));
    EXPECT_EQ("-a $(b);'\n\xC3\xA9", std::string(reinterpret_cast<const char *>(sent[0].data()) + 36));
    EXPECT_THAT(commands(), IsEmpty());
}

TEST_F(port_netdev, name_written_is_not_changed_and_no_namespace_looked_at) {
    yb_net_interface_params_t params = port_params("swp1", "no such $(namespace)");
    const std::string before = bytes_of(params);
    ASSERT_EQ(YB_STATUS_SUCCESS, create(params));
    EXPECT_EQ(before, bytes_of(params));
    EXPECT_THAT(commands(), IsEmpty());
}

// ---- Checks, in their order -------------------------------------------------

TEST_F(port_netdev, empty_name_is_no_device_identifier_whatever_the_command) {
    rth = {-1, {}, 0, 0};
    calls::fail("socket", EMFILE); // would be next
    for (const yb_access_cmd_t cmd : {12u, 13u, 99u})
        expect_refused(cmd, port_params(""), YB_STATUS_PARAM_ERROR,
                       {error_line("yb_net_port_if_set: \"\" is not a valid device identifier\n")});
    EXPECT_EQ(0, calls::count("socket"));
}

TEST_F(port_netdev, name_of_15_characters_is_accepted_and_of_16_is_too_long) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(port_params("0123456789abcde")));
    sent.clear();
    yb_net_interface_params_t params = port_params("0123456789abcdef", "namespace");
    for (const yb_access_cmd_t cmd : {12u, 13u, 99u})
        expect_refused(
            cmd, params, YB_STATUS_PARAM_ERROR,
            {error_line("yb_net_port_if_set: \"0123456789abcdef\" name is too long, max len (16)\n")});
}

TEST_F(port_netdev, handle_that_cannot_be_opened_is_told_on_standard_error_only) {
    rth = {-1, {}, 0, 0};
    for (const yb_access_cmd_t cmd : {12u, 13u, 99u}) {
        calls::fail("socket", EMFILE);
        stderr_capture captured;
        expect_refused(cmd, port_params("swp1"), YB_STATUS_ERROR, {});
        EXPECT_EQ("Cannot open netlink socket: Too many open files\n", captured.text());
    }
}

TEST_F(port_netdev, other_commands_are_unsupported_without_a_message) {
    for (const yb_access_cmd_t cmd : {0u, 1u, 2u, 3u, 4u, 15u, 16u, 17u, 0xFFFFFFFFu})
        expect_refused(cmd, port_params("swp1"), YB_STATUS_CMD_UNSUPPORTED, {});
}

TEST_F(port_netdev, destroy_of_an_absent_netdev_sends_nothing) {
    make_namespace("red");
    make_netdev("swp1", "red"); // not in the caller's
    expect_refused(YB_ACCESS_CMD_DESTROY, port_params("swp1", "red"), YB_STATUS_PARAM_ERROR,
                   {error_line("Cannot find device \"swp1\"\n")});
}

TEST_F(port_netdev, create_does_not_ask_whether_the_name_is_taken) {
    make_netdev("swp1");
    ASSERT_EQ(YB_STATUS_SUCCESS, create(port_params("swp1")));
    EXPECT_EQ(1u, sent.size());
}

// ---- Answers ----------------------------------------------------------------

TEST_F(port_netdev, refused_create_is_told_twice_on_standard_error_and_in_the_log) {
    error = -EEXIST;
    stderr_capture captured;
    EXPECT_EQ(YB_STATUS_ERROR, create(port_params("swp1")));
    EXPECT_EQ("RTNETLINK answers [17]: File exists\n", captured.text());
    EXPECT_THAT(
        logged_lines(),
        ElementsAre(error_line("yb_net_port_if_set: rtnl_talk: failed to CREATE port netdev \"swp1\".\n")));
}

TEST_F(port_netdev, refused_destroy_names_its_command) {
    make_netdev("swp1");
    error = -EBUSY;
    stderr_capture captured;
    EXPECT_EQ(YB_STATUS_ERROR, destroy(port_params("swp1")));
    EXPECT_THAT(logged_lines(),
                ElementsAre(error_line("yb_net_port_if_set: rtnl_talk: failed to DESTROY port "
                                       "netdev \"swp1\".\n")));
}

TEST_F(port_netdev, request_that_cannot_be_sent_fails_alike) {
    calls::fail("sendmsg", ENOBUFS);
    stderr_capture captured;
    EXPECT_EQ(YB_STATUS_ERROR, create(port_params("swp1")));
    EXPECT_EQ("Cannot talk to rtnetlink: No buffer space available\n", captured.text());
    EXPECT_EQ(1u, logged_lines().size());
}

TEST_F(port_netdev, handle_is_opened_once_for_many_requests) {
    rth = {-1, {}, 0, 0};
    calls::on_sendmsg() = nullptr;
    calls::on_recvmsg() = nullptr;
    calls::reset(); // from here the kernel
    make_netdev("swp1");
    make_netdev("swp2");
    EXPECT_EQ(YB_STATUS_SUCCESS, destroy(port_params("swp1")));
    EXPECT_EQ(YB_STATUS_SUCCESS, destroy(port_params("swp2")));
    EXPECT_EQ(1, calls::count("socket"));
    EXPECT_EQ(2, calls::count("sendmsg"));
    EXPECT_FALSE(netdev_exists("swp1"));
    EXPECT_FALSE(netdev_exists("swp2"));
}

TEST_F(port_netdev, entry_and_leaving_are_traced) {
    g_yb_log_module_func_enable = 1;
    set_verbosity(5);
    platform::recorded().log.clear();
    const yb_net_interface_params_t params = port_params("swp1");
    EXPECT_EQ(YB_STATUS_CMD_UNSUPPORTED, yb_net_port_if_set(99, &params));
    EXPECT_THAT(
        logged_lines(),
        ElementsAre(logged{severity::debug, "net_lib yb_net_port_if_set: yb_net_port_if_set - entered \n"},
                    logged{severity::debug, "net_lib yb_net_port_if_set: yb_net_port_if_set - left \n"}));
}
