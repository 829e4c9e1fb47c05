// SPDX-License-Identifier: Apache-2.0
//
// Router interfaces made and removed by libybnet with the kit's tools, netdevs
// and rtnetlink peer under it.
#include "tests/testkit/kit_fixture.h"

#include <linux/rtnetlink.h>
#include <net/if.h>

using testing::ElementsAre;
using testing::HasSubstr;
using kit_interfaces = kit_test;

TEST_F(kit_interfaces, vlan_is_made_by_a_recorded_command_and_found_by_name) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1001, vlan(5)));
    EXPECT_THAT(runs(), ElementsAre("vconfig add swid0_eth 5"));
    yb_net_interface_record_t record;
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_interface_params_get(1001, &record));
    EXPECT_EQ(ybtk_netdev_ifindex(nullptr, "swid0_eth.5"), record.linux_ifindex);
    EXPECT_EQ(record.linux_ifindex, if_nametoindex("swid0_eth.5"));
    char name[IF_NAMESIZE];
    EXPECT_STREQ("swid0_eth.5", if_indextoname(record.linux_ifindex, name));
    ASSERT_EQ(YB_STATUS_SUCCESS, destroy(1001));
    EXPECT_EQ(0u, if_nametoindex("swid0_eth.5"));
}

TEST_F(kit_interfaces, vlan_format_renames) {
    auto params = vlan(5);
    params.by_type.vlan.name_format = YB_NET_NAME_FORMAT_VLAN;
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1001, params));
    EXPECT_THAT(runs(), ElementsAre("vconfig add swid0_eth 5", "ip link set swid0_eth.5 name vlan5"));
    EXPECT_NE(0u, ybtk_netdev_ifindex(nullptr, "vlan5"));
    EXPECT_EQ(0u, ybtk_netdev_ifindex(nullptr, "swid0_eth.5"));
}

TEST_F(kit_interfaces, vlan_moves_into_its_namespace) {
    ASSERT_EQ(0, ybtk_namespace_add("blue"));
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1001, vlan(5, "blue")));
    EXPECT_EQ(0u, ybtk_netdev_ifindex(nullptr, "swid0_eth.5"));
    yb_net_interface_record_t record;
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_interface_params_get(1001, &record));
    EXPECT_EQ(ybtk_netdev_ifindex("blue", "swid0_eth.5"), record.linux_ifindex);
    ASSERT_EQ(YB_STATUS_SUCCESS, destroy(1001));
    EXPECT_EQ(0u, ybtk_netdev_ifindex("blue", "swid0_eth.5"));
}

TEST_F(kit_interfaces, namespace_that_does_not_exist_is_refused) {
    EXPECT_EQ(YB_STATUS_ERROR, create(1001, vlan(5, "nowhere")));
}

TEST_F(kit_interfaces, parent_that_does_not_exist_is_refused) {
    ASSERT_EQ(0, ybtk_netdev_remove(nullptr, "swid0_eth"));
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, create(1001, vlan(5)));
    EXPECT_EQ(1u, ybtk_log_matches(1, "swid0_eth doesn't exist\n"));
    EXPECT_THAT(runs(), ElementsAre());
}

TEST_F(kit_interfaces, told_command_exits_as_told_and_changes_nothing) {
    ASSERT_EQ(0, ybtk_tool_answer("vconfig add *", 3, nullptr, 1));
    EXPECT_EQ(YB_STATUS_ERROR, create(1001, vlan(5)));
    EXPECT_EQ(0u, ybtk_netdev_ifindex(nullptr, "swid0_eth.5"));
    EXPECT_EQ(YB_STATUS_SUCCESS, create(1001, vlan(5))) << "only once";
    EXPECT_EQ(2u, runs().size());
}

TEST_F(kit_interfaces, latest_answer_that_matches_counts_and_prints_what_it_is_told) {
    ASSERT_EQ(0, ybtk_tool_answer("vconfig *", 3, nullptr, 0));
    ASSERT_EQ(0, ybtk_tool_answer("vconfig add *", 0, "a\tb\\\nc", 0));
    FILE *const output = popen("vconfig add x 1", "r");
    char text[64] = {};
    ASSERT_NE(nullptr, output);
    EXPECT_EQ(6u, fread(text, 1, sizeof(text), output));
    EXPECT_STREQ("a\tb\\\nc", text);
    EXPECT_EQ(0, pclose(output));
    EXPECT_EQ(3 << 8, system("vconfig rem x"));
}

TEST_F(kit_interfaces, script_runs_instead_of_a_tool) {
    ASSERT_EQ(0, ybtk_tool_script("vconfig", "test \"$1 $2\" = 'add swid0_eth' && exit 7"));
    EXPECT_EQ(7 << 8, system("vconfig add swid0_eth 5"));
    ASSERT_EQ(0, ybtk_tool_script("vconfig", "[ -e $0.once ] || { : >$0.once; exit 1; }"));
    EXPECT_EQ(1 << 8, system("vconfig add swid0_eth 5"));
    EXPECT_EQ(0, system("vconfig add swid0_eth 5")) << "what it kept is still there";
    EXPECT_EQ(0, access((std::string(ybtk_directory()) + "/scripts/vconfig.once").c_str(), F_OK));
    ASSERT_EQ(0, ybtk_tool_script("vconfig", nullptr));
    EXPECT_EQ(0, system("vconfig add swid0_eth 5"));
    EXPECT_EQ(-1, ybtk_tool_script("tc", "exit 0"));
    EXPECT_EQ(EINVAL, errno);
}

TEST_F(kit_interfaces, command_that_is_not_modelled_fails) {
    EXPECT_EQ(255 << 8, system("ip route show 2>&1 | grep -q 'not modelled' && exit 255"));
}

TEST_F(kit_interfaces, port_is_made_and_removed_by_a_request) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(2001, named(YB_L2_INTERFACE_TYPE_PORT, "sw1p1")));
    EXPECT_NE(0u, ybtk_netdev_ifindex(nullptr, "sw1p1"));
    ASSERT_EQ(1u, ybtk_rtnetlink_request_count());
    char request[2048] = {};
    const size_t size = ybtk_rtnetlink_request_get(0, request, sizeof(request));
    const auto *const header = reinterpret_cast<const struct nlmsghdr *>(request);
    EXPECT_EQ(size, header->nlmsg_len);
    EXPECT_EQ(RTM_NEWLINK, header->nlmsg_type);
    EXPECT_THAT(std::string(request, size), HasSubstr("yb_netdev"));
    EXPECT_EQ(0u, ybtk_rtnetlink_request_get(1, request, sizeof(request)));
    ASSERT_EQ(YB_STATUS_SUCCESS, destroy(2001));
    EXPECT_EQ(0u, ybtk_netdev_ifindex(nullptr, "sw1p1"));
}

TEST_F(kit_interfaces, scripted_errors_are_used_up_in_order) {
    ASSERT_EQ(0, ybtk_rtnetlink_answer_error(RTM_NEWLINK, EPERM, 1));
    ASSERT_EQ(0, ybtk_rtnetlink_answer_error(RTM_NEWLINK, 0, 1));
    EXPECT_EQ(YB_STATUS_ERROR, create(2001, named(YB_L2_INTERFACE_TYPE_PORT, "sw1p1")));
    EXPECT_EQ(
        1u, ybtk_log_matches(1, "yb_net_port_if_set: rtnl_talk: failed to CREATE port netdev \"sw1p1\".\n"));
    EXPECT_EQ(YB_STATUS_ERROR, create(2001, named(YB_L2_INTERFACE_TYPE_PORT, "sw1p1")))
        << "acknowledged, but without effect: its ifindex is not found";
    EXPECT_EQ(YB_STATUS_SUCCESS, create(2001, named(YB_L2_INTERFACE_TYPE_PORT, "sw1p1")));
    EXPECT_EQ(-1, ybtk_rtnetlink_answer_error(RTM_NEWLINK, EPERM, 0));
    EXPECT_EQ(EINVAL, errno);
}

TEST_F(kit_interfaces, scripted_bytes_are_an_answer_to_the_request) {
    struct {
        struct nlmsghdr header;
        struct nlmsgerr error;
    } answer = {};
    answer.header.nlmsg_len = sizeof(answer);
    answer.header.nlmsg_type = NLMSG_ERROR;
    answer.error.error = -ENOSPC;
    ASSERT_EQ(0, ybtk_rtnetlink_answer_datagram(0, &answer, sizeof(answer), 1));
    errno = 0;
    EXPECT_EQ(YB_STATUS_ERROR, create(2001, named(YB_L2_INTERFACE_TYPE_PORT, "sw1p1")));
    EXPECT_EQ(YB_STATUS_SUCCESS, create(2001, named(YB_L2_INTERFACE_TYPE_PORT, "sw1p1")));
}

TEST_F(kit_interfaces, loopback_is_a_bridge_inside_its_namespace) {
    ASSERT_EQ(0, ybtk_namespace_add("blue"));
    ASSERT_EQ(YB_STATUS_SUCCESS, create(3001, named(YB_L2_INTERFACE_TYPE_LOOPBACK, "loop7", "blue")));
    EXPECT_THAT(runs(), testing::Contains("ip netns exec blue ip link add name loop7 type bridge"));
    EXPECT_NE(0u, ybtk_netdev_ifindex("blue", "loop7"));
}

TEST_F(kit_interfaces, vlans_go_with_their_parent) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1001, vlan(5)));
    ASSERT_EQ(0, ybtk_netdev_remove(nullptr, "swid0_eth"));
    EXPECT_EQ(0u, if_nametoindex("swid0_eth.5"));
}

TEST_F(kit_interfaces, netdev_names_are_checked_as_the_kernel_does) {
    const auto refusal = [](const char *ns, const char *name) {
        return ybtk_netdev_add(ns, name, nullptr) == 0 ? 0 : errno;
    };
    EXPECT_EQ(EEXIST, refusal(nullptr, "swid0_eth"));
    EXPECT_EQ(EINVAL, refusal(nullptr, ""));
    EXPECT_EQ(EINVAL, refusal(nullptr, "a/b"));
    EXPECT_EQ(EINVAL, refusal(nullptr, "a b"));
    EXPECT_EQ(ENAMETOOLONG, refusal(nullptr, "a234567890123456"));
    EXPECT_EQ(0, refusal(nullptr, "a23456789012345"));
    EXPECT_EQ(ENOENT, refusal("nowhere", "a"));
    EXPECT_EQ(1u, if_nametoindex("lo"));
}
