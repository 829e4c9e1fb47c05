// SPDX-License-Identifier: Apache-2.0
//
// interface edit, destroy, destroy-all; interface create and interface set have files of their own.
#include "tools/ybnetctl/command_line.h"

#include "tools/ybnetctl/change/changing.h"
#include "tools/ybnetctl/change/inside_namespace.h"
#include "tools/ybnetctl/change/interface_create.h"
#include "tools/ybnetctl/change/interface_record.h"
#include "tools/ybnetctl/change/interface_set.h"
#include "tools/ybnetctl/change/names.h"
#include "tools/ybnetctl/change/netdev_left.h"
#include "tools/ybnetctl/see/interface_view.h"
#include "tools/ybnetctl/shell_word.h"
#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db.h"
#include "ybnet/net_lib_db_layout.h"

namespace ybnetctl {

namespace {

// ---- edit ---------------------------------------------------------------------

struct edit_options {
    uint32_t sys_ifindex = 0;
    uint32_t vid = 0;
};

void edit(session &run, const edit_options &options) {
    const std::string thing = interface_thing(options.sys_ifindex);
    change(run, [&](library &lib) {
        lib.need_interfaces();
        const yb_net_interface_record_t record = record_of(lib, options.sys_ifindex);
        if (record.params.type != YB_L2_INTERFACE_TYPE_PORT_VLAN)
            throw failure{exit_code::failed,
                          thing,
                          "is of type " + interface_type_name(record.params.type) +
                              "; only the VLAN id of a PORT_VLAN can be edited",
                          "ybnetctl interface destroy " + std::to_string(options.sys_ifindex) +
                              " # and create it anew",
                          {}};
        yb_net_interface_params_t params = record.params;
        params.by_type.port_vlan.vlan_id = static_cast<uint16_t>(options.vid);
        const call_answer answer =
            lib.call([&] { return yb_net_interface_set(YB_ACCESS_CMD_EDIT, options.sys_ifindex, &params); });
        if (!answer.done())
            throw failure_of(thing, answer, "its VLAN id could not be changed", "ybnetctl audit");

        change_result result;
        result.document["interface"] = to_json(record_of(lib, options.sys_ifindex));
        const std::string name = text_of(record.params.name);
        const auto kernels = vlan_id_in_kernel(text_of(record.params.ns_name), name);
        result.document["kernel_vlan_id"] = kernels ? json(*kernels) : json(nullptr);
        if (kernels && *kernels != options.vid)
            result.sentence = thing + ": VLAN id " + std::to_string(options.vid) +
                              " is recorded, but the kernel accepted the change without making it: " + name +
                              " still has tag " + std::to_string(*kernels) +
                              " (mainline Linux never changes it). To change it: destroy and create";
        return result;
    });
}

// ---- destroy ------------------------------------------------------------------

struct destroy_options {
    uint32_t sys_ifindex = 0;
    bool record_only = false;
    bool force = false;
};

std::string advice_after_destroy(library &lib, const destroy_options &options,
                                 const yb_net_interface_record_t &record) {
    const std::string ns = text_of(record.params.ns_name);
    const std::string name = text_of(record.params.name);
    if (options.record_only)
        return "ybnetctl status";
    if (lib.netdev_index(ns, name) == 0)
        return "ybnetctl interface destroy " + std::to_string(options.sys_ifindex) +
               " --record-only # the record of a netdev that is gone";
    return ip_in(ns) + "-d link show dev " + shell_word(name);
}

void destroy(session &run, const destroy_options &options) {
    const std::string thing = interface_thing(options.sys_ifindex);
    change(run, [&](library &lib) {
        lib.need_interfaces();
        const yb_net_interface_record_t record = record_of(lib, options.sys_ifindex);
        const std::string ns = text_of(record.params.ns_name);
        call_answer answer;
        if (options.record_only) {
            const netdev_remains left = options.force ? netdev_remains() : netdev_left(lib, record);
            if (!left.words.empty())
                throw failure{exit_code::failed,
                              thing,
                              left.words,
                              left.advice + "; or add --force, for the record all the same",
                              {}};
            answer = lib.call_plainly([&] { return net_lib_db_interface_remove(options.sys_ifindex); });
        } else if (!namespace_exists(ns)) {
            throw failure{exit_code::failed,
                          thing,
                          "there is no namespace " + ns + " any more, and so no netdev",
                          advice_after_destroy(lib, options, record),
                          {}};
        } else if (record.params.type == YB_L2_INTERFACE_TYPE_PORT) {
            // The library finds a port's netdev in the namespace of the call only.
            const std::unique_ptr<inside_namespace> there = enter(lib, ns);
            lib.claim_request_namespace(thing);
            answer = lib.call(
                [&] { return yb_net_interface_set(YB_ACCESS_CMD_DESTROY, options.sys_ifindex, nullptr); });
        } else {
            answer = lib.call(
                [&] { return yb_net_interface_set(YB_ACCESS_CMD_DESTROY, options.sys_ifindex, nullptr); });
        }
        if (!answer.done())
            throw failure_of(thing, answer,
                             options.record_only ? "its record could not be removed"
                                                 : "its netdev " + text_of(record.params.name) +
                                                       " could not be removed; the record stays",
                             advice_after_destroy(lib, options, record));
        change_result result;
        result.document["interface"] = to_json(record);
        return result;
    });
}

// ---- destroy-all --------------------------------------------------------------

struct no_options {};

struct record_counts {
    unsigned loopbacks = 0;
    unsigned others = 0;
    bool ports = false;
};

record_counts count_records(library &lib) {
    record_counts counts;
    (void)lib.call_plainly([&] {
        for (uint32_t i = 0; i < YB_NET_INTERFACES_MAX; i++) {
            yb_net_interface_record_t record = {};
            if (net_lib_db_interface_get_by_db_index(i, &record) != YB_STATUS_SUCCESS)
                continue;
            (record.params.type == YB_L2_INTERFACE_TYPE_LOOPBACK ? counts.loopbacks : counts.others)++;
            counts.ports = counts.ports || record.params.type == YB_L2_INTERFACE_TYPE_PORT;
        }
        return yb_status_t{YB_STATUS_SUCCESS};
    });
    return counts;
}

void destroy_all(session &run, const no_options &) {
    change(run, [&](library &lib) {
        lib.need_interfaces();
        const record_counts before = count_records(lib);
        if (before.ports)
            lib.claim_request_namespace("interface destroy-all");
        const call_answer answer =
            lib.call([&] { return yb_net_interface_set(YB_ACCESS_CMD_DELETE_ALL, 0, nullptr); });
        const record_counts after = count_records(lib);
        const unsigned removed = before.others > after.others ? before.others - after.others : 0;
        const std::string counted =
            std::to_string(removed) + (removed == 1 ? " interface removed" : " interfaces removed");
        if (!answer.done()) {
            failure what = failure_of("interface destroy-all", answer, "one could not be removed",
                                      "ybnetctl audit; ybnetctl interface destroy SYSIF, one by one");
            what.reason +=
                "; " + counted + ", " + std::to_string(after.others) + " left beside the loopbacks";
            throw what;
        }
        change_result result;
        result.document["removed"] = removed;
        result.document["loopbacks_left"] = after.loopbacks;
        result.sentence =
            counted + (after.loopbacks == 0 ? "" : "; loopbacks stay: " + std::to_string(after.loopbacks));
        return result;
    });
}

} // namespace

std::unique_ptr<inside_namespace> enter(library &lib, const std::string &ns) {
    if (is_own_namespace(ns))
        return nullptr;
    auto there = std::make_unique<inside_namespace>(ns);
    if (lib.rehearsed() != nullptr)
        lib.rehearsed()->add_step({"namespace", ns, nullptr, ""});
    return there;
}

void add_interface_changes(command_line &line, CLI::App *interface) {
    add_interface_create(line, interface);

    CLI::App *command = add_command<edit_options>(
        interface, line, "edit", "Give a port-vlan interface another VLAN id",
        [](CLI::App &app, edit_options &options) {
            app.add_option("SYSIF", options.sys_ifindex, "its system ifindex")->required();
            app.add_option("--vid", options.vid, "802.1Q id, 0 to 4095; the rest stays as it is recorded")
                ->required()
                ->check(CLI::Range(0, 4095));
        },
        edit,
        {{"ybnetctl interface edit 130 --vid 31", "VLAN id 31, and whether the kernel really changed it",
          true}});
    line.add_notes(command, std::string("JSON: interface (without slot), kernel_vlan_id (what the netdev "
                                        "really has; null: cannot be told), ") +
                                change_keys);

    add_interface_set(line, interface);

    command = add_command<destroy_options>(
        interface, line, "destroy", "Remove the netdev of a router interface and its record",
        [](CLI::App &app, destroy_options &options) {
            app.add_option("SYSIF", options.sys_ifindex, "its system ifindex")->required();
            CLI::Option *const record_only =
                app.add_flag("--record-only", options.record_only,
                             "Remove the record alone, of an interface whose netdev is gone");
            app.add_flag("--force", options.force,
                         "With --record-only: also when the netdev is there, or cannot be looked for")
                ->needs(record_only);
        },
        destroy,
        {{"ybnetctl --dry-run interface destroy 140", "what it would run, and do nothing"},
         {"ybnetctl interface destroy 140", "removes loop1 in namespace red", true}});
    line.add_notes(command,
                   std::string("JSON: interface (as it was recorded, without slot), ") + change_keys);

    command = add_command<no_options>(
        interface, line, "destroy-all",
        "Remove every VLAN and port with its record, loopbacks excepted. Asks nothing and says how many",
        [](CLI::App &, no_options &) {}, destroy_all,
        {{"ybnetctl --dry-run interface destroy-all", "what it would run, and do nothing"},
         {"ybnetctl interface destroy-all", "all but the loopbacks", true}});
    line.add_notes(command, std::string("JSON: removed (how many), loopbacks_left, ") + change_keys);
}

} // namespace ybnetctl
