// SPDX-License-Identifier: Apache-2.0
//
// See link_kinds.h. Rests on modules.alias (depmod(8)), from which the kernel's requests for a link kind are answered.
#include "tools/ybnetctl/change/link_kinds.h"

#include <fstream>
#include <sys/utsname.h>
#include <unistd.h>

namespace ybnetctl {

bool link_kind_would_be_loaded(const std::string &kind) {
    utsname system = {};
    if (uname(&system) != 0)
        return false;
    const std::string wanted = "alias rtnl-link-" + kind + ' ';
    std::ifstream aliases(std::string("/lib/modules/") + system.release + "/modules.alias");
    for (std::string line; std::getline(aliases, line);)
        if (line.starts_with(wanted))
            return true;
    return false;
}

// Where it is loaded, or built in, it shows this directory.
bool vlans_are_possible() {
    return access("/proc/net/vlan", F_OK) == 0 || link_kind_would_be_loaded("vlan");
}

} // namespace ybnetctl
