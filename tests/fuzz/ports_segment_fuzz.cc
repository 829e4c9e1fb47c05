// SPDX-License-Identifier: Apache-2.0
//
// A ports segment with anything in it: runs of bytes are written over a valid one, then the database's
// functions and ybnetctl's decoders work on it, and what the two find is held against each other. Only the lock
// is left alone. Two targets: in ports_table (FUZZ_WHOLE_TABLE) something that goes through all 65,536 buckets
// comes first, which takes so much longer that it would keep the other from getting anywhere.
//
// Input: how many runs (1 byte), the runs, in ports_table which of these (1), then operations. Runs and
// operations begin with their kind (1). Keys and buckets are a byte that stands for one in a crowded
// neighbourhood at the table's end and beginning, or 255 and any number.
#include "net_lib_db/ports_segment.h"

#include <array>
#include <cstring>
#include <sstream>
#include <vector>

#include "net_lib_db/repair_ports.h"
#include "tests/fuzz/support/check.h"
#include "tests/fuzz/support/input.h"
#include "tests/fuzz/support/private_segment.h"
#include "tools/ybnetctl/see/port_view.h"
#include "tools/ybnetctl/segments/decode.h"
#include "tools/ybnetctl/segments/port_search.h"
#include "ybnet/net_lib_db.h"

namespace {

using entry_t = net_lib_port_entry_t;
using body_t = net_lib_db_ports_segment_t;

constexpr bool whole_table = FUZZ_WHOLE_TABLE;
constexpr size_t operations_max = 24; // so that an input cannot go on for long
constexpr size_t shown_max = 8;
constexpr uint8_t anything = 255;

fuzz::private_segment *the_segment;

body_t &body() {
    return *static_cast<body_t *>(ports_segment.body);
}

// ---- The neighbourhood ------------------------------------------------------

// Homes 65532 to 65535 and 0 to 11, three keys each.
constexpr uint16_t first_home = 65532;
constexpr size_t homes = 16;
constexpr size_t keys_per_home = 3;
std::array<uint32_t, homes * keys_per_home> keys;

void find_keys() {
    std::array<size_t, homes> found = {};
    size_t missing = keys.size();
    for (uint32_t key = 1; missing > 0; key++) {
        const auto home = static_cast<uint16_t>(ybnetctl::home_bucket(key) - first_home);
        if (home >= homes || found[home] == keys_per_home)
            continue;
        keys[home * keys_per_home + found[home]++] = key;
        missing--;
    }
}

uint32_t take_key(fuzz::input &in) {
    const auto choice = in.take<uint8_t>();
    return choice == anything ? in.take<uint32_t>() : keys[choice % keys.size()];
}

// 64 buckets, from a little before the first home.
uint16_t take_bucket(fuzz::input &in) {
    const auto choice = in.take<uint8_t>();
    return choice == anything ? in.take<uint16_t>() : static_cast<uint16_t>(first_home - 8 + choice % 64);
}

// Two of three keys of every second home, so that neighbours are pushed along; LAGs among them.
void fill() {
    find_keys();
    for (size_t i = 0; i < keys.size(); i++) {
        if (i % keys_per_home == 2 || i / keys_per_home % 2 != 0)
            continue;
        yb_net_port_info_t info = {};
        info.attr_b = YB_NET_PORT_ATTR_B_NONE;
        info.protocol = 1 + i % 2;
        const bool lag = i % 4 == 0;
        info.log_port = static_cast<uint32_t>((lag ? 1U << 28 : 0) | (i + 1) << 8);
        info.mlag_id = lag ? static_cast<uint16_t>(i + 1) : 0;
        (void)snprintf(info.name, sizeof(info.name), "swp%zu", i);
        FUZZ_CHECK(net_lib_db_port_set(keys[i], &info) == YB_STATUS_SUCCESS);
    }
}

// ---- Runs -------------------------------------------------------------------

void overwrite(fuzz::input &in) {
    enum { bytes, copy, port, map, repeat, trailer, kinds };
    const auto kind = in.take<uint8_t>() % kinds;
    const uint16_t index = take_bucket(in);
    entry_t &bucket = body().port_table[index];
    auto *const from = reinterpret_cast<uint8_t *>(&bucket);
    const auto room = static_cast<size_t>(reinterpret_cast<uint8_t *>(&body().trailer) - from);
    switch (kind) {
    case bytes: { // near the table's end also over the maps
        const size_t offset = in.take<uint8_t>() % sizeof(entry_t);
        const std::span<const uint8_t> run = in.take_bytes(in.take<uint8_t>());
        memcpy(from + offset, run.data(), std::min(run.size(), room - offset));
        break;
    }
    case copy:
        bucket = body().port_table[take_bucket(in)];
        break;
    case port: { // as it could be, but for where it is and what its maps say
        bucket.sys_ifindex = take_key(in);
        bucket.hash = static_cast<uint16_t>(ybnetctl::home_bucket(bucket.sys_ifindex) + in.take<int8_t>());
        bucket.deleted = in.take<uint8_t>();
        bucket.info.log_port = in.take<uint32_t>();
        bucket.info.mlag_id = in.take<uint16_t>();
        break;
    }
    case map: {
        const auto slot = in.take<uint16_t>();
        const auto value = in.take<uint32_t>();
        switch (index % 4) {
        case 0:
            body().lag_to_mlag[slot % YB_NET_LAG_TO_MLAG_LENGTH] = static_cast<uint16_t>(value);
            break;
        case 1:
            body().mlag_to_lag[slot % YB_NET_MLAG_TO_LAG_LENGTH] = value;
            break;
        case 2:
            body().lag_to_ifindex[slot % YB_NET_LAG_TO_IFINDEX_LENGTH] = value;
            break;
        default:
            body().port_to_ifindex[slot] = value;
        }
        break;
    }
    case repeat: {
        const size_t count = in.take<uint16_t>() % (whole_table ? 1024U : 64U) + 1;
        memset(from, in.take<uint8_t>(), std::min(count * sizeof(entry_t), room));
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

// The library's answers and ybnetctl's account of them.
void look_up(uint32_t key) {
    const ybnetctl::library_answer expected = ybnetctl::library_port_get(body(), key);
    yb_net_port_info_t info;
    const yb_status_t status = net_lib_db_port_get(key, &info);
    FUZZ_CHECK(status == expected.status);
    if (status == YB_STATUS_SUCCESS)
        FUZZ_CHECK(memcmp(&info, &body().port_table[expected.bucket].info, sizeof(info)) == 0);
}

void look_up_logical(uint32_t log_port) {
    uint32_t sys_ifindex = 0xA5A5A5A5;
    const yb_status_t status = net_lib_db_log_port_get(log_port, &sys_ifindex);
    if (log_port == 0) {
        FUZZ_CHECK(status == YB_STATUS_PARAM_ERROR);
    } else {
        FUZZ_CHECK(sys_ifindex == ybnetctl::library_log_port_get(body(), log_port));
        FUZZ_CHECK(status == (sys_ifindex != 0 ? YB_STATUS_SUCCESS : YB_STATUS_ENTRY_NOT_FOUND));
    }
    uint16_t mlag_id;
    FUZZ_CHECK(net_lib_db_mlag_get(log_port, &mlag_id) ==
               (YB_NET_LOG_PORT_IS_LAG(log_port) ? YB_STATUS_SUCCESS : YB_STATUS_PARAM_ERROR));
    const auto id = static_cast<uint16_t>(log_port);
    uint32_t lag;
    FUZZ_CHECK(net_lib_db_lag_get(id, &lag) == (id >= YB_NET_MLAG_ID_MIN && id <= YB_NET_MLAG_ID_MAX
                                                    ? YB_STATUS_SUCCESS
                                                    : YB_STATUS_PARAM_EXCEEDS_RANGE));
}

void set(fuzz::input &in) {
    const uint32_t key = take_key(in);
    const auto info = std::make_unique<yb_net_port_info_t>(in.take<yb_net_port_info_t>());
    const yb_status_t status = net_lib_db_port_set(key, info.get());
    if (key == 0)
        FUZZ_CHECK(status == YB_STATUS_PARAM_ERROR);
    else if (YB_NET_LOG_PORT_IS_LAG(info->log_port) && info->mlag_id > YB_NET_MLAG_ID_MAX)
        FUZZ_CHECK(status == YB_STATUS_PARAM_EXCEEDS_RANGE);
    else
        FUZZ_CHECK(fuzz::is_one_of(status, {YB_STATUS_SUCCESS, YB_STATUS_ERROR}));
}

void remove(uint32_t key) {
    const ybnetctl::library_answer expected = ybnetctl::library_port_get(body(), key);
    FUZZ_CHECK(net_lib_db_port_remove(key) == expected.status);
    if (expected.status != YB_STATUS_SUCCESS)
        return;
    const entry_t &bucket = body().port_table[expected.bucket];
    FUZZ_CHECK(bucket.deleted == 1 && bucket.sys_ifindex == 0 && bucket.info.log_port == 0);
}

void bind(uint32_t key, uint32_t log_port) {
    const yb_status_t status = net_lib_db_port_lag_set(key, log_port);
    if (key == 0 || (log_port != 0 && !YB_NET_LOG_PORT_IS_LAG(log_port)))
        FUZZ_CHECK(status == YB_STATUS_PARAM_ERROR);
    else
        (void)was_found(status);
}

void check_fit_for_a_terminal(const std::string &text) {
    for (const char c : text)
        FUZZ_CHECK(c == '\n' || static_cast<unsigned char>(c) >= ' ');
}

void decode(uint16_t index) {
    const auto *const record = reinterpret_cast<const std::byte *>(&body().port_table[index]);
    for (const ybnetctl::field *each : ybnetctl::fields_of(ybnetctl::port_entry_structure, record))
        check_fit_for_a_terminal(ybnetctl::field_text(*each, record));
    const ybnetctl::port_view view = ybnetctl::view_of(body(), index);
    std::ostringstream out;
    ybnetctl::session run(out, out);
    ybnetctl::print(run, ybnetctl::record_json(ybnetctl::port_entry_structure, record));
    ybnetctl::print(run, to_json(view));
    ybnetctl::print_ports(run, {view});
    ybnetctl::print_notes(run, ybnetctl::port_notes(body(), view));
    ybnetctl::print_notes(run, {ybnetctl::absence_in_words(body(), view.sys_ifindex)});
    check_fit_for_a_terminal(out.str());
}

void list(uint32_t protocol, uint32_t room) {
    uint32_t count = 0;
    const yb_status_t status = net_lib_db_ports_get_all(protocol, nullptr, &count);
    if (protocol > YB_NET_PORT_PROTOCOL_MAX) {
        FUZZ_CHECK(status == YB_STATUS_PARAM_EXCEEDS_RANGE);
        return;
    }
    FUZZ_CHECK(status == YB_STATUS_SUCCESS && count <= YB_NET_PORTS_MAX);
    std::vector<yb_net_port_info_t> ports(std::max<uint32_t>(room, 1));
    uint32_t size = room;
    FUZZ_CHECK(net_lib_db_ports_get_all(protocol, ports.data(), &size) == YB_STATUS_SUCCESS);
    FUZZ_CHECK(size == std::min(count, std::max<uint32_t>(room, 1)));
}

void show_all() {
    std::vector<ybnetctl::port_view> ports = ybnetctl::ports_in(body());
    std::ostringstream out;
    ybnetctl::session run(out, out);
    ybnetctl::print_notes(run, ybnetctl::table_notes(body(), ports));
    for (const ybnetctl::lag_view &lag : ybnetctl::lags_in(body(), ports))
        ybnetctl::print_notes(run, lag.notes);
    for (const ybnetctl::mlag_view &mlag : ybnetctl::mlags_in(body(), ports))
        ybnetctl::print_notes(run, mlag.notes);
    ports.resize(std::min(ports.size(), shown_max));
    ybnetctl::print_ports(run, ports);
    check_fit_for_a_terminal(out.str());
}

void operate(fuzz::input &in) {
    enum { lookup, logical, setting, removing, binding, decoding, kinds };
    switch (in.take<uint8_t>() % kinds) {
    case lookup:
        return look_up(take_key(in));
    case logical:
        return look_up_logical(in.take<uint32_t>());
    case setting:
        return set(in);
    case removing:
        return remove(take_key(in));
    case binding: {
        const uint32_t key = take_key(in);
        return bind(key, in.take<uint32_t>());
    }
    default:
        return decode(take_bucket(in));
    }
}

// What goes through all 65,536 buckets.
void operate_on_all(fuzz::input &in) {
    enum { listing, repairing, showing, key_search, kinds };
    switch (in.take<uint8_t>() % kinds) {
    case listing: {
        const uint32_t protocol = in.take<uint8_t>() % 4;
        return list(protocol, in.take<uint8_t>());
    }
    case repairing:
        return repair_ports(&body());
    case showing:
        return show_all();
    default:
        (void)ybnetctl::buckets_of(body(), take_key(in));
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    static fuzz::private_segment segment(ports_segment, net_lib_db_ports_load, fill);
    the_segment = &segment;
    uint32_t verbosity = 5;
    FUZZ_CHECK(net_lib_db_log_verbosity_level(YB_ACCESS_CMD_SET, &verbosity) == YB_STATUS_SUCCESS);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::input in(data, size);
    for (int runs = in.take<uint8_t>() % 16; runs > 0; runs--)
        overwrite(in);
    the_segment->note_trailer();
    if (whole_table) {
        operate_on_all(in);
        the_segment->check_trailer();
    }
    for (size_t i = 0; i < operations_max && !in.empty(); i++) {
        operate(in);
        the_segment->check_trailer();
    }
    the_segment->restore();
    return 0;
}
