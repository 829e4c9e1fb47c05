// SPDX-License-Identifier: Apache-2.0
//
// See procfs.h.
#include "tools/ybnetctl/see/procfs.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <memory>
#include <pwd.h>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace ybnetctl {

namespace {

double seconds_since_boot() {
    timespec now{};
    (void)clock_gettime(CLOCK_BOOTTIME, &now); // this clock always exists
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

} // namespace

std::optional<std::string> read_whole_file(const std::string &path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return std::nullopt;
    std::string text;
    std::array<char, 16384> part{};
    ssize_t got = 0;
    while ((got = read(file, part.data(), part.size())) > 0 || (got < 0 && errno == EINTR)) {
        if (got > 0)
            text.append(part.data(), static_cast<size_t>(got));
    }
    const int error = errno;
    (void)close(file); // opened for reading only
    errno = error;
    return got < 0 ? std::nullopt : std::optional(text);
}

std::optional<process_line> read_process_line(const std::string &directory) {
    const auto text = read_whole_file(directory + "/stat");
    // The name stands in brackets and may hold brackets and blanks itself.
    const size_t open_bracket = text ? text->find('(') : std::string::npos;
    const size_t close_bracket = text ? text->rfind(')') : std::string::npos;
    if (open_bracket == std::string::npos || close_bracket == std::string::npos ||
        close_bracket < open_bracket)
        return std::nullopt;
    process_line line;
    line.name = text->substr(open_bracket + 1, close_bracket - open_bracket - 1);
    std::istringstream rest(text->substr(close_bracket + 1));
    rest >> line.state >> line.parent;
    std::string skipped;
    for (int field = 5; field < 20; field++)
        rest >> skipped;
    uint64_t start = 0;
    rest >> line.threads >> skipped >> start;
    if (!rest)
        return std::nullopt;
    const auto ticks = static_cast<double>(sysconf(_SC_CLK_TCK));
    line.age = std::max(0.0, seconds_since_boot() - static_cast<double>(start) / ticks);
    return line;
}

std::vector<pid_t> numbers_in(const std::string &directory) {
    std::vector<pid_t> numbers;
    const auto close_it = [](DIR *opened) { (void)closedir(opened); };
    const std::unique_ptr<DIR, decltype(close_it)> listing(opendir(directory.c_str()), close_it);
    if (!listing)
        return numbers;
    while (const dirent *const entry = readdir(listing.get())) {
        const std::string name = entry->d_name;
        pid_t number = 0;
        const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
        if (error == std::errc{} && end == name.data() + name.size() && number > 0)
            numbers.push_back(number);
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

std::string command_line_of(pid_t process) {
    const std::string directory = "/proc/" + std::to_string(process);
    std::string text = read_whole_file(directory + "/cmdline").value_or("");
    while (!text.empty() && text.back() == '\0')
        text.pop_back();
    std::replace(text.begin(), text.end(), '\0', ' ');
    if (!text.empty())
        return text;
    const auto line = read_process_line(directory);
    return line ? '[' + line->name + ']' : "";
}

std::vector<uint32_t> ids_of(const std::string &directory) {
    std::vector<uint32_t> ids;
    std::istringstream status(read_whole_file(directory + "/status").value_or(""));
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("NSpid:", 0) != 0)
            continue;
        std::istringstream numbers(line.substr(sizeof("NSpid:") - 1));
        for (uint32_t id = 0; numbers >> id;)
            ids.push_back(id);
    }
    return ids;
}

std::optional<uid_t> user_of(pid_t process) {
    struct stat status {};
    if (stat(("/proc/" + std::to_string(process) + "/task").c_str(), &status) != 0)
        return std::nullopt;
    // The directory belongs to root when the process may not be looked into (prctl(2), PR_SET_DUMPABLE): its status
    // tells the truth.
    std::istringstream lines(read_whole_file("/proc/" + std::to_string(process) + "/status").value_or(""));
    for (std::string line; std::getline(lines, line);) {
        uid_t user = 0;
        if (line.rfind("Uid:", 0) == 0 && std::istringstream(line.substr(sizeof("Uid:") - 1)) >> user)
            return user;
    }
    return status.st_uid;
}

std::string user_name(uid_t user) {
    const passwd *const known = getpwuid(user);
    return known != nullptr ? known->pw_name : std::to_string(user);
}

std::string group_name(gid_t group) {
    const struct group *const known = getgrgid(group);
    return known != nullptr ? known->gr_name : std::to_string(group);
}

bool shows_all_processes() {
    struct stat status {};
    return stat("/proc/1/stat", &status) == 0;
}

bool in_first_pid_namespace() {
    constexpr ino_t first = 0xEFFFFFFC; // the kernel's PROC_PID_INIT_INO
    struct stat status {};
    return stat("/proc/self/ns/pid", &status) == 0 && status.st_ino == first;
}

} // namespace ybnetctl
