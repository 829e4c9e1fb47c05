// SPDX-License-Identifier: Apache-2.0
//
// The main of test programs that need the lab: they make and remove netdevs of
// the machine they run on, so they run nowhere else.
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

// What lab/guest/init leaves of a guest: its name, the command it was given, the driver it loaded.
bool in_the_lab() {
    char name[65] = {};
    return gethostname(name, sizeof(name) - 1) == 0 && strcmp(name, "ybnet-lab") == 0 &&
           access("/etc/ybnet-lab/argv", R_OK) == 0 && access("/sys/module/yb_core_sim", R_OK) == 0;
}

} // namespace

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (!testing::GTEST_FLAG(list_tests) && !in_the_lab()) {
        (void)fputs("NOT RUN: this is not the lab (lab/run -- PROGRAM)\n", stderr);
        return 77;
    }
    return RUN_ALL_TESTS();
}
