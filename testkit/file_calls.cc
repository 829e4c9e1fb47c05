// SPDX-License-Identifier: Apache-2.0
//
// The C library's functions that reach shared memory, netdev names and the files
// of sysfs and of the driver, interposed while the kit is active: they find the
// shared directory instead of the host.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/if.h>
#include <string>
#include <sys/types.h>
#include <unistd.h>

#include "testkit/directory.h"
#include "testkit/netdev_table.h"
#include "testkit/real_calls.h"

namespace {

using namespace testkit;

bool is_between(const std::string &path, const std::string &before, const std::string &after,
                std::string *name) {
    if (path.size() <= before.size() + after.size() || !path.starts_with(before) || !path.ends_with(after))
        return false;
    *name = path.substr(before.size(), path.size() - before.size() - after.size());
    return name->find('/') == std::string::npos;
}

// The file that stands for path; path itself when none does.
std::string stand_in_for(const char *path) {
    if (!is_active())
        return path;
    std::string name;
    if (path == std::string_view("/proc/qrn_yb/yb_core"))
        return path_of("driver/yb_core");
    if (is_between(path, "/sys/class/net/", "/carrier", &name)) {
        const directory_lock lock;
        const auto device = netdev_named("", name);
        // The kernel refuses to tell the carrier of a netdev that is down.
        if (device && (device->flags & IFF_UP) == 0)
            return "/dev/null";
        return path_of("net/@/") + name + "/carrier";
    }
    if (is_between(path, "/sys/devices/virtual/net/", "/ifindex", &name) ||
        is_between(path, "/sys/class/net/", "/ifindex", &name))
        return path_of("net/@/") + name + "/ifindex";
    return path;
}

// False, with errno, for a name that shm_open(3) refuses too.
bool shared_memory_path(const char *name, std::string *path) {
    while (*name == '/')
        name++;
    if (*name == '\0' || strchr(name, '/') != nullptr || name[0] == '.') {
        errno = EINVAL;
        return false;
    }
    *path = path_of("shm/") + name;
    return true;
}

} // namespace

extern "C" {

int shm_open(const char *name, int flags, mode_t mode) {
    if (!is_active())
        return CALL_REAL(shm_open, int(const char *, int, mode_t), name, flags, mode);
    std::string path;
    return shared_memory_path(name, &path) ? open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, mode) : -1;
}

int shm_unlink(const char *name) {
    if (!is_active())
        return CALL_REAL(shm_unlink, int(const char *), name);
    std::string path;
    return shared_memory_path(name, &path) ? unlink(path.c_str()) : -1;
}

unsigned int if_nametoindex(const char *name) noexcept {
    if (!is_active())
        return CALL_REAL(if_nametoindex, unsigned int(const char *), name);
    const directory_lock lock;
    if (const auto device = netdev_named("", name))
        return device->ifindex;
    errno = ENODEV;
    return 0;
}

char *if_indextoname(unsigned int ifindex, char *name) noexcept {
    if (!is_active())
        return CALL_REAL(if_indextoname, char *(unsigned int, char *), ifindex, name);
    const directory_lock lock;
    if (const auto device = netdev_numbered("", ifindex)) {
        name[device->name.copy(name, IFNAMSIZ - 1)] = '\0';
        return name;
    }
    errno = ENXIO;
    return nullptr;
}

FILE *fopen(const char *path, const char *mode) {
    return CALL_REAL(fopen, FILE * (const char *, const char *), stand_in_for(path).c_str(), mode);
}

FILE *fopen64(const char *path, const char *mode) {
    return CALL_REAL(fopen64, FILE * (const char *, const char *), stand_in_for(path).c_str(), mode);
}

} // extern "C"
