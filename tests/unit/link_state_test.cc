// SPDX-License-Identifier: Apache-2.0
//
// Setting and reading link states: the requests byte for byte, and every answer
// and failure, from a kernel that says what the test wants.
#include "tests/unit/links_fixture.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sys/mount.h>

#include "net_lib/link_dump.h"
#include "tests/support/tool_shims.h"

using testing::ElementsAre;
using testing::IsEmpty;

class link_state : public links_fixture {
  protected:
    // What state_get says for a record of Linux ifindex 7.
    yb_status_t get() {
        state_ = 77;
        return yb_net_interface_state_get(100, &state_);
    }

    uint32_t state_ = 77;
};

using state_set = link_state;
using state_get = link_state;

TEST_F(state_set, up_request_is_what_the_kernel_is_documented_to_get) {
    add_record(100, 0x01020304, "port");
    acknowledge_with(0);
    ASSERT_EQ(yb_net_interface_state_set(100, 1), uint32_t{YB_STATUS_SUCCESS});
    ASSERT_EQ(sent().size(), 1u);
    const auto seq = bytes_of(rth.seq);
    const byte_vector expected = {32, 0, 0, 0, 16, 0, 0x05, 0, seq[0], seq[1], seq[2], seq[3], 0, 0, 0, 0, //
                                  16, 0, 0, 0, 4,  3, 2,    1, 1,      0,      0,      0,      1, 0, 0, 0};
    EXPECT_EQ(sent()[0].bytes, expected);
    EXPECT_EQ(sent()[0].descriptor, rth.fd);
    EXPECT_EQ(sent()[0].address.nl_pid, 0u);
    EXPECT_EQ(sent()[0].address.nl_groups, 0u);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(state_set, down_request_carries_all_flags_but_up) {
    add_record(100, 7, "port");
    acknowledge_with(0);
    ASSERT_EQ(yb_net_interface_state_set(100, 0), uint32_t{YB_STATUS_SUCCESS});
    const auto seq = bytes_of(rth.seq);
    const byte_vector expected = {32, 0, 0, 0, 16, 0, 0x05, 0, seq[0], seq[1], seq[2], seq[3], 0, 0, 0, 0, //
                                  16, 0, 0, 0, 7,  0, 0,    0, 0xFE,   0xFF,   0xFF,   0xFF,   1, 0, 0, 0};
    EXPECT_EQ(sent()[0].bytes, expected);
}

TEST_F(state_set, unknown_interface_is_said_before_a_bad_state) {
    EXPECT_EQ(yb_net_interface_state_set(4000000000u, 2), uint32_t{YB_STATUS_PARAM_ERROR});
    EXPECT_THAT(errors(), ElementsAre("yb_net_interface_state_set: Cannot find device with system ifindex "
                                      "4000000000\n"));
}

TEST_F(state_set, database_that_is_not_loaded_is_a_parameter_error) {
    (void)net_lib_db_interfaces_unload(0);
    EXPECT_EQ(yb_net_interface_state_set(100, 1), uint32_t{YB_STATUS_PARAM_ERROR});
    EXPECT_THAT(errors(),
                ElementsAre("Net-lib Interfaces DB was not initialized\n",
                            "yb_net_interface_state_set: Cannot find device with system ifindex 100\n"));
}

TEST_F(state_set, other_states_are_refused_silently_before_anything_is_opened) {
    add_record(100, 7, "port");
    for (const uint32_t state : {2u, 0xFFFFFFFFu})
        EXPECT_EQ(yb_net_interface_state_set(100, state), uint32_t{YB_STATUS_PARAM_ERROR});
    EXPECT_EQ(calls::count("socket"), 0);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(state_set, request_handle_that_cannot_be_opened_is_a_parameter_error) {
    add_record(100, 7, "port");
    calls::fail("socket", EMFILE);
    stderr_capture captured;
    EXPECT_EQ(yb_net_interface_state_set(100, 1), uint32_t{YB_STATUS_PARAM_ERROR});
    EXPECT_EQ(captured.text(), "Cannot open netlink socket: Too many open files\n");
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(state_set, refusal_of_the_kernel_is_said_with_the_state) {
    add_record(100, 7, "port");
    acknowledge_with(-ENODEV);
    stderr_capture captured;
    EXPECT_EQ(yb_net_interface_state_set(100, 1), uint32_t{YB_STATUS_ERROR});
    EXPECT_EQ(yb_net_interface_state_set(100, 0), uint32_t{YB_STATUS_ERROR});
    EXPECT_EQ(captured.text(),
              "RTNETLINK answers [19]: No such device\nRTNETLINK answers [19]: No such device\n");
    EXPECT_THAT(errors(), ElementsAre("yb_net_interface_state_set: rtnl_talk: set interface state up.\n",
                                      "yb_net_interface_state_set: rtnl_talk: set interface state down.\n"));
}

TEST_F(state_get, dump_request_is_what_the_kernel_is_documented_to_get) {
    add_record(100, 7, "port");
    answer_with({named_link(7, IFF_UP)});
    ASSERT_EQ(get(), uint32_t{YB_STATUS_SUCCESS});
    ASSERT_EQ(sent().size(), 1u);
    const auto pid = bytes_of(static_cast<uint32_t>(getpid()));
    const byte_vector expected = {17, 0, 0, 0,      18,     0,      0x01,   0x03, 1, //
                                  0,  0, 0, pid[0], pid[1], pid[2], pid[3], 17};
    EXPECT_EQ(sent()[0].bytes, expected);
    EXPECT_EQ(sent()[0].address.nl_family, AF_NETLINK);
    EXPECT_EQ(sent()[0].address.nl_pid, 0u);
    EXPECT_EQ(sent()[0].address.nl_groups, 0u);
    EXPECT_NE(sent()[0].descriptor, rth.fd); // a socket of its own, unbound
    EXPECT_EQ(calls::count("bind"), 0);
    EXPECT_TRUE(sent()[0].close_on_exec);
    EXPECT_EQ(rth.opened, 0u);
    EXPECT_EQ(fcntl(sent()[0].descriptor, F_GETFD), -1); // and closed again
}

TEST_F(state_get, state_is_the_links_wherever_in_the_dump_it_is) {
    add_record(100, 7, "port");
    answer_with({padded(named_link(1, IFF_UP)) + named_link(2, IFF_UP), named_link(7, 0), done_message()});
    EXPECT_EQ(get(), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(state_, 0u);
    EXPECT_EQ(unread_datagrams(), 1u); // found: nothing more is received
    answer_with({padded(named_link(1, 0)) + padded(named_link(7, IFF_UP)) + done_message()});
    EXPECT_EQ(get(), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(state_, 1u);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(state_get, link_that_the_kernel_does_not_have_is_a_parameter_error_and_leaves_the_state) {
    add_record(100, 7, "port");
    answer_with({named_link(1, IFF_UP), done_message()});
    EXPECT_EQ(get(), uint32_t{YB_STATUS_PARAM_ERROR});
    EXPECT_EQ(state_, 77u);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(state_get, receiving_nothing_ends_the_dump) {
    add_record(100, 7, "port");
    answer_with({byte_vector()});
    EXPECT_EQ(get(), uint32_t{YB_STATUS_PARAM_ERROR});
    EXPECT_EQ(state_, 77u);
}

TEST_F(state_get, null_state_is_refused_silently_before_the_database_is_asked) {
    (void)net_lib_db_interfaces_unload(0);
    EXPECT_EQ(yb_net_interface_state_get(100, nullptr), uint32_t{YB_STATUS_PARAM_NULL});
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(state_get, statuses_of_the_database_are_passed_on_and_said_at_info) {
    set_verbosity(4);
    EXPECT_EQ(yb_net_interface_state_get(4000000000u, &state_), uint32_t{YB_STATUS_ENTRY_NOT_FOUND});
    EXPECT_EQ(platform::recorded().texts(severity_info).back(),
              "yb_net_interface_state_get: Failed retrieving interface with system ifindex 4000000000 from "
              "the Netlib DB\n");
    (void)net_lib_db_interfaces_unload(0);
    EXPECT_EQ(get(), uint32_t{YB_STATUS_DB_NOT_INITIALIZED});
    EXPECT_EQ(state_, 77u);
}

TEST_F(state_get, failed_socket_is_said) {
    add_record(100, 7, "port");
    calls::fail("socket", EMFILE);
    EXPECT_EQ(get(), uint32_t{YB_STATUS_ERROR});
    EXPECT_THAT(errors(), ElementsAre("__if_state_get: cannot open NETLINK_ROUTE socket\n"));
}

TEST_F(state_get, failed_send_is_said_and_closes_the_socket) {
    add_record(100, 7, "port");
    const int next = dup(0);
    close(next);
    calls::fail("sendmsg", ENOBUFS);
    EXPECT_EQ(get(), uint32_t{YB_STATUS_ERROR});
    EXPECT_THAT(errors(), ElementsAre("__if_state_get: sendmsg has failed\n"));
    EXPECT_EQ(calls::count("recvmsg"), 0);
    EXPECT_EQ(state_, 77u);
    const int again = dup(0);
    close(again);
    EXPECT_EQ(again, next);
}

TEST_F(state_get, failed_receive_ends_the_dump_and_no_stale_bytes_are_an_answer) {
    add_record(100, 7, "port");
    answer_with({named_link(7, IFF_UP)}); // what an earlier call leaves on the stack
    ASSERT_EQ(get(), uint32_t{YB_STATUS_SUCCESS});
    for (const int reason : {ENOBUFS, EAGAIN, ENOMEM, EBADF}) {
        platform::reset();
        calls::on_recvmsg() = [reason](int, struct msghdr *received, int) -> ssize_t {
            const byte_vector stale = padded(named_link(7, IFF_UP)) + done_message();
            memcpy(received->msg_iov[0].iov_base, stale.data(), stale.size());
            errno = reason;
            return -1;
        };
        EXPECT_EQ(get(), uint32_t{YB_STATUS_ERROR});
        EXPECT_EQ(state_, 77u);
        EXPECT_THAT(errors(), ElementsAre("__if_state_get: recvmsg has failed\n"));
    }
}

TEST_F(state_get, failed_receive_later_in_the_dump_ends_it_too_and_closes_the_socket) {
    add_record(100, 7, "port");
    answer_with({named_link(1, IFF_UP), named_link(2, IFF_UP)});
    calls::fail("recvmsg", ENOBUFS, 2);
    EXPECT_EQ(get(), uint32_t{YB_STATUS_ERROR});
    EXPECT_EQ(state_, 77u);
    ASSERT_EQ(sent().size(), 1u);
    EXPECT_EQ(fcntl(sent()[0].descriptor, F_GETFD), -1);
}

TEST_F(state_get, interrupted_receive_is_repeated) {
    add_record(100, 7, "port");
    answer_with({named_link(7, IFF_UP)});
    calls::fail("recvmsg", EINTR);
    EXPECT_EQ(get(), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(state_, 1u);
    EXPECT_EQ(calls::count("recvmsg"), 2);
}

TEST_F(state_get, error_answer_ends_the_dump) {
    add_record(100, 7, "port");
    answer_with({error_message(-EPERM)});
    EXPECT_EQ(get(), uint32_t{YB_STATUS_ERROR});
    EXPECT_EQ(state_, 77u);
    EXPECT_THAT(
        errors(),
        ElementsAre("__if_state_get: link dump was answered with error [1]: Operation not permitted\n"));
}

TEST_F(state_get, error_answer_behind_the_link_leaves_the_state) {
    add_record(100, 7, "port");
    answer_with({padded(named_link(7, IFF_UP)) + error_message(-EPERM)});
    EXPECT_EQ(get(), uint32_t{YB_STATUS_ERROR});
    EXPECT_EQ(state_, 77u);
}

TEST_F(state_get, link_still_whole_in_a_datagram_cut_by_the_buffer_is_an_answer) {
    add_record(100, 7, "port");
    const byte_vector filler = message(RTM_NEWLINK, link_header(1, 0) + byte_vector(8100, 0));
    answer_with({filler + named_link(7, IFF_UP) + byte_vector(100, 0), done_message()});
    EXPECT_EQ(get(), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(state_, 1u);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(state_get, datagram_cut_by_the_buffer_ends_the_dump_whatever_may_follow) {
    add_record(100, 7, "port");
    const byte_vector filler = message(RTM_NEWLINK, link_header(1, 0) + byte_vector(8140, 0));
    answer_with({filler + named_link(7, IFF_UP), named_link(7, IFF_UP)});
    EXPECT_EQ(get(), uint32_t{YB_STATUS_ERROR});
    EXPECT_EQ(state_, 77u);
    EXPECT_EQ(unread_datagrams(), 1u);
    EXPECT_THAT(errors(), ElementsAre("__if_state_get: recvmsg has failed\n"));
    EXPECT_EQ(fcntl(sent()[0].descriptor, F_GETFD), -1);
}

TEST_F(state_get, cut_end_of_the_dump_is_not_waited_for) {
    add_record(100, 7, "port");
    const byte_vector filler = message(RTM_NEWLINK, link_header(1, 0) + byte_vector(8144, 0));
    ASSERT_EQ(filler.size(), 8176u); // 16 bytes are left for the last message of 20
    answer_with({filler + done_message()});
    EXPECT_EQ(get(), uint32_t{YB_STATUS_ERROR});
    EXPECT_EQ(state_, 77u);
}

TEST_F(state_get, dump_that_the_kernel_broke_off_is_an_error) {
    add_record(100, 7, "port");
    answer_with({named_link(1, IFF_UP), message(NLMSG_DONE, bytes_of(int32_t{-EMSGSIZE}))});
    EXPECT_EQ(get(), uint32_t{YB_STATUS_ERROR});
    EXPECT_EQ(state_, 77u);
    EXPECT_THAT(errors(),
                ElementsAre("__if_state_get: link dump was answered with error [90]: Message too long\n"));
}

TEST_F(state_get, failures_of_the_dump_are_traced_under_its_name) {
    add_record(100, 7, "port");
    answer_with({error_message(-EPERM)});
    EXPECT_EQ(get(), uint32_t{YB_STATUS_ERROR});
    answer_with({byte_vector(8193, 0)});
    EXPECT_EQ(get(), uint32_t{YB_STATUS_ERROR});
    calls::fail("recvmsg", ENOBUFS);
    EXPECT_EQ(get(), uint32_t{YB_STATUS_ERROR});
    calls::fail("sendmsg", ENOBUFS);
    EXPECT_EQ(get(), uint32_t{YB_STATUS_ERROR});
    calls::fail("socket", EMFILE);
    EXPECT_EQ(get(), uint32_t{YB_STATUS_ERROR});
    EXPECT_EQ(platform::recorded().trace.size(), 5u);
    EXPECT_THAT(platform::recorded().trace,
                testing::Each(testing::ContainsRegex(" - __if_state_get\\[[0-9]+\\]: __if_state_get: ")));
}

// Carrier files in a sysfs of the test's own.
class partition_key_state : public link_state {
  protected:
    void SetUp() override {
        link_state::SetUp();
        ASSERT_EQ(mount("tmpfs", "/sys", "tmpfs", 0, ""), 0);
        std::filesystem::create_directories("/sys/class/net/ib0.8001");
    }
    void TearDown() override {
        EXPECT_EQ(umount("/sys"), 0);
        link_state::TearDown();
    }
    uint32_t state_with(uint32_t type, uint32_t flags, const std::string &carrier) {
        std::ofstream("/sys/class/net/ib0.8001/carrier") << carrier;
        add_record(100, 7, "ib0.8001", type);
        answer_with({named_link(7, flags)});
        EXPECT_EQ(get(), uint32_t{YB_STATUS_SUCCESS});
        return state_;
    }
};

TEST_F(partition_key_state, up_without_carrier_is_down) {
    EXPECT_EQ(state_with(YB_L2_INTERFACE_TYPE_PKEY, IFF_UP, "0\n"), 0u);
}

TEST_F(partition_key_state, up_with_carrier_is_up) {
    EXPECT_EQ(state_with(YB_L2_INTERFACE_TYPE_PKEY, IFF_UP, "1\n"), 1u);
}

TEST_F(partition_key_state, up_with_any_number_but_0_for_a_carrier_is_up) {
    EXPECT_EQ(state_with(YB_L2_INTERFACE_TYPE_PKEY, IFF_UP, "7\n"), 1u);
}

TEST_F(partition_key_state, down_with_carrier_is_down) {
    EXPECT_EQ(state_with(YB_L2_INTERFACE_TYPE_PKEY, 0, "1\n"), 0u);
}

TEST_F(partition_key_state, up_with_an_unreadable_carrier_is_down) {
    EXPECT_EQ(state_with(YB_L2_INTERFACE_TYPE_PKEY, IFF_UP, ""), 0u);
}

TEST_F(partition_key_state, up_without_a_carrier_file_is_down) {
    add_record(100, 7, "missing", YB_L2_INTERFACE_TYPE_PKEY);
    answer_with({named_link(7, IFF_UP)});
    EXPECT_EQ(get(), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(state_, 0u);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(partition_key_state, other_types_are_not_corrected) {
    for (const uint32_t type : {0u, 1u, 2u, 4u, 6u}) {
        EXPECT_EQ(state_with(type, IFF_UP, "0\n"), 1u);
        ASSERT_EQ(net_lib_db_interface_remove(100), uint32_t{YB_STATUS_SUCCESS});
    }
}
