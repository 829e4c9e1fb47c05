/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The logging library of the switch stack, as libybnet calls it.
 *
 * libybnet defines none of these: they stay undefined symbols that whatever
 * logging library the process brings must provide. platform/log is a
 * reference implementation for hosts without a switch stack.
 */
#ifndef YBNET_PLATFORM_YB_LOG_H
#define YBNET_PLATFORM_YB_LOG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
/* Lets the compiler hold arguments against their format, where it can. */
#define YB_PRINTF_LIKE(format_index, first_arg) __attribute__((format(printf, format_index, first_arg)))
#else
/* Nothing, for a compiler without the attribute. */
#define YB_PRINTF_LIKE(format_index, first_arg)
#endif

/*
 * Receives every log line of the process when handed to yb_log_init().
 * severity: the cumulative level mask given to yb_log(); module: the module
 * name given to yb_log(); message: the formatted text. Both strings belong to
 * the logging library and are valid during the call only.
 */
typedef void (*yb_log_cb_t)(uint32_t severity, const char *module, const char *message);

/*
 * Writes one line.
 * severity: the mask of all levels up to the line's own: 1 ERROR, 3 WARN,
 * 7 NOTICE, 15 INFO, 31 DEBUG. module: who writes, "YB_NET_LIB" or
 * "TRACE_CBUFF". format and what follows: as printf(3).
 * The result is ignored by libybnet. Called with a segment lock held in a few
 * places (each header says where; assertion reports too), so it must not call
 * back into libybnet.
 */
int yb_log(uint32_t severity, const char *module, const char *format, ...) YB_PRINTF_LIKE(3, 4);

/* Appends one line to the process's trace buffer; the result is ignored. */
int yb_trace_cbuff_log(const char *format, ...) YB_PRINTF_LIKE(1, 2);

/*
 * Starts logging. libybnet passes 1, 0 and the caller's callback, which may
 * be NULL, once for each start of a half (interfaces, ports), so twice in a
 * process that starts both; yb_log_close() once for each stop of a half. After
 * failed or repeated starts the two counts may differ in either direction, and
 * lines may come before the first start and after the last stop.
 */
int yb_log_init(uint32_t arg0, uint32_t arg1, yb_log_cb_t callback);
int yb_log_close(void);

/* Non-zero: libybnet's functions write "entered" and "left" trace lines. */
extern uint32_t g_yb_log_module_func_enable;

#ifdef __cplusplus
}
#endif

#endif
