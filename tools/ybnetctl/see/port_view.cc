// SPDX-License-Identifier: Apache-2.0
//
// See port_view.h; LAGs and MLAG ids are lag_view.cc's.
#include "tools/ybnetctl/see/port_view.h"

#include <algorithm>
#include <map>
#include <ostream>

#include "tools/ybnetctl/segments/decode.h"
#include "tools/ybnetctl/table.h"

namespace ybnetctl {

namespace {

template <typename value_type> std::optional<value_type> unless_zero(value_type value) {
    return value != 0 ? std::optional(value) : std::nullopt;
}

template <typename value_type> json json_of(const std::optional<value_type> &value) {
    return value ? json(*value) : json(nullptr);
}

cell hexadecimal_cell(const std::optional<uint32_t> &value) {
    return value ? cell(hexadecimal(*value)) : cell("");
}

cell number_cell(const std::optional<unsigned> &value) {
    return value ? cell(*value) : cell("");
}

} // namespace

port_view view_of(const ports_body &body, uint16_t bucket) {
    const net_lib_port_entry_t &entry = body.port_table[bucket];
    const yb_net_port_info_t &info = entry.info;
    port_view one;
    one.bucket = bucket;
    one.sys_ifindex = entry.sys_ifindex;
    one.name = text_at(reinterpret_cast<const std::byte *>(info.name), sizeof(info.name));
    one.log_port = unless_zero(info.log_port);
    one.protocol = unless_zero(static_cast<unsigned>(info.protocol));
    one.lag = unless_zero(info.lag_log_port);
    if (one.is_lag())
        one.mlag_id = unless_zero(static_cast<unsigned>(info.mlag_id));
    one.uncounted = entry.hash == 0;
    return one;
}

std::vector<port_view> ports_in(const ports_body &body) {
    std::vector<port_view> all;
    for (uint32_t i = 0; i < YB_NET_PORTS_MAX; i++) {
        const bucket_state state = state_of(body.port_table[i]);
        if (state == bucket_state::recorded || state == bucket_state::uncounted)
            all.push_back(view_of(body, static_cast<uint16_t>(i)));
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const port_view &a, const port_view &b) { return a.sys_ifindex < b.sys_ifindex; });
    return all;
}

std::vector<std::string> port_notes(const ports_body &body, const port_view &one) {
    std::vector<std::string> notes;
    if (one.uncounted)
        notes.emplace_back(
            "its CRC-16 is 0, so its bucket counts as empty: the library does not list it, and another "
            "port may take the bucket over without a word");
    if (const std::string difference = difference_in_words(body, one.sys_ifindex, one.bucket);
        !difference.empty())
        notes.push_back(difference);
    if (one.log_port) {
        const uint32_t mapped = library_log_port_get(body, *one.log_port);
        if (mapped == 0)
            notes.push_back("its logical port " + hexadecimal(*one.log_port) +
                            " is not in the map: the library does not find it by that");
        else if (mapped != one.sys_ifindex)
            notes.push_back("for its logical port " + hexadecimal(*one.log_port) + " the library answers " +
                            std::to_string(mapped));
    }
    return notes;
}

std::vector<std::string> table_notes(const ports_body &body, const std::vector<port_view> &all) {
    std::map<bucket_state, unsigned> counts;
    for (const net_lib_port_entry_t &bucket : body.port_table)
        counts[state_of(bucket)]++;
    std::vector<std::string> notes;
    const auto note = [&notes](size_t count, const char *what) {
        if (count != 0)
            notes.push_back(std::to_string(count) + what);
    };
    const std::vector<bool> answered = buckets_answered(body);
    const auto differing = std::count_if(all.begin(), all.end(),
                                         [&answered](const port_view &one) { return !answered[one.bucket]; });
    note(static_cast<size_t>(differing),
         " of these the library does not find or answers otherwise (port show says why)");
    note(counts[bucket_state::uncounted], " of these the library does not list: their CRC-16 is 0");
    note(counts[bucket_state::damaged], " buckets are damaged: their hash is not their key's (dump ports)");
    note(counts[bucket_state::stray_bytes],
         " buckets hold what was written for ports that are not recorded (dump ports)");
    return notes;
}

void print_ports(session &run, const std::vector<port_view> &shown) {
    table rows({{"SYSIF", side::right},
                {"NAME", side::left},
                {"LOG-PORT", side::right},
                {"PROTOCOL", side::right},
                {"LAG", side::right},
                {"MLAG", side::right}});
    for (const port_view &one : shown)
        rows.add({one.sys_ifindex, printable(one.name), hexadecimal_cell(one.log_port),
                  number_cell(one.protocol), hexadecimal_cell(one.lag), number_cell(one.mlag_id)});
    rows.print(run.out, run.colourful());
}

void print_notes(session &run, const std::vector<std::string> &notes) {
    for (const std::string &note : notes)
        run.out << shaded("note: ", tone::warning, run.colourful()) << printable(note) << '\n';
}

json to_json(const port_view &one) {
    json object;
    object["bucket"] = one.bucket;
    object["sys_ifindex"] = one.sys_ifindex;
    object["name"] = one.name;
    object["log_port"] = json_of(one.log_port);
    object["is_lag"] = one.is_lag();
    object["protocol"] = json_of(one.protocol);
    object["lag_log_port"] = json_of(one.lag);
    object["mlag_id"] = json_of(one.mlag_id);
    object["listed"] = !one.uncounted;
    return object;
}

} // namespace ybnetctl
