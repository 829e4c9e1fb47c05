// SPDX-License-Identifier: Apache-2.0
//
// All creatable types side by side on a real kernel, and the lives of their
// records.
#include "tests/lab/netdev_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class lab_interface_set : public lab_netdev_test {};

} // namespace

TEST_F(lab_interface_set, all_types_are_made_found_from_both_sides_and_removed) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(10, vlan_params(0, 10, "red", YB_NET_NAME_FORMAT_VLAN)));
    ASSERT_EQ(YB_STATUS_SUCCESS, create(20, port_params("swp2", "", 1, 2)));
    ASSERT_EQ(YB_STATUS_SUCCESS, create(30, port_vlan_params("swp2", 30, "blue")));
    ASSERT_EQ(YB_STATUS_SUCCESS, create(40, loopback_params("lo40", "blue")));
    const struct {
        uint32_t sys_ifindex;
        const char *name;
        const char *ns;
    } all[] = {{10, "vlan10", "red"}, {20, "swp2", ""}, {30, "swp2.30", "blue"}, {40, "lo40", "blue"}};
    for (const auto &one : all) {
        const uint32_t ifindex = ifindex_of(one.name, one.ns);
        ASSERT_NE(0u, ifindex) << one.name;
        yb_net_interface_record_t record = {};
        ASSERT_EQ(YB_STATUS_SUCCESS,
                  yb_net_interface_params_get_by_linux_ifindex_ns(ifindex, one.ns, &record));
        EXPECT_EQ(one.sys_ifindex, record.sys_ifindex);
        EXPECT_STREQ(one.name, record.params.name);
    }
    for (const uint32_t sys_ifindex : {10u, 30u, 20u, 40u})
        EXPECT_EQ(YB_STATUS_SUCCESS, destroy(sys_ifindex));
    for (const auto &one : all)
        EXPECT_FALSE(netdev_exists(one.name, one.ns)) << one.name;
    EXPECT_THAT(logged_lines(), IsEmpty());
}

TEST_F(lab_interface_set, port_taken_from_under_its_vlan_takes_the_netdev_along) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1, port_params("swp1")));
    ASSERT_EQ(YB_STATUS_SUCCESS, create(2, port_vlan_params("swp1", 7)));
    EXPECT_EQ(YB_STATUS_SUCCESS, destroy(1));
    EXPECT_FALSE(netdev_exists("swp1.7"));
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, destroy(2));
    EXPECT_TRUE(is_stored(2)) << "its record stays";
}

TEST_F(lab_interface_set, failed_move_with_the_name_taken_there_records_the_netdev_that_is_there) {
    ASSERT_EQ(0, run_ip({"-n", "red", "link", "add", "swid0_eth.5", "type", "dummy"}).status);
    stderr_capture ips;
    EXPECT_EQ(YB_STATUS_SUCCESS, create(1, vlan_params(0, 5, "red")));
    EXPECT_EQ(ifindex_of("swid0_eth.5", "red"), stored(1).linux_ifindex);
    EXPECT_THAT(
        logged_lines(),
        ElementsAre(error_line("yb_net_interface_set: Failed to move interface \"swid0_eth.5\" to namespace "
                               "\"red\"\n")));
    EXPECT_EQ(5, vlan_id_of("swid0_eth.5")) << "nothing is rolled back";
}

TEST_F(lab_interface_set, vrf_is_recorded_and_looked_up_but_not_made) {
    ASSERT_EQ(0, run_ip({"-n", "red", "link", "add", "vrf1", "type", "vrf", "table", "100"}).status);
    yb_net_interface_params_t params = vlan_params(0, 5, "red");
    params.vrf_valid = 1;
    fill_field(params.vrf_name, "vrf1");
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1, params));
    yb_net_interface_record_t record = {};
    const uint32_t ifindex = ifindex_of("swid0_eth.5", "red");
    EXPECT_EQ(YB_STATUS_SUCCESS,
              yb_net_interface_params_get_by_linux_ifindex_ns_vrf(ifindex, "red", "vrf1", &record));
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND,
              yb_net_interface_params_get_by_linux_ifindex_ns_vrf(ifindex, "red", "vrf2", &record));
    EXPECT_THAT(shown("swid0_eth.5", "red"), testing::Not(testing::HasSubstr("vrf1")));
}
