// SPDX-License-Identifier: Apache-2.0
//
// What ybnetctl audit reads: the records, the kernel's netdevs, and whatever makes
// the comparison of both (audit_compare.h) less than certain. audit.cc prints it.
#ifndef YBNET_YBNETCTL_SEE_AUDIT_READING_H
#define YBNET_YBNETCTL_SEE_AUDIT_READING_H

#include <string>

#include "tools/ybnetctl/see/audit_compare.h"
#include "tools/ybnetctl/segments/segment_copy.h"
#include "tools/ybnetctl/session.h"

namespace ybnetctl {

struct audit_reading {
    segment_copy copy;
    audit_result result;
    bool steady = true;       // the records were the same before and after the netdevs were read
    bool holder_died = false; // the lock was held, by a thread that is no more
    std::string here;         // named_instead_of_default(): the default namespace is not seen from here
    std::string stranded;     // processes on a deleted segment, in words

    // Whether nothing was being changed meanwhile; else a finding may be a change that was half done.
    [[nodiscard]] bool at_rest() const {
        return steady && copy.settled && copy.lock_seen_free;
    }
    // And whether all that counts was looked at, records and netdevs of one time.
    [[nodiscard]] bool certain() const {
        return copy.live && at_rest() && result.unseen.empty() && stranded.empty();
    }
};

audit_reading read_for_audit(const session &run);

// A line for each thing that keeps the audit from being certain; "" when nothing does.
std::string doubts_about(const audit_reading &read);

} // namespace ybnetctl

#endif
