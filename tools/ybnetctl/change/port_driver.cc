// SPDX-License-Identifier: Apache-2.0
//
// See port_driver.h. Rests on modules.alias (depmod(8)), from which the kernel's requests for a link kind are answered.
#include "tools/ybnetctl/change/port_driver.h"

#include <fstream>
#include <string>
#include <sys/utsname.h>
#include <unistd.h>

namespace ybnetctl {

namespace {

bool would_be_loaded() {
    utsname system = {};
    if (uname(&system) != 0)
        return false;
    const std::string wanted = std::string("alias rtnl-link-") + port_link_kind + ' ';
    std::ifstream aliases(std::string("/lib/modules/") + system.release + "/modules.alias");
    for (std::string line; std::getline(aliases, line);)
        if (line.starts_with(wanted))
            return true;
    return false;
}

} // namespace

bool port_driver_is_there() {
    return access(port_driver_file, F_OK) == 0 || would_be_loaded();
}

} // namespace ybnetctl
