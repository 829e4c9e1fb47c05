// SPDX-License-Identifier: Apache-2.0
//
// VLAN and PORT_VLAN interfaces on a kernel with 802.1Q, by the real vconfig and
// ip: what the kernel shows is what was asked for.
#include "tests/lab/netdev_fixture.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class lab_vlan : public lab_netdev_test {};

} // namespace

TEST_F(lab_vlan, vconfig_stacks_it_on_the_partitions_netdev) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1, vlan_params(0, 5)));
    EXPECT_EQ(5, vlan_id_of("swid0_eth.5"));
    EXPECT_THAT(shown("swid0_eth.5"), HasSubstr("swid0_eth.5@swid0_eth:"));
    EXPECT_EQ(ifindex_of("swid0_eth.5"), stored(1).linux_ifindex);
    ASSERT_EQ(YB_STATUS_SUCCESS, destroy(1));
    EXPECT_FALSE(netdev_exists("swid0_eth.5"));
    EXPECT_THAT(logged_lines(), IsEmpty());
}

TEST_F(lab_vlan, ip_link_stacks_it_on_the_parent_that_is_given) {
    ASSERT_EQ(0, run_ip({"link", "add", "dum0", "type", "dummy"}).status);
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1, vlan_params_on("dum0", 0, 6)));
    EXPECT_EQ(6, vlan_id_of("swid0_eth.6"));
    EXPECT_THAT(shown("swid0_eth.6"), HasSubstr("swid0_eth.6@dum0:"));
    ASSERT_EQ(YB_STATUS_SUCCESS, destroy(1)) << "vconfig removes it as well";
    EXPECT_FALSE(netdev_exists("swid0_eth.6"));
}

TEST_F(lab_vlan, parent_that_does_not_exist_fails_the_command) {
    stderr_capture ips;
    EXPECT_EQ(YB_STATUS_ERROR, create(1, vlan_params_on("absent", 0, 6)));
    EXPECT_THAT(
        logged_lines(),
        ElementsAre(error_line("yb_net_vlan_if_add: Command \"ip link add link absent swid0_eth.6 type vlan "
                               "protocol 802.1Q id 6\" failed. System_error: [256] errno: Success\n")));
}

TEST_F(lab_vlan, is_renamed_moved_and_found_in_its_namespace) {
    yb_net_interface_params_t params = vlan_params(1, 7, "red", YB_NET_NAME_FORMAT_VLAN);
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set_full(YB_ACCESS_CMD_CREATE, 1, &params, 3, 4));
    EXPECT_STREQ("vlan7", params.name);
    EXPECT_EQ(7, vlan_id_of("vlan7", "red"));
    for (const char *const name : {"vlan7", "swid1_eth.7"})
        EXPECT_FALSE(netdev_exists(name)) << name;
    EXPECT_EQ(ifindex_of("vlan7", "red"), stored(1).linux_ifindex);
    EXPECT_EQ(3, stored(1).rif);
    ASSERT_EQ(YB_STATUS_SUCCESS, destroy(1));
    EXPECT_FALSE(netdev_exists("vlan7", "red"));
}

TEST_F(lab_vlan, one_id_stands_once_on_each_partition) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1, vlan_params(0, 5, "red")));
    ASSERT_EQ(YB_STATUS_SUCCESS, create(2, vlan_params(1, 5, "blue")));
    EXPECT_EQ(5, vlan_id_of("swid0_eth.5", "red"));
    EXPECT_EQ(5, vlan_id_of("swid1_eth.5", "blue"));
    stderr_capture ips;
    EXPECT_EQ(YB_STATUS_ERROR, create(3, vlan_params(0, 5))) << "the kernel knows it is taken, in red";
}

TEST_F(lab_vlan, existing_netdev_of_its_vlan_name_blocks_it) {
    ASSERT_EQ(0, run_ip({"link", "add", "vlan8", "type", "dummy"}).status);
    for (const uint32_t format : {0u, 1u}) {
        platform::reset();
        EXPECT_EQ(YB_STATUS_PARAM_ERROR, create(1, vlan_params(0, 8, "", format)));
        EXPECT_THAT(logged_lines(), ElementsAre(error_line("vlan8 already exists\n")));
    }
    EXPECT_FALSE(netdev_exists("swid0_eth.8"));
    EXPECT_EQ(YB_STATUS_SUCCESS, create(1, port_vlan_params("swid0_eth", 8))) << "of a VLAN only";
}

TEST_F(lab_vlan, id_0_and_4094_are_made_and_4095_is_the_kernels_to_refuse) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1, vlan_params(0, 0)));
    EXPECT_EQ(0, vlan_id_of("swid0_eth.0"));
    ASSERT_EQ(YB_STATUS_SUCCESS, create(2, vlan_params(0, 4094)));
    EXPECT_EQ(4094, vlan_id_of("swid0_eth.4094"));
    stderr_capture ips;
    EXPECT_EQ(YB_STATUS_ERROR, create(3, vlan_params(0, 4095)));
    EXPECT_EQ(YB_STATUS_SUCCESS, destroy(1));
    EXPECT_EQ(YB_STATUS_SUCCESS, destroy(2));
}

TEST_F(lab_vlan, netdev_taken_away_by_somebody_else_is_not_found) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1, vlan_params(0, 5, "red")));
    remove_netdev("swid0_eth.5", "red");
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, destroy(1));
    EXPECT_THAT(
        logged_lines(),
        ElementsAre(error_line("yb_net_vlan_if_remove: Vlan interface vlan5/swid0_eth.5 doesn't exist\n")));
    EXPECT_TRUE(is_stored(1));
}

TEST_F(lab_vlan, port_vlan_is_stacked_on_a_port) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1, port_params("swp1")));
    ASSERT_EQ(YB_STATUS_SUCCESS, create(2, port_vlan_params("swp1", 7, "red")));
    EXPECT_EQ(7, vlan_id_of("swp1.7", "red"));
    EXPECT_STREQ("swp1.7", stored(2).params.name);
    ASSERT_EQ(YB_STATUS_SUCCESS, destroy(2));
    EXPECT_FALSE(netdev_exists("swp1.7", "red"));
}

// Linux takes the command and, at least up to 6.1, keeps the netdev's id. So the same command is run on a twin,
// and both must end alike.
TEST_F(lab_vlan, edit_does_to_the_netdev_what_the_bare_command_does_and_records_the_new_id) {
    ASSERT_EQ(0, run_ip({"link", "add", "dum0", "type", "dummy"}).status);
    ASSERT_EQ(0, run_ip({"link", "add", "link", "dum0", "twin", "type", "vlan", "id", "7"}).status);
    ASSERT_EQ(0, run_ip({"link", "set", "dev", "twin", "type", "vlan", "id", "9"}).status);
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1, port_vlan_params("swid0_eth", 7, "red")));
    yb_net_interface_params_t edit = port_vlan_params("", 9);
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set(YB_ACCESS_CMD_EDIT, 1, &edit));
    EXPECT_EQ(vlan_id_of("twin"), vlan_id_of("swid0_eth.7", "red"));
    RecordProperty("kernel_shows_id", vlan_id_of("swid0_eth.7", "red"));
    EXPECT_EQ(9, stored(1).params.by_type.port_vlan.vlan_id);
    EXPECT_STREQ("swid0_eth.7", stored(1).params.name);
    EXPECT_EQ(YB_STATUS_SUCCESS, destroy(1)) << "by its recorded name";
}

TEST_F(lab_vlan, edit_to_an_id_the_kernel_refuses_leaves_the_record) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1, port_vlan_params("swid0_eth", 7)));
    yb_net_interface_params_t edit = port_vlan_params("", 4095);
    stderr_capture ips;
    EXPECT_EQ(YB_STATUS_ERROR, yb_net_interface_set(YB_ACCESS_CMD_EDIT, 1, &edit));
    EXPECT_EQ(7, stored(1).params.by_type.port_vlan.vlan_id);
    EXPECT_EQ(7, vlan_id_of("swid0_eth.7"));
}
