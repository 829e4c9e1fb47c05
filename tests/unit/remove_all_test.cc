// SPDX-License-Identifier: Apache-2.0
//
// The bulk removal: VLANs, then ports, loopbacks left; what ends it and with
// which status. Netdevs are real, plain ones standing in for VLANs and ports.
#include "tests/unit/netdev_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class remove_all : public netdev_test {
  protected:
    void SetUp() override {
        netdev_test::SetUp();
        load();
    }
    static void store_netdev(uint32_t sys_ifindex, yb_net_interface_params_t params,
                             const std::string &name) {
        make_netdev(name);
        params.name[0] = '\0';
        fill_field(params.name, name);
        store(sys_ifindex, params);
    }
    static yb_net_interface_params_t pkey_params(const std::string &name) {
        yb_net_interface_params_t params = loopback_params(name);
        params.type = YB_L2_INTERFACE_TYPE_PKEY;
        return params;
    }
    // Lines of the removals, the database's and the functions' traces apart.
    static std::vector<std::string> removals() {
        std::vector<std::string> lines;
        for (const logged &line : logged_lines()) {
            if (line.text.rfind("net_lib ", 0) == 0)
                lines.push_back(line.text);
        }
        return lines;
    }
};

} // namespace

TEST_F(remove_all, empty_database_is_a_success) {
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_interface_remove_all());
    EXPECT_THAT(commands(), IsEmpty());
    expect_nothing_logged();
}

TEST_F(remove_all, vlans_go_before_ports_and_each_is_told_at_debug) {
    store_netdev(1, port_params("swp1"), "swp1");
    store_netdev(2, vlan_params(0, 5), "swid0_eth.5");
    store_netdev(3, port_params("swp2"), "swp2");
    store_netdev(4, port_vlan_params("swp1", 7), "swp1.7");
    std::vector<std::string> order;
    calls::before("system", [&order](int) { order.emplace_back("command"); });
    calls::before("sendmsg", [&order](int) { order.emplace_back("request"); });
    set_verbosity(5);
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_interface_remove_all());
    EXPECT_THAT(order, ElementsAre("command", "command", "request", "request"));
    EXPECT_THAT(commands(), ElementsAre("vconfig rem swid0_eth.5", "vconfig rem swp1.7"));
    const std::string function = "net_lib net_lib_interface_remove_all: ";
    EXPECT_THAT(removals(), ElementsAre(function + "del vlan/port_vlan netdev swid0_eth.5 \n",
                                        function + "del vlan/port_vlan netdev swp1.7 \n",
                                        function + "del port/pkey netdev swp1 \n",
                                        function + "del port/pkey netdev swp2 \n"));
    for (const char *const name : {"swid0_eth.5", "swp1.7", "swp1", "swp2"})
        EXPECT_FALSE(netdev_exists(name)) << name;
    for (uint32_t sys_ifindex = 1; sys_ifindex <= 4; sys_ifindex++)
        EXPECT_FALSE(is_stored(sys_ifindex));
}

TEST_F(remove_all, loopbacks_stay_with_their_bridges) {
    store_netdev(1, loopback_params("lo1"), "lo1");
    store_netdev(2, vlan_params(0, 5), "vlan5");
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_interface_remove_all());
    EXPECT_TRUE(netdev_exists("lo1"));
    EXPECT_TRUE(is_stored(1));
    EXPECT_FALSE(is_stored(2));
}

TEST_F(remove_all, records_of_unknown_types_stay) {
    yb_net_interface_params_t params = loopback_params("x");
    params.type = 4;
    store(1, params);
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_interface_remove_all());
    EXPECT_TRUE(is_stored(1));
}

TEST_F(remove_all, failing_vlan_ends_it_before_the_rest) {
    store_netdev(1, vlan_params(0, 5), "vlan5");
    store(2, vlan_params(0, 6)); // has no netdev
    store_netdev(3, vlan_params(0, 7), "vlan7");
    store_netdev(4, port_params("swp1"), "swp1");
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, net_lib_interface_remove_all());
    EXPECT_THAT(
        logged_lines(),
        ElementsAre(error_line("yb_net_vlan_if_remove: Vlan interface vlan6/swid0_eth.6 doesn't exist\n")));
    EXPECT_FALSE(is_stored(1));
    for (uint32_t sys_ifindex = 2; sys_ifindex <= 4; sys_ifindex++)
        EXPECT_TRUE(is_stored(sys_ifindex));
    EXPECT_TRUE(netdev_exists("vlan7"));
    EXPECT_TRUE(netdev_exists("swp1"));
}

TEST_F(remove_all, failing_command_ends_it_with_its_status) {
    store_netdev(1, vlan_params(0, 5), "vlan5");
    shims.replace("vconfig", "exit 1");
    EXPECT_EQ(YB_STATUS_ERROR, net_lib_interface_remove_all());
    EXPECT_TRUE(is_stored(1));
}

TEST_F(remove_all, failing_port_ends_it_before_the_next) {
    store(1, port_params("absent"));
    store_netdev(2, port_params("swp1"), "swp1");
    store_netdev(3, vlan_params(0, 5), "vlan5");
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, net_lib_interface_remove_all());
    EXPECT_THAT(logged_lines(), ElementsAre(error_line("Cannot find device \"absent\"\n")));
    EXPECT_TRUE(is_stored(1));
    EXPECT_TRUE(is_stored(2));
    EXPECT_FALSE(is_stored(3)) << "VLANs were first";
}

TEST_F(remove_all, pkey_record_ends_it_after_all_vlans) {
    store(1, pkey_params("ib0.8001"));
    store_netdev(2, vlan_params(0, 5), "vlan5");
    store_netdev(3, port_vlan_params("swp1", 7), "swp1.7");
    store_netdev(4, port_params("swp1"), "swp1");
    set_verbosity(5);
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, net_lib_interface_remove_all());
    EXPECT_THAT(removals().back(),
                testing::StrEq("net_lib net_lib_interface_remove_all: del port/pkey netdev ib0.8001 \n"));
    EXPECT_THAT(platform::recorded().texts(severity::error), IsEmpty());
    EXPECT_FALSE(is_stored(2));
    EXPECT_FALSE(is_stored(3));
    EXPECT_TRUE(is_stored(1));
    EXPECT_TRUE(is_stored(4));
    EXPECT_TRUE(netdev_exists("swp1"));
}

TEST_F(remove_all, ports_in_front_of_a_pkey_record_go) {
    store_netdev(1, port_params("swp1"), "swp1");
    store(2, pkey_params("ib0.8001"));
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, net_lib_interface_remove_all());
    EXPECT_FALSE(is_stored(1));
    EXPECT_TRUE(is_stored(2));
}

TEST_F(remove_all, last_slot_of_the_table_is_looked_at) {
    for (uint32_t sys_ifindex = 1; sys_ifindex < YB_NET_INTERFACES_MAX; sys_ifindex++) {
        const yb_net_interface_params_t params = loopback_params("lo");
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_add(sys_ifindex, sys_ifindex, &params));
    }
    store_netdev(YB_NET_INTERFACES_MAX, vlan_params(0, 5), "vlan5");
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_interface_remove_all());
    EXPECT_FALSE(is_stored(YB_NET_INTERFACES_MAX));
    EXPECT_FALSE(netdev_exists("vlan5"));
    store_netdev(YB_NET_INTERFACES_MAX, loopback_params("lo1"), "lo1");
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_interface_remove_all())
        << "reading a loopback's record was the last step";
}

TEST_F(remove_all, record_that_went_in_the_meantime_does_not_end_it) {
    store_netdev(1, vlan_params(0, 5), "vlan5");
    store_netdev(2, vlan_params(0, 6), "vlan6");
    calls::before("system", [](int call) {
        if (call == 1)
            (void)net_lib_db_interface_remove(1);
    });
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_interface_remove_all());
    EXPECT_EQ(2u, commands().size());
    EXPECT_FALSE(is_stored(2));
}

TEST_F(remove_all, unloaded_database_is_told_once) {
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_unload(0));
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, net_lib_interface_remove_all());
    EXPECT_THAT(logged_lines(), ElementsAre(error_line("Net-lib Interfaces DB was not initialized\n")));
}
