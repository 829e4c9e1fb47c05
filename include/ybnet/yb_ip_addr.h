/* SPDX-License-Identifier: Apache-2.0 */
/*
 * IP addresses and prefixes as the stack hands them around, and what a caller of
 * yb_net_virtual_net_if_alias_set() (net_lib.h) has to store in them.
 *
 * Two views meet in an IPv4 value. The subnet check, the prefix length and the
 * broadcast address are computed on 32-bit integers in the host's byte order;
 * the kernel gets the address and the broadcast address byte by byte as they lie
 * in memory, first octet first. On a big-endian host the two agree. On a
 * little-endian one (x86-64) they do not. For 10.0.0.5 in 10.0.0.0/24 there:
 *
 *   stored as                 address     network     mask        the kernel gets
 *   host-order integers       0x0A000005  0x0A000000  0xFFFFFF00  5.0.0.10/24  broadcast 255.0.0.10
 *   network-order bytes       0x0500000A  0x0000000A  0x00FFFFFF  10.0.0.5/32  broadcast 10.0.0.255
 *   bytes, but an integer     0x0500000A  0x05000000  0xFFFFFF00  10.0.0.5/24  broadcast 255.0.0.5
 *   mask
 *
 *  - To get 10.0.0.5 with its right broadcast address, store all three as
 *    inet_pton(3) writes them (second row). The prefix length is then 32 for
 *    every mask of 8 bits and more, which is what an alias needs that brings no
 *    route of its own.
 *  - To get the /24, and with it the kernel's route to 10.0.0.0/24, store the
 *    address as bytes, the mask as an integer, and as network address their
 *    bitwise AND (third row). The broadcast address is then not the subnet's;
 *    the kernel accepts it, and answers for it.
 *  - No stored value gives 10.0.0.5/24 with broadcast 10.0.0.255: a prefix
 *    length below 32 comes from clear low bits of the mask, and the same bits
 *    are set in the first octet of the broadcast address.
 *  - The first row is for callers that only count: on the wire it is another
 *    address.
 */
#ifndef YBNET_YB_IP_ADDR_H
#define YBNET_YB_IP_ADDR_H

#include <stdint.h>

#include "ybnet/yb_static_assert.h"

/* The version field; other values are the stack's business and refused by this library. */
enum { YB_IP_VERSION_IPV4 = 1 };

/*
 * An address or a prefix, in the caller's memory.
 *
 *   0         4               8             12     20
 *   | version | IPv4 address  | IPv4 mask   |      |
 *             | IPv6 address                       |
 */
typedef struct yb_ip_addr {
    uint32_t version; /* YB_IP_VERSION_IPV4, or another */
    union {
        uint32_t ipv4; /* an address */
        struct {
            uint32_t addr; /* the network's address */
            uint32_t mask; /* its lowest set bit decides the prefix length; gaps are not noticed */
        } ipv4_prefix;     /* a prefix */
        uint8_t bytes[16]; /* of any version */
    } address;             /* by version */
} yb_ip_addr_t;

YB_ASSERT_SIZE(yb_ip_addr_t, 20);
YB_ASSERT_OFFSET(yb_ip_addr_t, version, 0);
YB_ASSERT_OFFSET_OF(yb_ip_addr_t, address.ipv4, ipv4, 4);
YB_ASSERT_OFFSET_OF(yb_ip_addr_t, address.ipv4_prefix.addr, ipv4_prefix_addr, 4);
YB_ASSERT_OFFSET_OF(yb_ip_addr_t, address.ipv4_prefix.mask, ipv4_prefix_mask, 8);
YB_ASSERT_OFFSET_OF(yb_ip_addr_t, address.bytes, bytes, 4);

#endif
