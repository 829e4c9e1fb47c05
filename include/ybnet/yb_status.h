/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Status codes of the switch stack, as libybnet's functions return them.
 * The numbers are shared with the rest of the stack and never change.
 */
#ifndef YBNET_YB_STATUS_H
#define YBNET_YB_STATUS_H

#include <stdint.h>

/* One of YB_STATUS_*; wide enough for what other libraries of the stack return. */
typedef uint32_t yb_status_t;

/* The codes that this library returns. */
enum {
    YB_STATUS_SUCCESS = 0,               /* done */
    YB_STATUS_ERROR = 1,                 /* foreign segment, failed command or exchange, full port table */
    YB_STATUS_NO_RESOURCES = 5,          /* the interfaces database is full */
    YB_STATUS_NO_MEMORY = 6,             /* a segment could not be made, sized, mapped or given its lock */
    YB_STATUS_CMD_UNSUPPORTED = 10,      /* an access command that the function does not handle */
    YB_STATUS_CMD_INVALID = 11,          /* one that the port-to-LAG binding does not accept */
    YB_STATUS_PARAM_NULL = 12,           /* a required pointer is NULL */
    YB_STATUS_PARAM_ERROR = 13,          /* an argument is invalid */
    YB_STATUS_PARAM_EXCEEDS_RANGE = 14,  /* an argument is out of its range */
    YB_STATUS_DB_NOT_INITIALIZED = 18,   /* not loaded in this process, or never initialised */
    YB_STATUS_ENTRY_NOT_FOUND = 21,      /* no record matches the key */
    YB_STATUS_ENTRY_ALREADY_EXISTS = 22, /* a record with this key exists, or a VRID is already set */
    YB_STATUS_ALREADY_INITIALIZED = 31,  /* loaded again in one process, without the re-initialise flag */
    YB_STATUS_DEVICE_ERROR = 102         /* the driver device could not be listed, opened or configured */
};

#endif
