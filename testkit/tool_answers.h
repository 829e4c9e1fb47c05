// SPDX-License-Identifier: Apache-2.0
//
// What the kit's ip and vconfig were run with, and what they are told to do
// instead of changing the netdev table.
#ifndef YBNET_TESTKIT_TOOL_ANSWERS_H
#define YBNET_TESTKIT_TOOL_ANSWERS_H

#include <string>
#include <vector>

namespace testkit {

struct tool_answer {
    int status = 0;
    unsigned times = 0;  // 0: for ever
    std::string pattern; // fnmatch(3) over the whole line, "ip link add *"
    std::string output;
};

// The latest that matches counts. False, with errno, when it cannot be written.
bool tool_answer_add(const tool_answer &answer);
// Takes one; false when none matches.
bool tool_answer_take(const std::string &line, tool_answer *answer);

// Shell text that a tool runs instead of everything else; "" for none.
bool tool_script_set(const std::string &tool, const std::string &shell_text);
std::string tool_script(const std::string &tool);

// Lines "ip link add ...", in order.
bool tool_run_record(const std::string &line);
std::vector<std::string> tool_runs();

} // namespace testkit

#endif
