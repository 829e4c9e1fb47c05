// SPDX-License-Identifier: Apache-2.0
//
// From a call's arguments to the text of a line: bounded formatting, what
// people read instead of severities, and control characters made visible.
// yb_log.cc and trace_ring.cc write the result.
#ifndef YBNET_PLATFORM_LOG_LINE_H
#define YBNET_PLATFORM_LOG_LINE_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace yb_log_internal {

// With the terminating zero. A longer message is cut and ends with cut_mark.
constexpr size_t message_size = 2048;
inline constexpr std::string_view cut_mark = "...[cut]\n";

// The formatted message; false when format is NULL or cannot be formatted, errno says which.
bool format_message(char (&message)[message_size], const char *format, va_list arguments);

// The level that a cumulative mask stands for is that of its highest bit.
const char *level_name(uint32_t severity);
int syslog_priority(uint32_t severity);

// text without its trailing newline and with every other control character as
// \n, \t or \xNN, so that no text can look like a line of its own or move a
// terminal's cursor.
std::string printable(std::string_view text);

} // namespace yb_log_internal

#endif
