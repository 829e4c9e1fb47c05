// SPDX-License-Identifier: Apache-2.0
//
// DELETE_ALL of everything there can be, on a real kernel.
#include "tests/lab/netdev_fixture.h"

namespace {

class lab_delete_all : public lab_netdev_test {
  protected:
    static yb_status_t delete_all() {
        return yb_net_interface_set(YB_ACCESS_CMD_DELETE_ALL, 0, nullptr);
    }
    static void store_pkey(uint32_t sys_ifindex) {
        yb_net_interface_params_t pkey = loopback_params("ib0.8001");
        pkey.type = YB_L2_INTERFACE_TYPE_PKEY;
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_add(sys_ifindex, 9999, &pkey));
    }
};

} // namespace

TEST_F(lab_delete_all, takes_vlans_and_ports_and_leaves_loopbacks) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1, port_params("swp1")));
    ASSERT_EQ(YB_STATUS_SUCCESS, create(2, port_vlan_params("swp1", 7, "red")));
    ASSERT_EQ(YB_STATUS_SUCCESS, create(3, loopback_params("lo3", "blue")));
    ASSERT_EQ(YB_STATUS_SUCCESS, create(4, vlan_params(0, 4, "blue", YB_NET_NAME_FORMAT_VLAN)));
    ASSERT_EQ(YB_STATUS_SUCCESS, create(5, vlan_params_on("swp1", 1, 5)));
    ASSERT_EQ(YB_STATUS_SUCCESS, create(6, port_params("swp6")));
    EXPECT_EQ(YB_STATUS_SUCCESS, delete_all());
    EXPECT_FALSE(netdev_exists("swp1"));
    EXPECT_FALSE(netdev_exists("swp6"));
    EXPECT_FALSE(netdev_exists("swp1.7", "red"));
    EXPECT_FALSE(netdev_exists("vlan4", "blue"));
    EXPECT_FALSE(netdev_exists("swid1_eth.5"));
    EXPECT_TRUE(netdev_exists("lo3", "blue"));
    for (const uint32_t sys_ifindex : {1u, 2u, 4u, 5u, 6u})
        EXPECT_FALSE(is_stored(sys_ifindex)) << sys_ifindex;
    EXPECT_TRUE(is_stored(3));
    EXPECT_TRUE(netdev_exists("swid0_eth")) << "partitions are nobody's interface";
    EXPECT_THAT(logged_lines(), testing::IsEmpty());
}

TEST_F(lab_delete_all, ends_at_a_partition_key_after_all_vlans) {
    store_pkey(1);
    ASSERT_EQ(YB_STATUS_SUCCESS, create(2, port_params("swp2")));
    ASSERT_EQ(YB_STATUS_SUCCESS, create(3, port_vlan_params("swp2", 7, "red")));
    ASSERT_EQ(YB_STATUS_SUCCESS, create(4, vlan_params(0, 4)));
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, delete_all());
    EXPECT_FALSE(netdev_exists("swp2.7", "red"));
    EXPECT_FALSE(netdev_exists("swid0_eth.4"));
    EXPECT_TRUE(netdev_exists("swp2"));
    EXPECT_TRUE(is_stored(1));
    EXPECT_TRUE(is_stored(2));
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_remove(1));
    EXPECT_EQ(YB_STATUS_SUCCESS, delete_all());
    EXPECT_FALSE(netdev_exists("swp2"));
}

TEST_F(lab_delete_all, ends_at_a_port_that_was_moved_away) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1, port_params("swp1", "red")));
    ASSERT_EQ(YB_STATUS_SUCCESS, create(2, port_params("swp2")));
    ASSERT_EQ(YB_STATUS_SUCCESS, create(3, vlan_params(0, 3, "red")));
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, delete_all());
    EXPECT_THAT(logged_lines(), testing::ElementsAre(error_line("Cannot find device \"swp1\"\n")));
    EXPECT_FALSE(is_stored(3));
    EXPECT_TRUE(is_stored(1));
    EXPECT_TRUE(is_stored(2));
}

TEST_F(lab_delete_all, takes_vlans_of_both_partitions_and_namespaces) {
    for (uint16_t id = 1; id <= 6; id++)
        ASSERT_EQ(YB_STATUS_SUCCESS, create(id, vlan_params(id % 2, id, id % 3 == 0 ? "red" : "")));
    EXPECT_EQ(YB_STATUS_SUCCESS, delete_all());
    for (uint16_t id = 1; id <= 6; id++)
        EXPECT_FALSE(is_stored(id));
    EXPECT_THAT(run_ip({"-br", "link"}).output, testing::Not(testing::HasSubstr("eth.")));
    EXPECT_THAT(run_ip({"-n", "red", "-br", "link"}).output, testing::Not(testing::HasSubstr("eth.")));
}
