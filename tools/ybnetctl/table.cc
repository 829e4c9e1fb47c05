// SPDX-License-Identifier: Apache-2.0
//
// See table.h.
#include "tools/ybnetctl/table.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <ostream>

namespace ybnetctl {

namespace {

const char *escape_of(tone shade) {
    switch (shade) {
    case tone::heading:
        return "\033[1m";
    case tone::good:
        return "\033[32m";
    case tone::warning:
        return "\033[33m";
    case tone::bad:
        return "\033[31m";
    case tone::faint:
        return "\033[2m";
    case tone::plain:
        break;
    }
    return "";
}

// Characters, not bytes: continuation bytes of UTF-8 take no room.
size_t width_of(const std::string &text) {
    return static_cast<size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

// How many bytes a well-formed UTF-8 character at the head of text has; 0 when it is none, or a control character.
size_t character_length(const std::string &text, size_t at) {
    const auto lead = static_cast<unsigned char>(text[at]);
    if (lead < 0x80)
        return lead >= 0x20 && lead != 0x7F ? 1 : 0;
    const size_t length = lead >= 0xC2 && lead <= 0xDF   ? 2
                          : lead >= 0xE0 && lead <= 0xEF ? 3
                          : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                         : 0;
    if (length == 0 || at + length > text.size())
        return 0;
    uint32_t code = lead & (0x7FU >> length);
    for (size_t i = 1; i < length; i++) {
        const auto byte = static_cast<unsigned char>(text[at + i]);
        if ((byte & 0xC0U) != 0x80U)
            return 0;
        code = code << 6 | (byte & 0x3FU);
    }
    constexpr std::array<uint32_t, 5> least = {0, 0, 0xA0, 0x800,
                                               0x10000}; // 0x80 to 0x9F control terminals too
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    return code >= least[length] && code <= 0x10FFFF && !surrogate ? length : 0;
}

} // namespace

std::string shaded(const std::string &text, tone shade, bool colour) {
    if (!colour || shade == tone::plain)
        return text;
    return escape_of(shade) + text + "\033[0m";
}

std::string printable(const std::string &text) {
    std::string shown;
    for (size_t at = 0; at < text.size();) {
        const size_t length = character_length(text, at);
        if (length == 0) {
            std::array<char, 5> hex{};
            (void)std::snprintf(hex.data(), hex.size(), "\\x%02x", static_cast<unsigned char>(text[at]));
            shown += hex.data();
            at++;
        } else {
            shown.append(text, at, length);
            at += length;
        }
    }
    return shown;
}

void table::print(std::ostream &out, bool colour) const {
    std::vector<size_t> widths;
    for (const column &each : columns_)
        widths.push_back(width_of(each.title));
    for (const auto &row : rows_)
        for (size_t i = 0; i < row.size(); i++)
            widths[i] = std::max(widths[i], std::max<size_t>(1, width_of(row[i].text)));

    const auto print_cell = [&](size_t i, const std::string &text, tone shade, bool last) {
        const std::string padding(widths[i] - width_of(text), ' ');
        if (columns_[i].align == side::right)
            out << padding << shaded(text, shade, colour);
        else
            out << shaded(text, shade, colour) << (last ? "" : padding);
        out << (last ? "\n" : "  ");
    };
    for (size_t i = 0; i < columns_.size(); i++)
        print_cell(i, columns_[i].title, tone::heading, i + 1 == columns_.size());
    for (const auto &row : rows_)
        for (size_t i = 0; i < row.size(); i++)
            print_cell(i, row[i].text.empty() ? "-" : row[i].text, row[i].shade, i + 1 == row.size());
}

} // namespace ybnetctl
