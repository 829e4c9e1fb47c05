// SPDX-License-Identifier: Apache-2.0
//
// Port interfaces by rtnetlink into the simulated driver: the kind is known, the
// private values arrive.
#include "tests/lab/netdev_fixture.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class lab_port : public lab_netdev_test {};

} // namespace

TEST_F(lab_port, is_a_netdev_of_the_driver_with_both_values) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1, port_params("swp1", "", 0x01020304, 0xA0B0C0D0)));
    EXPECT_THAT(shown("swp1"), HasSubstr("yb_netdev"));
    EXPECT_EQ("16909060 2695938256", values_of("swp1"));
    EXPECT_EQ("yb_netdev 1:04030201 2:d0c0b0a0\n", run_program({"yb_netdev_tool", "show", "swp1"}).output);
    EXPECT_EQ(ifindex_of("swp1"), stored(1).linux_ifindex);
    EXPECT_EQ(0x01020304u, stored(1).params.by_type.port.value1);
    ASSERT_EQ(YB_STATUS_SUCCESS, destroy(1));
    EXPECT_FALSE(netdev_exists("swp1"));
    EXPECT_THAT(logged_lines(), IsEmpty());
}

TEST_F(lab_port, name_of_15_characters_is_the_longest) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1, port_params("0123456789abcde")));
    EXPECT_TRUE(netdev_exists("0123456789abcde"));
    EXPECT_EQ(YB_STATUS_SUCCESS, destroy(1));
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, create(1, port_params("0123456789abcdef")));
}

TEST_F(lab_port, name_that_is_taken_is_refused) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1, port_params("swp1")));
    stderr_capture captured;
    EXPECT_EQ(YB_STATUS_ERROR, create(2, port_params("swp1")));
    EXPECT_EQ("RTNETLINK answers [17]: File exists\n", captured.text());
    EXPECT_THAT(
        logged_lines(),
        ElementsAre(error_line("yb_net_port_if_set: rtnl_talk: failed to CREATE port netdev \"swp1\".\n")));
}

TEST_F(lab_port, name_that_no_netdev_can_have_is_refused_by_the_kernel) {
    stderr_capture captured;
    EXPECT_EQ(YB_STATUS_ERROR, create(1, port_params("a/b")));
    EXPECT_EQ("RTNETLINK answers [22]: Invalid argument\n", captured.text());
}

TEST_F(lab_port, name_that_a_shell_would_trip_over_is_fine_in_the_own_namespace) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1, port_params("$(id);'")));
    EXPECT_TRUE(netdev_exists("$(id);'"));
    ASSERT_EQ(YB_STATUS_SUCCESS, destroy(1));
    EXPECT_FALSE(netdev_exists("$(id);'"));
}

TEST_F(lab_port, moved_to_its_namespace_it_keeps_its_values_and_destroy_no_longer_finds_it) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1, port_params("swp1", "red", 11, 22)));
    EXPECT_FALSE(netdev_exists("swp1"));
    EXPECT_EQ(ifindex_of("swp1", "red"), stored(1).linux_ifindex);
    EXPECT_EQ("22\n", run_ip({"netns", "exec", "red", "cat", "/sys/class/net/swp1/yb_netdev/value2"}).output);
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, destroy(1));
    EXPECT_THAT(logged_lines(), ElementsAre(error_line("Cannot find device \"swp1\"\n")));
    EXPECT_TRUE(is_stored(1));
    EXPECT_TRUE(netdev_exists("swp1", "red"));
    // Brought back, it can be removed.
    ASSERT_EQ(0, run_ip({"-n", "red", "link", "set", "swp1", "netns", std::to_string(getpid())}).status);
    EXPECT_EQ(YB_STATUS_SUCCESS, destroy(1));
}

TEST_F(lab_port, partitions_netdev_can_be_removed_like_a_port) {
    ASSERT_EQ(0, run_program({"modprobe", "-r", "yb_core_sim"}).status);
    ASSERT_EQ(0, run_program({"modprobe", "yb_core_sim", "swids=0,1"}).status);
    const yb_net_interface_params_t params = port_params("swid1_eth");
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_add(1, ifindex_of("swid1_eth"), &params));
    EXPECT_EQ(YB_STATUS_SUCCESS, destroy(1));
    EXPECT_FALSE(netdev_exists("swid1_eth"));
    EXPECT_EQ(0, run_program({"modprobe", "-r", "yb_core_sim"}).status);
    EXPECT_EQ(0, run_program({"modprobe", "yb_core_sim", "swids=0,1"}).status);
}

TEST_F(lab_port, without_the_driver_is_refused) {
    ASSERT_EQ(0, run_program({"modprobe", "-r", "yb_core_sim"}).status);
    const std::string modprobe = file_text("/proc/sys/kernel/modprobe");
    std::ofstream("/proc/sys/kernel/modprobe") << "\n"; // else the kernel loads it by the link kind's alias
    {
        stderr_capture captured;
        EXPECT_EQ(YB_STATUS_ERROR, create(1, port_params("swp1")));
        EXPECT_EQ("RTNETLINK answers [95]: Operation not supported\n", captured.text());
    }
    std::ofstream("/proc/sys/kernel/modprobe") << modprobe << "\n";
    EXPECT_EQ(0, run_program({"modprobe", "yb_core_sim", "swids=0,1"}).status);
}
