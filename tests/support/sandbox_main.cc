// SPDX-License-Identifier: Apache-2.0
//
// The main of unit and host test programs: every test runs in the sandbox.
#include <cstdio>
#include <gtest/gtest.h>

#include "tests/support/sandbox.h"

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (!testing::GTEST_FLAG(list_tests)) {
        const std::string problem = sandbox_enter();
        if (!problem.empty()) {
            (void)fprintf(stderr, "NOT RUN: no namespaces of its own for the test (%s)\n", problem.c_str());
            return 77;
        }
    }
    return RUN_ALL_TESTS();
}
