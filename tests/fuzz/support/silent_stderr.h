// SPDX-License-Identifier: Apache-2.0
//
// What the request layer says on standard error, a line for every broken datagram, is formatted and dropped.
// The fuzzer and the sanitizers write to the descriptor or kept the stream, and are heard.
#ifndef YBNET_TESTS_FUZZ_SILENT_STDERR_H
#define YBNET_TESTS_FUZZ_SILENT_STDERR_H

#include <cstdio>

#include "tests/fuzz/support/check.h"

namespace fuzz {

inline void silence_stderr() {
    cookie_io_functions_t functions = {};
    functions.write = [](void *, const char *, size_t size) { return static_cast<ssize_t>(size); };
    FILE *const silent = fopencookie(nullptr, "w", functions);
    FUZZ_CHECK(silent != nullptr);
    stderr = silent;
}

} // namespace fuzz

#endif
