// SPDX-License-Identifier: Apache-2.0
//
// How a command of ybnetctl ends: its exit codes, and the failure that a command
// throws and that main() or the batch prints, as text or as JSON.
#ifndef YBNET_YBNETCTL_OUTCOME_H
#define YBNET_YBNETCTL_OUTCOME_H

#include <optional>
#include <string>

#include "ybnet/yb_status.h"

namespace ybnetctl {

// Documented: scripts count on the numbers.
enum class exit_code : int { done = 0, failed = 1, usage = 2, not_found = 3 };

// What went wrong, in the words that the user needs: the thing ("interface 110"), the reason ("no record has this
// system ifindex"), what to try ("ybnetctl interface list shows what there is"; may be empty), and the library's
// status where one was returned.
struct failure {
    exit_code code = exit_code::failed;
    std::string thing;
    std::string reason;
    std::string advice;
    std::optional<yb_status_t> status;
};

} // namespace ybnetctl

#endif
