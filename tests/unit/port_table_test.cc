// SPDX-License-Identifier: Apache-2.0
//
// Where the port hash table puts a key and where it looks for one. Each rule
// that departs from the textbook has a test that a repaired table fails: other
// processes of the stack follow the same rules on the same memory.
#include "net_lib_db/port_table.h"

#include "net_lib_db/port_change.h"

#include "tests/unit/ports_fixture.h"
#include "ybnet/platform/yb_util.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct crc_call {
    const void *work_area;
    std::vector<uint8_t> data;
    uint16_t parameter;
    bool area_was_zero;
};
std::vector<crc_call> crc_calls;

uint16_t record_crc_call(void *work_area, const uint8_t *data, uint32_t length, uint16_t parameter) {
    auto *const bytes = static_cast<uint8_t *>(work_area);
    bool zero = true;
    for (size_t i = 0; i < YB_CRC_WORK_AREA_SIZE; i++)
        zero = zero && bytes[i] == 0;
    crc_calls.push_back({work_area, {data, data + length}, parameter, zero});
    memset(bytes, 0xA5, YB_CRC_WORK_AREA_SIZE); // a whole work area is the function's to use
    return 9;
}

class port_table : public ports_test {
  protected:
    struct result {
        yb_status_t status;
        uint16_t index;
        net_lib_port_entry_t *existing;
        net_lib_port_entry_t scratch;
    };

    // A record that is recognised by its key, as put() makes them.
    static result set(uint32_t key) {
        result r = {99, 0xABCD, nullptr, {}};
        yb_net_port_info_t info = {};
        info.attr_i = key;
        r.status = __net_lib_hashtable_entry_set(key, &info, &r.scratch, &r.index, &r.existing);
        return r;
    }
    // What the caller does with a result.
    static void fill(const result &r) {
        port_fill(bucket(r.index), r.scratch, false);
    }
    static result get(uint32_t key) {
        result r = {99, 0xABCD, nullptr, {}};
        r.status = __net_lib_hashtable_entry_get(key, &r.index);
        return r;
    }
    static std::vector<uint32_t> keys(uint16_t from, uint16_t to) {
        std::vector<uint32_t> found;
        for (uint16_t i = from; i != static_cast<uint16_t>(to + 1); i++)
            found.push_back(bucket(i).sys_ifindex);
        return found;
    }
};

// Before every other test that hashes, so that the areas are as the process starts with them.
TEST_F(port_table, hashes_the_keys_bytes_in_one_zeroed_work_area_for_each_operation) {
    crc_calls.clear();
    platform::crc_override() = record_crc_call;
    EXPECT_EQ(9, set(0x01020304).scratch.hash);
    EXPECT_EQ(9, get(0x0A0B0C0D).index);
    (void)set(1);
    (void)get(1);
    ASSERT_EQ(4u, crc_calls.size());
    EXPECT_THAT(crc_calls[0].data, ElementsAre(4, 3, 2, 1));
    EXPECT_THAT(crc_calls[1].data, ElementsAre(0x0D, 0x0C, 0x0B, 0x0A));
    for (const crc_call &call : crc_calls)
        EXPECT_EQ(0x8D95, call.parameter);
    EXPECT_TRUE(crc_calls[0].area_was_zero);
    EXPECT_TRUE(crc_calls[1].area_was_zero);
    EXPECT_NE(crc_calls[0].work_area, crc_calls[1].work_area);
    EXPECT_EQ(crc_calls[0].work_area, crc_calls[2].work_area);
    EXPECT_EQ(crc_calls[1].work_area, crc_calls[3].work_area);
    EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(crc_calls[0].work_area) % alignof(uint32_t));
    EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(crc_calls[1].work_area) % alignof(uint32_t));
}

// ---- Set --------------------------------------------------------------------

TEST_F(port_table, set_names_the_home_bucket_and_writes_only_the_scratch_buffer) {
    homes()[700] = 10;
    const auto before = snapshot();
    const result r = set(700);
    EXPECT_EQ(YB_STATUS_SUCCESS, r.status);
    EXPECT_EQ(10, r.index);
    EXPECT_EQ(nullptr, r.existing);
    EXPECT_EQ(10u, r.scratch.hash);
    EXPECT_EQ(700u, r.scratch.sys_ifindex);
    EXPECT_EQ(700u, r.scratch.info.attr_i);
    EXPECT_EQ(before, snapshot());
}

TEST_F(port_table, set_points_at_the_entry_that_holds_the_key) {
    homes()[700] = 10;
    put(10, 5, 10);
    put(11, 700, 10);
    const result r = set(700);
    EXPECT_EQ(YB_STATUS_SUCCESS, r.status);
    EXPECT_EQ(11, r.index);
    EXPECT_EQ(&bucket(11), r.existing);
}

TEST_F(port_table, set_does_not_take_the_same_key_under_another_hash_for_the_entry) {
    homes()[700] = 10;
    put(10, 700, 11);      // its home would be the next bucket
    put(11, 700, 0x1000A); // 10 in its low 16 bits only
    const result r = set(700);
    EXPECT_EQ(12, r.index);
    EXPECT_EQ(nullptr, r.existing);
}

TEST_F(port_table, set_passes_residents_that_are_as_far_from_home) {
    homes()[700] = 10;
    put(10, 1, 10);
    put(11, 2, 10);
    EXPECT_EQ(12, set(700).index);
    EXPECT_THAT(keys(10, 12), ElementsAre(1, 2, 0));
}

TEST_F(port_table, set_moves_a_nearer_resident_on_and_names_its_bucket) {
    homes()[700] = 10;
    put(10, 1, 10);
    put(11, 2, 11);
    bucket(11).info.attr_i = 222;
    const result r = set(700);
    EXPECT_EQ(11, r.index);
    EXPECT_EQ(nullptr, r.existing);
    EXPECT_EQ(10u, r.scratch.hash);
    EXPECT_EQ(700u, r.scratch.info.attr_i);
    EXPECT_EQ(2u, bucket(12).sys_ifindex);
    EXPECT_EQ(11u, bucket(12).hash);
    EXPECT_EQ(222u, bucket(12).info.attr_i);
    EXPECT_EQ(0, bucket(12).deleted);
    fill(r);
    EXPECT_THAT(keys(10, 13), ElementsAre(1, 700, 2, 0));
    EXPECT_EQ(0, bucket(11).deleted);
}

TEST_F(port_table, set_goes_on_with_the_keys_probes_after_an_exchange) {
    homes()[700] = 10;
    put(10, 1, 10);
    put(11, 2, 11);
    put(12, 3,
        11); // at distance 1: not nearer than key 2 would be there, but nearer than key 700's two probes
    fill(set(700));
    EXPECT_THAT(keys(10, 13), ElementsAre(1, 700, 2, 3));
}

TEST_F(port_table, set_looks_for_the_carried_key_under_the_home_of_the_key_being_set) {
    homes()[700] = 10;
    put(10, 1, 10);
    put(11, 2, 11);
    put(12, 2, 11); // a second copy of the key that bucket 11 gives up; its hash is not 700's home
    const result r = set(700);
    EXPECT_EQ(nullptr, r.existing);
    fill(r);
    EXPECT_THAT(keys(10, 13), ElementsAre(1, 700, 2, 2));
}

TEST_F(port_table, set_finds_the_carried_key_where_its_hash_is_the_home_of_the_key_being_set) {
    homes()[700] = 10;
    put(10, 1, 10);
    put(11, 2, 11);
    put(12, 2, 10); // only a damaged table has this
    const result r = set(700);
    EXPECT_EQ(&bucket(12), r.existing);
    EXPECT_EQ(12, r.index);
    EXPECT_THAT(keys(10, 12), ElementsAre(1, 700, 2));
}

TEST_F(port_table, set_goes_around_from_the_last_bucket_to_the_first) {
    homes()[700] = 65535;
    put(65535, 1, 65535);
    put(0, 2, 65535); // one step from home, as far as key 700 is here
    put(1, 3, 1);     // at home, where key 700 has come two steps
    fill(set(700));
    EXPECT_THAT(keys(65535, 2), ElementsAre(1, 2, 700, 3));
}

TEST_F(port_table, set_reuses_a_tombstone_that_is_nearer_to_its_home_than_the_key) {
    homes()[700] = 10;
    put(10, 1, 10);
    put(11, 0, 11, 1);
    const auto before = snapshot();
    const result r = set(700);
    EXPECT_EQ(11, r.index);
    EXPECT_EQ(700u, r.scratch.sys_ifindex);
    EXPECT_EQ(before, snapshot());
}

TEST_F(port_table, set_passes_a_tombstone_that_is_not_nearer_to_its_home_than_the_key) {
    homes()[700] = 10;
    put(10, 0, 10, 1); // its own, perhaps
    put(11, 0, 10, 1);
    EXPECT_EQ(12, set(700).index);
}

TEST_F(port_table, set_lets_a_carried_port_have_the_tombstone) {
    homes()[700] = 10;
    put(10, 1, 10);
    put(11, 2, 11);
    put(12, 0, 11, 1);
    const result r = set(700);
    EXPECT_EQ(11, r.index);
    fill(r);
    EXPECT_THAT(keys(10, 12), ElementsAre(1, 700, 2));
    EXPECT_EQ(0, bucket(12).deleted);
}

TEST_F(port_table, set_counts_any_deleted_byte_but_0_as_a_tombstone) {
    homes()[700] = 10;
    put(10, 1, 10);
    put(11, 0, 11, 0x80);
    EXPECT_EQ(11, set(700).index);
}

TEST_F(port_table, set_takes_a_bucket_with_hash_0_for_empty_whatever_it_holds) {
    homes()[700] = 0;
    put(0, 55, 0);
    EXPECT_EQ(0, set(700).index);
    EXPECT_EQ(nullptr, set(55).existing);
    put(0, 0, 0, 1);
    EXPECT_EQ(0, set(700).index);
}

TEST_F(port_table, set_measures_distances_in_16_bits) {
    homes()[700] = 10;
    put(10, 1, 0x5000A);
    put(11, 2, 0x5000A); // no bucket's hash, but 1 step from home in 16 bits
    EXPECT_EQ(12, set(700).index);
    EXPECT_THAT(keys(10, 12), ElementsAre(1, 2, 0));
}

TEST_F(port_table, set_fails_when_the_table_is_full_of_ports_at_their_homes) {
    for (uint32_t i = 1; i <= 65535; i++)
        put(static_cast<uint16_t>(i), i, i);
    put(0, 65536, 65535); // the one that was displaced last
    homes()[700000] = 10;
    const result r = set(700000);
    EXPECT_EQ(YB_STATUS_ERROR, r.status);
    EXPECT_EQ(0xABCD, r.index);
    EXPECT_EQ(nullptr, r.existing);
    EXPECT_THAT(take_lines(), ElementsAre(said{severity_error,
                                               "Netlib ports DB - port with sys_ifindex 0xaae60 cannot be "
                                               "setto the DB. DB is full\n",
                                               false}));
    // Once around, every resident moved by one: home and probes stayed those of the key.
    EXPECT_THAT(keys(9, 13), ElementsAre(8, 10, 700000, 11, 12));
    EXPECT_EQ(9u, r.scratch.sys_ifindex);
}

TEST_F(port_table, set_fails_when_no_tombstone_is_near_enough) {
    for (uint32_t i = 0; i <= 65535; i++)
        put(static_cast<uint16_t>(i), 0, 10, 1);
    bucket(5).hash = 11; // 65,530 steps from its home; the key has come 65,531 there
    homes()[700] = 10;
    homes()[800] = 11;
    EXPECT_EQ(5, set(700).index);
    bucket(5).hash = 10;
    EXPECT_EQ(YB_STATUS_ERROR, set(700).status);
    EXPECT_EQ(YB_STATUS_SUCCESS, set(800).status); // reaches bucket 10, a tombstone at its home
    EXPECT_EQ(10, set(800).index);
}

// ---- Get --------------------------------------------------------------------

TEST_F(port_table, get_finds_a_key_past_others) {
    homes()[700] = 10;
    put(10, 1, 10);
    put(11, 2, 10);
    put(12, 700, 10);
    EXPECT_EQ(YB_STATUS_SUCCESS, get(700).status);
    EXPECT_EQ(12, get(700).index);
    EXPECT_THAT(take_lines(), IsEmpty());
}

TEST_F(port_table, get_passes_tombstones_that_are_as_far_from_home) {
    homes()[700] = 10;
    put(10, 0, 10, 1);
    put(11, 0, 10, 1);
    put(12, 700, 10);
    EXPECT_EQ(12, get(700).index);
}

TEST_F(port_table, get_goes_around_from_the_last_bucket_to_the_first) {
    homes()[700] = 65534;
    put(65534, 1, 65534);
    put(65535, 2, 65534);
    put(0, 700, 65534);
    EXPECT_EQ(YB_STATUS_SUCCESS, get(700).status);
    EXPECT_EQ(0, get(700).index);
}

TEST_F(port_table, get_succeeds_with_the_empty_bucket_that_ends_the_search) {
    homes()[700] = 10;
    EXPECT_EQ(YB_STATUS_SUCCESS, get(700).status);
    EXPECT_EQ(10, get(700).index);
    put(10, 1, 10);
    EXPECT_EQ(YB_STATUS_SUCCESS, get(700).status);
    EXPECT_EQ(11, get(700).index);
    EXPECT_THAT(take_lines(), IsEmpty());
}

TEST_F(port_table, get_succeeds_with_the_bucket_of_a_key_whose_hash_is_0) {
    homes()[700] = 0;
    put(0, 700, 0);
    EXPECT_EQ(YB_STATUS_SUCCESS, get(700).status);
    EXPECT_EQ(0, get(700).index);
}

TEST_F(port_table, get_does_not_find_a_key_that_would_have_taken_a_residents_place) {
    homes()[0x7B] = 10;
    put(10, 1, 10);
    put(11, 2, 11);
    put(12, 0x7B, 10); // behind a nearer resident: out of reach
    const result r = get(0x7B);
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, r.status);
    EXPECT_EQ(0xABCD, r.index);
    EXPECT_THAT(
        take_lines(),
        ElementsAre(said{severity_error,
                         "Netlib ports DB - port with sys_ifindex 0x7b cannot be found in the DB\n", false}));
}

TEST_F(port_table, get_is_ended_by_a_nearer_tombstone_too) {
    homes()[700] = 10;
    put(10, 1, 10);
    put(11, 0, 11, 1);
    put(12, 700, 10);
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, get(700).status);
}

TEST_F(port_table, get_does_not_take_the_same_key_under_another_hash) {
    homes()[700] = 10;
    put(10, 700, 0x1000A);
    EXPECT_EQ(11, get(700).index);
}

TEST_F(port_table, get_gives_up_after_one_turn) {
    for (uint32_t i = 0; i <= 65535; i++)
        put(static_cast<uint16_t>(i), i + 1000, 10);
    homes()[70] = 10;
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, get(70).status);
    EXPECT_EQ(1u, take_lines().size());
    bucket(9).sys_ifindex = 70; // the last one looked at
    EXPECT_EQ(YB_STATUS_SUCCESS, get(70).status);
    EXPECT_EQ(9, get(70).index);
}

TEST_F(port_table, get_refuses_a_null_index) {
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, __net_lib_hashtable_entry_get(700, nullptr));
    EXPECT_THAT(take_lines(), ElementsAre(said{severity_error, "Received NULL pointer.\n", false}));
}

} // namespace
