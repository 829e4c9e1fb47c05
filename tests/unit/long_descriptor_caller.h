// SPDX-License-Identifier: Apache-2.0
//
// See long_descriptor_caller.cc.
#ifndef YBNET_TESTS_LONG_DESCRIPTOR_CALLER_H
#define YBNET_TESTS_LONG_DESCRIPTOR_CALLER_H

#include "ybnet/yb_net_port.h"
#include "ybnet/yb_status.h"

// Passes a descriptor of 96 bytes that starts with head.
yb_status_t resolve_with_whole_descriptor(yb_net_l2_address_t *l2_address,
                                          const yb_net_packet_descriptor_t &head);

#endif
