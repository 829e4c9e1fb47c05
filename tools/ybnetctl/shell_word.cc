// SPDX-License-Identifier: Apache-2.0
//
// See shell_word.h.
#include "tools/ybnetctl/shell_word.h"

#include <algorithm>

namespace ybnetctl {

std::string shell_word(const std::string &text) {
    const bool plain = !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               std::string("._-@:+=,/").find(c) != std::string::npos;
    });
    if (plain)
        return text;
    std::string word = "'";
    for (const char c : text)
        word += c == '\'' ? "'\\''" : std::string(1, c);
    return word + '\'';
}

std::string ip_in(const std::string &ns) {
    return ns.empty() ? "ip " : "ip -n " + shell_word(ns) + ' ';
}

std::string shell_line(const std::vector<std::string> &words) {
    std::string line;
    for (const std::string &word : words)
        line += (line.empty() ? "" : " ") + shell_word(word);
    return line;
}

} // namespace ybnetctl
