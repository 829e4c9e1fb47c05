// SPDX-License-Identifier: Apache-2.0
//
// See recording_platform.h.
#include "testkit/recording_platform.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "testkit/directory.h"
#include "testkit/escape.h"
#include "ybnet/platform/yb_util.h"

namespace {

platform::recording the_recording;
platform::failures the_failures;
uint32_t the_next_handle = 1;
platform::log_hook the_log_hook;
platform::crc_function the_crc_override;

std::string format_text(const char *format, va_list arguments) {
    char text[2048];
    (void)vsnprintf(text, sizeof(text), format, arguments);
    return text;
}

int fail_with(int reason) {
    if (reason == 0)
        return 0;
    errno = reason;
    return -1;
}

// Why a function is to fail, in this process or in all of the test; 0 for not at all.
int reason_for(int in_this_process, const char *name) {
    if (in_this_process != 0 || !testkit::is_active())
        return in_this_process;
    return atoi(testkit::read_text(testkit::path_of("fail/") + name).c_str());
}

void record_call(std::string call) {
    const std::lock_guard guard(platform::recorded_mutex());
    the_recording.calls.push_back(std::move(call));
}

// For the other processes of the test.
void share(const platform::log_line &line) {
    if (testkit::is_active())
        (void)testkit::append_text(testkit::path_of("log"), std::to_string(getpid()) + '\t' +
                                                                std::to_string(line.severity) + '\t' +
                                                                testkit::escaped(line.module) + '\t' +
                                                                testkit::escaped(line.text) + '\n');
}

} // namespace

namespace platform {

std::vector<std::string> recording::texts(uint32_t severity) const {
    std::vector<std::string> found;
    for (const log_line &line : log) {
        if (line.severity == severity)
            found.push_back(line.text);
    }
    return found;
}

size_t recording::count(uint32_t severity, const std::string &text) const {
    size_t found = 0;
    for (const std::string &line : texts(severity))
        found += line == text ? 1 : 0;
    return found;
}

recording &recorded() {
    return the_recording;
}
std::mutex &recorded_mutex() {
    static std::mutex mutex;
    return mutex;
}
failures &fail() {
    return the_failures;
}
uint32_t &next_handle() {
    return the_next_handle;
}
log_hook &on_log() {
    return the_log_hook;
}
crc_function &crc_override() {
    return the_crc_override;
}

void reset() {
    the_recording = {};
    the_failures = {};
    the_next_handle = 1;
    the_log_hook = nullptr;
    the_crc_override = nullptr;
    g_yb_log_module_func_enable = 0;
}

} // namespace platform

extern "C" {

uint32_t g_yb_log_module_func_enable = 0;

int yb_log(uint32_t severity, const char *module, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const platform::log_line line = {severity, module, format, format_text(format, arguments)};
    va_end(arguments);
    if (the_log_hook != nullptr)
        the_log_hook(line);
    share(line);
    const std::lock_guard guard(platform::recorded_mutex());
    the_recording.log.push_back(line);
    errno = EXDEV; // a log that spoils errno: callers must have kept theirs
    return 0;
}

int yb_trace_cbuff_log(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string text = format_text(format, arguments);
    va_end(arguments);
    const std::lock_guard guard(platform::recorded_mutex());
    the_recording.trace.push_back(text);
    the_recording.trace_formats.emplace_back(format);
    return 0;
}

int yb_log_init(uint32_t arg0, uint32_t arg1, yb_log_cb_t callback) {
    record_call("yb_log_init");
    the_recording.log_init_args[0] = arg0;
    the_recording.log_init_args[1] = arg1;
    the_recording.log_callback = callback;
    return 0;
}

int yb_log_close(void) {
    record_call("yb_log_close");
    return 0;
}

const char *yb_access_cmd_str(uint32_t cmd) {
    switch (cmd) {
    case 1:
        return "ADD";
    case 2:
        return "EDIT";
    case 3:
        return "DELETE";
    case 4:
        return "DELETE_ALL";
    case 12:
        return "CREATE";
    case 13:
        return "DESTROY";
    case 15:
        return "SET";
    case 16:
        return "UNSET";
    case 17:
        return "GET";
    default:
        return "UNKNOWN";
    }
}

const char *yb_router_interface_type_str(uint32_t type) {
    switch (type) {
    case 0:
        return "VLAN";
    case 1:
        return "PORT_VLAN";
    case 2:
        return "PORT";
    case 3:
        return "PKEY";
    case 6:
        return "LOOPBACK";
    default:
        return "UNKNOWN";
    }
}

uint16_t crc_16(void *work_area, const uint8_t *data, uint32_t length, uint16_t parameter) {
    if (the_crc_override != nullptr)
        return the_crc_override(work_area, data, length, parameter);
    uint32_t crc = 0;
    for (uint32_t i = 0; i < length; i++) {
        crc ^= static_cast<uint32_t>(data[i]) << 8;
        for (int bit = 0; bit < 8; bit++)
            crc = ((crc & 0x8000u) != 0 ? (crc << 1) ^ parameter : crc << 1) & 0xFFFFu;
    }
    return static_cast<uint16_t>(crc);
}

int ybd_get_dev_list(char **names, uint32_t *count) {
    record_call("ybd_get_dev_list");
    the_recording.dev_list_room = *count;
    if (const int reason = reason_for(the_failures.get_dev_list, "get_dev_list"); reason != 0)
        return fail_with(reason);
    if (*count == 0)
        return fail_with(EINVAL);
    (void)snprintf(names[0], YBD_DEV_NAME_SIZE, "recorded0");
    *count = 1;
    return 0;
}

int ybd_open_device(const char *name, uint32_t *handle) {
    record_call(std::string("ybd_open_device ") + name);
    if (const int reason = reason_for(the_failures.open_device, "open_device"); reason != 0)
        return fail_with(reason);
    *handle = the_next_handle++;
    return 0;
}

int ybd_ioctl(uint32_t handle, void *control_record) {
    record_call("ybd_ioctl");
    platform::control call = {handle, {}, {}};
    memcpy(&call.record, control_record, sizeof(call.record));
    int reason = reason_for(the_failures.ioctl_vid2ip, "ioctl_vid2ip");
    if (call.record.ctrl_cmd == YBD_CTRL_CMD_VID2IP_SET)
        memcpy(call.words, reinterpret_cast<const void *>(call.record.argument), sizeof(call.words));
    if (call.record.ctrl_cmd == YBD_CTRL_CMD_SET_MULTI_PACKET_ENABLE)
        reason = reason_for(the_failures.ioctl_multi_packet, "ioctl_multi_packet");
    if (call.record.ctrl_cmd == YBD_CTRL_CMD_SET_BLOCKING_ENABLE)
        reason = reason_for(the_failures.ioctl_blocking, "ioctl_blocking");
    const std::lock_guard guard(platform::recorded_mutex());
    the_recording.controls.push_back(call);
    return fail_with(reason);
}

int ybd_close_device(uint32_t handle) {
    record_call("ybd_close_device");
    {
        const std::lock_guard guard(platform::recorded_mutex());
        the_recording.closed_handles.push_back(handle);
    }
    if (const int reason = reason_for(the_failures.close_device, "close_device"); reason != 0)
        return fail_with(reason);
    return handle == 0 ? fail_with(EBADF) : 0;
}

} // extern "C"
