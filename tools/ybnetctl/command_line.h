// SPDX-License-Identifier: Apache-2.0
//
// The option table: every command of ybnetctl with its options, its help and its
// examples, as one CLI::App. The same table parses the command line and each line
// of a batch, and makes the man page and the shell completion (pages/).
//
// A command has a structure for its options, a function that declares them and a
// function that runs it:
//
//   struct show_options { uint32_t sys_ifindex = 0; };
//   add_command<show_options>(parent, line, "show", "Show one interface",
//       [](CLI::App &app, show_options &o) { app.add_option("SYSIF", o.sys_ifindex, "its system ifindex")->required(); },
//       [](session &run, const show_options &o) { show(run, o.sys_ifindex); },
//       {{"ybnetctl interface show 110", "one interface, every field"}});
#ifndef YBNET_YBNETCTL_COMMAND_LINE_H
#define YBNET_YBNETCTL_COMMAND_LINE_H

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "tools/ybnetctl/session.h"

namespace ybnetctl {

// A line that works when pasted, on a system that the tests prepare, and what it shows.
struct example {
    std::string line;
    std::string shows;
    bool changes_netdevs = false; // makes or removes netdevs: tried in the lab only
};

class command_line {
  public:
    explicit command_line(session &run);
    command_line(const command_line &) = delete;
    command_line &operator=(const command_line &) = delete;

    // Parses one command with its options (the program's name not among them) and returns what is to be run.
    // Throws CLI::ParseError for a usage error, a request for help included.
    std::function<void()> parse(const std::vector<std::string> &words);

    // A usage error as a failure that names the command and what to try.
    [[nodiscard]] failure usage_failure(const CLI::ParseError &error) const;

    [[nodiscard]] const CLI::App &app() const {
        return app_;
    }
    CLI::App &app() {
        return app_;
    }
    [[nodiscard]] const std::vector<example> &examples_of(const CLI::App *command) const;

    // Declares examples of a command; they end its help.
    void add_examples(CLI::App *command, std::vector<example> examples);

    // What the man page says about a command beyond its options: above all the keys of its JSON. Paragraphs are parted
    // by empty lines.
    void add_notes(CLI::App *command, std::string notes);
    [[nodiscard]] std::string notes_of(const CLI::App *command) const;

    // What the command that is parsed now would run.
    void choose(std::function<void()> action) {
        chosen_ = std::move(action);
    }
    session &run() {
        return run_;
    }

  private:
    session &run_;
    CLI::App app_;
    std::map<const CLI::App *, std::vector<example>> examples_;
    std::map<const CLI::App *, std::string> notes_;
    std::function<void()> chosen_;
};

// See the top of this file. The options are brought back to their defaults before each parse, so that a line of a
// batch inherits nothing from the line before.
template <class Options, class Declare, class Run>
CLI::App *add_command(CLI::App *parent, command_line &line, const std::string &name,
                      const std::string &description, Declare declare, Run run,
                      std::vector<example> examples) {
    const auto options = std::make_shared<Options>();
    CLI::App *const command = parent->add_subcommand(name, description);
    declare(*command, *options);
    command->preparse_callback([options](size_t) { *options = Options{}; });
    command->callback([&line, options, run] {
        line.choose([&line, options, run] { run(line.run(), std::as_const(*options)); });
    });
    line.add_examples(command, std::move(examples));
    return command;
}

// A command that only holds others ("interface").
CLI::App *add_command_group(CLI::App *parent, const std::string &name, const std::string &description);

// One per file of commands; command_line's constructor calls them in the order of the help.
void add_status_command(command_line &line);
void add_interface_queries(command_line &line, CLI::App *interface);
void add_port_queries(command_line &line, CLI::App *port);
void add_lag_queries(command_line &line, CLI::App *lag, CLI::App *mlag);
void add_audit_command(command_line &line);
void add_monitor_command(command_line &line);
void add_dump_commands(command_line &line);
void add_explain_command(command_line &line);
void add_interface_changes(command_line &line, CLI::App *interface);
void add_address_commands(command_line &line);
void add_port_changes(command_line &line, CLI::App *port);
void add_lag_changes(command_line &line, CLI::App *lag);
void add_hold_command(command_line &line);
void add_upgrade_command(command_line &line);

} // namespace ybnetctl

#endif
