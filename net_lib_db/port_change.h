// SPDX-License-Identifier: Apache-2.0
//
// Writing to the buckets of the port hash table so that a process can die at any instruction: repair_ports.cc
// then completes the change or takes it back. Where a port goes is port_table.h's to say.
//
// A bucket that is being worked on says so in its deleted byte, which is 0 or 1 whenever the lock is free. The
// marks are set before the first and cleared after the last store that they speak of. Each port is in the table
// at least once at any time:
//  - a port that makes room is copied to its new bucket before its old one is marked, and the old one is marked
//    before the new one's mark is cleared;
//  - a new port counts from the moment its bucket is marked PORT_MAPPING or PORT_LIVE;
//  - a changed record is written to a spare bucket first and copied from there; in a table full of ports, to
//    what the marks leave of the buckets behind its own: the first two reserved bytes of each.
#ifndef YBNET_NET_LIB_DB_PORT_CHANGE_H
#define YBNET_NET_LIB_DB_PORT_CHANGE_H

#include <cstddef>
#include <cstdint>

#include "net_lib_db/change_order.h"
#include "ybnet/net_lib_db_layout.h"

// Values of a bucket's deleted byte.
enum : uint8_t {
    PORT_LIVE = 0,
    PORT_DELETED = 1,

    // To be filled; what the bucket was until then.
    PORT_FILLING_EMPTY = 0x21,
    PORT_FILLING_DELETED = 0x22,
    PORT_FILLING_LIVE = 0x23,
    PORT_FILLING_SOURCE = 0x40, // added: from the bucket whose index is in the first two reserved bytes

    PORT_MAPPING = 0x24,  // live, and is entering the maps
    PORT_REMOVING = 0x25, // leaves the maps and becomes deleted

    // A spare bucket, empty or deleted.
    PORT_SPARE = 0x26,        // to be cleared
    PORT_SPARE_RECORD = 0x27, // holds the new record of the bucket whose index is in the reserved bytes
    PORT_SPARE_RECORD_MAPPED = 0x28, // the same, and that port enters the maps then

    // A live bucket, with the buckets behind it in the place of a spare one.
    PORT_SPREAD = 0x2A,              // their reserved bytes are to be cleared
    PORT_SPREAD_RECORD = 0x2B,       // they hold the bucket's new record
    PORT_SPREAD_RECORD_MAPPED = 0x2C // the same, and the port enters the maps then
};

// A bucket's mark word: the deleted byte and the three reserved ones behind it.
static_assert(offsetof(net_lib_port_entry_t, deleted) % sizeof(change_word) == 0 &&
              sizeof(net_lib_port_entry_t) % sizeof(change_word) == 0 &&
              offsetof(net_lib_port_entry_t, reserved) == offsetof(net_lib_port_entry_t, deleted) + 1);
inline change_word *port_mark_word(net_lib_port_entry_t &bucket) {
    return reinterpret_cast<change_word *>(reinterpret_cast<char *>(&bucket) +
                                           offsetof(net_lib_port_entry_t, deleted));
}

// In bucket 0, all four bytes: the whole segment is being erased. What costs every port should not be met by chance.
constexpr uint32_t PORTS_ERASING = 0xE5A3D129;

inline bool port_is_filling(const net_lib_port_entry_t &bucket) {
    const auto kind = static_cast<uint8_t>(bucket.deleted & ~PORT_FILLING_SOURCE);
    return kind == PORT_FILLING_EMPTY || kind == PORT_FILLING_DELETED || kind == PORT_FILLING_LIVE;
}

// A mark, and with it the first two reserved bytes: the index of another bucket while the mark says that there is
// one, else what they were.
inline void port_mark(net_lib_port_entry_t &bucket, uint8_t mark, uint16_t index) {
    change_mark_word(port_mark_word(bucket),
                     mark | uint32_t{index} << 8 | uint32_t{bucket.reserved[2]} << 24);
}
inline uint16_t port_index(const net_lib_port_entry_t &bucket) {
    return static_cast<uint16_t>(bucket.reserved[0] | bucket.reserved[1] << 8);
}

// Announces that the bucket gets another record.
void port_mark_filling(net_lib_port_entry_t &bucket);

// Moves the record of bucket `from` to bucket `to`, which may be marked already; afterwards `from` is marked and
// `to` is live.
void port_move(net_lib_port_entry_t *table, uint16_t from, uint16_t to);

// Writes a new record into a bucket, which may be marked already. enter_maps: the port enters the maps, too.
void port_fill(net_lib_port_entry_t &bucket, const net_lib_port_entry_t &record, bool enter_maps);

// Gives a live bucket this record, and enters sys_ifindex in the maps when asked to.
void port_change(net_lib_port_entry_t &bucket, uint32_t sys_ifindex, const yb_net_port_info_t &info,
                 bool enter_maps);

// Makes a bucket deleted, in the maps too. The hash stays.
void port_delete(net_lib_port_entry_t &bucket);

// What the buckets behind a changed one keep of it, two bytes each.
struct port_spread {
    yb_net_port_info_t info;
    uint32_t sys_ifindex; // for the maps
};
port_spread port_spread_read(const net_lib_port_entry_t &bucket);
void port_spread_write(const net_lib_port_entry_t &bucket, const port_spread &spread);

#endif
