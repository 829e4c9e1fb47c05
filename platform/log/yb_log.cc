// SPDX-License-Identifier: Apache-2.0
//
// The process's log lines: to the callback that yb_log_init() was given, else
// to standard error and syslog. trace_ring.cc has the trace buffer.
#include "ybnet/platform/yb_log.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <syslog.h>

#include <spdlog/sinks/stdout_sinks.h>

#include "platform/export.h"
#include "platform/log/log_line.h"

namespace log_internal = yb_log_internal;

namespace {

uint32_t function_trace_wanted() noexcept {
    const char *const value = getenv("YB_LOG_FUNC_TRACE");
    return value != nullptr && strcmp(value, "1") == 0 ? 1 : 0;
}

std::mutex init_mutex; // the count, and the callback together with it
uint32_t init_count = 0;
// Read without the mutex, so a callback may log and even close.
std::atomic<yb_log_cb_t> log_callback = nullptr;

// Never destroyed: other libraries log until the very end of the process.
spdlog::sinks::sink &standard_error() {
    static spdlog::sinks::sink &the_sink = *[] {
        auto *made = new spdlog::sinks::stderr_sink_mt;
        made->set_pattern("%Y-%m-%dT%H:%M:%S.%e%z %v");
        return made;
    }();
    return the_sink;
}

void write_line(uint32_t severity, const char *module, const char *message) {
    const std::string line = std::string(log_internal::level_name(severity)) + ' ' +
                             log_internal::printable(module) + ": " + log_internal::printable(message);
    // The level is in the text: spdlog's own levels have no NOTICE.
    standard_error().log({"", spdlog::level::info, line});
    // Not spdlog's syslog sink, which has no LOG_NOTICE and calls openlog(), undoing the process's own.
    // Without a syslog daemon this is silent.
    syslog(LOG_USER | log_internal::syslog_priority(severity), "%s", line.c_str());
}

} // namespace

// Read from the environment once, when the library is loaded; the process may change it at any time.
YB_PLATFORM_EXPORT uint32_t g_yb_log_module_func_enable = function_trace_wanted();

YB_PLATFORM_EXPORT int yb_log(uint32_t severity, const char *module, const char *format, ...) {
    const int callers_errno = errno;
    char message[log_internal::message_size];
    va_list arguments;
    va_start(arguments, format);
    const bool formatted = log_internal::format_message(message, format, arguments);
    va_end(arguments);
    if (!formatted)
        return -1;
    if (module == nullptr)
        module = "?";
    try {
        if (const yb_log_cb_t callback = log_callback.load(); callback != nullptr)
            callback(severity, module, message);
        else
            write_line(severity, module, message);
    } catch (...) { // missing memory, or what a callback let out: C callers know no exceptions
        errno = ENOMEM;
        return -1;
    }
    errno = callers_errno; // callers name the reason of a failure after they have logged it
    return 0;
}

YB_PLATFORM_EXPORT int yb_log_init(uint32_t, uint32_t, yb_log_cb_t callback) {
    try {
        const std::lock_guard lock(init_mutex);
        ++init_count;
        log_callback = callback;
    } catch (...) {
        errno = EAGAIN;
        return -1;
    }
    return 0;
}

YB_PLATFORM_EXPORT int yb_log_close(void) {
    try {
        const std::lock_guard lock(init_mutex);
        if (init_count == 0) {
            errno = EINVAL;
            return -1;
        }
        if (--init_count == 0)
            log_callback = nullptr;
    } catch (...) {
        errno = EAGAIN;
        return -1;
    }
    return 0;
}
