/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Access commands of the switch stack. The numbers are the stack's and never
 * change; each function says which of them it accepts.
 */
#ifndef YBNET_YB_ACCESS_CMD_H
#define YBNET_YB_ACCESS_CMD_H

#include <stdint.h>

typedef uint32_t yb_access_cmd_t;

enum {
    YB_ACCESS_CMD_ADD = 1,
    YB_ACCESS_CMD_EDIT = 2,
    YB_ACCESS_CMD_DELETE = 3,
    YB_ACCESS_CMD_DELETE_ALL = 4,
    YB_ACCESS_CMD_CREATE = 12,
    YB_ACCESS_CMD_DESTROY = 13,
    YB_ACCESS_CMD_SET = 15,
    YB_ACCESS_CMD_UNSET = 16,
    YB_ACCESS_CMD_GET = 17
};

#endif
