// SPDX-License-Identifier: Apache-2.0
//
// interface set: link states, router interface id and VRID; and entering an interface's namespace, which others need
// too.
#ifndef YBNET_YBNETCTL_CHANGE_INTERFACE_SET_H
#define YBNET_YBNETCTL_CHANGE_INTERFACE_SET_H

#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "tools/ybnetctl/change/inside_namespace.h"
#include "tools/ybnetctl/change/library.h"
#include "tools/ybnetctl/command_line.h"

namespace ybnetctl {

// Moves this thread into the namespace that a record names, until the result is gone; NULL when it is there already.
// A step of a rehearsal.
std::unique_ptr<inside_namespace> enter(library &lib, const std::string &ns);

void add_interface_set(command_line &line, CLI::App *interface);

} // namespace ybnetctl

#endif
