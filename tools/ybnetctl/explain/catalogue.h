// SPDX-License-Identifier: Apache-2.0
//
// Every status and every message of the library: what it means, what usually
// causes it, what to do. One table in parts by topic; a test compares it with the
// formats in the built library, so that none lacks its entry and none is stale.
#ifndef YBNET_YBNETCTL_EXPLAIN_CATALOGUE_H
#define YBNET_YBNETCTL_EXPLAIN_CATALOGUE_H

#include <span>
#include <string>
#include <vector>

#include "ybnet/yb_status.h"

namespace ybnetctl {

struct explanation {
    const char *meaning;
    const char *cause;  // "" where there is none to tell: it is no failure
    const char *advice; // "" where nothing is to be done
};

struct status_entry {
    yb_status_t number;
    const char *name; // "YB_STATUS_ERROR"
    explanation text;
};

struct message_entry {
    // As in printf(3), without the blanks and the newline at the end. Several, a line each, when they say the same of
    // different things.
    const char *formats;
    explanation text;
};
std::vector<std::string> formats_of(const message_entry &entry);

std::span<const status_entry> statuses();

// All messages: of the log, of the trace buffer and on standard error; of the commands that the library runs, too.
const std::vector<message_entry> &messages();

// Its parts.
std::span<const message_entry> segment_messages();
std::span<const message_entry> interface_messages();
std::span<const message_entry> port_messages();
std::span<const message_entry> netdev_messages();
std::span<const message_entry> link_messages();
std::span<const message_entry> request_messages();
std::span<const message_entry> host_messages(); // not the library's own

} // namespace ybnetctl

#endif
