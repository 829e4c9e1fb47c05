/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A platform that is not the reference one, to show that it can be replaced: one library for each of the macros
 * libyb_log, libyb_util and libybd.
 */
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>

#include <ybnet/platform/yb_log.h>
#include <ybnet/platform/yb_util.h>
#include <ybnet/platform/ybd.h>

#ifdef libyb_log
uint32_t g_yb_log_module_func_enable;

int yb_log(uint32_t severity, const char *module, const char *format, ...) {
    va_list arguments;

    printf("the stack logs: %s %u ", module, severity);
    va_start(arguments, format);
    vprintf(format, arguments);
    va_end(arguments);
    printf("\n");
    return 0;
}

int yb_trace_cbuff_log(const char *format, ...) {
    (void)format;
    return 0;
}

int yb_log_init(uint32_t arg0, uint32_t arg1, yb_log_cb_t callback) {
    (void)arg0, (void)arg1, (void)callback;
    return 0;
}

int yb_log_close(void) {
    return 0;
}
#endif

#ifdef libyb_util
const char *yb_access_cmd_str(uint32_t cmd) {
    (void)cmd;
    return "command";
}

const char *yb_router_interface_type_str(uint32_t type) {
    (void)type;
    return "type";
}

uint16_t crc_16(void *work_area, const uint8_t *data, uint32_t length, uint16_t parameter) {
    uint16_t sum = parameter;

    (void)work_area;
    while (length-- > 0)
        sum = (uint16_t)(sum * 31u + *data++);
    return sum;
}
#endif

#ifdef libybd
int ybd_get_dev_list(char **names, uint32_t *count) {
    snprintf(names[0], YBD_DEV_NAME_SIZE, "stack0");
    *count = 1;
    return 0;
}

int ybd_open_device(const char *name, uint32_t *handle) {
    (void)name;
    *handle = 1;
    return 0;
}

int ybd_ioctl(uint32_t handle, void *control_record) {
    (void)handle, (void)control_record;
    return 0;
}

int ybd_close_device(uint32_t handle) {
    (void)handle;
    return 0;
}
#endif
