/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Ports as callers record them and as queries return them: the 72-byte port
 * record, which is part of a shared-memory format (net_lib_db_layout.h) and
 * fixed to the byte, the bit layout of a logical port, and what the L2 address
 * of a packet is read from and written to.
 */
#ifndef YBNET_YB_NET_PORT_H
#define YBNET_YB_NET_PORT_H

#include <stdint.h>

#include "ybnet/yb_static_assert.h"

/* ---- Logical ports ------------------------------------------------------ */

/*
 * A logical port (log_port) is the switch's own number of a port or LAG; 0 is
 * none.
 *
 *   31  28 27  24 23           16 15            8 7             0
 *   | type |      | port index                   |               |
 *                                 | LAG index    |
 *
 * type 1 is a LAG, any other value a single port. A single port has a port
 * index of 16 bits, a LAG a LAG index of 8 bits.
 */
#define YB_NET_LOG_PORT_TYPE_LAG 1u
#define YB_NET_LOG_PORT_TYPE(log_port) ((uint32_t)(log_port) >> 28)
#define YB_NET_LOG_PORT_IS_LAG(log_port) (YB_NET_LOG_PORT_TYPE(log_port) == YB_NET_LOG_PORT_TYPE_LAG)
#define YB_NET_LOG_PORT_PORT_INDEX(log_port) (((uint32_t)(log_port) >> 8) & 0xFFFFu)
#define YB_NET_LOG_PORT_LAG_INDEX(log_port) (((uint32_t)(log_port) >> 8) & 0xFFu)

/* MLAG ids; 0 is none. */
#define YB_NET_MLAG_ID_MIN 1
#define YB_NET_MLAG_ID_MAX 1000

/* ---- Port records ------------------------------------------------------- */

/* Bytes of a port's name field. */
#define YB_NET_PORT_NAME_SIZE 16

/* Filters of the queries that list ports. What 1 and 2 stand for is the callers' business. */
#define YB_NET_PORT_PROTOCOL_ANY 0
#define YB_NET_PORT_PROTOCOL_MAX 2

/* The value of attr_b that means "not given". */
#define YB_NET_PORT_ATTR_B_NONE 255

/*
 * One port as its owner describes it. The meaning of attr_a to attr_i is the
 * callers' business; the library only stores them.
 *
 * Setting a port that is recorded already merges: a field with 0 in it (name: a
 * first character of 0; attr_b: 255) leaves the recorded value alone, arrays
 * element by element; a name is replaced whole. An update filled with zeros
 * therefore sets attr_b to 0 and changes nothing else. lag_log_port and reserved
 * bytes keep what the port was first set with.
 *
 * Short of removing the port, only attr_b, a LAG's mlag_id, and lag_log_port (by
 * the functions that bind a port to a LAG) can be set back to 0.
 */
typedef struct yb_net_port_info {
    uint8_t attr_a;        /* the owner's */
    uint8_t attr_b;        /* the owner's; YB_NET_PORT_ATTR_B_NONE: not given */
    uint8_t reserved1[2];  /* padding */
    uint32_t attr_c;       /* the owner's */
    uint32_t protocol;     /* 1 or 2; 0 = none */
    uint32_t log_port;     /* the switch's logical port; 0 = none */
    uint32_t lag_log_port; /* logical port of the LAG that this port is a member of; 0 = none. Never merged */
    uint8_t attr_d[3];     /* the owner's */
    uint8_t reserved2;     /* padding */
    uint16_t attr_e;       /* the owner's */
    uint16_t mlag_id; /* of a LAG; 0 = none. Merged, 0 too, exactly when the caller's log_port is a LAG */
    char name[YB_NET_PORT_NAME_SIZE]; /* not necessarily NUL-terminated */
    uint8_t attr_f;                   /* the owner's */
    uint8_t reserved3[3];             /* padding */
    uint32_t attr_g[4];               /* the owner's */
    uint8_t attr_h;                   /* the owner's */
    uint8_t reserved4[3];             /* padding */
    uint32_t attr_i;                  /* the owner's */
} yb_net_port_info_t;

YB_ASSERT_SIZE(yb_net_port_info_t, 72);
YB_ASSERT_OFFSET(yb_net_port_info_t, attr_a, 0);
YB_ASSERT_OFFSET(yb_net_port_info_t, attr_b, 1);
YB_ASSERT_OFFSET(yb_net_port_info_t, reserved1, 2);
YB_ASSERT_OFFSET(yb_net_port_info_t, attr_c, 4);
YB_ASSERT_OFFSET(yb_net_port_info_t, protocol, 8);
YB_ASSERT_OFFSET(yb_net_port_info_t, log_port, 12);
YB_ASSERT_OFFSET(yb_net_port_info_t, lag_log_port, 16);
YB_ASSERT_OFFSET(yb_net_port_info_t, attr_d, 20);
YB_ASSERT_OFFSET(yb_net_port_info_t, reserved2, 23);
YB_ASSERT_OFFSET(yb_net_port_info_t, attr_e, 24);
YB_ASSERT_OFFSET(yb_net_port_info_t, mlag_id, 26);
YB_ASSERT_OFFSET(yb_net_port_info_t, name, 28);
YB_ASSERT_OFFSET(yb_net_port_info_t, attr_f, 44);
YB_ASSERT_OFFSET(yb_net_port_info_t, reserved3, 45);
YB_ASSERT_OFFSET(yb_net_port_info_t, attr_g, 48);
YB_ASSERT_OFFSET(yb_net_port_info_t, attr_h, 64);
YB_ASSERT_OFFSET(yb_net_port_info_t, reserved4, 65);
YB_ASSERT_OFFSET(yb_net_port_info_t, attr_i, 68);

/* ---- L2 attributes of a packet ------------------------------------------ */

/* What yb_net_resolve_l2_attribute() fills in. */
typedef struct yb_net_l2_address {
    uint32_t l2_type;   /* always 0 */
    uint8_t l2_addr[6]; /* the MAC address */
    uint16_t l2_param;  /* a value carried beside the address, host byte order */
} yb_net_l2_address_t;

/*
 * The first 20 bytes of the packet descriptor of the stack's packet-receive
 * interface, which owns its layout and its full size; opaque but for three
 * fields, most significant byte first:
 *
 *   4    2 bytes   packet format id; only 0 is known
 *   12   2 bytes   l2_param
 *   14   6 bytes   l2_addr
 *
 * It is passed by value. On x86-64 an argument of more than 16 bytes lies on
 * the stack, so a caller built against the full descriptor passes its head in
 * the same place.
 */
#define YB_NET_PACKET_DESCRIPTOR_SIZE 20
typedef struct yb_net_packet_descriptor {
    uint8_t bytes[YB_NET_PACKET_DESCRIPTOR_SIZE]; /* as received */
} yb_net_packet_descriptor_t;

YB_ASSERT_SIZE(yb_net_l2_address_t, 12);
YB_ASSERT_OFFSET(yb_net_l2_address_t, l2_type, 0);
YB_ASSERT_OFFSET(yb_net_l2_address_t, l2_addr, 4);
YB_ASSERT_OFFSET(yb_net_l2_address_t, l2_param, 10);

YB_ASSERT_SIZE(yb_net_packet_descriptor_t, 20);
YB_ASSERT_OFFSET(yb_net_packet_descriptor_t, bytes, 0);

#endif
