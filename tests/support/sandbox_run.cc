// SPDX-License-Identifier: Apache-2.0
//
// Runs a program in the sandbox of sandbox.h, for tests that are not written in
// C++. Exits with 77 when there can be none, else as the program does.
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

#include "tests/support/sandbox.h"

int main(int argc, char **argv) {
    if (argc < 2) {
        (void)fputs("usage: sandbox_run PROGRAM ARGUMENTS...\n", stderr);
        return 2;
    }
    const std::string problem = sandbox_enter();
    if (!problem.empty()) {
        (void)fprintf(stderr, "NOT RUN: no namespaces of its own for the test (%s)\n", problem.c_str());
        return 77;
    }
    (void)setenv("YBNET_SANDBOX", "1", 1);
    execvp(argv[1], argv + 1);
    perror(argv[1]);
    return 127;
}
