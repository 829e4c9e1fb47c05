// SPDX-License-Identifier: Apache-2.0
//
// The dispatcher: which steps run in which order, what is recorded, and that
// nothing is rolled back. When the lock is held, and the caller's memory is
// touched, is interface_set_lock_test.cc's.
#include "ybnet/net_lib.h"

#include "tests/unit/netdev_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint32_t sys_ifindex = 40;

class interface_set : public netdev_test {
  protected:
    void SetUp() override {
        netdev_test::SetUp();
        make_netdev("swid0_eth");
        make_netdev("swp1");
        make_namespace("red");
        load();
    }
    static yb_status_t create(yb_net_interface_params_t &params) {
        return yb_net_interface_set(YB_ACCESS_CMD_CREATE, sys_ifindex, &params);
    }
    static yb_status_t destroy() {
        return yb_net_interface_set(YB_ACCESS_CMD_DESTROY, sys_ifindex, nullptr);
    }
};

std::string look_for(const std::string &ns, const std::string &name) {
    return "ip netns exec " + ns + " cat /sys/devices/virtual/net/" + name + "/ifindex 2>&1";
}

} // namespace

// ---- CREATE -----------------------------------------------------------------

TEST_F(interface_set, vlan_is_made_then_moved_then_found_in_its_namespace_then_recorded) {
    yb_net_interface_params_t params = vlan_params(0, 5, "red", YB_NET_NAME_FORMAT_VLAN);
    EXPECT_EQ(YB_STATUS_SUCCESS, create(params));
    EXPECT_THAT(commands(), ElementsAre("vconfig add swid0_eth 5", "ip link set swid0_eth.5 name vlan5",
                                        "ip link set netns red vlan5", look_for("red", "vlan5")));
    EXPECT_STREQ("vlan5", params.name);
    const yb_net_interface_record_t record = stored(sys_ifindex);
    EXPECT_EQ(sys_ifindex, record.sys_ifindex);
    EXPECT_EQ(ifindex_of("vlan5", "red"), record.linux_ifindex);
    EXPECT_EQ(bytes_of(params), bytes_of(record.params));
    expect_nothing_logged();
}

TEST_F(interface_set, netdev_of_the_own_namespace_is_not_moved) {
    yb_net_interface_params_t params = port_vlan_params("swp1", 7);
    EXPECT_EQ(YB_STATUS_SUCCESS, create(params));
    EXPECT_THAT(commands(), ElementsAre("vconfig add swp1 7"));
    EXPECT_EQ(ifindex_of("swp1.7"), stored(sys_ifindex).linux_ifindex);
    EXPECT_STREQ("swp1.7", stored(sys_ifindex).params.name);
}

TEST_F(interface_set, loopback_is_made_inside_its_namespace_and_never_moved) {
    make_netdev("filler", "red"); // so that ifindexes differ
    yb_net_interface_params_t params = loopback_params("lo1", "red");
    EXPECT_EQ(YB_STATUS_SUCCESS, create(params));
    EXPECT_THAT(commands(),
                ElementsAre("ip netns exec red ip link add name lo1 type bridge", look_for("red", "lo1")));
    EXPECT_EQ(ifindex_of("lo1", "red"), stored(sys_ifindex).linux_ifindex);
}

TEST_F(interface_set, plain_entry_records_neither_rif_nor_vrid) {
    yb_net_interface_params_t params = loopback_params("lo1");
    EXPECT_EQ(YB_STATUS_SUCCESS, create(params));
    EXPECT_EQ(0xFFFF, stored(sys_ifindex).rif);
    EXPECT_EQ(255, stored(sys_ifindex).vrid);
}

TEST_F(interface_set, full_entry_records_what_it_is_given) {
    yb_net_interface_params_t params = loopback_params("lo1");
    EXPECT_EQ(YB_STATUS_SUCCESS,
              yb_net_interface_set_full(YB_ACCESS_CMD_CREATE, sys_ifindex, &params, 0x1234, 0xABCD));
    EXPECT_EQ(0x1234, stored(sys_ifindex).rif);
    EXPECT_EQ(0xABCD, stored(sys_ifindex).vrid);
}

TEST_F(interface_set, failed_netdev_step_skips_the_rest) {
    shims.replace("vconfig", "exit 1");
    yb_net_interface_params_t params = vlan_params(0, 5, "red");
    EXPECT_EQ(YB_STATUS_ERROR, create(params));
    EXPECT_THAT(commands(), ElementsAre("vconfig add swid0_eth 5"));
    EXPECT_EQ(1u, logged_lines().size());
    EXPECT_FALSE(is_stored(sys_ifindex));
}

TEST_F(interface_set, failed_move_is_told_and_the_netdev_that_is_there_already_recorded) {
    make_netdev("swid0_eth.5", "red"); // so that the move fails in earnest
    yb_net_interface_params_t params = vlan_params(0, 5, "red");
    {
        stderr_capture ips;
        EXPECT_EQ(YB_STATUS_SUCCESS, create(params));
    }
    EXPECT_THAT(
        logged_lines(),
        ElementsAre(error_line("yb_net_interface_set: Failed to move interface \"swid0_eth.5\" to namespace "
                               "\"red\"\n")));
    EXPECT_EQ(ifindex_of("swid0_eth.5", "red"), stored(sys_ifindex).linux_ifindex);
    EXPECT_TRUE(netdev_exists("swid0_eth.5")) << "nothing is rolled back";
}

TEST_F(interface_set, netdev_that_is_not_found_after_a_failed_move_stays_unrecorded) {
    stderr_capture ips;
    yb_net_interface_params_t params = vlan_params(0, 5, "nowhere");
    EXPECT_EQ(YB_STATUS_ERROR, create(params));
    EXPECT_THAT(
        logged_lines(),
        ElementsAre(error_line("yb_net_interface_set: Failed to move interface \"swid0_eth.5\" to namespace "
                               "\"nowhere\"\n"),
                    error_line("yb_net_interface_set: Cannot find device \"swid0_eth.5\"\n")));
    EXPECT_FALSE(is_stored(sys_ifindex));
    EXPECT_TRUE(netdev_exists("swid0_eth.5")) << "nothing is rolled back";
    EXPECT_STREQ("swid0_eth.5", params.name) << "the name is given back all the same";
}

TEST_F(interface_set, netdev_that_vanished_is_told) {
    shims.replace("ip", "exit 0");
    yb_net_interface_params_t params = loopback_params("lo1");
    EXPECT_EQ(YB_STATUS_ERROR, create(params));
    EXPECT_THAT(logged_lines(),
                ElementsAre(error_line("yb_net_interface_set: Cannot find device \"lo1\"\n")));
}

TEST_F(interface_set, netdev_whose_record_is_refused_stays) {
    store(sys_ifindex, loopback_params("other"));
    yb_net_interface_params_t params = vlan_params(0, 5);
    EXPECT_EQ(YB_STATUS_ENTRY_ALREADY_EXISTS, create(params));
    EXPECT_EQ(1u, logged_lines().size()) << "the database's";
    EXPECT_TRUE(netdev_exists("swid0_eth.5"));
    EXPECT_STREQ("swid0_eth.5", params.name);
    EXPECT_STREQ("other", stored(sys_ifindex).params.name);
}

TEST_F(interface_set, unloaded_database_is_noticed_when_the_netdev_stands) {
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_unload(0));
    for (const bool full : {false, true}) {
        yb_net_interface_params_t params = loopback_params(full ? "lo2" : "lo1");
        EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED,
                  full ? yb_net_interface_set_full(YB_ACCESS_CMD_CREATE, 1, &params, 1, 1) : create(params));
        EXPECT_TRUE(netdev_exists(params.name));
    }
}

TEST_F(interface_set, other_types_are_refused_without_a_message) {
    for (const uint32_t type : {3u, 4u, 5u, 7u, 0xFFFFFFFFu}) {
        for (const yb_access_cmd_t cmd : {2u, 12u, 99u}) {
            yb_net_interface_params_t params = loopback_params("lo1");
            params.type = type;
            EXPECT_EQ(YB_STATUS_PARAM_ERROR, yb_net_interface_set(cmd, sys_ifindex, &params));
            EXPECT_EQ(YB_STATUS_PARAM_ERROR, yb_net_interface_set_full(cmd, sys_ifindex, &params, 1, 1));
        }
    }
    expect_nothing_logged();
    EXPECT_THAT(commands(), IsEmpty());
}

TEST_F(interface_set, other_commands_are_unsupported_for_every_type) {
    for (const yb_access_cmd_t cmd : {0u, 1u, 3u, 15u, 16u, 17u, 0xFFFFFFFFu}) {
        for (yb_net_interface_params_t params :
             {vlan_params(0, 5), port_vlan_params("swp1", 7), port_params("swp9"), loopback_params("lo1")}) {
            EXPECT_EQ(YB_STATUS_CMD_UNSUPPORTED, yb_net_interface_set(cmd, sys_ifindex, &params));
            EXPECT_EQ(YB_STATUS_CMD_UNSUPPORTED, yb_net_interface_set_full(cmd, sys_ifindex, &params, 1, 1));
        }
    }
    expect_nothing_logged();
    EXPECT_THAT(commands(), IsEmpty());
}

TEST_F(interface_set, parameters_are_needed_for_all_but_destroy_and_delete_all) {
    for (const yb_access_cmd_t cmd : {0u, 2u, 12u, 15u, 99u}) {
        EXPECT_EQ(YB_STATUS_PARAM_NULL, yb_net_interface_set(cmd, sys_ifindex, nullptr));
        EXPECT_EQ(YB_STATUS_PARAM_NULL, yb_net_interface_set_full(cmd, sys_ifindex, nullptr, 1, 1));
    }
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set(YB_ACCESS_CMD_DELETE_ALL, 0, nullptr));
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set_full(YB_ACCESS_CMD_DELETE_ALL, 0, nullptr, 1, 1));
    expect_nothing_logged();
    store(sys_ifindex, port_vlan_params("swp1", 7, "", "swp1"));
    EXPECT_EQ(YB_STATUS_SUCCESS, destroy());
}

TEST_F(interface_set, delete_all_does_not_look_at_the_parameters) {
    auto *const nonsense = reinterpret_cast<yb_net_interface_params_t *>(8);
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set(YB_ACCESS_CMD_DELETE_ALL, 0, nonsense));
}

// ---- DESTROY ----------------------------------------------------------------

TEST_F(interface_set, destroy_uses_the_stored_parameters_and_ignores_the_callers) {
    yb_net_interface_params_t params = port_vlan_params("swp1", 7);
    ASSERT_EQ(YB_STATUS_SUCCESS, create(params));
    make_netdev("decoy");
    calls::reset();
    yb_net_interface_params_t other = port_vlan_params("swp9", 9, "red", "decoy");
    const std::string before = bytes_of(other);
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set(YB_ACCESS_CMD_DESTROY, sys_ifindex, &other));
    EXPECT_THAT(commands(), ElementsAre("vconfig rem swp1.7"));
    EXPECT_EQ(before, bytes_of(other));
    EXPECT_TRUE(netdev_exists("decoy"));
    EXPECT_FALSE(is_stored(sys_ifindex));
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND,
              yb_net_interface_set(YB_ACCESS_CMD_DESTROY, sys_ifindex,
                                   reinterpret_cast<yb_net_interface_params_t *>(8)));
}

TEST_F(interface_set, destroy_removes_a_loopback_inside_its_namespace) {
    yb_net_interface_params_t params = loopback_params("lo1", "red");
    ASSERT_EQ(YB_STATUS_SUCCESS, create(params));
    EXPECT_EQ(YB_STATUS_SUCCESS, destroy());
    EXPECT_FALSE(netdev_exists("lo1", "red"));
    EXPECT_FALSE(is_stored(sys_ifindex));
}

TEST_F(interface_set, destroy_of_an_unknown_interface_is_the_databases_status_without_a_message) {
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, destroy());
    expect_nothing_logged();
    EXPECT_THAT(commands(), IsEmpty());
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_unload(0));
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, destroy());
}

TEST_F(interface_set, destroy_finds_a_port_netdev_in_the_callers_namespace_only) {
    make_netdev("swp9", "red");
    store(sys_ifindex, port_params("swp9", "red"));
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, destroy());
    EXPECT_THAT(logged_lines(), ElementsAre(error_line("Cannot find device \"swp9\"\n")));
    EXPECT_TRUE(is_stored(sys_ifindex));
    EXPECT_TRUE(netdev_exists("swp9", "red"));
}

TEST_F(interface_set, destroy_whose_netdev_step_fails_keeps_the_record) {
    store(sys_ifindex, loopback_params("absent"));
    stderr_capture ips;
    EXPECT_EQ(YB_STATUS_ERROR, destroy());
    EXPECT_TRUE(is_stored(sys_ifindex));
    store(sys_ifindex + 1, [] {
        yb_net_interface_params_t pkey = loopback_params("pkey");
        pkey.type = YB_L2_INTERFACE_TYPE_PKEY;
        return pkey;
    }());
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, yb_net_interface_set(YB_ACCESS_CMD_DESTROY, sys_ifindex + 1, nullptr));
    EXPECT_TRUE(is_stored(sys_ifindex + 1));
}

TEST_F(interface_set, netdev_whose_record_went_in_the_meantime_stays_removed) {
    yb_net_interface_params_t params = loopback_params("lo1");
    ASSERT_EQ(YB_STATUS_SUCCESS, create(params));
    calls::before("system", [](int) { (void)net_lib_db_interface_remove(sys_ifindex); });
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, destroy());
    EXPECT_FALSE(netdev_exists("lo1"));
}

// ---- EDIT -------------------------------------------------------------------

TEST_F(interface_set, edit_changes_a_port_vlan_and_its_record) {
    yb_net_interface_params_t params = port_vlan_params("swp1", 7, "red");
    ASSERT_EQ(YB_STATUS_SUCCESS, create(params));
    yb_net_interface_record_t expected = stored(sys_ifindex);
    expected.params.by_type.port_vlan.vlan_id = 8;
    calls::reset();
    yb_net_interface_params_t edit = port_vlan_params("other", 8, "other", "other");
    const std::string before = bytes_of(edit);
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set(YB_ACCESS_CMD_EDIT, sys_ifindex, &edit));
    EXPECT_THAT(commands(), ElementsAre(look_for("red", "swp1.7"),
                                        "ip netns exec red ip link set dev swp1.7 type vlan id 8"));
    const yb_net_interface_record_t now = stored(sys_ifindex);
    EXPECT_EQ(0, memcmp(&expected, &now, sizeof(now)));
    EXPECT_EQ(before, bytes_of(edit));
}

TEST_F(interface_set, edit_to_the_same_id_runs_nothing) {
    store(sys_ifindex, port_vlan_params("swp1", 7, "red", "swp1.7"));
    yb_net_interface_params_t edit = port_vlan_params("", 7);
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set_full(YB_ACCESS_CMD_EDIT, sys_ifindex, &edit, 5, 6));
    EXPECT_THAT(commands(), IsEmpty());
    EXPECT_EQ(0xFFFF, stored(sys_ifindex).rif) << "an EDIT sets neither";
    EXPECT_EQ(255, stored(sys_ifindex).vrid);
}

TEST_F(interface_set, edit_of_a_vlan_fails_and_leaves_its_record_untouched) {
    store(sys_ifindex, vlan_params(0, 5));
    const yb_net_interface_record_t before = stored(sys_ifindex);
    yb_net_interface_params_t edit = vlan_params(0, 6);
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, yb_net_interface_set(YB_ACCESS_CMD_EDIT, sys_ifindex, &edit));
    edit = port_vlan_params("swp1", 6); // of what is stored as a VLAN
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, yb_net_interface_set(YB_ACCESS_CMD_EDIT, sys_ifindex, &edit));
    const yb_net_interface_record_t after = stored(sys_ifindex);
    EXPECT_EQ(0, memcmp(&before, &after, sizeof(after)));
    EXPECT_EQ(2u, logged_lines().size());
    EXPECT_THAT(commands(), IsEmpty());
}

TEST_F(interface_set, edit_of_ports_and_loopbacks_is_unsupported) {
    yb_net_interface_params_t params = port_params("swp1");
    EXPECT_EQ(YB_STATUS_CMD_UNSUPPORTED, yb_net_interface_set(YB_ACCESS_CMD_EDIT, sys_ifindex, &params));
    params = loopback_params("lo1");
    EXPECT_EQ(YB_STATUS_CMD_UNSUPPORTED, yb_net_interface_set(YB_ACCESS_CMD_EDIT, sys_ifindex, &params));
}

TEST_F(interface_set, edit_whose_command_fails_leaves_the_record) {
    store(sys_ifindex, port_vlan_params("swp1", 7, "", "swp1"));
    shims.replace("ip", "exit 1");
    yb_net_interface_params_t edit = port_vlan_params("swp1", 8);
    EXPECT_EQ(YB_STATUS_ERROR, yb_net_interface_set(YB_ACCESS_CMD_EDIT, sys_ifindex, &edit));
    EXPECT_EQ(7, stored(sys_ifindex).params.by_type.port_vlan.vlan_id);
}
