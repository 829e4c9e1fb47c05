// SPDX-License-Identifier: Apache-2.0
//
// An interfaces segment with anything in it: runs of bytes are written over a valid one, then the database's
// functions and ybnetctl's decoders work on it. Only the lock is left alone.
//
// Input: whether the whole table may be gone through (1 byte, only 0xA5), how many runs (1), the runs, then
// operations. Each of both begins with its kind (1) and a slot (2).
#include "net_lib_db/interfaces_segment.h"

#include <cstring>
#include <sstream>

#include "net_lib_db/repair_interfaces.h"
#include "tests/fuzz/support/check.h"
#include "tests/fuzz/support/input.h"
#include "tests/fuzz/support/private_segment.h"
#include "tools/ybnetctl/see/interface_view.h"
#include "tools/ybnetctl/segments/decode.h"
#include "tools/ybnetctl/segments/lock_words.h"
#include "ybnet/net_lib_db.h"

namespace {

using entry_t = net_lib_db_interface_entry_t;
using body_t = net_lib_db_interfaces_segment_t;

constexpr uint8_t whole_table = 0xA5;
constexpr size_t operations_max = 12; // so that an input cannot go on for long
constexpr size_t shown_max = 8;

fuzz::private_segment *the_segment;

body_t &body() {
    return *static_cast<body_t *>(interfaces_segment.body);
}

uint32_t take_slot(fuzz::input &in) {
    return in.take<uint16_t>() % YB_NET_INTERFACES_MAX;
}

// One interface of every type, and two that share a netdev's number in two namespaces.
void fill() {
    constexpr uint32_t types[] = {0, 1, 2, 3, 6, 9};
    uint32_t number = 1;
    for (const uint32_t type : types) {
        yb_net_interface_params_t params = {};
        (void)snprintf(params.name, sizeof(params.name), "netdev%u", number);
        (void)snprintf(params.ns_name, sizeof(params.ns_name), "%s", number % 2 != 0 ? "" : "blue");
        (void)snprintf(params.vrf_name, sizeof(params.vrf_name), "vrf");
        params.vrf_valid = number % 2;
        params.type = type;
        FUZZ_CHECK(net_lib_db_interface_add(number, 1 + number / 2, &params) == YB_STATUS_SUCCESS);
        number++;
    }
}

// ---- Runs -------------------------------------------------------------------

void overwrite(fuzz::input &in, bool whole) {
    enum { bytes, copy, repeat, trailer, kinds };
    const auto kind = in.take<uint8_t>() % kinds;
    const uint32_t slot = take_slot(in);
    auto *const from = reinterpret_cast<uint8_t *>(&body().entries[slot]);
    auto *const end = reinterpret_cast<uint8_t *>(&body().trailer);
    switch (kind) {
    case bytes: {
        const size_t offset = in.take<uint8_t>() % sizeof(entry_t);
        const std::span<const uint8_t> run = in.take_bytes(in.take<uint8_t>());
        memcpy(from + offset, run.data(),
               std::min<size_t>(run.size(), static_cast<size_t>(end - from) - offset));
        break;
    }
    case copy:
        body().entries[slot] = body().entries[take_slot(in)];
        break;
    case repeat: {
        const size_t count = in.take<uint16_t>() % (whole ? YB_NET_INTERFACES_MAX : 64U) + 1;
        memset(from, in.take<uint8_t>(), std::min(count * sizeof(entry_t), static_cast<size_t>(end - from)));
        break;
    }
    default: {
        const std::span<const uint8_t> run = in.take_bytes(16);
        memcpy(the_segment->behind_lock(), run.data(), run.size());
    }
    }
}

// ---- Operations -------------------------------------------------------------

bool was_found(yb_status_t status) {
    FUZZ_CHECK(fuzz::is_one_of(status, {YB_STATUS_SUCCESS, YB_STATUS_ENTRY_NOT_FOUND}));
    return status == YB_STATUS_SUCCESS;
}

// What a search has to find: the first record in use that it is for. Plain code, for it is gone through more often
// than what it checks.
#define PLAIN __attribute__((no_sanitize("address", "undefined", "coverage")))

PLAIN const yb_net_interface_record_t *first_of(uint32_t sys_ifindex) {
    for (const entry_t &entry : body().entries) {
        if (entry.in_use != 0 && entry.record.sys_ifindex == sys_ifindex)
            return &entry.record;
    }
    return nullptr;
}

PLAIN const yb_net_interface_record_t *first_of(uint32_t linux_ifindex, const char *ns, const char *vrf) {
    const auto is = [](const char *name, const char *field, size_t size)
                        PLAIN { return strlen(name) <= size && strncmp(name, field, size) == 0; };
    for (const entry_t &entry : body().entries) {
        const yb_net_interface_params_t &params = entry.record.params;
        if (entry.in_use != 0 && entry.record.linux_ifindex == linux_ifindex &&
            is(ns, params.ns_name, sizeof(params.ns_name)) &&
            (vrf == nullptr || is(vrf, params.vrf_name, sizeof(params.vrf_name))))
            return &entry.record;
    }
    return nullptr;
}

void check_found(yb_status_t status, const yb_net_interface_record_t &out,
                 const yb_net_interface_record_t *expected) {
    FUZZ_CHECK(was_found(status) == (expected != nullptr));
    FUZZ_CHECK(expected == nullptr || memcmp(&out, expected, sizeof(out)) == 0);
}

void look_up(fuzz::input &in, uint32_t slot) {
    const entry_t &given = body().entries[slot];
    const uint32_t sys_ifindex = given.record.sys_ifindex;
    const uint32_t linux_ifindex = given.record.linux_ifindex;
    const bool in_use = given.in_use != 0;
    yb_net_interface_record_t out;
    const bool slot_found = was_found(net_lib_db_interface_get_by_db_index(slot, &out));
    FUZZ_CHECK(slot_found == in_use);
    FUZZ_CHECK(!slot_found || memcmp(&out, &given.record, sizeof(out)) == 0);

    yb_status_t status = net_lib_db_interface_get(sys_ifindex, &out);
    check_found(status, out, first_of(sys_ifindex));
    const auto ns = in.take_text();
    const auto vrf = in.take_text();
    status = ns[0] == '\0' ? net_lib_db_interface_get_by_linux_ifindex(linux_ifindex, &out)
                           : net_lib_db_interface_get_by_linux_ifindex_ns(linux_ifindex, ns.get(), &out);
    check_found(status, out, first_of(linux_ifindex, ns.get(), nullptr));
    status = net_lib_db_interface_get_by_linux_ifindex_ns_vrf(linux_ifindex, ns.get(), vrf.get(), &out);
    check_found(status, out, first_of(linux_ifindex, ns.get(), vrf.get()));
}

void change(fuzz::input &in, uint32_t slot) {
    const uint32_t sys_ifindex = body().entries[slot].record.sys_ifindex;
    const auto which = in.take<uint8_t>();
    const auto value = in.take<uint16_t>();
    switch (which % 5) {
    case 0: {
        const auto params = std::make_unique<yb_net_interface_params_t>(in.take<yb_net_interface_params_t>());
        const uint32_t number = which < 128 ? value : sys_ifindex;
        FUZZ_CHECK(
            fuzz::is_one_of(net_lib_db_interface_add_full(number, value, params.get(), value, value, 1),
                            {YB_STATUS_SUCCESS, YB_STATUS_ENTRY_ALREADY_EXISTS, YB_STATUS_NO_RESOURCES}));
        break;
    }
    case 1:
        (void)was_found(net_lib_db_interface_remove(sys_ifindex));
        break;
    case 2:
        (void)was_found(net_lib_db_interface_rif_add(sys_ifindex, value));
        break;
    case 3:
        FUZZ_CHECK(
            fuzz::is_one_of(net_lib_db_interface_vrid_add(sys_ifindex, value),
                            {YB_STATUS_SUCCESS, YB_STATUS_ENTRY_NOT_FOUND, YB_STATUS_ENTRY_ALREADY_EXISTS}));
        break;
    default:
        (void)was_found(net_lib_db_interface_vlan_set(sys_ifindex, value));
    }
}

void check_fit_for_a_terminal(const std::string &text) {
    for (const char c : text)
        FUZZ_CHECK(c == '\n' || static_cast<unsigned char>(c) >= ' ');
}

void decode(uint32_t slot) {
    const auto *const record = reinterpret_cast<const std::byte *>(&body().entries[slot]);
    for (const ybnetctl::field *each : ybnetctl::fields_of(ybnetctl::interface_entry_structure, record))
        check_fit_for_a_terminal(ybnetctl::field_text(*each, record));
    std::ostringstream out;
    ybnetctl::session run(out, out);
    ybnetctl::print(run, ybnetctl::record_json(ybnetctl::interface_entry_structure, record));
    ybnetctl::print(run, to_json(ybnetctl::view_of(body().entries[slot], slot)));
    check_fit_for_a_terminal(out.str());
    (void)ybnetctl::lock_words_of(body().trailer);
}

void show_all() {
    std::vector<ybnetctl::interface_view> all = ybnetctl::interfaces_in(body());
    std::ostringstream out;
    ybnetctl::session run(out, out);
    for (size_t i = 0; i < std::min(all.size(), shown_max); i++) {
        for (const std::string &note : ybnetctl::interface_notes(all[i], all))
            FUZZ_CHECK(!note.empty());
    }
    all.resize(std::min(all.size(), shown_max));
    ybnetctl::print_interfaces(run, all);
    check_fit_for_a_terminal(out.str());
}

void operate(fuzz::input &in, bool whole) {
    enum { lookups, changes, decoding, repairing, showing, kinds };
    const auto kind = in.take<uint8_t>() % kinds;
    const uint32_t slot = take_slot(in);
    switch (kind) {
    case lookups:
        return look_up(in, slot);
    case changes:
        return change(in, slot);
    case decoding:
        return decode(slot);
    case repairing:
        return whole ? repair_interfaces(&body()) : void();
    default:
        return whole ? show_all() : void();
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    static fuzz::private_segment segment(interfaces_segment, net_lib_db_interfaces_load, fill);
    the_segment = &segment;
    uint32_t verbosity = 5;
    FUZZ_CHECK(net_lib_db_log_verbosity_level(YB_ACCESS_CMD_SET, &verbosity) == YB_STATUS_SUCCESS);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::input in(data, size);
    const bool whole = in.take<uint8_t>() == whole_table;
    for (int runs = in.take<uint8_t>() % 16; runs > 0; runs--)
        overwrite(in, whole);
    the_segment->note_trailer();
    for (size_t i = 0; i < (whole ? 2 : operations_max) && !in.empty(); i++) {
        operate(in, whole);
        the_segment->check_trailer();
    }
    the_segment->restore();
    return 0;
}
