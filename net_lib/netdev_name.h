// SPDX-License-Identifier: Apache-2.0
//
// Names of netdevs on their way into a path or into a line of text for the driver. Records may hold anything
// (docs/trust.md); what no netdev can be called goes no further. Commands have a rule of their own, command.h.
#ifndef YBNET_NET_LIB_NETDEV_NAME_H
#define YBNET_NET_LIB_NETDEV_NAME_H

#include <cstring>

// Whether a name is one plain word and one component of a path. The kernel names no netdev otherwise.
inline bool is_netdev_name(const char *name) {
    return *name != '\0' && strcmp(name, ".") != 0 && strcmp(name, "..") != 0 &&
           strpbrk(name, "/ \t\n\v\f\r") == nullptr;
}

#endif
