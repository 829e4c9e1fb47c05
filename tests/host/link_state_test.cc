// SPDX-License-Identifier: Apache-2.0
//
// Link state on the real kernel: what the library sets and reads, ip(8) sees, and
// strace decodes the requests.
#include "tests/host/links_fixture.h"

#include <fstream>
#include <sstream>
#include <thread>

using testing::HasSubstr;

using link_state_on_kernel = kernel_links;

TEST_F(link_state_on_kernel, ip_sees_what_was_set) {
    make("br1", "type bridge", 100);
    EXPECT_FALSE(ip_says_up("br1"));
    EXPECT_EQ(state_of(100), 0u);
    EXPECT_EQ(yb_net_interface_state_set(100, 1), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_TRUE(ip_says_up("br1"));
    EXPECT_EQ(state_of(100), 1u);
    EXPECT_EQ(yb_net_interface_state_set(100, 0), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_FALSE(ip_says_up("br1"));
    EXPECT_EQ(state_of(100), 0u);
}

TEST_F(link_state_on_kernel, state_is_what_ip_has_set) {
    make("br1", "type bridge", 100);
    run("ip link set br1 up");
    EXPECT_EQ(state_of(100), 1u);
    run("ip link set br1 down");
    EXPECT_EQ(state_of(100), 0u);
}

TEST_F(link_state_on_kernel, setting_down_changes_no_other_flag) {
    make("br1", "type bridge", 100);
    run("ip link set br1 up multicast off");
    const std::string before = output_of("cat /sys/class/net/br1/flags");
    EXPECT_EQ(yb_net_interface_state_set(100, 0), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(yb_net_interface_state_set(100, 1), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(output_of("cat /sys/class/net/br1/flags"), before);
}

TEST_F(link_state_on_kernel, link_is_found_in_a_dump_of_many_datagrams) {
    std::ofstream batch("/run/batch");
    for (int i = 0; i < 60; i++)
        batch << "link add many" << i << " type bridge\n";
    batch.close();
    run("ip -batch /run/batch");
    add_record(100, if_nametoindex("many59"), "many59", YB_L2_INTERFACE_TYPE_PORT);
    add_record(101, if_nametoindex("many0"), "many0", YB_L2_INTERFACE_TYPE_PORT);
    run("ip link set many59 up");
    EXPECT_EQ(state_of(100), 1u);
    EXPECT_EQ(state_of(101), 0u);
    (void)output_of("sed -i 's/add \\([a-z0-9]*\\) .*/del \\1/' /run/batch && ip -batch /run/batch");
}

TEST_F(link_state_on_kernel, netdev_that_is_gone_is_refused_by_both) {
    add_record(100, 4711, "gone", YB_L2_INTERFACE_TYPE_PORT);
    uint32_t state = 77;
    EXPECT_EQ(yb_net_interface_state_get(100, &state), uint32_t{YB_STATUS_PARAM_ERROR});
    EXPECT_EQ(state, 77u);
    stderr_capture captured;
    EXPECT_EQ(yb_net_interface_state_set(100, 1), uint32_t{YB_STATUS_ERROR});
    EXPECT_EQ(captured.text(), "RTNETLINK answers [19]: No such device\n");
}

TEST_F(link_state_on_kernel, partition_key_is_up_only_while_its_peer_is) {
    make("pk0", "type veth peer name pk1", 100, YB_L2_INTERFACE_TYPE_PKEY);
    add_record(101, if_nametoindex("pk1"), "pk1", YB_L2_INTERFACE_TYPE_PORT);
    run("ip link set pk0 up");
    EXPECT_EQ(state_of(100), 0u); // without a carrier yet
    run("ip link set pk1 up");
    EXPECT_EQ(state_of(100), 1u);
    EXPECT_EQ(yb_net_interface_state_set(101, 0), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_TRUE(ip_says_up("pk0"));
    EXPECT_EQ(state_of(100), 0u);
}

TEST_F(link_state_on_kernel, port_without_carrier_stays_up) {
    make("pt0", "type veth peer name pt1", 100);
    run("ip link set pt0 up");
    EXPECT_EQ(state_of(100), 1u);
}

namespace {

// One request of each kind, for netdev br1 with system ifindex 100.
int send_requests() {
    yb_ip_addr_t address = {};
    yb_ip_addr_t prefix = {};
    address.version = prefix.version = YB_IP_VERSION_IPV4;
    address.address.ipv4 = 0x0500000A; // 10.0.0.5 as it lies
    prefix.address.ipv4_prefix.addr = 0x0000000A;
    prefix.address.ipv4_prefix.mask = 0x00FFFFFF;
    uint32_t state = 77;
    const bool done = yb_net_interface_state_set(100, 1) == YB_STATUS_SUCCESS &&
                      yb_net_interface_state_set(100, 0) == YB_STATUS_SUCCESS &&
                      yb_net_interface_state_get(100, &state) == YB_STATUS_SUCCESS &&
                      yb_net_virtual_net_if_alias_set(YB_ACCESS_CMD_ADD, 100, "br1:1", &address, &prefix) ==
                          YB_STATUS_SUCCESS &&
                      yb_net_virtual_net_if_alias_set(YB_ACCESS_CMD_DELETE, 100, nullptr, &address,
                                                      &prefix) == YB_STATUS_SUCCESS;
    return done ? 0 : 1;
}

} // namespace

TEST_F(link_state_on_kernel, strace_decodes_the_requests_as_they_are_meant) {
    make("br1", "type bridge", 100);
    shared_counter traced;
    child_process sender([&] { return traced.wait_for(1) ? send_requests() : 2; });
    // Attached from here, not started around: strace finds out about sockets in its own network namespace
    // only.
    const std::string pid = std::to_string(sender.pid());
    child_process tracer([&] {
        (void)execlp("strace", "strace", "-qq", "-e", "trace=sendmsg", "-e", "signal=none", "-s", "4096",
                     "-o", "/run/trace", "-p", pid.c_str(), nullptr);
        return 1;
    });
    const std::string status = "grep TracerPid /proc/" + pid + "/status";
    for (int tries = 0; tries < 5000 && output_of(status) == "TracerPid:\t0"; tries++)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    traced.add();
    ASSERT_EQ(sender.wait(), 0);
    ASSERT_EQ(tracer.wait(), 0);
    std::ostringstream content;
    content << std::ifstream("/run/trace").rdbuf();
    const std::string trace = content.str();
    const std::string family =
        "ifi_family=AF_NETLINK, ifi_type=ARPHRD_NETROM, ifi_index=if_nametoindex(\"br1\")";
    EXPECT_THAT(trace, HasSubstr("nlmsg_type=RTM_NEWLINK, nlmsg_flags=NLM_F_REQUEST|NLM_F_ACK"));
    EXPECT_THAT(trace, HasSubstr(family + ", ifi_flags=IFF_UP, ifi_change=0x1}"));
    EXPECT_THAT(trace,
                testing::ContainsRegex(family.substr(0, 23) + ".*ifi_flags=IFF_BROADCAST.*ifi_change=0x1}"));
    // The dump's socket is not bound before this send, so strace does not know yet what the type stands for.
    EXPECT_THAT(trace,
                HasSubstr("[{nlmsg_len=17, nlmsg_type=0x12 /* NLMSG_??? */, nlmsg_flags=NLM_F_REQUEST|0x300, "
                          "nlmsg_seq=1, nlmsg_pid=" +
                          pid + "}, \"\\x11\"], iov_len=17}"));
    const std::string local = "[{nla_len=8, nla_type=IFA_LOCAL}, inet_addr(\"10.0.0.5\")], "
                              "[{nla_len=8, nla_type=IFA_ADDRESS}, inet_addr(\"10.0.0.5\")], "
                              "[{nla_len=8, nla_type=IFA_BROADCAST}, inet_addr(\"10.0.0.255\")], ";
    EXPECT_THAT(trace, HasSubstr(local + "[{nla_len=10, nla_type=IFA_LABEL}, \"br1:1\"], "
                                         "[{nla_len=20, nla_type=IFA_CACHEINFO}, {ifa_prefered=4294967295, "
                                         "ifa_valid=4294967295, cstamp=0, tstamp=0}]]"));
    EXPECT_THAT(trace, HasSubstr(local + "[{nla_len=20, nla_type=IFA_CACHEINFO}"));
    EXPECT_THAT(trace, HasSubstr("nlmsg_type=RTM_NEWADDR, nlmsg_flags=NLM_F_REQUEST|NLM_F_ACK|NLM_F_EXCL|"
                                 "NLM_F_CREATE"));
    EXPECT_THAT(trace, HasSubstr("nlmsg_type=RTM_DELADDR, nlmsg_flags=NLM_F_REQUEST|NLM_F_ACK"));
    EXPECT_THAT(trace,
                HasSubstr("{ifa_family=AF_INET, ifa_prefixlen=32, ifa_flags=0, ifa_scope=RT_SCOPE_UNIVERSE"));
}
