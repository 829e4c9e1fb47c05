// SPDX-License-Identifier: Apache-2.0
//
// The built ybnetctl, run as a user runs it: what it printed and how it ended.
#ifndef YBNET_TESTS_YBNETCTL_TOOL_H
#define YBNET_TESTS_YBNETCTL_TOOL_H

#include <string>
#include <sys/types.h>
#include <vector>

struct tool_result {
    int code = -1; // the exit code; 128 + number when a signal ended it
    std::string out;
    std::string err;
};

// Runs a program, found through PATH unless words[0] has a slash, to its end. Its standard input is empty or has
// the text given; variables ("NO_COLOR=1") are added to the environment.
tool_result run_program(const std::vector<std::string> &words, const std::vector<std::string> &variables = {},
                        const std::string &input = "");

// Runs ybnetctl with these words.
tool_result run_tool(std::vector<std::string> words, const std::vector<std::string> &variables = {},
                     const std::string &input = "");

// The same on a terminal of its own: everything that it showed, in out.
tool_result run_tool_on_terminal(const std::string &arguments,
                                 const std::vector<std::string> &variables = {});

// Lines without their newlines.
std::vector<std::string> lines_of(const std::string &text);

// All of a file.
std::string contents_of(const std::string &path);

#endif
