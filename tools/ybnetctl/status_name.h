// SPDX-License-Identifier: Apache-2.0
//
// Status codes by name, for people.
#ifndef YBNET_YBNETCTL_STATUS_NAME_H
#define YBNET_YBNETCTL_STATUS_NAME_H

#include "ybnet/yb_status.h"

namespace ybnetctl {

// The enumerator's name, or "status not known".
const char *status_name(yb_status_t status);

} // namespace ybnetctl

#endif
