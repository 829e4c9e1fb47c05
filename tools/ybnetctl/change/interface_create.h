// SPDX-License-Identifier: Apache-2.0
//
// interface create: from options to the library's parameter block, with everything checked that can be checked
// before anything is made.
#ifndef YBNET_YBNETCTL_CHANGE_INTERFACE_CREATE_H
#define YBNET_YBNETCTL_CHANGE_INTERFACE_CREATE_H

#include <cstdint>
#include <string>

#include <CLI/CLI.hpp>

#include "tools/ybnetctl/command_line.h"
#include "ybnet/yb_net_interface.h"

namespace ybnetctl {

struct create_options {
    uint32_t type = YB_L2_INTERFACE_TYPE_VLAN;
    uint32_t sys_ifindex = 0;
    std::string name; // of a port or loopback
    uint32_t swid = 0;
    uint32_t vid = 0;
    std::string name_format = "swid";
    std::string parent; // "": swidN_eth
    std::string port;
    uint32_t value1 = 0;
    uint32_t value2 = 0;
    std::string netns;
    std::string vrf;
    std::string rif;
    std::string vrid;
};

// Throws failure, exit code 2, that names the limit.
yb_net_interface_params_t params_of(const create_options &options);

void add_interface_create(command_line &line, CLI::App *interface);

} // namespace ybnetctl

#endif
