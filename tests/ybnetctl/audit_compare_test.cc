// SPDX-License-Identifier: Apache-2.0
//
// Records against netdevs, in every combination that a finding tells apart, with
// netdevs that this machine need not be able to make.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/ybnetctl/see/audit_compare.h"
#include "ybnet/yb_net_interface.h"

using namespace ybnetctl;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

recorded_interface vlan(uint32_t sys_ifindex, uint32_t linux_ifindex, const std::string &name, uint16_t id,
                        const std::string &ns = "") {
    return {sys_ifindex, linux_ifindex, name, ns, YB_L2_INTERFACE_TYPE_VLAN, id, ""};
}
recorded_interface loopback(uint32_t sys_ifindex, uint32_t linux_ifindex, const std::string &name,
                            const std::string &ns = "") {
    return {sys_ifindex, linux_ifindex, name, ns, YB_L2_INTERFACE_TYPE_LOOPBACK, {}, ""};
}
netdev vlan_netdev(uint32_t ifindex, const std::string &name, uint16_t id) {
    return {ifindex, name, "vlan", id, true, true};
}
netdev other_netdev(uint32_t ifindex, const std::string &name, const std::string &kind) {
    return {ifindex, name, kind, {}, true, true};
}
namespace_view view(const std::string &name, const std::vector<netdev> &netdevs, ino_t inode) {
    namespace_view made;
    made.name = name;
    made.seen = sight::seen;
    made.identity = {1, inode};
    for (const netdev &each : netdevs)
        made.add(each);
    return made;
}
namespace_view not_seen(const std::string &name, sight how, const std::string &reason) {
    namespace_view made;
    made.name = name;
    made.seen = how;
    made.reason = reason;
    return made;
}

} // namespace

TEST(audit_compare, vlan_with_its_name_ifindex_and_tag_is_ok) {
    const auto result = audit({vlan(110, 7, "vlan10", 10)}, {view("", {vlan_netdev(7, "vlan10", 10)}, 1)});
    EXPECT_EQ(result.records[0].what, finding::ok);
    EXPECT_EQ(result.records[0].explanation, "");
    EXPECT_TRUE(result.agrees());
}

TEST(audit_compare, vlan_whose_netdev_kept_its_tag_after_an_edit_is_of_another_kind) {
    const auto result = audit({vlan(110, 7, "swp1.10", 20)}, {view("", {vlan_netdev(7, "swp1.10", 10)}, 1)});
    EXPECT_EQ(result.records[0].what, finding::kind);
    EXPECT_EQ(result.records[0].explanation,
              "recorded as a VLAN with id 20, but the netdev is a VLAN with id 10");
    EXPECT_FALSE(result.agrees());
}

TEST(audit_compare, port_must_be_of_the_drivers_kind_and_a_partition_key_may_be_anything) {
    const recorded_interface port{1, 2, "swp1", "", YB_L2_INTERFACE_TYPE_PORT, {}, ""};
    const recorded_interface key{2, 3, "ib0", "", YB_L2_INTERFACE_TYPE_PKEY, {}, ""};
    const auto result = audit(
        {port, key}, {view("", {other_netdev(2, "swp1", "dummy"), other_netdev(3, "ib0", "ipoib")}, 1)});
    EXPECT_EQ(result.records[0].what, finding::kind);
    EXPECT_EQ(result.records[1].what, finding::ok);
    EXPECT_TRUE(audit({port}, {view("", {other_netdev(2, "swp1", "yb_netdev")}, 1)}).agrees());
}

TEST(audit_compare, ifindex_under_another_name_is_renamed) {
    const auto result = audit({loopback(1, 7, "loop1")}, {view("", {other_netdev(7, "loop2", "bridge")}, 1)});
    EXPECT_EQ(result.records[0].what, finding::renamed);
    EXPECT_THAT(result.records[0].explanation, HasSubstr("called \"loop2\""));
}

TEST(audit_compare, name_with_another_ifindex_says_whose_the_recorded_one_is) {
    const auto result =
        audit({loopback(1, 7, "loop1")},
              {view("", {other_netdev(8, "loop1", "bridge"), other_netdev(7, "eth0", "")}, 1)});
    EXPECT_EQ(result.records[0].what, finding::other_ifindex);
    EXPECT_EQ(result.records[0].explanation,
              "the netdev of this name has ifindex 8; ifindex 7 is \"eth0\"'s");
}

TEST(audit_compare, name_in_another_namespace_is_moved_and_not_without_a_record_there) {
    const auto result =
        audit({vlan(110, 7, "vlan10", 10, "blue")},
              {view("", {}, 1), view("blue", {}, 2), view("red", {vlan_netdev(9, "vlan10", 10)}, 3)});
    EXPECT_EQ(result.records[0].what, finding::moved);
    EXPECT_EQ(result.records[0].found_in, "red");
    EXPECT_THAT(result.records[0].explanation, HasSubstr("namespace red, with ifindex 9"));
    EXPECT_THAT(result.unrecorded, IsEmpty());
}

TEST(audit_compare, netdev_of_another_record_is_not_taken_for_a_moved_one) {
    const auto result =
        audit({vlan(110, 7, "vlan10", 10, "blue"), vlan(111, 9, "vlan10", 10, "red")},
              {view("", {}, 1), view("blue", {}, 2), view("red", {vlan_netdev(9, "vlan10", 10)}, 3)});
    EXPECT_EQ(result.records[0].what, finding::gone);
    EXPECT_EQ(result.records[1].what, finding::ok);
}

TEST(audit_compare, namespace_that_does_not_exist_is_told_apart_from_one_that_cannot_be_seen) {
    const auto result =
        audit({vlan(1, 7, "vlan1", 1, "blue"), vlan(2, 7, "vlan2", 2, "red")},
              {view("", {vlan_netdev(4, "vlan1", 1)}, 1), not_seen("blue", sight::missing, ""),
               not_seen("red", sight::unseen, "entering it: Operation not permitted")});
    EXPECT_EQ(result.records[0].what, finding::no_namespace);
    EXPECT_THAT(result.records[0].explanation,
                HasSubstr("a netdev of this name is in the default namespace"));
    EXPECT_EQ(result.records[1].what, finding::unseen);
    ASSERT_EQ(result.unseen.size(), 1u);
    EXPECT_EQ(result.unseen[0].name, "red");
    EXPECT_EQ(result.count(finding::gone), 0u);
}

TEST(audit_compare, remedy_fits_the_finding_and_is_one_line_for_a_shell) {
    const auto remedy = [](const recorded_interface &record, const netdev &device) {
        return audit({record}, {view("", {device}, 1), view("blue", {}, 2)}).records[0].remedy;
    };
    const recorded_interface key{2, 3, "ib0", "", YB_L2_INTERFACE_TYPE_PKEY, {}, ""};
    const recorded_interface port_vlan{130, 7, "swp1.10", "", YB_L2_INTERFACE_TYPE_PORT_VLAN, 20, "swp1"};
    EXPECT_EQ(remedy(vlan(110, 7, "vlan10", 10), vlan_netdev(7, "vlan10", 10)), "");
    EXPECT_EQ(remedy(port_vlan, vlan_netdev(7, "swp1.10", 10)), "ybnetctl interface edit 130 --vid 10");
    EXPECT_EQ(remedy(vlan(110, 7, "vlan10", 20), vlan_netdev(7, "vlan10", 10)),
              "ybnetctl interface destroy 110 # the netdev, too; then create it anew");
    EXPECT_EQ(
        remedy(vlan(110, 7, "vlan10", 10), other_netdev(7, "vlan10", "veth")),
        "ybnetctl interface destroy 110 --record-only --force # the netdev is somebody else's and stays");
    EXPECT_EQ(remedy(loopback(1, 7, "loop1"), other_netdev(9, "eth0", "")),
              "ybnetctl interface destroy 1 --record-only");
    EXPECT_EQ(remedy(loopback(1, 7, "loop1", "blue"), other_netdev(9, "loop1", "bridge")),
              "ip link set dev loop1 netns blue");
    EXPECT_EQ(remedy(key, other_netdev(9, "ib0", "ipoib")),
              "ybnetctl interface destroy 2 --record-only --force");
    EXPECT_EQ(remedy(loopback(1, 7, "a\nb"), other_netdev(7, "$(id)", "bridge")),
              "ip link set dev '$(id)' down && ip link set dev '$(id)' name 'a\nb' && ip link set dev 'a\nb' "
              "up"); // shown through printable()
}

TEST(audit_compare, two_records_of_one_netdev_are_duplicates_also_through_two_names_of_one_namespace) {
    const auto result = audit({loopback(1, 7, "loop1"), loopback(2, 7, "loop1", "same")},
                              {view("", {other_netdev(7, "loop1", "bridge")}, 1),
                               view("same", {other_netdev(7, "loop1", "bridge")}, 1)});
    EXPECT_EQ(result.records[0].what, finding::duplicate);
    EXPECT_EQ(result.records[0].explanation, "record 2 has the same netdev");
    EXPECT_EQ(result.records[0].remedy,
              "ybnetctl interface destroy 1 --record-only --force # one of the two");
    EXPECT_EQ(result.records[1].what, finding::duplicate);
}

TEST(audit_compare, system_ifindex_of_two_records_is_a_duplicate) {
    const auto result =
        audit({loopback(1, 7, "loop1"), loopback(1, 8, "loop2")},
              {view("", {other_netdev(7, "loop1", "bridge"), other_netdev(8, "loop2", "bridge")}, 1)});
    EXPECT_EQ(result.records[1].what, finding::duplicate);
    EXPECT_EQ(result.records[1].explanation, "another record has the same system ifindex");
}

TEST(audit_compare,
     netdevs_named_like_the_librarys_without_a_record_come_with_the_command_that_removes_them) {
    const auto result =
        audit({{1, 2, "swp1", "", YB_L2_INTERFACE_TYPE_PORT, {}, ""}},
              {view("",
                    {other_netdev(2, "swp1", "yb_netdev"), other_netdev(3, "swid0_eth", "yb_netdev"),
                     vlan_netdev(4, "swid0_eth.10", 10), vlan_netdev(5, "swp1.30", 30),
                     vlan_netdev(6, "eth0.30", 30), vlan_netdev(7, "vlan4096", 1),
                     vlan_netdev(8, "vlan010", 10), other_netdev(9, "vlan", "bridge"),
                     other_netdev(10, "swp2", "yb_netdev"), other_netdev(11, "lo", "")},
                    1),
               view("blue", {vlan_netdev(4, "vlan10", 10)}, 2)});
    std::vector<std::string> commands;
    for (const auto &each : result.unrecorded)
        commands.push_back(each.command);
    EXPECT_THAT(commands, testing::ElementsAre("ip link del dev swid0_eth.10", "ip link del dev swp1.30",
                                               "ip link del dev swp2", "ip -n blue link del dev vlan10"));
    EXPECT_FALSE(result.agrees());
}

TEST(audit_compare, speaks_for_no_namespace_that_was_not_looked_at) {
    const namespace_view here = view("", {vlan_netdev(7, "vlan10", 10)}, 1);
    const auto result = audit({vlan(110, 7, "vlan10", 10)},
                              {here, not_seen("blue", sight::unseen, "Operation not permitted")});
    EXPECT_EQ(result.records[0].what, finding::ok);
    EXPECT_FALSE(result.agrees());
    // One that is gone by now holds nothing.
    EXPECT_TRUE(audit({vlan(110, 7, "vlan10", 10)}, {here, not_seen("blue", sight::missing, "")}).agrees());
}

TEST(audit_compare, command_is_safe_to_paste_whatever_the_port_is_called) {
    const recorded_interface port_vlan{1, 99, "gone", "", YB_L2_INTERFACE_TYPE_PORT_VLAN, 5, "$(x)'"};
    const auto result = audit({port_vlan}, {view("", {vlan_netdev(4, "$(x)'.7", 7)}, 1)});
    ASSERT_EQ(result.unrecorded.size(), 1u);
    EXPECT_EQ(result.unrecorded[0].command, "ip link del dev '$(x)'\\''.7'");
}
