// SPDX-License-Identifier: Apache-2.0
//
// ybnetctl explain: what a status or a message means. Texts are explain/'s.
#include <ostream>

#include "tools/ybnetctl/command_line.h"
#include "tools/ybnetctl/explain/search.h"
#include "tools/ybnetctl/table.h"

namespace ybnetctl {

namespace {

struct explain_options {
    std::vector<std::string> words;
    bool all = false;
};

constexpr size_t shown_max = 3; // as text; JSON has all

json to_json(const explanation &text) {
    const auto or_null = [](const char *part) { return *part == '\0' ? json(nullptr) : json(part); };
    return {{"meaning", text.meaning}, {"cause", or_null(text.cause)}, {"advice", or_null(text.advice)}};
}

json to_json(const catalogue_match &match) {
    json object;
    if (match.status != nullptr) {
        object = {{"kind", "status"}, {"number", match.status->number}, {"name", match.status->name}};
        object.update(to_json(match.status->text));
    } else {
        object = {{"kind", "message"}, {"format", match.format}};
        object.update(to_json(match.message->text));
    }
    return object;
}

void print_text(session &run, const catalogue_match &match) {
    const bool colour = run.colourful();
    const std::string title = match.status != nullptr ? std::string(match.status->name) + " (" +
                                                            std::to_string(match.status->number) + ')'
                                                      : match.format;
    const explanation &text = match.status != nullptr ? match.status->text : match.message->text;
    run.out << shaded(title, tone::heading, colour) << '\n';
    const auto part = [&](const char *name, const std::string &words) {
        if (!words.empty())
            run.out << "  " << shaded(name, tone::faint, colour) << words << '\n';
    };
    part("Meaning: ", text.meaning);
    part("Cause:   ", text.cause);
    part("To do:   ", text.advice);
}

std::vector<catalogue_match> whole_catalogue() {
    std::vector<catalogue_match> all;
    for (const status_entry &entry : statuses())
        all.push_back({.status = &entry, .format = {}});
    for (const message_entry &entry : messages())
        for (const std::string &format : formats_of(entry))
            all.push_back({.message = &entry, .format = format});
    return all;
}

void show(session &run, const std::string &query, const std::vector<catalogue_match> &found, size_t limit) {
    if (run.json_wanted) {
        json matches = json::array();
        for (const catalogue_match &each : found)
            matches.push_back(to_json(each));
        print(run, {{"query", query.empty() ? json(nullptr) : json(query)}, {"matches", matches}});
        return;
    }
    for (size_t i = 0; i < found.size() && i < limit; i++) {
        if (i > 0)
            run.out << '\n';
        print_text(run, found[i]);
    }
    if (found.size() > limit) {
        run.out << "\nAlso:\n";
        for (size_t i = limit; i < found.size(); i++)
            run.out << "  " << (found[i].status != nullptr ? found[i].status->name : found[i].format) << '\n';
    }
}

void run_explain(session &run, const explain_options &options) {
    if (options.all)
        return show(run, "", whole_catalogue(), SIZE_MAX);
    if (options.words.empty())
        throw failure{
            exit_code::usage, "explain", "a code or a text is needed", "ybnetctl explain --help", {}};
    std::string query;
    for (const std::string &word : options.words)
        query += (query.empty() ? "" : " ") + word;
    const std::vector<catalogue_match> found = search_catalogue(query);
    if (!found.empty())
        return show(run, query, found, shown_max);
    std::string nearest;
    for (const std::string &each : nearest_entries(query))
        nearest += (nearest.empty() ? "nearest: " : "; ") + each;
    throw failure{exit_code::not_found,
                  '"' + query + '"',
                  "no status and no message of this library; other parts of the stack have their own",
                  nearest.empty() ? "ybnetctl explain --all" : nearest,
                  {}};
}

constexpr const char *notes = "A line can be pasted as it stands in a log, with its numbers and names and "
                              "with whatever the log puts in front. "
                              "Messages of the library that go to standard error are known too, and those of "
                              "the ip commands that it runs. Part of a "
                              "message will do, with its numbers and names: all that have it are "
                              "listed, the best match first.\n\n"
                              "JSON: query, matches (kind: status or message; number and name of a "
                              "status, format of a message; meaning, "
                              "cause, advice).";

} // namespace

void add_explain_command(command_line &line) {
    CLI::App *const command = add_command<explain_options>(
        &line.app(), line, "explain", "Tell what a status or a message means, its usual cause and what to do",
        [](CLI::App &app, explain_options &options) {
            auto *const words =
                app.add_option("CODE|TEXT", options.words, "A status's number or name, or a line of a log");
            auto *const all = app.add_flag("--all", options.all, "Print all statuses and messages instead");
            all->excludes(words);
        },
        run_explain,
        {{"ybnetctl explain 22", "a status by its number"},
         {"ybnetctl explain entry_already_exists", "or by its name"},
         {"ybnetctl explain 'vlan10 already exists'", "a line of a log"},
         {"ybnetctl --json explain --all | jq '.matches | length'", "everything, for a page of one's own"}});
    line.add_notes(command, notes);
}

} // namespace ybnetctl
