// SPDX-License-Identifier: Apache-2.0
//
// See directory.h. Rests on flock(2), which a killed process gives back.
#include "testkit/directory.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace testkit {

namespace {

constexpr size_t longest_directory = 80; // addresses of sockets in it have 108 bytes

bool write_all(const std::string &path, const std::string &text, int flags) {
    const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0666);
    if (descriptor < 0)
        return false;
    const bool done = write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    (void)close(descriptor);
    return done;
}

} // namespace

std::string directory() {
    const char *const value = getenv(directory_variable);
    return value == nullptr ? "" : value;
}

bool is_active() {
    const char *const value = getenv(directory_variable);
    return value != nullptr && value[0] != '\0';
}

std::string path_of(const std::string &name) {
    return directory() + "/" + name;
}

bool directory_make(std::string *out_root) {
    std::string place = "/dev/shm";
    if (access(place.c_str(), W_OK | X_OK) != 0) {
        const char *const given = getenv("TMPDIR");
        place = given != nullptr && given[0] == '/' ? given : "/tmp";
    }
    std::string pattern = place + "/ybnet-testkit-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr)
        return false;
    *out_root = pattern;
    return true;
}

int directory_fill(const std::string &root) {
    if (root.size() > longest_directory)
        return ENAMETOOLONG;
    for (const char *const name : {"", "/shm", "/net", "/nl", "/fail", "/answers", "/scripts", "/driver"}) {
        if (mkdir((root + name).c_str(), 0777) != 0 && errno != EEXIST)
            return errno;
    }
    if (!append_text(root + "/driver/yb_core", "") || !append_text(root + "/lock", ""))
        return errno;
    return 0;
}

std::string tools_directory() {
    if (const char *const given = getenv("YBNET_TESTKIT_TOOLS"); given != nullptr && given[0] != '\0')
        return given;
    // Relative to what this code is part of, so that an installed tree can be moved. dladdr(3) does not know
    // where a program lies.
    std::error_code failed;
    std::vector<fs::path> bases = {fs::read_symlink("/proc/self/exe", failed).parent_path()};
    Dl_info here = {};
    if (dladdr(reinterpret_cast<void *>(&tools_directory), &here) != 0 && here.dli_fname != nullptr)
        bases.insert(bases.begin(), fs::absolute(here.dli_fname, failed).parent_path());
    std::vector<fs::path> places;
    for (const fs::path &base : bases) {
        for (const char *const from : {YBNET_TESTKIT_TOOLS_FROM_LIBRARY, "../libexec/ybnet-testkit"})
            places.push_back(base / from);
    }
    places.emplace_back(bases.back() / "ybnet-testkit");
    places.emplace_back(YBNET_TESTKIT_TOOLS_INSTALLED);
    for (const fs::path &place : places) {
        if (fs::exists(place / "vconfig", failed))
            return fs::canonical(place, failed).string();
    }
    return "";
}

directory_lock::directory_lock() : descriptor_(open(path_of("lock").c_str(), O_RDWR | O_CLOEXEC)) {
    while (descriptor_ >= 0 && flock(descriptor_, LOCK_EX) != 0 && errno == EINTR)
        continue;
}

directory_lock::~directory_lock() {
    if (descriptor_ >= 0)
        (void)close(descriptor_);
}

std::string read_text(const std::string &path) {
    std::string text;
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return text;
    char part[8192];
    for (ssize_t size = 0; (size = read(descriptor, part, sizeof(part))) > 0;)
        text.append(part, static_cast<size_t>(size));
    (void)close(descriptor);
    return text;
}

bool write_text(const std::string &path, const std::string &text) {
    return write_all(path, text, O_TRUNC);
}

bool append_text(const std::string &path, const std::string &text) {
    return write_all(path, text, O_APPEND);
}

std::vector<std::string> lines_of(const std::string &path) {
    std::vector<std::string> lines;
    std::istringstream text(read_text(path));
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}

std::vector<std::string> names_in(const std::string &path) {
    std::vector<std::string> names;
    std::error_code none;
    for (fs::directory_iterator at(path, none), end; !none && at != end; at.increment(none))
        names.push_back(at->path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

bool exists(const std::string &path) {
    return access(path.c_str(), F_OK) == 0;
}

} // namespace testkit
