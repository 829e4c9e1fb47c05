// SPDX-License-Identifier: Apache-2.0
//
// Aligned columns for people. Numbers stand to the right, words to the left; a
// cell may carry a tone, which becomes colour on a terminal only (output.h).
#ifndef YBNET_YBNETCTL_TABLE_H
#define YBNET_YBNETCTL_TABLE_H

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

namespace ybnetctl {

enum class tone { plain, heading, good, warning, bad, faint };

struct cell {
    std::string text; // "" is shown as "-"
    tone shade = tone::plain;

    cell(std::string words, tone mood = tone::plain) : text(std::move(words)), shade(mood) {}
    cell(const char *words, tone mood = tone::plain) : text(words), shade(mood) {}
    cell(unsigned long long number) : text(std::to_string(number)) {}
    cell(unsigned long number) : text(std::to_string(number)) {}
    cell(unsigned number) : text(std::to_string(number)) {}
    cell(int number) : text(std::to_string(number)) {}
};

enum class side { left, right };

struct column {
    std::string title;
    side align = side::left;
};

class table {
  public:
    explicit table(std::vector<column> columns) : columns_(std::move(columns)) {}

    void add(std::vector<cell> row) {
        rows_.push_back(std::move(row));
    }
    [[nodiscard]] size_t size() const {
        return rows_.size();
    }
    void print(std::ostream &out, bool colour) const;

  private:
    std::vector<column> columns_;
    std::vector<std::vector<cell>> rows_;
};

// The text in its colour, or as it is.
std::string shaded(const std::string &text, tone shade, bool colour);

// Bytes that came from shared memory or the kernel, fit for a terminal: control characters and bytes that are not
// UTF-8 become \xNN.
std::string printable(const std::string &text);

} // namespace ybnetctl

#endif
