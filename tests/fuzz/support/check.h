// SPDX-License-Identifier: Apache-2.0
//
// What a fuzz target demands beyond what the sanitizers see: a broken demand is said on descriptor 2 and ends
// the program as a crash does, so that the input is kept.
#ifndef YBNET_TESTS_FUZZ_CHECK_H
#define YBNET_TESTS_FUZZ_CHECK_H

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <unistd.h>

#include "ybnet/yb_status.h"

namespace fuzz {

[[noreturn]] inline void check_failed(const char *condition, const char *file, int line) {
    (void)dprintf(STDERR_FILENO, "%s:%d: not so: %s\n", file, line,
                  condition); // stderr may be silent_stderr.h's
    abort();
}

// Whether a function returned a status that its documentation names.
inline bool is_one_of(yb_status_t status, std::initializer_list<yb_status_t> documented) {
    return std::find(documented.begin(), documented.end(), status) != documented.end();
}

} // namespace fuzz

#define FUZZ_CHECK(condition)                                                                                \
    ((condition) ? static_cast<void>(0) : fuzz::check_failed(#condition, __FILE__, __LINE__))

#endif
