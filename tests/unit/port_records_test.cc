// SPDX-License-Identifier: Apache-2.0
//
// The operations of the ports database one by one: every status and message,
// the order of the checks, what is merged and logged under the lock. Locking and
// flushing: port_flush_test.cc. Maps and lists: port_maps_test.cc. Callers'
// pointers: port_pointers_test.cc.
#include "tests/unit/ports_fixture.h"

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class port_records : public ports_test {};

// ---- Without a database -----------------------------------------------------

TEST_F(port_records, need_a_loaded_database) {
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_ports_unload(0));
    calls::reset();
    (void)take_lines();
    uint32_t size = 7;
    // Even where other arguments are wrong.
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, net_lib_db_port_set(0, nullptr));
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, net_lib_db_port_remove(0));
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, net_lib_db_port_get(0, nullptr));
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, net_lib_db_log_port_get(0, nullptr));
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, net_lib_db_ports_get_all(9, nullptr, &size));
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, net_lib_db_lag_get(0, nullptr));
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, net_lib_db_mlag_get(0, nullptr));
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, net_lib_db_port_lag_set(0, 1));
    const auto lines = take_lines();
    EXPECT_EQ(8u, lines.size());
    EXPECT_THAT(lines, Each(error_line("Net-lib ports DB was not initialized\n")));
    EXPECT_EQ(0, calls::count("segment_lock"));
    EXPECT_EQ(7u, size);

    // The one check that comes first.
    EXPECT_EQ(YB_STATUS_ERROR, net_lib_db_ports_get_all(9, nullptr, nullptr));
    EXPECT_THAT(take_lines(), ElementsAre(error_line("Netlib ports DB - size parameter is NULL\n")));
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_ports_load(0));
}

// ---- Set --------------------------------------------------------------------

TEST_F(port_records, set_refuses_the_key_0_before_it_looks_at_the_record) {
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, net_lib_db_port_set(0, nullptr));
    EXPECT_THAT(take_lines(),
                ElementsAre(error_line("Netlib ports DB - cannot add port with sys_ifindex==0\n")));
}

TEST_F(port_records, set_refuses_a_lag_with_an_mlag_id_above_1000) {
    const auto before = snapshot();
    yb_net_port_info_t info = with_log_port(lag_of(3), 1001);
    EXPECT_EQ(YB_STATUS_PARAM_EXCEEDS_RANGE, net_lib_db_port_set(5, &info));
    EXPECT_THAT(take_lines(),
                ElementsAre(error_line("Netlib ports DB - cannot add LAG port with mlag_id > 1000\n")));
    EXPECT_EQ(before, snapshot());
    info.mlag_id = 1000;
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_set(5, &info));
    info = with_log_port(port_of(3), 65535); // a single port's MLAG id is not looked at
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_set(6, &info));
    EXPECT_EQ(65535, get(6).mlag_id);
}

TEST_F(port_records, set_keeps_a_new_record_byte_for_byte) {
    yb_net_port_info_t info = filled_with(0xA7);
    info.log_port = port_of(3);
    set(0x01020304, info);
    const net_lib_port_entry_t &entry = bucket(0x0304);
    EXPECT_EQ(0x01020304u, entry.sys_ifindex);
    EXPECT_EQ(0x0304u, entry.hash);
    EXPECT_EQ(0, entry.deleted);
    EXPECT_EQ(info, entry.info);
    EXPECT_EQ(info, get(0x01020304));
    EXPECT_THAT(take_lines(), IsEmpty());
}

TEST_F(port_records, set_again_with_nothing_given_leaves_the_record_alone) {
    yb_net_port_info_t info = filled_with(0xA7);
    info.log_port = port_of(3);
    set(5, info);
    yb_net_port_info_t nothing = {};
    nothing.attr_b = YB_NET_PORT_ATTR_B_NONE;
    set(5, nothing);
    EXPECT_EQ(info, get(5));
}

TEST_F(port_records, set_again_merges_each_field_by_itself) {
    using change = void (*)(yb_net_port_info_t &);
    const change changes[] = {[](auto &i) { i.attr_a = 1; },      [](auto &i) { i.attr_b = 0; },
                              [](auto &i) { i.attr_b = 254; },    [](auto &i) { i.attr_c = 1; },
                              [](auto &i) { i.protocol = 1; },    [](auto &i) { i.log_port = 1; },
                              [](auto &i) { i.attr_d[0] = 1; },   [](auto &i) { i.attr_d[1] = 1; },
                              [](auto &i) { i.attr_d[2] = 1; },   [](auto &i) { i.attr_e = 1; },
                              [](auto &i) { i.attr_f = 1; },      [](auto &i) { i.attr_g[0] = 1; },
                              [](auto &i) { i.attr_g[1] = 1; },   [](auto &i) { i.attr_g[2] = 1; },
                              [](auto &i) { i.attr_g[3] = 1; },   [](auto &i) { i.attr_h = 1; },
                              [](auto &i) { i.attr_i = 1; },      [](auto &i) { i.attr_e = 0x0100; },
                              [](auto &i) { i.attr_c = 1 << 24; }};
    for (size_t i = 0; i < std::size(changes); i++) {
        SCOPED_TRACE(i);
        yb_net_port_info_t expected = filled_with(0xA7);
        expected.log_port = port_of(3);
        (void)net_lib_db_port_remove(5);
        set(5, expected);
        yb_net_port_info_t given = {};
        given.attr_b = YB_NET_PORT_ATTR_B_NONE;
        changes[i](given);
        changes[i](expected);
        set(5, given);
        EXPECT_EQ(expected, get(5));
    }
}

TEST_F(port_records, set_again_leaves_reserved_bytes_and_the_lag_alone) {
    yb_net_port_info_t first = {};
    first.attr_b = YB_NET_PORT_ATTR_B_NONE;
    set(5, first);
    yb_net_port_info_t given = filled_with(0xA7);
    given.log_port = port_of(3);
    given.mlag_id = 77; // of a single port: not merged
    set(5, given);
    yb_net_port_info_t expected = given;
    memset(expected.reserved1, 0, sizeof(expected.reserved1));
    expected.reserved2 = 0;
    memset(expected.reserved3, 0, sizeof(expected.reserved3));
    memset(expected.reserved4, 0, sizeof(expected.reserved4));
    expected.lag_log_port = 0;
    expected.mlag_id = 0;
    EXPECT_EQ(expected, get(5));
}

// What it notes for whoever repairs goes into a bucket that is left as it was found, or nowhere.
TEST_F(port_records, set_again_leaves_the_reserved_bytes_of_other_buckets_alone) {
    set(5, with_log_port(port_of(9)));
    for (uint32_t i = 0; i < 65536; i++)
        memset(bucket(static_cast<uint16_t>(i)).reserved, 0x5A, sizeof(bucket(0).reserved));
    const auto before = snapshot();
    yb_net_port_info_t info = with_log_port(port_of(9));
    info.attr_i = 7;
    set(5, info);
    EXPECT_EQ(7u, get(5).attr_i);
    bucket(5).info.attr_i = 0;
    EXPECT_TRUE(before == snapshot());
}

TEST_F(port_records, set_again_merges_the_name_as_text_of_at_most_16_characters) {
    yb_net_port_info_t info = with_log_port(port_of(3));
    memcpy(info.name, "abcdefghijklmnop", 16); // fills the field
    set(5, info);
    EXPECT_EQ(0, memcmp(get(5).name, "abcdefghijklmnop", 16));
    memcpy(info.name, "xy\0trailing text", 16);
    set(5, info);
    EXPECT_EQ(0, memcmp(get(5).name, "xy\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16));
    memcpy(info.name, "\0not a name.....", 16);
    set(5, info);
    EXPECT_EQ(0, memcmp(get(5).name, "xy\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16));
    memcpy(info.name, "0123456789ABCDEF", 16);
    set(5, info);
    const yb_net_port_info_t out = get(5);
    EXPECT_EQ(0, memcmp(out.name, "0123456789ABCDEF", 16));
    EXPECT_EQ(0, out.attr_f);
}

TEST_F(port_records, set_merges_the_mlag_id_of_a_lag_only_with_its_logical_port) {
    set(5, with_log_port(lag_of(3), 7));
    set(5, with_log_port(0, 8)); // no logical port given: not a LAG
    EXPECT_EQ(7, get(5).mlag_id);
    set(5, with_log_port(lag_of(3), 0)); // 0 unbinds
    EXPECT_EQ(0, get(5).mlag_id);
}

TEST_F(port_records, set_clears_a_tombstone_that_it_reuses) {
    homes()[700] = 10;
    put(10, 1, 10);
    put(11, 0, 11, 1);
    set(700, with_log_port(port_of(3)));
    EXPECT_EQ(0, bucket(11).deleted);
    EXPECT_EQ(700u, bucket(11).sys_ifindex);
    EXPECT_EQ(10u, bucket(11).hash);
    EXPECT_EQ(700u, ifindex_of(port_of(3)));
}

TEST_F(port_records, set_puts_a_displaced_port_into_the_next_bucket) {
    homes()[700] = 10;
    homes()[1] = 10;
    homes()[2] = 11;
    for (const uint32_t key : {1u, 2u, 700u})
        set(key, with_log_port(port_of(key)));
    EXPECT_EQ(700u, bucket(11).sys_ifindex);
    EXPECT_EQ(2u, bucket(12).sys_ifindex);
    for (const uint32_t key : {1u, 2u, 700u}) {
        EXPECT_EQ(port_of(key), get(key).log_port);
        EXPECT_EQ(key, ifindex_of(port_of(key)));
    }
}

TEST_F(port_records, set_in_a_full_table_fails_flushes_and_leaves_the_maps_alone) {
    fill_table();
    homes()[700000] = 10;
    const yb_net_port_info_t info = with_log_port(lag_of(3), 7);
    const int before = flushes();
    EXPECT_EQ(YB_STATUS_ERROR, net_lib_db_port_set(700000, &info));
    EXPECT_THAT(
        take_lines(),
        ElementsAre(
            error_line("Netlib ports DB - port with sys_ifindex 0xaae60 cannot be setto the DB. "
                       "DB is full\n",
                       true),
            error_line("Netlib ports DB - cannot set hash table entry by sys_ifindex 700000\n", true)));
    EXPECT_EQ(before + 1, flushes());
    EXPECT_EQ(0u, ifindex_of(lag_of(3)));
    EXPECT_EQ(0, segment_body().lag_to_mlag[3]);
    EXPECT_EQ(0u, segment_body().mlag_to_lag[7]);
    EXPECT_EQ(0u, bucket(0).info.log_port); // nothing was written where no bucket was found
}

TEST_F(port_records, set_of_a_known_port_works_in_a_full_table) {
    fill_table();
    homes()[65536] = 65535;
    set(65536, with_log_port(port_of(9)));
    EXPECT_EQ(65536u, ifindex_of(port_of(9)));

    yb_net_port_info_t info = with_log_port(0);
    info.attr_i = 9;
    set(65536, info);
    EXPECT_EQ(9u, get(65536).attr_i);
    EXPECT_EQ(port_of(9), get(65536).log_port);
}

TEST_F(port_records, set_replaces_a_port_whose_hash_is_0_instead_of_merging) {
    homes()[700] = 0;
    homes()[800] = 0;
    yb_net_port_info_t info = with_log_port(port_of(3));
    info.attr_i = 5;
    set(700, info);
    EXPECT_EQ(5u, get(700).attr_i);
    set(700, with_log_port(port_of(3)));
    EXPECT_EQ(0u, get(700).attr_i);
    info.attr_i = 6;
    set(800, info); // takes the bucket over
    EXPECT_EQ(6u, get(700).attr_i);
    uint32_t size = 0;
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_ports_get_all(0, nullptr, &size));
    EXPECT_EQ(0u, size);
}

TEST_F(port_records, a_port_whose_hash_is_0_is_read_and_removed_in_its_neighbours_place) {
    homes()[1] = 65535;
    homes()[2] = 65535; // lies in bucket 0
    homes()[3] = 1;
    homes()[4] = 0; // takes bucket 1, and 3 goes on to bucket 2
    for (const uint32_t key : {1u, 2u, 3u, 4u})
        set(key, with_log_port(port_of(key)));
    EXPECT_EQ(4u, bucket(1).sys_ifindex);
    EXPECT_EQ(3u, bucket(2).sys_ifindex);
    EXPECT_EQ(port_of(4), get(3).log_port);
    EXPECT_NE(3u, ifindex_of(get(3).log_port)); // which is how a caller can tell
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_remove(3));
    EXPECT_EQ(0u, bucket(1).sys_ifindex);
    EXPECT_EQ(3u, bucket(2).sys_ifindex);
    EXPECT_EQ(0u, ifindex_of(port_of(4)));
    EXPECT_EQ(3u, ifindex_of(port_of(3)));
}

// ---- Remove -----------------------------------------------------------------

TEST_F(port_records, remove_refuses_the_key_0) {
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, net_lib_db_port_remove(0));
    EXPECT_THAT(take_lines(),
                ElementsAre(error_line("Netlib ports DB - cannot remove port with sys_ifindex==0\n")));
}

TEST_F(port_records, remove_leaves_a_tombstone_that_keeps_the_hash) {
    homes()[700] = 10;
    yb_net_port_info_t info = filled_with(0xA7);
    info.log_port = port_of(3);
    set(700, info);
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_remove(700));
    EXPECT_EQ(0u, bucket(10).sys_ifindex);
    EXPECT_EQ(yb_net_port_info_t{}, bucket(10).info);
    EXPECT_EQ(1, bucket(10).deleted);
    EXPECT_EQ(10u, bucket(10).hash);
    EXPECT_EQ(0u, ifindex_of(port_of(3)));
}

TEST_F(port_records, a_removed_port_goes_behind_its_own_tombstone_when_it_comes_back) {
    homes()[700] = 10;
    for (uint16_t round = 0; round < 3; round++) {
        set(700, with_log_port(port_of(3)));
        EXPECT_EQ(700u, bucket(static_cast<uint16_t>(10 + round)).sys_ifindex);
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_remove(700));
    }
    EXPECT_EQ(1, bucket(10).deleted);
    EXPECT_EQ(1, bucket(11).deleted);
    EXPECT_EQ(1, bucket(12).deleted);
}

TEST_F(port_records, ports_behind_a_removed_one_are_still_found) {
    for (const uint32_t key : {1u, 2u, 3u}) {
        homes()[key] = 10;
        set(key, with_log_port(port_of(key)));
    }
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_remove(2));
    EXPECT_EQ(port_of(3), get(3).log_port);
    EXPECT_EQ(3u, bucket(12).sys_ifindex); // nothing is shifted back
}

TEST_F(port_records, remove_of_a_lag_clears_its_slots) {
    set(5, with_log_port(lag_of(4), 9));
    segment_body().mlag_to_lag[8] = 0x11111111;
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_remove(5));
    EXPECT_EQ(0u, segment_body().lag_to_ifindex[4]);
    EXPECT_EQ(0, segment_body().lag_to_mlag[4]);
    EXPECT_EQ(0u, segment_body().mlag_to_lag[9]);
    EXPECT_EQ(0x11111111u, segment_body().mlag_to_lag[8]);
}

TEST_F(port_records, remove_of_a_lag_without_an_mlag_id_clears_its_ifindex_slot_only) {
    set(5, with_log_port(lag_of(4)));
    segment_body().lag_to_mlag[4] = 33;
    segment_body().mlag_to_lag[0] = 44;
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_remove(5));
    EXPECT_EQ(0u, segment_body().lag_to_ifindex[4]);
    EXPECT_EQ(33, segment_body().lag_to_mlag[4]);
    EXPECT_EQ(44u, segment_body().mlag_to_lag[0]);
}

TEST_F(port_records, remove_of_a_port_without_a_logical_port_leaves_the_maps_alone) {
    set(5, with_log_port(0, 9));
    segment_body().port_to_ifindex[0] = 77;
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_remove(5));
    EXPECT_EQ(77u, segment_body().port_to_ifindex[0]);
}

TEST_F(port_records, remove_of_a_port_that_was_never_set_succeeds_on_an_empty_bucket) {
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_remove(5));
    EXPECT_EQ(1, bucket(5).deleted);
    EXPECT_EQ(0u, bucket(5).hash);
    set(5, with_log_port(port_of(3))); // still empty: taken
    EXPECT_EQ(5u, bucket(5).sys_ifindex);
    EXPECT_EQ(0, bucket(5).deleted);
}

TEST_F(port_records, remove_says_twice_that_a_port_was_not_found) {
    const uint32_t key = unreachable_key();
    const auto before = snapshot();
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, net_lib_db_port_remove(key));
    EXPECT_EQ(lines_of_unreachable_key(), take_lines());
    EXPECT_EQ(before, snapshot());
}

// ---- Get --------------------------------------------------------------------

TEST_F(port_records, get_refuses_the_key_0) {
    yb_net_port_info_t out = filled_with(0xEE);
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, net_lib_db_port_get(0, &out));
    EXPECT_THAT(take_lines(),
                ElementsAre(error_line("Netlib ports DB - cannot get port with sys_ifindex==0\n")));
    EXPECT_EQ(filled_with(0xEE), out);
}

TEST_F(port_records, messages_have_a_large_key_unsigned) {
    homes()[0xFFFFFFFE] = 10;
    put(10, 1, 10);
    put(11, 2, 11);
    yb_net_port_info_t out;
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, net_lib_db_port_get(0xFFFFFFFE, &out));
    EXPECT_THAT(
        take_lines(),
        ElementsAre(
            error_line("Netlib ports DB - port with sys_ifindex 0xfffffffe cannot be found in the DB\n",
                       true),
            error_line("Netlib ports DB - cannot get hash table entry by sys_ifindex 4294967294\n", true)));
}

TEST_F(port_records, get_of_a_port_that_was_never_set_reads_zeros) {
    EXPECT_EQ(yb_net_port_info_t{}, get(5));
    EXPECT_THAT(take_lines(), IsEmpty());
}

TEST_F(port_records, get_says_twice_that_a_port_was_not_found) {
    yb_net_port_info_t out = filled_with(0xEE);
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, net_lib_db_port_get(unreachable_key(), &out));
    EXPECT_EQ(lines_of_unreachable_key(), take_lines());
    EXPECT_EQ(filled_with(0xEE), out);
}

} // namespace
