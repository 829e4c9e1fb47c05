// SPDX-License-Identifier: Apache-2.0
//
// See namespaces.h. Rests on setns(2), network_namespaces(7) and netlink(7).
#include "tools/ybnetctl/kernel/namespaces.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <linux/netlink.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/ybnetctl/table.h"

namespace ybnetctl {

namespace {

constexpr const char *directory = "/run/netns";
constexpr const char *own_namespace = "/proc/thread-self/ns/net";

std::string path_of(const std::string &name) {
    return name.empty() ? own_namespace : std::string(directory) + '/' + name;
}

namespace_identity identity_of(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 ? namespace_identity{status.st_dev, status.st_ino}
                                           : namespace_identity{};
}

namespace_identity identity_of(const std::string &path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? namespace_identity{status.st_dev, status.st_ino}
                                            : namespace_identity{};
}

// In the calling thread's namespace.
void make_socket(route_socket &made, uint32_t groups) {
    const auto failed = [&made](const char *step) {
        made.error = errno;
        made.step = step;
    };
    unique_descriptor opened(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (opened.number() < 0)
        return failed("opening a route socket");
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = groups;
    if (bind(opened.number(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0)
        return failed("binding a route socket");
    made.descriptor = std::move(opened);
}

// Ends in the other namespace: for a thread of its own.
void enter_and_make_socket(const std::string &name, route_socket &made, uint32_t groups) {
    // Not blocking: a pipe may lie where a namespace should.
    const unique_descriptor entry(open(path_of(name).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (entry.number() < 0) {
        made.error = errno;
        made.step = "opening it";
        return;
    }
    made.of = identity_of(entry.number());
    if (setns(entry.number(), CLONE_NEWNET) != 0) {
        made.error = errno;
        made.step = "entering it";
        return;
    }
    make_socket(made, groups);
}

} // namespace

unique_descriptor::~unique_descriptor() {
    if (number_ >= 0)
        (void)close(number_); // nothing was written to it that could be lost
}

unique_descriptor &unique_descriptor::operator=(unique_descriptor &&other) noexcept {
    std::swap(number_, other.number_); // the other one closes what was here
    return *this;
}

bool is_file_name(const std::string &name) {
    return name != "." && name != ".." && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

std::vector<std::string> named_namespaces() {
    std::vector<std::string> names;
    std::error_code none; // no directory, no namespaces
    for (auto at = std::filesystem::directory_iterator(directory, none);
         at != std::filesystem::directory_iterator(); at.increment(none))
        names.push_back(at->path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

namespace_identity identity_of_namespace(const std::string &name) {
    return is_file_name(name) ? identity_of(path_of(name)) : namespace_identity{};
}

namespace_identity identity_of_process(pid_t process) {
    return identity_of("/proc/" + std::to_string(process) + "/ns/net");
}

bool is_callers_namespace(const std::string &name) {
    const namespace_identity own = identity_of_namespace("");
    return name.empty() || (identity_of_namespace(name) == own && !(own == namespace_identity{}));
}

route_socket open_route_socket(const std::string &name, uint32_t groups) {
    route_socket made;
    if (is_callers_namespace(name)) { // also by its name: that takes no right to enter it
        made.of = identity_of_namespace(name);
        make_socket(made, groups);
    } else if (!is_file_name(name)) {
        made.error = ENOENT;
        made.step = "looking it up";
    } else {
        std::thread(enter_and_make_socket, std::cref(name), std::ref(made), groups).join();
    }
    return made;
}

std::string namespace_in_words(const std::string &name) {
    return name.empty() ? "the default namespace" : "namespace " + printable(name);
}

} // namespace ybnetctl
