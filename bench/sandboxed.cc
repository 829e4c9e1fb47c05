// SPDX-License-Identifier: Apache-2.0
//
// See sandboxed.h.
#include "bench/sandboxed.h"

#include <cstdio>

#include "tests/support/sandbox.h"

bool sandboxed() {
    const std::string problem = sandbox_enter();
    if (!problem.empty())
        (void)fprintf(stderr, "no namespaces of its own for the benchmark: %s\n", problem.c_str());
    return problem.empty();
}
