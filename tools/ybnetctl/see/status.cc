// SPDX-License-Identifier: Apache-2.0
//
// `ybnetctl status`: both segments, who uses them, their locks, and the versions
// in use. What is found and what it means is segment_report.h's; this file puts
// it into lines and tables.
#include <array>
#include <cstdio>
#include <ostream>

#include <unistd.h>

#include "tools/ybnetctl/command_line.h"
#include "tools/ybnetctl/see/procfs.h"
#include "tools/ybnetctl/see/segment_report.h"
#include "tools/ybnetctl/see/versions.h"
#include "tools/ybnetctl/table.h"

namespace ybnetctl {

namespace {

struct status_options {};

constexpr const char *indent = "  ";

// One line of facts: its name in a column, then what there is to say.
void say(session &run, const char *name, const std::string &words, tone shade = tone::plain) {
    std::array<char, 16> padded{};
    (void)std::snprintf(padded.data(), padded.size(), "%-10s", name);
    run.out << indent << padded.data() << shaded(printable(words), shade, run.colourful()) << '\n';
}

std::string age_in_words(double seconds) {
    const auto whole = static_cast<unsigned long>(seconds);
    std::array<char, 40> text{};
    if (whole < 60)
        (void)std::snprintf(text.data(), text.size(), "%.1f s", seconds);
    else if (whole < 3600)
        (void)std::snprintf(text.data(), text.size(), "%lu min %lu s", whole / 60, whole % 60);
    else if (whole < 86400)
        (void)std::snprintf(text.data(), text.size(), "%lu h %lu min", whole / 3600, whole / 60 % 60);
    else
        (void)std::snprintf(text.data(), text.size(), "%lu d %lu h", whole / 86400, whole / 3600 % 24);
    return text.data();
}

tone shade_of(const lock_report &lock) {
    switch (lock.condition) {
    case lock_condition::free:
        return tone::good;
    case lock_condition::in_use:
        return tone::plain;
    case lock_condition::held:
        return lock.holder->fate == holder_fate::alive ? tone::warning : tone::bad;
    default:
        return tone::bad;
    }
}

void print_mappers(session &run, const mappers_of_segment &mappers) {
    if (mappers.live.empty() && mappers.deleted.empty())
        return;
    table rows({{"PID", side::right},
                {"COMMAND", side::left},
                {"USER", side::left},
                {"RUNS", side::right},
                {"THREADS", side::right},
                {"STATE", side::left},
                {"MAPS", side::left}});
    for (const auto &[list, what] :
         {std::pair{&mappers.live, "the segment"}, std::pair{&mappers.deleted, "a deleted one"}}) {
        for (const mapper &who : *list)
            rows.add({who.pid, printable(who.name), printable(who.user_name), age_in_words(who.age),
                      who.threads, std::string(1, who.state),
                      cell(what, list == &mappers.live ? tone::plain : tone::bad)});
    }
    run.out << '\n';
    rows.print(run.out, run.colourful());
}

void print_children(session &run, const lock_report &lock) {
    if (!lock.holder)
        return;
    for (const child_command &child : lock.holder->children)
        say(run, "",
            "it runs: " + child.command_line + " (pid " + std::to_string(child.pid) + ", for " +
                age_in_words(child.age) + ')');
}

void print_lock(session &run, const segment_report &one) {
    say(run, "lock", lock_in_words(one.lock), shade_of(one.lock));
    print_children(run, one.lock);
    if (one.lock.condition == lock_condition::held_by_nobody && one.copy.live)
        say(run, "", "if it stays so: stop all users, delete " + one.copy.path + ", start again");
}

void print_segment(session &run, const status_report &all, const segment_report &one) {
    const bool interfaces = one.copy.kind == segment_kind::interfaces;
    run.out << shaded(interfaces ? "Interfaces database" : "Ports database", tone::heading, run.colourful())
            << "  " << printable(one.copy.path) << '\n';
    const users_known users = users_of(all, one);
    if (!one.copy.present) {
        say(run, "segment",
            one.copy.live ? "absent: not loaded, or its file was deleted"
                          : "none of the files given is a copy of it");
    } else {
        const condition state = condition_of(one);
        say(run, "segment", state.words, state.ok ? tone::plain : tone::bad);
        std::array<char, 8> mode{};
        (void)std::snprintf(mode.data(), mode.size(), "%04o", one.copy.mode & 07777U);
        say(run, "file",
            std::string("mode ") + mode.data() + ", owner " + user_name(one.copy.owner) + ':' +
                group_name(one.copy.group));
    }
    if (one.has_trailer) {
        if (all.copies)
            say(run, "users", std::to_string(one.users) + " registered when it was copied");
        else
            say(run, "users", users_in_words(users),
                agreement_of(users) == agreement::leaked ? tone::warning : tone::plain);
        print_lock(run, one);
    }
    if (const std::string stranded = stranded_in_words(users); !stranded.empty())
        say(run, "stranded", stranded, tone::bad);
    if (one.copy.present && !all.copies)
        say(run, "deleting", deleting_in_words(users));
    print_mappers(run, one.mappers);
    run.out << '\n';
}

void print_versions(session &run, const std::vector<library_version> &libraries,
                    const driver_devices &devices) {
    run.out << shaded("Versions", tone::heading, run.colourful()) << '\n';
    table rows({{"WHAT", side::left}, {"VERSION", side::left}, {"FILE", side::left}});
    rows.add({"ybnetctl", YBNET_VERSION, ""});
    for (const library_version &each : libraries)
        rows.add({each.role, each.version, printable(each.path)});
    rows.print(run.out, run.colourful());
    std::string names;
    for (const std::string &each : devices.names)
        names += (names.empty() ? "" : ", ") + each;
    if (!devices.error.empty())
        names = "none can be listed: " + devices.error;
    run.out << "\nDriver devices: " << printable(names.empty() ? "none" : names)
            << (devices.command_file ? "" : "; its command file /proc/qrn_yb/yb_core is not there") << '\n';
}

void show_status(session &run, const status_options &) {
    const status_report all = look_at_segments(run);
    const std::vector<library_version> libraries = libraries_in_use();
    const driver_devices devices = find_driver_devices();
    if (run.json_wanted) {
        json document;
        document["interfaces"] = to_json(all, all.interfaces);
        document["ports"] = to_json(all, all.ports);
        document["unreadable_processes"] = all.unreadable;
        document["all_processes_shown"] = all.all_shown;
        document["first_pid_namespace"] = all.first_pid_namespace;
        document["tool_version"] = YBNET_VERSION;
        document["libraries"] = to_json(libraries);
        document["driver"] = to_json(devices);
        print(run, document);
        return;
    }
    print_segment(run, all, all.interfaces);
    print_segment(run, all, all.ports);
    if (!all.unreadable.empty())
        run.out << "The maps of " << all.unreadable.size()
                << (all.unreadable.size() == 1 ? " process" : " processes") << " could not be read"
                << (geteuid() == 0 ? "" : "; root may read all of them") << ".\n\n";
    print_versions(run, libraries, devices);
}

} // namespace

void add_status_command(command_line &line) {
    CLI::App *const command = add_command<status_options>(
        &line.app(), line, "status", "Both segments, their users and locks, and the versions in use",
        [](CLI::App &, status_options &) {}, show_status,
        {{"ybnetctl status", "everything, in words"},
         {"ybnetctl status --json | jq .interfaces.lock.condition", "whether the interfaces lock is held"},
         {"ybnetctl --file /tmp/net_lib_ifc status", "a copy that somebody sent"}});
    line.add_notes(
        command,
        "Takes no lock, registers nowhere and changes nothing; ends with 0 whenever it could look, also at "
        "databases "
        "that are absent, broken or not to be read. A lock that is held is watched for a tenth of a "
        "second.\n\n"
        "JSON: interfaces and ports, each with name, path, live (not a copy), present, size, expected_size, "
        "size_check, fits (this build's layout), initialized_marker, condition (in words), mode, owner_uid, "
        "owner_gid, "
        "users_registered, processes and processes_on_deleted (each with pid, name, command_line, uid, user, "
        "age_seconds, threads, state; null for a copy), users_agree (null when it cannot be told), "
        "users_in_words, "
        "stranded_in_words, deleting_is_safe (null when it cannot be told), deleting_in_words, and lock: "
        "condition "
        "(free, in_use, held, held_by_nobody, not_usable), state, waiting (threads that sleep until it is "
        "free), "
        "looks, watched_seconds, holder (null, or thread, fate (alive, stopped, traced, dead, unknown), pid, "
        "process_name, thread_name, held_for_at_least_seconds, children with pid, parent, command_line, "
        "age_seconds), "
        "in_words. Beside them unreadable_processes (pids whose maps may not be read), all_processes_shown, "
        "first_pid_namespace, tool_version, libraries (role, path, version), driver (devices, error, "
        "command_file).");
}

} // namespace ybnetctl
