// SPDX-License-Identifier: Apache-2.0
//
// The trace buffer: the last lines of yb_trace_cbuff_log(), in memory only
// until somebody dumps them.
#include "platform/log/yb_log_reference.h"

#include <cerrno>
#include <cstdarg>
#include <memory>
#include <mutex>
#include <string>

#include <spdlog/sinks/ringbuffer_sink.h>

#include "platform/export.h"
#include "platform/log/log_line.h"
#include "ybnet/platform/yb_log.h"

namespace log_internal = yb_log_internal;

namespace {

using ring = spdlog::sinks::ringbuffer_sink_mt;

std::shared_ptr<ring> new_ring() {
    auto made = std::make_shared<ring>(YB_TRACE_CBUFF_LINES);
    made->set_pattern("%Y-%m-%dT%H:%M:%S.%f%z %v");
    return made;
}

// The sink cannot be emptied, so clearing puts a new one in its place.
struct trace_buffer {
    std::mutex mutex;
    std::shared_ptr<ring> lines = new_ring();

    std::shared_ptr<ring> current() {
        const std::lock_guard lock(mutex);
        return lines;
    }
};

// Never destroyed: other libraries trace until the very end of the process.
trace_buffer &buffer() {
    static trace_buffer &the_buffer = *new trace_buffer;
    return the_buffer;
}

} // namespace

YB_PLATFORM_EXPORT int yb_trace_cbuff_log(const char *format, ...) {
    const int callers_errno = errno;
    char message[log_internal::message_size];
    va_list arguments;
    va_start(arguments, format);
    const bool formatted = log_internal::format_message(message, format, arguments);
    va_end(arguments);
    if (!formatted)
        return -1;
    try {
        const std::string line = log_internal::printable(message);
        buffer().current()->log({"", spdlog::level::trace, line});
    } catch (...) { // memory is all that can be missing, and C callers know no exceptions
        errno = ENOMEM;
        return -1;
    }
    errno = callers_errno;
    return 0;
}

YB_PLATFORM_EXPORT int yb_trace_cbuff_dump(FILE *to) {
    if (to == nullptr) {
        errno = EINVAL;
        return -1;
    }
    try {
        for (const std::string &line : buffer().current()->last_formatted()) {
            if (fputs(line.c_str(), to) == EOF)
                return -1;
        }
    } catch (...) {
        errno = ENOMEM;
        return -1;
    }
    return fflush(to) == 0 ? 0 : -1;
}

YB_PLATFORM_EXPORT int yb_trace_cbuff_clear(void) {
    try {
        std::shared_ptr<ring> fresh = new_ring();
        trace_buffer &all = buffer();
        const std::lock_guard lock(all.mutex);
        all.lines.swap(fresh);
    } catch (...) {
        errno = ENOMEM;
        return -1;
    }
    return 0;
}
