// SPDX-License-Identifier: Apache-2.0
//
// The kit's ip and vconfig: one program under both names, found through PATH in
// front of the host's. Records how it was run, then does as it is told.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>
#include <vector>

#include "testkit/directory.h"
#include "testkit/tool_answers.h"
#include "testkit/tool_commands.h"

namespace {

constexpr int not_set_up = 125;

int run_shell(const std::string &text, const std::vector<std::string> &words) {
    std::vector<char *> argv = {const_cast<char *>("sh"), const_cast<char *>("-c"),
                                const_cast<char *>(text.c_str())};
    for (const std::string &word : words)
        argv.push_back(const_cast<char *>(word.c_str()));
    argv.push_back(nullptr);
    execv("/bin/sh", argv.data());
    perror("/bin/sh");
    return not_set_up;
}

} // namespace

int main(int argc, char **argv) {
    if (!testkit::is_active()) {
        (void)fprintf(stderr, "%s: recording tool of ybnet-testkit: %s is not set\n", argv[0],
                      testkit::directory_variable);
        return not_set_up;
    }
    std::vector<std::string> words(argv, argv + argc);
    words[0] = words[0].substr(words[0].rfind('/') + 1);
    std::string line;
    for (const std::string &word : words)
        line += (line.empty() ? "" : " ") + word;
    if (!testkit::tool_run_record(line)) {
        perror(testkit::path_of("runs").c_str());
        return not_set_up;
    }
    if (const std::string script = testkit::tool_script(words[0]); !script.empty()) {
        words[0] = testkit::path_of("scripts/") + words[0]; // $0 is a place where it can keep things
        return run_shell(script, words);
    }

    const testkit::directory_lock lock;
    testkit::tool_answer answer;
    if (testkit::tool_answer_take(line, &answer)) {
        (void)fputs(answer.output.c_str(), stdout);
        return answer.status;
    }
    return testkit::tool_command(words);
}
