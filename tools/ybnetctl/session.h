// SPDX-License-Identifier: Apache-2.0
//
// What every command of one run of ybnetctl shares: the options that stand before
// or behind any command, and where it prints. A command prints either tables and
// sentences for people or exactly one JSON document.
#ifndef YBNET_YBNETCTL_SESSION_H
#define YBNET_YBNETCTL_SESSION_H

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "tools/ybnetctl/outcome.h"

namespace ybnetctl {

// Keys in the order in which they were written: the order is part of what people read.
using json = nlohmann::ordered_json;

class library;

struct session {
    session(std::ostream &standard_output, std::ostream &standard_error)
        : out(standard_output), err(standard_error) {}

    bool json_wanted = false;
    bool dry_run = false;
    bool keep_going = false;
    std::string colour = "auto";    // auto, always, never
    std::vector<std::string> files; // copies of segments, read instead of the live ones
    std::string batch_file;
    unsigned verbosity = 0; // library messages shown on standard error, 0 (none) to 5

    // Of a batch: the line that runs now and the file it is from; 0: no batch. Failures and JSON name them.
    size_t batch_line = 0;
    std::string batch_name;

    std::vector<std::string> words; // of the command that runs now, as they were typed

    std::shared_ptr<library> started_library; // by the first command that needed it (change/library.h)

    std::vector<std::string> notes; // of the command that runs now, see note()

    // What the program ends with after a command that did its work: 1 when an audit has findings, say.
    exit_code ends_with = exit_code::done;

    std::ostream &out; // standard output
    std::ostream &err; // standard error
    bool out_is_terminal = false;
    bool err_is_terminal = false;

    // Whether standard output takes colour: a terminal, unless NO_COLOR is set or the option decides.
    [[nodiscard]] bool colourful() const;
};

// One document and a newline; in a batch one line, {"line": N, "result": document}. Strings that are not UTF-8 are printed with replacement characters, never refused.
void print(session &run, const json &document);

// A failure, where it belongs: {"error": {...}} on standard output when JSON is wanted (in a batch with
// the line's number beside it), else lines on standard error.
void print(session &run, const failure &what);

// A sentence that somebody should know, and that changes nothing of how the command ends, on standard error; in a batch
// with the line's number. Changing commands list it in their document too.
void note(session &run, const std::string &sentence);

// As an object: thing, reason, advice, status, exit_code.
json to_json(const failure &what);

} // namespace ybnetctl

#endif
