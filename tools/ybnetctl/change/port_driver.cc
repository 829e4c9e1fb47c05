// SPDX-License-Identifier: Apache-2.0
//
// See port_driver.h.
#include "tools/ybnetctl/change/port_driver.h"

#include <unistd.h>

#include "tools/ybnetctl/change/link_kinds.h"

namespace ybnetctl {

bool port_driver_is_there() {
    return access(port_driver_file, F_OK) == 0 || link_kind_would_be_loaded(port_link_kind);
}

} // namespace ybnetctl
