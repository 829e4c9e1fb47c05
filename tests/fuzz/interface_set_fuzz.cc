// SPDX-License-Identifier: Apache-2.0
//
// Any parameter block through the dispatcher, with the shell and the kernel replaced (support/no_kernel.h).
// Also blocks that are recorded as they are and then changed or removed, for a record may come from anybody.
//
// Input: how many answers (1 byte), the answers, then calls: which (1), system ifindex (1), RIF and VRID (2
// each), block (100).
#include "ybnet/net_lib.h"

#include <cstring>

#include "net_lib_db/interfaces_segment.h"
#include "tests/fuzz/support/check.h"
#include "tests/fuzz/support/input.h"
#include "tests/fuzz/support/no_kernel.h"
#include "tests/fuzz/support/private_segment.h"
#include "tests/fuzz/support/silent_stderr.h"
#include "ybnet/net_lib_db.h"

namespace {

fuzz::private_segment *the_segment;

enum call : uint8_t { create, create_full, edit, destroy, other_command, record, rif, vrid, query, calls };
constexpr uint8_t delete_all = 0xDA; // goes through the whole table twice: once in an input
constexpr uint32_t calls_max = 12;   // so that an input cannot go on for long

bool is_set_status(yb_status_t status) {
    return fuzz::is_one_of(status,
                           {YB_STATUS_SUCCESS, YB_STATUS_PARAM_NULL, YB_STATUS_PARAM_ERROR, YB_STATUS_ERROR,
                            YB_STATUS_CMD_UNSUPPORTED, YB_STATUS_ENTRY_ALREADY_EXISTS, YB_STATUS_NO_RESOURCES,
                            YB_STATUS_ENTRY_NOT_FOUND});
}

struct arguments {
    uint32_t sys_ifindex;
    uint16_t rif;
    uint16_t vrid;
    yb_net_interface_params_t params;
};

// A CREATE may write the name, and a whole one; nothing else of the block changes.
void set(yb_access_cmd_t cmd, const arguments &given, bool full) {
    const auto block = std::make_unique<yb_net_interface_params_t>(given.params);
    const yb_status_t status =
        full ? yb_net_interface_set_full(cmd, given.sys_ifindex, block.get(), given.rif, given.vrid)
             : yb_net_interface_set(cmd, given.sys_ifindex, block.get());
    FUZZ_CHECK(is_set_status(status));
    constexpr size_t behind_name = sizeof(block->name);
    FUZZ_CHECK(memcmp(reinterpret_cast<const char *>(block.get()) + behind_name,
                      reinterpret_cast<const char *>(&given.params) + behind_name,
                      sizeof(*block) - behind_name) == 0);
    if (memcmp(block->name, given.params.name, sizeof(block->name)) != 0) {
        FUZZ_CHECK(cmd == YB_ACCESS_CMD_CREATE);
        FUZZ_CHECK(strnlen(block->name, sizeof(block->name)) < sizeof(block->name));
    }
    if (cmd == YB_ACCESS_CMD_CREATE && status == YB_STATUS_SUCCESS) {
        yb_net_interface_record_t stored;
        FUZZ_CHECK(yb_net_interface_params_get(given.sys_ifindex, &stored) == YB_STATUS_SUCCESS);
        FUZZ_CHECK(memcmp(&stored.params, block.get(), sizeof(*block)) == 0);
        FUZZ_CHECK(stored.linux_ifindex != 0);
        FUZZ_CHECK(stored.rif == (full ? given.rif : YB_NET_RIF_NONE));
        FUZZ_CHECK(stored.vrid == (full ? given.vrid : YB_NET_VRID_NONE));
    }
    if (cmd == YB_ACCESS_CMD_DESTROY && status == YB_STATUS_SUCCESS) {
        yb_net_interface_record_t stored;
        FUZZ_CHECK(yb_net_interface_params_get(given.sys_ifindex, &stored) == YB_STATUS_ENTRY_NOT_FOUND);
    }
}

void apply(uint8_t which, const arguments &given) {
    switch (which % calls) {
    case create:
    case create_full:
        return set(YB_ACCESS_CMD_CREATE, given, which % calls == create_full);
    case edit:
        return set(YB_ACCESS_CMD_EDIT, given, given.rif % 2 != 0);
    case destroy:
        return set(YB_ACCESS_CMD_DESTROY, given, given.rif % 2 != 0);
    case other_command:
        return given.rif == YB_ACCESS_CMD_DELETE_ALL ? void() : set(given.rif, given, given.vrid % 2 != 0);
    case record:
        FUZZ_CHECK(fuzz::is_one_of(net_lib_db_interface_add(given.sys_ifindex, given.rif, &given.params),
                                   {YB_STATUS_SUCCESS, YB_STATUS_ENTRY_ALREADY_EXISTS}));
        return;
    case rif:
        FUZZ_CHECK(fuzz::is_one_of(yb_net_interface_rif_set(given.sys_ifindex, given.rif),
                                   {YB_STATUS_SUCCESS, YB_STATUS_ENTRY_NOT_FOUND}));
        return;
    case vrid:
        FUZZ_CHECK(
            fuzz::is_one_of(yb_net_interface_vrid_set(given.sys_ifindex, given.vrid),
                            {YB_STATUS_SUCCESS, YB_STATUS_ENTRY_NOT_FOUND, YB_STATUS_ENTRY_ALREADY_EXISTS}));
        return;
    default: {
        yb_net_interface_record_t out;
        FUZZ_CHECK(fuzz::is_one_of(yb_net_interface_params_get_by_linux_ifindex(given.rif, &out),
                                   {YB_STATUS_SUCCESS, YB_STATUS_ENTRY_NOT_FOUND}));
    }
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz::silence_stderr();
    static fuzz::private_segment segment(interfaces_segment, net_lib_db_interfaces_load, [] {});
    the_segment = &segment;
    uint32_t verbosity = 5;
    FUZZ_CHECK(yb_net_log_verbosity_level(YB_ACCESS_CMD_SET, &verbosity) == YB_STATUS_SUCCESS);
    FUZZ_CHECK(net_lib_db_log_verbosity_level(YB_ACCESS_CMD_SET, &verbosity) == YB_STATUS_SUCCESS);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::input in(data, size);
    const fuzz::no_kernel kernel(in.take_part(in.take<uint8_t>()));
    the_segment->note_trailer();
    bool all_deleted = false;
    for (uint32_t i = 0; i < calls_max && !in.empty(); i++) {
        const auto which = in.take<uint8_t>();
        if (which == delete_all && !all_deleted) {
            all_deleted = true;
            FUZZ_CHECK(is_set_status(yb_net_interface_set(YB_ACCESS_CMD_DELETE_ALL, 0, nullptr)));
        } else {
            arguments given = {};
            given.sys_ifindex = in.take<uint8_t>();
            given.rif = in.take<uint16_t>();
            given.vrid = in.take<uint16_t>();
            given.params = in.take<yb_net_interface_params_t>();
            apply(which, given);
        }
        the_segment->check_trailer();
    }
    the_segment->restore();
    return 0;
}
