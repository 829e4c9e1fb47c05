// SPDX-License-Identifier: Apache-2.0
//
// Loopback bridges: command texts, where they run, and every refusal. The bridges
// are real.
#include "net_lib/loopback_netdev.h"

#include "tests/unit/netdev_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class loopback_netdev : public netdev_test {
  protected:
    static yb_status_t set(yb_access_cmd_t cmd, const yb_net_interface_params_t &params) {
        return yb_net_loopback_if_set(cmd, &params);
    }
};

} // namespace

TEST_F(loopback_netdev, bridge_is_made_and_removed_in_the_own_namespace) {
    EXPECT_EQ(YB_STATUS_SUCCESS, set(YB_ACCESS_CMD_CREATE, loopback_params("lo1")));
    EXPECT_EQ(0, run_ip({"link", "show", "dev", "lo1", "type", "bridge"}).status);
    EXPECT_TRUE(netdev_exists("lo1"));
    EXPECT_EQ(YB_STATUS_SUCCESS, set(YB_ACCESS_CMD_DESTROY, loopback_params("lo1")));
    EXPECT_FALSE(netdev_exists("lo1"));
    EXPECT_THAT(commands(), ElementsAre("ip link add name lo1 type bridge", "ip link del dev lo1"));
    EXPECT_THAT(shims.runs(), ElementsAre("ip link add name lo1 type bridge", "ip link del dev lo1"));
    expect_nothing_logged();
}

TEST_F(loopback_netdev, bridge_is_made_and_removed_inside_its_namespace) {
    make_namespace("red");
    EXPECT_EQ(YB_STATUS_SUCCESS, set(YB_ACCESS_CMD_CREATE, loopback_params("lo1", "red")));
    EXPECT_TRUE(netdev_exists("lo1", "red"));
    EXPECT_FALSE(netdev_exists("lo1"));
    EXPECT_EQ(YB_STATUS_SUCCESS, set(YB_ACCESS_CMD_DESTROY, loopback_params("lo1", "red")));
    EXPECT_FALSE(netdev_exists("lo1", "red"));
    EXPECT_THAT(commands(), ElementsAre("ip netns exec red ip link add name lo1 type bridge",
                                        "ip netns exec red ip link del dev lo1"));
}

TEST_F(loopback_netdev, name_of_15_characters_is_accepted) {
    EXPECT_EQ(YB_STATUS_SUCCESS, set(YB_ACCESS_CMD_CREATE, loopback_params("0123456789abcde")));
    EXPECT_TRUE(netdev_exists("0123456789abcde"));
}

TEST_F(loopback_netdev, namespace_of_32_characters_is_read_to_its_fields_end) {
    const std::string ns(32, 'n');
    make_namespace(ns);
    EXPECT_EQ(YB_STATUS_SUCCESS, set(YB_ACCESS_CMD_CREATE, loopback_params("lo1", ns)));
    EXPECT_TRUE(netdev_exists("lo1", ns));
}

TEST_F(loopback_netdev, name_long_enough_to_reach_50_characters_runs_nothing) {
    // Without a NUL the name runs on into the namespace: 24 characters, taken as they stand.
    EXPECT_EQ(YB_STATUS_ERROR, set(YB_ACCESS_CMD_CREATE, loopback_params("0123456789abcdef", "namespace")));
    EXPECT_EQ(YB_STATUS_ERROR,
              set(YB_ACCESS_CMD_DESTROY, loopback_params("0123456789abcdef", std::string(32, 'n'))));
    EXPECT_THAT(commands(), IsEmpty());
    expect_nothing_logged();
}

TEST_F(loopback_netdev, empty_name_is_told_for_every_command) {
    for (const yb_access_cmd_t cmd : {12u, 13u, 99u}) {
        platform::recorded().log.clear();
        EXPECT_EQ(YB_STATUS_PARAM_ERROR, set(cmd, loopback_params("")));
        EXPECT_THAT(
            logged_lines(),
            ElementsAre(error_line("yb_net_loopback_if_set: Cannot create a loopback interface without a "
                                   "name being supplied\n")));
    }
    EXPECT_THAT(commands(), IsEmpty());
}

TEST_F(loopback_netdev, other_commands_are_unsupported_without_a_message) {
    for (const yb_access_cmd_t cmd : {0u, 1u, 2u, 3u, 4u, 15u, 16u, 17u, 0xFFFFFFFFu})
        EXPECT_EQ(YB_STATUS_CMD_UNSUPPORTED, set(cmd, loopback_params("lo1"))) << cmd;
    EXPECT_THAT(commands(), IsEmpty());
    expect_nothing_logged();
}

TEST_F(loopback_netdev, failing_commands_are_errors_without_a_message) {
    shims.replace("ip", "exit 2");
    EXPECT_EQ(YB_STATUS_ERROR, set(YB_ACCESS_CMD_CREATE, loopback_params("lo1")));
    EXPECT_EQ(YB_STATUS_ERROR, set(YB_ACCESS_CMD_DESTROY, loopback_params("lo1", "red")));
    calls::fail("system", EAGAIN);
    EXPECT_EQ(YB_STATUS_ERROR, set(YB_ACCESS_CMD_CREATE, loopback_params("lo1")));
    EXPECT_EQ(3u, commands().size());
    expect_nothing_logged();
}

TEST_F(loopback_netdev, entry_and_leaving_are_traced) {
    g_yb_log_module_func_enable = 1;
    set_verbosity(5);
    platform::recorded().log.clear();
    EXPECT_EQ(YB_STATUS_CMD_UNSUPPORTED, set(99, loopback_params("lo1")));
    const std::string name = "net_lib yb_net_loopback_if_set: yb_net_loopback_if_set - ";
    EXPECT_THAT(logged_lines(), ElementsAre(logged{severity::debug, name + "entered \n"},
                                            logged{severity::debug, name + "left \n"}));
}
