// SPDX-License-Identifier: Apache-2.0
//
// Texts of the stack's numbers, for messages. The numbers themselves are in
// yb_access_cmd.h and yb_net_interface.h.
#include "ybnet/platform/yb_util.h"

#include "platform/export.h"
#include "ybnet/yb_access_cmd.h"
#include "ybnet/yb_net_interface.h"

YB_PLATFORM_EXPORT const char *yb_access_cmd_str(uint32_t cmd) {
    switch (cmd) {
    case YB_ACCESS_CMD_ADD:
        return "ADD";
    case YB_ACCESS_CMD_EDIT:
        return "EDIT";
    case YB_ACCESS_CMD_DELETE:
        return "DELETE";
    case YB_ACCESS_CMD_DELETE_ALL:
        return "DELETE_ALL";
    case YB_ACCESS_CMD_CREATE:
        return "CREATE";
    case YB_ACCESS_CMD_DESTROY:
        return "DESTROY";
    case YB_ACCESS_CMD_SET:
        return "SET";
    case YB_ACCESS_CMD_UNSET:
        return "UNSET";
    case YB_ACCESS_CMD_GET:
        return "GET";
    default:
        return "UNKNOWN";
    }
}

YB_PLATFORM_EXPORT const char *yb_router_interface_type_str(uint32_t type) {
    switch (type) {
    case YB_L2_INTERFACE_TYPE_VLAN:
        return "VLAN";
    case YB_L2_INTERFACE_TYPE_PORT_VLAN:
        return "PORT_VLAN";
    case YB_L2_INTERFACE_TYPE_PORT:
        return "PORT";
    case YB_L2_INTERFACE_TYPE_PKEY:
        return "PKEY";
    case YB_L2_INTERFACE_TYPE_LOOPBACK:
        return "LOOPBACK";
    default:
        return "UNKNOWN";
    }
}
