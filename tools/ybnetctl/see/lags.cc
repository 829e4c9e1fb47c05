// SPDX-License-Identifier: Apache-2.0
//
// `ybnetctl lag list|show` and `mlag list|show`: who is bound to what, by the
// records and by the maps. Put together in lag_view.cc.
#include <algorithm>
#include <ostream>

#include "tools/ybnetctl/command_line.h"
#include "tools/ybnetctl/see/port_view.h"
#include "tools/ybnetctl/segments/decode.h"
#include "tools/ybnetctl/segments/segment_copy.h"
#include "tools/ybnetctl/table.h"

namespace ybnetctl {

namespace {

struct list_options {};

struct lag_options {
    uint32_t lag = 0;
};

struct mlag_options {
    unsigned id = 0;
};

std::string member_name(const port_view &member) {
    return member.name.empty() ? std::to_string(member.sys_ifindex) : printable(member.name);
}

json to_json(const lag_view &lag) {
    json object;
    object["log_port"] = lag.log_port;
    object["lag_index"] = lag.index();
    object["sys_ifindex"] = lag.port ? json(lag.port->sys_ifindex) : json(nullptr);
    object["name"] = lag.port ? json(lag.port->name) : json(nullptr);
    object["mlag_id"] = lag.mlag_id ? json(*lag.mlag_id) : json(nullptr);
    object["members"] = json::array();
    for (const port_view &member : lag.members)
        object["members"].push_back(to_json(member));
    object["notes"] = lag.notes;
    return object;
}

json to_json(const mlag_view &mlag) {
    json object;
    object["mlag_id"] = mlag.id;
    object["lag_log_port"] = mlag.log_port ? json(*mlag.log_port) : json(nullptr);
    object["lag_sys_ifindex"] = mlag.lag ? json(mlag.lag->sys_ifindex) : json(nullptr);
    object["lag_name"] = mlag.lag ? json(mlag.lag->name) : json(nullptr);
    object["notes"] = mlag.notes;
    return object;
}

template <typename view_type>
void print_document(session &run, const segment_copy &copy, const char *key,
                    const std::vector<view_type> &views) {
    json document;
    document[key] = json::array();
    for (const view_type &each : views)
        document[key].push_back(to_json(each));
    document["settled"] = copy.settled;
    document["lock_seen_free"] = copy.lock_seen_free;
    print(run, document);
}

void print_lags(session &run, const std::vector<lag_view> &lags) {
    table rows({{"LOG-PORT", side::right},
                {"INDEX", side::right},
                {"SYSIF", side::right},
                {"NAME", side::left},
                {"MLAG", side::right},
                {"MEMBERS", side::left}});
    for (const lag_view &lag : lags) {
        std::string members;
        for (const port_view &member : lag.members)
            members += (members.empty() ? "" : " ") + member_name(member);
        rows.add({hexadecimal(lag.log_port), lag.index(), lag.port ? cell(lag.port->sys_ifindex) : cell(""),
                  lag.port ? printable(lag.port->name) : "", lag.mlag_id ? cell(*lag.mlag_id) : cell(""),
                  members});
    }
    rows.print(run.out, run.colourful());
    for (const lag_view &lag : lags) {
        for (const std::string &note : lag.notes)
            print_notes(run, {"LAG " + hexadecimal(lag.log_port) + ": " + note});
    }
}

void print_mlags(session &run, const std::vector<mlag_view> &mlags) {
    table rows({{"MLAG", side::right}, {"LAG", side::right}, {"SYSIF", side::right}, {"NAME", side::left}});
    for (const mlag_view &mlag : mlags)
        rows.add({mlag.id, mlag.log_port ? cell(hexadecimal(*mlag.log_port)) : cell(""),
                  mlag.lag ? cell(mlag.lag->sys_ifindex) : cell(""),
                  mlag.lag ? printable(mlag.lag->name) : ""});
    rows.print(run.out, run.colourful());
    for (const mlag_view &mlag : mlags) {
        for (const std::string &note : mlag.notes)
            print_notes(run, {"MLAG id " + std::to_string(mlag.id) + ": " + note});
    }
}

void list_lags(session &run, const list_options &) {
    const segment_copy copy = read_contents(run, segment_kind::ports);
    const std::vector<lag_view> lags = lags_in(copy.ports(), ports_in(copy.ports()));
    if (run.json_wanted) {
        print_document(run, copy, "lags", lags);
        return;
    }
    print_lags(run, lags);
    warn_when_unsettled(run, copy);
}

void show_lag(session &run, const lag_options &options) {
    const segment_copy copy = read_contents(run, segment_kind::ports);
    const std::vector<lag_view> all = lags_in(copy.ports(), ports_in(copy.ports()));
    const auto found = std::find_if(all.begin(), all.end(), [&options](const lag_view &lag) {
        return lag.log_port == options.lag || (lag.port && lag.port->sys_ifindex == options.lag);
    });
    if (found == all.end())
        throw failure{exit_code::not_found,
                      "LAG " + hexadecimal(options.lag),
                      "no LAG has this logical port or system ifindex, and no member names it",
                      "ybnetctl lag list",
                      {}};
    if (run.json_wanted) {
        print_document<lag_view>(run, copy, "lags", {*found});
        return;
    }
    print_lags(run, {*found});
    if (!found->members.empty()) {
        run.out << "\nMembers\n";
        print_ports(run, found->members);
    }
    warn_when_unsettled(run, copy);
}

void list_mlags(session &run, const list_options &) {
    const segment_copy copy = read_contents(run, segment_kind::ports);
    const std::vector<mlag_view> mlags = mlags_in(copy.ports(), ports_in(copy.ports()));
    if (run.json_wanted) {
        print_document(run, copy, "mlags", mlags);
        return;
    }
    print_mlags(run, mlags);
    warn_when_unsettled(run, copy);
}

void show_mlag(session &run, const mlag_options &options) {
    const segment_copy copy = read_contents(run, segment_kind::ports);
    const std::vector<mlag_view> all = mlags_in(copy.ports(), ports_in(copy.ports()));
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&options](const mlag_view &mlag) { return mlag.id == options.id; });
    if (found == all.end())
        throw failure{exit_code::not_found,
                      "MLAG id " + std::to_string(options.id),
                      "no LAG is bound to it",
                      "ybnetctl mlag list",
                      {}};
    if (run.json_wanted) {
        print_document<mlag_view>(run, copy, "mlags", {*found});
        return;
    }
    print_mlags(run, {*found});
    warn_when_unsettled(run, copy);
}

constexpr const char *lag_keys =
    "log_port, lag_index, sys_ifindex and name (null when no record of it is there), mlag_id (by the map; "
    "null none), "
    "members (ports, with the keys of port list), notes; beside them settled, lock_seen_free.";
constexpr const char *mlag_keys = "mlag_id, lag_log_port (what net_lib_db_lag_get() answers; null none), "
                                  "lag_sys_ifindex and lag_name (null when no "
                                  "record of it is there), notes; beside them settled, lock_seen_free.";

// A group that lists when nothing is said: there is little else that can be meant.
void list_by_default(command_line &line, CLI::App *group, void (*list)(session &, const list_options &)) {
    group->require_subcommand(0, 1);
    group->callback([&line, group, list] {
        if (group->get_subcommands().empty())
            line.choose([&line, list] { list(line.run(), {}); });
    });
}

} // namespace

void add_lag_queries(command_line &line, CLI::App *lag, CLI::App *mlag) {
    list_by_default(line, lag, list_lags);
    list_by_default(line, mlag, list_mlags);
    CLI::App *const lags = add_command<list_options>(
        lag, line, "list",
        "All LAGs with their members, also those that only a member or an MLAG id still names",
        [](CLI::App &, list_options &) {}, list_lags,
        {{"ybnetctl lag list", "every LAG, its MLAG id and its members"}});
    line.add_notes(lags,
                   std::string("ybnetctl lag alone does the same.\n\nJSON: lags, each with ") + lag_keys);

    CLI::App *const one_lag = add_command<lag_options>(
        lag, line, "show", "One LAG with its members",
        [](CLI::App &app, lag_options &o) {
            app.add_option("LAG", o.lag, "its logical port or its system ifindex")->required();
        },
        show_lag,
        {{"ybnetctl lag show 0x10000500", "a LAG by its logical port"},
         {"ybnetctl lag show 0x20001 --json", "the same by its system ifindex, as JSON"}});
    line.add_notes(one_lag, std::string("JSON: lags, with one that has ") + lag_keys);

    CLI::App *const mlags = add_command<list_options>(
        mlag, line, "list", "All MLAG ids in use, with their LAGs", [](CLI::App &, list_options &) {},
        list_mlags, {{"ybnetctl mlag list", "every MLAG id that is bound"}});
    line.add_notes(mlags,
                   std::string("ybnetctl mlag alone does the same.\n\nJSON: mlags, each with ") + mlag_keys);

    CLI::App *const one_mlag =
        add_command<mlag_options>(mlag, line, "show", "The LAG that an MLAG id is bound to",
                                  [](CLI::App &app, mlag_options &o) {
                                      app.add_option("ID", o.id, "the MLAG id, 1 to 1000")
                                          ->required()
                                          ->check(CLI::Range(YB_NET_MLAG_ID_MIN, YB_NET_MLAG_ID_MAX));
                                  },
                                  show_mlag, {{"ybnetctl mlag show 7", "the LAG of MLAG id 7"}});
    line.add_notes(one_mlag, std::string("JSON: mlags, with one that has ") + mlag_keys);
}

} // namespace ybnetctl
