// SPDX-License-Identifier: Apache-2.0
//
// The changing commands of the built program: loopbacks on the real kernel, records in real databases, and what a
// failure says. VLANs and ports need the lab (tests/lab/ybnetctl_test.sh).
#include "tests/ybnetctl/changes_fixture.h"
#include "tools/ybnetctl/change/link_kinds.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace {

class changes : public changes_test {};

} // namespace

// ---- interfaces -----------------------------------------------------------------

TEST_F(changes, create_makes_a_loopback_in_its_namespace_and_records_it) {
    const tool_result result = run_tool({"interface", "create", "loopback", "140", "--name", "loop1",
                                         "--netns", "red", "--vrf", "green", "--rif", "5", "--vrid", "2"});
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_TRUE(netdev_exists("loop1", "red"));
    const auto record = stored(140);
    EXPECT_EQ(record.linux_ifindex, ifindex_of("loop1", "red"));
    EXPECT_STREQ(record.params.vrf_name, "green");
    EXPECT_EQ(record.params.vrf_valid, 1U);
    EXPECT_EQ(record.rif, 5);
    EXPECT_EQ(record.vrid, 2);
    EXPECT_EQ(result.out, "interface 140: loop1 in namespace red, Linux ifindex " +
                              std::to_string(record.linux_ifindex) + "\n");
    EXPECT_EQ(result.err, "");
}

TEST_F(changes, create_as_json_is_the_record_as_the_list_has_it) {
    const json made =
        json_of({"interface", "create", "loopback", "140", "--name", "loop1", "--netns", "red"});
    EXPECT_EQ(made["status"], "YB_STATUS_SUCCESS");
    json listed = json_of({"interface", "list"})["interfaces"][0];
    listed.erase("slot");
    EXPECT_EQ(made["interface"], listed);
    EXPECT_EQ(made["interface"]["rif"], nullptr);
}

TEST_F(changes, leave_no_registration_behind) {
    ASSERT_EQ(run_tool({"interface", "create", "loopback", "140", "--name", "loop1"}).code, 0);
    ASSERT_EQ(run_tool({"interface", "destroy", "999"}).code, 3);
    ASSERT_EQ(run_tool({"port", "set", "7", "--name", "x"}).code, 0);
    EXPECT_EQ(segment_view(interfaces_format).user_count(), 1U); // this test
    EXPECT_EQ(segment_view(ports_format).user_count(), 1U);
}

TEST_F(changes, of_the_only_user_warn_that_the_records_end_with_it) {
    ASSERT_EQ(net_lib_db_ports_unload(0), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_THAT(
        run_tool({"port", "set", "7", "--name", "x"}).err,
        HasSubstr("no other process uses the ports database, so it ends with this one, and its records (1)"));
    EXPECT_FALSE(segment_exists(ports_format));
    ASSERT_EQ(net_lib_db_ports_load(0), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(run_tool({"port", "set", "7", "--name", "x"}).err, "");
}

TEST_F(changes, create_of_a_recorded_interface_is_refused_before_anything_is_made) {
    ASSERT_EQ(run_tool({"interface", "create", "loopback", "140", "--name", "loop1"}).code, 0);
    const tool_result again = run_tool({"interface", "create", "loopback", "140", "--name", "loop2"});
    EXPECT_EQ(again.code, 1);
    EXPECT_THAT(again.err, StartsWith("ybnetctl: interface 140: is recorded already, as loop1"));
    EXPECT_FALSE(netdev_exists("loop2"));
}

// The library logs nothing for a loopback's command that failed: the tool's own words are the reason.
TEST_F(changes, failure_of_a_command_has_what_the_command_said) {
    make_netdev("loop1");
    const json error = json_of({"interface", "create", "loopback", "140", "--name", "loop1"}, 1)["error"];
    EXPECT_EQ(error["reason"], "RTNETLINK answers: File exists");
    EXPECT_EQ(error["status"], "YB_STATUS_ERROR");
    EXPECT_EQ(error["thing"], "interface 140");
    EXPECT_EQ(error["advice"], "ip link show dev loop1");
}

TEST_F(changes, failure_that_nothing_explains_leads_to_its_rehearsal) {
    json error;
    {
        tool_shims shims;
        shims.replace("ip", "echo odd >&2; exit 3");
        error = json_of({"interface", "create", "loopback", "140", "--name", "loop1"}, 1)["error"];
    }
    make_netdev("loop1");
    // What to try can be pasted, and shows what fails.
    const std::string advice = error["advice"];
    EXPECT_EQ(advice, "ybnetctl --dry-run --json interface create loopback 140 --name loop1");
    const tool_result tried = run_command({"bash", "-c", "ybnetctl() { '" YBNETCTL "' \"$@\"; }; " + advice});
    EXPECT_EQ(tried.code, 1);
    const json rehearsal = json::parse(tried.out);
    EXPECT_EQ(rehearsal["steps"][0]["fails"], "there is a netdev \"loop1\" already");
    EXPECT_EQ(rehearsal["error"]["advice"], "ip link show dev loop1"); // not itself again
}

TEST_F(changes, failed_creation_says_what_it_lacks) {
    const auto advice = [](std::vector<std::string> words) {
        words.insert(words.begin(), {"interface", "create"});
        return json_of(words, 1)["error"]["advice"].get<std::string>();
    };
    EXPECT_EQ(advice({"loopback", "1", "--name", "loop1", "--netns", "nowhere"}), "ip netns add nowhere");
    EXPECT_EQ(advice({"port-vlan", "1", "--port", "swp7", "--vid", "5"}),
              "ybnetctl interface list --type port");
    make_netdev("swid0_eth");
    EXPECT_EQ(advice({"vlan", "1", "--vid", "5", "--parent", "bond7"}), "ip link show");
    make_netdev("taken", "red");
    EXPECT_EQ(advice({"loopback", "1", "--name", "taken", "--netns", "red"}),
              "ip -n red link show dev taken");
    tool_shims shims;
    shims.replace("vconfig", "echo odd >&2; exit 3");
    shims.replace("ip", "echo odd >&2; exit 3");
    EXPECT_EQ(advice({"vlan", "1", "--vid", "5"}),
              ybnetctl::vlans_are_possible() ? "ybnetctl --dry-run --json interface create vlan 1 --vid 5"
                                             : "modprobe 8021q");
}

// A vlanN in this namespace is in the way of every VLAN with this id, whatever its name and namespace.
TEST_F(changes, creation_that_another_vlan_of_the_id_blocks_leads_to_it) {
    make_netdev("swid0_eth");
    make_netdev("vlan10");
    for (const char *const format : {"swid", "vlan"}) {
        const json error = json_of(
            {"interface", "create", "vlan", "111", "--vid", "10", "--netns", "blue", "--name-format", format},
            1)["error"];
        EXPECT_EQ(error["reason"], "vlan10 already exists");
        EXPECT_EQ(error["advice"], "ip link show dev vlan10");
    }
}

TEST_F(changes, failure_that_left_a_netdev_says_so_and_how_to_remove_it) {
    // Taken by another record: the netdev is made, its number is recorded already.
    tool_shims shims;
    shims.replace("ip", "case \"$*\" in *cat*) echo 4242; exit;; esac\n"
                        "PATH=/usr/sbin:/usr/bin:/sbin:/bin exec ip \"$@\"");
    yb_net_interface_params_t params = loopback_params("other", "red");
    ASSERT_EQ(net_lib_db_interface_add(1, 4242, &params), uint32_t{YB_STATUS_SUCCESS});
    const tool_result result =
        run_tool({"interface", "create", "loopback", "140", "--name", "loop1", "--netns", "red"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err,
                HasSubstr("the netdev loop1 in namespace red was made and exists without a record: "
                          "nothing is rolled back (YB_STATUS_ENTRY_ALREADY_EXISTS)"));
    EXPECT_THAT(result.err, HasSubstr("try: ip -n red link del dev loop1; or: ybnetctl audit"));
    EXPECT_TRUE(netdev_exists("loop1", "red"));
}

TEST_F(changes, names_are_checked_before_anything_is_done) {
    const tool_result result =
        run_tool({"interface", "create", "loopback", "140", "--name", "abcdefghijklmnop"});
    EXPECT_EQ(result.code, 2);
    EXPECT_THAT(result.err, HasSubstr("has 16 characters, at most 15 are possible"));
    EXPECT_THAT(result.err, HasSubstr("try: ybnetctl interface create loopback --help"));
    EXPECT_FALSE(is_stored(140));
}

TEST_F(changes, destroy_removes_netdev_and_record) {
    ASSERT_EQ(run_tool({"interface", "create", "loopback", "140", "--name", "loop1", "--netns", "red"}).code,
              0);
    const tool_result result = run_tool({"interface", "destroy", "140"});
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(result.out + result.err, ""); // as ip
    EXPECT_FALSE(netdev_exists("loop1", "red"));
    EXPECT_FALSE(is_stored(140));
    EXPECT_EQ(run_tool({"interface", "destroy", "140"}).code, 3);
}

TEST_F(changes, destroy_of_a_netdev_that_is_gone_says_how_to_remove_the_record) {
    ASSERT_EQ(run_tool({"interface", "create", "loopback", "140", "--name", "loop1"}).code, 0);
    remove_netdev("loop1");
    const tool_result result = run_tool({"interface", "destroy", "140"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, HasSubstr("Cannot find device \"loop1\""));
    EXPECT_THAT(result.err, HasSubstr("try: ybnetctl interface destroy 140 --record-only"));
    EXPECT_TRUE(is_stored(140));
    EXPECT_EQ(run_tool({"interface", "destroy", "140", "--record-only"}).code, 0);
    EXPECT_FALSE(is_stored(140));
}

TEST_F(changes, destroy_all_says_how_many_and_leaves_loopbacks) {
    tool_shims shims;
    stand_in_for_vlans(shims);
    make_netdev("swid0_eth");
    ASSERT_EQ(run_tool({"interface", "create", "vlan", "1", "--vid", "5", "--netns", "red"}).code, 0);
    ASSERT_EQ(run_tool({"interface", "create", "port-vlan", "2", "--vid", "7", "--port", "swid0_eth"}).code,
              0);
    ASSERT_EQ(run_tool({"interface", "create", "loopback", "3", "--name", "loop1"}).code, 0);
    const tool_result result = run_tool({"interface", "destroy-all"});
    EXPECT_EQ(result.out, "2 interfaces removed; loopbacks stay: 1\n") << result.err;
    EXPECT_TRUE(is_stored(3));
    EXPECT_FALSE(is_stored(1));
}

TEST_F(changes, edit_is_for_port_vlans_only) {
    ASSERT_EQ(run_tool({"interface", "create", "loopback", "140", "--name", "loop1"}).code, 0);
    const tool_result result = run_tool({"interface", "edit", "140", "--vid", "5"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, HasSubstr("is of type LOOPBACK; only the VLAN id of a PORT_VLAN can be edited"));
}

TEST_F(changes, set_records_rif_and_vrid_and_clears_them) {
    ASSERT_EQ(run_tool({"interface", "create", "loopback", "140", "--name", "loop1"}).code, 0);
    EXPECT_EQ(run_tool({"interface", "set", "140", "--rif", "0x10", "--vrid", "3"}).code, 0);
    EXPECT_EQ(stored(140).rif, 16);
    EXPECT_EQ(stored(140).vrid, 3);
    const tool_result second = run_tool({"interface", "set", "140", "--rif", "9", "--vrid", "4"});
    EXPECT_EQ(second.code, 1);
    EXPECT_THAT(second.err, HasSubstr("set before: rif 9"));
    EXPECT_THAT(second.err, HasSubstr("try: ybnetctl interface set 140 --vrid none"));
    EXPECT_EQ(run_tool({"interface", "set", "140", "--rif", "none", "--vrid", "none"}).code, 0);
    EXPECT_EQ(stored(140).rif, YB_NET_RIF_NONE);
    EXPECT_EQ(stored(140).vrid, YB_NET_VRID_NONE);
    EXPECT_EQ(run_tool({"interface", "set", "140", "--vrid", "255"}).code, 2); // stands for none
    EXPECT_EQ(run_tool({"interface", "set", "140"}).code, 2);
    EXPECT_EQ(run_tool({"interface", "set", "141", "--rif", "1"}).code, 3);
}

TEST_F(changes, set_admin_goes_to_the_namespace_of_the_record) {
    ASSERT_EQ(run_tool({"interface", "create", "loopback", "140", "--name", "loop1", "--netns", "red"}).code,
              0);
    EXPECT_EQ(run_tool({"interface", "set", "140", "--admin", "up"}).code, 0);
    EXPECT_THAT(run_ip({"-n", "red", "-br", "link", "show", "loop1"}).output, HasSubstr(",UP"));
    EXPECT_EQ(run_tool({"interface", "set", "140", "--admin", "down"}).code, 0);
    EXPECT_THAT(run_ip({"-n", "red", "-br", "link", "show", "loop1"}).output, testing::Not(HasSubstr("UP")));
}

TEST_F(changes, set_admin_refuses_a_netdev_that_is_another_one_by_now) {
    ASSERT_EQ(run_tool({"interface", "create", "loopback", "140", "--name", "loop1"}).code, 0);
    remove_netdev("loop1");
    EXPECT_THAT(run_tool({"interface", "set", "140", "--admin", "up"}).err,
                HasSubstr("its netdev loop1 does not exist"));
    make_netdev("loop1");
    EXPECT_THAT(run_tool({"interface", "set", "140", "--admin", "up"}).err,
                HasSubstr("another netdev would be changed"));
}

TEST_F(changes, set_oper_without_the_drivers_file_is_the_librarys_failure) {
    ASSERT_EQ(run_tool({"interface", "create", "loopback", "140", "--name", "loop1"}).code, 0);
    const tool_result result = run_tool({"interface", "set", "140", "--oper", "up"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, HasSubstr("failed to open file /proc/qrn_yb/yb_core, err [2]: No such file or "
                                      "directory"));
}

TEST_F(changes, missing_driver_device_is_a_notice_and_no_failure) {
    const tool_result result =
        run_tool({"interface", "create", "loopback", "140", "--name", "loop1"}, {"YBD_DEVICE=none"});
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.err, HasSubstr("ybd_get_dev_list error No such device."));
    EXPECT_THAT(result.err, HasSubstr("going on without"));
    EXPECT_TRUE(is_stored(140));
}

TEST_F(changes, copy_of_a_segment_is_not_changed) {
    EXPECT_EQ(run_tool({"--file", "/dev/shm/net_lib_ifc", "interface", "destroy", "1"}).code, 2);
}

// ---- addresses ------------------------------------------------------------------

TEST_F(changes, address_is_the_one_that_was_typed) {
    ASSERT_EQ(run_tool({"interface", "create", "loopback", "140", "--name", "loop1", "--netns", "red"}).code,
              0);
    const auto shown = [] {
        return run_ip({"-n", "red", "-o", "-4", "addr", "show", "dev", "loop1"}).output;
    };
    const tool_result added = run_tool({"address", "add", "140", "10.0.0.5/24", "--label", "loop1:1"});
    EXPECT_EQ(added.code, 0) << added.err;
    EXPECT_EQ(added.out, "interface 140: 10.0.0.5/32 broadcast 10.0.0.255 label loop1:1\n");
    EXPECT_THAT(shown(), HasSubstr("inet 10.0.0.5/32 brd 10.0.0.255 scope global loop1:1"));
    const tool_result again = run_tool({"address", "add", "140", "10.0.0.5/24"});
    EXPECT_THAT(again.err, HasSubstr("RTNETLINK answers [17]: File exists"));
    EXPECT_THAT(again.err, HasSubstr("\n  try: ip -n red address show dev loop1\n")); // where it is
    EXPECT_EQ(run_tool({"address", "del", "140", "10.0.0.5/24"}).code, 0);
    EXPECT_EQ(shown(), "");
    EXPECT_EQ(run_tool({"address", "add", "140", "10.0.0.5/24", "--connected"}).code, 0);
    EXPECT_THAT(shown(), HasSubstr("inet 10.0.0.5/24 brd 255.0.0.5 scope global loop1\\"));
}

TEST_F(changes, address_without_a_prefix_length_is_a_usage_error_that_shows_both_forms) {
    const tool_result result = run_tool({"address", "add", "140", "10.0.0.5"});
    EXPECT_EQ(result.code, 2);
    EXPECT_EQ(result.err, "ybnetctl: 10.0.0.5: has no prefix length\n"
                          "  try: 10.0.0.5/24, or 10.0.0.5/32 for the address alone\n");
    EXPECT_EQ(run_tool({"address", "del", "140", "10.0.0.5"}).code, 2);
}

TEST_F(changes, address_that_is_none_is_a_usage_error) {
    EXPECT_EQ(run_tool({"address", "add", "140", "10.0.0.500/24"}).code, 2);
    EXPECT_EQ(run_tool({"address", "add", "140", "10.0.0.5/24", "--label", "0123456789abcdef"}).code, 2);
    EXPECT_EQ(run_tool({"address", "add", "140", "10.0.0.5/24"}).code, 3);
}

// ---- ports ----------------------------------------------------------------------

TEST_F(changes, port_set_records_every_field_that_is_given) {
    ASSERT_EQ(
        run_tool({"port",       "set",        "0x10001",  "--name",   "swp1",     "--log-port", "0x10100",
                  "--protocol", "1",          "--attr-a", "1",        "--attr-b", "0",          "--attr-c",
                  "3",          "--attr-d",   "4,5,6",    "--attr-e", "7",        "--attr-f",   "8",
                  "--attr-g",   "9,10,11,12", "--attr-h", "13",       "--attr-i", "14"})
            .code,
        0);
    const auto info = stored_port(0x10001);
    EXPECT_STREQ(info.name, "swp1");
    EXPECT_EQ(info.log_port, 0x10100U);
    EXPECT_EQ(info.protocol, 1U);
    EXPECT_EQ(info.attr_a, 1);
    EXPECT_EQ(info.attr_b, 0);
    EXPECT_EQ(info.attr_c, 3U);
    EXPECT_EQ(info.attr_d[2], 6);
    EXPECT_EQ(info.attr_e, 7);
    EXPECT_EQ(info.attr_f, 8);
    EXPECT_EQ(info.attr_g[3], 12U);
    EXPECT_EQ(info.attr_h, 13);
    EXPECT_EQ(info.attr_i, 14U);
    ASSERT_EQ(run_tool({"port", "set", "0x10001", "--attr-a", "99"}).code, 0);
    EXPECT_STREQ(stored_port(0x10001).name, "swp1"); // what is not given stays
    EXPECT_EQ(stored_port(0x10001).attr_b, 0);
    EXPECT_EQ(stored_port(0x10001).attr_a, 99);
}

TEST_F(changes, ports_need_no_driver_device_and_no_interfaces_database) {
    const tool_result result = run_tool({"port", "set", "7", "--name", "x"}, {"YBD_DEVICE=none"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err, "");
}

TEST_F(changes, mlag_id_of_a_lag_stays_when_it_is_not_given) {
    ASSERT_EQ(run_tool({"port", "set", "0x20001", "--log-port", "0x10000500", "--mlag", "7"}).code, 0);
    ASSERT_EQ(run_tool({"port", "set", "0x20001", "--log-port", "0x10000500", "--attr-a", "1"}).code, 0);
    EXPECT_EQ(stored_port(0x20001).mlag_id, 7);
    ASSERT_EQ(run_tool({"port", "set", "0x20001", "--log-port", "0x10000500", "--mlag", "none"}).code, 0);
    EXPECT_EQ(stored_port(0x20001).mlag_id, 0);
    EXPECT_EQ(run_tool({"port", "set", "0x20001", "--mlag", "7"}).code, 2);
    EXPECT_EQ(run_tool({"port", "set", "0x20001", "--log-port", "0x10000500", "--mlag", "1001"}).code, 2);
}

TEST_F(changes, port_that_is_not_recorded_is_neither_removed_nor_bound) {
    EXPECT_EQ(run_tool({"port", "del", "77"}).code, 3);
    EXPECT_EQ(run_tool({"lag", "bind", "77", "--lag", "0x10000500"}).code, 3);
    EXPECT_EQ(run_tool({"lag", "unbind", "77"}).code, 3);
    EXPECT_EQ(run_tool({"port", "set", "0", "--name", "x"}).code, 2);
    const tool_result nothing = run_tool({"port", "set", "77", "--attr-c", "0"});
    EXPECT_EQ(nothing.code, 2);
    EXPECT_THAT(nothing.err, HasSubstr("port 77: nothing to set: 0 leaves a value as it is"));
    EXPECT_EQ(run_tool({"port", "set", "77"}).code, 2);
    EXPECT_EQ(run_tool({"port", "set", "77", "--name", "12345678901234567"}).code, 2);
}

TEST_F(changes, port_whose_record_is_all_zeros_can_be_removed) {
    const yb_net_port_info_t nothing = {};
    ASSERT_EQ(net_lib_db_port_set(77, &nothing), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(run_tool({"port", "del", "77"}).code, 0);
    EXPECT_EQ(run_tool({"port", "del", "77"}).code, 3);
}

TEST_F(changes, lag_bind_and_unbind_write_the_ports_binding) {
    ASSERT_EQ(run_tool({"port", "set", "0x10001", "--name", "swp1"}).code, 0);
    const tool_result early = run_tool({"lag", "bind", "0x10001", "--lag", "0x10000500"});
    EXPECT_EQ(early.code, 0);
    EXPECT_THAT(early.err, HasSubstr("LAG 0x10000500 is not recorded itself"));
    EXPECT_EQ(stored_port(0x10001).lag_log_port, 0x10000500U);
    const json unbound = json_of({"lag", "unbind", "0x10001"});
    EXPECT_EQ(unbound["port"]["lag_log_port"], 0);
    EXPECT_EQ(run_tool({"lag", "bind", "0x10001", "--lag", "0x10100"}).code, 2);
    EXPECT_EQ(run_tool({"port", "del", "0x10001"}).code, 0);
}
