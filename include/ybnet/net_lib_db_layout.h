/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The two shared-memory segments, byte by byte: a file format that every
 * process of the stack maps, little-endian, for x86-64 Linux with glibc.
 *
 * "/net_lib_ifc", 475,216 bytes:
 *
 *   0x00000  4096 interface records of 116 bytes
 *   0x74000  trailer
 *
 * "/net_lib_port", 5,772,784 bytes:
 *
 *   0x000000  port hash table, 65,536 buckets of 84 bytes
 *   0x540000  LAG and MLAG maps, port map
 *   0x5815A0  trailer
 *
 * The trailer, 80 bytes, is the same in both:
 *
 *   0    pthread_rwlock_t, process-shared
 *   56   lock state: 2 initialised, 3 being destroyed, 4 destroyed
 *   64   initialised marker, 222 once the contents were initialised
 *   68   user count: loads that registered and have not unloaded
 *   72   size check: the segment's own size, written last at creation
 *
 * The size check is the layout's only version stamp: a segment left by a build
 * with another layout has another size and is refused.
 */
#ifndef YBNET_NET_LIB_DB_LAYOUT_H
#define YBNET_NET_LIB_DB_LAYOUT_H

#include <stdint.h>

#include "ybnet/yb_net_interface.h"
#include "ybnet/yb_net_port.h"
#include "ybnet/yb_static_assert.h"

/* What shm_open(3) knows the segments by. */
#define YB_NET_INTERFACES_SEGMENT_NAME "/net_lib_ifc"
#define YB_NET_PORTS_SEGMENT_NAME "/net_lib_port"

/* The trailer's initialized_marker, once there are contents. */
#define YB_NET_DB_INITIALIZED_MARKER 222

/* Slots for router interfaces, buckets for ports. */
#define YB_NET_INTERFACES_MAX 4096
#define YB_NET_PORTS_MAX 65536

/* The lock's life: its state field. */
enum {
    CL_PLOCK_INITIALIZED = 2, /* may be taken */
    CL_PLOCK_DESTROYING = 3,  /* the last user is taking it down */
    CL_PLOCK_DESTROYED = 4    /* taken down: the segment's name is about to go */
};

/*
 * Process-shared lock, only ever taken exclusively. The first 56 bytes are glibc's pthread_rwlock_t, written
 * as words because strict C99 hides that type.
 */
typedef struct cl_plock {
    uint64_t rwlock[7]; /* a pthread_rwlock_t */
    uint32_t state;     /* CL_PLOCK_* */
    uint32_t reserved;  /* padding */
} cl_plock_t;

/* What the frame of both segments keeps behind the records. */
typedef struct net_lib_db_trailer {
    cl_plock_t plock;           /* guards the whole segment */
    uint8_t initialized_marker; /* YB_NET_DB_INITIALIZED_MARKER, or the contents mean nothing */
    uint8_t reserved1[3];       /* padding */
    uint32_t user_count;        /* loads that registered and have not unloaded */
    uint32_t size_check;        /* the segment's size; another value is another layout */
    uint32_t reserved2;         /* padding */
} net_lib_db_trailer_t;

/* One slot of the interfaces database; free when in_use is 0. */
typedef struct net_lib_db_interface_entry {
    yb_net_interface_record_t record; /* means nothing in a free slot */
    uint8_t in_use;                   /* 0: free */
    uint8_t reserved[3];              /* of the first slot 0xD1 0xA3 0xE5: all is being erased */
} net_lib_db_interface_entry_t;

/* The whole of "/net_lib_ifc". */
typedef struct net_lib_db_interfaces_segment {
    net_lib_db_interface_entry_t entries[YB_NET_INTERFACES_MAX]; /* in no order */
    net_lib_db_trailer_t trailer;                                /* lock and counters */
} net_lib_db_interfaces_segment_t;

/*
 * One bucket of the port hash table. Empty when hash is 0, whatever else it
 * holds; a removed port leaves its bucket with deleted 1 and hash kept.
 */
typedef struct net_lib_port_entry {
    uint32_t sys_ifindex;    /* the key; 0 in a removed entry */
    yb_net_port_info_t info; /* the port as its owner described it */
    uint8_t deleted;         /* 1 once the port was removed; another value: being changed */
    uint8_t reserved[3];     /* means something during a change only */
    uint32_t hash;           /* home bucket, the CRC-16 of the key */
} net_lib_port_entry_t;

/*
 * Parts of the ports segment's body. Initialising it clears port_table,
 * lag_to_mlag but for its last entry, and mlag_to_lag. The other two are left as
 * they are: zeros in a segment just made, old ports in one that is erased.
 */
#define YB_NET_PORT_TABLE_SIZE 5505024
#define YB_NET_LAG_TO_MLAG_LENGTH 256
#define YB_NET_MLAG_TO_LAG_LENGTH 1001
#define YB_NET_LAG_TO_IFINDEX_LENGTH 255
#define YB_NET_PORT_TO_IFINDEX_LENGTH 65536

/*
 * LAG indexes run to 255, but lag_to_ifindex ends at 254: the slot of LAG index
 * 255 is the first of port_to_ifindex, and processes of the stack count on it.
 */
typedef struct net_lib_db_ports_segment {
    net_lib_port_entry_t port_table[YB_NET_PORTS_MAX];       /* the hash table */
    uint16_t lag_to_mlag[YB_NET_LAG_TO_MLAG_LENGTH];         /* by LAG index; 0 = none */
    uint32_t mlag_to_lag[YB_NET_MLAG_TO_LAG_LENGTH];         /* by MLAG id, the LAG's logical port */
    uint32_t lag_to_ifindex[YB_NET_LAG_TO_IFINDEX_LENGTH];   /* by LAG index, the system ifindex */
    uint32_t port_to_ifindex[YB_NET_PORT_TO_IFINDEX_LENGTH]; /* by port index, the system ifindex */
    net_lib_db_trailer_t trailer;                            /* lock and counters */
} net_lib_db_ports_segment_t;

YB_ASSERT_SIZE(cl_plock_t, 64);
YB_ASSERT_OFFSET(cl_plock_t, rwlock, 0);
YB_ASSERT_OFFSET(cl_plock_t, state, 56);
YB_ASSERT_OFFSET(cl_plock_t, reserved, 60);

YB_ASSERT_SIZE(net_lib_db_trailer_t, 80);
YB_ASSERT_OFFSET(net_lib_db_trailer_t, plock, 0);
YB_ASSERT_OFFSET(net_lib_db_trailer_t, initialized_marker, 64);
YB_ASSERT_OFFSET(net_lib_db_trailer_t, reserved1, 65);
YB_ASSERT_OFFSET(net_lib_db_trailer_t, user_count, 68);
YB_ASSERT_OFFSET(net_lib_db_trailer_t, size_check, 72);
YB_ASSERT_OFFSET(net_lib_db_trailer_t, reserved2, 76);

YB_ASSERT_SIZE(net_lib_db_interface_entry_t, 116);
YB_ASSERT_OFFSET(net_lib_db_interface_entry_t, record, 0);
YB_ASSERT_OFFSET(net_lib_db_interface_entry_t, in_use, 112);
YB_ASSERT_OFFSET(net_lib_db_interface_entry_t, reserved, 113);

YB_ASSERT_SIZE(net_lib_db_interfaces_segment_t, 475216);
YB_ASSERT_OFFSET(net_lib_db_interfaces_segment_t, entries, 0);
YB_ASSERT_OFFSET(net_lib_db_interfaces_segment_t, trailer, 0x74000);

YB_ASSERT_SIZE(net_lib_port_entry_t, 84);
YB_ASSERT_OFFSET(net_lib_port_entry_t, sys_ifindex, 0);
YB_ASSERT_OFFSET(net_lib_port_entry_t, info, 4);
YB_ASSERT_OFFSET(net_lib_port_entry_t, deleted, 76);
YB_ASSERT_OFFSET(net_lib_port_entry_t, reserved, 77);
YB_ASSERT_OFFSET(net_lib_port_entry_t, hash, 80);
YB_STATIC_ASSERT(sizeof(net_lib_port_entry_t) * YB_NET_PORTS_MAX == YB_NET_PORT_TABLE_SIZE,
                 port_table_has_its_size);

YB_ASSERT_SIZE(net_lib_db_ports_segment_t, 5772784);
YB_ASSERT_OFFSET(net_lib_db_ports_segment_t, port_table, 0);
YB_ASSERT_OFFSET(net_lib_db_ports_segment_t, lag_to_mlag, 0x540000);
YB_ASSERT_OFFSET(net_lib_db_ports_segment_t, mlag_to_lag, 0x540200);
YB_ASSERT_OFFSET(net_lib_db_ports_segment_t, lag_to_ifindex, 5509540);
YB_ASSERT_OFFSET(net_lib_db_ports_segment_t, port_to_ifindex, 5510560);
YB_ASSERT_OFFSET(net_lib_db_ports_segment_t, trailer, 0x5815A0);
YB_STATIC_ASSERT(offsetof(net_lib_db_ports_segment_t, lag_to_ifindex) +
                         sizeof(uint32_t) * YB_NET_LAG_TO_IFINDEX_LENGTH ==
                     offsetof(net_lib_db_ports_segment_t, port_to_ifindex),
                 lag_index_255_lies_on_port_index_0);

#endif
