// SPDX-License-Identifier: Apache-2.0
//
// See tool_answers.h. One file tool_answers holds all answers as lines; newlines
// of an output are escaped.
#include "testkit/tool_answers.h"

#include <fnmatch.h>
#include <sstream>

#include "testkit/directory.h"
#include "testkit/escape.h"

namespace testkit {

namespace {

std::string as_line(const tool_answer &answer) {
    return std::to_string(answer.status) + ' ' + std::to_string(answer.times) + ' ' +
           escaped(answer.pattern) + '\t' + escaped(answer.output) + '\n';
}

bool parse(const std::string &line, tool_answer *answer) {
    std::istringstream fields(line);
    if (!(fields >> answer->status >> answer->times) || fields.get() != ' ')
        return false;
    std::string pattern;
    std::string output;
    std::getline(fields, pattern, '\t');
    std::getline(fields, output);
    answer->pattern = unescaped(pattern);
    answer->output = unescaped(output);
    return true;
}

} // namespace

bool tool_answer_add(const tool_answer &answer) {
    return append_text(path_of("tool_answers"), as_line(answer));
}

bool tool_answer_take(const std::string &line, tool_answer *answer) {
    std::vector<std::string> lines = lines_of(path_of("tool_answers"));
    for (size_t i = lines.size(); i-- > 0;) {
        if (!parse(lines[i], answer) || fnmatch(answer->pattern.c_str(), line.c_str(), 0) != 0)
            continue;
        if (answer->times == 0)
            return true;
        tool_answer left = *answer;
        left.times--;
        std::string rest;
        for (size_t other = 0; other < lines.size(); other++) {
            if (other != i)
                rest += lines[other] + '\n';
            else if (left.times != 0)
                rest += as_line(left);
        }
        (void)write_text(path_of("tool_answers"), rest);
        return true;
    }
    return false;
}

bool tool_script_set(const std::string &tool, const std::string &shell_text) {
    return write_text(path_of("scripts/") + tool, shell_text);
}

std::string tool_script(const std::string &tool) {
    return read_text(path_of("scripts/") + tool);
}

bool tool_run_record(const std::string &line) {
    return append_text(path_of("runs"), escaped(line) + "\n");
}

std::vector<std::string> tool_runs() {
    std::vector<std::string> runs;
    for (const std::string &line : lines_of(path_of("runs")))
        runs.push_back(unescaped(line));
    return runs;
}

} // namespace testkit
