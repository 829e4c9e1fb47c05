// SPDX-License-Identifier: Apache-2.0
//
// See port_table.h. Open addressing with displacement: a key that has come
// further from its home than a bucket's resident takes the resident's place.
// The comments that say "shared format" mark where this departs from the
// textbook; processes that followed other rules would lose each other's ports.
#include "net_lib_db/port_table.h"

#include "net_lib_db/net_lib_db_log.h"
#include "net_lib_db/port_change.h"
#include "net_lib_db/ports_segment.h"
#include "ybnet/platform/yb_util.h"

namespace {

using entry_t = net_lib_port_entry_t;

// What crc_16() keeps its tables in: one for each operation, used under the segment's lock only.
struct crc_work_area {
    alignas(uint32_t) uint8_t bytes[YB_CRC_WORK_AREA_SIZE];
};
crc_work_area set_crc_area;
crc_work_area get_crc_area;

constexpr uint16_t crc_parameter = 0x8D95;

// The 16 bits are the bucket: the table has exactly as many.
static_assert(YB_NET_PORTS_MAX == 1 << 16);
uint16_t home_of(crc_work_area &area, uint32_t sys_ifindex) {
    return crc_16(area.bytes, reinterpret_cast<const uint8_t *>(&sys_ifindex), sizeof(sys_ifindex),
                  crc_parameter);
}

entry_t *buckets() {
    return static_cast<net_lib_db_ports_segment_t *>(ports_segment.body)->port_table;
}

// Shared format: a hash of 0 marks an empty bucket, also one that holds a port whose CRC is 0.
bool is_empty(const entry_t &bucket) {
    return bucket.hash == 0;
}

// How far the resident lies from its home. In 16 bits, so that it wraps with the table.
uint16_t distance_of(uint16_t index, const entry_t &bucket) {
    return static_cast<uint16_t>(index - bucket.hash);
}

// Whether a key that has come this far takes the resident's bucket. Shared format: tombstones are reused by this
// rule only, others stay.
bool gives_way(uint16_t index, const entry_t &bucket, uint16_t probes) {
    return distance_of(index, bucket) < probes;
}

// Where a search for a place ends, with nothing moved yet.
struct way_through {
    enum { place, presence, nowhere } end;
    uint16_t index; // of the place, or of the bucket that has the key
    uint32_t steps; // that it is away from the home
    bool displaces; // ports on the way have to move
};

way_through find_way(const entry_t *table, uint16_t home, uint32_t sys_ifindex) {
    uint16_t index = home;
    uint16_t probes = 0;
    uint32_t carried = sys_ifindex;
    bool displaces = false;
    uint32_t steps = 0;
    do {
        const entry_t &bucket = table[index];
        if (is_empty(bucket))
            return {way_through::place, index, steps, displaces};
        if (bucket.sys_ifindex == carried && bucket.hash == home)
            return {way_through::presence, index, steps, displaces};
        if (gives_way(index, bucket, probes)) {
            if (bucket.deleted != 0)
                return {way_through::place, index, steps, displaces};
            // Shared format: the search goes on with the key's probes and home, not the displaced port's.
            carried = bucket.sys_ifindex;
            displaces = true;
        }
        index++;
        probes++;
        steps++;
    } while (index != home);
    return {way_through::nowhere, home, steps, displaces};
}

// Moves the ports that give way, each to the next one's bucket, the last one first, so that none is ever missing.
// The bucket of the first is left for the key, marked. The last one goes to the way's place, or into *lost when
// there is none.
uint16_t make_room(entry_t *table, uint16_t home, const way_through &way, entry_t *lost) {
    bool has_target = way.end == way_through::place;
    auto target = static_cast<uint16_t>(home + way.steps);
    for (uint32_t steps = way.steps; steps-- > 0;) {
        const auto index = static_cast<uint16_t>(home + steps);
        if (table[index].deleted != 0 || !gives_way(index, table[index], static_cast<uint16_t>(steps)))
            continue;
        if (has_target) {
            port_move(table, index, target);
        } else {
            *lost = table[index];
            port_mark_filling(table[index]);
        }
        has_target = true;
        target = index;
    }
    return target;
}

} // namespace

yb_status_t __net_lib_hashtable_entry_set(uint32_t sys_ifindex, const yb_net_port_info_t *info,
                                          entry_t *scratch, uint16_t *out_index, entry_t **out_existing) {
    const uint16_t home = home_of(set_crc_area, sys_ifindex);
    scratch->hash = home;
    scratch->sys_ifindex = sys_ifindex;
    scratch->info = *info;

    entry_t *const table = buckets();
    const way_through way = find_way(table, home, sys_ifindex);
    uint16_t index = way.index;
    if (way.displaces) {
        entry_t lost;
        index = make_room(table, home, way, &lost);
        if (way.end != way_through::place) {
            port_fill(table[index], *scratch, false);
            *scratch = lost;
            index = way.index;
        }
    }
    if (way.end == way_through::nowhere) {
        NET_LIB_DB_LOG(
            YB_LEVEL_ERROR,
            "Netlib ports DB - port with sys_ifindex 0x%x cannot be setto the DB. DB is full\n", // "setto": kept
            sys_ifindex);
        return YB_STATUS_ERROR;
    }
    if (way.end == way_through::presence)
        *out_existing = &table[index];
    *out_index = index;
    return YB_STATUS_SUCCESS;
}

yb_status_t __net_lib_hashtable_entry_get(uint32_t sys_ifindex, uint16_t *out_index) {
    if (out_index == nullptr) {
        NET_LIB_DB_LOG(YB_LEVEL_ERROR, "Received NULL pointer.\n");
        return YB_STATUS_PARAM_ERROR;
    }
    entry_t *const bucket = port_find(sys_ifindex);
    if (bucket == nullptr)
        return YB_STATUS_ENTRY_NOT_FOUND;
    *out_index = static_cast<uint16_t>(bucket - buckets());
    return YB_STATUS_SUCCESS;
}

entry_t *port_find(uint32_t sys_ifindex) {
    const uint16_t home = home_of(get_crc_area, sys_ifindex);
    entry_t *const table = buckets();
    uint16_t index = home;
    uint16_t probes = 0;
    do {
        entry_t &bucket = table[index];
        // First, as most searches end here at once; such a bucket is as far from its home as the search, so the
        // rule below does not concern it. A tombstone's key is 0 and never matches. Shared format: an empty
        // bucket ends the search as a success too, and the caller works on that bucket.
        if ((bucket.hash == home && bucket.sys_ifindex == sys_ifindex) || is_empty(bucket))
            return &bucket;
        if (distance_of(index, bucket) < probes)
            break; // the key would have taken this bucket
        index++;
        probes++;
    } while (index != home);

    NET_LIB_DB_LOG(YB_LEVEL_ERROR, "Netlib ports DB - port with sys_ifindex 0x%x cannot be found in the DB\n",
                   sys_ifindex);
    return nullptr;
}
