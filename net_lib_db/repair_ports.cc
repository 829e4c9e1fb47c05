// SPDX-License-Identifier: Apache-2.0
//
// See repair_ports.h.
#include "net_lib_db/repair_ports.h"

#include "net_lib_db/net_lib_db_log.h"
#include "net_lib_db/port_change.h"
#include "net_lib_db/port_maps.h"

namespace {

using entry_t = net_lib_port_entry_t;

// The bucket's record lies elsewhere too, or was never whole. A deleted bucket keeps the searches of others
// going as they did; an empty one ended them.
void take_back(entry_t &bucket) {
    const bool was_empty = (bucket.deleted & ~PORT_FILLING_SOURCE) == PORT_FILLING_EMPTY;
    const bool has_index = (bucket.deleted & PORT_FILLING_SOURCE) != 0;
    if (was_empty)
        bucket.hash = 0;
    bucket.info = {};
    bucket.sys_ifindex = 0;
    port_mark(bucket, was_empty ? PORT_LIVE : PORT_DELETED, has_index ? 0 : port_index(bucket));
}

// A move is complete when its source is marked: that came after the copy.
bool is_moved_completely(const entry_t *table, const entry_t &bucket) {
    return (bucket.deleted & PORT_FILLING_SOURCE) != 0 && port_is_filling(bucket) &&
           port_is_filling(table[port_index(bucket)]) && &table[port_index(bucket)] != &bucket;
}

void log_change_completed(uint32_t sys_ifindex) {
    NET_LIB_DB_LOG(YB_LEVEL_WARN, "Netlib ports DB - the change of port %u was left half done: completed\n",
                   sys_ifindex);
}

void finish_spare(entry_t *table, entry_t &spare) {
    if (spare.deleted != PORT_SPARE) {
        entry_t &bucket = table[port_index(spare)];
        bucket.info = spare.info;
        if (spare.deleted == PORT_SPARE_RECORD_MAPPED)
            port_maps_enter(spare.sys_ifindex, spare.info.log_port, spare.info.mlag_id);
        log_change_completed(spare.sys_ifindex);
    } else {
        NET_LIB_DB_LOG(YB_LEVEL_WARN, "Netlib ports DB - spare bucket %u was left in use: cleared\n",
                       static_cast<uint32_t>(&spare - table));
    }
    port_mark(spare, PORT_SPARE, 0);
    spare.info = {};
    spare.sys_ifindex = 0;
    change_mark(spare.deleted, spare.hash == 0 ? PORT_LIVE : PORT_DELETED);
}

void finish_spread(const entry_t *table, entry_t &bucket) {
    if (bucket.deleted != PORT_SPREAD) {
        const port_spread changed = port_spread_read(bucket);
        bucket.info = changed.info;
        if (bucket.deleted == PORT_SPREAD_RECORD_MAPPED)
            port_maps_enter(changed.sys_ifindex, changed.info.log_port, changed.info.mlag_id);
        log_change_completed(changed.sys_ifindex);
        change_mark(bucket.deleted, PORT_SPREAD);
    } else {
        NET_LIB_DB_LOG(YB_LEVEL_WARN,
                       "Netlib ports DB - the buckets behind bucket %u were left in use: cleared\n",
                       static_cast<uint32_t>(&bucket - table));
    }
    port_spread_write(bucket, {});
    change_mark(bucket.deleted, PORT_LIVE);
}

void repair_bucket(entry_t *table, entry_t &bucket) {
    const auto index = static_cast<uint32_t>(&bucket - table);
    switch (bucket.deleted) {
    case PORT_MAPPING:
        NET_LIB_DB_LOG(YB_LEVEL_WARN, "Netlib ports DB - port %u was not in the maps yet: entered\n",
                       bucket.sys_ifindex);
        port_maps_enter(bucket.sys_ifindex, bucket.info.log_port, bucket.info.mlag_id);
        change_mark(bucket.deleted, PORT_LIVE);
        break;
    case PORT_REMOVING:
        NET_LIB_DB_LOG(YB_LEVEL_WARN, "Netlib ports DB - bucket %u was left half removed: removed\n", index);
        port_delete(bucket);
        break;
    case PORT_SPARE:
    case PORT_SPARE_RECORD:
    case PORT_SPARE_RECORD_MAPPED:
        finish_spare(table, bucket);
        break;
    case PORT_SPREAD:
    case PORT_SPREAD_RECORD:
    case PORT_SPREAD_RECORD_MAPPED:
        finish_spread(table, bucket);
        break;
    default:
        if (!port_is_filling(bucket))
            return;
        NET_LIB_DB_LOG(YB_LEVEL_WARN, "Netlib ports DB - bucket %u was left half written: taken back\n",
                       index);
        take_back(bucket);
    }
}

} // namespace

void repair_ports(void *body) {
    entry_t *const table = static_cast<net_lib_db_ports_segment_t *>(body)->port_table;
    if (*port_mark_word(table[0]) == PORTS_ERASING) {
        NET_LIB_DB_LOG(YB_LEVEL_WARN, "Netlib ports DB - it was being erased: erased now\n");
        ports_segment.description.initialize_body(body);
        return;
    }
    // First what is complete but for its mark, while the mark of its source still tells so.
    for (uint32_t i = 0; i < YB_NET_PORTS_MAX; i++) {
        if (!is_moved_completely(table, table[i]))
            continue;
        NET_LIB_DB_LOG(YB_LEVEL_WARN, "Netlib ports DB - the move of port %u was left half done: completed\n",
                       table[i].sys_ifindex);
        port_mark(table[i], PORT_LIVE, 0);
    }
    for (uint32_t i = 0; i < YB_NET_PORTS_MAX; i++)
        repair_bucket(table, table[i]);
}
