// SPDX-License-Identifier: Apache-2.0
//
// See inside_namespace.h. Rests on setns(2), which moves one thread.
#include "tools/ybnetctl/change/inside_namespace.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <net/if.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/ybnetctl/kernel/namespaces.h"
#include "tools/ybnetctl/outcome.h"

namespace ybnetctl {

namespace {

constexpr const char *own_namespace = "/proc/thread-self/ns/net";

std::string path_of(const std::string &name) {
    return "/run/netns/" + name;
}

failure not_entered(const std::string &name, const char *step) {
    return {exit_code::failed,
            "namespace " + name,
            std::string(step) + ": " + std::strerror(errno),
            "ip netns list",
            {}};
}

} // namespace

uint64_t namespace_number(const std::string &name) {
    struct stat status = {};
    const std::string path = name.empty() ? own_namespace : path_of(name);
    if (!is_file_name(name) || stat(path.c_str(), &status) != 0)
        return 0;
    return status.st_ino; // unique: all are of one file system
}

bool namespace_exists(const std::string &name) {
    struct stat status = {};
    return name.empty() ||
           (is_file_name(name) && (stat(path_of(name).c_str(), &status) == 0 || errno != ENOENT));
}

bool is_own_namespace(const std::string &name) {
    return name.empty() || namespace_number(name) == namespace_number();
}

inside_namespace::inside_namespace(const std::string &name) {
    if (is_own_namespace(name))
        return;
    errno = ENOENT;
    if (!is_file_name(name))
        throw not_entered(name, "cannot be opened");
    const int wanted = open(path_of(name).c_str(), O_RDONLY | O_CLOEXEC);
    if (wanted < 0)
        throw not_entered(name, "cannot be opened");
    old_ = open(own_namespace, O_RDONLY | O_CLOEXEC);
    if (old_ < 0 || setns(wanted, CLONE_NEWNET) != 0) {
        const failure problem = not_entered(name, "cannot be entered");
        close(wanted);
        if (old_ >= 0)
            close(old_);
        throw problem;
    }
    close(wanted);
}

inside_namespace::~inside_namespace() {
    if (old_ < 0)
        return;
    if (setns(old_, CLONE_NEWNET) != 0)
        std::terminate(); // all that follows would meet the wrong netdevs
    close(old_);
}

uint32_t netdev_index(const std::string &ns, const std::string &name, std::string *problem) {
    try {
        const inside_namespace there(ns);
        return if_nametoindex(name.c_str());
    } catch (const failure &refused) {
        if (problem != nullptr)
            *problem = refused.reason;
        return 0;
    }
}

std::optional<unsigned> vlan_id_in_kernel(const std::string &ns, const std::string &name) {
    try {
        const inside_namespace there(ns);
        std::ifstream file("/proc/thread-self/net/vlan/" + name); // "swp1.30  VID: 30 ..."
        std::string word;
        unsigned id = 0;
        if (file >> word >> word >> id)
            return id;
    } catch (const failure &) {
        // Not to be looked at.
    }
    return std::nullopt;
}

} // namespace ybnetctl
