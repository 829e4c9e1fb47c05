/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Router interfaces as callers describe them and as queries return them: the
 * 100-byte parameter block and the 112-byte record around it. Both are part of
 * a shared-memory format (net_lib_db_layout.h), fixed to the byte.
 */
#ifndef YBNET_YB_NET_INTERFACE_H
#define YBNET_YB_NET_INTERFACE_H

#include <stdint.h>

#include "ybnet/yb_static_assert.h"

/* Router interface types: the type field of yb_net_interface_params_t. */
enum {
    YB_L2_INTERFACE_TYPE_VLAN = 0,      /* 802.1Q VLAN on the partition's netdev "swid%d_eth" */
    YB_L2_INTERFACE_TYPE_PORT_VLAN = 1, /* 802.1Q VLAN on a port's netdev */
    YB_L2_INTERFACE_TYPE_PORT = 2,      /* netdev of the switch's kernel driver, link kind "yb_netdev" */
    YB_L2_INTERFACE_TYPE_PKEY = 3,      /* InfiniBand partition key; recorded, never made by this library */
    YB_L2_INTERFACE_TYPE_LOOPBACK = 6   /* bridge without ports */
};

/* Router interface id and VRID of an interface that has none. */
#define YB_NET_RIF_NONE 0xFFFFu
#define YB_NET_VRID_NONE 255u

/* Bytes of the name fields; the kernel allows a netdev's name one less. */
#define YB_NET_IF_NAME_SIZE 16
#define YB_NET_NS_NAME_SIZE 32
#define YB_NET_VRF_NAME_SIZE 16

/* Values of name_format. */
enum {
    YB_NET_NAME_FORMAT_SWID = 0, /* keeps the "swid%d_eth.%d" name */
    YB_NET_NAME_FORMAT_VLAN = 1  /* renames the netdev to "vlan%d" */
};

/* Type-dependent part for YB_L2_INTERFACE_TYPE_VLAN. */
typedef struct yb_net_vlan_params {
    uint8_t swid;          /* switch partition: 0 to 7, or 254 */
    uint8_t reserved;      /* not looked at */
    uint16_t vlan_id;      /* 802.1Q id, 0 to 4095 */
    uint32_t name_format;  /* YB_NET_NAME_FORMAT_* */
    uint32_t parent_given; /* non-zero: the VLAN is stacked on parent_name instead of "swid%d_eth" */
    char parent_name[YB_NET_IF_NAME_SIZE]; /* with parent_given */
} yb_net_vlan_params_t;

/* Type-dependent part for YB_L2_INTERFACE_TYPE_PORT_VLAN. */
typedef struct yb_net_port_vlan_params {
    uint8_t unused[8];                   /* not looked at */
    uint16_t vlan_id;                    /* 802.1Q id, 0 to 4095 */
    char port_name[YB_NET_IF_NAME_SIZE]; /* the port's netdev, the VLAN's parent */
    uint8_t unused_tail[2];              /* not looked at */
} yb_net_port_vlan_params_t;

/* Type-dependent part for YB_L2_INTERFACE_TYPE_PORT: handed to the kernel driver as they are. */
typedef struct yb_net_port_params {
    uint32_t value1;    /* private attribute 1 of the link kind */
    uint32_t value2;    /* private attribute 2 */
    uint8_t unused[20]; /* not looked at */
} yb_net_port_params_t;

/*
 * One router interface as its owner describes it. Names are NUL-terminated; of a
 * name that fills its field without a NUL nothing behind the field is read (such
 * a netdev name is refused or cut to 15 characters, the kernel's limit).
 *
 *   0         16               48         64     68    72                100
 *   | name    | ns_name        | vrf_name | vrf  | type| by type         |
 *                                           valid
 */
typedef struct yb_net_interface_params {
    char name[YB_NET_IF_NAME_SIZE];      /* netdev name; written back for VLAN and PORT_VLAN */
    char ns_name[YB_NET_NS_NAME_SIZE];   /* network namespace; "" is the caller's own */
    char vrf_name[YB_NET_VRF_NAME_SIZE]; /* VRF name */
    uint32_t vrf_valid;                  /* 1: vrf_name is meaningful and takes part in duplicate detection */
    uint32_t type;                       /* YB_L2_INTERFACE_TYPE_* */
    union {
        yb_net_vlan_params_t vlan;           /* YB_L2_INTERFACE_TYPE_VLAN */
        yb_net_port_vlan_params_t port_vlan; /* YB_L2_INTERFACE_TYPE_PORT_VLAN */
        yb_net_port_params_t port;           /* YB_L2_INTERFACE_TYPE_PORT */
        uint8_t bytes[28];                   /* recorded as they are, whatever the type */
    } by_type;                               /* what type says */
} yb_net_interface_params_t;

/* One recorded router interface, as the queries return it. */
typedef struct yb_net_interface_record {
    uint32_t sys_ifindex;             /* the stack's number, the key */
    uint32_t linux_ifindex;           /* the kernel's number inside the interface's namespace */
    yb_net_interface_params_t params; /* as its owner described it; name is the netdev's */
    uint16_t rif;                     /* router interface id; YB_NET_RIF_NONE = none */
    uint16_t vrid;                    /* virtual router id; YB_NET_VRID_NONE = none */
} yb_net_interface_record_t;

YB_ASSERT_SIZE(yb_net_interface_params_t, 100);
YB_ASSERT_OFFSET(yb_net_interface_params_t, name, 0);
YB_ASSERT_OFFSET(yb_net_interface_params_t, ns_name, 16);
YB_ASSERT_OFFSET(yb_net_interface_params_t, vrf_name, 48);
YB_ASSERT_OFFSET(yb_net_interface_params_t, vrf_valid, 64);
YB_ASSERT_OFFSET(yb_net_interface_params_t, type, 68);
YB_ASSERT_OFFSET_OF(yb_net_interface_params_t, by_type.vlan.swid, vlan_swid, 72);
YB_ASSERT_OFFSET_OF(yb_net_interface_params_t, by_type.vlan.vlan_id, vlan_vlan_id, 74);
YB_ASSERT_OFFSET_OF(yb_net_interface_params_t, by_type.vlan.name_format, vlan_name_format, 76);
YB_ASSERT_OFFSET_OF(yb_net_interface_params_t, by_type.vlan.parent_given, vlan_parent_given, 80);
YB_ASSERT_OFFSET_OF(yb_net_interface_params_t, by_type.vlan.parent_name, vlan_parent_name, 84);
YB_ASSERT_OFFSET_OF(yb_net_interface_params_t, by_type.port_vlan.vlan_id, port_vlan_vlan_id, 80);
YB_ASSERT_OFFSET_OF(yb_net_interface_params_t, by_type.port_vlan.port_name, port_vlan_port_name, 82);
YB_ASSERT_OFFSET_OF(yb_net_interface_params_t, by_type.port.value1, port_value1, 72);
YB_ASSERT_OFFSET_OF(yb_net_interface_params_t, by_type.port.value2, port_value2, 76);

YB_ASSERT_SIZE(yb_net_interface_record_t, 112);
YB_ASSERT_OFFSET(yb_net_interface_record_t, sys_ifindex, 0);
YB_ASSERT_OFFSET(yb_net_interface_record_t, linux_ifindex, 4);
YB_ASSERT_OFFSET(yb_net_interface_record_t, params, 8);
YB_ASSERT_OFFSET(yb_net_interface_record_t, rif, 108);
YB_ASSERT_OFFSET(yb_net_interface_record_t, vrid, 110);

#endif
