// SPDX-License-Identifier: Apache-2.0
//
// See sandbox.h. Rests on user_namespaces(7), mount_namespaces(7) and
// network_namespaces(7).
#include "tests/support/sandbox.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::string failed(const char *step) {
    return std::string(step) + ": " + strerror(errno);
}

bool write_file(const char *path, const std::string &text) {
    const int descriptor = open(path, O_WRONLY | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    const bool written = write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(descriptor);
    return written;
}

// As root of a user namespace of its own; on a host that refuses one (in a chroot, say), as the host's root.
std::string unshare_namespaces() {
    const auto uid = std::to_string(geteuid());
    const auto gid = std::to_string(getegid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWNET) == 0) {
        if (!write_file("/proc/self/setgroups", "deny") ||
            !write_file("/proc/self/uid_map", "0 " + uid + " 1") ||
            !write_file("/proc/self/gid_map", "0 " + gid + " 1"))
            return failed("mapping root into the user namespace");
        return "";
    }
    if (unshare(CLONE_NEWNS | CLONE_NEWNET) != 0)
        return failed("unshare of mount and network namespaces");
    return "";
}

bool set_up(const char *netdev) {
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    struct ifreq request = {};
    (void)snprintf(request.ifr_name, sizeof(request.ifr_name), "%s", netdev);
    request.ifr_flags = IFF_UP;
    const bool done = descriptor >= 0 && ioctl(descriptor, SIOCSIFFLAGS, &request) == 0;
    close(descriptor);
    return done;
}

} // namespace

std::string sandbox_enter() {
    const std::string problem = unshare_namespaces();
    if (!problem.empty())
        return problem;
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return failed("making mounts private");
    if (mount("tmpfs", "/dev/shm", "tmpfs", 0, "mode=1777") != 0)
        return failed("tmpfs on /dev/shm");
    if (mount("tmpfs", "/run", "tmpfs", 0, "mode=0755") != 0 || mkdir("/run/netns", 0755) != 0)
        return failed("tmpfs on /run");
    if (mount("sysfs", "/sys", "sysfs", 0, nullptr) != 0)
        return failed("sysfs on /sys");
    if (!set_up("lo"))
        return failed("setting lo up");
    return "";
}
