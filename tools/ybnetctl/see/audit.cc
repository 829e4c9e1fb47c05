// SPDX-License-Identifier: Apache-2.0
//
// ybnetctl audit: prints what audit_reading.h has read and audit_compare.h made of
// it, and how far it can be relied on.
#include <algorithm>
#include <ostream>

#include "tools/ybnetctl/command_line.h"
#include "tools/ybnetctl/see/audit_reading.h"
#include "tools/ybnetctl/see/interface_view.h"
#include "tools/ybnetctl/see/own_namespace.h"
#include "tools/ybnetctl/table.h"

namespace ybnetctl {

namespace {

struct audit_options {
    bool findings_only = false;
};

size_t count_of_findings(const audit_result &result) {
    return result.records.size() - result.count(finding::ok) - result.count(finding::unseen);
}

json to_json(const netdev &device) {
    return {{"name", device.name},
            {"linux_ifindex", device.ifindex},
            {"kind", device.kind.empty() ? json(nullptr) : json(device.kind)},
            {"vlan_id", device.vlan_id ? json(*device.vlan_id) : json(nullptr)},
            {"up", device.up},
            {"carrier", device.carrier}};
}

json to_json(const audited_record &each) {
    json netdev = nullptr;
    if (each.device) {
        netdev = to_json(*each.device);
        netdev["namespace"] = each.found_in;
    }
    const recorded_interface &record = each.record;
    return {{"sys_ifindex", record.sys_ifindex},
            {"linux_ifindex", record.linux_ifindex},
            {"name", record.name},
            {"namespace", record.ns},
            {"type", interface_type_name(record.type)},
            {"vlan_id", record.vlan_id ? json(*record.vlan_id) : json(nullptr)},
            {"finding", key_of(each.what)},
            {"explanation", each.explanation.empty() ? json(nullptr) : json(each.explanation)},
            {"remedy", each.remedy.empty() ? json(nullptr) : json(each.remedy)},
            {"netdev", netdev}};
}

json to_json(const unrecorded_netdev &each) {
    json netdev = to_json(each.device);
    netdev["namespace"] = each.ns;
    netdev["command"] = each.command.empty() ? json(nullptr) : json(each.command);
    return netdev;
}

void print_json(session &run, const audit_reading &read, const audit_options &options) {
    const audit_result &result = read.result;
    json records = json::array();
    for (const audited_record &each : result.records)
        if (!options.findings_only || each.what != finding::ok)
            records.push_back(to_json(each));
    json unrecorded = json::array();
    for (const unrecorded_netdev &each : result.unrecorded)
        unrecorded.push_back(to_json(each));
    json unseen = json::array();
    for (const unseen_namespace &each : result.unseen)
        unseen.push_back({{"namespace", each.name}, {"reason", each.reason}});
    print(run, {{"database", read.copy.present},
                {"live", read.copy.live},
                {"records", records},
                {"unrecorded", unrecorded},
                {"namespaces_unseen", unseen},
                {"summary",
                 {{"agrees", result.agrees()},
                  {"certain", read.certain()},
                  {"records", result.records.size()},
                  {"ok", result.count(finding::ok)},
                  {"findings", count_of_findings(result)},
                  {"unseen", result.count(finding::unseen)},
                  {"unrecorded", result.unrecorded.size()}}},
                {"stranded_in_words", read.stranded.empty() ? json(nullptr) : json(read.stranded)},
                {"settled", read.copy.settled},
                {"lock_seen_free", read.copy.lock_seen_free}});
}

tone tone_of(finding what) {
    switch (what) {
    case finding::ok:
        return tone::good;
    case finding::unseen:
        return tone::warning;
    default:
        return tone::bad;
    }
}

std::string counted(size_t count, const std::string &one, const std::string &many) {
    return std::to_string(count) + ' ' + (count == 1 ? one : many);
}

std::string verdict_on(const audit_reading &read) {
    const audit_result &result = read.result;
    if (!read.copy.present)
        return "No database: the interfaces are not loaded, or their file was deleted; " +
               counted(result.unrecorded.size(), "netdev that is", "netdevs that are") +
               " named as the library names VLANs and ports in the namespaces looked at.";
    if (result.agrees())
        return counted(result.records.size(), "record agrees", "records agree") +
               " with the kernel, and in the namespaces looked at no netdev named as the library names VLANs "
               "and ports lacks its record.";
    std::string text = counted(result.records.size(), "record", "records") + ": " +
                       std::to_string(result.count(finding::ok)) + " in order, " +
                       counted(count_of_findings(result), "finding", "findings");
    if (result.count(finding::unseen) != 0)
        text += ", " + std::to_string(result.count(finding::unseen)) + " that could not be looked at";
    return text + "; " + counted(result.unrecorded.size(), "netdev", "netdevs") +
           " without a record in the namespaces looked at.";
}

std::string summary_of(const audit_reading &read) {
    return verdict_on(read) + " A loopback without a record is not found: it is a bridge like any other.\n" +
           doubts_about(read);
}

void print_remedies(session &run, const audit_result &result) {
    table remedies({{"SYSIF", side::right}, {"NAME"}, {"PUT RIGHT BY"}});
    for (const audited_record &each : result.records)
        if (!each.remedy.empty())
            remedies.add({each.record.sys_ifindex, printable(each.record.name), printable(each.remedy)});
    if (remedies.size() == 0)
        return;
    remedies.print(run.out, run.colourful());
    run.out << '\n';
}

void print_unrecorded(session &run, const audit_result &result) {
    if (result.unrecorded.empty())
        return;
    const bool advised = !result.unrecorded[0].command.empty(); // of all or of none
    std::vector<column> columns = {
        {"WITHOUT A RECORD"}, {"LINUX", side::right}, {"NAMESPACE"}, {"KIND"}, {"STATE"}};
    if (advised)
        columns.push_back({"REMOVED BY"});
    table unrecorded(columns);
    for (const unrecorded_netdev &each : result.unrecorded) {
        std::vector<cell> row = {cell(printable(each.device.name), tone::bad), each.device.ifindex,
                                 printable(each.ns), printable(each.device.kind),
                                 state_in_words(each.device)};
        if (advised)
            row.emplace_back(printable(each.command));
        unrecorded.add(row);
    }
    unrecorded.print(run.out, run.colourful());
    run.out << '\n';
}

void print_text(session &run, const audit_reading &read, const audit_options &options) {
    const audit_result &result = read.result;
    if (!read.here.empty())
        run.out << "Beware: " << not_the_default_one(read.here)
                << ". Records of the default namespace are not compared.\n\n";
    table records({{"SYSIF", side::right},
                   {"LINUX", side::right},
                   {"NAME"},
                   {"NAMESPACE"},
                   {"TYPE"},
                   {"STATE"},
                   {"FINDING"},
                   {"EXPLANATION"}});
    for (const audited_record &each : result.records) {
        if (options.findings_only && each.what == finding::ok)
            continue;
        const recorded_interface &record = each.record;
        records.add({record.sys_ifindex, record.linux_ifindex, printable(record.name), printable(record.ns),
                     interface_type_name(record.type), each.device ? state_in_words(*each.device) : "",
                     cell(key_of(each.what), tone_of(each.what)), each.explanation});
    }
    if (records.size() != 0) {
        records.print(run.out, run.colourful());
        run.out << '\n';
    }
    print_remedies(run, result);
    print_unrecorded(run, result);
    for (const unseen_namespace &each : result.unseen)
        run.out << "Not looked at: " << namespace_in_words(each.name) << " (" << each.reason << ")\n";
    run.out << summary_of(read);
}

void run_audit(session &run, const audit_options &options) {
    const audit_reading read = read_for_audit(run);
    warn_when_unsettled(run, read.copy);
    if (run.json_wanted)
        print_json(run, read, options);
    else
        print_text(run, read, options);
    if (!read.copy.present && read.result.unrecorded.empty())
        run.ends_with = exit_code::not_found;
    else if (!read.result.agrees())
        run.ends_with = exit_code::failed;
}

constexpr const char *notes =
    "Each record gets one finding: ok; kind (the netdev is not what the record says, above all a VLAN with "
    "another id, which an edit leaves behind on kernels that keep a VLAN's tag); duplicate (two records for "
    "one netdev); renamed (the ifindex is there, under another name); other_ifindex (the name is there, with "
    "another ifindex); moved (the name is in another namespace); gone; no_namespace; unseen (no right to "
    "enter its namespace). What is not in order comes with the command that puts it right.\n\n"
    "Looked at are the caller's namespace, which stands for the default one, and every one under /run/netns. "
    "Netdevs named as the library names its own (vlanN, swidN_eth.N, PORT.N, ports of the switch's driver) "
    "that no record has are listed with the command that removes them. A loopback without a record is not "
    "among them: it is a bridge with a name of its owner's choice, and cannot be told from any other. "
    "Interfaces that are being made while the audit runs may be: where the lock was held, or records changed "
    "meanwhile, the audit says that it is not certain, and is to be run again before anything is removed.\n\n"
    "Nor is it certain in three more cases. With --file the netdevs are today's, whatever the age of the "
    "copy: no commands are given. In a namespace that has a name (ip netns exec NAME ybnetctl audit) the "
    "default one is not seen, and its records are unseen, unless process 1 or all users of the database are "
    "in it, too. And processes that work on a deleted database, as far as the caller may look into them, "
    "have records that are not seen: no command to remove a netdev is given then.\n\n"
    "Without a database there are no records, and every netdev with such a name is one without a record.\n\n"
    "Exit code 0 when everything agrees, 1 when there is any finding, netdev without a record or namespace "
    "that "
    "could not be looked at, 3 when there is no database and no such netdev either.\n\n"
    "JSON: database (false: there is none), live (false: of a copy), records (sys_ifindex, linux_ifindex, "
    "name, namespace, type, vlan_id, finding, explanation, remedy (a line for a shell, or null), netdev: "
    "name, linux_ifindex, kind, vlan_id, up, carrier, namespace), unrecorded (those of netdev, and command, "
    "or null), namespaces_unseen (namespace, reason), summary (agrees, certain, records, ok, findings, "
    "unseen, unrecorded), stranded_in_words (of processes on a deleted database, or null), settled, "
    "lock_seen_free.";

} // namespace

void add_audit_command(command_line &line) {
    CLI::App *const command = add_command<audit_options>(
        &line.app(), line, "audit", "Compare every interface record with the kernel's netdevs",
        [](CLI::App &app, audit_options &options) {
            app.add_flag("--findings-only", options.findings_only, "Leave out the records that are in order");
        },
        run_audit,
        {{"ybnetctl audit", "every record with what the kernel has, and netdevs that lost theirs"},
         {"ybnetctl --json audit | jq '.summary'", "how many records agree"}});
    line.add_notes(command, notes);
}

} // namespace ybnetctl
