// SPDX-License-Identifier: Apache-2.0
//
// `ybnetctl port list|show|find`: what is in the port table, and what the library
// makes of it. The records are port_view.h's.
#include <algorithm>
#include <iterator>

#include "tools/ybnetctl/command_line.h"
#include "tools/ybnetctl/option_words.h"
#include "tools/ybnetctl/see/port_view.h"
#include "tools/ybnetctl/segments/decode.h"
#include "tools/ybnetctl/segments/segment_copy.h"
#include "tools/ybnetctl/table.h"

namespace ybnetctl {

namespace {

constexpr const char *list_keys =
    "bucket, sys_ifindex, name, log_port (a number), is_lag, protocol, lag_log_port (the LAG that it is a "
    "member of), "
    "mlag_id (of a LAG), listed (false: net_lib_db_ports_get_all() leaves it out); absent ones null";

struct list_options {
    std::optional<unsigned> protocol;
    std::optional<uint32_t> lag;
    std::optional<std::string> name;
};

struct show_options {
    uint32_t sys_ifindex = 0;
};

struct find_options {
    std::optional<uint32_t> sys_ifindex;
    std::optional<uint32_t> log_port;
    std::optional<std::string> name;
};

json document_of(const segment_copy &copy, const std::vector<port_view> &shown,
                 const std::vector<std::string> &notes) {
    json document;
    document["ports"] = json::array();
    for (const port_view &one : shown)
        document["ports"].push_back(to_json(one));
    document["notes"] = notes;
    document["settled"] = copy.settled;
    document["lock_seen_free"] = copy.lock_seen_free;
    return document;
}

void answer(session &run, const segment_copy &copy, const std::vector<port_view> &shown,
            const std::vector<std::string> &notes) {
    if (run.json_wanted) {
        print(run, document_of(copy, shown, notes));
        return;
    }
    print_ports(run, shown);
    print_notes(run, notes);
    warn_when_unsettled(run, copy);
}

void list(session &run, const list_options &options) {
    const segment_copy copy = read_contents(run, segment_kind::ports);
    const std::vector<port_view> all = ports_in(copy.ports());
    std::vector<port_view> shown;
    std::copy_if(all.begin(), all.end(), std::back_inserter(shown), [&options](const port_view &one) {
        return (!options.protocol || one.protocol.value_or(0) == *options.protocol) &&
               (!options.lag || one.lag == options.lag) && (!options.name || one.name == *options.name);
    });
    const bool filtered = options.protocol || options.lag || options.name;
    answer(run, copy, shown, filtered ? std::vector<std::string>() : table_notes(copy.ports(), all));
}

void show(session &run, const show_options &options) {
    const segment_copy copy = read_contents(run, segment_kind::ports);
    const ports_body &body = copy.ports();
    const std::vector<uint16_t> buckets = buckets_of(body, options.sys_ifindex);
    if (buckets.empty())
        throw failure{exit_code::not_found,
                      "port " + std::to_string(options.sys_ifindex),
                      options.sys_ifindex == 0 ? "0 is no system ifindex"
                                               : "no bucket has this system ifindex; " +
                                                     absence_in_words(body, options.sys_ifindex),
                      "ybnetctl port list",
                      {}};
    json document;
    document["ports"] = json::array();
    for (const uint16_t bucket : buckets) {
        const port_view one = view_of(body, bucket);
        const auto *const record = reinterpret_cast<const std::byte *>(&body.port_table[bucket]);
        const std::vector<std::string> notes = port_notes(body, one);
        if (run.json_wanted) {
            json object = to_json(one);
            object["home_bucket"] = home_bucket(one.sys_ifindex);
            object["fields"] = record_json(port_entry_structure, record);
            object["notes"] = notes;
            document["ports"].push_back(object);
            continue;
        }
        run.out << (bucket == buckets.front() ? "" : "\n");
        print_ports(run, {one});
        run.out << "\nIn bucket " << bucket << ", home bucket " << home_bucket(one.sys_ifindex) << ".\n\n";
        table rows({{"FIELD", side::left}, {"VALUE", side::left}, {"MEANING", side::left}});
        for (const field *each : fields_of(port_entry_structure, record)) {
            if (each->kind != field_kind::reserved)
                rows.add({each->name, field_text(*each, record), cell(each->meaning, tone::faint)});
        }
        rows.print(run.out, run.colourful());
        print_notes(run, notes);
    }
    if (run.json_wanted) {
        document["settled"] = copy.settled;
        document["lock_seen_free"] = copy.lock_seen_free;
        print(run, document);
        return;
    }
    warn_when_unsettled(run, copy);
}

void find_by_log_port(session &run, const segment_copy &copy, uint32_t log_port) {
    const ports_body &body = copy.ports();
    const uint32_t mapped = library_log_port_get(body, log_port);
    std::vector<port_view> found;
    for (const port_view &one : ports_in(body)) {
        if (one.sys_ifindex == mapped || one.log_port == log_port)
            found.push_back(one);
    }
    const std::string name = "logical port " + hexadecimal(log_port);
    if (mapped == 0 && found.empty())
        throw failure{
            exit_code::not_found, name, "neither the map nor a record has it", "ybnetctl port list", {}};

    std::vector<std::string> notes;
    if (mapped == 0)
        notes.push_back("the map has no " + name + ": the library answers YB_STATUS_ENTRY_NOT_FOUND");
    else if (std::none_of(found.begin(), found.end(),
                          [mapped](const port_view &one) { return one.sys_ifindex == mapped; }))
        notes.push_back("the library answers " + std::to_string(mapped) + ", and no such port is recorded");
    for (const port_view &one : found) {
        if (one.sys_ifindex == mapped && one.log_port != log_port)
            notes.push_back(
                "the library answers " + std::to_string(mapped) + ", whose record has " +
                (one.log_port ? "logical port " + hexadecimal(*one.log_port) : "no logical port") + " now");
        else if (one.sys_ifindex != mapped && mapped != 0)
            notes.push_back("port " + std::to_string(one.sys_ifindex) +
                            " has it too, but the library answers " + std::to_string(mapped));
    }
    if (!run.json_wanted) {
        answer(run, copy, found, notes);
        return;
    }
    json document = document_of(copy, found, notes);
    document["sys_ifindex"] = mapped != 0 ? json(mapped) : json(nullptr);
    print(run, document);
}

void find(session &run, const find_options &options) {
    if (int{options.sys_ifindex.has_value()} + int{options.log_port.has_value()} +
            int{options.name.has_value()} !=
        1)
        throw failure{exit_code::usage,
                      "port find",
                      "exactly one of SYSIF, --log-port and --name is needed",
                      "ybnetctl port find --help",
                      {}};
    const segment_copy copy = read_contents(run, segment_kind::ports);
    if (options.log_port) {
        find_by_log_port(run, copy, *options.log_port);
        return;
    }
    const std::vector<port_view> all = ports_in(copy.ports());
    std::vector<port_view> found;
    std::copy_if(all.begin(), all.end(), std::back_inserter(found), [&options](const port_view &one) {
        return options.name ? one.name == *options.name : one.sys_ifindex == *options.sys_ifindex;
    });
    if (found.empty())
        throw failure{exit_code::not_found,
                      "port " +
                          (options.name ? '"' + *options.name + '"' : std::to_string(*options.sys_ifindex)),
                      options.name ? "no record has this name" : "no record has this system ifindex",
                      "ybnetctl port list",
                      {}};
    if (!run.json_wanted) {
        answer(run, copy, found, {});
        return;
    }
    json document = document_of(copy, found, {});
    document["sys_ifindex"] = found.front().sys_ifindex;
    print(run, document);
}

} // namespace

void add_port_queries(command_line &line, CLI::App *port) {
    CLI::App *const list_command = add_command<list_options>(
        port, line, "list", "All recorded ports and LAGs, or some of them",
        [](CLI::App &app, list_options &o) {
            app.add_option("--protocol", o.protocol, "only those with this protocol, 1 or 2; 0: with none")
                ->check(CLI::Range(0, YB_NET_PORT_PROTOCOL_MAX))
                ->type_name("N")
                ->check(whole_number());
            app.add_option("--lag", o.lag, "only members of this LAG")
                ->type_name("LOG-PORT")
                ->check(whole_number());
            app.add_option("--name", o.name, "only those with this name")->type_name("NAME");
        },
        list,
        {{"ybnetctl port list", "every port and LAG that is recorded"},
         {"ybnetctl port list --lag 0x10000500", "the members of a LAG"},
         {"ybnetctl port list --json | jq '.ports | length'", "how many there are"}});
    line.add_notes(list_command,
                   std::string("JSON: ports, by system ifindex, each with ") + list_keys +
                       "; notes (sentences on what is odd in the table; none with a filter), settled, "
                       "lock_seen_free.");

    CLI::App *const show_command = add_command<show_options>(
        port, line, "show", "One port, every field, and what the library answers for it",
        [](CLI::App &app, show_options &o) {
            app.add_option("SYSIF", o.sys_ifindex, "its system ifindex")->required();
        },
        show, {{"ybnetctl port show 0x10001", "port 65537, and what its fields mean"}});
    line.add_notes(
        show_command,
        "Shows what is in the table. Where the library's own search would answer another record, none, or a "
        "record of zeros, a note says so.\n\n"
        "JSON: ports, usually one, each with the keys of port list, home_bucket, fields (every field by the "
        "names of net_lib_port(5)) and notes; beside them settled, lock_seen_free.");

    CLI::App *const find_command = add_command<find_options>(
        port, line, "find", "Ports by exactly one of their system ifindex, their logical port and their name",
        [](CLI::App &app, find_options &o) {
            app.add_option("SYSIF", o.sys_ifindex, "system ifindex")
                ->type_name("SYSIF")
                ->check(whole_number());
            app.add_option("--log-port", o.log_port, "its logical port, of a LAG too")
                ->type_name("LOG-PORT")
                ->check(whole_number());
            app.add_option("--name", o.name, "its name")->type_name("NAME");
        },
        find,
        {{"ybnetctl port find --log-port 0x10100", "which port that is"},
         {"ybnetctl port find 0x10001", "the logical port and the name of a system ifindex"},
         {"ybnetctl port find --name swp1", "the same by its name"}});
    line.add_notes(
        find_command,
        "JSON: ports (those that the map or their own record ties to the logical port, with the keys of port "
        "list), sys_ifindex (what net_lib_db_log_port_get() answers, null when nothing; with SYSIF or --name "
        "that "
        "of the first), notes, settled, lock_seen_free.");
}

} // namespace ybnetctl
