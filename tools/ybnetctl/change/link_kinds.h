// SPDX-License-Identifier: Apache-2.0
//
// Whether the kernel can make netdevs of a kind, without asking it to: for a rehearsal, and for what to try after a
// failure. The switch's own kind is port_driver.h's.
#ifndef YBNET_YBNETCTL_CHANGE_LINK_KINDS_H
#define YBNET_YBNETCTL_CHANGE_LINK_KINDS_H

#include <string>

namespace ybnetctl {

// Whether the kernel would load a module when it is asked for a link of this kind.
bool link_kind_would_be_loaded(const std::string &kind);

// Whether 802.1Q, a module on many systems, is there or would be loaded.
bool vlans_are_possible();

} // namespace ybnetctl

#endif
