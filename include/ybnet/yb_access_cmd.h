/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Access commands of the switch stack. The numbers are the stack's and never
 * change; each function says which of them it accepts.
 */
#ifndef YBNET_YB_ACCESS_CMD_H
#define YBNET_YB_ACCESS_CMD_H

#include <stdint.h>

/* One of YB_ACCESS_CMD_*, or a command that this library does not know. */
typedef uint32_t yb_access_cmd_t;

/* The commands that this library knows. */
enum {
    YB_ACCESS_CMD_ADD = 1,        /* an address alias */
    YB_ACCESS_CMD_EDIT = 2,       /* an interface's VLAN id */
    YB_ACCESS_CMD_DELETE = 3,     /* an address alias */
    YB_ACCESS_CMD_DELETE_ALL = 4, /* interfaces, in bulk */
    YB_ACCESS_CMD_CREATE = 12,    /* an interface or an event socket */
    YB_ACCESS_CMD_DESTROY = 13,   /* an interface, an event socket or a port */
    YB_ACCESS_CMD_SET = 15,       /* a port, a LAG binding or a verbosity */
    YB_ACCESS_CMD_UNSET = 16,     /* a LAG binding */
    YB_ACCESS_CMD_GET = 17        /* a verbosity */
};

#endif
