// SPDX-License-Identifier: Apache-2.0
//
// What is said to somebody who typed something wrong: the option or argument, what was expected, and where to read on.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/ybnetctl/tool.h"

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

} // namespace

TEST_P(usage, mistake_is_named_with_what_was_expected) {
    const tool_result result = run_tool(GetParam().words);
    EXPECT_EQ(result.code, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr(GetParam().said));
    EXPECT_THAT(result.err, HasSubstr("\n  try: ybnetctl "));
    EXPECT_THAT(result.err, Not(HasSubstr("Could not convert")));
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
        mistake{{"port", "set", "7", "--attr-d", "1,2,300"}, "--attr-d: Value 300 not in range 0 to 255"},
        mistake{{"lag", "show", "lag5"}, "lag show: LAG: \"lag5\"" + any_number},
        mistake{{"mlag", "show", "0"}, "mlag show: ID: Value 0 not in range 1 to 1000"},
        mistake{{"monitor", "--interface", "swp1"}, "monitor: --interface: \"swp1\"" + any_number},
        mistake{{"monitor", "--count", "0"}, "monitor: --count: Value 0 not in range 1 to 1000000000"}));

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
