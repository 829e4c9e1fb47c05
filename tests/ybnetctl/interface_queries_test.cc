// SPDX-License-Identifier: Apache-2.0
//
// `ybnetctl interface list|show|find` on a database that a process of the stack
// made, and how tables look: aligned, coloured on a terminal only.
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/segment_file.h"
#include "tests/ybnetctl/database_user.h"
#include "tests/ybnetctl/tool.h"
#include "ybnet/net_lib_db.h"
#include "ybnet/net_lib_db_layout.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class interface_queries : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        user_ = new database_user(record_all);
    }
    static void TearDownTestSuite() {
        EXPECT_EQ(0, user_->end());
        delete user_;
    }
    static tool_result interface(std::vector<std::string> words) {
        words.insert(words.begin(), "interface");
        return run_tool(words);
    }
    static std::string found(std::vector<std::string> words) {
        words.emplace_back("--json");
        const tool_result result = interface(words);
        EXPECT_EQ(0, result.code) << result.out;
        return jq(result.out, "[.interfaces[].sys_ifindex | tostring] | join(\" \")");
    }
    // A copy of the segment, changed by hand.
    static std::string changed_copy(const std::function<void(net_lib_db_interfaces_segment_t &)> &change) {
        std::vector<uint8_t> bytes = segment_bytes(interfaces_format);
        change(*reinterpret_cast<net_lib_db_interfaces_segment_t *>(bytes.data()));
        const char *const path = "/run/changed";
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        return path;
    }

    static database_user *user_;
};
database_user *interface_queries::user_;

TEST_F(interface_queries, list_every_record_in_aligned_columns) {
    EXPECT_THAT(lines_of(interface({"list"}).out),
                ElementsAre("SYSIF  TYPE       NETDEV   NAMESPACE  LINUX  VRF  VLAN  RIF  VRID",
                            "  101  PORT       swp1     -              4  -       -    -     -",
                            "  110  VLAN       vlan10   blue           5  red    10    5     2",
                            "  130  PORT_VLAN  swp1.30  -              7  -      30    -     -",
                            "  140  LOOPBACK   loop1    red            2  -       -    -     -"));
}

TEST_F(interface_queries, list_what_the_filters_leave) {
    EXPECT_EQ("110", found({"list", "--netns", "blue"}));
    EXPECT_EQ("101 130", found({"list", "--netns", ""}));
    EXPECT_EQ("130", found({"list", "--type", "port-vlan"}));
    EXPECT_EQ("110", found({"list", "--vlan", "10"}));
    EXPECT_EQ("", found({"list", "--vlan", "11"}));
    const tool_result usage = interface({"list", "--type", "tunnel"});
    EXPECT_EQ(2, usage.code);
    EXPECT_THAT(usage.err, HasSubstr("loopback"));
}

TEST_F(interface_queries, print_documents_with_the_keys_that_are_documented) {
    const std::string all = interface({"list", "--json"}).out;
    EXPECT_EQ("interfaces settled lock_seen_free", jq(all, "keys_unsorted | join(\" \")"));
    EXPECT_EQ("slot sys_ifindex type type_number name namespace linux_ifindex vrf vlan_id rif vrid",
              jq(all, ".interfaces[0] | keys_unsorted | join(\" \")"));
    EXPECT_EQ("{\"slot\":1,\"sys_ifindex\":110,\"type\":\"VLAN\",\"type_number\":0,\"name\":\"vlan10\","
              "\"namespace\":"
              "\"blue\",\"linux_ifindex\":5,\"vrf\":\"red\",\"vlan_id\":10,\"rif\":5,\"vrid\":2}",
              jq(all, ".interfaces[1] | tojson"));
    EXPECT_EQ("null", jq(all, ".interfaces[0].vrf"));
}

TEST_F(interface_queries, show_every_field_of_one) {
    const tool_result result = interface({"show", "110"});
    EXPECT_EQ(0, result.code);
    EXPECT_THAT(result.out, HasSubstr("name_format    0         0 swidN_eth.ID, 1 vlanID"));
    EXPECT_THAT(result.out, Not(HasSubstr("note:")));
    EXPECT_EQ("1", jq(interface({"show", "101", "--json"}).out, ".interfaces[0].fields.value1"));
    EXPECT_EQ("swp1", jq(interface({"show", "130", "--json"}).out, ".interfaces[0].fields.port_name"));
    const tool_result none = interface({"show", "111"});
    EXPECT_EQ(3, none.code);
    EXPECT_EQ("ybnetctl: interface 111: no record has this system ifindex\n  try: ybnetctl interface list\n",
              none.err);
    EXPECT_EQ("3", jq(interface({"show", "111", "--json"}).out, ".error.exit_code"));
}

TEST_F(interface_queries, find_by_linux_ifindex_as_the_library_does) {
    EXPECT_EQ("101", found({"find", "--linux", "4"}));
    EXPECT_EQ("110", found({"find", "--linux", "5", "--netns", "blue"}));
    EXPECT_EQ("110", found({"find", "--linux", "5", "--netns", "blue", "--vrf", "red"}));
    EXPECT_EQ(3, interface({"find", "--linux", "5", "--netns", "blue", "--vrf", "green"}).code);
    const tool_result elsewhere = interface({"find", "--linux", "5"});
    EXPECT_EQ(3, elsewhere.code);
    EXPECT_THAT(elsewhere.err, HasSubstr("Linux ifindex 5: no record has it in the default namespace"));
    EXPECT_THAT(elsewhere.err, HasSubstr("--netns blue"));
}

TEST_F(interface_queries, find_by_name_in_every_namespace) {
    EXPECT_EQ("110", found({"find", "--name", "vlan10"}));
    EXPECT_EQ(3, interface({"find", "--name", "vlan10", "--netns", "red"}).code);
    EXPECT_EQ(3, interface({"find", "--name", "vlan1"}).code);
    EXPECT_EQ(2, interface({"find"}).code);
    EXPECT_EQ(2, interface({"find", "--name", "vlan10", "--linux", "5"}).code);
}

TEST_F(interface_queries, find_by_system_ifindex_and_by_place_alone) {
    EXPECT_EQ("110", found({"find", "110"}));
    EXPECT_EQ("110", found({"find", "0x6e", "--netns", "blue"}));
    EXPECT_EQ(3, interface({"find", "110", "--netns", "red"}).code);
    EXPECT_EQ("101 130", found({"find", "--netns", ""}));
    EXPECT_EQ("110", found({"find", "--vrf", "red"}));
    const tool_result none = interface({"find", "111"});
    EXPECT_EQ(3, none.code);
    EXPECT_THAT(none.err, HasSubstr("interface 111: no record has it\n"));
    EXPECT_THAT(interface({"find", "--netns", "green"}).err,
                HasSubstr("no record is there in namespace green"));
    EXPECT_THAT(interface({"find", "--vrf", "green"}).err, HasSubstr("no record is there with VRF green"));
}

TEST_F(interface_queries, say_where_the_library_answers_another_record) {
    const std::string path = changed_copy([](net_lib_db_interfaces_segment_t &segment) {
        segment.entries[7] = segment.entries[1]; // a second 110
        segment.entries[8] = segment.entries[1];
        segment.entries[8].record.sys_ifindex = 111; // the same netdev as 110
    });
    const tool_result twice = run_tool({"--file", path, "interface", "show", "110"});
    EXPECT_THAT(twice.out,
                HasSubstr("note: the library answers slot 1 for system ifindex 110, never this record"));
    const tool_result shadowed = run_tool({"--file", path, "interface", "show", "111"});
    EXPECT_THAT(shadowed.out,
                HasSubstr("note: for Linux ifindex 5 in namespace blue the library answers 110 (slot 1)"));
    EXPECT_THAT(run_tool({"--file", path, "interface", "find", "--linux", "5", "--netns", "blue"}).out,
                HasSubstr("The library answers 110, the first in the table"));
}

TEST_F(interface_queries, print_names_that_are_no_text_harmlessly) {
    const std::string path = changed_copy([](net_lib_db_interfaces_segment_t &segment) {
        memcpy(segment.entries[0].record.params.name, "\033[2J\xff\n\"x", 9);
        segment.entries[0].record.params.type = 77;
    });
    EXPECT_THAT(run_tool({"--file", path, "interface", "list"}).out,
                HasSubstr("type 77    \\x1b[2J\\xff\\x0a\"x"));
    const std::string document = run_tool({"--file", path, "interface", "show", "101", "--json"}).out;
    EXPECT_EQ("\033[2J\xEF\xBF\xBD\n\"x", jq(document, ".interfaces[0].name"));
    EXPECT_THAT(jq(document, ".interfaces[0].fields.by_type"),
                testing::StartsWith("01 00 00 00 00 01 01 00 "));
}

TEST_F(interface_queries, are_coloured_on_a_terminal_only) {
    EXPECT_THAT(interface({"list"}).out, Not(HasSubstr("\033[")));
    EXPECT_THAT(run_tool_on_terminal("interface list").out, HasSubstr("\033[1mSYSIF\033[0m"));
    EXPECT_THAT(run_tool_on_terminal("interface list", {"NO_COLOR=1"}).out, Not(HasSubstr("\033[")));
    EXPECT_THAT(run_tool_on_terminal("--color never interface list").out, Not(HasSubstr("\033[")));
    EXPECT_THAT(run_tool({"--color", "always", "interface", "list"}).out, HasSubstr("\033[1m"));
    EXPECT_THAT(run_tool_on_terminal("interface list --json").out, Not(HasSubstr("\033[")));
}

TEST(absent_databases, are_not_found_and_not_made) {
    (void)unlink(interfaces_format.path);
    (void)unlink(ports_format.path);
    const std::vector<std::vector<std::string>> queries = {{"interface", "list"},
                                                           {"interface", "show", "1"},
                                                           {"interface", "find", "--name", "a"},
                                                           {"port", "list"},
                                                           {"port", "find", "--name", "a"},
                                                           {"lag", "list"},
                                                           {"mlag", "list"},
                                                           {"dump"},
                                                           {"dump", "ports"}};
    for (std::vector<std::string> words : queries) {
        const tool_result text = run_tool(words);
        EXPECT_EQ(3, text.code) << words[0];
        EXPECT_EQ("", text.out);
        EXPECT_THAT(text.err, HasSubstr("not loaded, or "));
        words.emplace_back("--json");
        EXPECT_THAT(jq(run_tool(words).out, ".error.reason"), HasSubstr("not loaded, or "));
    }
    EXPECT_TRUE(std::filesystem::is_empty("/dev/shm"));
}

} // namespace
