// SPDX-License-Identifier: Apache-2.0
//
// See interface_create.h.
#include "tools/ybnetctl/change/interface_create.h"

#include <map>

#include "tools/ybnetctl/change/changing.h"
#include "tools/ybnetctl/change/inside_namespace.h"
#include "tools/ybnetctl/change/interface_record.h"
#include "tools/ybnetctl/change/link_kinds.h"
#include "tools/ybnetctl/change/names.h"
#include "tools/ybnetctl/change/numbers.h"
#include "tools/ybnetctl/change/port_driver.h"
#include "tools/ybnetctl/shell_word.h"
#include "ybnet/net_lib.h"

namespace ybnetctl {

namespace {

const char *command_of(uint32_t type) {
    switch (type) {
    case YB_L2_INTERFACE_TYPE_VLAN:
        return "vlan";
    case YB_L2_INTERFACE_TYPE_PORT_VLAN:
        return "port-vlan";
    case YB_L2_INTERFACE_TYPE_PORT:
        return "port";
    default:
        return "loopback";
    }
}

void refuse_if(const std::string &problem, const create_options &options) {
    if (!problem.empty())
        throw failure{exit_code::usage,
                      interface_thing(options.sys_ifindex),
                      problem,
                      std::string("ybnetctl interface create ") + command_of(options.type) + " --help",
                      {}};
}

// The netdevs that a failed creation may leave behind: in which namespace, and under which name.
using places = std::map<std::pair<std::string, std::string>, bool>; // true: was there before

places possible_places(library &lib, const yb_net_interface_params_t &params) {
    places all;
    for (const std::string &ns : {std::string(), text_of(params.ns_name)})
        for (const std::string &name : {made_name(params), final_name(params)})
            if (!name.empty() && (ns.empty() || !is_own_namespace(ns)))
                all[{ns, name}] = lib.netdev_index(ns, name) != 0;
    return all;
}

// The netdev that a VLAN is stacked on; "" for a netdev that needs none.
std::string lower_netdev(const create_options &options) {
    if (options.type == YB_L2_INTERFACE_TYPE_PORT_VLAN)
        return options.port;
    if (options.type != YB_L2_INTERFACE_TYPE_VLAN)
        return "";
    return options.parent.empty() ? "swid" + std::to_string(options.swid) + "_eth" : options.parent;
}

// What the system, looked at now, speaks for. A failure that nothing explains a rehearsal can; in a rehearsal the steps
// have been shown.
std::string advice_on(const session &run, const library &lib, const create_options &options,
                      const places &before) {
    if (!options.netns.empty() && !namespace_exists(options.netns))
        return "ip netns add " + shell_word(options.netns);
    if (options.type == YB_L2_INTERFACE_TYPE_PORT && !port_driver_is_there())
        return port_driver_advice;
    // It blocks the creation whatever the name format, and is not among the places when another one is asked for.
    const std::string blocking = "vlan" + std::to_string(options.vid);
    if (options.type == YB_L2_INTERFACE_TYPE_VLAN && !before.contains({"", blocking}) &&
        lib.netdev_index("", blocking) != 0)
        return "ip link show dev " + blocking;
    for (const auto &[place, was_there] : before)
        if (was_there)
            return ip_in(place.first) + "link show dev " + shell_word(place.second);
    const std::string lower = lower_netdev(options);
    if (!lower.empty() && lib.netdev_index("", lower) == 0)
        return options.type == YB_L2_INTERFACE_TYPE_PORT_VLAN ? "ybnetctl interface list --type port"
                                                              : "ip link show";
    if (!lower.empty() && !vlans_are_possible())
        return "modprobe 8021q";
    return run.dry_run ? "" : "ybnetctl --dry-run " + shell_line(run.words);
}

// Nothing is rolled back: a failure that left a netdev says so, and how to remove it.
failure failed_creation(library &lib, const std::string &thing, const call_answer &answer,
                        const places &before, const std::string &advice) {
    failure what = failure_of(thing, answer, "its netdev could not be made", advice);
    for (const auto &[place, was_there] : before) {
        if (was_there || lib.netdev_index(place.first, place.second) == 0)
            continue;
        const std::string netdev =
            "; the netdev " + place.second + (place.first.empty() ? "" : " in namespace " + place.first);
        if (lib.rehearsed() != nullptr) {
            what.reason +=
                netdev + " would be made by then and stay without a record: nothing is rolled back";
            continue;
        }
        what.reason += netdev + " was made and exists without a record: nothing is rolled back";
        what.advice =
            ip_in(place.first) + "link del dev " + shell_word(place.second) + "; or: ybnetctl audit";
    }
    return what;
}

void create(session &run, const create_options &options) {
    const std::string thing = interface_thing(options.sys_ifindex);
    change(run, [&](library &lib) {
        yb_net_interface_params_t params = params_of(options);
        lib.need_interfaces();
        yb_net_interface_record_t taken;
        if (lib.call_plainly([&] { return yb_net_interface_params_get(options.sys_ifindex, &taken); }).done())
            throw failure{exit_code::failed, thing, "is recorded already, as " + text_of(taken.params.name),
                          "another system ifindex, or: ybnetctl interface destroy " +
                              std::to_string(options.sys_ifindex),
                          YB_STATUS_ENTRY_ALREADY_EXISTS};
        if (options.type == YB_L2_INTERFACE_TYPE_PORT)
            lib.claim_request_namespace(thing);
        const places before = possible_places(lib, params);
        const call_answer answer = lib.call([&] {
            return yb_net_interface_set_full(YB_ACCESS_CMD_CREATE, options.sys_ifindex, &params,
                                             value_of(rif_number, options.rif),
                                             value_of(vrid_number, options.vrid));
        });
        if (!answer.done())
            throw failed_creation(lib, thing, answer, before, advice_on(run, lib, options, before));
        return made_result(lib, options.sys_ifindex);
    });
}

void declare_common(CLI::App &command, create_options &options) {
    command.add_option("SYSIF", options.sys_ifindex, "its system ifindex, the stack's number")->required();
    command.add_option("--netns", options.netns,
                       "network namespace that the netdev goes to (made before: ip netns add)");
    command.add_option("--vrf", options.vrf, "VRF to record; the netdev is not put into it");
    command.add_option("--rif", options.rif, "router interface id to record")->check(check(rif_number));
    command.add_option("--vrid", options.vrid, "virtual router id to record")->check(check(vrid_number));
}

void declare_vid(CLI::App &command, create_options &options) {
    command.add_option("--vid", options.vid, "802.1Q id, 0 to 4095")->required()->check(CLI::Range(0, 4095));
}

template <class Declare>
void add_type(command_line &line, CLI::App *group, uint32_t type, const char *description, Declare declare,
              std::vector<example> examples) {
    CLI::App *const command = add_command<create_options>(
        group, line, command_of(type), description,
        [declare](CLI::App &app, create_options &options) {
            declare_common(app, options);
            declare(app, options);
        },
        [type](session &run, const create_options &given) {
            create_options options = given;
            options.type = type;
            create(run, options);
        },
        std::move(examples));
    line.add_notes(command,
                   std::string("JSON: interface (as ybnetctl interface list shows it, without slot), ") +
                       change_keys);
}

} // namespace

yb_net_interface_params_t params_of(const create_options &options) {
    yb_net_interface_params_t params = {};
    params.type = options.type;
    if (!options.netns.empty())
        refuse_if(namespace_name_problem(options.netns), options);
    if (!options.vrf.empty())
        refuse_if(netdev_name_problem("VRF name", options.vrf), options);
    fill(params.ns_name, options.netns);
    fill(params.vrf_name, options.vrf);
    params.vrf_valid = options.vrf.empty() ? 0 : 1;
    switch (options.type) {
    case YB_L2_INTERFACE_TYPE_VLAN:
        if (options.swid > 7 && options.swid != 254)
            refuse_if("swid " + std::to_string(options.swid) + " is not possible: 0 to 7, or 254", options);
        params.by_type.vlan.swid = static_cast<uint8_t>(options.swid);
        params.by_type.vlan.vlan_id = static_cast<uint16_t>(options.vid);
        params.by_type.vlan.name_format =
            options.name_format == "vlan" ? YB_NET_NAME_FORMAT_VLAN : YB_NET_NAME_FORMAT_SWID;
        if (!options.parent.empty()) {
            refuse_if(netdev_name_problem("parent netdev name", options.parent), options);
            params.by_type.vlan.parent_given = 1;
            fill(params.by_type.vlan.parent_name, options.parent);
        }
        break;
    case YB_L2_INTERFACE_TYPE_PORT_VLAN:
        refuse_if(netdev_name_problem("port netdev name", options.port), options);
        params.by_type.port_vlan.vlan_id = static_cast<uint16_t>(options.vid);
        fill(params.by_type.port_vlan.port_name, options.port);
        break;
    default:
        refuse_if(netdev_name_problem("netdev name", options.name), options);
        fill(params.name, options.name);
        if (options.type == YB_L2_INTERFACE_TYPE_PORT) {
            params.by_type.port.value1 = options.value1;
            params.by_type.port.value2 = options.value2;
        }
        return params;
    }
    // A VLAN has this name at first, also when it is renamed afterwards.
    refuse_if(netdev_name_problem("netdev name", made_name(params)), options);
    return params;
}

void add_interface_create(command_line &line, CLI::App *interface) {
    CLI::App *const group =
        add_command_group(interface, "create",
                          "Make the netdev of a router interface, move it into its namespace and record it");
    line.add_examples(group, {{"ybnetctl --dry-run interface create loopback 141 --name loop2 --netns red",
                               "what it would run, and do nothing"}});
    add_type(
        line, group, YB_L2_INTERFACE_TYPE_VLAN, "A VLAN netdev on a switch partition's netdev, swidN_eth",
        [](CLI::App &app, create_options &options) {
            app.add_option("--swid", options.swid, "switch partition, 0 to 7, or 254")->capture_default_str();
            declare_vid(app, options);
            app.add_option("--name-format", options.name_format,
                           "swid: swidN_eth.ID; vlan: renamed to vlanID")
                ->check(CLI::IsMember({"swid", "vlan"}))
                ->capture_default_str();
            app.add_option("--parent", options.parent,
                           "netdev to stack it on instead; swidN_eth must exist all the same");
        },
        {{"ybnetctl --dry-run interface create vlan 111 --swid 0 --vid 11 --name-format vlan --netns blue",
          "what it would run, and do nothing", true},
         {"ybnetctl interface create vlan 112 --swid 0 --vid 12 --name-format vlan --netns blue --vrf red "
          "--rif 6 "
          "--vrid 2",
          "vlan12 in namespace blue", true}});
    add_type(line, group, YB_L2_INTERFACE_TYPE_PORT_VLAN, "A VLAN netdev on a port's netdev",
             [](CLI::App &app, create_options &options) {
                 app.add_option("--port", options.port, "the port's netdev")->required();
                 declare_vid(app, options);
             },
             {{"ybnetctl interface create port-vlan 132 --port swp1 --vid 32", "swp1.32", true}});
    add_type(
        line, group, YB_L2_INTERFACE_TYPE_PORT, "A netdev of the switch's kernel driver",
        [](CLI::App &app, create_options &options) {
            app.add_option("--name", options.name, "name of the netdev, at most 15 characters")->required();
            app.add_option("--value1", options.value1, "first private value, handed to the driver as it is")
                ->capture_default_str();
            app.add_option("--value2", options.value2, "second private value")->capture_default_str();
        },
        {{"ybnetctl interface create port 102 --name swp2 --value1 1 --value2 0x10200",
          "swp2, in the namespace that this runs in", true}});
    add_type(
        line, group, YB_L2_INTERFACE_TYPE_LOOPBACK, "A bridge without ports, made inside its namespace",
        [](CLI::App &app, create_options &options) {
            app.add_option("--name", options.name, "name of the netdev, at most 15 characters")->required();
        },
        {{"ybnetctl --dry-run interface create loopback 141 --name loop2 --netns red",
          "what it would run, and do nothing"},
         {"ybnetctl interface create loopback 141 --name loop2 --netns red", "loop2 in namespace red",
          true}});
}

} // namespace ybnetctl
