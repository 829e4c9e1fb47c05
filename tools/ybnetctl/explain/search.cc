// SPDX-License-Identifier: Apache-2.0
//
// See search.h. Sections: formats as patterns; statuses; messages; messages that a query is a part of; the
// nearest.
#include "tools/ybnetctl/explain/search.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <set>

namespace ybnetctl {

namespace {

// ---- Formats as patterns ----------------------------------------------------

// A stretch of a format: literal characters, and the conversion behind them (0 at the end).
struct piece {
    std::string literal;
    char conversion = 0;
};

std::vector<piece> pieces_of(const std::string &format) {
    std::vector<piece> pieces(1);
    for (size_t at = 0; at < format.size(); at++) {
        if (format[at] != '%') {
            pieces.back().literal += format[at];
            continue;
        }
        at = format.find_first_not_of("#0123456789.-+lhzjt", at + 1);
        if (at == std::string::npos)
            break;
        if (format[at] == '%') {
            pieces.back().literal += '%';
            continue;
        }
        pieces.back().conversion = format[at];
        pieces.emplace_back();
    }
    return pieces;
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

bool is_hex_digit(char c) {
    return is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// How many characters at `at` a number conversion can have made; 0: none.
size_t number_length(const std::string &text, size_t at, char conversion) {
    const size_t start = at;
    if (conversion == 'x' || conversion == 'p' || conversion == 'X') {
        if (text.compare(at, 2, "0x") == 0 && at + 2 < text.size() && is_hex_digit(text[at + 2]))
            at += 2;
        while (at < text.size() && is_hex_digit(text[at]))
            at++;
        return at - start;
    }
    if (at < text.size() && text[at] == '-' && (conversion == 'd' || conversion == 'i'))
        at++;
    const size_t digits = at;
    while (at < text.size() && is_digit(text[at]))
        at++;
    return at == digits ? 0 : at - start;
}

// What stands between texts (%s): literals and numbers, which can be made in one way only.
using stretch = std::vector<piece>;

std::vector<stretch> stretches_of(const std::string &format) {
    std::vector<stretch> stretches(1);
    for (const piece &each : pieces_of(format)) {
        stretches.back().push_back(each);
        if (each.conversion == 's')
            stretches.emplace_back();
    }
    return stretches;
}

// Where a stretch that begins at `at` ends; npos: it does not stand there.
size_t end_of_stretch(const stretch &pieces, const std::string &text, size_t at) {
    for (const piece &each : pieces) {
        if (text.compare(at, each.literal.size(), each.literal) != 0)
            return std::string::npos;
        at += each.literal.size();
        if (each.conversion == 0 || each.conversion == 's')
            continue;
        const size_t length = number_length(text, at, each.conversion);
        if (length == 0)
            return std::string::npos;
        at += length;
    }
    return at;
}

std::string trimmed(const std::string &text) {
    const size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return "";
    return text.substr(first, text.find_last_not_of(" \t\r\n") + 1 - first);
}

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

// ---- Statuses ---------------------------------------------------------------

constexpr const char *status_prefix = "yb_status_";

std::optional<unsigned long> number_of(const std::string &text) {
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    unsigned long number = 0;
    const char *const end = text.data() + text.size();
    const auto read = std::from_chars(text.data() + (hex ? 2 : 0), end, number, hex ? 16 : 10);
    if (read.ec != std::errc() || read.ptr != end)
        return std::nullopt;
    return number;
}

std::vector<catalogue_match> matching_statuses(const std::string &query) {
    const auto number = number_of(query);
    std::string name = lower(query);
    if (!name.starts_with(status_prefix))
        name.insert(0, status_prefix);
    std::vector<catalogue_match> found;
    for (const status_entry &entry : statuses())
        if (entry.number == number || lower(entry.name) == name)
            found.push_back({.status = &entry, .format = {}});
    return found;
}

// ---- Messages ---------------------------------------------------------------

struct scored {
    size_t score;
    catalogue_match match;
};

std::vector<catalogue_match> best_first(std::vector<scored> all) {
    std::stable_sort(all.begin(), all.end(),
                     [](const scored &a, const scored &b) { return a.score > b.score; });
    std::vector<catalogue_match> found;
    for (const scored &each : all)
        found.push_back(each.match);
    return found;
}

// Of each entry the format that fits best.
template <class Score> std::vector<scored> score_messages(Score score) {
    std::vector<scored> all;
    for (const message_entry &entry : messages()) {
        scored best{0, {.message = &entry, .format = {}}};
        for (const std::string &format : formats_of(entry)) {
            const size_t now = score(format);
            if (now > best.score) {
                best.score = now;
                best.match.format = format;
            }
        }
        if (best.score != 0)
            all.push_back(best);
    }
    return all;
}

std::vector<catalogue_match> messages_in(const std::string &text) {
    bool ends = false;
    const auto collect = [&](bool to_the_end) {
        return score_messages([&](const std::string &format) -> size_t {
            const auto fit = fit_format(format, text);
            ends = ends || (fit && fit->to_the_end);
            return fit && (fit->to_the_end || !to_the_end) ? fit->literal : 0;
        });
    };
    std::vector<scored> all = collect(true);
    if (!ends)
        all = collect(false);
    return best_first(std::move(all));
}

// Entries one of whose formats has the query in it, letter case aside; the shorter the format, the better.
std::vector<catalogue_match> entries_with(const std::string &part) {
    const std::string wanted = lower(part);
    std::vector<catalogue_match> found;
    for (const status_entry &entry : statuses())
        if (lower(entry.name).find(wanted) != std::string::npos)
            found.push_back({.status = &entry, .format = {}});
    const auto in_messages = best_first(score_messages([&](const std::string &format) -> size_t {
        return lower(format).find(wanted) == std::string::npos ? 0 : 1'000'000 / format.size();
    }));
    found.insert(found.end(), in_messages.begin(), in_messages.end());
    return found;
}

// ---- Messages of which the query is a part ----------------------------------

// A text with each number as one sign, so that a number and its conversion are the same.
constexpr char any_number = '\1';

std::string with_numbers_alike(const std::string &text) {
    std::string alike;
    for (size_t at = 0; at < text.size();) {
        const size_t length = is_digit(text[at]) ? number_length(text, at, 'x') : 0;
        alike += length == 0 ? text[at] : any_number;
        at += std::max<size_t>(length, 1);
    }
    return alike;
}

// What stands between a format's texts (%s).
std::vector<std::string> literals_of(const std::string &format) {
    std::vector<std::string> literals;
    for (const stretch &each : stretches_of(format)) {
        std::string text;
        for (const piece &part : each) {
            text += part.literal;
            if (part.conversion != 0 && part.conversion != 's')
                text += '0';
        }
        literals.push_back(with_numbers_alike(lower(text)));
    }
    return literals;
}

// How many characters of the query stand in the format's literals when it begins with what is behind `start` in the
// first of them and goes through as many as it needs; 0: it does not.
size_t covered_from(std::span<const std::string> literals, size_t start, const std::string &query) {
    std::string_view rest = query;
    std::string_view literal = std::string_view(literals.front()).substr(start);
    size_t covered = 0;
    for (size_t i = 0;; literal = literals[i]) {
        if (literal.empty() && i + 1 == literals.size())
            return covered;                                // the rest is a text
        const size_t at = i == 0 ? 0 : rest.find(literal); // a text ends where what is behind it stands first
        if (rest.substr(std::min(at, rest.size()), literal.size()) != literal) {
            // Not whole: the query has to end within it, or within the text in front.
            size_t common = std::min(literal.size(), rest.size());
            while (common > 0 && !rest.ends_with(literal.substr(0, common)))
                common--;
            return i == 0 && common != rest.size() ? 0 : covered + common;
        }
        covered += literal.size();
        rest.remove_prefix(at + literal.size());
        if (rest.empty())
            return covered;
        if (++i == literals.size())
            return 0; // something behind its end
    }
}

// Most of a part has to be the message's own: names and texts alone fit everything.
size_t cover(const std::string &format, const std::string &query) {
    const std::vector<std::string> literals = literals_of(format);
    size_t best = 0;
    for (size_t i = 0; i < literals.size(); i++)
        for (size_t start = 0; start < literals[i].size(); start++)
            best = std::max(best, covered_from(std::span(literals).subspan(i), start, query));
    constexpr size_t least = 8;
    return best >= least && best * 3 >= query.size() * 2 ? best : 0;
}

std::vector<catalogue_match> messages_around(const std::string &part) {
    const std::string query = with_numbers_alike(lower(part));
    return best_first(score_messages([&](const std::string &format) { return cover(format, query); }));
}

// ---- The nearest ------------------------------------------------------------

std::set<std::string> pairs_of(const std::string &text) {
    const std::string small = lower(text);
    std::set<std::string> pairs;
    for (size_t at = 0; at + 2 <= small.size(); at++)
        pairs.insert(small.substr(at, 2));
    return pairs;
}

// The part of their letter pairs that two texts share, 0 to 1.
double likeness(const std::set<std::string> &one, const std::set<std::string> &other) {
    const auto shared = static_cast<double>(
        std::count_if(one.begin(), one.end(), [&](const std::string &pair) { return other.contains(pair); }));
    const auto sum = static_cast<double>(one.size() + other.size());
    return sum == 0 ? 0 : 2 * shared / sum;
}

} // namespace

// Each stretch is taken at the first place where it stands behind the one before: that leaves the most room for those
// that follow, so no other choice has to be tried.
std::optional<format_fit> fit_format(const std::string &format, const std::string &text) {
    const std::vector<stretch> stretches = stretches_of(format);
    format_fit fit;
    size_t at = 0;
    for (size_t i = 0; i < stretches.size(); i++) {
        const bool last = i + 1 == stretches.size();
        for (const piece &each : stretches[i])
            fit.literal += each.literal.size();
        size_t first_end = std::string::npos;
        for (size_t start = at; start <= text.size() && !fit.to_the_end; start++) {
            const size_t end = end_of_stretch(stretches[i], text, start);
            if (first_end == std::string::npos)
                first_end = end;
            if (last)
                fit.to_the_end = end == text.size();
            else if (end != std::string::npos)
                break;
        }
        if (first_end == std::string::npos && !fit.to_the_end)
            return std::nullopt;
        at = first_end;
    }
    return fit;
}

std::vector<catalogue_match> search_catalogue(const std::string &query) {
    constexpr size_t longest = 4096; // of a line worth looking at
    const std::string text = trimmed(query.substr(0, longest));
    if (text.empty())
        return {};
    for (const auto &search : {matching_statuses, messages_in, entries_with, messages_around}) {
        std::vector<catalogue_match> found = search(text);
        if (!found.empty())
            return found;
    }
    return {};
}

std::vector<std::string> nearest_entries(const std::string &query) {
    if (number_of(trimmed(query)))
        return {}; // neighbours in number have nothing in common
    std::vector<std::pair<double, std::string>> all;
    const std::set<std::string> wanted = pairs_of(query);
    for (const status_entry &entry : statuses())
        all.emplace_back(likeness(wanted, pairs_of(std::string(entry.name).substr(10))), entry.name);
    for (const message_entry &entry : messages())
        for (const std::string &format : formats_of(entry))
            all.emplace_back(likeness(wanted, pairs_of(format)), format);
    std::stable_sort(all.begin(), all.end(), [](const auto &a, const auto &b) { return a.first > b.first; });
    std::vector<std::string> nearest;
    for (const auto &[score, name] : all)
        if (score > 0 && nearest.size() < 3)
            nearest.push_back(name);
    return nearest;
}

} // namespace ybnetctl
