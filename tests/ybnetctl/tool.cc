// SPDX-License-Identifier: Apache-2.0
//
// See tool.h. What a program prints goes to files in memory, so that no pipe can
// fill up and nobody has to be read from in turn.
#include "tests/ybnetctl/tool.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

int memory_file(const char *name) {
    const int descriptor = memfd_create(name, MFD_CLOEXEC);
    if (descriptor < 0) {
        perror("memfd_create");
        abort();
    }
    return descriptor;
}

std::string take(int descriptor) {
    std::string text;
    char part[65536];
    off_t at = 0;
    for (ssize_t got; (got = pread(descriptor, part, sizeof(part), at)) > 0; at += got)
        text.append(part, static_cast<size_t>(got));
    close(descriptor);
    return text;
}

[[noreturn]] void become(const std::vector<std::string> &words, const std::vector<std::string> &variables) {
    for (const std::string &each : variables)
        (void)putenv(const_cast<char *>(each.c_str())); // this process is about to be another
    std::vector<char *> arguments;
    for (const std::string &word : words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    (void)execvp(arguments[0], arguments.data());
    perror(arguments[0]);
    _exit(127);
}

} // namespace

tool_result run_program(const std::vector<std::string> &words, const std::vector<std::string> &variables,
                        const std::string &input) {
    const int in = memory_file("in");
    const int out = memory_file("out");
    const int err = memory_file("err");
    if (pwrite(in, input.data(), input.size(), 0) != static_cast<ssize_t>(input.size())) {
        perror("pwrite");
        abort();
    }
    (void)fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        if (dup2(in, 0) < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0)
            _exit(126);
        become(words, variables);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) {
        perror("running a program");
        abort();
    }
    close(in);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), take(out), take(err)};
}

tool_result run_tool(std::vector<std::string> words, const std::vector<std::string> &variables,
                     const std::string &input) {
    words.insert(words.begin(), YBNETCTL);
    return run_program(words, variables, input);
}

tool_result run_tool_on_terminal(const std::string &arguments, const std::vector<std::string> &variables) {
    return run_program({"script", "-qec", std::string(YBNETCTL) + ' ' + arguments, "/dev/null"}, variables);
}

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

std::string contents_of(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}
