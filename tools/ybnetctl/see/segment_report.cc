// SPDX-License-Identifier: Apache-2.0
//
// See segment_report.h.
#include "tools/ybnetctl/see/segment_report.h"

#include <algorithm>

namespace ybnetctl {

namespace {

std::string counted(size_t number, const char *one, const char *many) {
    return std::to_string(number) + ' ' + (number == 1 ? one : many);
}

std::string listed(const std::vector<pid_t> &pids) {
    constexpr size_t shown_max = 20;
    std::string text = pids.size() == 1 ? "pid " : "pids ";
    for (size_t i = 0; i < pids.size() && i < shown_max; i++)
        text += (i == 0 ? "" : ", ") + std::to_string(pids[i]);
    return pids.size() > shown_max ? text + ", ..." : text;
}

// What keeps the list of processes from being complete; "" when it is.
std::string blindness(const users_known &users) {
    if (users.unreadable > 0)
        return "the maps of " + counted(users.unreadable, "process", "processes") + " could not be read";
    return users.all_shown ? "" : "/proc hides the processes of other users";
}

std::vector<pid_t> pids_of(const std::vector<mapper> &mappers) {
    std::vector<pid_t> pids;
    for (const mapper &each : mappers)
        pids.push_back(each.pid);
    return pids;
}

void fill(segment_report &one, const mappers_survey &survey, const lock_history &history) {
    one.mappers = survey.of(one.copy.kind);
    one.has_trailer = one.copy.present && one.copy.bytes.size() == one.copy.format().size;
    if (!one.has_trailer)
        return;
    const net_lib_db_trailer_t &trailer = one.copy.trailer();
    one.users = trailer.user_count;
    one.size_check = trailer.size_check;
    one.marker = trailer.initialized_marker;
    one.lock = report_lock(history, one.copy.kind, survey);
    one.lock.copied = !one.copy.live;
}

} // namespace

status_report look_at_segments(const session &run) {
    status_report all;
    all.copies = !run.files.empty();
    all.interfaces.copy = look_at_segment(run, segment_kind::interfaces);
    all.ports.copy = look_at_segment(run, segment_kind::ports);
    const auto histories = watch_locks(all.interfaces.copy, all.ports.copy);
    mappers_survey survey;
    if (!all.copies)
        survey = find_mappers(all.interfaces.copy, all.ports.copy);
    else
        survey.all_shown = false; // a copy tells nothing about processes
    fill(all.interfaces, survey, histories[0]);
    fill(all.ports, survey, histories[1]);
    all.unreadable = survey.unreadable;
    all.all_shown = survey.all_shown;
    all.first_pid_namespace = survey.first_pid_namespace;
    return all;
}

users_known users_of(const status_report &all, const segment_report &one) {
    return {.registered = one.users,
            .live = pids_of(one.mappers.live),
            .deleted = pids_of(one.mappers.deleted),
            .unreadable = all.unreadable.size(),
            .all_shown = all.all_shown,
            .first_pid_namespace = all.first_pid_namespace};
}

agreement agreement_of(const users_known &users) {
    if (users.live.size() > users.registered)
        return agreement::shared;
    if (users.live.size() == users.registered)
        return agreement::agree;
    return blindness(users).empty() ? agreement::leaked : agreement::cannot_tell;
}

std::string users_in_words(const users_known &users) {
    std::string words = counted(users.registered, "user is registered, ", "users are registered, ");
    if (users.live.empty())
        words += blindness(users).empty() ? "no process maps the segment"
                                          : "none of the processes that could be looked at maps the segment";
    else
        words += counted(users.live.size(), "process maps", "processes map") + " the segment (" +
                 listed(users.live) + ')';
    const size_t missing = users.registered > users.live.size() ? users.registered - users.live.size() : 0;
    switch (agreement_of(users)) {
    case agreement::agree:
        return words;
    case agreement::leaked:
        return words + ": " +
               counted(missing, "registration was left by a process that",
                       "registrations were left by processes that") +
               " ended without unloading; the segment will outlive its users";
    case agreement::shared:
        return words + ": children made by fork share a registration, or a load is under way";
    case agreement::cannot_tell:
        break;
    }
    return words + ": " + counted(missing, "registration belongs", "registrations belong") +
           " to processes that are not seen, or that ended without unloading (" + blindness(users) + ')';
}

std::string stranded_in_words(const users_known &users) {
    if (users.deleted.empty())
        return "";
    return counted(users.deleted.size(), "process works", "processes work") +
           " on a deleted segment of this name (" + listed(users.deleted) + "): restart " +
           (users.deleted.size() == 1 ? "it" : "them") + ", nobody else sees what " +
           (users.deleted.size() == 1 ? "it records" : "they record");
}

std::optional<bool> deleting_is_safe(const users_known &users) {
    if (!users.live.empty())
        return false;
    return blindness(users).empty() ? std::optional(true) : std::nullopt;
}

std::string deleting_in_words(const users_known &users) {
    const auto safe = deleting_is_safe(users);
    if (!safe)
        return "cannot tell: " + blindness(users);
    if (!*safe)
        return "not safe: " + counted(users.live.size(), "process maps", "processes map") +
               " it and would go on with a file that nobody else sees";
    return users.first_pid_namespace
               ? "safe now: nobody maps it"
               : "safe now as far as this PID namespace shows: nobody in it maps the segment";
}

condition condition_of(const segment_report &one) {
    const segment_copy &copy = one.copy;
    if (!copy.unreadable.empty())
        return {false, "cannot be read: " + copy.unreadable};
    const std::string expected = std::to_string(copy.format().size);
    std::string words = std::to_string(copy.size) + " bytes";
    if (copy.size == 0)
        return {false, words + ": its creator is making it, or died"};
    if (copy.size != copy.format().size)
        return {false, words + " instead of " + expected + ": another build's layout"};
    if (!one.has_trailer)
        return {false, words + ", but fewer could be read"};
    if (one.size_check == 0)
        return {false, words + ", size check 0: its creator is making it, or died"};
    if (one.size_check != copy.format().size)
        return {false, words + ", size check " + std::to_string(one.size_check) + ": another build's layout"};
    words += ", this build's layout, ";
    if (one.marker != YB_NET_DB_INITIALIZED_MARKER)
        return {false, words + "never initialised (marker " + std::to_string(one.marker) + " instead of " +
                           std::to_string(YB_NET_DB_INITIALIZED_MARKER) + ')'};
    return {true, words + "initialised"};
}

json to_json(const status_report &all, const segment_report &one) {
    const bool present = one.copy.present;
    const users_known users = users_of(all, one);
    const auto when = [](bool known, auto value) { return known ? json(value) : json(nullptr); };
    json object;
    object["name"] = one.copy.format().name;
    object["path"] = one.copy.path;
    object["live"] = one.copy.live;
    object["present"] = present;
    object["size"] = when(present, one.copy.size);
    object["expected_size"] = one.copy.format().size;
    object["size_check"] = when(one.has_trailer, one.size_check);
    object["fits"] = when(present, one.copy.fits);
    object["initialized_marker"] = when(one.has_trailer, one.marker);
    object["condition"] = when(present, condition_of(one).words);
    object["mode"] = when(present, one.copy.mode & 07777U);
    object["owner_uid"] = when(present, one.copy.owner);
    object["owner_gid"] = when(present, one.copy.group);
    object["users_registered"] = when(one.has_trailer, one.users);
    for (const auto &[key, mappers] : {std::pair{"processes", &one.mappers.live},
                                       std::pair{"processes_on_deleted", &one.mappers.deleted}}) {
        object[key] = all.copies ? json(nullptr) : json::array();
        for (const mapper &each : *mappers)
            object[key].push_back(to_json(each));
    }
    const bool judged = one.has_trailer && !all.copies;
    object["users_agree"] = when(judged && agreement_of(users) != agreement::cannot_tell,
                                 agreement_of(users) == agreement::agree);
    object["users_in_words"] = when(judged, users_in_words(users));
    object["stranded_in_words"] = when(!users.deleted.empty(), stranded_in_words(users));
    const auto safe = deleting_is_safe(users);
    object["deleting_is_safe"] = when(present && !all.copies && safe.has_value(), safe.value_or(false));
    object["deleting_in_words"] = when(present && !all.copies, deleting_in_words(users));
    object["lock"] = one.has_trailer ? to_json(one.lock) : json(nullptr);
    return object;
}

} // namespace ybnetctl
