// SPDX-License-Identifier: Apache-2.0
//
// See driver_handle.h. Works through the driver access library (platform/ybd.h).
#include "net_lib/driver_handle.h"

#include <cerrno>
#include <cstring>

#include "net_lib/net_lib_log.h"
#include "ybnet/platform/ybd.h"

uint32_t ybd_handle = 0;

yb_status_t __init_ybd_handle() {
    NET_LIB_TRACE_FUNCTION();
    char name[YBD_DEV_NAME_SIZE] = {};
    char *names[1] = {name};
    uint32_t count = 1;
    if (ybd_get_dev_list(names, &count) != 0) {
        const char *const reason = strerror(errno);
        NET_LIB_LOG(YB_LEVEL_ERROR, "ybd_get_dev_list error %s.\n", reason);
        return YB_STATUS_DEVICE_ERROR;
    }
    if (ybd_open_device(names[0], &ybd_handle) != 0) {
        const char *const reason = strerror(errno);
        NET_LIB_LOG(YB_LEVEL_ERROR, "ybd_open_device error %s.\n", reason);
        return YB_STATUS_DEVICE_ERROR;
    }
    ybd_ioctl_cmd_t control = {};
    control.ctrl_cmd = YBD_CTRL_CMD_SET_MULTI_PACKET_ENABLE;
    control.argument = 0;
    if (ybd_ioctl(ybd_handle, &control) != 0) {
        const char *const reason = strerror(errno);
        NET_LIB_LOG(YB_LEVEL_ERROR, "ybd_ioctl (set MULTI_PACKET_ENABLE = FALSE) error %s.\n", reason);
        (void)ybd_close_device(ybd_handle); // the failure already has its message
        return YB_STATUS_DEVICE_ERROR;
    }
    control.ctrl_cmd = YBD_CTRL_CMD_SET_BLOCKING_ENABLE;
    control.argument = 1;
    if (ybd_ioctl(ybd_handle, &control) != 0) {
        const char *const reason = strerror(errno);
        NET_LIB_LOG(YB_LEVEL_ERROR, "ybd_ioctl (set BLOCKING_ENABLE = TRUE) error %s.\n", reason);
        (void)ybd_close_device(ybd_handle); // the failure already has its message
        return YB_STATUS_DEVICE_ERROR;
    }
    return YB_STATUS_SUCCESS;
}

yb_status_t __deinit_ybd_handle() {
    NET_LIB_TRACE_FUNCTION();
    if (ybd_close_device(ybd_handle) != 0) {
        const char *const reason = strerror(errno);
        NET_LIB_LOG(YB_LEVEL_ERROR, "ybd_close_device error: %s\n", reason);
        return YB_STATUS_DEVICE_ERROR;
    }
    return YB_STATUS_SUCCESS;
}
