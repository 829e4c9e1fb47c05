// SPDX-License-Identifier: Apache-2.0
//
// The main of ybnetctl's test programs: the sandbox, and in it a PID namespace
// with its own /proc, so that the processes of a test are all that there are and
// every one of them may be looked into.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "tests/support/sandbox.h"

namespace {

int not_run(const char *why) {
    (void)fprintf(stderr, "NOT RUN: no namespaces of its own for the test (%s)\n", why);
    return 77;
}

} // namespace

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (testing::GTEST_FLAG(list_tests))
        return RUN_ALL_TESTS();
    if (const std::string problem = sandbox_enter(); !problem.empty())
        return not_run(problem.c_str());
    if (unshare(CLONE_NEWPID) != 0)
        return not_run(strerror(errno));
    const pid_t tests = fork();
    if (tests == 0) {
        (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (mount("proc", "/proc", "proc", 0, nullptr) != 0)
            return not_run(strerror(errno));
        return RUN_ALL_TESTS();
    }
    int status = 0;
    if (tests < 0 || waitpid(tests, &status, 0) != tests)
        return not_run(strerror(errno));
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
