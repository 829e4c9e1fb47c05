// SPDX-License-Identifier: Apache-2.0
//
// See command.h. Rests on system(3), popen(3) and ip-netns(8).
#include "net_lib/command.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <net/if.h>

#include "net_lib_db/probe.h"

namespace {

constexpr size_t command_size = 256;
constexpr size_t ifindex_line_size = 20;
constexpr char plain_signs[] = "._-@:+=";

bool is_own_namespace(const char *ns) {
    return ns == nullptr || ns[0] == '\0';
}

// By hand, not isalnum(3): what is safe in a shell does not depend on the locale.
bool is_plain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           memchr(plain_signs, c, sizeof(plain_signs) - 1) != nullptr;
}

} // namespace

bool __yb_net_name_is_plain(const char *name) {
    if (name[0] == '\0' || name[0] == '-')
        return false;
    for (const char *c = name; *c != '\0'; c++) {
        if (!is_plain(*c))
            return false;
    }
    return true;
}

bool command_is_complete(int length, size_t size, bool plain) {
    if (!plain) {
        errno = EINVAL;
        return false;
    }
    if (length < 0 || static_cast<size_t>(length) >= size) {
        errno = ENAMETOOLONG;
        return false;
    }
    return true;
}

int __yb_net_cmd_exec(const char *command) {
    YB_PROBE(command_start, command);
    errno = 0; // callers print errno after a failure: an older one would mislead
    const int status = system(command);
    YB_PROBE(command_end, command, status);
    return status;
}

int __yb_net_cmd_exec_in_ns(const char *ns, const char *command) {
    if (is_own_namespace(ns))
        return __yb_net_cmd_exec(command);
    char wrapped[command_size] = {};
    const int length = snprintf(wrapped, sizeof(wrapped), "ip netns exec %s %s", ns, command);
    if (!command_is_complete(length, sizeof(wrapped), __yb_net_name_is_plain(ns)))
        return 1; // like a command that failed: callers tell no difference
    return __yb_net_cmd_exec(wrapped);
}

int __yb_net_if_move_to_ns(const char *name, const char *run_ns, const char *target_ns) {
    if (is_own_namespace(target_ns))
        return 1;
    char command[command_size] = {};
    if (!COMMAND_FORMAT(command, "ip link set netns %s %s", target_ns, name))
        return 0;
    return __yb_net_cmd_exec_in_ns(run_ns, command) == 0 ? 1 : 0;
}

uint32_t __yb_net_if_ifindex_get_in_ns(const char *ns, const char *name) {
    if (is_own_namespace(ns))
        return if_nametoindex(name);
    char command[command_size] = {};
    if (!COMMAND_FORMAT(command, "ip netns exec %s cat /sys/devices/virtual/net/%s/ifindex 2>&1", ns, name))
        return 0;
    const char *const text = command;
    YB_PROBE(command_start, text);
    FILE *const output = popen(command, "r");
    if (output == nullptr) {
        YB_PROBE(command_end, text, -1);
        return 0;
    }
    (void)fcntl(fileno(output), F_SETFD, FD_CLOEXEC); // cannot fail on a descriptor just made
    char line[ifindex_line_size] = {};
    if (fgets(line, sizeof(line), output) == nullptr)
        line[0] = '\0'; // an empty answer does not parse below
    // To the end: a cat that meets a closed pipe, even with nothing left to write, counts as failed.
    for (char rest[command_size]; fgets(rest, sizeof(rest), output) != nullptr;)
        continue;
    const int status = pclose(output);
    YB_PROBE(command_end, text, status);
    if (status != 0)
        return 0; // what was read is cat's or ip's error text
    uint32_t ifindex = 0;
    if (sscanf(line, "%u", &ifindex) != 1)
        return 0;
    return ifindex;
}

int __yb_net_if_exists_in_ns(const char *ns, const char *name) {
    return __yb_net_if_ifindex_get_in_ns(ns, name) != 0 ? 1 : 0;
}

int __yb_net_if_exists(const char *name) {
    return if_nametoindex(name) != 0 ? 1 : 0;
}
