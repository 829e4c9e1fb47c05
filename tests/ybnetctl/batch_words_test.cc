// SPDX-License-Identifier: Apache-2.0
//
// The text of a batch cut into commands and words, also when it comes in parts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/ybnetctl/change/batch_words.h"

using testing::ElementsAre;
using testing::IsEmpty;
using ybnetctl::batch_command;
using ybnetctl::batch_reader;

namespace {

using words = std::vector<std::string>;

std::vector<batch_command> all_of(const std::string &text) {
    std::vector<batch_command> commands;
    batch_reader reader(text);
    for (batch_command one; reader.next(&one);)
        commands.push_back(one);
    return commands;
}

words only_words_of(const std::string &text) {
    const auto commands = all_of(text);
    EXPECT_EQ(commands.size(), 1U) << text;
    return commands.empty() ? words() : commands[0].words;
}

} // namespace

TEST(batch_words, are_cut_at_blanks) {
    EXPECT_THAT(only_words_of("  port\tset  1 --name  swp1 \r\n"),
                ElementsAre("port", "set", "1", "--name", "swp1"));
}

TEST(batch_words, may_be_quoted_and_escaped_as_in_a_shell) {
    EXPECT_THAT(only_words_of("a 'b c' \"d e\" f\\ g"), ElementsAre("a", "b c", "d e", "f g"));
    EXPECT_THAT(only_words_of("x'y'\"z\"\\#"), ElementsAre("xyz#"));
    EXPECT_THAT(only_words_of("'a\\b' \"a\\b\" \"\\\"\\\\\" a\\b"),
                ElementsAre("a\\b", "a\\b", "\"\\", "ab"));
    EXPECT_THAT(only_words_of("'' \"\""), ElementsAre("", ""));
}

TEST(batch_words, end_at_a_comment_that_begins_a_word) {
    EXPECT_THAT(only_words_of("a b#c # d 'e\n"), ElementsAre("a", "b#c"));
    EXPECT_THAT(all_of("# nothing\n   # here\n\n"), IsEmpty());
}

TEST(batch_words, of_a_joined_line_belong_together_and_lines_are_counted_on) {
    const auto commands = all_of("a \\\n b\\\nc \"d\\\ne\"\n\n# x\nf 'g\nh'\ni\n");
    ASSERT_EQ(commands.size(), 3U);
    EXPECT_THAT(commands[0].words, ElementsAre("a", "bc", "de"));
    EXPECT_EQ(commands[0].line, 1U);
    EXPECT_THAT(commands[1].words, ElementsAre("f", "g\nh"));
    EXPECT_EQ(commands[1].line, 7U);
    EXPECT_EQ(commands[2].line, 9U);
}

TEST(batch_words, that_cannot_be_read_are_a_problem_with_its_line) {
    const auto open_quote = all_of("a\nb \"c\nd\n");
    ASSERT_EQ(open_quote.size(), 2U);
    EXPECT_EQ(open_quote[1].problem, "no closing \"");
    EXPECT_EQ(open_quote[1].line, 2U);
    EXPECT_THAT(open_quote[1].words, IsEmpty());
    EXPECT_EQ(all_of("a \\")[0].problem, "a \\ with nothing behind it");
}

TEST(batch_words, with_a_nul_are_refused_and_the_next_line_is_read) {
    const auto commands = all_of(std::string("a b\0c d\ne", 9));
    ASSERT_EQ(commands.size(), 2U);
    EXPECT_EQ(commands[0].problem, "a NUL byte in a word");
    EXPECT_THAT(commands[1].words, ElementsAre("e"));
    EXPECT_EQ(commands[1].line, 2U);
}

// As a pipe brings it: cut anywhere, with what was not complete put in front of the next part.
TEST(batch_words, are_the_same_however_the_text_comes_in_parts) {
    const std::string text = "a 'b\nc' d\\\ne # f\n\n\"g\\\nh\" i\nj\\ k\nl";
    const auto whole = all_of(text);
    for (size_t cut = 0; cut <= text.size(); cut++) {
        std::vector<batch_command> seen;
        batch_reader first(std::string_view(text).substr(0, cut));
        for (batch_command one; first.next(&one) && first.complete();)
            seen.push_back(one);
        batch_reader rest(std::string_view(text).substr(first.done()), first.done_line());
        for (batch_command one; rest.next(&one);)
            seen.push_back(one);
        ASSERT_EQ(seen.size(), whole.size()) << cut;
        for (size_t i = 0; i < seen.size(); i++) {
            EXPECT_EQ(seen[i].words, whole[i].words) << cut;
            EXPECT_EQ(seen[i].line, whole[i].line) << cut;
        }
    }
}
