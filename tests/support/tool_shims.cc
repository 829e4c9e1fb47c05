// SPDX-License-Identifier: Apache-2.0
//
// See tool_shims.h.
#include "tests/support/tool_shims.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

tool_shims::tool_shims() : old_path_(getenv("PATH") != nullptr ? getenv("PATH") : "") {
    char pattern[] = "/tmp/ybnet-shims-XXXXXX";
    const char *const made = mkdtemp(pattern);
    if (made == nullptr) {
        perror("mkdtemp");
        abort();
    }
    directory_ = made;
    for (const char *const tool : {"ip", "vconfig"})
        replace(tool, "PATH='" + old_path_ + "' exec " + tool + " \"$@\"");
    (void)setenv("PATH", (directory_ + ":" + old_path_).c_str(), 1);
}

tool_shims::~tool_shims() {
    (void)setenv("PATH", old_path_.c_str(), 1);
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
}

void tool_shims::replace(const std::string &tool, const std::string &shell_text) {
    const std::string path = directory_ + "/" + tool;
    {
        std::ofstream script(path);
        script << "#!/bin/sh\necho \"" << tool << " $*\" >> " << directory_ << "/runs\n"
               << shell_text << "\n";
    }
    fs::permissions(path, fs::perms::owner_all);
}

std::vector<std::string> tool_shims::runs() const {
    std::vector<std::string> lines;
    std::ifstream file(directory_ + "/runs");
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

stderr_capture::stderr_capture()
    : file_(memfd_create("stderr", MFD_CLOEXEC)), saved_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
    (void)fflush(stderr);
    if (file_ < 0 || saved_ < 0 || dup2(file_, STDERR_FILENO) < 0)
        abort();
}

stderr_capture::~stderr_capture() {
    (void)fflush(stderr);
    (void)dup2(saved_, STDERR_FILENO);
    close(saved_);
    close(file_);
}

std::string stderr_capture::text() {
    (void)fflush(stderr);
    std::string all;
    char part[1024];
    for (off_t at = 0;;) {
        const ssize_t size = pread(file_, part, sizeof(part), at);
        if (size <= 0)
            return all;
        all.append(part, static_cast<size_t>(size));
        at += size;
    }
}

std::string output_of(const std::string &command) {
    FILE *const output = popen((command + " 2>&1").c_str(), "r");
    if (output == nullptr)
        return "";
    std::string all;
    char part[1024];
    while (fgets(part, sizeof(part), output) != nullptr)
        all += part;
    (void)pclose(output);
    if (!all.empty() && all.back() == '\n')
        all.pop_back();
    return all;
}
