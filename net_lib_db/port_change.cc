// SPDX-License-Identifier: Apache-2.0
//
// See port_change.h.
#include "net_lib_db/port_change.h"

#include <array>
#include <bit>
#include <cstring>

#include "net_lib_db/port_maps.h"

namespace {

using entry_t = net_lib_port_entry_t;

uint16_t index_of(const entry_t &bucket) {
    return static_cast<uint16_t>(&bucket - ports_body().port_table);
}

// Empty or deleted, and without a trace of what was there: it can be used and left as it was found.
bool is_spare(const entry_t &bucket) {
    static constexpr entry_t nothing = {};
    return bucket.deleted == (bucket.hash == 0 ? PORT_LIVE : PORT_DELETED) && bucket.sys_ifindex == 0 &&
           memcmp(&bucket.info, &nothing.info, sizeof(nothing.info)) == 0 &&
           memcmp(bucket.reserved, nothing.reserved, sizeof(nothing.reserved)) == 0;
}

// Where the last spare bucket was found: more often than not it still is one. Used under the lock.
uint16_t last_spare;

// A spare bucket, else the next one in the table's order; NULL in a table full of ports.
entry_t *find_spare(const entry_t &bucket) {
    entry_t *const table = ports_body().port_table;
    if (is_spare(table[last_spare]))
        return &table[last_spare];
    const uint16_t start = index_of(bucket);
    for (auto index = static_cast<uint16_t>(start + 1); index != start; index++) {
        if (is_spare(table[index])) {
            last_spare = index;
            return &table[index];
        }
    }
    return nullptr;
}

void enter_maps_with(uint32_t sys_ifindex, const yb_net_port_info_t &info) {
    port_maps_enter(sys_ifindex, info.log_port, info.mlag_id);
}

using spread_words = std::array<uint16_t, sizeof(port_spread) / sizeof(uint16_t)>;

// The bucket that keeps this word of a spread record.
entry_t &behind(const entry_t &bucket, size_t word) {
    return ports_body().port_table[static_cast<uint16_t>(index_of(bucket) + 1 + word)];
}

// port_change() in a table without a spare bucket. What was in the reserved bytes is there again afterwards, unless
// the process dies: then they are cleared, for they mean nothing.
void change_spread(entry_t &bucket, const port_spread &changed, bool enter_maps) {
    const uint8_t kept_mark = bucket.deleted;
    const port_spread kept = port_spread_read(bucket);
    change_mark(bucket.deleted, PORT_SPREAD);
    port_spread_write(bucket, changed);
    change_mark(bucket.deleted, enter_maps ? PORT_SPREAD_RECORD_MAPPED : PORT_SPREAD_RECORD);
    bucket.info = changed.info;
    if (enter_maps)
        enter_maps_with(changed.sys_ifindex, changed.info);
    change_mark(bucket.deleted, PORT_SPREAD);
    port_spread_write(bucket, kept);
    change_mark(bucket.deleted, kept_mark);
}

} // namespace

port_spread port_spread_read(const entry_t &bucket) {
    spread_words words;
    for (size_t i = 0; i < words.size(); i++)
        words[i] = port_index(behind(bucket, i));
    return std::bit_cast<port_spread>(words);
}

void port_spread_write(const entry_t &bucket, const port_spread &spread) {
    const auto words = std::bit_cast<spread_words>(spread);
    for (size_t i = 0; i < words.size(); i++)
        port_mark(behind(bucket, i), behind(bucket, i).deleted, words[i]);
}

void port_mark_filling(entry_t &bucket) {
    if (bucket.hash == 0)
        change_mark(bucket.deleted, PORT_FILLING_EMPTY);
    else
        change_mark(bucket.deleted, bucket.deleted != 0 ? PORT_FILLING_DELETED : PORT_FILLING_LIVE);
}

void port_move(entry_t *table, uint16_t from, uint16_t to) {
    entry_t &source = table[from];
    entry_t &target = table[to];
    if (!port_is_filling(target))
        port_mark_filling(target);
    const uint16_t kept = port_index(target);
    port_mark(target, target.deleted | PORT_FILLING_SOURCE, from);
    target.hash = source.hash;
    target.sys_ifindex = source.sys_ifindex;
    target.info = source.info;
    port_mark_filling(source);
    port_mark(target, PORT_LIVE, kept);
}

void port_fill(entry_t &bucket, const entry_t &record, bool enter_maps) {
    if (!port_is_filling(bucket))
        port_mark_filling(bucket);
    bucket.hash = record.hash;
    bucket.sys_ifindex = record.sys_ifindex;
    bucket.info = record.info;
    if (enter_maps) {
        change_mark(bucket.deleted, PORT_MAPPING);
        enter_maps_with(record.sys_ifindex, record.info);
    }
    change_mark(bucket.deleted, PORT_LIVE);
}

void port_change(entry_t &bucket, uint32_t sys_ifindex, const yb_net_port_info_t &info, bool enter_maps) {
    entry_t *const spare = find_spare(bucket);
    if (spare == nullptr) {
        change_spread(bucket, {info, sys_ifindex}, enter_maps);
        return;
    }
    const uint8_t kept = spare->deleted;
    change_mark(spare->deleted, PORT_SPARE);
    spare->info = info;
    spare->sys_ifindex = sys_ifindex;
    port_mark(*spare, enter_maps ? PORT_SPARE_RECORD_MAPPED : PORT_SPARE_RECORD, index_of(bucket));
    bucket.info = info;
    if (enter_maps)
        enter_maps_with(sys_ifindex, info);
    port_mark(*spare, PORT_SPARE, 0);
    spare->info = {};
    spare->sys_ifindex = 0;
    change_mark(spare->deleted, kept);
}

void port_delete(entry_t &bucket) {
    change_mark(bucket.deleted, PORT_REMOVING);
    // Read once, so that what was checked is what is used, whatever another process does meanwhile.
    const uint32_t log_port = __atomic_load_n(&bucket.info.log_port, __ATOMIC_RELAXED);
    const uint16_t mlag_id = __atomic_load_n(&bucket.info.mlag_id, __ATOMIC_RELAXED);
    if (log_port != 0)
        port_maps_clear(log_port, mlag_id);
    change_step();
    bucket.info = {};
    bucket.sys_ifindex = 0;
    change_mark(bucket.deleted, PORT_DELETED);
}
