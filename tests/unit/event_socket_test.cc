// SPDX-License-Identifier: Apache-2.0
//
// Event sockets: registering and deregistering, descriptor and buffer sizes, on
// real sockets; failures forced.
#include "tests/unit/links_fixture.h"

#include <cerrno>
#include <fcntl.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>

using testing::ElementsAre;
using testing::IsEmpty;

class event_socket : public links_fixture {
  protected:
    void TearDown() override {
        if (sk_.fd > 0 && libnl_ == nullptr)
            close(sk_.fd);
        nl_socket_free(libnl_);
        links_fixture::TearDown();
    }
    yb_status_t registered() {
        return yb_net_register_net_if_event_group(YB_ACCESS_CMD_CREATE, 0, &sk_);
    }
    // A socket that the caller made with libnl; not connected: it has no descriptor yet.
    void make_libnl_socket() {
        libnl_ = nl_socket_alloc();
        sk_.type = YB_NET_SK_TYPE_LIBNL;
        sk_.sk = libnl_;
    }
    int option(int name) const {
        int value = 0;
        socklen_t size = sizeof(value);
        EXPECT_EQ(getsockopt(sk_.fd, SOL_SOCKET, name, &value, &size), 0);
        return value;
    }

    yb_net_sk_t sk_ = {};
    struct nl_sock *libnl_ = nullptr;
};

TEST_F(event_socket, null_is_refused_silently_by_registering) {
    EXPECT_EQ(yb_net_register_net_if_event_group(99, 5, nullptr), uint32_t{YB_STATUS_PARAM_NULL});
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(event_socket, registering_binds_a_raw_socket_to_the_link_group_under_the_process_id) {
    ASSERT_EQ(registered(), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(sk_.type, uint32_t{YB_NET_SK_TYPE_RAW});
    struct sockaddr_nl address = {};
    socklen_t size = sizeof(address);
    ASSERT_EQ(getsockname(sk_.fd, reinterpret_cast<struct sockaddr *>(&address), &size), 0);
    EXPECT_EQ(address.nl_family, AF_NETLINK);
    EXPECT_EQ(address.nl_pid, static_cast<uint32_t>(getpid()));
    EXPECT_EQ(address.nl_groups, 1u);
    EXPECT_EQ(option(SO_TYPE), SOCK_RAW);
    EXPECT_EQ(option(SO_PROTOCOL), NETLINK_ROUTE);
    EXPECT_EQ(fcntl(sk_.fd, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(sk_.fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(calls::count("setsockopt"), 0); // no buffer size
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(event_socket, another_group_is_refused_and_changes_nothing) {
    sk_.type = YB_NET_SK_TYPE_LIBNL;
    sk_.fd = -7;
    for (const uint32_t group : {1u, 5u, 0xFFFFFFFFu}) {
        EXPECT_EQ(yb_net_register_net_if_event_group(YB_ACCESS_CMD_CREATE, group, &sk_),
                  uint32_t{YB_STATUS_PARAM_ERROR});
    }
    EXPECT_EQ(sk_.type, uint32_t{YB_NET_SK_TYPE_LIBNL});
    EXPECT_EQ(sk_.fd, -7);
    EXPECT_EQ(calls::count("socket"), 0);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(event_socket, failed_socket_is_said_and_leaves_the_type_raw) {
    calls::fail("socket", EMFILE);
    EXPECT_EQ(registered(), uint32_t{YB_STATUS_ERROR});
    EXPECT_THAT(errors(),
                ElementsAre("yb_net_register_net_if_event_group: cannot open NETLINK_ROUTE socket\n"));
    EXPECT_EQ(sk_.type, uint32_t{YB_NET_SK_TYPE_RAW});
    EXPECT_EQ(calls::count("bind"), 0);
}

TEST_F(event_socket, failed_bind_is_said_and_leaves_the_descriptor_open) {
    calls::fail("bind", EPERM);
    EXPECT_EQ(registered(), uint32_t{YB_STATUS_ERROR});
    EXPECT_THAT(errors(), ElementsAre("yb_net_register_net_if_event_group: cannot bind NETLINK_ROUTE socket, "
                                      "please check you are root\n"));
    EXPECT_EQ(sk_.type, uint32_t{YB_NET_SK_TYPE_RAW});
    EXPECT_EQ(fcntl(sk_.fd, F_GETFD), FD_CLOEXEC);
}

TEST_F(event_socket, failures_are_traced_under_the_exported_functions_names) {
    calls::fail("socket", EMFILE);
    EXPECT_EQ(registered(), uint32_t{YB_STATUS_ERROR});
    calls::fail("bind", EPERM);
    EXPECT_EQ(registered(), uint32_t{YB_STATUS_ERROR});
    EXPECT_EQ(platform::recorded().trace.size(), 2u);
    EXPECT_THAT(platform::recorded().trace,
                testing::Each(testing::HasSubstr(" - yb_net_register_net_if_event_group[")));
    platform::reset();
    for (const int failing : {1, 2}) { // the send side, the receive side
        calls::fail("setsockopt", EPERM, failing);
        EXPECT_EQ(yb_net_set_buffer_size(&sk_, 1, 1), uint32_t{YB_STATUS_ERROR});
    }
    EXPECT_EQ(platform::recorded().trace.size(), 2u);
    EXPECT_THAT(platform::recorded().trace, testing::Each(testing::HasSubstr(" - yb_net_set_buffer_size[")));
}

TEST_F(event_socket, port_id_that_the_request_handle_has_fails_the_bind) {
    add_record(1, 1, "lo");
    ASSERT_EQ(yb_net_interface_state_set(1, 1), uint32_t{YB_STATUS_SUCCESS}); // opens rth
    ASSERT_EQ(rth.local.nl_pid, static_cast<uint32_t>(getpid()));
    EXPECT_EQ(registered(), uint32_t{YB_STATUS_ERROR});
    EXPECT_THAT(errors(), ElementsAre(testing::EndsWith("please check you are root\n")));
}

TEST_F(event_socket, deregistering_forgets_the_type_and_leaves_the_descriptor_open) {
    ASSERT_EQ(registered(), uint32_t{YB_STATUS_SUCCESS});
    const int32_t fd = sk_.fd;
    EXPECT_EQ(yb_net_register_net_if_event_group(YB_ACCESS_CMD_DESTROY, 5, &sk_), // the group does not matter
              uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(sk_.type, uint32_t{YB_NET_SK_TYPE_NONE});
    EXPECT_EQ(sk_.fd, fd);
    EXPECT_NE(fcntl(fd, F_GETFD), -1);
    EXPECT_EQ(yb_net_register_net_if_event_group(YB_ACCESS_CMD_DESTROY, 0, &sk_),
              uint32_t{YB_STATUS_PARAM_ERROR});
}

TEST_F(event_socket, deregistering_what_is_not_raw_is_refused) {
    for (const uint32_t type : {uint32_t{YB_NET_SK_TYPE_NONE}, uint32_t{YB_NET_SK_TYPE_LIBNL}}) {
        sk_.type = type;
        EXPECT_EQ(yb_net_register_net_if_event_group(YB_ACCESS_CMD_DESTROY, 0, &sk_),
                  uint32_t{YB_STATUS_PARAM_ERROR});
        EXPECT_EQ(sk_.type, type);
    }
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(event_socket, other_commands_are_unsupported) {
    for (const uint32_t cmd : {0u, 1u, 3u, 15u, 17u, 99u}) {
        EXPECT_EQ(yb_net_register_net_if_event_group(cmd, 0, &sk_), uint32_t{YB_STATUS_CMD_UNSUPPORTED});
        EXPECT_EQ(yb_net_register_net_if_event_group(cmd, 5, &sk_), uint32_t{YB_STATUS_CMD_UNSUPPORTED});
    }
    EXPECT_EQ(sk_.type, uint32_t{YB_NET_SK_TYPE_NONE});
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(event_socket, descriptor_of_a_raw_socket_is_its_fd) {
    sk_.type = YB_NET_SK_TYPE_RAW;
    sk_.fd = -3; // as it is, good or bad
    int32_t fd = 0;
    EXPECT_EQ(yb_net_get_fd(&sk_, &fd), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(fd, -3);
}

TEST_F(event_socket, descriptor_of_a_libnl_socket_is_libnls) {
    make_libnl_socket();
    int32_t fd = 0;
    EXPECT_EQ(yb_net_get_fd(&sk_, &fd), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(fd, -1); // not connected
    ASSERT_EQ(nl_connect(libnl_, NETLINK_ROUTE), 0);
    EXPECT_EQ(yb_net_get_fd(&sk_, &fd), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(fd, nl_socket_get_fd(libnl_));
    EXPECT_GT(fd, 2);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(event_socket, nulls_are_said_by_get_fd_in_order) {
    int32_t fd = 17;
    EXPECT_EQ(yb_net_get_fd(nullptr, nullptr), uint32_t{YB_STATUS_PARAM_NULL});
    EXPECT_EQ(yb_net_get_fd(&sk_, nullptr), uint32_t{YB_STATUS_PARAM_NULL}); // before the type
    sk_.type = YB_NET_SK_TYPE_LIBNL;
    EXPECT_EQ(yb_net_get_fd(&sk_, &fd), uint32_t{YB_STATUS_PARAM_NULL});
    EXPECT_THAT(errors(), ElementsAre("yb_net_get_fd: in_net_sk is NULL\n", "yb_net_get_fd: out_fd is NULL\n",
                                      "yb_net_get_fd: in_net_sk->sk is NULL\n"));
    EXPECT_EQ(fd, 17);
}

TEST_F(event_socket, socket_that_holds_nothing_has_neither_descriptor_nor_buffers) {
    int32_t fd = 17;
    for (const uint32_t type : {0u, 3u, 0xFFFFFFFFu}) {
        sk_.type = type;
        EXPECT_EQ(yb_net_get_fd(&sk_, &fd), uint32_t{YB_STATUS_PARAM_ERROR});
        EXPECT_EQ(yb_net_set_buffer_size(&sk_, 1, 1), uint32_t{YB_STATUS_PARAM_ERROR});
    }
    EXPECT_EQ(fd, 17);
    EXPECT_EQ(calls::count("setsockopt"), 0);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(event_socket, buffer_sizes_of_a_raw_socket_are_set_each_on_its_side) {
    ASSERT_EQ(registered(), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(yb_net_set_buffer_size(&sk_, 70000, 9000), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(option(SO_RCVBUF), 2 * 70000); // the kernel doubles them
    EXPECT_EQ(option(SO_SNDBUF), 2 * 9000);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(event_socket, failed_send_buffer_is_said_and_the_receive_buffer_not_tried) {
    sk_.type = YB_NET_SK_TYPE_RAW;
    sk_.fd = -1;
    calls::fail("setsockopt", EPERM, 1);
    EXPECT_EQ(yb_net_set_buffer_size(&sk_, 1, 1), uint32_t{YB_STATUS_ERROR});
    EXPECT_THAT(errors(), ElementsAre("yb_net_set_buffer_size: setsockopt for SO_SNDBUF returned error "
                                      "(Operation not permitted)\n"));
    EXPECT_EQ(log()[0].format, "yb_net_set_buffer_size: setsockopt for SO_SNDBUF returned error (%s)\n");
    EXPECT_EQ(platform::recorded().trace[0].substr(platform::recorded().trace[0].find("(")),
              "(Operation not permitted)\n"); // although logging spoilt errno
    EXPECT_EQ(calls::count("setsockopt"), 1);
}

TEST_F(event_socket, failed_receive_buffer_is_said) {
    ASSERT_EQ(registered(), uint32_t{YB_STATUS_SUCCESS});
    calls::fail("setsockopt", EPERM, 2);
    EXPECT_EQ(yb_net_set_buffer_size(&sk_, 70000, 9000), uint32_t{YB_STATUS_ERROR});
    EXPECT_THAT(errors(), ElementsAre("yb_net_set_buffer_size: setsockopt for SO_RCVBUF returned error "
                                      "(Operation not permitted)\n"));
    EXPECT_EQ(option(SO_SNDBUF), 2 * 9000); // was set already
}

TEST_F(event_socket, buffer_sizes_of_a_libnl_socket_are_set_each_on_its_side) {
    make_libnl_socket();
    ASSERT_EQ(nl_connect(libnl_, NETLINK_ROUTE), 0);
    EXPECT_EQ(yb_net_set_buffer_size(&sk_, 70000, 9000), uint32_t{YB_STATUS_SUCCESS});
    yb_net_sk_t raw = {};
    raw.fd = nl_socket_get_fd(libnl_);
    std::swap(raw, sk_);
    EXPECT_EQ(option(SO_RCVBUF), 2 * 70000);
    EXPECT_EQ(option(SO_SNDBUF), 2 * 9000);
    std::swap(raw, sk_);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(event_socket, libnl_that_cannot_set_the_sizes_is_said_with_its_result) {
    make_libnl_socket(); // not connected
    const int result = nl_socket_set_buffer_size(libnl_, 70000, 9000);
    ASSERT_LT(result, 0);
    EXPECT_EQ(yb_net_set_buffer_size(&sk_, 70000, 9000), uint32_t{YB_STATUS_ERROR});
    EXPECT_THAT(errors(), ElementsAre("yb_net_set_buffer_size: nl_socket_set_buffer_size returned error (" +
                                      std::to_string(result) + ")\n"));
}

TEST_F(event_socket, nulls_are_said_by_set_buffer_size_in_the_name_of_get_fd) {
    EXPECT_EQ(yb_net_set_buffer_size(nullptr, 1, 1), uint32_t{YB_STATUS_PARAM_NULL});
    sk_.type = YB_NET_SK_TYPE_LIBNL;
    EXPECT_EQ(yb_net_set_buffer_size(&sk_, 1, 1), uint32_t{YB_STATUS_PARAM_NULL});
    EXPECT_THAT(errors(),
                ElementsAre("yb_net_get_fd: in_net_sk is NULL\n", "yb_net_get_fd: in_net_sk->sk is NULL\n"));
}
