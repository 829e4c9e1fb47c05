// SPDX-License-Identifier: Apache-2.0
//
// What all changing commands have in common: how their success, their failure and their rehearsal are printed.
#ifndef YBNET_YBNETCTL_CHANGE_CHANGING_H
#define YBNET_YBNETCTL_CHANGE_CHANGING_H

#include <functional>
#include <string>

#include "tools/ybnetctl/change/library.h"
#include "tools/ybnetctl/session.h"

namespace ybnetctl {

// What a command has done: an object for JSON, to which "status" is added, and a sentence for people, which a batch
// leaves out; "" is silence, as users of ip(8) expect it.
struct change_result {
    json document = json::object();
    std::string sentence;
};

// Runs a command and prints what came of it. In a dry run prints its steps instead, and a failure with them.
void change(session &run, const std::function<change_result(library &)> &command);

// "  would run: ip link add ..."
std::string step_in_words(const step &what);
json to_json(const step &what);

// What every changing command prints with --json beside its own keys, and in a dry run instead: for the man page.
extern const char *const change_keys;
extern const char *const dry_run_keys;

} // namespace ybnetctl

#endif
