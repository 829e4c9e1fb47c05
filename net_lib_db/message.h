// SPDX-License-Identifier: Apache-2.0
//
// How both modules write a message: filtered by the module's verbosity, then
// plain or positioned through yb_log(), and always into the trace buffer.
// Modules use it through net_lib_db_log.h and net_lib_log.h.
#ifndef YBNET_NET_LIB_DB_MESSAGE_H
#define YBNET_NET_LIB_DB_MESSAGE_H

#include <atomic>
#include <bit>
#include <cstdint>

#include "ybnet/platform/yb_log.h"

#define YB_EXPORT __attribute__((visibility("default")))

#define YB_MODULE_NAME "YB_NET_LIB"

// Levels are one-bit masks.
constexpr uint32_t YB_LEVEL_ERROR = 2;
constexpr uint32_t YB_LEVEL_WARN = 4;
constexpr uint32_t YB_LEVEL_NOTICE = 8;
constexpr uint32_t YB_LEVEL_INFO = 16;
constexpr uint32_t YB_LEVEL_DEBUG = 32;

constexpr uint32_t YB_VERBOSITY_DEFAULT = 3;
constexpr uint32_t YB_INDEX_POSITIONED = 5; // from this index on yb_log() gets the position too

constexpr uint32_t yb_level_index(uint32_t level) {
    return static_cast<uint32_t>(std::countr_zero(level));
}

// The cumulative mask of all levels up to this one, without the lowest bit's level NONE.
constexpr uint32_t yb_level_severity(uint32_t level) {
    return level - 1;
}

// Name of a level index in the trace buffer, seven characters wide; "UNKNOWN" outside 0..8.
const char *yb_level_name(int32_t index);

// Read by every message, set rarely: a plain word, atomic only so that a change beside a reader is defined.
using yb_verbosity_t = std::atomic<uint32_t>;

#define YB_POSITION_PREFIX "%s[%d]- %s: "
#define YB_TRACE_PREFIX "[%s] [%s] - %s[%d]: "

// One decision for all messages, so that a message adds no branch to the function that writes it.
template <typename write_t, typename... argument_t>
inline void yb_message_if_wanted(const yb_verbosity_t &verbosity, uint32_t index, write_t write,
                                 argument_t... arguments) {
    if (verbosity.load(std::memory_order_relaxed) >= index)
        write(arguments...);
}

// The arguments behind format are evaluated once, whether the message is wanted or not.
#define YB_MESSAGE_WRITE(verbosity, file, level, function, line, format, ...)                                \
    yb_message_if_wanted(                                                                                    \
        verbosity, yb_level_index(level),                                                                    \
        [](const char *yb_function, int32_t yb_line, auto... yb_arguments) {                                 \
            constexpr uint32_t yb_index = yb_level_index(level);                                             \
            if constexpr (yb_index < YB_INDEX_POSITIONED)                                                    \
                (void)yb_log(yb_level_severity(level), YB_MODULE_NAME, format, yb_arguments...);             \
            else                                                                                             \
                (void)yb_log(yb_level_severity(level), YB_MODULE_NAME, YB_POSITION_PREFIX format, file,      \
                             yb_line, yb_function, yb_arguments...);                                         \
            (void)yb_trace_cbuff_log(YB_TRACE_PREFIX format, yb_level_name(static_cast<int32_t>(yb_index)),  \
                                     YB_MODULE_NAME, yb_function, yb_line, yb_arguments...);                 \
        },                                                                                                   \
        function, line, ##__VA_ARGS__)

#endif
