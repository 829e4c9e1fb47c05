// SPDX-License-Identifier: Apache-2.0
//
// Any bytes as the text of a batch (tools/ybnetctl/change/batch_words.h): read at once, read in two parts as
// from a pipe, and read back from a text in which every word was quoted.
//
// Input: where the second part begins (2 bytes), then the text.
#include "tools/ybnetctl/change/batch_words.h"

#include "tests/fuzz/support/check.h"
#include "tests/fuzz/support/input.h"

namespace {

using ybnetctl::batch_command;
using ybnetctl::batch_reader;

// Of every reading, whatever the text.
void check_command(const batch_command &command, const batch_reader &reader, std::string_view text) {
    FUZZ_CHECK(command.words.empty() == !command.problem.empty());
    FUZZ_CHECK(command.line >= 1);
    FUZZ_CHECK(reader.done() <= text.size());
    FUZZ_CHECK(reader.done() == 0 || text[reader.done() - 1] == '\n');
    for (const std::string &word : command.words)
        FUZZ_CHECK(word.find('\0') == std::string::npos);
}

std::vector<batch_command> read_at_once(std::string_view text) {
    batch_reader reader(text);
    std::vector<batch_command> all;
    size_t line = 1;
    size_t letters = 0;
    for (batch_command command; reader.next(&command); all.push_back(command)) {
        check_command(command, reader, text);
        FUZZ_CHECK(command.line >= line);
        line = command.line;
        for (const std::string &word : command.words)
            letters += word.size();
    }
    FUZZ_CHECK(letters <= text.size());
    FUZZ_CHECK(line <= 1 + static_cast<size_t>(std::count(text.begin(), text.end(), '\n')));
    return all;
}

// As batch_source does: what does not end by a newline is read once more with what follows.
std::vector<batch_command> read_in_parts(std::string_view text, size_t first_part) {
    std::vector<batch_command> all;
    batch_command command;
    batch_reader first(text.substr(0, first_part));
    while (first.next(&command) && first.complete()) {
        check_command(command, first, text.substr(0, first_part));
        all.push_back(command);
    }
    batch_reader second(text.substr(first.done()), first.done_line());
    while (second.next(&command))
        all.push_back(command);
    return all;
}

std::string quoted(const std::string &word) {
    std::string text = "'";
    for (const char c : word)
        text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return text + '\'';
}

void check_same(const std::vector<batch_command> &one, const std::vector<batch_command> &other, bool lines) {
    FUZZ_CHECK(one.size() == other.size());
    for (size_t i = 0; i < one.size(); i++) {
        FUZZ_CHECK(one[i].words == other[i].words);
        FUZZ_CHECK(one[i].problem == other[i].problem);
        FUZZ_CHECK(!lines || one[i].line == other[i].line);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::input in(data, size);
    const size_t cut = in.take<uint16_t>();
    const std::span<const uint8_t> bytes = in.take_bytes(size);
    const std::string_view text(reinterpret_cast<const char *>(bytes.data()), bytes.size());

    const std::vector<batch_command> all = read_at_once(text);
    check_same(all, read_in_parts(text, std::min(cut, text.size())), true);

    std::string again;
    std::vector<batch_command> readable;
    for (const batch_command &command : all) {
        if (!command.problem.empty())
            continue;
        for (const std::string &word : command.words)
            again += quoted(word) + ' ';
        again += '\n';
        readable.push_back(command);
    }
    check_same(readable, read_at_once(again), false);
    return 0;
}
