// SPDX-License-Identifier: Apache-2.0
//
// What is made from the tool's tables: the pages are well-formed, they name every
// command, option and field, and the completion completes.
#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/ybnetctl/tool.h"
#include "tools/ybnetctl/segments/fields.h"

using namespace ybnetctl;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::Not;

namespace {

const std::string pages = YBNETCTL_PAGES;

std::vector<std::string> words_of(const std::string &text) {
    std::istringstream stream(text);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

// What bash offers for the last of these words.
std::vector<std::string> completions(const std::string &line) {
    const auto words = words_of(line);
    std::string script = "source '" + pages + "/ybnetctl.bash'; COMP_WORDS=(";
    for (const std::string &word : words)
        script += "'" + word + "' ";
    const bool new_word = line.back() == ' ';
    script += new_word ? "''" : "";
    script += "); COMP_CWORD=" + std::to_string(words.size() - (new_word ? 0 : 1)) +
              "; _ybnetctl; printf '%s\\n' \"${COMPREPLY[@]}\"";
    const tool_result result = run_program({"bash", "-uc", script});
    EXPECT_EQ(result.code, 0) << result.err;
    auto offered = words_of(result.out);
    std::sort(offered.begin(), offered.end());
    return offered;
}

// The subcommands that --help names, at the head of its lines behind "Subcommands:".
std::vector<std::string> subcommands(std::vector<std::string> words) {
    words.emplace_back("--help");
    const tool_result help = run_tool(words);
    EXPECT_EQ(help.code, 0);
    std::vector<std::string> names;
    bool inside = false;
    for (const std::string &line : lines_of(help.out)) {
        if (line == "Subcommands:")
            inside = true;
        else if (line.empty())
            inside = false;
        else if (inside && line.size() > 2 && line[2] != ' ')
            names.push_back(words_of(line).front());
    }
    return names;
}

std::vector<std::vector<std::string>> leaves(const std::vector<std::string> &command = {}) {
    std::vector<std::vector<std::string>> all;
    const auto inner = subcommands(command);
    if (inner.empty())
        return {command};
    for (const std::string &name : inner) {
        auto longer = command;
        longer.push_back(name);
        for (auto &leaf : leaves(longer))
            all.push_back(std::move(leaf));
    }
    return all;
}

std::string joined(const std::vector<std::string> &words) {
    std::string text;
    for (const std::string &word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

std::string rendered(const std::string &page) {
    const tool_result result = run_program({"mandoc", "-T", "utf8", "-O", "width=200", pages + '/' + page});
    EXPECT_EQ(result.code, 0) << result.err;
    // Letters struck over themselves are how a terminal is told about bold and underlined ones.
    std::string plain;
    for (const char each : result.out) {
        if (each == '\b' && !plain.empty())
            plain.pop_back();
        else
            plain += each;
    }
    return plain;
}

class page : public testing::TestWithParam<std::string> {};

} // namespace

TEST_P(page, is_well_formed) {
    const tool_result lint = run_program({"mandoc", "-T", "lint", "-W", "warning", pages + '/' + GetParam()});
    EXPECT_EQ(lint.code, 0);
    EXPECT_THAT(lint.out, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(made, page, testing::Values("ybnetctl.8", "net_lib_ifc.5", "net_lib_port.5"),
                         [](const auto &each) {
                             std::string name = each.param;
                             std::replace(name.begin(), name.end(), '.', '_');
                             return name;
                         });

TEST(man_page, has_every_command_with_an_example) {
    const std::string text = rendered("ybnetctl.8");
    const auto commands = leaves();
    EXPECT_GT(commands.size(), 25U);
    for (const auto &command : commands)
        EXPECT_THAT(text, HasSubstr("\n   " + joined(command))) << joined(command);
}

TEST(man_page, has_the_rules_and_the_keys_of_a_batch) {
    const std::string text = rendered("ybnetctl.8");
    EXPECT_THAT(text, HasSubstr("\nBATCH\n"));
    EXPECT_THAT(text, HasSubstr("'...' keeps everything as it is"));
    EXPECT_THAT(text, HasSubstr("{\"line\": N, \"result\": ...}"));
    EXPECT_THAT(text, HasSubstr("{\"line\": N, \"error\": ...}"));
    EXPECT_THAT(text.substr(text.find("\nEXAMPLES\n")), HasSubstr("| ybnetctl -b -\n"));
    EXPECT_THAT(run_tool({"--help"}).out, HasSubstr("| ybnetctl -b -\n"));
}

// Of the groups and of the tool itself too.
TEST(help, of_every_command_ends_with_examples_and_exit_codes) {
    std::set<std::vector<std::string>> commands;
    for (auto command : leaves())
        for (;; command.pop_back()) {
            commands.insert(command);
            if (command.empty())
                break;
        }
    for (std::vector<std::string> command : commands) {
        const std::string name = joined(command);
        command.emplace_back("--help");
        const tool_result help = run_tool(command);
        EXPECT_THAT(help.out, HasSubstr("Usage: ybnetctl " + name));
        EXPECT_THAT(help.out, HasSubstr("Examples:\n  ")) << name;
        EXPECT_THAT(help.out, HasSubstr("Exit codes: 0 done, 1 failed, 2 usage, 3 not found.")) << name;
        if (help.out.find("\nSubcommands:\n") != std::string::npos)
            continue; // their descriptions have a line each
        for (const std::string &line : lines_of(help.out))
            EXPECT_LE(line.size(), 120U) << line;
    }
}

TEST(format_pages, have_every_field_and_region) {
    const std::string interfaces = rendered("net_lib_ifc.5");
    const std::string ports = rendered("net_lib_port.5");
    for (const field &each : interface_entry_structure.fields)
        EXPECT_THAT(interfaces, HasSubstr(each.name));
    for (const field &each : port_entry_structure.fields)
        EXPECT_THAT(ports, HasSubstr(each.name));
    for (const field &each : trailer_structure.fields) {
        EXPECT_THAT(interfaces, HasSubstr(each.name));
        EXPECT_THAT(ports, HasSubstr(each.name));
    }
    for (const region &each : format_of(segment_kind::ports).regions)
        EXPECT_THAT(ports, HasSubstr(each.name));
    EXPECT_THAT(ports, HasSubstr("0x5815A0"));
    EXPECT_THAT(interfaces, HasSubstr("0x74000"));
}

TEST(format_pages, show_no_quoting_of_the_source) {
    EXPECT_THAT(rendered("net_lib_ifc.5"), AllOf(HasSubstr("swid (VLAN)"), Not(HasSubstr("\""))));
    EXPECT_THAT(rendered("net_lib_port.5"), Not(HasSubstr("\"")));
}

TEST(completion, offers_the_commands) {
    auto commands = subcommands({});
    std::sort(commands.begin(), commands.end());
    EXPECT_EQ(completions("ybnetctl "), commands);
    EXPECT_THAT(completions("ybnetctl interface sh"), ElementsAre("show"));
    EXPECT_THAT(completions("ybnetctl --json --color never interface li"), ElementsAre("list"));
}

TEST(completion, offers_options_of_the_command_and_of_the_tool) {
    EXPECT_THAT(completions("ybnetctl interface list --"), IsSupersetOf({"--netns", "--json", "--file"}));
    EXPECT_THAT(completions("ybnetctl status --"), Not(Contains("--netns")));
}

TEST(completion, offers_values_of_an_option_that_takes_one_of_a_few) {
    EXPECT_THAT(completions("ybnetctl --color "), ElementsAre("always", "auto", "never"));
    EXPECT_THAT(completions("ybnetctl interface list --color al"), ElementsAre("always"));
}

TEST(completion, offers_files_elsewhere) {
    const std::string directory = std::filesystem::temp_directory_path() / "ybnetctl-completion";
    std::filesystem::create_directory(directory);
    (void)run_program({"touch", directory + "/segment-copy"});
    EXPECT_THAT(completions("ybnetctl --file " + directory + "/seg"),
                ElementsAre(directory + "/segment-copy"));
    std::filesystem::remove_all(directory);
}
