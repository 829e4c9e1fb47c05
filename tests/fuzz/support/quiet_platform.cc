// SPDX-License-Identifier: Apache-2.0
//
// The stack's logging and driver access libraries for the fuzz targets: messages are formatted, which reads
// all their arguments, and dropped. The utility library is the reference platform's own.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "tests/fuzz/support/check.h"
#include "ybnet/platform/yb_log.h"
#include "ybnet/platform/ybd.h"

namespace {

int format_and_drop(const char *format, va_list arguments) {
    static char text[4096];
    const int length = vsnprintf(text, sizeof(text), format, arguments);
    FUZZ_CHECK(length > 0 && static_cast<size_t>(length) < sizeof(text));
    return 0;
}

} // namespace

extern "C" {

uint32_t g_yb_log_module_func_enable = 1;

int yb_log(uint32_t, const char *module, const char *format, ...) {
    FUZZ_CHECK(strcmp(module, "TRACE_CBUFF") != 0); // an assertion of the lock's routines failed
    va_list arguments;
    va_start(arguments, format);
    const int result = format_and_drop(format, arguments);
    va_end(arguments);
    return result;
}

int yb_trace_cbuff_log(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = format_and_drop(format, arguments);
    va_end(arguments);
    return result;
}

int yb_log_init(uint32_t, uint32_t, yb_log_cb_t) {
    return 0;
}
int yb_log_close() {
    return 0;
}

// There is no device.
int ybd_get_dev_list(char **, uint32_t *count) {
    *count = 0;
    return 0;
}
int ybd_open_device(const char *, uint32_t *) {
    errno = ENODEV;
    return -1;
}
int ybd_ioctl(uint32_t, void *) {
    errno = EBADF;
    return -1;
}
int ybd_close_device(uint32_t) {
    errno = EBADF;
    return -1;
}

} // extern "C"
