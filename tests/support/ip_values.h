// SPDX-License-Identifier: Apache-2.0
//
// IPv4 values as the stack stores them, for tests of address aliases.
#ifndef YBNET_TESTS_IP_VALUES_H
#define YBNET_TESTS_IP_VALUES_H

#include "ybnet/yb_ip_addr.h"

inline yb_ip_addr_t address_of(uint32_t value) {
    yb_ip_addr_t address = {};
    address.version = YB_IP_VERSION_IPV4;
    address.address.ipv4 = value;
    return address;
}

inline yb_ip_addr_t prefix_of(uint32_t network, uint32_t mask) {
    yb_ip_addr_t prefix = {};
    prefix.version = YB_IP_VERSION_IPV4;
    prefix.address.ipv4_prefix.addr = network;
    prefix.address.ipv4_prefix.mask = mask;
    return prefix;
}

#endif
