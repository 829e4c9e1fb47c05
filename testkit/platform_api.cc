// SPDX-License-Identifier: Apache-2.0
//
// The C view of what recording_platform.h records. See ybnet/testkit/platform.h.
#include "ybnet/testkit/platform.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <unistd.h>

#include "testkit/directory.h"
#include "testkit/escape.h"
#include "testkit/export.h"
#include "testkit/recording_platform.h"

namespace {

using namespace testkit;

ybtk_log_hook_t the_hook = nullptr;
void *the_hook_data = nullptr;

ybtk_log_line_t view_of(const platform::log_line &line) {
    return {line.severity, line.module.c_str(), line.format.c_str(), line.text.c_str()};
}

void call_hook(const platform::log_line &line) {
    const ybtk_log_line_t view = view_of(line);
    the_hook(&view, the_hook_data);
}

// A copy for this thread: what other threads record meanwhile does not move it.
const char *text_number(const std::vector<std::string> &texts, size_t index, std::string *copy) {
    const std::lock_guard guard(platform::recorded_mutex());
    if (index >= texts.size())
        return nullptr;
    *copy = texts[index];
    return copy->c_str();
}

template <typename list_t> size_t size_of(const list_t &list) {
    const std::lock_guard guard(platform::recorded_mutex());
    return list.size();
}

const char *failure_name(ybtk_platform_function_t function) {
    switch (function) {
    case YBTK_YBD_GET_DEV_LIST:
        return "get_dev_list";
    case YBTK_YBD_OPEN_DEVICE:
        return "open_device";
    case YBTK_YBD_IOCTL_MULTI_PACKET:
        return "ioctl_multi_packet";
    case YBTK_YBD_IOCTL_BLOCKING:
        return "ioctl_blocking";
    case YBTK_YBD_IOCTL_VID2IP:
        return "ioctl_vid2ip";
    case YBTK_YBD_CLOSE_DEVICE:
        return "close_device";
    }
    return nullptr;
}

} // namespace

size_t ybtk_log_count(void) {
    return size_of(platform::recorded().log);
}

int ybtk_log_get(size_t index, ybtk_log_line_t *out) {
    thread_local platform::log_line copy;
    const std::lock_guard guard(platform::recorded_mutex());
    if (index >= platform::recorded().log.size())
        return result_of(ERANGE);
    copy = platform::recorded().log[index];
    *out = view_of(copy);
    return 0;
}

size_t ybtk_log_matches(uint32_t severity, const char *text) {
    const std::lock_guard guard(platform::recorded_mutex());
    size_t found = 0;
    for (const platform::log_line &line : platform::recorded().log)
        found += (severity == 0 || line.severity == severity) && line.text == text ? 1 : 0;
    return found;
}

size_t ybtk_trace_count(void) {
    return size_of(platform::recorded().trace);
}

const char *ybtk_trace_get(size_t index) {
    thread_local std::string copy;
    return text_number(platform::recorded().trace, index, &copy);
}

int ybtk_wait_for_log(const char *text, unsigned limit_ms) {
    const auto is_there = [text]() {
        for (const std::string &line : lines_of(path_of("log"))) {
            const size_t last = line.rfind('\t');
            if (last != std::string::npos && unescaped(line.substr(last + 1)).find(text) != std::string::npos)
                return true;
        }
        return false;
    };
    return wait_until(is_there, limit_ms);
}

void ybtk_log_hook(ybtk_log_hook_t hook, void *data) {
    the_hook = hook;
    the_hook_data = data;
    platform::on_log() = hook == nullptr ? nullptr : call_hook;
}

int ybtk_platform_fail(ybtk_platform_function_t function, int reason) {
    const char *const name = failure_name(function);
    if (name == nullptr || reason < 0)
        return result_of(EINVAL);
    return result_of_write(write_text(path_of("fail/") + name, std::to_string(reason) + "\n"));
}

size_t ybtk_call_count(void) {
    return size_of(platform::recorded().calls);
}

const char *ybtk_call_get(size_t index) {
    thread_local std::string copy;
    return text_number(platform::recorded().calls, index, &copy);
}

size_t ybtk_control_count(void) {
    return size_of(platform::recorded().controls);
}

int ybtk_control_get(size_t index, ybtk_control_t *out) {
    const std::lock_guard guard(platform::recorded_mutex());
    if (index >= platform::recorded().controls.size())
        return result_of(ERANGE);
    const platform::control &call = platform::recorded().controls[index];
    out->handle = call.handle;
    out->record = call.record;
    std::copy(std::begin(call.words), std::end(call.words), std::begin(out->words));
    return 0;
}

size_t ybtk_driver_file_text(char *text, size_t size) {
    const std::string all = read_text(path_of("driver/yb_core"));
    if (size != 0)
        text[all.copy(text, size - 1)] = '\0';
    return all.size();
}

int ybtk_driver_file_present(int present) {
    const std::string path = path_of("driver");
    const directory_lock lock;
    // The file is opened for appending, which makes it: its directory must go too.
    if (present != 0)
        return result_of(directory_fill(directory()));
    if (unlink((path + "/yb_core").c_str()) != 0 && errno != ENOENT)
        return -1;
    return rmdir(path.c_str()) != 0 && errno != ENOENT ? -1 : 0;
}

void ybtk_crc_set(ybtk_crc_t function) {
    platform::crc_override() = function;
}
