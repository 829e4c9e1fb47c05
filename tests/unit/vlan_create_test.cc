// SPDX-License-Identifier: Apache-2.0
//
// Making VLAN netdevs: checks in their order, command texts, every message.
// This kernel may lack 802.1Q, so plain netdevs of the same names stand in; the
// lab (tests/lab/vlan_test.cc) has the real ones.
#include "net_lib/vlan_netdev.h"

#include "tests/unit/netdev_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class vlan_create : public netdev_test {
  protected:
    void SetUp() override {
        netdev_test::SetUp();
        make_netdev("swid0_eth");
        make_netdev("swp1");
    }

    // Refused in a check: the message, nothing run, the block unchanged.
    void expect_refused(yb_net_interface_params_t params, const std::string &message) {
        platform::reset();
        const std::string before = bytes_of(params);
        EXPECT_EQ(YB_STATUS_PARAM_ERROR, yb_net_vlan_if_add(&params));
        EXPECT_THAT(logged_lines(), ElementsAre(error_line(message)));
        EXPECT_THAT(commands(), IsEmpty());
        EXPECT_EQ(before, bytes_of(params));
    }
    // Failed in a command: the lines, the block unchanged.
    void expect_failed(yb_net_interface_params_t params, const std::vector<logged> &lines) {
        const std::string before = bytes_of(params);
        EXPECT_EQ(YB_STATUS_ERROR, yb_net_vlan_if_add(&params));
        EXPECT_EQ(lines, logged_lines());
        EXPECT_EQ(before, bytes_of(params));
    }
    static std::string made(yb_net_interface_params_t params) {
        EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_vlan_if_add(&params));
        expect_nothing_logged();
        const std::string name = text_in(params.name);
        EXPECT_TRUE(netdev_exists(name)) << name;
        return name;
    }
};

} // namespace

// ---- Success ----------------------------------------------------------------

TEST_F(vlan_create, name_format_0_keeps_the_swid_name) {
    EXPECT_EQ("swid0_eth.5", made(vlan_params(0, 5)));
    EXPECT_THAT(commands(), ElementsAre("vconfig add swid0_eth 5"));
    EXPECT_THAT(shims.runs(), ElementsAre("vconfig add swid0_eth 5"));
}

TEST_F(vlan_create, name_format_1_renames_it_and_gives_that_name_back) {
    EXPECT_EQ("vlan5", made(vlan_params(0, 5, "", YB_NET_NAME_FORMAT_VLAN)));
    EXPECT_THAT(commands(), ElementsAre("vconfig add swid0_eth 5", "ip link set swid0_eth.5 name vlan5"));
    EXPECT_THAT(shims.runs(), ElementsAre("vconfig add swid0_eth 5", "ip link set swid0_eth.5 name vlan5"));
    EXPECT_FALSE(netdev_exists("swid0_eth.5"));
}

TEST_F(vlan_create, parent_is_stacked_on_by_ip_link) {
    EXPECT_EQ("swid0_eth.5", made(vlan_params_on("swp1", 0, 5)));
    EXPECT_THAT(commands(), ElementsAre("ip link add link swp1 swid0_eth.5 type vlan protocol 802.1Q id 5"));
    EXPECT_THAT(shims.runs(),
                ElementsAre("ip link add link swp1 swid0_eth.5 type vlan protocol 802.1Q id 5"));
}

TEST_F(vlan_create, parent_with_name_format_1_is_renamed_too) {
    yb_net_interface_params_t params = vlan_params_on("swp1", 0, 5);
    params.by_type.vlan.name_format = YB_NET_NAME_FORMAT_VLAN;
    EXPECT_EQ("vlan5", made(params));
    EXPECT_THAT(commands(), ElementsAre("ip link add link swp1 swid0_eth.5 type vlan protocol 802.1Q id 5",
                                        "ip link set swid0_eth.5 name vlan5"));
}

TEST_F(vlan_create, any_flag_but_0_means_that_a_parent_is_given) {
    yb_net_interface_params_t params = vlan_params_on("swp1", 0, 5);
    params.by_type.vlan.parent_given = 0x80000000;
    made(params);
    EXPECT_THAT(commands(), ElementsAre("ip link add link swp1 swid0_eth.5 type vlan protocol 802.1Q id 5"));
}

TEST_F(vlan_create, parent_name_without_its_flag_is_not_looked_at) {
    yb_net_interface_params_t params = vlan_params_on("swp1", 0, 5);
    params.by_type.vlan.parent_given = 0;
    made(params);
    EXPECT_THAT(commands(), ElementsAre("vconfig add swid0_eth 5"));
}

TEST_F(vlan_create, port_vlan_is_stacked_on_its_port) {
    EXPECT_EQ("swp1.7", made(port_vlan_params("swp1", 7, "", "old")));
    EXPECT_THAT(commands(), ElementsAre("vconfig add swp1 7"));
}

TEST_F(vlan_create, id_0_passes_the_range_check_and_is_asked_for) {
    EXPECT_EQ("swid0_eth.0", made(vlan_params(0, 0)));
    EXPECT_THAT(commands(), ElementsAre("vconfig add swid0_eth 0"));
}

TEST_F(vlan_create, id_4095_and_swid_254_make_the_longest_name_a_netdev_can_have) {
    make_netdev("swid254_eth");
    EXPECT_EQ("swid254_eth.999", made(vlan_params(254, 999)));
    EXPECT_EQ("swid0_eth.4095", made(vlan_params(0, 4095)));
}

TEST_F(vlan_create, command_runs_in_the_callers_namespace_whatever_the_blocks) {
    make_namespace("red");
    EXPECT_EQ("swid0_eth.5", made(vlan_params(0, 5, "red")));
    EXPECT_THAT(commands(), ElementsAre("vconfig add swid0_eth 5"));
}

TEST_F(vlan_create, only_the_name_of_the_block_is_written) {
    yb_net_interface_params_t params = vlan_params_on("swp1", 0, 5, "red");
    memset(params.name, '#', sizeof(params.name));
    yb_net_interface_params_t expected = params;
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_vlan_if_add(&params));
    EXPECT_STREQ("swid0_eth.5", params.name);
    memcpy(expected.name, params.name, sizeof(expected.name));
    EXPECT_EQ(bytes_of(expected), bytes_of(params));
}

// ---- Checks, in their order -------------------------------------------------

TEST_F(vlan_create, swid_or_type_without_a_name) {
    expect_refused(vlan_params(8, 5000, "", 9), "__yb_net_build_if_names failed, rc = 13 \n");
    expect_refused(port_params("swp1"), "__yb_net_build_if_names failed, rc = 13 \n");
}

TEST_F(vlan_create, id_of_4096_or_more_is_out_of_range) {
    expect_refused(vlan_params(0, 4096, "", 9), "RM_VLAN_NUMS_CHECK_RANGE(4096) failed, rc = 13 \n");
    expect_refused(vlan_params(0, 65535), "RM_VLAN_NUMS_CHECK_RANGE(65535) failed, rc = 13 \n");
    expect_refused(port_vlan_params("swp1", 4096), "RM_VLAN_NUMS_CHECK_RANGE(4096) failed, rc = 13 \n");
}

TEST_F(vlan_create, name_format_2_and_above_are_out_of_range) {
    expect_refused(vlan_params(1, 5, "", 2), "YB_NET_NAME_FORMAT_CHECK_RANGE(2) failed, rc = 13 \n");
    expect_refused(vlan_params(1, 5, "", 0xFFFFFFFF),
                   "YB_NET_NAME_FORMAT_CHECK_RANGE(-1) failed, rc = 13 \n");
}

TEST_F(vlan_create, parent_netdev_must_exist) {
    make_netdev("vlan5");
    expect_refused(vlan_params(1, 5), "swid1_eth doesn't exist\n");
    expect_refused(port_vlan_params("swp2", 5), "swp2 doesn't exist\n");
    expect_refused(port_vlan_params("", 5), " doesn't exist\n");
}

TEST_F(vlan_create, swid_netdev_must_exist_also_when_a_parent_is_given) {
    expect_refused(vlan_params_on("swp1", 1, 5), "swid1_eth doesn't exist\n");
}

TEST_F(vlan_create, parent_must_exist_in_the_callers_namespace) {
    make_namespace("red");
    make_netdev("swid1_eth", "red");
    expect_refused(vlan_params(1, 5, "red"), "swid1_eth doesn't exist\n");
}

TEST_F(vlan_create, existing_vlan_name_of_the_id_blocks_it_whatever_its_format) {
    make_netdev("vlan5");
    make_netdev("swid0_eth.5");
    expect_refused(vlan_params(0, 5), "vlan5 already exists\n");
    expect_refused(vlan_params(0, 5, "", YB_NET_NAME_FORMAT_VLAN), "vlan5 already exists\n");
    expect_refused(vlan_params_on("swp1", 0, 5), "vlan5 already exists\n");
}

TEST_F(vlan_create, existing_swid_name_blocks_it_whatever_its_format) {
    make_netdev("swid0_eth.5");
    expect_refused(vlan_params(0, 5), "swid0_eth.5 already exists\n");
    expect_refused(vlan_params(0, 5, "", YB_NET_NAME_FORMAT_VLAN), "swid0_eth.5 already exists\n");
}

TEST_F(vlan_create, port_vlan_is_blocked_by_its_own_name_only) {
    make_netdev("vlan7");
    make_netdev("swp1.8");
    EXPECT_EQ("swp1.7", made(port_vlan_params("swp1", 7)));
    calls::reset();
    expect_refused(port_vlan_params("swp1", 8), "swp1.8 already exists\n");
}

// ---- Commands that fail -----------------------------------------------------

TEST_F(vlan_create, failing_command_is_told_with_its_raw_status) {
    shims.replace("vconfig", "exit 3");
    expect_failed(vlan_params(0, 5),
                  {error_line("yb_net_vlan_if_add: Command \"vconfig add swid0_eth 5\" failed. System_error: "
                              "[768] errno: Success\n")});
    EXPECT_EQ(1u, commands().size());
}

TEST_F(vlan_create, shell_that_cannot_start_is_told_with_its_errno) {
    calls::fail("system", ENOMEM);
    expect_failed(
        vlan_params_on("swp1", 0, 5),
        {error_line("yb_net_vlan_if_add: Command \"ip link add link swp1 swid0_eth.5 type vlan "
                    "protocol 802.1Q id 5\" failed. System_error: [-1] errno: Cannot allocate memory\n")});
}

TEST_F(vlan_create, command_without_effect_is_told_at_debug) {
    shims.replace("vconfig", "exit 0");
    expect_failed(vlan_params(0, 5), {});
    platform::reset();
    set_verbosity(5);
    expect_failed(vlan_params(0, 5),
                  {{severity::debug, "net_lib yb_net_vlan_if_add: couldn't create swid0_eth.5\n"}});
    EXPECT_THAT(commands(), ElementsAre("vconfig add swid0_eth 5", "vconfig add swid0_eth 5"));
}

TEST_F(vlan_create, failed_rename_leaves_the_first_name_in_place) {
    shims.replace("ip", "exit 2");
    expect_failed(vlan_params(0, 5, "", YB_NET_NAME_FORMAT_VLAN),
                  {error_line("yb_net_vlan_if_add: Command \"ip link set swid0_eth.5 name vlan5\" failed. "
                              "System_error: [512] errno: Success\n")});
    EXPECT_TRUE(netdev_exists("swid0_eth.5"));
}

TEST_F(vlan_create, rename_without_effect_is_told_at_debug_with_the_commands_text) {
    shims.replace("ip", "exit 0");
    set_verbosity(5);
    expect_failed(vlan_params(0, 5, "", YB_NET_NAME_FORMAT_VLAN),
                  {{severity::debug,
                    "net_lib yb_net_vlan_if_add: couldn't create ip link set swid0_eth.5 name vlan5\n"}});
    EXPECT_TRUE(netdev_exists("swid0_eth.5"));
}

// ---- The dispatcher of the three --------------------------------------------

TEST_F(vlan_create, dispatcher_knows_create_destroy_and_edit_only) {
    yb_net_interface_params_t params = vlan_params(0, 5);
    for (const yb_access_cmd_t cmd : {0u, 1u, 3u, 4u, 14u, 15u, 16u, 17u, 0xFFFFFFFFu})
        EXPECT_EQ(YB_STATUS_CMD_UNSUPPORTED, yb_net_vlan_if_set(cmd, 1, &params)) << cmd;
    expect_nothing_logged();
    EXPECT_THAT(commands(), IsEmpty());
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_vlan_if_set(YB_ACCESS_CMD_CREATE, 1, &params));
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_vlan_if_set(YB_ACCESS_CMD_DESTROY, 1, &params));
    EXPECT_THAT(commands(), ElementsAre("vconfig add swid0_eth 5", "vconfig rem swid0_eth.5"));
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, yb_net_vlan_if_set(YB_ACCESS_CMD_EDIT, 1, &params));
}

TEST_F(vlan_create, every_function_traces_its_entry_and_its_leaving) {
    g_yb_log_module_func_enable = 1;
    set_verbosity(5);
    platform::recorded().log.clear();
    yb_net_interface_params_t params = vlan_params(0, 5);
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_vlan_if_set(YB_ACCESS_CMD_CREATE, 1, &params));
    const auto trace = [](const std::string &function, const std::string &word) {
        return logged{severity::debug, "net_lib " + function + ": " + function + " - " + word + " \n"};
    };
    EXPECT_THAT(logged_lines(),
                ElementsAre(trace("yb_net_vlan_if_set", "entered"), trace("yb_net_vlan_if_add", "entered"),
                            trace("__yb_net_build_if_names", "entered"),
                            trace("__yb_net_build_if_names", "left"), trace("yb_net_vlan_if_add", "left"),
                            trace("yb_net_vlan_if_set", "left")));
}
