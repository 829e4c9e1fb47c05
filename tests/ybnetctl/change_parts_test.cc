// SPDX-License-Identifier: Apache-2.0
//
// What the changing commands are made of: names, addresses, requests in words, the netdevs of a rehearsal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cstring>
#include <linux/if_link.h>

#include "tests/support/netdevs.h"
#include "tools/ybnetctl/change/alias_values.h"
#include "tools/ybnetctl/change/interface_create.h"
#include "tools/ybnetctl/change/link_kinds.h"
#include "tools/ybnetctl/change/names.h"
#include "tools/ybnetctl/change/progress.h"
#include "tools/ybnetctl/change/request_text.h"
#include "tools/ybnetctl/change/stand_in_netdevs.h"
#include "ybnet/yb_net_rtnl.h"

using testing::HasSubstr;
using namespace ybnetctl;

// ---- names ----------------------------------------------------------------------

TEST(netdev_names, of_15_characters_pass_and_of_16_do_not) {
    EXPECT_EQ(netdev_name_problem("netdev name", "abcdefghijklmno"), "");
    EXPECT_EQ(netdev_name_problem("netdev name", "abcdefghijklmnop"),
              "netdev name \"abcdefghijklmnop\" has 16 characters, at most 15 are possible");
    EXPECT_EQ(netdev_name_problem("netdev name", ""), "netdev name is empty");
}

TEST(netdev_names, keep_to_letters_that_reach_no_shell) {
    for (const char *const name : {"a b", "a;b", "a/b", "a:b", "$(x)", "-a", "..", "."})
        EXPECT_NE(netdev_name_problem("netdev name", name), "") << name;
    EXPECT_EQ(netdev_name_problem("netdev name", "swp1s0.4094"), "");
}

namespace {

std::string refusal_of(const create_options &options) {
    try {
        (void)params_of(options);
        return "";
    } catch (const failure &what) {
        EXPECT_EQ(what.code, exit_code::usage);
        return what.reason;
    }
}

create_options vlan_options(uint32_t swid, uint32_t vid) {
    create_options options;
    options.swid = swid;
    options.vid = vid;
    return options;
}

} // namespace

TEST(creation, is_refused_when_the_name_that_it_would_make_is_too_long) {
    EXPECT_EQ(refusal_of(vlan_options(254, 999)), "");
    EXPECT_EQ(refusal_of(vlan_options(254, 1000)),
              "netdev name \"swid254_eth.1000\" has 16 characters, at most 15 are possible");
    create_options options = vlan_options(254, 1000);
    options.name_format = "vlan"; // it has the long name first all the same
    EXPECT_NE(refusal_of(options), "");
    options = {};
    options.type = YB_L2_INTERFACE_TYPE_PORT_VLAN;
    options.port = "abcdefghijk";
    options.vid = 4095;
    EXPECT_THAT(refusal_of(options), HasSubstr("\"abcdefghijk.4095\" has 16 characters"));
}

TEST(creation, is_refused_for_a_partition_or_namespace_that_cannot_be) {
    EXPECT_EQ(refusal_of(vlan_options(8, 1)), "swid 8 is not possible: 0 to 7, or 254");
    create_options options = vlan_options(0, 1);
    options.netns = std::string(31, 'n');
    EXPECT_EQ(refusal_of(options), "");
    options.netns += 'n';
    EXPECT_THAT(refusal_of(options), HasSubstr("has 32 characters, at most 31 are possible"));
    options.netns = "a;b";
    EXPECT_THAT(refusal_of(options), HasSubstr("has a ';'"));
}

TEST(creation, fills_the_block_as_the_library_reads_it) {
    create_options options = vlan_options(3, 4095);
    options.name_format = "vlan";
    options.parent = "eth0";
    options.netns = "blue";
    options.vrf = "red";
    const auto params = params_of(options);
    EXPECT_EQ(params.by_type.vlan.swid, 3);
    EXPECT_EQ(params.by_type.vlan.vlan_id, 4095);
    EXPECT_EQ(params.by_type.vlan.name_format, uint32_t{YB_NET_NAME_FORMAT_VLAN});
    EXPECT_NE(params.by_type.vlan.parent_given, 0U);
    EXPECT_STREQ(params.by_type.vlan.parent_name, "eth0");
    EXPECT_STREQ(params.ns_name, "blue");
    EXPECT_STREQ(params.vrf_name, "red");
    EXPECT_EQ(params.vrf_valid, 1U);
}

// ---- addresses --------------------------------------------------------------------

TEST(addresses, are_read_with_their_prefix_length) {
    EXPECT_EQ(parse_address("10.0.0.5/24")->prefix_length, 24U);
    EXPECT_EQ(parse_address("10.0.0.5/32")->prefix_length, 32U);
    EXPECT_EQ(parse_address("1.2.3.4/0")->octets, (std::array<uint8_t, 4>{1, 2, 3, 4}));
    for (const char *const text :
         {"", "10.0.0", "10.0.0.5", "10.0.0.5/", "10.0.0.5/33", "10.0.0.5/-1", "10.0.0.5/024", "::1/64"})
        EXPECT_FALSE(parse_address(text)) << text;
}

// What the kernel gets of each way is held against the real kernel in the lab and in the library's own tests.
TEST(addresses, keep_what_was_typed_and_tell_what_the_kernel_gets) {
    const auto plain = alias_values_of(*parse_address("10.0.0.5/24"), false);
    EXPECT_EQ(plain.local, "10.0.0.5");
    EXPECT_EQ(plain.prefix_length, 32U);
    EXPECT_EQ(plain.broadcast, "10.0.0.255");
    const auto connected = alias_values_of(*parse_address("10.0.0.5/24"), true);
    EXPECT_EQ(connected.local, "10.0.0.5");
    EXPECT_EQ(connected.prefix_length, 24U);
    EXPECT_EQ(connected.broadcast, "255.0.0.5");
}

TEST(addresses, are_inside_their_network_for_every_prefix_length) {
    for (unsigned length = 0; length <= 32; length++) {
        for (const bool connected : {false, true}) {
            const auto values =
                alias_values_of(*parse_address("203.0.113.77/" + std::to_string(length)), connected);
            EXPECT_EQ(values.address.address.ipv4 & values.network.address.ipv4_prefix.mask,
                      values.network.address.ipv4_prefix.addr);
            EXPECT_EQ(values.local, "203.0.113.77");
            if (connected) {
                EXPECT_EQ(values.prefix_length, length);
            }
        }
    }
}

// ---- requests in words --------------------------------------------------------------

namespace {

struct request_buffer {
    alignas(nlmsghdr) std::array<std::byte, YB_NET_RTNL_REQ_SIZE> bytes = {};

    nlmsghdr *header() {
        return reinterpret_cast<nlmsghdr *>(bytes.data());
    }
    std::string text(size_t size) const {
        return describe_request(std::span(bytes).first(size), [](unsigned) { return "swp1"; }).text;
    }
};

// By the library's own builders.
request_buffer port_request() {
    request_buffer request;
    nlmsghdr *const n = request.header();
    n->nlmsg_len = NLMSG_LENGTH(sizeof(ifinfomsg));
    n->nlmsg_type = RTM_NEWLINK;
    n->nlmsg_flags = NLM_F_REQUEST | NLM_F_EXCL | NLM_F_CREATE;
    addattr_l(n, YB_NET_RTNL_REQ_SIZE, IFLA_IFNAME, "swp1", 5);
    rtattr *const info = addattr_nest(n, YB_NET_RTNL_REQ_SIZE, IFLA_LINKINFO);
    addattr_l(n, YB_NET_RTNL_REQ_SIZE, IFLA_INFO_KIND, "yb_netdev", 9);
    rtattr *const data = addattr_nest(n, YB_NET_RTNL_REQ_SIZE, IFLA_INFO_DATA);
    addattr32(n, YB_NET_RTNL_REQ_SIZE, 1, 1);
    addattr32(n, YB_NET_RTNL_REQ_SIZE, 2, 0x10100);
    addattr_nest_end(n, data);
    addattr_nest_end(n, info);
    return request;
}

} // namespace

TEST(request_text, names_every_attribute_of_a_new_port) {
    request_buffer request = port_request();
    EXPECT_EQ(request.text(request.header()->nlmsg_len),
              "RTM_NEWLINK flags REQUEST|EXCL|CREATE IFLA_IFNAME \"swp1\" IFLA_LINKINFO { IFLA_INFO_KIND "
              "\"yb_netdev\" IFLA_INFO_DATA { attribute 1 1 (0x1) attribute 2 65792 (0x10100) } }");
}

TEST(request_text, has_the_same_by_keys) {
    request_buffer request = port_request();
    const auto words = describe_request(std::span(request.bytes).first(request.header()->nlmsg_len),
                                        [](unsigned) { return ""; });
    EXPECT_EQ(words.details["type"], "RTM_NEWLINK");
    EXPECT_EQ(words.details["attributes"][0]["value"], "swp1");
    EXPECT_EQ(words.details["attributes"][1]["attributes"][1]["attributes"][1]["value"], 0x10100);
}

TEST(request_text, says_up_and_down) {
    request_buffer request;
    request.header()->nlmsg_len = NLMSG_LENGTH(sizeof(ifinfomsg));
    request.header()->nlmsg_type = RTM_NEWLINK;
    request.header()->nlmsg_flags = NLM_F_REQUEST;
    ifinfomsg link = {};
    link.ifi_index = 5;
    link.ifi_change = 1;
    link.ifi_flags = 1;
    std::memcpy(NLMSG_DATA(request.header()), &link, sizeof(link));
    EXPECT_EQ(request.text(32), "RTM_NEWLINK flags REQUEST ifindex 5 (swp1) link flags UP change UP");
    link.ifi_flags = ~1U;
    std::memcpy(NLMSG_DATA(request.header()), &link, sizeof(link));
    EXPECT_EQ(request.text(32), "RTM_NEWLINK flags REQUEST ifindex 5 (swp1) link flags all but UP change UP");
}

TEST(request_text, reads_nothing_behind_a_message_that_is_cut_short) {
    request_buffer request = port_request();
    const size_t whole = request.header()->nlmsg_len;
    for (size_t size = 0; size < whole; size++) {
        const std::vector<std::byte> exact(request.bytes.begin(),
                                           request.bytes.begin() + static_cast<long>(size));
        const auto words = describe_request(exact, [](unsigned) { return ""; });
        EXPECT_FALSE(words.text.empty());
    }
    EXPECT_THAT(request.text(whole - 4), HasSubstr("cut short"));
}

// ---- the netdevs of a rehearsal ------------------------------------------------------

TEST(stand_in_netdevs, are_there_once_they_were_made_and_gone_once_removed) {
    clear_netdevs();
    make_netdev("swid0_eth");
    make_namespace("blue");
    stand_in_netdevs netdevs;
    EXPECT_EQ(netdevs.index_of("", "swid0_eth"), ifindex_of("swid0_eth"));
    const bool vlans = vlans_are_possible();
    EXPECT_EQ(netdevs.run("vconfig add swid0_eth 10").status == 0, vlans);
    EXPECT_EQ(netdevs.index_of("", "swid0_eth.10") != 0, vlans);
    if (!vlans) { // the rest is the same for a netdev of any kind
        EXPECT_EQ(netdevs.run("ip link add name swid0_eth.10 type bridge").status, 0);
    }
    const uint32_t index = netdevs.index_of("", "swid0_eth.10");
    EXPECT_TRUE(stand_in_netdevs::is_stand_in(index));
    EXPECT_EQ(netdevs.run("ip link set swid0_eth.10 name vlan10").status, 0);
    EXPECT_EQ(netdevs.index_of("", "swid0_eth.10"), 0U);
    EXPECT_EQ(netdevs.run("ip link set netns blue vlan10").status, 0);
    EXPECT_EQ(netdevs.index_of("", "vlan10"), 0U);
    EXPECT_EQ(netdevs.index_of("blue", "vlan10"), index);
    EXPECT_EQ(netdevs.run("ip netns exec blue vconfig rem vlan10").status, 0);
    EXPECT_EQ(netdevs.index_of("blue", "vlan10"), 0U);
    EXPECT_FALSE(netdev_exists("swid0_eth.10"));
    clear_netdevs();
}

TEST(stand_in_netdevs, fail_as_the_tools_would) {
    clear_netdevs();
    make_netdev("eth7");
    stand_in_netdevs netdevs;
    EXPECT_THAT(netdevs.run("ip link add name eth7 type bridge").fails, HasSubstr("already"));
    EXPECT_THAT(netdevs.run("vconfig add gone 1").fails, HasSubstr("no netdev \"gone\""));
    EXPECT_THAT(netdevs.run("ip link set netns nowhere eth7").fails, HasSubstr("no namespace \"nowhere\""));
    EXPECT_THAT(netdevs.run("ip netns exec nowhere ip link del dev eth7").fails, HasSubstr("no namespace"));
    EXPECT_EQ(netdevs.run("ip link del dev eth7").fails, "");
    EXPECT_NE(netdevs.run("ip link del dev eth7").fails, "");
    EXPECT_EQ(netdevs.make("eth7"), 0);
    EXPECT_EQ(netdevs.make("eth7"), EEXIST);
    EXPECT_EQ(netdevs.remove(netdevs.index_of("", "eth7")), 0);
    EXPECT_TRUE(netdev_exists("eth7")); // nothing was done
    clear_netdevs();
}

// ---- progress ------------------------------------------------------------------------

TEST(progress, is_a_bar_a_count_and_a_rate) {
    EXPECT_EQ(progress_line(0.5, 1200, 2, 3),
              "[###############...............]  50 %   1200 commands, 2 failed, 400/s");
    EXPECT_EQ(progress_line(-1, 1, 0, 0), "1 command");
    EXPECT_EQ(progress_line(2, 2, 0, 1).substr(0, 38), "[##############################] 100 %");
}
