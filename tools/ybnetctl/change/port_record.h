// SPDX-License-Identifier: Apache-2.0
//
// Port records as the changing commands read them, through the library, and show them.
#ifndef YBNET_YBNETCTL_CHANGE_PORT_RECORD_H
#define YBNET_YBNETCTL_CHANGE_PORT_RECORD_H

#include <cstdint>
#include <string>

#include "tools/ybnetctl/change/library.h"
#include "ybnet/yb_net_port.h"

namespace ybnetctl {

// "port 65537"
std::string port_thing(uint32_t sys_ifindex);

// Throws failure, exit code 3, for a port that is not recorded. The library answers zeros for those, and removes and
// binds them with success: to commands they must not exist.
yb_net_port_info_t port_record_of(session &run, library &lib, uint32_t sys_ifindex);

// The fields of the record, with its key; and what these are, for the man page.
json port_json(uint32_t sys_ifindex, const yb_net_port_info_t &info);
constexpr const char *port_json_keys =
    "its fields by the names of net_lib_port(5) but deleted, hash and reserved ones, 0 for none";

} // namespace ybnetctl

#endif
