// SPDX-License-Identifier: Apache-2.0
//
// See batch_words.h.
#include "tools/ybnetctl/change/batch_words.h"

namespace ybnetctl {

namespace {

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

} // namespace

// To the end of the line, its newline excluded.
void batch_reader::skip_line() {
    while (at_ < text_.size() && text_[at_] != '\n')
        at_++;
}

// Over blanks, joined lines and a comment. False at the end of the line or of the text.
bool batch_reader::skip_between_words() {
    while (at_ < text_.size()) {
        const char c = text_[at_];
        if (c == '\\' && at_ + 1 < text_.size() && text_[at_ + 1] == '\n') {
            at_ += 2;
            line_++;
        } else if (c == '#') {
            skip_line();
        } else if (is_blank(c)) {
            at_++;
        } else {
            return c != '\n';
        }
    }
    return false;
}

// Behind the opening quote, to behind the closing one. A quoted text may run over several lines.
bool batch_reader::read_quoted(char quote, std::string *word) {
    while (at_ < text_.size()) {
        char c = text_[at_++];
        if (c == quote)
            return true;
        if (c == '\\' && quote == '"' && at_ < text_.size() &&
            (text_[at_] == '"' || text_[at_] == '\\' || text_[at_] == '\n')) {
            c = text_[at_++];
            if (c == '\n') { // joined
                line_++;
                continue;
            }
        }
        if (c == '\n')
            line_++;
        *word += c;
    }
    return false;
}

bool batch_reader::read_word(batch_command *out) {
    std::string word;
    while (at_ < text_.size() && !is_blank(text_[at_]) && text_[at_] != '\n') {
        const char c = text_[at_++];
        if (c == '\'' || c == '"') {
            const size_t opened = line_;
            if (!read_quoted(c, &word)) {
                *out = {opened, {}, std::string("no closing ") + c};
                return false;
            }
        } else if (c == '\\') {
            if (at_ == text_.size()) {
                *out = {line_, {}, "a \\ with nothing behind it"};
                return false;
            }
            const char escaped = text_[at_++];
            if (escaped == '\n')
                line_++; // joined, in the middle of a word
            else
                word += escaped;
        } else {
            word += c;
        }
    }
    if (word.find('\0') != std::string::npos) {
        *out = {line_, {}, "a NUL byte in a word"};
        skip_line();
        return false;
    }
    out->words.push_back(std::move(word));
    return true;
}

bool batch_reader::next(batch_command *out) {
    while (at_ < text_.size()) {
        *out = {};
        while (skip_between_words()) {
            if (out->words.empty())
                out->line = line_;
            if (!read_word(out))
                return true; // the problem
        }
        if (at_ < text_.size()) { // a newline
            at_++;
            line_++;
            done_ = at_;
            done_line_ = line_;
        }
        if (!out->words.empty())
            return true;
    }
    return false;
}

} // namespace ybnetctl
