// SPDX-License-Identifier: Apache-2.0
//
// The interfaces segment "/net_lib_ifc": its description with all its messages,
// its initial contents, and the exported functions that load, unload and lock it.
#include "net_lib_db/interfaces_segment.h"

#include <cstring>

#include "net_lib_db/change_order.h"
#include "net_lib_db/repair_interfaces.h"
#include "ybnet/net_lib_db.h"

namespace {

void initialize_record(yb_net_interface_record_t &record) {
    record = {};
    record.rif = YB_NET_RIF_NONE;
    record.vrid = YB_NET_VRID_NONE;
}

// The first entry's mark is set first and cleared last: who takes over from a process that died in between can
// tell, and erases again.
void initialize_interfaces_body(void *body) {
    auto *const segment_body = static_cast<net_lib_db_interfaces_segment_t *>(body);
    net_lib_db_interface_entry_t &first = segment_body->entries[0];
    change_mark_word(interface_mark_word(first), first.in_use | INTERFACES_ERASING << 8);
    memset(&segment_body->entries[1], 0, sizeof(segment_body->entries) - sizeof(first));
    for (net_lib_db_interface_entry_t &entry : segment_body->entries)
        initialize_record(entry.record);
    change_mark_word(interface_mark_word(first), 0);
}

constexpr segment_description interfaces_description = {
    .number = 0,
    .name = YB_NET_INTERFACES_SEGMENT_NAME,
    .title = "Net-lib interfaces DB",
    .size = sizeof(net_lib_db_interfaces_segment_t),
    .trailer_offset = offsetof(net_lib_db_interfaces_segment_t, trailer),
    .initialize_body = initialize_interfaces_body,
    .repair_body = repair_interfaces,
    .create_function = "net_lib_interfaces_db_init",
    .load_function = "net_lib_db_interfaces_load",
    .unload_function = "net_lib_db_interfaces_unload",
    .already_exists = SEGMENT_MESSAGE(
        "net_lib_interfaces_db_init(): Shared memory of the Net-lib interfaces DB already exists,\n"),
    .create_failed = SEGMENT_MESSAGE("Failed to create shared memory for the Net-lib interfaces DB\n"),
    .resize_failed = SEGMENT_MESSAGE("Failed to set shared memory size for the Net-lib interfaces DB\n"),
    .map_failed = SEGMENT_MESSAGE("Failed to map the shared memory of the Net-lib interfaces DB\n"),
    .lock_init_failed = SEGMENT_MESSAGE("Failed to initialize the Net-lib interfaces DB rwlock\n"),
    .already_loaded = SEGMENT_MESSAGE("Net-lib Interfaces DB was already initialized\n"),
    // Names the ports file, and stays so: consumers match the text.
    .loaded_mismatch =
        SEGMENT_MESSAGE("Net-lib Interfaces DB does not match the library version, Consider deinit all users "
                        "of YB net and re-init or delete /dev/shm/net_lib_port\n"),
    .init_failed = SEGMENT_MESSAGE("Failed to init the Net-lib interfaces DB shared memory\n"),
    .not_initialized = SEGMENT_MESSAGE("Net-lib interfaces DB is not yet initialized\n"),
    .mismatch =
        SEGMENT_MESSAGE("Net-lib Interfaces DB does not match the library version, Consider deinit all users "
                        "of YB net and re-init or delete /dev/shm/net_lib_ifc\n"),
    .unmap_failed = SEGMENT_MESSAGE("Failed to unmap the shared memory of the Net-lib interfaces DB\n"),
};

} // namespace

segment interfaces_segment = {interfaces_description, nullptr, nullptr, {}, 0, false, {}};

yb_status_t net_lib_interfaces_db_init() {
    return segment_create(interfaces_segment);
}

YB_EXPORT yb_status_t net_lib_db_interfaces_load(uint32_t reinitialize) {
    return segment_load(interfaces_segment, reinitialize);
}

YB_EXPORT yb_status_t net_lib_db_interfaces_unload(uint32_t) {
    return segment_unload(interfaces_segment);
}

YB_EXPORT void net_lib_db_interface_lock_acquire() {
    if (interfaces_segment.body != nullptr)
        segment_lock(interfaces_segment);
}

YB_EXPORT void net_lib_db_interface_lock_release() {
    if (interfaces_segment.body != nullptr)
        segment_unlock(interfaces_segment);
}
