// SPDX-License-Identifier: Apache-2.0
//
// The ports segment "/net_lib_port": its description with all its messages, its
// initial contents, and the exported functions that load and unload it.
#include "net_lib_db/ports_segment.h"

#include <cstring>

#include "net_lib_db/port_change.h"
#include "net_lib_db/repair_ports.h"
#include "ybnet/net_lib_db.h"

namespace {

// The first bucket's mark is set first and cleared last: who takes over from a process that died in between
// can tell, and erases again.
void initialize_ports_body(void *body) {
    auto *const segment_body = static_cast<net_lib_db_ports_segment_t *>(body);
    net_lib_port_entry_t &first = segment_body->port_table[0];
    change_mark_word(port_mark_word(first), PORTS_ERASING);
    memset(&segment_body->port_table[1], 0, sizeof(segment_body->port_table) - sizeof(first));
    // Entry 255 of lag_to_mlag and the two ifindex maps keep what they hold: other processes rely on it.
    constexpr size_t lag_entries_cleared = 255;
    memset(segment_body->lag_to_mlag, 0, lag_entries_cleared * sizeof(segment_body->lag_to_mlag[0]));
    memset(segment_body->mlag_to_lag, 0, sizeof(segment_body->mlag_to_lag));
    // All but the mark, which a copy of the whole would clear for a moment.
    first.sys_ifindex = 0;
    first.info = {};
    first.hash = 0;
    change_mark_word(port_mark_word(first), PORT_LIVE);
}

constexpr segment_description ports_description = {
    .number = 1,
    .name = YB_NET_PORTS_SEGMENT_NAME,
    .title = "Net-lib ports DB",
    .size = sizeof(net_lib_db_ports_segment_t),
    .trailer_offset = offsetof(net_lib_db_ports_segment_t, trailer),
    .initialize_body = initialize_ports_body,
    .repair_body = repair_ports,
    .create_function = "net_lib_ports_db_init",
    .load_function = "net_lib_db_ports_load",
    .unload_function = "net_lib_db_ports_unload",
    .already_exists =
        SEGMENT_MESSAGE("net_lib_ports_db_init(): Shared memory of the Net-lib ports DB already exists,\n"),
    .create_failed = SEGMENT_MESSAGE("Failed to create shared memory for the Net-lib ports DB\n"),
    .resize_failed = SEGMENT_MESSAGE("Failed to set shared memory size for the Net-lib ports DB\n"),
    .map_failed = SEGMENT_MESSAGE("Failed to map the shared memory of the Net-lib ports DB\n"),
    .lock_init_failed = SEGMENT_MESSAGE("Failed to initialize the Net-lib ports DB rwlock\n"),
    // "port", singular, only here; and the mismatch text ends without a newline: consumers match both.
    .already_loaded = SEGMENT_MESSAGE("Net-lib port DB was already initialized\n"),
    .loaded_mismatch = SEGMENT_MESSAGE("Net-lib ports DB does not match the library version, Consider deinit "
                                       "all users of YB net and re-init"),
    .init_failed = SEGMENT_MESSAGE("Failed to init the Net-lib ports DB shared memory\n"),
    .not_initialized = SEGMENT_MESSAGE("Net-lib ports DB is not yet initialized\n"),
    .mismatch = SEGMENT_MESSAGE("Net-lib ports DB does not match the library version, Consider deinit all "
                                "users of YB net and re-init"),
    .unmap_failed = SEGMENT_MESSAGE("Failed to unmap the shared memory of the Net-lib ports DB\n"),
};

} // namespace

segment ports_segment = {ports_description, nullptr, nullptr, {}, 0, false, {}};

yb_status_t net_lib_ports_db_init() {
    return segment_create(ports_segment);
}

YB_EXPORT yb_status_t net_lib_db_ports_load(uint32_t reinitialize) {
    return segment_load(ports_segment, reinitialize);
}

YB_EXPORT yb_status_t net_lib_db_ports_unload(uint32_t) {
    return segment_unload(ports_segment);
}
