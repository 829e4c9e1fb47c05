// SPDX-License-Identifier: Apache-2.0
//
// See bash_completion.h. The script holds three tables, by command: its
// subcommands, its options, and the values of options and arguments that take one
// of a few.
#include "tools/ybnetctl/pages/bash_completion.h"

#include <sstream>

#include "tools/ybnetctl/option_words.h"

namespace ybnetctl {

namespace {

void write_tables(std::ostream &out, const CLI::App *command) {
    const std::string name = full_name_of(command);
    std::string subcommands;
    for (const CLI::App *each : subcommands_of(command))
        subcommands += (subcommands.empty() ? "" : " ") + each->get_name();
    std::string options;
    std::string arguments;
    for (const CLI::Option *option : command->get_options()) {
        std::string choices;
        for (const std::string &choice : choices_of(option))
            choices += (choices.empty() ? "" : " ") + choice;
        if (option->get_positional()) {
            arguments += (arguments.empty() || choices.empty() ? "" : " ") + choices;
            continue;
        }
        for (const std::string &word : option->get_lnames()) {
            options += (options.empty() ? "--" : " --") + word;
            if (!value_of(option).empty())
                out << "    values['" << name << " --" << word << "']='" << (choices.empty() ? "-" : choices)
                    << "'\n";
        }
        for (const std::string &word : option->get_snames())
            if (!value_of(option).empty())
                out << "    values['" << name << " -" << word << "']='" << (choices.empty() ? "-" : choices)
                    << "'\n";
    }
    out << "    words['" << name << "']='" << subcommands << (arguments.empty() ? "" : " ") << arguments
        << "'\n";
    out << "    options['" << name << "']='" << options << "'\n";
    for (const CLI::App *each : subcommands_of(command))
        write_tables(out, each);
}

constexpr const char *head = R"(# SPDX-License-Identifier: Apache-2.0
# bash completion for ybnetctl, made from its option table.

_ybnetctl() {
    local -A words options values
)";

// A value that is not one of a few is completed as a file name; so is an argument. Global options stand anywhere.
constexpr const char *tail = R"(
    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local command=ybnetctl word choices skip=
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [[ $skip ]]; then
            skip=
        elif [[ $word == -* ]]; then
            skip=${values["$command $word"]-${values["ybnetctl $word"]-}}
        elif [[ ${words["$command $word"]+known} ]]; then
            command+=" $word"
        fi
    done
    COMPREPLY=()
    choices=${values["$command $before"]-${values["ybnetctl $before"]-}}
    if [[ $choices == - ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
    elif [[ $choices ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$current")
    elif [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "${options[$command]} ${options[ybnetctl]}" -- "$current")
    elif [[ ${words[$command]} ]]; then
        mapfile -t COMPREPLY < <(compgen -W "${words[$command]}" -- "$current")
    else
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
    fi
}
complete -F _ybnetctl ybnetctl
)";

} // namespace

std::string bash_completion_of(const command_line &line) {
    std::ostringstream out;
    out << head;
    write_tables(out, &line.app());
    out << tail;
    return out.str();
}

} // namespace ybnetctl
