// SPDX-License-Identifier: Apache-2.0
//
// One line of monitor, as text or as a JSON object.
#ifndef YBNET_YBNETCTL_SEE_MONITOR_LINE_H
#define YBNET_YBNETCTL_SEE_MONITOR_LINE_H

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

#include "tools/ybnetctl/session.h"

namespace ybnetctl {

enum class monitor_event {
    down,
    up,
    change,
    deleted,
    lost,              // the kernel dropped events
    namespace_deleted, // and is no longer watched
    state              // what an interface is like now, after one of these two
};

struct monitor_line {
    timespec time = {}; // of reception, CLOCK_REALTIME
    monitor_event event = monitor_event::change;
    std::optional<uint32_t> sys_ifindex = {};
    std::optional<uint32_t> linux_ifindex = {};
    std::string name = {};
    std::string ns = {};
    std::optional<bool> up = {}; // none: deleted, lost, or a state of a netdev that is gone
    std::optional<bool> carrier = {};
    bool bridge_port = false;
    std::optional<uint32_t> dropped = {}; // of lost, where the kernel tells
};

// As in JSON.
const char *key_of(monitor_event event);

// "2026-03-01 02:03:04.567890", local time.
std::string local_time(const timespec &time);

json to_json(const monitor_line &line);

// Without the newline.
std::string to_text(const monitor_line &line, bool colour);

// What stands over the columns of to_text().
std::string monitor_heading(bool colour);

} // namespace ybnetctl

#endif
