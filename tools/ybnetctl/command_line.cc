// SPDX-License-Identifier: Apache-2.0
//
// See command_line.h.
#include "tools/ybnetctl/command_line.h"

#include <memory>

#include "tools/ybnetctl/option_words.h"

namespace ybnetctl {

namespace {

constexpr const char *purpose =
    "See and change what libybnet keeps: router interfaces, ports, and the shared memory "
    "that holds them.";

constexpr const char *ending = "Options of every command: ybnetctl --help.\n"
                               "Exit codes: 0 done, 1 failed, 2 usage, 3 not found.";
constexpr const char *exit_codes = "Numbers: decimal, or hexadecimal as 0x1f; 010 is refused.\n"
                                   "Exit codes: 0 done, 1 failed, 2 usage, 3 not found.";

void read_numbers_strictly(CLI::App *command) {
    for (CLI::Option *option : command->get_options()) {
        const std::string type = option->get_type_name();
        if (type.starts_with("UINT"))
            option->check(whole_number());
        if (type.find("INT in [") != std::string::npos)
            option->transform(no_leading_zero()); // in front of the range, which would read 010 as 8
    }
    for (CLI::App *each : command->get_subcommands({}))
        read_numbers_strictly(each);
}

} // namespace

CLI::App *add_command_group(CLI::App *parent, const std::string &name, const std::string &description) {
    CLI::App *const group = parent->add_subcommand(name, description);
    group->require_subcommand(1);
    return group;
}

command_line::command_line(session &run) : run_(run), app_(purpose, "ybnetctl") {
    app_.formatter(std::make_shared<formatter>()); // before the commands, which inherit it
    app_.set_version_flag("--version", "ybnetctl " YBNET_VERSION, "Print the version and end");
    app_.add_flag("--json", run.json_wanted, "Print one JSON document instead of text");
    app_.add_option("--color", run.colour,
                    "Colour on standard output; auto: on a terminal, unless NO_COLOR is set")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->capture_default_str();
    app_.add_option("--file", run.files,
                    "Read this copy of a segment instead of the live one; may be given for each segment")
        ->type_name("PATH")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app_.add_flag("--dry-run", run.dry_run,
                  "Of a command that changes something: print what it would run and send, and do nothing");
    app_.add_option("--verbosity", run.verbosity,
                    "Show the library's messages on standard error, 1 (errors) to 5 (debug)")
        ->check(CLI::Range(0, 5))
        ->capture_default_str();
    app_.add_option("-b,--batch", run.batch_file,
                    "Run the commands in this file, one a line; - is standard input")
        ->type_name("FILE");
    app_.add_flag("--keep-going", run.keep_going, "Of a batch: go on after a line that failed");
    app_.fallthrough();
    app_.require_subcommand(0, 1);

    add_status_command(*this);
    CLI::App *const interface = add_command_group(&app_, "interface", "Router interfaces");
    add_interface_queries(*this, interface);
    add_interface_changes(*this, interface);
    add_address_commands(*this);
    CLI::App *const port = add_command_group(&app_, "port", "The switch's ports");
    add_port_queries(*this, port);
    add_port_changes(*this, port);
    CLI::App *const lag = add_command_group(&app_, "lag", "LAGs and their members");
    CLI::App *const mlag = add_command_group(&app_, "mlag", "MLAG ids and their LAGs");
    add_lag_queries(*this, lag, mlag);
    add_lag_changes(*this, lag);
    add_audit_command(*this);
    add_monitor_command(*this);
    add_dump_commands(*this);
    add_explain_command(*this);
    add_hold_command(*this);
    add_upgrade_command(*this);
    read_numbers_strictly(&app_);
    add_examples(interface, {{"ybnetctl interface list", "every interface that is recorded"},
                             {"ybnetctl interface find 110", "one of them"}});
    add_examples(port, {{"ybnetctl port list", "every port and LAG that is recorded"},
                        {"ybnetctl port find --name swp1", "one of them"}});
    add_examples(lag, {{"ybnetctl lag", "every LAG, its MLAG id and its members"},
                       {"ybnetctl lag show 0x10000500", "one of them"}});
    add_examples(mlag, {{"ybnetctl mlag", "every MLAG id that is bound"}});
    add_examples(&app_, {{"ybnetctl status", "both segments, who uses them, and their locks"},
                         {"printf 'port show 0x10001\\nport show 0x10002\\n' | ybnetctl -b -",
                          "many commands in one process, here from standard input"}});
}

std::function<void()> command_line::parse(const std::vector<std::string> &words) {
    chosen_ = nullptr;
    run_.words = words;
    std::vector<std::string> reversed(words.rbegin(), words.rend()); // as CLI11 wants them
    app_.parse(std::move(reversed));
    return chosen_;
}

failure command_line::usage_failure(const CLI::ParseError &error) const {
    const CLI::App *command = &app_;
    std::string name = "ybnetctl";
    for (auto inner = command->get_subcommands(); !inner.empty(); inner = command->get_subcommands()) {
        command = inner.front();
        name += ' ' + command->get_name();
    }
    // What CLI11 itself would say names unknown words in reverse, or not at all.
    const std::vector<std::string> unknown = app_.remaining(true);
    const std::string reason =
        unknown.empty() ? error.what() : "no such command or option: " + unknown.front();
    return {exit_code::usage, name == "ybnetctl" ? "" : name.substr(name.find(' ') + 1), reason,
            name + " --help", std::nullopt};
}

const std::vector<example> &command_line::examples_of(const CLI::App *command) const {
    static const std::vector<example> none;
    const auto found = examples_.find(command);
    return found == examples_.end() ? none : found->second;
}

void command_line::add_examples(CLI::App *command, std::vector<example> examples) {
    std::string footer = examples.empty() ? "" : "Examples:\n";
    for (const example &each : examples)
        footer += "  " + each.line + "\n      " + each.shows + '\n';
    command->footer(footer + (examples.empty() ? "" : "\n") + (command == &app_ ? exit_codes : ending));
    examples_[command] = std::move(examples);
}

void command_line::add_notes(CLI::App *command, std::string notes) {
    notes_[command] = std::move(notes);
}

std::string command_line::notes_of(const CLI::App *command) const {
    const auto found = notes_.find(command);
    return found == notes_.end() ? "" : found->second;
}

} // namespace ybnetctl
