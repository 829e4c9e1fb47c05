// SPDX-License-Identifier: Apache-2.0
//
// The platform's functions at no cost, so that only the library is measured.
#include <cstring>

#include "ybnet/platform/yb_log.h"
#include "ybnet/platform/yb_util.h"
#include "ybnet/platform/ybd.h"

extern "C" {

uint32_t g_yb_log_module_func_enable = 0;

int yb_log(uint32_t, const char *, const char *, ...) {
    return 0;
}
int yb_trace_cbuff_log(const char *, ...) {
    return 0;
}
int yb_log_init(uint32_t, uint32_t, yb_log_cb_t) {
    return 0;
}
int yb_log_close(void) {
    return 0;
}
const char *yb_access_cmd_str(uint32_t) {
    return "";
}
const char *yb_router_interface_type_str(uint32_t) {
    return "";
}

// Cheap and even, so that the table is measured and not the checksum.
uint16_t crc_16(void *, const uint8_t *data, uint32_t, uint16_t parameter) {
    uint32_t key;
    memcpy(&key, data, sizeof(key));
    return static_cast<uint16_t>((key * 2654435761u >> 16) ^ parameter);
}

int ybd_get_dev_list(char **, uint32_t *) {
    return 0;
}
int ybd_open_device(const char *, uint32_t *handle) {
    *handle = 1;
    return 0;
}
int ybd_ioctl(uint32_t, void *) {
    return 0;
}
int ybd_close_device(uint32_t) {
    return 0;
}

} // extern "C"
