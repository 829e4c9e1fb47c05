// SPDX-License-Identifier: Apache-2.0
//
// `ybnetctl interface list|show|find`: the interfaces table, in both directions.
// The records are interface_view.h's.
#include <algorithm>
#include <ostream>

#include "tools/ybnetctl/command_line.h"
#include "tools/ybnetctl/option_words.h"
#include "tools/ybnetctl/see/interface_view.h"
#include "tools/ybnetctl/segments/decode.h"
#include "tools/ybnetctl/segments/segment_copy.h"
#include "tools/ybnetctl/table.h"

namespace ybnetctl {

namespace {

constexpr const char *list_keys =
    "slot, sys_ifindex, type (VLAN, PORT_VLAN, PORT, PKEY, LOOPBACK, or \"type N\"), type_number, name, "
    "namespace "
    "(\"\" is the default one), linux_ifindex, vrf, vlan_id, rif, vrid (null: none)";
constexpr const char *copy_keys =
    "settled (two readings agreed) and lock_seen_free (nobody was writing between them)";

struct list_options {
    std::optional<std::string> ns;
    std::string type;
    std::optional<uint32_t> vlan;
};

struct show_options {
    uint32_t sys_ifindex = 0;
};

struct find_options {
    std::optional<uint32_t> sys_ifindex;
    std::optional<uint32_t> linux_ifindex;
    std::optional<std::string> name;
    std::optional<std::string> ns;
    std::optional<std::string> vrf;
};

json document_of(const segment_copy &copy, const std::vector<interface_view> &shown) {
    json document;
    document["interfaces"] = json::array();
    for (const interface_view &one : shown)
        document["interfaces"].push_back(to_json(one));
    document["settled"] = copy.settled;
    document["lock_seen_free"] = copy.lock_seen_free;
    return document;
}

void list(session &run, const list_options &options) {
    const segment_copy copy = read_contents(run, segment_kind::interfaces);
    std::vector<interface_view> shown = interfaces_in(copy.interfaces());
    shown.erase(std::remove_if(shown.begin(), shown.end(),
                               [&options](const interface_view &one) {
                                   return (options.ns && one.ns != *options.ns) ||
                                          (!options.type.empty() &&
                                           one.type != interface_type_number(options.type)) ||
                                          (options.vlan && one.vlan != options.vlan);
                               }),
                shown.end());
    std::stable_sort(shown.begin(), shown.end(), [](const interface_view &a, const interface_view &b) {
        return a.sys_ifindex < b.sys_ifindex;
    });
    if (run.json_wanted) {
        print(run, document_of(copy, shown));
        return;
    }
    print_interfaces(run, shown);
    warn_when_unsettled(run, copy);
}

void show(session &run, const show_options &options) {
    const segment_copy copy = read_contents(run, segment_kind::interfaces);
    const std::vector<interface_view> all = interfaces_in(copy.interfaces());
    bool found = false;
    json document;
    document["interfaces"] = json::array();
    for (const interface_view &one : all) {
        if (one.sys_ifindex != options.sys_ifindex)
            continue;
        const auto *const record = reinterpret_cast<const std::byte *>(&copy.interfaces().entries[one.slot]);
        const std::vector<std::string> notes = interface_notes(one, all);
        if (run.json_wanted) {
            json object = to_json(one);
            object["fields"] = record_json(interface_entry_structure, record);
            object["notes"] = notes;
            document["interfaces"].push_back(object);
        } else {
            run.out << (found ? "\n" : "");
            print_interfaces(run, {one});
            run.out << '\n';
            table rows({{"FIELD", side::left}, {"VALUE", side::left}, {"MEANING", side::left}});
            for (const field *each : fields_of(interface_entry_structure, record)) {
                if (each->kind != field_kind::reserved)
                    rows.add({each->name, field_text(*each, record), cell(each->meaning, tone::faint)});
            }
            rows.print(run.out, run.colourful());
            for (const std::string &note : notes)
                run.out << shaded("note: ", tone::warning, run.colourful()) << printable(note) << '\n';
        }
        found = true;
    }
    if (!found)
        throw failure{exit_code::not_found,
                      "interface " + std::to_string(options.sys_ifindex),
                      "no record has this system ifindex",
                      "ybnetctl interface list",
                      {}};
    if (run.json_wanted) {
        document["settled"] = copy.settled;
        document["lock_seen_free"] = copy.lock_seen_free;
        print(run, document);
        return;
    }
    warn_when_unsettled(run, copy);
}

bool matches(const interface_view &one, const find_options &options) {
    if (options.sys_ifindex && one.sys_ifindex != *options.sys_ifindex)
        return false;
    if (options.linux_ifindex) {
        // As the library does: no namespace given is the default one.
        return one.linux_ifindex == *options.linux_ifindex && one.ns == options.ns.value_or("") &&
               (!options.vrf || one.vrf_name == *options.vrf);
    }
    return (!options.name || one.name == *options.name) && (!options.ns || one.ns == *options.ns) &&
           (!options.vrf || one.vrf == options.vrf);
}

// Where else there is such a Linux ifindex: the usual mistake is the namespace.
std::string other_namespaces(const std::vector<interface_view> &all, const find_options &options) {
    std::string text;
    for (const interface_view &one : all) {
        if (!options.linux_ifindex || one.linux_ifindex != *options.linux_ifindex ||
            one.ns == options.ns.value_or(""))
            continue;
        text += (text.empty() ? "" : ", ") + std::string("--netns ") + (one.ns.empty() ? "''" : one.ns);
    }
    return text;
}

// Asked for all of a namespace or of a VRF.
bool place_alone(const find_options &options) {
    return !options.sys_ifindex && !options.linux_ifindex && !options.name;
}

void refuse_unclear(const find_options &options) {
    std::string problem;
    if (options.linux_ifindex && options.name)
        problem = "--linux and --name exclude each other";
    else if (place_alone(options) && !options.ns && !options.vrf)
        problem = "one of SYSIF, --linux, --name, --netns and --vrf is needed";
    if (!problem.empty())
        throw failure{exit_code::usage, "interface find", problem, "ybnetctl interface find --help", {}};
}

std::string sought_in_words(const find_options &options) {
    if (options.linux_ifindex)
        return "Linux ifindex " + std::to_string(*options.linux_ifindex);
    if (options.name)
        return "netdev " + *options.name;
    return options.sys_ifindex ? "interface " + std::to_string(*options.sys_ifindex) : "interface find";
}

std::string absence_in_words(const find_options &options) {
    std::string where;
    if (options.ns && !options.ns->empty())
        where = "in namespace " + *options.ns;
    else if (options.linux_ifindex || options.ns)
        where = "in the default namespace";
    if (options.vrf)
        where += (where.empty() ? "with VRF " : " and VRF ") + *options.vrf;
    return (place_alone(options) ? "no record is there" : "no record has it") +
           (where.empty() ? "" : ' ' + where);
}

void find(session &run, const find_options &options) {
    refuse_unclear(options);
    const segment_copy copy = read_contents(run, segment_kind::interfaces);
    const std::vector<interface_view> all = interfaces_in(copy.interfaces());
    std::vector<interface_view> found;
    std::copy_if(all.begin(), all.end(), std::back_inserter(found),
                 [&options](const interface_view &one) { return matches(one, options); });
    if (found.empty()) {
        const std::string elsewhere = other_namespaces(all, options);
        throw failure{exit_code::not_found,
                      sought_in_words(options),
                      absence_in_words(options),
                      elsewhere.empty() ? "ybnetctl interface list" : "with " + elsewhere,
                      {}};
    }
    if (run.json_wanted) {
        print(run, document_of(copy, found));
        return;
    }
    print_interfaces(run, found);
    if (options.linux_ifindex && !options.sys_ifindex && found.size() > 1)
        run.out << "The library answers " << found.front().sys_ifindex << ", the first in the table"
                << (options.vrf ? "" : ", unless the VRF is asked for too") << ".\n";
    warn_when_unsettled(run, copy);
}

} // namespace

void add_interface_queries(command_line &line, CLI::App *interface) {
    CLI::App *const list_command = add_command<list_options>(
        interface, line, "list", "All recorded interfaces, or some of them",
        [](CLI::App &app, list_options &o) {
            app.add_option("--netns", o.ns, "only those in this namespace; '' is the default one")
                ->type_name("NAME");
            app.add_option("--type", o.type, "only those of this type")
                ->check(CLI::IsMember(interface_type_words()));
            app.add_option("--vlan", o.vlan, "only those with this 802.1Q id")
                ->type_name("ID")
                ->check(whole_number());
        },
        list,
        {{"ybnetctl interface list", "every interface that is recorded"},
         {"ybnetctl interface list --netns blue --type vlan", "the VLANs in namespace blue"},
         {"ybnetctl interface list --json | jq -r '.interfaces[].name'", "the names of their netdevs"}});
    line.add_notes(list_command, std::string("JSON: interfaces, by system ifindex, each with ") + list_keys +
                                     "; beside them " + copy_keys + '.');

    CLI::App *const show_command = add_command<show_options>(
        interface, line, "show", "One interface, every field",
        [](CLI::App &app, show_options &o) {
            app.add_option("SYSIF", o.sys_ifindex, "its system ifindex")->required();
        },
        show,
        {{"ybnetctl interface show 110", "interface 110, and what its fields mean"},
         {"ybnetctl --file /tmp/net_lib_ifc interface show 110", "the same, in a copy of the segment"}});
    line.add_notes(
        show_command,
        std::string("JSON: interfaces, usually one, each with the keys of interface list, fields (every "
                    "field by the names of net_lib_ifc(5)) and notes (where the library answers another "
                    "record); beside them ") +
            copy_keys + '.');

    CLI::App *const find_command = add_command<find_options>(
        interface, line, "find",
        "Interfaces by their system ifindex, their netdev, its namespace or their VRF",
        [](CLI::App &app, find_options &o) {
            app.add_option("SYSIF", o.sys_ifindex, "system ifindex")
                ->type_name("SYSIF")
                ->check(whole_number());
            app.add_option("--linux", o.linux_ifindex, "Linux ifindex of the netdev")
                ->type_name("IFINDEX")
                ->check(whole_number());
            app.add_option("--name", o.name, "name of the netdev")->type_name("NAME");
            app.add_option("--netns", o.ns, "its namespace; with --linux, none given is the default one")
                ->type_name("NAME");
            app.add_option("--vrf", o.vrf, "its VRF")->type_name("NAME");
        },
        find,
        {{"ybnetctl interface find --name vlan10", "every record of a netdev vlan10"},
         {"ybnetctl interface find 110", "the netdev of a system ifindex"},
         {"ybnetctl interface find --vrf red", "all of a VRF"},
         {"ybnetctl interface find --netns blue --linux "
          "$(ip netns exec blue cat /sys/class/net/vlan10/ifindex)",
          "the other direction: what stands behind a netdev of namespace blue", true},
         {"ybnetctl interface find --name vlan10 --vrf red --json", "the same as one JSON document"}});
    line.add_notes(find_command,
                   std::string("JSON: interfaces, in the table's order, so that the first is the "
                               "library's answer, each with ") +
                       list_keys + "; beside them " + copy_keys + '.');
}

} // namespace ybnetctl
