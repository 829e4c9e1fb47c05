// SPDX-License-Identifier: Apache-2.0
//
// Giving a PORT_VLAN netdev another id: the checks of what is asked and of what
// is stored, in their order, and the command. Recording the new id is the
// dispatcher's (interface_set_test.cc).
#include "net_lib/vlan_netdev.h"

#include "tests/unit/netdev_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint32_t sys_ifindex = 40;

class vlan_change : public netdev_test {
  protected:
    void SetUp() override {
        netdev_test::SetUp();
        load();
    }
    static yb_status_t change_to(uint16_t vlan_id) {
        const yb_net_interface_params_t params = port_vlan_params("ignored", vlan_id, "ignored", "ignored");
        return yb_net_port_vlan_if_change(sys_ifindex, &params);
    }
    static void expect_refused(uint16_t vlan_id, const std::string &message) {
        platform::recorded().log.clear();
        EXPECT_EQ(YB_STATUS_PARAM_ERROR, change_to(vlan_id));
        EXPECT_THAT(logged_lines(), ElementsAre(error_line(message)));
        EXPECT_THAT(commands(), IsEmpty());
    }
};

} // namespace

TEST_F(vlan_change, stored_netdev_is_changed_in_the_own_namespace) {
    make_netdev("swp1.7");
    store(sys_ifindex, port_vlan_params("swp1", 7, "", "swp1.7"));
    EXPECT_EQ(YB_STATUS_SUCCESS, change_to(8));
    EXPECT_THAT(commands(), ElementsAre("ip link set dev swp1.7 type vlan id 8"));
    expect_nothing_logged();
}

TEST_F(vlan_change, stored_netdev_is_changed_inside_its_namespace) {
    make_namespace("red");
    make_netdev("swp1.7", "red");
    store(sys_ifindex, port_vlan_params("swp1", 7, "red", "swp1.7"));
    EXPECT_EQ(YB_STATUS_SUCCESS, change_to(0));
    EXPECT_THAT(commands(), ElementsAre("ip netns exec red cat /sys/devices/virtual/net/swp1.7/ifindex 2>&1",
                                        "ip netns exec red ip link set dev swp1.7 type vlan id 0"));
}

TEST_F(vlan_change, command_of_49_characters_fits) {
    make_netdev("0123456789abcde");
    store(sys_ifindex, port_vlan_params("swp1", 7, "", "0123456789abcde"));
    EXPECT_EQ(YB_STATUS_SUCCESS, change_to(4095));
    ASSERT_THAT(commands(), ElementsAre("ip link set dev 0123456789abcde type vlan id 4095"));
    EXPECT_EQ(49u, commands()[0].size());
}

TEST_F(vlan_change, command_of_50_characters_is_not_run) {
    shims.replace("ip", "echo 9");
    store(sys_ifindex, port_vlan_params("swp1", 7, "red", "0123456789abcdef"));
    EXPECT_EQ(YB_STATUS_ERROR, change_to(4095));
    EXPECT_EQ(1u, commands().size()) << "the lookup only";
    EXPECT_THAT(
        logged_lines(),
        ElementsAre(error_line("yb_net_vlan_if_add: Command \"ip link set dev 0123456789abcdef type vlan id "
                               "409\" failed. System_error: [1] errno: File name too long\n")));
}

TEST_F(vlan_change, record_is_left_to_the_dispatcher) {
    make_netdev("swp1.7");
    store(sys_ifindex, port_vlan_params("swp1", 7, "", "swp1.7"));
    EXPECT_EQ(YB_STATUS_SUCCESS, change_to(8));
    EXPECT_EQ(7, stored(sys_ifindex).params.by_type.port_vlan.vlan_id);
}

TEST_F(vlan_change, same_id_is_told_at_info_and_runs_nothing) {
    store(sys_ifindex, port_vlan_params("swp1", 7, "", "absent"));
    EXPECT_EQ(YB_STATUS_SUCCESS, change_to(7));
    expect_nothing_logged();
    set_verbosity(4);
    EXPECT_EQ(YB_STATUS_SUCCESS, change_to(7));
    EXPECT_THAT(logged_lines(),
                ElementsAre(logged{severity::info, "Modify to the same vlan 7. Do nothing.\n"}));
    EXPECT_THAT(commands(), IsEmpty());
}

// ---- Checks, in their order -------------------------------------------------

TEST_F(vlan_change, type_that_is_asked_for_must_be_port_vlan) {
    const std::pair<uint32_t, const char *> types[] = {
        {0, "VLAN"}, {2, "PORT"}, {3, "PKEY"}, {6, "LOOPBACK"}, {77, "UNKNOWN"}};
    for (const auto &[type, text] : types) {
        platform::recorded().log.clear();
        yb_net_interface_params_t params = {};
        params.type = type;
        EXPECT_EQ(YB_STATUS_PARAM_ERROR, yb_net_port_vlan_if_change(sys_ifindex, &params));
        EXPECT_THAT(logged_lines(),
                    ElementsAre(error_line("ERROR : The interface type is " + std::string(text) +
                                           ", only PORT_VLAN type is supported , rc = 13 \n")));
    }
}

TEST_F(vlan_change, unknown_interface_gets_the_databases_status_without_a_message_of_its_own) {
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, change_to(4096));
    expect_nothing_logged();
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_unload(0));
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, change_to(4096));
    EXPECT_EQ(1u, logged_lines().size()) << "the database's";
    EXPECT_THAT(commands(), IsEmpty());
}

TEST_F(vlan_change, type_that_is_stored_must_be_port_vlan) {
    store(sys_ifindex, loopback_params("lo1"));
    expect_refused(4096,
                   "ERROR : The interface type is LOOPBACK, only PORT_VLAN type is supported , rc = 13 \n");
}

TEST_F(vlan_change, id_of_4096_or_more_is_out_of_range) {
    store(sys_ifindex, port_vlan_params("swp1", 4096, "", "absent"));
    expect_refused(4096, "RM_VLAN_NUMS_CHECK_RANGE(4096) failed, rc = 13 \n");
    expect_refused(65535, "RM_VLAN_NUMS_CHECK_RANGE(65535) failed, rc = 13 \n");
    expect_refused(4095, "absent doesn't exists\n");
}

TEST_F(vlan_change, stored_netdev_must_exist_in_its_namespace) {
    make_namespace("red");
    make_netdev("swp1.7");
    store(sys_ifindex, port_vlan_params("swp1", 7, "red", "swp1.7"));
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, change_to(8));
    EXPECT_THAT(logged_lines(), ElementsAre(error_line("swp1.7 doesn't exists\n")));
    EXPECT_EQ(1u, commands().size()) << "the lookup only";
}

TEST_F(vlan_change, failing_command_is_told_under_the_makers_name) {
    make_netdev("swp1.7");
    store(sys_ifindex, port_vlan_params("swp1", 7, "", "swp1.7"));
    shims.replace("ip", "exit 2");
    EXPECT_EQ(YB_STATUS_ERROR, change_to(8));
    EXPECT_THAT(logged_lines(), ElementsAre(error_line(
                                    "yb_net_vlan_if_add: Command \"ip link set dev swp1.7 type vlan id 8\" "
                                    "failed. System_error: [512] errno: Success\n")));
    platform::recorded().log.clear();
    calls::fail("system", ENOMEM);
    EXPECT_EQ(YB_STATUS_ERROR, change_to(8));
    EXPECT_THAT(logged_lines(), ElementsAre(error_line(
                                    "yb_net_vlan_if_add: Command \"ip link set dev swp1.7 type vlan id 8\" "
                                    "failed. System_error: [-1] errno: Cannot allocate memory\n")));
}
