// SPDX-License-Identifier: Apache-2.0
//
// An option of the table in words: the same for --help, the man page and the
// completion.
#ifndef YBNET_YBNETCTL_OPTION_WORDS_H
#define YBNET_YBNETCTL_OPTION_WORDS_H

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace ybnetctl {

// The values of an option that takes one of a few; empty when it takes others.
std::vector<std::string> choices_of(const CLI::Option *option);

// What stands behind the option: "auto|always|never", "PATH", "N"; "" for a flag.
std::string value_of(const CLI::Option *option);

// "-b, --batch FILE", "SYSIF".
std::string usage_of(const CLI::Option *option);

// The description, with the default behind it.
std::string description_of(const CLI::Option *option);

// "ybnetctl interface show".
std::string full_name_of(const CLI::App *command);

// "ybnetctl interface show [OPTIONS] SYSIF".
std::string synopsis_of(const CLI::App *command);

// In the order in which they were declared.
std::vector<const CLI::App *> subcommands_of(const CLI::App *command);
std::vector<const CLI::App *> leaves_of(const CLI::App *command);

// What is wrong with "010" as a number; "" of anything else.
std::string leading_zero_problem(const std::string &text);
CLI::Validator no_leading_zero();

// The check of a number: decimal or hexadecimal, of 32 bits. Options that are shown as "N" have it without being
// given it.
CLI::Validator whole_number();

// --help in these words.
class formatter : public CLI::Formatter {
  public:
    formatter() {
        column_width(34);
    }
    std::string make_option_opts(const CLI::Option *option) const override;
    std::string make_option_desc(const CLI::Option *option) const override;
    std::string make_usage(const CLI::App *command, std::string name) const override;
};

} // namespace ybnetctl

#endif
