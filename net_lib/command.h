// SPDX-License-Identifier: Apache-2.0
//
// Running the host's ip and vconfig tools, in the caller's network namespace or
// in a named one. A namespace is a NUL-terminated string; NULL and "" both mean
// the caller's own. Nothing here logs: callers report failures.
//
// Commands are text for a shell that runs with the caller's rights, so no name
// gets into one unless the shell takes it as one plain word: COMMAND_FORMAT
// checks each. Anything else is refused as a command that failed.
#ifndef YBNET_NET_LIB_COMMAND_H
#define YBNET_NET_LIB_COMMAND_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

// Not empty, only letters, digits and ._-@:+= and no leading '-'.
bool __yb_net_name_is_plain(const char *name);

// Numbers are.
inline bool __yb_net_name_is_plain(uint32_t) {
    return true;
}
template <typename... argument_t> bool command_arguments_are_plain(const argument_t &...arguments) {
    return (__yb_net_name_is_plain(arguments) && ...);
}

// True when a formatted command may be run; else errno is EINVAL for a refused name, ENAMETOOLONG for a
// command that was cut.
bool command_is_complete(int length, size_t size, bool plain);

// Formats a command into a char array; its arguments are names and unsigned numbers. The text is there for
// messages also when the result is false and it must not be run.
#define COMMAND_FORMAT(buffer, format, ...)                                                                  \
    command_is_complete(snprintf(buffer, sizeof(buffer), format, __VA_ARGS__), sizeof(buffer),               \
                        command_arguments_are_plain(__VA_ARGS__))

// Runs a complete command in the caller's namespace: the result of system(3). errno is 0 unless system(3) or
// the shell's start failed.
int __yb_net_cmd_exec(const char *command);

// Runs a complete command inside a namespace: the result of system(3), or 1 when nothing was run because the
// wrapped command did not fit 256 bytes or the namespace's name was refused.
int __yb_net_cmd_exec_in_ns(const char *ns, const char *command);

// Moves a netdev, seen from run_ns, into target_ns. 1 = moved, or nothing to do because target_ns is the
// caller's own; 0 = failed.
int __yb_net_if_move_to_ns(const char *name, const char *run_ns, const char *target_ns);

// The netdev's Linux ifindex inside ns; 0 = not found or any failure. Inside a named namespace only netdevs
// under /sys/devices/virtual/net are found.
uint32_t __yb_net_if_ifindex_get_in_ns(const char *ns, const char *name);

// 1 or 0: the netdev exists inside ns; in the caller's namespace.
int __yb_net_if_exists_in_ns(const char *ns, const char *name);
int __yb_net_if_exists(const char *name);

#endif
