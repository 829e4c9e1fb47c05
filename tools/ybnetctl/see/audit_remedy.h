// SPDX-License-Identifier: Apache-2.0
//
// What puts a finding of the audit right, as one line for a shell. The line alone decides nothing: a comment in it says
// what the person who pastes it has to know.
#ifndef YBNET_YBNETCTL_SEE_AUDIT_REMEDY_H
#define YBNET_YBNETCTL_SEE_AUDIT_REMEDY_H

#include <string>

#include "tools/ybnetctl/see/audit_compare.h"

namespace ybnetctl {

// "" where there is nothing to put right, or nothing that is known.
std::string remedy_of(const audited_record &audited);

} // namespace ybnetctl

#endif
