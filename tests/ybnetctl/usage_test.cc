// SPDX-License-Identifier: Apache-2.0
//
// What is said to somebody who typed something wrong: the option or argument, what was expected, and where to read on.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/ybnetctl/tool.h"

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

namespace {

struct mistake {
    std::vector<std::string> words;
    std::string said;
};

void PrintTo(const mistake &each, std::ostream *out) {
    for (const std::string &word : each.words)
        *out << word << ' ';
}

class usage : public testing::TestWithParam<mistake> {};

const std::string any_number = " is not a number from 0 to 4294967295";
const std::string leading_zero = " has a leading 0: a number is decimal without, or hexadecimal behind 0x";

} // namespace

TEST_P(usage, mistake_is_named_with_what_was_expected) {
    const tool_result result = run_tool(GetParam().words);
    EXPECT_EQ(result.code, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr(GetParam().said));
    EXPECT_THAT(result.err, HasSubstr("\n  try: ybnetctl "));
    EXPECT_THAT(result.err, Not(HasSubstr("Could not convert")));
}

// Wherever the option stands: parsing may have ended in front of it.
TEST_P(usage, mistake_is_one_document_with_json) {
    std::vector<std::string> in_front = GetParam().words;
    in_front.insert(in_front.begin(), "--json");
    std::vector<std::string> behind = GetParam().words;
    behind.emplace_back("--json");
    for (const auto &words : {in_front, behind}) {
        const tool_result result = run_tool(words);
        EXPECT_EQ(result.code, 2);
        EXPECT_EQ(result.err, "");
        const json error = json::parse(result.out).at("error");
        EXPECT_EQ(error.at("exit_code"), 2);
        EXPECT_EQ(error.at("status"), nullptr);
        const std::string thing = error.at("thing");
        EXPECT_THAT((thing.empty() ? "" : thing + ": ") + error.at("reason").get<std::string>(),
                    HasSubstr(GetParam().said));
        EXPECT_THAT(error.at("advice"), testing::StartsWith("ybnetctl "));
    }
}

INSTANTIATE_TEST_SUITE_P(
    number, usage,
    testing::Values(
        mistake{{"interface", "show", "-5"}, "interface show: SYSIF: \"-5\"" + any_number},
        mistake{{"interface", "show", ""}, "interface show: SYSIF: \"\"" + any_number},
        mistake{{"interface", "show", "4294967296"}, "SYSIF: \"4294967296\"" + any_number},
        mistake{{"interface", "list", "--vlan", "ten"}, "interface list: --vlan: \"ten\"" + any_number},
        mistake{{"interface", "find", "--linux", "eth0"}, "interface find: --linux: \"eth0\"" + any_number},
        mistake{{"interface", "set", "x", "--rif", "1"}, "interface set: SYSIF: \"x\"" + any_number},
        mistake{{"interface", "set", "1", "--rif", "-1"},
                "interface set: --rif: '-1' is neither a number from 0 to 65534 nor none"},
        mistake{{"interface", "edit", "1", "--vid", "4096"}, "--vid: Value 4096 not in range 0 to 4095"},
        mistake{{"interface", "edit", "1", "--vid", "x"}, "--vid: Value x not in range 0 to 4095"},
        mistake{{"port", "show", "swp1"}, "port show: SYSIF: \"swp1\"" + any_number},
        mistake{{"port", "list", "--lag", "0x"}, "port list: --lag: \"0x\"" + any_number},
        mistake{{"port", "list", "--protocol", "3"}, "port list: --protocol: Value 3 not in range 0 to 2"},
        mistake{{"port", "find", "--log-port", "0x123456789"}, "--log-port: \"0x123456789\"" + any_number},
        mistake{{"port", "set", "7", "--attr-g", "1,2,3,x"}, "port set: --attr-g: \"x\"" + any_number},
        mistake{{"interface", "create", "vlan", "1", "--vid", "010"}, "--vid: \"010\"" + leading_zero},
        mistake{{"port", "show", "08"}, "port show: SYSIF: \"08\"" + leading_zero},
        mistake{{"port", "list", "--protocol", "01"}, "--protocol: \"01\"" + leading_zero},
        mistake{{"interface", "set", "1", "--rif", "010"}, "--rif: \"010\"" + leading_zero},
        mistake{{"interface", "show", "00"}, "SYSIF: \"00\"" + leading_zero},
        mistake{{"port", "set", "7", "--attr-d", "1,2,010"}, "--attr-d: \"010\"" + leading_zero},
        mistake{{"monitor", "--count", "08"}, "--count: \"08\"" + leading_zero},
        mistake{{"--verbosity", "05", "status"}, "--verbosity: \"05\"" + leading_zero},
        mistake{{"port", "set", "7", "--attr-d", "1,2,300"}, "--attr-d: Value 300 not in range 0 to 255"},
        mistake{{"lag", "show", "lag5"}, "lag show: LAG: \"lag5\"" + any_number},
        mistake{{"mlag", "show", "0"}, "mlag show: ID: Value 0 not in range 1 to 1000"},
        mistake{{"monitor", "--interface", "swp1"}, "monitor: --interface: \"swp1\"" + any_number},
        mistake{{"monitor", "--count", "0"}, "monitor: --count: Value 0 not in range 1 to 1000000000"}));

INSTANTIATE_TEST_SUITE_P(
    word, usage,
    testing::Values(mistake{{"nonsense"}, "no such command or option: nonsense"},
                    mistake{{"interface", "list", "--nonsense"}, "no such command or option: --nonsense"},
                    mistake{{"--color", "purple", "status"}, "--color: purple not in {auto,always,never}"},
                    mistake{{"port", "set"}, "port set: SYSIF is required"},
                    mistake{{"interface"}, "interface: A subcommand is required"},
                    mistake{{"interface", "find"},
                            "one of SYSIF, --linux, --name, --netns and --vrf is needed"},
                    mistake{{"port", "find"}, "exactly one of SYSIF, --log-port and --name is needed"},
                    mistake{{"port", "find", "--log-port", "1", "--name", "x"},
                            "exactly one of SYSIF, --log-port and --name is needed"},
                    mistake{{}, "no command given"}));

TEST(about, version_and_help_are_documents_with_json) {
    const tool_result version = run_tool({"--json", "--version"});
    EXPECT_EQ(version.code, 0);
    EXPECT_EQ("ybnetctl " + json::parse(version.out).at("version").get<std::string>() + '\n',
              run_tool({"--version"}).out);
    for (const std::vector<std::string> &command : {std::vector<std::string>{}, {"interface", "list"}}) {
        std::vector<std::string> words = command;
        words.emplace_back("--help");
        const std::string text = run_tool(words).out;
        words.emplace_back("--json");
        const tool_result help = run_tool(words);
        EXPECT_EQ(help.code, 0);
        EXPECT_EQ(json::parse(help.out).at("help"), text);
    }
}

TEST(files, that_are_not_there_come_with_advice) {
    const tool_result copy = run_tool({"--file", "/nonexistent", "status"});
    EXPECT_EQ(copy.code, 3);
    EXPECT_THAT(copy.err, HasSubstr("/nonexistent: No such file or directory\n  try: a copy made by cp "));
    const tool_result batch = run_tool({"-b", "/nonexistent"});
    EXPECT_EQ(batch.code, 1);
    EXPECT_THAT(batch.err,
                HasSubstr("/nonexistent: cannot be read: No such file or directory\n  try: -b FILE "));
}

// The advice names the command that was meant, not the group that it is in.
TEST(usage_advice, leads_to_the_help_of_the_very_command) {
    EXPECT_THAT(run_tool({"interface", "create", "vlan", "1", "--vid", "5", "--swid", "9"}).err,
                HasSubstr("\n  try: ybnetctl interface create vlan --help\n"));
    EXPECT_THAT(run_tool({"interface", "create", "port-vlan", "1", "--vid", "5", "--port", "a b"}).err,
                HasSubstr("\n  try: ybnetctl interface create port-vlan --help\n"));
    EXPECT_THAT(run_tool({"interface", "create", "port", "1", "--name", "a/b"}).err,
                HasSubstr("\n  try: ybnetctl interface create port --help\n"));
    const tool_result status = run_tool({"explain", "22"});
    EXPECT_THAT(status.out, HasSubstr("ybnetctl interface set N --vrid none"));
}
