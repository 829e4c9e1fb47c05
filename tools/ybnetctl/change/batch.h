// SPDX-License-Identifier: Apache-2.0
//
// Many commands in one process: one a line, as they would stand behind "ybnetctl".
#ifndef YBNET_YBNETCTL_CHANGE_BATCH_H
#define YBNET_YBNETCTL_CHANGE_BATCH_H

#include "tools/ybnetctl/outcome.h"
#include "tools/ybnetctl/session.h"

namespace ybnetctl {

// Runs run.batch_file. The first failure ends it with that failure's code, or, with --keep-going, gives the code of
// the first failure at the end.
exit_code run_batch(session &run);

// How FILE is read and what comes of it, for the man page: paragraphs, parted by empty lines.
extern const char *const batch_rules;

} // namespace ybnetctl

#endif
