// SPDX-License-Identifier: Apache-2.0
//
// ybnetctl audit on real netdevs: each is brought out of step with its record by
// ip(8), as an administrator or a failure does it.
#include "tests/ybnetctl/audit_fixture.h"

using testing::HasSubstr;

TEST_F(audit_tool, records_in_step_with_their_netdevs_end_with_0_and_a_sentence) {
    make_loopback(1, "loop1", "");
    make_loopback(2, "loop2", "blue");
    ip({"-n", "blue", "link", "set", "loop2", "up"});
    const json document = audit(0);
    EXPECT_EQ(document.at("summary").at("agrees"), true);
    EXPECT_EQ(document.at("summary").at("ok"), 2);
    EXPECT_EQ(document.at("summary").at("certain"), true);
    EXPECT_EQ(document.at("settled"), true);
    const json second = record_of(document, 2);
    EXPECT_EQ(second.at("finding"), "ok");
    EXPECT_EQ(second.at("netdev").at("kind"), "bridge");
    EXPECT_EQ(second.at("netdev").at("up"), true);
    EXPECT_EQ(second.at("netdev").at("namespace"), "blue");
    const tool_result text = run_tool({"audit"});
    EXPECT_EQ(text.code, 0);
    EXPECT_THAT(text.out,
                testing::EndsWith(
                    "2 records agree with the kernel, and in the namespaces looked at no netdev named as the "
                    "library names VLANs and ports lacks its record. A loopback "
                    "without a record is not found: it is a bridge like any other.\n"));
}

TEST_F(audit_tool, state_of_the_netdev_is_shown) {
    make_netdev("pk0"); // its peer stays down, so it has no carrier
    yb_net_interface_params_t params = port_params("pk0");
    params.type = YB_L2_INTERFACE_TYPE_PKEY;
    add(1, ifindex_of("pk0"), params);
    EXPECT_THAT(run_tool({"audit"}).out, testing::ContainsRegex("pk0 +- +PKEY +down +ok"));
    ip({"link", "set", "pk0", "up"});
    EXPECT_THAT(run_tool({"audit"}).out, testing::ContainsRegex("pk0 +- +PKEY +up, no carrier +ok"));
}

TEST_F(audit_tool, removed_netdev_is_gone) {
    make_loopback(1, "loop1", "blue");
    ip({"-n", "blue", "link", "del", "loop1"});
    EXPECT_EQ(finding_of(1), "gone");
}

TEST_F(audit_tool, renamed_netdev_is_found_by_its_ifindex) {
    make_loopback(1, "loop1", "blue");
    ip({"-n", "blue", "link", "set", "loop1", "name", "other"});
    const json record = record_of(audit(1), 1);
    EXPECT_EQ(record.at("finding"), "renamed");
    EXPECT_EQ(record.at("netdev").at("name"), "other");
}

TEST_F(audit_tool, netdev_made_anew_has_another_ifindex) {
    make_loopback(1, "loop1", "blue");
    ip({"-n", "blue", "link", "del", "loop1"});
    ip({"-n", "blue", "link", "add", "name", "loop1", "index", "4711", "type", "bridge"});
    const json record = record_of(audit(1), 1);
    EXPECT_EQ(record.at("finding"), "other_ifindex");
    EXPECT_EQ(record.at("netdev").at("linux_ifindex"), 4711);
}

TEST_F(audit_tool, netdev_moved_to_another_namespace_is_found_there) {
    make_netdev("pk0", "blue");
    yb_net_interface_params_t params = port_params("pk0", "blue");
    params.type = YB_L2_INTERFACE_TYPE_PKEY;
    add(1, ifindex_of("pk0", "blue"), params);
    EXPECT_EQ(record_of(audit(0), 1).at("finding"), "ok");
    ip({"-n", "blue", "link", "set", "pk0", "netns", "red"});
    const json record = record_of(audit(1), 1);
    EXPECT_EQ(record.at("finding"), "moved");
    EXPECT_EQ(record.at("netdev").at("namespace"), "red");
}

TEST_F(audit_tool, record_of_a_deleted_namespace_says_so) {
    make_loopback(1, "loop1", "blue");
    ip({"netns", "del", "blue"});
    EXPECT_EQ(finding_of(1), "no_namespace");
}

TEST_F(audit_tool, hostile_namespace_name_leads_nowhere) {
    add(1, 7, loopback_params("loop1", "../../proc/1/ns/net"));
    EXPECT_EQ(finding_of(1), "no_namespace");
}

TEST_F(audit_tool, vlan_record_on_a_netdev_that_is_no_vlan_is_of_another_kind) {
    make_netdev("vlan10");
    yb_net_interface_params_t params = vlan_params(0, 10, "", YB_NET_NAME_FORMAT_VLAN);
    fill_field(params.name, "vlan10");
    add(110, ifindex_of("vlan10"), params);
    const json record = record_of(audit(1), 110);
    EXPECT_EQ(record.at("finding"), "kind");
    EXPECT_EQ(record.at("explanation"), "recorded as a VLAN with id 10, but the netdev is of kind veth");
}

TEST_F(audit_tool, command_given_for_a_netdev_without_a_record_removes_it) {
    make_netdev("swid0_eth.20", "blue");
    const json document = audit(1);
    ASSERT_EQ(document.at("unrecorded").size(), 1u);
    const json found = document.at("unrecorded")[0];
    EXPECT_EQ(found.at("name"), "swid0_eth.20");
    EXPECT_EQ(found.at("namespace"), "blue");
    EXPECT_EQ(found.at("command"), "ip -n blue link del dev swid0_eth.20");
    EXPECT_THAT(
        run_tool({"audit"}).out,
        HasSubstr(
            "0 records: 0 in order, 0 findings; 1 netdev without a record in the namespaces looked at."));
    EXPECT_EQ(output_of(found.at("command")), "");
    EXPECT_EQ(audit(0).at("unrecorded").size(), 0u);
}

TEST_F(audit_tool, remedy_of_a_finding_puts_it_right) {
    make_loopback(1, "loop1", "blue");
    make_loopback(2, "loop2", "blue");
    make_loopback(3, "loop3", "red");
    make_netdev("pk0", "blue");
    yb_net_interface_params_t params = port_params("pk0", "blue");
    params.type = YB_L2_INTERFACE_TYPE_PKEY;
    add(4, ifindex_of("pk0", "blue"), params);
    make_loopback(5, "loop5", "blue");
    ip({"-n", "blue", "link", "del", "loop1"});
    ip({"-n", "blue", "link", "set", "loop2", "name", "it's"});
    ip({"netns", "del", "red"});
    ip({"-n", "blue", "link", "set", "pk0", "netns", "1"});
    ip({"-n", "blue", "link", "del", "loop5"});
    ip({"-n", "blue", "link", "add", "name", "loop5", "index", "4711", "type", "bridge"});
    const json document = audit(1);
    const auto remedy_of = [&](uint32_t sys_ifindex) {
        return record_of(document, sys_ifindex).at("remedy").get<std::string>();
    };
    EXPECT_EQ(remedy_of(1), "ybnetctl interface destroy 1 --record-only");
    EXPECT_EQ(remedy_of(2), "ip -n blue link set dev 'it'\\''s' name loop2");
    EXPECT_EQ(remedy_of(3), "ybnetctl interface destroy 3 --record-only");
    EXPECT_THAT(remedy_of(5), testing::StartsWith("ybnetctl interface destroy 5 #"));
    EXPECT_THAT(run_tool({"audit"}).out,
                testing::ContainsRegex("SYSIF +NAME +PUT RIGHT BY\n +1 +loop1 +ybnetctl interface destroy 1 "
                                       "--record-only\n"));
    for (const uint32_t sys_ifindex : {1U, 2U, 3U, 5U})
        EXPECT_EQ(output_of("ybnetctl() { '" YBNETCTL "' \"$@\"; }; " + remedy_of(sys_ifindex)), "")
            << sys_ifindex;
    EXPECT_EQ(remedy_of(4), "ip link set dev pk0 netns blue");
    EXPECT_EQ(output_of(remedy_of(4)), "");
    const json after = audit(0);
    EXPECT_EQ(after.at("records").size(), 2u); // 2 and 4
    EXPECT_EQ(after.at("records")[0].at("remedy"), nullptr);
}

// Renamed while down, as kernels before 6.2 want it, and up afterwards.
TEST_F(audit_tool, remedy_of_a_renamed_netdev_that_is_up_leaves_it_up) {
    make_loopback(1, "loop1", "blue");
    ip({"-n", "blue", "link", "set", "loop1", "name", "other"});
    ip({"-n", "blue", "link", "set", "other", "up"});
    const std::string remedy = record_of(audit(1), 1).at("remedy");
    EXPECT_EQ(remedy, "ip -n blue link set dev other down && ip -n blue link set dev other name loop1 && "
                      "ip -n blue link set dev loop1 up");
    EXPECT_EQ(output_of(remedy), "");
    EXPECT_EQ(record_of(audit(0), 1).at("netdev").at("up"), true);
}

// Which need not be that of process 1.
TEST_F(audit_tool, remedy_of_a_moved_netdev_takes_it_to_where_the_shell_is) {
    make_netdev("pk0", "blue");
    yb_net_interface_params_t params = port_params("pk0");
    params.type = YB_L2_INTERFACE_TYPE_PKEY;
    add(1, ifindex_of("pk0", "blue"), params);
    // In a network namespace of the shell's own, without a name.
    const tool_result result = run_words({"unshare", "-n", "sh", "-c",
                                          "'" YBNETCTL "' --json audit >/run/audit; "
                                          "eval \"$(jq -r '.records[0].remedy' /run/audit)\" && "
                                          "'" YBNETCTL "' audit"});
    EXPECT_EQ(record_of(json::parse(contents_of("/run/audit")), 1).at("remedy"),
              "ip -n blue link set dev pk0 netns $$");
    EXPECT_EQ(result.code, 0) << result.out << result.err;
}

TEST_F(audit_tool, verdict_beside_a_lock_holder_is_not_certain) {
    make_loopback(1, "loop1", "");
    net_lib_db_interface_lock_acquire();
    const tool_result text = run_tool({"audit"});
    const json document = json::parse(run_tool({"--json", "audit"}).out);
    net_lib_db_interface_lock_release();
    EXPECT_THAT(text.out,
                testing::EndsWith("\nNot certain: the lock was held while this was read, so a finding "
                                  "may be a change that was half done, and one may be missing. Run it "
                                  "again; ybnetctl status tells who holds it.\n"));
    EXPECT_EQ(document.at("summary").at("certain"), false);
    EXPECT_EQ(document.at("summary").at("agrees"), true);
}

TEST_F(audit_tool, findings_only_leaves_out_what_is_in_order) {
    make_loopback(1, "loop1", "");
    make_loopback(2, "loop2", "");
    ip({"link", "del", "loop2"});
    const tool_result result = run_tool({"audit", "--findings-only"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.out, testing::Not(HasSubstr("loop1")));
    EXPECT_THAT(result.out, HasSubstr("2 records: 1 in order, 1 finding;"));
}

TEST_F(audit_tool, namespace_that_may_not_be_entered_is_said_and_not_counted_as_gone) {
    make_loopback(1, "loop1", "blue");
    const tool_result result =
        run_program({"setpriv", "--bounding-set=-sys_admin", YBNETCTL, "--json", "audit"}, {});
    EXPECT_EQ(result.code, 1) << result.err;
    const json document = json::parse(result.out);
    EXPECT_EQ(record_of(document, 1).at("finding"), "unseen");
    EXPECT_EQ(document.at("summary").at("findings"), 0);
    ASSERT_EQ(document.at("namespaces_unseen").size(), 2u);
    EXPECT_THAT(document.at("namespaces_unseen")[0].at("reason"), HasSubstr("Operation not permitted"));
}

// What is in them is not known, be every record elsewhere.
TEST_F(audit_tool, does_not_speak_for_namespaces_that_it_may_not_enter) {
    make_loopback(1, "loop1", "");
    const std::vector<std::string> unprivileged = {"setpriv", "--bounding-set=-sys_admin", YBNETCTL};
    std::vector<std::string> words = unprivileged;
    words.insert(words.end(), {"--json", "audit"});
    const tool_result result = run_program(words, {});
    EXPECT_EQ(result.code, 1) << result.err;
    const json summary = json::parse(result.out).at("summary");
    EXPECT_EQ(summary.at("ok"), 1);
    EXPECT_EQ(summary.at("agrees"), false);
    EXPECT_EQ(summary.at("certain"), false);
    words = unprivileged;
    words.emplace_back("audit");
    const std::string text = run_program(words, {}).out;
    EXPECT_THAT(text, HasSubstr("0 netdevs without a record in the namespaces looked at."));
    EXPECT_THAT(text, HasSubstr("Not certain: 2 namespaces were not looked at."));
    EXPECT_EQ(audit(0).at("summary").at("certain"), true);
}

TEST_F(audit_tool, without_a_database_it_ends_with_3) {
    ASSERT_EQ(net_lib_db_interfaces_unload(0), uint32_t{YB_STATUS_SUCCESS});
    const tool_result result = run_tool({"audit"});
    EXPECT_EQ(result.code, 3);
    EXPECT_THAT(result.out, testing::StartsWith("No database: "));
    const json document = audit(3);
    EXPECT_EQ(document.at("database"), false);
    EXPECT_EQ(document.at("summary").at("certain"), true);
    const tool_result copies = run_tool({"--file", "/nonexistent", "audit"});
    EXPECT_EQ(copies.code, 3);
    EXPECT_THAT(copies.err, HasSubstr("/nonexistent"));
}

// What a stack that ended left behind: the very moment when somebody looks for it.
TEST_F(audit_tool, netdevs_that_outlived_the_database_are_found) {
    ASSERT_EQ(net_lib_db_interfaces_unload(0), uint32_t{YB_STATUS_SUCCESS});
    make_netdev("swid0_eth.20", "blue");
    const tool_result result = run_tool({"audit"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.out, HasSubstr("ip -n blue link del dev swid0_eth.20"));
    EXPECT_THAT(result.out,
                HasSubstr("No database: the interfaces are not loaded, or their file was deleted; 1 "
                          "netdev that is named"));
    const json document = audit(1);
    EXPECT_EQ(document.at("database"), false);
    EXPECT_EQ(document.at("unrecorded").at(0).at("name"), "swid0_eth.20");
}

TEST_F(audit_tool, thousand_records_whose_netdevs_are_gone_are_all_found) {
    for (uint32_t i = 0; i < 1000; i++)
        add(1000 + i, 100000 + i, loopback_params("loop" + std::to_string(i), i % 2 == 0 ? "blue" : "red"));
    const json document = audit(1);
    EXPECT_EQ(document.at("summary").at("findings"), 1000);
    EXPECT_EQ(document.at("records").size(), 1000u);
}
