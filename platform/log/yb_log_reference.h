/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What this logging library offers beyond yb_log.h. The switch stack's own
 * library need not have it, so libybnet does not use it; tools and tests that
 * bring this library may.
 */
#ifndef YB_LOG_REFERENCE_H
#define YB_LOG_REFERENCE_H

#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The trace buffer keeps this many lines, the last ones. */
#define YB_TRACE_CBUFF_LINES 1024

/*
 * Writes the trace buffer's lines, oldest first, each with its time, and
 * flushes. Returns 0; or -1, errno says why: EINVAL when to is NULL, else what
 * writing failed with.
 */
int yb_trace_cbuff_dump(FILE *to);

/* Forgets the trace buffer's lines. Returns 0; -1 (ENOMEM) when that failed. */
int yb_trace_cbuff_clear(void);

#ifdef __cplusplus
}
#endif

#endif
