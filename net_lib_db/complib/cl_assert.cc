// SPDX-License-Identifier: Apache-2.0
//
// See cl_assert.h. Written against execinfo.h (backtrace(3)).
#include "net_lib_db/complib/cl_assert.h"

#include <cstdlib>
#include <execinfo.h>

#include "ybnet/platform/yb_log.h"

namespace {

constexpr uint32_t severity = 1;
constexpr const char *module_name = "TRACE_CBUFF";
constexpr int frames_max = 20;

} // namespace

void cl_assert_report(const char *header, int32_t line, const char *routine) {
    (void)yb_log(severity, module_name, "ASSERT in %s[%d]- %s\n", header, line, routine);

    void *frames[frames_max];
    const size_t count = static_cast<size_t>(backtrace(frames, frames_max));
    char **symbols = backtrace_symbols(frames, static_cast<int>(count));
    (void)yb_log(severity, module_name, "ASSERT - Retrieved a list of %zd elements.\n", count);
    if (symbols == nullptr)
        return; // no memory for the names: the count and the place have been told
    for (size_t i = 0; i < count; i++)
        (void)yb_log(severity, module_name, "ASSERT - Element %zd: %s.\n", i, symbols[i]);
    free(symbols);
}
