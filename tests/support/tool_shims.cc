// SPDX-License-Identifier: Apache-2.0
//
// See tool_shims.h. The recording tools are the test kit's.
#include "tests/support/tool_shims.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "testkit/directory.h"
#include "testkit/tool_answers.h"

namespace fs = std::filesystem;

namespace {

// "" for a variable that is not set.
std::string variable(const char *name) {
    const char *const value = getenv(name);
    return value == nullptr ? "" : value;
}

void restore(const char *name, const std::string &value) {
    if (value.empty())
        (void)unsetenv(name);
    else
        (void)setenv(name, value.c_str(), 1);
}

} // namespace

tool_shims::tool_shims()
    : old_directory_(variable(testkit::directory_variable)), old_path_(variable("PATH")) {
    char pattern[] = "/tmp/ybnet-shims-XXXXXX";
    const char *const made = mkdtemp(pattern);
    const std::string tools = testkit::tools_directory();
    if (made == nullptr || testkit::directory_fill(made) != 0 || tools.empty()) {
        (void)fprintf(stderr, "tool_shims: no directory, or no tools in \"%s\"\n", tools.c_str());
        abort();
    }
    directory_ = made;
    (void)setenv(testkit::directory_variable, made, 1);
    for (const char *const tool : {"ip", "vconfig"})
        replace(tool, "PATH='" + old_path_ + "' exec " + tool + " \"$@\"");
    (void)setenv("PATH", (tools + ":" + old_path_).c_str(), 1);
}

tool_shims::~tool_shims() {
    restore("PATH", old_path_);
    restore(testkit::directory_variable, old_directory_);
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
}

void tool_shims::replace(const std::string &tool, const std::string &shell_text) {
    if (!testkit::tool_script_set(tool, shell_text))
        abort();
}

std::vector<std::string> tool_shims::runs() const {
    return testkit::tool_runs();
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
