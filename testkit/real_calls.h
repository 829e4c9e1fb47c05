// SPDX-License-Identifier: Apache-2.0
//
// The definition that an interposed function stands in front of.
#ifndef YBNET_TESTKIT_REAL_CALLS_H
#define YBNET_TESTKIT_REAL_CALLS_H

#include <cstdlib>
#include <dlfcn.h>

namespace testkit {

template <typename function_t> function_t *real(const char *name) {
    void *const found = dlsym(RTLD_NEXT, name);
    if (found == nullptr)
        abort();
    return reinterpret_cast<function_t *>(found);
}

} // namespace testkit

// Inside an interposed function: calls the next definition of it.
#define CALL_REAL(function, type, ...)                                                                       \
    ([&]() {                                                                                                 \
        static auto *const next = testkit::real<type>(#function);                                            \
        return next(__VA_ARGS__);                                                                            \
    }())

#endif
