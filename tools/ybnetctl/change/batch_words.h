// SPDX-License-Identifier: Apache-2.0
//
// The text of a batch cut into commands and their words, as a shell would cut it: '...', "..." (with \ in front of
// " and \), \ in front of any other character, # at the beginning of a word for the rest of the line, and \ at the end
// of a line, which joins it with the next one. Nothing is expanded. Takes any bytes.
#ifndef YBNET_YBNETCTL_CHANGE_BATCH_WORDS_H
#define YBNET_YBNETCTL_CHANGE_BATCH_WORDS_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace ybnetctl {

struct batch_command {
    size_t line = 0; // of its first word, or of what is wrong
    std::vector<std::string> words;
    std::string problem; // not "": the line cannot be read, and has no words
};

// Walks over a text, command by command; empty lines are passed over. The text may be the first part of one that is
// still coming: what ended by a newline will not change then.
class batch_reader {
  public:
    // line: the number of the text's first line.
    explicit batch_reader(std::string_view text, size_t line = 1)
        : text_(text), line_(line), done_line_(line) {}

    // False at the end.
    bool next(batch_command *out);

    // Whether the last command ended by a newline, not by the end of the text.
    [[nodiscard]] bool complete() const {
        return done_ == at_;
    }
    // Behind the last newline that ended a line, and the line that begins there.
    [[nodiscard]] size_t done() const {
        return done_;
    }
    [[nodiscard]] size_t done_line() const {
        return done_line_;
    }

  private:
    bool read_word(batch_command *out);
    bool read_quoted(char quote, std::string *word);
    bool skip_between_words();
    void skip_line();

    std::string_view text_;
    size_t at_ = 0;
    size_t line_;
    size_t done_ = 0;
    size_t done_line_;
};

} // namespace ybnetctl

#endif
