// SPDX-License-Identifier: Apache-2.0
//
// Opening the process's request socket: its options and address, and every step
// that can fail, with what it says on standard error. The arguments of each call
// are seen from outside in the host tier (port_request_test.cc).
#include "net_lib/rtnl/request.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/log_lines.h"
#include "tests/support/system_calls.h"
#include "tests/support/tool_shims.h"

namespace {

// Copied before any test opens the handle.
const rtnl_handle_t rth_at_start = rth;

class rtnl_opening : public testing::Test {
  protected:
    void SetUp() override {
        platform::reset();
        calls::reset();
        rth = {-1, {}, 0, 0};
    }
    void TearDown() override {
        EXPECT_THAT(logged_lines(), testing::IsEmpty()) << "this layer speaks on standard error only";
        calls::reset();
        if (rth.fd >= 0)
            close(rth.fd);
        rth = {-1, {}, 0, 0};
    }

    static int option(int level, int name) {
        int value = -1;
        socklen_t size = sizeof(value);
        EXPECT_EQ(0, getsockopt(rth.fd, level, name, &value, &size));
        return value;
    }

    // The next open fails and says so; the one after it makes a fresh socket.
    static void expect_failure(const std::string &said) {
        stderr_capture captured;
        EXPECT_EQ(1, rtnl_open());
        EXPECT_EQ(said, captured.text());
        EXPECT_NE(1u, rth.opened);
        const int dropped = rth.fd;
        calls::reset();
        EXPECT_EQ(0, rtnl_open());
        EXPECT_EQ(1, calls::count("socket"));
        EXPECT_EQ(said, captured.text());
        if (dropped >= 0) {
            EXPECT_NE(dropped, rth.fd);
            EXPECT_EQ(FD_CLOEXEC, fcntl(dropped, F_GETFD)) << "dropped open, but not for children";
            close(dropped);
        }
    }
};

} // namespace

TEST_F(rtnl_opening, handle_starts_with_descriptor_minus_1_and_zeros) {
    const rtnl_handle_t expected = {-1, {}, 0, 0};
    EXPECT_EQ(0, memcmp(&expected, &rth_at_start, sizeof(expected)));
}

TEST_F(rtnl_opening, socket_is_a_raw_route_socket_with_its_buffer_size) {
    ASSERT_EQ(0, rtnl_open());
    EXPECT_EQ(AF_NETLINK, option(SOL_SOCKET, SO_DOMAIN));
    EXPECT_EQ(SOCK_RAW, option(SOL_SOCKET, SO_TYPE));
    EXPECT_EQ(NETLINK_ROUTE, option(SOL_SOCKET, SO_PROTOCOL));
    EXPECT_EQ(2 * 32768, option(SOL_SOCKET, SO_SNDBUF)); // the kernel doubles it
    EXPECT_EQ(2, calls::count("setsockopt"));
}

TEST_F(rtnl_opening, socket_is_close_on_exec) {
    ASSERT_EQ(0, rtnl_open());
    EXPECT_EQ(FD_CLOEXEC, fcntl(rth.fd, F_GETFD));
}

TEST_F(rtnl_opening, local_address_is_what_the_kernel_assigned) {
    ASSERT_EQ(0, rtnl_open());
    struct sockaddr_nl address = {};
    socklen_t size = sizeof(address);
    ASSERT_EQ(0, getsockname(rth.fd, reinterpret_cast<struct sockaddr *>(&address), &size));
    EXPECT_EQ(AF_NETLINK, rth.local.nl_family);
    EXPECT_EQ(0, rth.local.nl_pad);
    EXPECT_EQ(address.nl_pid, rth.local.nl_pid);
    EXPECT_NE(0u, rth.local.nl_pid);
    EXPECT_EQ(0u, rth.local.nl_groups);
}

TEST_F(rtnl_opening, sequence_is_seeded_with_the_time) {
    const auto before = static_cast<uint32_t>(time(nullptr));
    ASSERT_EQ(0, rtnl_open());
    const auto after = static_cast<uint32_t>(time(nullptr));
    EXPECT_LE(before, rth.seq);
    EXPECT_GE(after, rth.seq);
    EXPECT_EQ(1u, rth.opened);
}

TEST_F(rtnl_opening, second_open_returns_0_without_touching_socket_or_sequence) {
    ASSERT_EQ(0, rtnl_open());
    rth.seq = 12345;
    const rtnl_handle_t before = rth;
    calls::reset();
    EXPECT_EQ(0, rtnl_open());
    EXPECT_EQ(0, memcmp(&before, &rth, sizeof(before)));
    for (const char *const function : {"socket", "setsockopt", "bind", "getsockname"})
        EXPECT_EQ(0, calls::count(function)) << function;
}

TEST_F(rtnl_opening, handle_marked_with_anything_but_1_is_not_open) {
    rth = {-1, {AF_INET, 1, 2, 3}, 4, 2};
    ASSERT_EQ(0, rtnl_open());
    EXPECT_EQ(1u, rth.opened);
    EXPECT_EQ(AF_NETLINK, rth.local.nl_family);
    EXPECT_EQ(0, rth.local.nl_pad);
    EXPECT_EQ(0u, rth.local.nl_groups);
}

TEST_F(rtnl_opening, no_socket) {
    calls::fail("socket", EMFILE);
    expect_failure("Cannot open netlink socket: Too many open files\n");
}

TEST_F(rtnl_opening, no_send_buffer) {
    calls::fail("setsockopt", ENOBUFS, 1);
    expect_failure("SO_SNDBUF: No buffer space available\n");
}

TEST_F(rtnl_opening, no_receive_buffer) {
    calls::fail("setsockopt", EINVAL, 2);
    expect_failure("SO_RCVBUF: Invalid argument\n");
}

TEST_F(rtnl_opening, no_bind) {
    calls::fail("bind", EADDRINUSE);
    expect_failure("Cannot bind netlink socket: Address already in use\n");
}

TEST_F(rtnl_opening, no_own_address) {
    calls::fail("getsockname", ENOTSOCK);
    expect_failure("Cannot getsockname: Socket operation on non-socket\n");
}

TEST_F(rtnl_opening, own_address_of_wrong_length) {
    calls::on_getsockname() = [](int, struct sockaddr *address, socklen_t *size) {
        EXPECT_EQ(12u, *size);
        address->sa_family = AF_INET; // the length is looked at first
        *size = 16;
        return 0;
    };
    expect_failure("Wrong address length 16\n");
}

TEST_F(rtnl_opening, own_address_of_wrong_family) {
    calls::on_getsockname() = [](int, struct sockaddr *address, socklen_t *size) {
        address->sa_family = AF_INET6;
        *size = 12;
        return 0;
    };
    expect_failure("Wrong address family 10\n");
}

TEST_F(rtnl_opening, steps_come_in_their_order) {
    std::vector<std::string> order;
    for (const char *const function : {"socket", "setsockopt", "bind", "getsockname"})
        calls::before(function, [&order, function](int) { order.emplace_back(function); });
    ASSERT_EQ(0, rtnl_open());
    EXPECT_THAT(order, testing::ElementsAre("socket", "setsockopt", "setsockopt", "bind", "getsockname"));
}
