/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The platform's functions (ybnet/platform/) as the kit defines them: they record
 * what they are told and fail when a test says so.
 *
 *  - yb_log() and yb_trace_cbuff_log() record their lines. yb_log() leaves a
 *    strange errno behind, as a real one may: callers must have kept theirs.
 *  - yb_log_init() records the callback and does not call it.
 *  - ybd_get_dev_list() lists the one device "recorded0"; handles count up from 1.
 *  - crc_16() is the CRC-16 whose polynomial is its parameter.
 *
 * What is recorded belongs to the process. Log lines of all processes of a test
 * are in its directory as well; failures hold for all its processes.
 */
#ifndef YBNET_TESTKIT_PLATFORM_H
#define YBNET_TESTKIT_PLATFORM_H

#include <stddef.h>
#include <stdint.h>

#include "ybnet/platform/yb_log.h"
#include "ybnet/platform/ybd.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Log ---------------------------------------------------------------- */

/* One call of yb_log(). The strings are valid until the thread's next ybtk_log_get(). */
typedef struct ybtk_log_line {
    uint32_t severity; /* 1 ERROR, 3 WARN, 7 NOTICE, 15 INFO, 31 DEBUG */
    const char *module;
    const char *format; /* as passed */
    const char *text;   /* formatted */
} ybtk_log_line_t;

/* Lines of this process so far; line number index, ERANGE when there is none. */
size_t ybtk_log_count(void);
int ybtk_log_get(size_t index, ybtk_log_line_t *out);

/* How many of them have exactly this text, at this severity (0: any). */
size_t ybtk_log_matches(uint32_t severity, const char *text);

/* The same for lines of yb_trace_cbuff_log(); NULL when there is none. */
size_t ybtk_trace_count(void);
const char *ybtk_trace_get(size_t index);

/*
 * Waits until any process of the test has logged a line, new since the last
 * ybtk_reset(), that contains text. ETIMEDOUT after limit_ms milliseconds.
 */
int ybtk_wait_for_log(const char *text, unsigned limit_ms);

/* Called inside yb_log() before the line is recorded, in the thread that logs; NULL: nothing is. */
typedef void (*ybtk_log_hook_t)(const ybtk_log_line_t *line, void *data);
void ybtk_log_hook(ybtk_log_hook_t hook, void *data);

/* ---- Driver access and the rest ----------------------------------------- */

/* What can be made to fail: a function, or ybd_ioctl() with one control command. */
typedef enum ybtk_platform_function {
    YBTK_YBD_GET_DEV_LIST,
    YBTK_YBD_OPEN_DEVICE,
    YBTK_YBD_IOCTL_MULTI_PACKET,
    YBTK_YBD_IOCTL_BLOCKING,
    YBTK_YBD_IOCTL_VID2IP,
    YBTK_YBD_CLOSE_DEVICE
} ybtk_platform_function_t;

/* From now on it fails with this errno, in every process of the test; 0: it succeeds again. */
int ybtk_platform_fail(ybtk_platform_function_t function, int reason);

/* Calls of this process, all but those that log: "yb_log_init", "ybd_open_device recorded0". NULL: none. */
size_t ybtk_call_count(void);
const char *ybtk_call_get(size_t index);

/* One call of ybd_ioctl(). */
typedef struct ybtk_control {
    uint32_t handle;
    ybd_ioctl_cmd_t record;
    int32_t words[3]; /* what the argument of YBD_CTRL_CMD_VID2IP_SET points to */
} ybtk_control_t;
size_t ybtk_control_count(void);
int ybtk_control_get(size_t index, ybtk_control_t *out);

/*
 * The driver's command file /proc/qrn_yb/yb_core: what all processes have written
 * to it, commands one behind the other as they came. Returns the length; at most
 * size - 1 bytes are copied, with a NUL. Absent, it cannot be opened (ENOENT).
 */
size_t ybtk_driver_file_text(char *text, size_t size);
int ybtk_driver_file_present(int present);

/* crc_16() returns what this returns, in this process; NULL: the CRC again. */
typedef uint16_t (*ybtk_crc_t)(void *work_area, const uint8_t *data, uint32_t length, uint16_t parameter);
void ybtk_crc_set(ybtk_crc_t function);

#ifdef __cplusplus
}
#endif

#endif
