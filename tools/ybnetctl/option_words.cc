// SPDX-License-Identifier: Apache-2.0
//
// See option_words.h.
#include "tools/ybnetctl/option_words.h"

#include <sstream>

namespace ybnetctl {

namespace {

constexpr size_t description_width = 70; // of the right-hand column of --help

// CLI11 reads "" as 0 and says little about what it cannot read.
std::string refuse_unless_whole(const std::string &text) {
    if (std::string problem = leading_zero_problem(text); !problem.empty())
        return problem;
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    const std::string digits = hex ? text.substr(2) : text;
    const char *const allowed = hex ? "0123456789abcdefABCDEF" : "0123456789";
    if (!digits.empty() && digits.size() <= 10 && digits.find_first_not_of(allowed) == std::string::npos &&
        std::stoull(digits, nullptr, hex ? 16 : 10) <= UINT32_MAX)
        return "";
    return '"' + text + "\" is not a number from 0 to 4294967295";
}

} // namespace

// CLI11 would read such a number as octal, as C does; who types 010 means ten.
std::string leading_zero_problem(const std::string &text) {
    if (text.size() < 2 || text[0] != '0' || text.find_first_not_of("0123456789") != std::string::npos)
        return "";
    return '"' + text + "\" has a leading 0: a number is decimal without, or hexadecimal behind 0x";
}

CLI::Validator no_leading_zero() {
    return {leading_zero_problem, ""};
}

CLI::Validator whole_number() {
    return {refuse_unless_whole, ""};
}

std::vector<std::string> choices_of(const CLI::Option *option) {
    // CLI::IsMember describes itself as "{a,b,c}" behind the type's name.
    const std::string type = option->get_type_name();
    const size_t open = type.find('{');
    const size_t close = type.rfind('}');
    if (open == std::string::npos || close == std::string::npos)
        return {};
    std::vector<std::string> choices;
    std::istringstream words(type.substr(open + 1, close - open - 1));
    for (std::string word; std::getline(words, word, ',');)
        choices.push_back(word);
    return choices;
}

std::string value_of(const CLI::Option *option) {
    if (option->get_items_expected_max() == 0)
        return "";
    std::string words;
    for (const std::string &choice : choices_of(option))
        words += (words.empty() ? "" : "|") + choice;
    if (!words.empty())
        return words;
    // "UINT:INT in [0 - 4095]", "TEXT:N|none": a type, then what its values are held against.
    const std::string type = option->get_type_name();
    const size_t colon = type.find(':');
    words = type.substr(0, colon);
    if (words == "UINT" || words == "INT")
        return "N";
    if (words != "TEXT")
        return words;
    return colon == std::string::npos ? "NAME" : type.substr(colon + 1);
}

std::string usage_of(const CLI::Option *option) {
    if (option->get_positional()) {
        const std::string name = option->get_name(true);
        return choices_of(option).empty() ? name : value_of(option);
    }
    std::string usage;
    for (const std::string &name : option->get_snames())
        usage += (usage.empty() ? "-" : ", -") + name;
    for (const std::string &name : option->get_lnames())
        usage += (usage.empty() ? "--" : ", --") + name;
    const std::string value = value_of(option);
    return value.empty() ? usage : usage + ' ' + value;
}

std::string description_of(const CLI::Option *option) {
    const std::string preset = option->get_default_str();
    return preset.empty() ? option->get_description() : option->get_description() + " [" + preset + ']';
}

std::string full_name_of(const CLI::App *command) {
    const CLI::App *const parent = command->get_parent();
    return parent == nullptr ? command->get_name() : full_name_of(parent) + ' ' + command->get_name();
}

std::string synopsis_of(const CLI::App *command) {
    std::string synopsis = full_name_of(command);
    for (const CLI::Option *option : command->get_options()) {
        if (option->get_positional() || !option->get_required())
            continue;
        synopsis += ' ' + usage_of(option);
    }
    for (const CLI::Option *option : command->get_options())
        if (!option->get_positional() && !option->get_required() && option->get_name() != "--help") {
            synopsis += " [OPTIONS]";
            break;
        }
    for (const CLI::Option *option : command->get_options())
        if (option->get_positional()) {
            const std::string words = usage_of(option) + (option->get_items_expected_max() > 1 ? "..." : "");
            synopsis += option->get_required() ? ' ' + words : " [" + words + ']';
        }
    if (!subcommands_of(command).empty())
        synopsis += command->get_parent() == nullptr             ? " COMMAND"
                    : command->get_require_subcommand_min() == 0 ? " [SUBCOMMAND]"
                                                                 : " SUBCOMMAND";
    return synopsis;
}

std::vector<const CLI::App *> subcommands_of(const CLI::App *command) {
    return command->get_subcommands([](const CLI::App *each) { return !each->get_name().empty(); });
}

std::vector<const CLI::App *> leaves_of(const CLI::App *command) {
    std::vector<const CLI::App *> leaves;
    for (const CLI::App *each : subcommands_of(command)) {
        const auto inner = leaves_of(each);
        if (inner.empty())
            leaves.push_back(each);
        leaves.insert(leaves.end(), inner.begin(), inner.end());
    }
    return leaves;
}

std::string formatter::make_option_opts(const CLI::Option *option) const {
    const std::string value = value_of(option);
    if (value.empty() || option->get_positional())
        return "";
    return ' ' + value;
}

std::string formatter::make_option_desc(const CLI::Option *option) const {
    std::istringstream words(description_of(option));
    std::string lines;
    size_t length = 0;
    for (std::string word; words >> word; length += word.size() + 1) {
        if (length > 0 && length + word.size() > description_width) {
            lines += '\n'; // CLI11 indents what follows
            length = 0;
        }
        lines += (length == 0 ? "" : " ") + word;
    }
    return lines;
}

std::string formatter::make_usage(const CLI::App *command, std::string) const {
    return "Usage: " + synopsis_of(command) + "\n";
}

} // namespace ybnetctl
