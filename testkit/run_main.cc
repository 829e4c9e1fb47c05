// SPDX-License-Identifier: Apache-2.0
//
// ybnet-testkit-run: runs a program with libybnet-testkit preloaded and the kit's
// ip and vconfig in front of PATH, in a directory of its own that it removes
// afterwards, or in the test that it inherited (ybnet/testkit/testkit.h).
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "testkit/directory.h"

namespace fs = std::filesystem;

namespace {

constexpr int wrong_usage = 2;
constexpr int not_started = 127;

volatile pid_t child = -1;

void pass_on(int number) {
    if (child > 0)
        (void)kill(child, number);
}

int complain(const std::string &what) {
    (void)fprintf(stderr, "ybnet-testkit-run: %s\n", what.c_str());
    return wrong_usage;
}

// "" when it is missing.
std::string library() {
    std::error_code failed;
    const fs::path here = fs::read_symlink("/proc/self/exe", failed).parent_path();
    for (const char *const place : {YBNET_TESTKIT_LIBRARY_FROM_RUN, "../lib"}) {
        const fs::path found = here / place / "libybnet-testkit.so.1";
        if (fs::exists(found, failed))
            return found.lexically_normal().string();
    }
    return "";
}

void put_in_front(const char *name, const std::string &first) {
    const char *const old = getenv(name);
    const std::string rest = old == nullptr || old[0] == '\0' ? "" : std::string(":") + old;
    if (old == nullptr || (old != first && std::string(old).rfind(first + ":", 0) != 0))
        (void)setenv(name, (first + rest).c_str(), 1);
}

int start(char **words) {
    execvp(words[0], words);
    (void)complain(std::string(words[0]) + ": " + strerror(errno));
    return not_started;
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 2 || argv[1][0] == '-') {
        (void)fputs("usage: ybnet-testkit-run PROGRAM ARGUMENTS...\n", stderr);
        return wrong_usage;
    }
    const std::string preloaded = library();
    const std::string tools = testkit::tools_directory();
    if (preloaded.empty() || tools.empty())
        return complain("the kit's library or its tools are not where they were installed");
    const bool joins = testkit::is_active();
    std::string root = testkit::directory();
    if (!joins && !testkit::directory_make(&root))
        return complain(std::string("no directory for the test: ") + strerror(errno));
    if (const int error = testkit::directory_fill(root); error != 0)
        return complain(root + ": " + strerror(error));
    (void)setenv(testkit::directory_variable, root.c_str(), 1);
    put_in_front("PATH", tools);
    put_in_front("LD_PRELOAD", preloaded);
    if (joins)
        return start(argv + 1);

    struct sigaction action = {};
    action.sa_handler = pass_on;
    // Blocked until there is a child to pass them on to.
    sigset_t passed;
    sigset_t before;
    (void)sigemptyset(&passed);
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGQUIT}) {
        (void)sigaddset(&passed, number);
        (void)sigaction(number, &action, nullptr);
    }
    (void)sigprocmask(SIG_BLOCK, &passed, &before);
    child = fork();
    if (child == 0) {
        for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGQUIT})
            (void)signal(number, SIG_DFL);
        (void)sigprocmask(SIG_SETMASK, &before, nullptr);
        _exit(start(argv + 1));
    }
    (void)sigprocmask(SIG_SETMASK, &before, nullptr);
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR)
        continue;
    std::error_code ignored;
    fs::remove_all(root, ignored);
    if (child < 0)
        return complain(std::string("fork: ") + strerror(errno));
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
