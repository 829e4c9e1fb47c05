// SPDX-License-Identifier: Apache-2.0
//
// Messages of the API module, and its function trace.
#ifndef YBNET_NET_LIB_LOG_H
#define YBNET_NET_LIB_LOG_H

#include "net_lib_db/message.h"

extern yb_verbosity_t net_lib_verbosity;

#define NET_LIB_LOG(level, format, ...) NET_LIB_LOG_AS(__func__, level, format, ##__VA_ARGS__)

// For a helper that logs on behalf of the function that people know.
#define NET_LIB_LOG_AS(function, level, format, ...)                                                         \
    YB_MESSAGE_WRITE(net_lib_verbosity, "net_lib", level, function, __LINE__, format, ##__VA_ARGS__)

// Write the "entered" and "left" lines when the logging library asks for them.
void net_lib_trace_entered(const char *function, int32_t line);
void net_lib_trace_left(const char *function, int32_t line);

// Both lines of the function that it stands in.
#define NET_LIB_TRACE_FUNCTION() const function_trace yb_function_trace(__func__, __LINE__)

struct function_trace {
    const char *function;
    int32_t line;

    function_trace(const char *name, int32_t at) : function(name), line(at) {
        net_lib_trace_entered(function, line);
    }
    ~function_trace() {
        net_lib_trace_left(function, line);
    }
    function_trace(const function_trace &) = delete;
    function_trace &operator=(const function_trace &) = delete;
};

#endif
