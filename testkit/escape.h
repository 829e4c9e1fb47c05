// SPDX-License-Identifier: Apache-2.0
//
// Text of any kind as one line without tabs, and back.
#ifndef YBNET_TESTKIT_ESCAPE_H
#define YBNET_TESTKIT_ESCAPE_H

#include <string>

namespace testkit {

inline std::string escaped(const std::string &text) {
    std::string line;
    for (const char c : text) {
        if (c == '\n')
            line += "\\n";
        else if (c == '\t')
            line += "\\t";
        else if (c == '\\')
            line += "\\\\";
        else
            line += c;
    }
    return line;
}

inline std::string unescaped(const std::string &line) {
    std::string text;
    for (size_t i = 0; i < line.size(); i++) {
        if (line[i] != '\\' || i + 1 == line.size()) {
            text += line[i];
            continue;
        }
        const char c = line[++i];
        text += c == 'n' ? '\n' : c == 't' ? '\t' : c;
    }
    return text;
}

} // namespace testkit

#endif
