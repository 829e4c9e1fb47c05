// SPDX-License-Identifier: Apache-2.0
//
// See interface_set.h. The library sends link states to the namespace of its request socket and looks netdevs up by
// the recorded Linux ifindex or name: in another namespace those are another netdev's, so this goes there first.
#include "tools/ybnetctl/change/interface_set.h"

#include "tools/ybnetctl/change/changing.h"
#include "tools/ybnetctl/change/interface_record.h"
#include "tools/ybnetctl/change/names.h"
#include "tools/ybnetctl/change/numbers.h"
#include "tools/ybnetctl/change/port_driver.h"
#include "ybnet/net_lib.h"

namespace ybnetctl {

namespace {

struct set_options {
    uint32_t sys_ifindex = 0;
    std::string admin; // up, down; "": leave it
    std::string oper;
    std::string rif;
    std::string vrid;
};

uint32_t state_of(const std::string &word) {
    return word == "up" ? YB_NET_IF_STATE_UP : YB_NET_IF_STATE_DOWN;
}

// What the four have been so far: what was done before a failure stays done, and is said.
struct set_steps {
    library &lib;
    std::string thing;
    std::string done = {};

    // kind: of the step that stands in a rehearsal for a call that got nowhere.
    void take(const char *kind, const std::string &what, const call_answer &answer,
              const std::string &advice) {
        if (answer.done()) {
            done += (done.empty() ? "" : ", ") + what;
            return;
        }
        failure problem = failure_of(thing, answer, what + " could not be set", advice);
        if (lib.rehearsed() != nullptr)
            lib.rehearsed()->note_failure(kind, thing + ": " + what, problem.reason);
        problem.thing += ", " + what;
        throw after_what_was_done(problem);
    }

    [[nodiscard]] failure after_what_was_done(failure problem) const {
        if (!done.empty())
            problem.reason +=
                (lib.rehearsed() != nullptr ? "; would be set before: " : "; set before: ") + done;
        return problem;
    }
};

// The netdev behind the record must be the one that has its number now.
void check_netdev(library &lib, const std::string &thing, const yb_net_interface_record_t &record) {
    const std::string ns = text_of(record.params.ns_name);
    const std::string name = text_of(record.params.name);
    const uint32_t now = lib.netdev_index(ns, name);
    if (now == record.linux_ifindex)
        return;
    const std::string where = ns.empty() ? "" : " in namespace " + ns;
    throw failure{exit_code::failed,
                  thing,
                  now == 0 ? "its netdev " + name + where + " does not exist"
                           : "its netdev " + name + where + " has Linux ifindex " + std::to_string(now) +
                                 ", not " + std::to_string(record.linux_ifindex) +
                                 " as recorded: another netdev would be changed",
                  "ybnetctl audit",
                  {}};
}

// Into the namespace of the netdev. What was set before stays set.
std::unique_ptr<inside_namespace> enter_after(const set_steps &steps, const std::string &ns, bool sends) {
    try {
        auto there = enter(steps.lib, ns);
        if (sends)
            steps.lib.claim_request_namespace(steps.thing);
        return there;
    } catch (const failure &problem) {
        throw steps.after_what_was_done(problem);
    }
}

void set(session &run, const set_options &options) {
    const std::string thing = interface_thing(options.sys_ifindex);
    const uint32_t key = options.sys_ifindex;
    change(run, [&](library &lib) {
        if (options.admin.empty() && options.oper.empty() && options.rif.empty() && options.vrid.empty())
            throw failure{exit_code::usage, thing, "nothing to set", "ybnetctl interface set --help", {}};
        lib.need_interfaces();
        const yb_net_interface_record_t record = record_of(lib, key);
        const bool wants_state = !options.admin.empty() || !options.oper.empty();
        if (wants_state)
            check_netdev(lib, thing, record);
        set_steps steps{lib, thing};
        if (!options.rif.empty())
            steps.take("record", "rif " + options.rif, lib.call_plainly([&] {
                return yb_net_interface_rif_set(key, value_of(rif_number, options.rif));
            }),
                       "ybnetctl status");
        if (!options.vrid.empty())
            steps.take("record", "vrid " + options.vrid, lib.call_plainly([&] {
                return yb_net_interface_vrid_set(key, value_of(vrid_number, options.vrid));
            }),
                       "ybnetctl interface set " + std::to_string(key) + " --vrid none # first");
        if (wants_state) {
            const auto there = enter_after(steps, text_of(record.params.ns_name), !options.admin.empty());
            if (!options.admin.empty())
                steps.take("request", "admin " + options.admin,
                           lib.call([&] { return yb_net_interface_state_set(key, state_of(options.admin)); }),
                           "ybnetctl audit");
            if (!options.oper.empty())
                steps.take("driver", "oper " + options.oper, lib.call([&] {
                    return yb_net_interface_oper_state_set(key, state_of(options.oper));
                }),
                           port_driver_advice);
        }
        change_result result;
        result.document["interface"] = to_json(record_of(lib, key));
        return result;
    });
}

} // namespace

void add_interface_set(command_line &line, CLI::App *interface) {
    CLI::App *const command = add_command<set_options>(
        interface, line, "set",
        "Set link states, router interface id and VRID, in the order rif, vrid, admin, oper",
        [](CLI::App &app, set_options &options) {
            const auto states = CLI::IsMember({"up", "down"});
            app.add_option("SYSIF", options.sys_ifindex, "its system ifindex")->required();
            app.add_option("--admin", options.admin, "administrative state of its netdev")->check(states);
            app.add_option("--oper", options.oper, "operational state that the switch's driver shows")
                ->check(states);
            app.add_option("--rif", options.rif, "router interface id")->check(check(rif_number));
            app.add_option("--vrid", options.vrid,
                           "virtual router id; one that is set must be cleared first (none)")
                ->check(check(vrid_number));
        },
        set,
        {{"ybnetctl --dry-run interface set 110 --rif 7", "what it would record, and do nothing"},
         {"ybnetctl interface set 110 --admin up --rif 5", "up, in its namespace", true},
         {"ybnetctl interface set 110 --vrid none", "no VRID", true}});
    line.add_notes(
        command,
        std::string("JSON: interface (afterwards; as ybnetctl interface list shows it, without slot), ") +
            change_keys);
}

} // namespace ybnetctl
