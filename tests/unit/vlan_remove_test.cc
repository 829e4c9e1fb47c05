// SPDX-License-Identifier: Apache-2.0
//
// Removing VLAN netdevs: which of the two names is the target, where the command
// runs, every message. Plain netdevs stand in for VLANs, as in
// vlan_create_test.cc.
#include "net_lib/vlan_netdev.h"

#include "tests/unit/netdev_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class vlan_remove : public netdev_test {
  protected:
    static std::string removed(yb_net_interface_params_t params) {
        EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_vlan_if_remove(&params));
        expect_nothing_logged();
        return text_in(params.name);
    }
    void expect_failed(yb_net_interface_params_t params, yb_status_t status,
                       const std::vector<logged> &lines) {
        platform::recorded().log.clear();
        const std::string before = bytes_of(params);
        EXPECT_EQ(status, yb_net_vlan_if_remove(&params));
        EXPECT_EQ(lines, logged_lines());
        EXPECT_EQ(before, bytes_of(params));
    }
};

std::string look_for(const std::string &ns, const std::string &name) {
    return "ip netns exec " + ns + " cat /sys/devices/virtual/net/" + name + "/ifindex 2>&1";
}

} // namespace

TEST_F(vlan_remove, swid_name_is_removed_when_there_is_no_vlan_name) {
    make_netdev("swid0_eth.5");
    EXPECT_EQ("swid0_eth.5", removed(vlan_params(0, 5, "", YB_NET_NAME_FORMAT_VLAN)));
    EXPECT_THAT(commands(), ElementsAre("vconfig rem swid0_eth.5"));
    EXPECT_FALSE(netdev_exists("swid0_eth.5"));
}

TEST_F(vlan_remove, vlan_name_is_removed_first_whatever_the_format) {
    make_netdev("swid0_eth.5");
    make_netdev("vlan5");
    EXPECT_EQ("vlan5", removed(vlan_params(0, 5, "", YB_NET_NAME_FORMAT_SWID)));
    EXPECT_THAT(commands(), ElementsAre("vconfig rem vlan5"));
    EXPECT_TRUE(netdev_exists("swid0_eth.5"));
}

TEST_F(vlan_remove, netdev_made_with_a_parent_is_removed_by_vconfig_as_well) {
    make_netdev("swid0_eth.5");
    EXPECT_EQ("swid0_eth.5", removed(vlan_params_on("swp1", 0, 5)));
    EXPECT_THAT(commands(), ElementsAre("vconfig rem swid0_eth.5"));
}

TEST_F(vlan_remove, lookups_and_command_run_in_the_blocks_namespace) {
    make_namespace("red");
    make_netdev("swid0_eth.5", "red");
    make_netdev("vlan5"); // not there
    EXPECT_EQ("swid0_eth.5", removed(vlan_params(0, 5, "red")));
    EXPECT_THAT(commands(),
                ElementsAre(look_for("red", "vlan5"), look_for("red", "swid0_eth.5"),
                            "ip netns exec red vconfig rem swid0_eth.5", look_for("red", "swid0_eth.5")));
    EXPECT_FALSE(netdev_exists("swid0_eth.5", "red"));
    EXPECT_TRUE(netdev_exists("vlan5"));
}

TEST_F(vlan_remove, port_vlan_is_removed_by_its_recorded_name) {
    make_netdev("renamed");
    make_netdev("swp1.7");
    make_netdev("vlan7");
    EXPECT_EQ("renamed", removed(port_vlan_params("swp1", 7, "", "renamed")));
    EXPECT_THAT(commands(), ElementsAre("vconfig rem renamed"));
    EXPECT_TRUE(netdev_exists("swp1.7"));
}

TEST_F(vlan_remove, port_vlan_is_removed_inside_its_namespace) {
    make_namespace("red");
    make_netdev("swp1.7", "red");
    EXPECT_EQ("swp1.7", removed(port_vlan_params("swp1", 7, "red", "swp1.7")));
    EXPECT_FALSE(netdev_exists("swp1.7", "red"));
}

TEST_F(vlan_remove, id_and_format_are_not_checked) {
    make_netdev("vlan65535");
    EXPECT_EQ("vlan65535", removed(vlan_params(0, 65535, "", 99)));
}

TEST_F(vlan_remove, name_without_nul_is_given_back_cut_to_its_field) {
    // Only a tool that tells stories has a netdev with 16 characters.
    shims.replace("ip", "case $* in *cat*0123456789abcdef/*) [ ! -e $0.gone ] || exit 1; echo 9;;"
                        "*vconfig*) touch $0.gone;; *) exit 1;; esac");
    EXPECT_EQ("0123456789abcde", removed(port_vlan_params("swp1", 7, "red", "0123456789abcdef")));
    EXPECT_THAT(commands(), testing::Contains("ip netns exec red vconfig rem 0123456789abcdef"));
}

// ---- Failures ---------------------------------------------------------------

TEST_F(vlan_remove, swid_or_type_without_a_name) {
    const std::vector<logged> lines = {
        error_line("yb_net_vlan_if_remove: __yb_net_build_if_names failed. rc = 13\n")};
    expect_failed(vlan_params(8, 5), YB_STATUS_PARAM_ERROR, lines);
    expect_failed(port_params("swp1"), YB_STATUS_PARAM_ERROR, lines);
    EXPECT_THAT(commands(), IsEmpty());
}

TEST_F(vlan_remove, netdev_of_neither_name) {
    expect_failed(vlan_params(0, 5), YB_STATUS_PARAM_ERROR,
                  {error_line("yb_net_vlan_if_remove: Vlan interface vlan5/swid0_eth.5 doesn't exist\n")});
    expect_failed(port_vlan_params("swp1", 5, "", "swp1.5"), YB_STATUS_PARAM_ERROR,
                  {error_line("yb_net_vlan_if_remove: Vlan interface /swp1.5 doesn't exist\n")});
    EXPECT_THAT(commands(), IsEmpty());
}

TEST_F(vlan_remove, netdev_in_another_namespace_does_not_count) {
    make_namespace("red");
    make_netdev("vlan5");
    expect_failed(vlan_params(0, 5, "red"), YB_STATUS_PARAM_ERROR,
                  {error_line("yb_net_vlan_if_remove: Vlan interface vlan5/swid0_eth.5 doesn't exist\n")});
    EXPECT_TRUE(netdev_exists("vlan5"));
}

TEST_F(vlan_remove, failing_command_is_told_without_its_wrapping) {
    make_namespace("red");
    make_netdev("vlan5", "red");
    shims.replace("vconfig", "exit 5");
    expect_failed(vlan_params(0, 5, "red"), YB_STATUS_ERROR,
                  {error_line("yb_net_vlan_if_remove: Command \"vconfig rem vlan5\" failed. System_error: "
                              "[1280] errno: Success\n")});
    EXPECT_TRUE(netdev_exists("vlan5", "red"));
}

TEST_F(vlan_remove, shell_that_cannot_start_is_told_with_its_errno) {
    make_netdev("vlan5");
    calls::fail("system", EAGAIN);
    expect_failed(vlan_params(0, 5), YB_STATUS_ERROR,
                  {error_line("yb_net_vlan_if_remove: Command \"vconfig rem vlan5\" failed. System_error: "
                              "[-1] errno: Resource temporarily unavailable\n")});
}

TEST_F(vlan_remove, command_without_effect_is_told_at_debug) {
    make_netdev("vlan5");
    shims.replace("vconfig", "exit 0");
    expect_failed(vlan_params(0, 5), YB_STATUS_ERROR, {});
    set_verbosity(5);
    expect_failed(vlan_params(0, 5), YB_STATUS_ERROR,
                  {{severity::debug, "net_lib yb_net_vlan_if_remove: couldn't remove vlan5\n"}});
}
