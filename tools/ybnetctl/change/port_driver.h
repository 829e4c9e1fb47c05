// SPDX-License-Identifier: Apache-2.0
//
// The switch's kernel driver as the changing commands meet it: the link kind of its ports and its command file. Tells
// a rehearsal whether the kernel could make a port, without asking it to.
#ifndef YBNET_YBNETCTL_CHANGE_PORT_DRIVER_H
#define YBNET_YBNETCTL_CHANGE_PORT_DRIVER_H

namespace ybnetctl {

constexpr const char *port_link_kind = "yb_netdev";
constexpr const char *port_driver_file = "/proc/qrn_yb/yb_core";

// What to look at when the driver did not do what it was asked.
constexpr const char *port_driver_advice = "is the switch's kernel driver loaded? (/proc/qrn_yb/yb_core)";

// Whether the driver is loaded, or the kernel would load it for a link of its kind.
bool port_driver_is_there();

} // namespace ybnetctl

#endif
