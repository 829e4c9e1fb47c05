// SPDX-License-Identifier: Apache-2.0
//
// Processes and threads as /proc shows them (proc(5)), read with no more rights
// than the user has: what may not be read is absent, never guessed.
#ifndef YBNET_YBNETCTL_SEE_PROCFS_H
#define YBNET_YBNETCTL_SEE_PROCFS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace ybnetctl {

// What is in stat, for a process ("/proc/12") or a thread ("/proc/12/task/13").
struct process_line {
    std::string name;
    char state = '?'; // R, S, D, T stopped, t traced, Z zombie, X dead
    pid_t parent = 0;
    unsigned threads = 0;
    double age = 0; // seconds since it started
};

std::optional<process_line> read_process_line(const std::string &directory);

// The numbers that are names in a directory: processes in /proc, threads in /proc/PID/task.
std::vector<pid_t> numbers_in(const std::string &directory);

// Its arguments with blanks between them; its name in brackets when it has none.
std::string command_line_of(pid_t process);

// Its ids in each PID namespace from /proc's own to its innermost; empty when it is gone.
std::vector<uint32_t> ids_of(const std::string &directory);

// The user a process runs as; by name where there is one.
std::optional<uid_t> user_of(pid_t process);
std::string user_name(uid_t user);
std::string group_name(gid_t group);

// All of a file; nothing when it cannot be opened or read, with errno set.
std::optional<std::string> read_whole_file(const std::string &path);

// Whether /proc shows every process of its PID namespace (no hidepid), and whether that is the first one, outside of
// which there is none.
bool shows_all_processes();
bool in_first_pid_namespace();

} // namespace ybnetctl

#endif
