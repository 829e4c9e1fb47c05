// SPDX-License-Identifier: Apache-2.0
//
// ybnetctl: what libybnet keeps, seen and changed from a shell. This file turns a
// command line into one run and its exit code; the commands are in see/ (they
// change nothing, create nothing and register nowhere) and change/.
#include <algorithm>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

#include "tools/ybnetctl/change/batch.h"
#include "tools/ybnetctl/change/interrupts.h"
#include "tools/ybnetctl/change/library.h"
#include "tools/ybnetctl/command_line.h"
#include "tools/ybnetctl/outcome.h"
#include "tools/ybnetctl/session.h"

using namespace ybnetctl;

namespace {

// What --help or --version asks for.
void print_about(session &run, const command_line &line, const CLI::ParseError &error) {
    if (!run.json_wanted) {
        (void)line.app().exit(error, run.out, run.err);
        return;
    }
    std::ostringstream text;
    (void)line.app().exit(error, text, text);
    if (error.get_name() == "CallForVersion")
        print(run, json{{"version", YBNET_VERSION}});
    else
        print(run, json{{"help", text.str()}});
}

exit_code run_words(session &run, command_line &line, const std::vector<std::string> &words) {
    try {
        const auto action = line.parse(words);
        if (!run.batch_file.empty()) {
            if (action)
                throw failure{
                    exit_code::usage, "--batch", "takes no command beside it", "ybnetctl --help", {}};
            return run_batch(run);
        }
        if (!action)
            throw failure{exit_code::usage, "", "no command given", "ybnetctl --help", {}};
        action();
        return run.ends_with;
    } catch (const CLI::ParseError &error) {
        // Parsing may have ended in front of the option, or before it was taken over.
        run.json_wanted = run.json_wanted || std::count(words.begin(), words.end(), "--json") != 0;
        if (error.get_exit_code() == 0) {
            print_about(run, line, error);
            return exit_code::done;
        }
        const failure what = line.usage_failure(error);
        print(run, what);
        return what.code;
    } catch (const failure &what) {
        print(run, what);
        return what.code;
    }
}

// Unregisters the process and says so when that fails.
exit_code stop(session &run, exit_code code) {
    try {
        stop_library(run);
    } catch (const failure &what) {
        run.json_wanted = false; // the command has printed its one document
        print(run, what);
        return code == exit_code::done ? what.code : code;
    }
    return code;
}

} // namespace

int main(int argc, char **argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    session run(std::cout, std::cerr);
    run.out_is_terminal = isatty(STDOUT_FILENO) == 1;
    run.err_is_terminal = isatty(STDERR_FILENO) == 1;
    try {
        command_line line(run);
        const exit_code code = stop(run, run_words(run, line, words));
        std::cout.flush();
        if (!std::cout && code == exit_code::done) {
            std::cerr << "ybnetctl: standard output: could not be written\n"; // a full disk, say
            return static_cast<int>(exit_code::failed);
        }
        end_if_interrupted();
        return static_cast<int>(code);
    } catch (const std::exception &error) {
        print(run, failure{exit_code::failed, "", error.what(), "", {}});
        return static_cast<int>(exit_code::failed);
    }
}
