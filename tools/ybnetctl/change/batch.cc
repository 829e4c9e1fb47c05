// SPDX-License-Identifier: Apache-2.0
//
// See batch.h.
#include "tools/ybnetctl/change/batch.h"

#include <array>
#include <ostream>

#include "tools/ybnetctl/change/batch_source.h"
#include "tools/ybnetctl/change/interrupts.h"
#include "tools/ybnetctl/change/library.h"
#include "tools/ybnetctl/change/progress.h"
#include "tools/ybnetctl/command_line.h"

namespace ybnetctl {

const char *const batch_rules =
    "A batch is a file with one command a line, as it would stand behind ybnetctl; empty lines are passed "
    "over. "
    "Words are cut as a shell cuts them: '...' keeps everything as it is, \"...\" has \\ in front of \" and "
    "\\, "
    "and elsewhere \\ keeps the character behind it. "
    "# at the beginning of a word makes the rest of the line a comment. "
    "\\ at the end of a line joins it with the next one. "
    "Nothing is expanded.\n\n"
    "All lines run in one process, which starts the library once. "
    "Of the options above --file alone may stand in a line; the others stand beside --batch, for all lines. "
    "hold and monitor, which do not end by themselves, are refused.\n\n"
    "The first failure ends the batch, unless --keep-going is given. "
    "The exit code is that of the first failure either way, and every error names the file and the line. "
    "Sentences that say what was done are left out; what a command was asked to show is printed.\n\n"
    "With --dry-run each changing line meets what the lines before it would have done. "
    "A line that only looks does not: it shows what there is.\n\n"
    "SIGINT, SIGTERM and SIGHUP let the step that runs come to its end: the process says behind which line "
    "it was "
    "interrupted, unregisters and ends by that signal. "
    "A second one ends it at once.\n\n"
    "With --json each command prints a line of its own: {\"line\": N, \"result\": ...} with what it prints "
    "outside "
    "of a batch, or {\"line\": N, \"error\": ...} with the keys of any failure; N is the line of its first "
    "word.";

namespace {

// They end by a signal, not by themselves.
constexpr std::array endless = {"hold", "monitor"};

failure not_in_a_line(const std::string &what, const std::string &reason) {
    return {exit_code::usage, what, reason, "ybnetctl --help", {}};
}

// What the options of the whole run are for as long as one line runs.
class line_scope {
  public:
    line_scope(session &run, size_t line)
        : run_(run), json_wanted_(run.json_wanted), dry_run_(run.dry_run), keep_going_(run.keep_going),
          verbosity_(run.verbosity), colour_(run.colour), files_(run.files), batch_file_(run.batch_file) {
        run.batch_line = line;
        run.ends_with = exit_code::done;
    }
    ~line_scope() {
        restore();
        run_.files = files_;
        run_.batch_line = 0;
    }
    line_scope(const line_scope &) = delete;
    line_scope &operator=(const line_scope &) = delete;

    // All but --file, which a line may have.
    void restore() {
        run_.json_wanted = json_wanted_;
        run_.dry_run = dry_run_;
        run_.keep_going = keep_going_;
        run_.verbosity = verbosity_;
        run_.colour = colour_;
        run_.batch_file = batch_file_;
    }

  private:
    session &run_;
    const bool json_wanted_;
    const bool dry_run_;
    const bool keep_going_;
    const unsigned verbosity_;
    const std::string colour_;
    const std::vector<std::string> files_;
    const std::string batch_file_;
};

void refuse_what_is_not_for_a_line(const command_line &line) {
    for (const CLI::Option *const option : line.app().get_options())
        if (option->count() != 0 && option->get_name() != "--file")
            throw not_in_a_line(option->get_name(), "stands beside --batch, for all lines, not in one");
    for (const CLI::App *const command : line.app().get_subcommands())
        for (const char *const name : endless)
            if (command->get_name() == name)
                throw not_in_a_line(name, "does not end by itself: not in a batch");
}

void run_words(command_line &line, line_scope &scope, const batch_command &command) {
    if (!command.problem.empty())
        throw failure{exit_code::usage, "", command.problem, "quote as in a shell", {}};
    std::function<void()> action;
    try {
        action = line.parse(command.words);
    } catch (const CLI::ParseError &error) {
        scope.restore();
        if (error.get_exit_code() == 0)
            throw not_in_a_line(error.get_name() == "CallForVersion" ? "--version" : "--help",
                                "not in a batch");
        throw line.usage_failure(error);
    }
    scope.restore();
    refuse_what_is_not_for_a_line(line);
    if (!action)
        throw not_in_a_line("", "no command");
    action();
}

// The code with which the line ended; what went wrong has been printed.
exit_code run_line(session &run, command_line &line, const batch_command &command) {
    line_scope scope(run, command.line);
    try {
        run_words(line, scope, command);
        if (run.out_is_terminal)
            run.out.flush();
        return run.ends_with;
    } catch (const failure &what) {
        run.out.flush(); // in the order of the lines
        print(run, what);
        return what.code;
    } catch (const std::exception &error) {
        print(run, failure{exit_code::failed, "", error.what(), "", {}});
        return exit_code::failed;
    }
}

} // namespace

exit_code run_batch(session &run) {
    batch_source source(run.batch_file);
    run.batch_name = run.batch_file == "-" ? "standard input" : run.batch_file;
    command_line line(run);
    progress bar(run);
    exit_code first_failure = exit_code::done;
    uint64_t commands = 0;
    uint64_t failed = 0;
    size_t last_line = 0;
    for (batch_command command; (failed == 0 || run.keep_going) && source.next(&command);) {
        const exit_code code = run_line(run, line, command);
        commands++;
        last_line = command.line;
        if (code != exit_code::done && failed++ == 0)
            first_failure = code;
        bar.show(source.share(), commands, failed);
    }
    const double seconds = bar.seconds();
    run.ends_with = first_failure;
    if (interrupted() != 0)
        run.err << "ybnetctl: " << run.batch_name << ": interrupted behind line " << last_line << '\n';
    else if (failed != 0 && run.keep_going)
        run.err << "ybnetctl: " << run.batch_name << ": " << failed << " of " << commands
                << " commands failed\n";
    else if (run.err_is_terminal)
        run.err << "ybnetctl: " << progress_line(-1, commands, failed, seconds) << '\n';
    return first_failure;
}

} // namespace ybnetctl
