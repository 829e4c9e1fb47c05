// SPDX-License-Identifier: Apache-2.0
//
// See log_line.h.
#include "platform/log/log_line.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <iterator>
#include <syslog.h>

namespace yb_log_internal {

namespace {

struct level {
    const char *name;
    int priority;
};

// By the number of the mask's highest bit. A mask of no level at all is shown as the worst, not hidden.
constexpr level levels[] = {{"ERROR", LOG_ERR},     {"ERROR", LOG_ERR}, {"WARN", LOG_WARNING},
                            {"NOTICE", LOG_NOTICE}, {"INFO", LOG_INFO}, {"DEBUG", LOG_DEBUG}};

const level &level_of(uint32_t severity) {
    const auto highest = static_cast<size_t>(std::bit_width(severity));
    return levels[std::min(highest, std::size(levels) - 1)];
}

bool continues_utf8(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0u) == 0x80u;
}

// The mark goes over the end of the message, and over all of a character that it would halve.
void mark_as_cut(char (&message)[message_size]) {
    size_t at = message_size - 1 - cut_mark.size();
    for (int steps = 0; steps < 3 && continues_utf8(message[at]); ++steps)
        --at;
    *std::copy(cut_mark.begin(), cut_mark.end(), message + at) = '\0';
}

void append_escaped(std::string &to, unsigned char byte) {
    constexpr char digits[] = "0123456789abcdef";
    switch (byte) {
    case '\n':
        to += "\\n";
        break;
    case '\r':
        to += "\\r";
        break;
    case '\t':
        to += "\\t";
        break;
    default:
        to += "\\x";
        to += digits[byte >> 4];
        to += digits[byte & 0xFu];
    }
}

} // namespace

bool format_message(char (&message)[message_size], const char *format, va_list arguments) {
    if (format == nullptr) {
        errno = EINVAL;
        return false;
    }
    const int length = vsnprintf(message, sizeof(message), format, arguments);
    if (length < 0)
        return false;
    if (static_cast<size_t>(length) >= sizeof(message))
        mark_as_cut(message);
    return true;
}

const char *level_name(uint32_t severity) {
    return level_of(severity).name;
}

int syslog_priority(uint32_t severity) {
    return level_of(severity).priority;
}

std::string printable(std::string_view text) {
    if (text.ends_with('\n'))
        text.remove_suffix(1);
    std::string result;
    result.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : '\0');
        if (byte < 0x20 || byte == 0x7F) {
            append_escaped(result, byte);
        } else if (byte == 0xC2 && next >= 0x80 && next < 0xA0) { // the other control characters, in UTF-8
            append_escaped(result, byte);
            append_escaped(result, next);
            ++i;
        } else {
            result += text[i];
        }
    }
    return result;
}

} // namespace yb_log_internal
