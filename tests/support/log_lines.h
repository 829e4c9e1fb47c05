// SPDX-License-Identifier: Apache-2.0
//
// What the recording platform was told, in the form tests compare it in: a
// severity and a text, a DEBUG line's position taken apart.
#ifndef YBNET_TESTS_LOG_LINES_H
#define YBNET_TESTS_LOG_LINES_H

#include <cstdint>
#include <ostream>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/recording_platform.h"

namespace severity {
constexpr uint32_t error = 1;
constexpr uint32_t warn = 3;
constexpr uint32_t notice = 7;
constexpr uint32_t info = 15;
constexpr uint32_t debug = 31;
} // namespace severity

struct logged {
    uint32_t severity;
    std::string text;

    bool operator==(const logged &other) const {
        return severity == other.severity && text == other.text;
    }
    friend void PrintTo(const logged &line, std::ostream *out) {
        *out << line.severity << " \"" << line.text << '"';
    }
};

// All lines so far. A DEBUG line "FILE[LINE]- FUNCTION: TEXT" is given as "FILE FUNCTION: TEXT".
inline std::vector<logged> logged_lines() {
    std::vector<logged> lines;
    for (const platform::log_line &line : platform::recorded().log) {
        static const std::regex position("^(net_lib|net_lib_db)\\[[1-9][0-9]*\\]- ([a-z_0-9]+: )");
        const bool positioned = line.severity == severity::debug;
        lines.push_back(
            {line.severity, positioned ? std::regex_replace(line.text, position, "$1 $2") : line.text});
    }
    return lines;
}

inline logged error_line(const std::string &text) {
    return {severity::error, text};
}

#endif
