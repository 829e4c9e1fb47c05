// SPDX-License-Identifier: Apache-2.0
//
// Link events, dumps and states out of the kit, as libybnet and a poll loop see
// them.
#include "tests/testkit/kit_fixture.h"

#include <cstring>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <sys/wait.h>

namespace {

class kit_events : public kit_test {
  protected:
    void SetUp() override {
        kit_test::SetUp();
        ASSERT_EQ(YB_STATUS_SUCCESS, create(1001, vlan(5)));
        ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_register_net_if_event_group(
                                         YB_ACCESS_CMD_CREATE, YB_NET_IF_EVENT_GROUP_LINK, &socket_));
    }
    void TearDown() override {
        close(socket_.fd);
        kit_test::TearDown();
    }
    bool readable() const {
        struct pollfd waited = {socket_.fd, POLLIN, 0};
        return poll(&waited, 1, 0) == 1;
    }
    // "TYPE SYS_IFINDEX", "error", or "nothing".
    std::string next() {
        if (!readable())
            return "nothing";
        yb_net_if_event_t event = {};
        if (yb_net_if_event_receive(&socket_, &event) != YB_STATUS_SUCCESS)
            return "error";
        static const char *const types[] = {"none", "down", "up", "change", "deleted"};
        return std::string(types[event.event_type]) + " " + std::to_string(event.sys_ifindex);
    }

    yb_net_sk_t socket_ = {};
};

} // namespace

TEST_F(kit_events, changes_of_a_netdev_come_as_events) {
    EXPECT_EQ("nothing", next());
    ASSERT_EQ(0, ybtk_netdev_set_up(nullptr, "swid0_eth.5", 1));
    ASSERT_EQ(0, ybtk_netdev_set_up(nullptr, "swid0_eth.5", 1)); // no change, no event
    ASSERT_EQ(0, ybtk_netdev_set_carrier(nullptr, "swid0_eth.5", 0));
    ASSERT_EQ(0, ybtk_netdev_set_up(nullptr, "swid0_eth.5", 0));
    ASSERT_EQ(0, ybtk_netdev_remove(nullptr, "swid0_eth.5"));
    EXPECT_EQ("up 1001", next());
    EXPECT_EQ("change 1001", next());
    EXPECT_EQ("down 1001", next());
    EXPECT_EQ("deleted 1001", next());
    EXPECT_EQ("nothing", next());
}

TEST_F(kit_events, state_is_set_by_request_announced_and_read_from_a_dump) {
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_interface_state_set(1001, YB_NET_IF_STATE_UP));
    EXPECT_EQ("up 1001", next());
    uint32_t state = 9;
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_interface_state_get(1001, &state));
    EXPECT_EQ(1u, state);
    EXPECT_EQ(static_cast<uint32_t>(IFF_UP | IFF_RUNNING),
              ybtk_netdev_flags(nullptr, "swid0_eth.5") & (IFF_UP | IFF_RUNNING));
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_interface_state_set(1001, YB_NET_IF_STATE_DOWN));
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_interface_state_get(1001, &state));
    EXPECT_EQ(0u, state);
}

TEST_F(kit_events, dump_of_more_links_than_one_datagram_holds_finds_the_last) {
    for (int i = 0; i < 200; i++)
        ASSERT_EQ(0, ybtk_netdev_add(nullptr, ("extra" + std::to_string(i)).c_str(), nullptr));
    uint32_t state = 9;
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_interface_state_get(1001, &state));
    EXPECT_EQ(0u, state);
}

TEST_F(kit_events, scripted_dump_error_reaches_the_caller) {
    ASSERT_EQ(0, ybtk_rtnetlink_answer_error(RTM_GETLINK, EACCES, 1));
    uint32_t state = 9;
    EXPECT_EQ(YB_STATUS_ERROR, yb_net_interface_state_get(1001, &state));
    EXPECT_EQ(1u, ybtk_log_matches(
                      1, "__if_state_get: link dump was answered with error [13]: Permission denied\n"));
}

TEST_F(kit_events, loss_comes_first_and_what_was_queued_behind_it) {
    ASSERT_EQ(0, ybtk_netdev_set_up(nullptr, "swid0_eth.5", 1));
    ASSERT_EQ(0, ybtk_events_lost());
    EXPECT_EQ("error", next());
    EXPECT_EQ("up 1001", next());
    EXPECT_EQ("nothing", next());
}

TEST_F(kit_events, loss_wakes_a_receiver_with_nothing_queued) {
    ASSERT_EQ(0, ybtk_events_lost());
    EXPECT_EQ("error", next());
    EXPECT_EQ("nothing", next());
}

TEST_F(kit_events, queue_beyond_its_limit_loses_events) {
    ASSERT_EQ(0, ybtk_event_queue_limit(2));
    for (uint32_t i = 0; i < 3; i++)
        ASSERT_EQ(0, ybtk_link_event(RTM_NEWLINK, if_nametoindex("swid0_eth.5"), IFF_UP, IFF_UP));
    EXPECT_EQ("error", next());
    EXPECT_EQ("up 1001", next());
    EXPECT_EQ("up 1001", next());
    EXPECT_EQ("nothing", next());
}

TEST_F(kit_events, any_bytes_can_be_sent) {
    ASSERT_EQ(0, ybtk_event_datagram("short", 5));
    EXPECT_EQ("error", next());
    EXPECT_EQ(1u, ybtk_log_matches(1, "__yb_net_if_state_event_receive: netlink message is not truncated\n"));
}

TEST_F(kit_events, process_id_is_one_sockets_port_id) {
    yb_net_sk_t second = {};
    EXPECT_EQ(YB_STATUS_ERROR,
              yb_net_register_net_if_event_group(YB_ACCESS_CMD_CREATE, YB_NET_IF_EVENT_GROUP_LINK, &second));
    close(second.fd);
    close(socket_.fd);
    EXPECT_EQ(YB_STATUS_SUCCESS,
              yb_net_register_net_if_event_group(YB_ACCESS_CMD_CREATE, YB_NET_IF_EVENT_GROUP_LINK, &socket_));
}

TEST_F(kit_events, another_process_changes_a_netdev_by_the_tools) {
    EXPECT_EQ(0, ybtk_wait_for_subscribers(1, limit_ms));
    ASSERT_EQ(0, system("ip link set dev swid0_eth.5 up"));
    EXPECT_EQ("up 1001", next());
}

TEST_F(kit_events, killed_subscriber_is_forgotten) {
    int ready[2];
    ASSERT_EQ(0, pipe(ready));
    const pid_t child = fork();
    if (child == 0) {
        yb_net_sk_t own = {};
        const bool made = yb_net_register_net_if_event_group(YB_ACCESS_CMD_CREATE, YB_NET_IF_EVENT_GROUP_LINK,
                                                             &own) == YB_STATUS_SUCCESS;
        (void)!write(ready[1], made ? "y" : "n", 1);
        pause();
        _exit(0);
    }
    char made = 0;
    ASSERT_EQ(1, read(ready[0], &made, 1));
    EXPECT_EQ('y', made);
    EXPECT_EQ(0, ybtk_wait_for_subscribers(2, limit_ms));
    ASSERT_EQ(0, kill(child, SIGKILL));
    ASSERT_EQ(child, waitpid(child, nullptr, 0));
    EXPECT_EQ(0, ybtk_wait_for_subscribers(1, limit_ms));
    ASSERT_EQ(0, ybtk_netdev_set_up(nullptr, "swid0_eth.5", 1));
    EXPECT_EQ("up 1001", next());
    EXPECT_EQ(-1, ybtk_wait_for_subscribers(2, 5));
    EXPECT_EQ(ETIMEDOUT, errno);
    close(ready[0]);
    close(ready[1]);
}

TEST_F(kit_events, raw_receiver_sees_truncation_peeking_and_the_kernels_address) {
    ASSERT_EQ(0, ybtk_netdev_set_up(nullptr, "swid0_eth.5", 1));
    char part[16];
    struct sockaddr_nl source = {};
    struct iovec where = {part, sizeof(part)};
    struct msghdr message = {};
    message.msg_name = &source;
    message.msg_namelen = sizeof(source);
    message.msg_iov = &where;
    message.msg_iovlen = 1;
    const ssize_t whole = recvmsg(socket_.fd, &message, MSG_PEEK | MSG_TRUNC);
    EXPECT_GT(whole, 32);
    EXPECT_EQ(MSG_TRUNC, message.msg_flags & MSG_TRUNC);
    EXPECT_EQ(AF_NETLINK, source.nl_family);
    EXPECT_EQ(16, recv(socket_.fd, part, sizeof(part), 0));
    EXPECT_EQ(-1, recv(socket_.fd, part, sizeof(part), MSG_DONTWAIT));
    EXPECT_EQ(EAGAIN, errno);
}

TEST_F(kit_events, libnl_dumps_and_subscribes_too) {
    struct nl_sock *const sock = nl_socket_alloc();
    ASSERT_EQ(0, nl_connect(sock, NETLINK_ROUTE));
    std::vector<uint16_t> types;
    const auto collect = [](struct nl_msg *message, void *found) -> int {
        static_cast<std::vector<uint16_t> *>(found)->push_back(nlmsg_hdr(message)->nlmsg_type);
        return NL_OK;
    };
    nl_socket_disable_seq_check(sock);
    ASSERT_EQ(0, nl_socket_modify_cb(sock, NL_CB_VALID, NL_CB_CUSTOM, collect, &types));
    struct rtgenmsg family = {AF_UNSPEC};
    ASSERT_GE(nl_send_simple(sock, RTM_GETLINK, NLM_F_DUMP, &family, sizeof(family)), 0);
    ASSERT_EQ(0, nl_recvmsgs_default(sock));
    EXPECT_EQ(std::vector<uint16_t>(3, RTM_NEWLINK), types) << "lo, swid0_eth, swid0_eth.5";

    types.clear();
    ASSERT_EQ(0, nl_socket_add_memberships(sock, RTNLGRP_LINK, 0));
    EXPECT_EQ(0, ybtk_wait_for_subscribers(2, limit_ms));
    ASSERT_EQ(0, ybtk_netdev_remove(nullptr, "swid0_eth.5"));
    ASSERT_EQ(0, nl_recvmsgs_default(sock));
    EXPECT_EQ(std::vector<uint16_t>{RTM_DELLINK}, types);
    nl_socket_free(sock);
    EXPECT_EQ("deleted 1001", next());
}
