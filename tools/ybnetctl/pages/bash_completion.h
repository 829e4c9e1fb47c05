// SPDX-License-Identifier: Apache-2.0
//
// Completion for bash(1), made from the option table.
#ifndef YBNET_YBNETCTL_PAGES_BASH_COMPLETION_H
#define YBNET_YBNETCTL_PAGES_BASH_COMPLETION_H

#include <string>

#include "tools/ybnetctl/command_line.h"

namespace ybnetctl {

std::string bash_completion_of(const command_line &line);

} // namespace ybnetctl

#endif
