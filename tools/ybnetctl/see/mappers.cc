// SPDX-License-Identifier: Apache-2.0
//
// See mappers.h.
#include "tools/ybnetctl/see/mappers.h"

#include <cerrno>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "tools/ybnetctl/see/procfs.h"

namespace ybnetctl {

namespace {

constexpr const char *deleted_mark = " (deleted)";

bool ends_with(const std::string &text, const std::string &end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

enum class relation { none, live, deleted };

// The name is compared without its directory: seen from another mount namespace the same file has another path, and
// its device tells that it is the same /dev/shm.
relation relation_to(const segment_copy &segment, dev_t shared_memory, const mapped_file &file) {
    if (ends_with(file.path, segment.format().name + std::string(deleted_mark)))
        return file.device == shared_memory ? relation::deleted : relation::none;
    const bool same = segment.present && file.device == segment.device && file.inode == segment.inode;
    return same ? relation::live : relation::none;
}

mapper describe(pid_t process) {
    mapper who;
    who.pid = process;
    const std::string directory = "/proc/" + std::to_string(process);
    if (const auto line = read_process_line(directory)) {
        who.name = line->name;
        who.age = line->age;
        who.threads = line->threads;
        who.state = line->state;
    }
    who.command_line = command_line_of(process);
    who.user = user_of(process).value_or(0);
    who.user_name = user_name(who.user);
    return who;
}

// A process whose first thread has ended shows its maps in those of its other threads only.
std::optional<std::string> read_maps(pid_t process) {
    const std::string directory = "/proc/" + std::to_string(process);
    auto maps = read_whole_file(directory + "/maps");
    if (!maps || !maps->empty())
        return maps;
    const auto line = read_process_line(directory);
    if (!line || line->state != 'Z' || line->threads < 2)
        return maps;
    for (const pid_t thread : numbers_in(directory + "/task")) {
        maps = read_whole_file(directory + "/task/" + std::to_string(thread) + "/maps");
        if (!maps || !maps->empty())
            break;
    }
    return maps;
}

} // namespace

mapped_file parse_map_line(const std::string &line) {
    // 7f0c0a1ff000-7f0c0a273000 rw-s 00000000 00:1a 4   /dev/shm/net_lib_ifc (deleted)
    std::istringstream parts(line);
    std::string addresses;
    std::string rights;
    std::string offset;
    std::string device;
    mapped_file file;
    file.address = std::strtoull(line.c_str(), nullptr, 16);
    parts >> addresses >> rights >> offset >> device >> file.inode >> std::ws;
    std::getline(parts, file.path);
    if (const size_t colon = device.find(':'); colon != std::string::npos)
        file.device = makedev(static_cast<unsigned>(std::strtoul(device.c_str(), nullptr, 16)),
                              static_cast<unsigned>(std::strtoul(device.c_str() + colon + 1, nullptr, 16)));
    return file;
}

mappers_survey find_mappers(const segment_copy &interfaces, const segment_copy &ports) {
    mappers_survey survey;
    survey.all_shown = shows_all_processes();
    survey.first_pid_namespace = in_first_pid_namespace();
    struct stat status {};
    const dev_t shared_memory = stat("/dev/shm", &status) == 0 ? status.st_dev : 0;
    const std::array<const segment_copy *, 2> segments = {&interfaces, &ports};

    for (const pid_t process : numbers_in("/proc")) {
        const auto maps = read_maps(process);
        if (!maps) {
            if (errno == EACCES || errno == EPERM)
                survey.unreadable.push_back(process);
            continue; // else it has ended, or never had memory of its own
        }
        std::array<relation, 2> found = {relation::none, relation::none};
        std::array<uint64_t, 2> addresses = {};
        std::istringstream lines(*maps);
        for (std::string line; std::getline(lines, line);) {
            if (line.find(" 00:00 0") != std::string::npos)
                continue; // no file
            const mapped_file file = parse_map_line(line);
            for (size_t i = 0; i < segments.size(); i++) {
                const relation its = relation_to(*segments[i], shared_memory, file);
                if (its == relation::none || found[i] == relation::live || found[i] == its)
                    continue;
                found[i] = its;
                addresses[i] = file.address; // of its beginning: lines come in the order of addresses
            }
        }
        for (size_t i = 0; i < segments.size(); i++) {
            if (found[i] == relation::none)
                continue;
            mappers_of_segment &segment = survey.segments[i];
            auto &list = found[i] == relation::live ? segment.live : segment.deleted;
            list.push_back(describe(process));
            list.back().address = addresses[i];
        }
    }
    return survey;
}

json to_json(const mapper &who) {
    json object;
    object["pid"] = who.pid;
    object["name"] = who.name;
    object["command_line"] = who.command_line;
    object["uid"] = who.user;
    object["user"] = who.user_name;
    object["age_seconds"] = who.age;
    object["threads"] = who.threads;
    object["state"] = std::string(1, who.state);
    return object;
}

} // namespace ybnetctl
