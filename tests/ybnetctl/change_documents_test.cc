// SPDX-License-Identifier: Apache-2.0
//
// What changing commands print with --json, beside what the seeing ones do, and their notes in it.
#include "tests/ybnetctl/changes_fixture.h"

#include <set>

using testing::HasSubstr;

namespace {

class change_documents : public changes_test {};

} // namespace

TEST_F(change_documents, documents_have_what_the_seeing_commands_show_but_for_what_only_the_table_tells) {
    const auto keys_of = [](const json &object) {
        std::set<std::string> keys;
        for (const auto &item : object.items())
            keys.insert(item.key());
        return keys;
    };
    auto made = keys_of(json_of({"interface", "create", "loopback", "140", "--name", "loop1"})["interface"]);
    made.insert("slot");
    EXPECT_EQ(made, keys_of(json_of({"interface", "list"})["interfaces"][0]));
    auto recorded = keys_of(json_of({"port", "set", "7", "--name", "x"})["port"]);
    recorded.insert({"deleted", "hash", "reserved", "reserved1", "reserved2", "reserved3", "reserved4"});
    EXPECT_EQ(recorded, keys_of(json_of({"port", "show", "7"})["ports"][0]["fields"]));
}

TEST_F(change_documents, notes_stand_in_the_document_too) {
    ASSERT_EQ(run_tool({"port", "set", "0x10001", "--name", "swp1"}).code, 0);
    for (const bool rehearsed : {true, false}) {
        std::vector<std::string> bind = {"--json", "lag", "bind", "0x10001", "--lag", "0x10000500"};
        if (rehearsed)
            bind.emplace_back("--dry-run");
        const tool_result result = run_tool(bind);
        EXPECT_EQ(result.code, 0);
        EXPECT_EQ(json::parse(result.out)["notes"],
                  json::array({"LAG 0x10000500 is not recorded itself (ybnetctl port set)"}));
        EXPECT_THAT(result.err, HasSubstr("note: LAG 0x10000500"));
    }
    EXPECT_EQ(json_of({"lag", "unbind", "0x10001"})["notes"], json::array());
}

TEST_F(change_documents, notes_of_a_line_of_a_batch_are_its_own) {
    const tool_result result = run_tool({"--json", "--keep-going", "-b", "-"}, {},
                                        "port set 1 --name a\nlag bind 1 --lag 0x10000500\nlag unbind 1\n");
    const auto lines = lines_of(result.out);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(json::parse(lines[0])["result"]["notes"].size(), 0u);
    EXPECT_EQ(json::parse(lines[1])["result"]["notes"].size(), 1u);
    EXPECT_EQ(json::parse(lines[2])["result"]["notes"].size(), 0u);
}
