// SPDX-License-Identifier: Apache-2.0
//
// See audit_reading.h.
#include "tools/ybnetctl/see/audit_reading.h"

#include <algorithm>
#include <set>

#include "tools/ybnetctl/see/own_namespace.h"
#include "tools/ybnetctl/see/segment_report.h"

namespace ybnetctl {

namespace {

// The default namespace first, then those of the system and of the records. here: as in audit_reading.
std::vector<namespace_view> view_all(const std::vector<recorded_interface> &records,
                                     const std::string &here) {
    std::set<std::string> names;
    for (const std::string &name : named_namespaces())
        names.insert(name);
    for (const recorded_interface &record : records)
        names.insert(record.ns);
    names.erase("");
    std::vector<namespace_view> views(1);
    if (here.empty()) {
        views[0] = view_namespace("");
    } else {
        views[0].seen = sight::unseen;
        views[0].reason = not_the_default_one(here);
    }
    for (const std::string &name : names)
        views.push_back(view_namespace(name));
    return views;
}

std::vector<recorded_interface> records_in(const segment_copy &copy) {
    return copy.present ? recorded_interfaces(copy) : std::vector<recorded_interface>();
}

// Records and netdevs are read one after the other: again, while records change in between.
audit_reading read_both(const session &run) {
    constexpr int rounds_max = 5;
    audit_reading read;
    read.here = named_instead_of_default();
    read.copy = read_contents_if_any(run, segment_kind::interfaces);
    for (int round = 1;; round++) {
        const std::vector<recorded_interface> records = records_in(read.copy);
        const std::vector<namespace_view> views = view_all(records, read.here);
        segment_copy again = read_contents_if_any(run, segment_kind::interfaces);
        read.steady = again.present == read.copy.present && records_in(again) == records;
        if (read.steady || round == rounds_max) {
            read.result = audit(records, views);
            return read;
        }
        read.copy = std::move(again);
    }
}

// Users of the segment that are of importance here: a dead holder of its lock, and those who record elsewhere.
void look_at_users(audit_reading &read) {
    segment_copy ports;
    ports.kind = segment_kind::ports;
    const mappers_survey survey = find_mappers(read.copy, ports);
    users_known users;
    for (const mapper &who : survey.of(segment_kind::interfaces).deleted)
        users.deleted.push_back(who.pid);
    read.stranded = stranded_in_words(users);
    if (read.copy.lock_seen_free)
        return;
    const lock_report lock = report_lock(watch_locks(read.copy, ports)[0], segment_kind::interfaces, survey);
    read.holder_died = lock.holder && lock.holder->fate == holder_fate::ended;
}

std::string doubt_about_views(const audit_reading &read) {
    const auto barred =
        std::count_if(read.result.unseen.begin(), read.result.unseen.end(),
                      [&](const unseen_namespace &each) { return !each.name.empty() || read.here.empty(); });
    std::string text;
    if (!read.here.empty())
        text += "Not certain: the default namespace cannot be seen from " + namespace_in_words(read.here) +
                ". Run it outside.\n";
    if (barred != 0)
        text += "Not certain: " + std::to_string(barred) +
                (barred == 1 ? " namespace was" : " namespaces were") +
                " not looked at. Run it as a user who may enter every namespace.\n";
    return text;
}

std::string doubt_about_changes(const audit_reading &read) {
    if (read.at_rest())
        return "";
    const std::string half_done = "a finding may be a change that was half done, and one may be missing. ";
    if (read.holder_died)
        return "Not certain: the thread that holds the lock is dead (ybnetctl status), so " + half_done +
               "The next change takes the lock over and repairs what was left half done.\n";
    if (!read.steady || !read.copy.settled)
        return "Not certain: records kept changing while this was read, so " + half_done + "Run it again.\n";
    return "Not certain: the lock was held while this was read, so " + half_done +
           "Run it again; ybnetctl status tells who holds it.\n";
}

} // namespace

audit_reading read_for_audit(const session &run) {
    audit_reading read = read_both(run);
    if (read.copy.live)
        look_at_users(read);
    else
        read.result.advise_nothing();
    if (!read.stranded.empty())
        read.result.spare_unrecorded();
    return read;
}

std::string doubts_about(const audit_reading &read) {
    std::string text;
    if (!read.copy.live)
        text += "Not certain: the netdevs are today's and the records the copy's, so whatever was made or "
                "changed after the copy is a finding, too. Nothing is advised.\n";
    if (!read.stranded.empty())
        text += "Not certain: " + read.stranded + ". A netdev without a record here may have one there.\n";
    return text + doubt_about_views(read) + doubt_about_changes(read);
}

} // namespace ybnetctl
