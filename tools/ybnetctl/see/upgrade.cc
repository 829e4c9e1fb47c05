// SPDX-License-Identifier: Apache-2.0
//
// ybnetctl check-upgrade: reads the new build's file, the segments, and the builds
// that their users run, and prints what upgrade/upgrade_report.h makes of them.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <fstream>
#include <map>
#include <ostream>
#include <set>
#include <unistd.h>

#include "tools/ybnetctl/command_line.h"
#include "tools/ybnetctl/see/mappers.h"
#include "tools/ybnetctl/segments/segment_copy.h"
#include "tools/ybnetctl/table.h"
#include "tools/ybnetctl/upgrade/upgrade_report.h"
#include "ybnet/net_lib.h"

namespace ybnetctl {

namespace {

constexpr size_t missing_symbols_shown = 10; // as text; JSON has all

struct upgrade_options {
    std::string file;
    std::string against;
};

struct upgrade_reading {
    upgrade_report report;
    std::vector<pid_t> unknown;    // users of the segments whose build could not be read
    std::vector<pid_t> unreadable; // processes of which it could not be told whether they are users
};

running_segment as_running(const segment_copy &copy) {
    running_segment segment{
        .name = copy.format().name, .present = copy.present, .size = copy.size, .size_check = {}};
    // Of a segment of another layout, the trailer's place is not known: its end is.
    const size_t end = copy.bytes.size();
    if (copy.present && copy.size == end && end >= sizeof(net_lib_db_trailer_t)) {
        net_lib_db_trailer_t trailer{};
        std::memcpy(&trailer, copy.bytes.data() + end - sizeof(trailer), sizeof(trailer));
        segment.size_check = trailer.size_check;
    }
    return segment;
}

// The build that this tool itself runs with.
running_library own_library() {
    Dl_info found{};
    if (dladdr(reinterpret_cast<const void *>(&yb_net_init), &found) == 0 || found.dli_fname == nullptr)
        throw failure{
            exit_code::failed, "this tool's own libybnet", "its file is not known", "--against FILE", {}};
    return {read_shared_library(found.dli_fname), {}};
}

// The file that a process maps, also when it was replaced since; "" in path when it maps none.
struct mapped_library {
    std::pair<dev_t, ino_t> file;
    std::string path;  // as the process has it
    std::string entry; // where to read it
};
mapped_library library_of(pid_t process) {
    const std::string directory = "/proc/" + std::to_string(process);
    std::ifstream maps(directory + "/maps");
    for (std::string line; std::getline(maps, line);) {
        const mapped_file file = parse_map_line(line);
        const std::string name = file.path.substr(file.path.rfind('/') + 1);
        if (!name.starts_with("libybnet.so"))
            continue;
        // The link under map_files leads to the very file, but is root's to follow.
        const std::string exact = directory + "/map_files/" + line.substr(0, line.find(' '));
        const bool readable = std::ifstream(exact).good();
        return {{file.device, file.inode}, file.path, readable ? exact : directory + "/root" + file.path};
    }
    return {};
}

// The builds of all processes that map a segment, each once. Those that cannot be read go to the reading's lists.
std::vector<running_library> running_libraries(const segment_copy &interfaces, const segment_copy &ports,
                                               upgrade_reading &read) {
    std::set<pid_t> users;
    const mappers_survey survey = find_mappers(interfaces, ports);
    read.unreadable = survey.unreadable;
    for (const mappers_of_segment &segment : survey.segments)
        for (const mapper &each : segment.live)
            users.insert(each.pid);
    std::map<std::pair<dev_t, ino_t>, running_library> builds;
    for (const pid_t user : users) {
        const mapped_library mapped = library_of(user);
        try {
            if (mapped.path.empty())
                throw failure{};
            const auto known = builds.find(mapped.file);
            running_library &build =
                known != builds.end()
                    ? known->second
                    : builds.emplace(mapped.file, running_library{read_shared_library(mapped.entry), {}})
                          .first->second;
            build.library.path = mapped.path;
            build.processes.push_back(user);
        } catch (const failure &) {
            read.unknown.push_back(user); // linked statically, or gone, or another user's
        }
    }
    std::vector<running_library> found;
    for (auto &[file, build] : builds)
        found.push_back(std::move(build));
    return found;
}

upgrade_reading read_all(const session &run, const upgrade_options &options) {
    upgrade_reading read;
    const shared_library candidate = read_shared_library(options.file);
    const segment_copy interfaces = read_segment(run, segment_kind::interfaces);
    const segment_copy ports = read_segment(run, segment_kind::ports);
    std::vector<running_library> references;
    if (!options.against.empty())
        references.push_back({read_shared_library(options.against), {}});
    else if (run.files.empty())
        references = running_libraries(interfaces, ports, read);
    if (references.empty())
        references.push_back(own_library());
    read.report = compare_upgrade(candidate, references, {as_running(interfaces), as_running(ports)});
    return read;
}

void print_json(session &run, const upgrade_reading &read) {
    const upgrade_report &report = read.report;
    json segments = json::array();
    for (const segment_fit &each : report.segments)
        segments.push_back(
            {{"name", each.running.name},
             {"present", each.running.present},
             {"size", each.running.present ? json(each.running.size) : json(nullptr)},
             {"size_check", each.running.size_check ? json(*each.running.size_check) : json(nullptr)},
             {"new_size", each.new_size ? json(*each.new_size) : json(nullptr)},
             {"fit", key_of(each.what)},
             {"reasons", each.reasons}});
    json libraries = json::array();
    for (const library_fit &each : report.libraries)
        libraries.push_back({{"path", each.path},
                             {"pids", each.processes},
                             {"soname", each.soname},
                             {"same_soname", each.same_soname},
                             {"missing_symbols", each.missing}});
    print(run, {{"path", report.path},
                {"soname", report.soname.empty() ? json(nullptr) : json(report.soname)},
                {"is_libybnet", report.is_libybnet},
                {"has_layout_note", report.has_note},
                {"verdict", key_of(report.verdict)},
                {"explanation", report.sentence},
                {"segments", segments},
                {"compared_with", libraries},
                {"unknown_pids", read.unknown},
                {"unreadable_processes", read.unreadable}});
}

std::string pids_in_words(const std::vector<pid_t> &processes) {
    std::string words = processes.size() == 1 ? "process" : "processes";
    for (const pid_t each : processes)
        words += ' ' + std::to_string(each);
    return words;
}

tone tone_of(fit what) {
    switch (what) {
    case fit::fits:
        return tone::good;
    case fit::does_not_fit:
        return tone::bad;
    case fit::cannot_tell:
        return tone::warning;
    case fit::not_running:
        break;
    }
    return tone::plain;
}

std::string fit_in_words(fit what) {
    switch (what) {
    case fit::fits:
        return "fits";
    case fit::not_running:
        return "not there";
    case fit::does_not_fit:
        return "does not fit";
    case fit::cannot_tell:
        break;
    }
    return "cannot tell";
}

void print_library(session &run, const upgrade_report &report, const library_fit &each) {
    run.out << "Compared with " << printable(each.path) << " of "
            << (each.processes.empty() ? "no process that uses a segment" : pids_in_words(each.processes))
            << '\n';
    if (!each.same_soname)
        run.out << "  its name is " << printable(each.soname) << ", the new build's "
                << (report.soname.empty() ? "none" : printable(report.soname)) << '\n';
    const size_t shown = std::min(each.missing.size(), missing_symbols_shown);
    for (size_t i = 0; i < shown; i++)
        run.out << "  the new build lacks " << printable(each.missing[i]) << '\n';
    if (shown < each.missing.size())
        run.out << "  and " << each.missing.size() - shown << " more symbols (--json names all)\n";
}

void print_text(session &run, const upgrade_reading &read) {
    const upgrade_report &report = read.report;
    const bool colour = run.colourful();
    if (!report.is_libybnet) { // nothing to compare
        run.out << shaded(printable(report.sentence), tone_of(report.verdict), colour) << '\n';
        return;
    }
    table segments({{"SEGMENT"}, {"SIZE", side::right}, {"NEW SIZE", side::right}, {"VERDICT"}});
    for (const segment_fit &each : report.segments)
        segments.add({each.running.name, each.running.present ? std::to_string(each.running.size) : "",
                      each.new_size ? std::to_string(*each.new_size) : "",
                      cell(fit_in_words(each.what), tone_of(each.what))});
    segments.print(run.out, colour);
    for (const segment_fit &each : report.segments)
        for (const std::string &reason : each.reasons)
            run.out << each.running.name << ": " << reason << '\n';
    for (const library_fit &each : report.libraries)
        print_library(run, report, each);
    if (!read.unknown.empty())
        run.out << "Not compared: the builds of " << pids_in_words(read.unknown) << '\n';
    if (!read.unreadable.empty())
        run.out << "Not looked into: " << read.unreadable.size()
                << (read.unreadable.size() == 1 ? " process, which" : " processes, which")
                << " may use the segments, too: their maps may not be read"
                << (geteuid() == 0 ? "\n" : " (by root they may)\n");
    run.out << shaded(report.sentence, tone_of(report.verdict), colour) << '\n';
}

void run_upgrade(session &run, const upgrade_options &options) {
    const upgrade_reading read = read_all(run, options);
    if (run.json_wanted)
        print_json(run, read);
    else
        print_text(run, read);
    if (read.report.verdict != fit::fits)
        run.ends_with = exit_code::failed;
}

constexpr const char *notes =
    "The file is read, never loaded: its layout note, its SONAME and what it exports. The layout is compared "
    "with the segments under /dev/shm and with the builds that their users run; when none of those can be "
    "read, with the build that ybnetctl itself runs with. Who the users are is told by the maps of all "
    "processes, which only root may read: where some could not be, that is said. A build fits when processes "
    "that run it can share the segments with processes that still run the old one, and programs linked with "
    "the old one start with it.\n\n"
    "Exit code 0 when it fits, 1 when it does not or when that cannot be told, 3 when there is no such "
    "file.\n\n"
    "JSON: path, soname, is_libybnet, has_layout_note, verdict (fits, does_not_fit, cannot_tell), "
    "explanation, segments (name, present, size, size_check, new_size, fit: fits, not_running, does_not_fit "
    "or cannot_tell, reasons), compared_with (a list: path, pids, soname, same_soname, missing_symbols), "
    "unknown_pids "
    "(users whose build could not be read), unreadable_processes (pids whose maps may not be read).";

} // namespace

void add_upgrade_command(command_line &line) {
    CLI::App *const command = add_command<upgrade_options>(
        &line.app(), line, "check-upgrade", "Tell whether a new build of libybnet fits the running segments",
        [](CLI::App &app, upgrade_options &options) {
            app.add_option("NEWLIB", options.file, "The new build's libybnet.so.1")->required();
            app.add_option("--against", options.against,
                           "Compare with this build instead of those that the segments' users run")
                ->type_name("FILE");
        },
        run_upgrade,
        {{"ybnetctl check-upgrade \"$(ldd \"$(command -v ybnetctl)\" | awk '/libybnet/ {print $3}')\"",
          "the build that ybnetctl itself runs with, which fits its own segments"}});
    line.add_notes(command, notes);
}

} // namespace ybnetctl
