// SPDX-License-Identifier: Apache-2.0
//
// The maps of the ports database, what is looked up in them, and the lists of
// ports: every status and message, shared and unreachable slots, damaged
// records. The port records themselves: port_records_test.cc.
#include <algorithm>

#include "tests/unit/ports_fixture.h"

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class port_maps : public ports_test {};

// ---- Maps -------------------------------------------------------------------

TEST_F(port_maps, set_enters_a_single_port_in_the_port_map_only) {
    const auto before = snapshot();
    set(5, with_log_port(0x2ABCDE77, 9)); // type 2; bits 27..24 and 7..0 do not count
    EXPECT_EQ(5u, segment_body().port_to_ifindex[0xBCDE]);
    EXPECT_EQ(5u, ifindex_of(0x00BCDE00));
    segment_body().port_to_ifindex[0xBCDE] = 0;
    bucket(5) = {};
    EXPECT_EQ(before, snapshot());
}

TEST_F(port_maps, set_enters_a_lag_in_three_maps) {
    set(5, with_log_port(0x1ABCDE77, 9)); // LAG index 0xDE
    EXPECT_EQ(5u, segment_body().lag_to_ifindex[0xDE]);
    EXPECT_EQ(9, segment_body().lag_to_mlag[0xDE]);
    EXPECT_EQ(0x1ABCDE77u, segment_body().mlag_to_lag[9]);
    set(5, with_log_port(0x1ABCDE77, 0));
    EXPECT_EQ(5u, segment_body().lag_to_ifindex[0xDE]);
    EXPECT_EQ(0, segment_body().lag_to_mlag[0xDE]);
    EXPECT_EQ(0x1ABCDE77u, segment_body().mlag_to_lag[9]); // the id keeps pointing at the LAG
    EXPECT_EQ(0u, segment_body().mlag_to_lag[0]);
}

TEST_F(port_maps, set_enters_a_lag_without_an_mlag_id_too) {
    set(5, with_log_port(lag_of(4)));
    EXPECT_EQ(5u, ifindex_of(lag_of(4)));
}

TEST_F(port_maps, set_without_a_logical_port_leaves_the_maps_alone) {
    set(5, with_log_port(port_of(3)));
    set(6, with_log_port(0));
    set(5, with_log_port(0));
    EXPECT_EQ(0u, segment_body().port_to_ifindex[0]);
    EXPECT_EQ(5u, ifindex_of(port_of(3)));
}

TEST_F(port_maps, a_port_that_gets_another_logical_port_stays_under_the_old_one_too) {
    set(5, with_log_port(port_of(3)));
    set(5, with_log_port(port_of(4)));
    EXPECT_EQ(5u, ifindex_of(port_of(3)));
    EXPECT_EQ(5u, ifindex_of(port_of(4)));
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_remove(5));
    EXPECT_EQ(5u, ifindex_of(port_of(3)));
    EXPECT_EQ(0u, ifindex_of(port_of(4)));
}

TEST_F(port_maps, lag_index_255_and_port_index_0_share_a_slot) {
    set(5, with_log_port(lag_of(255), 12));
    EXPECT_EQ(5u, segment_body().port_to_ifindex[0]);
    EXPECT_EQ(5u, ifindex_of(0x20000001)); // port index 0
    EXPECT_EQ(12, segment_body().lag_to_mlag[255]);
    set(6, with_log_port(0x20000001));
    EXPECT_EQ(6u, ifindex_of(lag_of(255)));
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_remove(5)); // clears the slot, whoever set it last
    EXPECT_EQ(0u, ifindex_of(0x20000001));
    EXPECT_EQ(0u, segment_body().lag_to_ifindex[254]);
}

TEST_F(port_maps, the_last_slots_of_the_maps_are_in_reach) {
    set(5, with_log_port(port_of(65535)));
    set(6, with_log_port(lag_of(254), 1000));
    EXPECT_EQ(5u, segment_body().port_to_ifindex[65535]);
    EXPECT_EQ(6u, segment_body().lag_to_ifindex[254]);
    EXPECT_EQ(lag_of(254), segment_body().mlag_to_lag[1000]);
}

// ---- Damaged records --------------------------------------------------------

TEST_F(port_maps, remove_of_a_damaged_record_stays_inside_the_maps) {
    for (const uint32_t mlag_id : {1001u, 1002u, 1255u, 1256u, 65535u}) {
        SCOPED_TRACE(mlag_id);
        set(5, with_log_port(lag_of(4), 9));
        const auto before = snapshot();
        net_lib_port_entry_t &entry =
            *std::find_if(std::begin(segment_body().port_table), std::end(segment_body().port_table),
                          [](const auto &e) { return e.sys_ifindex == 5; });
        const net_lib_port_entry_t undamaged = entry;
        entry.info.mlag_id = static_cast<uint16_t>(mlag_id);
        memset(segment_body().lag_to_ifindex, 0x55, sizeof(segment_body().lag_to_ifindex));
        memset(segment_body().port_to_ifindex, 0x55, sizeof(segment_body().port_to_ifindex));
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_remove(5));
        EXPECT_EQ(0u, segment_body().lag_to_ifindex[4]);
        EXPECT_EQ(0, segment_body().lag_to_mlag[4]);
        segment_body().lag_to_ifindex[4] = 0x55555555;
        EXPECT_THAT(segment_body().lag_to_ifindex, Each(0x55555555u));
        EXPECT_THAT(segment_body().port_to_ifindex, Each(0x55555555u));

        // All else is as it was.
        entry = undamaged;
        memset(segment_body().lag_to_ifindex, 0, sizeof(segment_body().lag_to_ifindex));
        memset(segment_body().port_to_ifindex, 0, sizeof(segment_body().port_to_ifindex));
        segment_body().lag_to_ifindex[4] = 5;
        segment_body().lag_to_mlag[4] = 9;
        EXPECT_EQ(before, snapshot());
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_remove(5));
    }
}

TEST_F(port_maps, damaged_logical_ports_find_a_slot_inside_the_maps) {
    auto *const trailer = reinterpret_cast<uint8_t *>(&segment_body().trailer);
    const std::vector<uint8_t> before(trailer, trailer + sizeof(net_lib_db_trailer_t));
    for (const uint32_t log_port : {0xFFFFFFFFu, 0x1FFFFFFFu, 0x0FFFFFFFu, 0x10000001u}) {
        put(5, 5, 5);
        bucket(5).info.log_port = log_port;
        bucket(5).info.mlag_id = 0xFFFF;
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_remove(5));
        EXPECT_EQ(0u, ifindex_of(log_port));
    }
    EXPECT_EQ(before, std::vector<uint8_t>(trailer, trailer + sizeof(net_lib_db_trailer_t)));
}

// ---- Logical ports ----------------------------------------------------------

TEST_F(port_maps, log_port_get_checks_the_logical_port_before_the_pointer) {
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, net_lib_db_log_port_get(0, nullptr));
    EXPECT_EQ(YB_STATUS_PARAM_NULL, net_lib_db_log_port_get(1, nullptr));
    uint32_t out = 0xEE;
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, net_lib_db_log_port_get(0, &out));
    EXPECT_EQ(0xEEu, out);
    const said zero = error_line("Netlib ports DB - cannot get sys_ifindex with log_port==0\n");
    EXPECT_THAT(take_lines(), ElementsAre(zero, error_line("Netlib ports DB - sys_ifindex is NULL\n"), zero));
}

TEST_F(port_maps, log_port_get_of_an_unknown_one_writes_0_and_says_so_after_the_lock) {
    uint32_t out = 0xEE;
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, net_lib_db_log_port_get(0x1000AB00, &out));
    EXPECT_EQ(0u, out);
    EXPECT_THAT(
        take_lines(),
        ElementsAre(said{severity_info,
                         "Netlib ports DB - logical port 0x1000ab00 cannot be found in the DB\n", false}));
}

TEST_F(port_maps, log_port_get_reads_the_maps_alone) {
    segment_body().port_to_ifindex[3] = 1234;
    segment_body().lag_to_ifindex[3] = 5678;
    EXPECT_EQ(1234u, ifindex_of(port_of(3)));
    EXPECT_EQ(5678u, ifindex_of(lag_of(3)));
    put(5, 5, 5);
    bucket(5).info.log_port = port_of(9);
    EXPECT_EQ(0u, ifindex_of(port_of(9)));
}

// ---- LAGs and MLAGs ---------------------------------------------------------

TEST_F(port_maps, lag_get_takes_mlag_ids_from_1_to_1000) {
    uint32_t out = 0xEE;
    EXPECT_EQ(YB_STATUS_PARAM_EXCEEDS_RANGE, net_lib_db_lag_get(0, &out));
    EXPECT_EQ(YB_STATUS_PARAM_EXCEEDS_RANGE, net_lib_db_lag_get(1001, &out));
    EXPECT_EQ(YB_STATUS_PARAM_EXCEEDS_RANGE, net_lib_db_lag_get(65535, &out));
    EXPECT_EQ(0xEEu, out);
    EXPECT_THAT(take_lines(),
                ElementsAre(error_line("Netlib ports DB - mlag_id 0 is out of range (1-1000)\n"),
                            error_line("Netlib ports DB - mlag_id 1001 is out of range (1-1000)\n"),
                            error_line("Netlib ports DB - mlag_id 65535 is out of range (1-1000)\n")));
}

TEST_F(port_maps, lag_get_says_not_bound_of_ids_that_are_bound) {
    uint32_t out = 0xEE;
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_lag_get(1000, &out));
    EXPECT_EQ(0u, out);
    EXPECT_THAT(take_lines(), IsEmpty());
    set(5, with_log_port(lag_of(4), 1000));
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_lag_get(1000, &out));
    EXPECT_EQ(lag_of(4), out);
    EXPECT_THAT(take_lines(),
                ElementsAre(said{severity_notice,
                                 "Netlib ports DB - MLAG ID 1000 is not bound to any LAG port\n", true}));
}

TEST_F(port_maps, mlag_get_takes_lags_only) {
    uint16_t out = 0xEE;
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, net_lib_db_mlag_get(0, &out));
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, net_lib_db_mlag_get(0x2000AB00, &out));
    EXPECT_EQ(0xEE, out);
    EXPECT_THAT(take_lines(),
                ElementsAre(error_line("Netlib ports DB - log port 0x0 is not a LAG port\n"),
                            error_line("Netlib ports DB - log port 0x2000ab00 is not a LAG port\n")));
}

TEST_F(port_maps, mlag_get_says_not_bound_of_lags_that_are_bound) {
    uint16_t out = 0xEE;
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_mlag_get(lag_of(0xAB), &out));
    EXPECT_EQ(0, out);
    EXPECT_THAT(take_lines(), IsEmpty());
    set(5, with_log_port(lag_of(0xAB), 77));
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_mlag_get(lag_of(0xAB), &out));
    EXPECT_EQ(77, out);
    EXPECT_THAT(take_lines(),
                ElementsAre(said{severity_notice,
                                 "Netlib ports DB - LAG ID 0x1000ab00 is not bound to any MLAG\n", true}));
}

TEST_F(port_maps, lag_set_checks_the_key_before_the_logical_port) {
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, net_lib_db_port_lag_set(0, 0x2000AB00));
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, net_lib_db_port_lag_set(5, 0x2000AB00));
    EXPECT_THAT(take_lines(),
                ElementsAre(error_line("Netlib ports DB - cannot get port with sys_ifindex 0\n"),
                            error_line("Netlib ports DB - log port 0x2000ab00 is not a LAG port\n")));
}

TEST_F(port_maps, lag_set_binds_and_unbinds_a_port_and_touches_no_map) {
    yb_net_port_info_t info = filled_with(0xA7);
    info.log_port = port_of(3);
    set(5, info);
    const auto before = snapshot();
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_lag_set(5, lag_of(4)));
    info.lag_log_port = lag_of(4);
    EXPECT_EQ(info, get(5));
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_lag_set(5, 0));
    EXPECT_EQ(0u, get(5).lag_log_port);
    bucket(5).info.lag_log_port = 0xA7A7A7A7;
    EXPECT_EQ(before, snapshot());
}

TEST_F(port_maps, lag_set_of_a_port_that_was_never_set_writes_into_the_empty_bucket) {
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_lag_set(5, lag_of(4)));
    EXPECT_EQ(lag_of(4), bucket(5).info.lag_log_port);
    EXPECT_EQ(0u, bucket(5).hash);
    EXPECT_EQ(lag_of(4), get(0x10005).lag_log_port); // another unknown port's search ends there too
    set(5, with_log_port(port_of(3)));
    EXPECT_EQ(0u, get(5).lag_log_port);
}

TEST_F(port_maps, lag_set_says_twice_that_a_port_was_not_found) {
    const uint32_t key = unreachable_key();
    const auto before = snapshot();
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, net_lib_db_port_lag_set(key, lag_of(4)));
    EXPECT_EQ(lines_of_unreachable_key(), take_lines());
    EXPECT_EQ(before, snapshot());
}

// ---- Lists ------------------------------------------------------------------

TEST_F(port_maps, get_all_checks_the_size_before_the_protocol) {
    EXPECT_EQ(YB_STATUS_ERROR, net_lib_db_ports_get_all(3, nullptr, nullptr));
    uint32_t size = 5;
    EXPECT_EQ(YB_STATUS_PARAM_EXCEEDS_RANGE, net_lib_db_ports_get_all(3, nullptr, &size));
    EXPECT_EQ(YB_STATUS_PARAM_EXCEEDS_RANGE, net_lib_db_ports_get_all(0xFFFFFFFF, nullptr, &size));
    EXPECT_EQ(5u, size);
    EXPECT_THAT(take_lines(), ElementsAre(error_line("Netlib ports DB - size parameter is NULL\n"),
                                          error_line("Netlib ports DB - invalid protocol 3 given"),
                                          error_line("Netlib ports DB - invalid protocol -1 given")));
}

class port_lists : public ports_test {
  protected:
    // Ports in four buckets, a tombstone and an empty bucket between them.
    void SetUp() override {
        ports_test::SetUp();
        put(2, 102, 2);
        bucket(2).info.protocol = 1;
        put(3, 0, 3, 1);
        put(5, 105, 5);
        bucket(5).info.protocol = 2;
        put(6, 106, 0);
        bucket(6).info.protocol = 1;
        put(7, 107, 7);
        put(65535, 135, 65535);
        bucket(65535).info.protocol = 1;
    }
    // Keys of what get_all yields; at most size.
    static std::vector<uint32_t> list(uint32_t protocol, uint32_t size) {
        std::vector<yb_net_port_info_t> array(std::max(size, 1u) + 1, filled_with(0xEE));
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_ports_get_all(protocol, array.data(), &size));
        std::vector<uint32_t> keys;
        for (size_t i = 0; i < array.size(); i++) {
            if (i < size)
                keys.push_back(array[i].attr_i);
            else
                EXPECT_EQ(filled_with(0xEE), array[i]) << i;
        }
        return keys;
    }
    static uint32_t count(uint32_t protocol, uint32_t size) {
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_ports_get_all(protocol, nullptr, &size));
        return size;
    }
};

TEST_F(port_lists, skip_tombstones_and_empty_buckets_and_come_in_the_tables_order) {
    EXPECT_THAT(list(0, 10), ElementsAre(102, 105, 107, 135));
}

TEST_F(port_lists, are_filtered_by_protocol) {
    EXPECT_THAT(list(1, 10), ElementsAre(102, 135));
    EXPECT_THAT(list(2, 10), ElementsAre(105));
}

TEST_F(port_lists, end_at_the_callers_size) {
    EXPECT_THAT(list(0, 4), ElementsAre(102, 105, 107, 135));
    EXPECT_THAT(list(0, 3), ElementsAre(102, 105, 107));
    EXPECT_THAT(list(0, 2), ElementsAre(102, 105));
    EXPECT_THAT(list(0, 1), ElementsAre(102));
    EXPECT_THAT(list(1, 1), ElementsAre(102));
}

TEST_F(port_lists, with_a_size_of_0_still_take_the_first_port) {
    EXPECT_THAT(list(0, 0), ElementsAre(102));
    EXPECT_THAT(list(2, 0), ElementsAre(105));
}

TEST_F(port_lists, with_a_size_of_0_take_nothing_where_nothing_matches) {
    bucket(5) = {};
    EXPECT_THAT(list(2, 0), IsEmpty());
}

TEST_F(port_lists, without_an_array_are_counted_whatever_the_size) {
    EXPECT_EQ(4u, count(0, 0));
    EXPECT_EQ(4u, count(0, 1));
    EXPECT_EQ(4u, count(0, 100));
    EXPECT_EQ(2u, count(1, 1));
}

TEST_F(port_lists, may_be_as_long_as_the_table) {
    for (uint32_t i = 0; i <= 65535; i++)
        put(static_cast<uint16_t>(i), i + 1, 1);
    EXPECT_EQ(65536u, list(0, 65536).size());
    EXPECT_EQ(65535u, list(0, 65535).size());
    EXPECT_EQ(65536u, count(0, 0));
    // A size that promises more than the table holds is not taken at its word.
    std::vector<yb_net_port_info_t> array(65536);
    uint32_t size = 0xFFFFFFFF;
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_ports_get_all(0, array.data(), &size));
    EXPECT_EQ(65536u, size);
    EXPECT_EQ(65536u, array[65535].attr_i);
}

} // namespace
