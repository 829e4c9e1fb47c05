// SPDX-License-Identifier: Apache-2.0
//
// The carrier of a netdev, which decides what a partition key's link state is
// (event_receive.cc, link_state.cc).
#ifndef YBNET_NET_LIB_CARRIER_H
#define YBNET_NET_LIB_CARRIER_H

#include <cstdint>

// 1 with carrier, 0 without, as sysfs tells it in the caller's namespace; 0, usually unlogged, when it cannot
// be read: no such netdev, or one that is administratively down.
int32_t __get_ib_if_carrier_state(const char *if_name);

#endif
