// SPDX-License-Identifier: Apache-2.0
//
// The assertion report of the shared-memory and lock routines: it tells what
// precondition failed and who called, and never stops the process.
#ifndef YBNET_COMPLIB_CL_ASSERT_H
#define YBNET_COMPLIB_CL_ASSERT_H

#include <cstdint>

// Logs the place and a backtrace of at most 20 frames under "TRACE_CBUFF", whatever the verbosity. May
// allocate (backtrace_symbols(3)): a failed assertion is no request path.
void cl_assert_report(const char *header, int32_t line, const char *routine);

// Reports a failed condition and yields it, so that a routine can step around what cannot be carried on.
#define CL_ASSERT(condition, header) ((condition) || (cl_assert_report(header, __LINE__, __func__), false))

#endif
