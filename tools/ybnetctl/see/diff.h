// SPDX-License-Identifier: Apache-2.0
//
// `ybnetctl diff`: two readings of one segment against each other.
#ifndef YBNET_YBNETCTL_SEE_DIFF_H
#define YBNET_YBNETCTL_SEE_DIFF_H

#include "tools/ybnetctl/command_line.h"

namespace ybnetctl {

void add_diff_command(command_line &line);

} // namespace ybnetctl

#endif
