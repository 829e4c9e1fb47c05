// SPDX-License-Identifier: Apache-2.0
//
// See diff.h. What differs is found in compare.cc; this file reads the two sides
// and prints.
#include "tools/ybnetctl/see/diff.h"

#include <ostream>

#include "tools/ybnetctl/see/dump.h"
#include "tools/ybnetctl/segments/segment_copy.h"
#include "tools/ybnetctl/table.h"

namespace ybnetctl {

namespace {

constexpr const char *live_word = "live";

struct diff_options {
    std::string before;
    std::string after;
    dump_choice choice;
};

segment_copy read_file(const std::string &path) {
    segment_copy copy = read_segment_file(path);
    if (!copy.fits)
        throw failure{exit_code::failed,
                      path,
                      "has another layout than this build's, or was never finished",
                      "ybnetctl --file " + path + " status",
                      {}};
    return copy;
}

// `live` stands for the live segment of the other side's kind.
std::pair<segment_copy, segment_copy> read_both(const session &run, const diff_options &options) {
    const bool before_live = options.before == live_word;
    const bool after_live = options.after == live_word;
    if (!run.files.empty())
        throw failure{exit_code::usage,
                      "diff",
                      "--file has no business here: both sides are named",
                      "ybnetctl diff --help",
                      {}};
    if (before_live && after_live)
        throw failure{exit_code::usage, "diff", "one side must be a file", "ybnetctl diff --help", {}};
    if (before_live) {
        segment_copy after = read_file(options.after);
        return {read_contents(run, after.kind), std::move(after)};
    }
    segment_copy before = read_file(options.before);
    segment_copy after = after_live ? read_contents(run, before.kind) : read_file(options.after);
    if (before.kind != after.kind)
        throw failure{exit_code::usage,
                      "diff",
                      "one side is an interfaces segment, the other a ports segment",
                      "ybnetctl diff --help",
                      {}};
    return {std::move(before), std::move(after)};
}

const char *name_of(change_kind kind) {
    switch (kind) {
    case change_kind::added:
        return "added";
    case change_kind::removed:
        return "removed";
    case change_kind::changed:
        break;
    }
    return "changed";
}

json to_json(const difference &one) {
    json object;
    object["change"] = name_of(one.kind);
    object["region"] = one.region;
    object["index_before"] = one.kind == change_kind::added ? json(nullptr) : json(one.before_index);
    object["index_after"] = one.kind == change_kind::removed ? json(nullptr) : json(one.after_index);
    object["sys_ifindex"] = one.has_key ? json(one.sys_ifindex) : json(nullptr);
    object["fields"] = json::array();
    for (const changed_field &each : one.fields)
        object["fields"].push_back(
            {{"name", each.name}, {"before", each.before_value}, {"after", each.after_value}});
    return object;
}

void print_difference(session &run, const difference &one) {
    const bool colour = run.colourful();
    const char sign = one.kind == change_kind::added ? '+' : one.kind == change_kind::removed ? '-' : '~';
    std::string place = one.region + '[' + std::to_string(one.before_index) + ']';
    if (one.before_index != one.after_index)
        place += " -> [" + std::to_string(one.after_index) + ']';
    if (one.has_key)
        place += " sys_ifindex " + std::to_string(one.sys_ifindex);
    run.out << shaded(std::string(1, sign) + ' ' + place, tone::heading, colour) << '\n';
    for (const changed_field &each : one.fields) {
        if (!each.before.empty())
            run.out << shaded("-   " + each.name + " = " + each.before, tone::bad, colour) << '\n';
        if (!each.after.empty())
            run.out << shaded("+   " + each.name + " = " + each.after, tone::good, colour) << '\n';
    }
}

void diff(session &run, const diff_options &options) {
    const auto [before, after] = read_both(run, options);
    const comparison found = compare(before, after, options.choice);
    if (run.json_wanted) {
        json document;
        document["before"] = before.path;
        document["after"] = after.path;
        document["identical"] = found.differences.empty() && found.hidden == 0;
        document["differences"] = json::array();
        for (const difference &one : found.differences)
            document["differences"].push_back(to_json(one));
        document["hidden"] = found.hidden;
        document["settled"] = before.settled && after.settled;
        document["lock_seen_free"] = before.lock_seen_free && after.lock_seen_free;
        print(run, document);
        return;
    }
    run.out << "--- " << printable(before.path) << "\n+++ " << printable(after.path) << '\n';
    for (const difference &one : found.differences)
        print_difference(run, one);
    if (found.differences.empty())
        run.out << (found.hidden == 0 ? "No difference.\n"
                                      : "No difference in records, maps and counters.\n");
    if (found.hidden != 0)
        run.out << found.hidden << (found.hidden == 1 ? " difference" : " differences")
                << " in free slots, removed ports, lock words and reserved bytes not shown (--all)\n";
    warn_when_unsettled(run, before);
    warn_when_unsettled(run, after);
}

} // namespace

void add_diff_command(command_line &line) {
    CLI::App *const command = add_command<diff_options>(
        &line.app(), line, "diff", "What differs between two copies of a segment, or a copy and the live one",
        [](CLI::App &app, diff_options &o) {
            app.add_option("A", o.before, "a copy of a segment, or the word live")->required();
            app.add_option("B", o.after, "the same")->required();
            app.add_flag("--all", o.choice.all,
                         "free slots, removed ports, lock words and reserved bytes too");
        },
        diff,
        {{"ybnetctl diff /tmp/net_lib_ifc live", "what has changed since the copy was made"},
         {"ybnetctl diff /tmp/net_lib_port live --json | jq .identical", "whether anything has"}});
    line.add_notes(
        command,
        "Ends with 0 whether or not there are differences. Make a copy with cp; one that was made while the "
        "segment was written to may hold a half-written record.\n\n"
        "JSON: before, after (paths), identical, differences, hidden (how many were not shown), settled, "
        "lock_seen_free. A difference has change (added, removed, changed), region, index_before and "
        "index_after (null where it is not), sys_ifindex (null for what has no key) and fields with name, "
        "before, after (null where the record is not).");
}

} // namespace ybnetctl
