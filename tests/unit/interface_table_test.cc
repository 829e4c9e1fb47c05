// SPDX-License-Identifier: Apache-2.0
//
// The table of interface records as a whole: which slot an addition takes, what
// counts as a duplicate, and what happens when all 4096 slots are in use.
#include "tests/unit/interfaces_fixture.h"

#include "net_lib_db/interfaces_segment.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class interface_table : public interfaces_test {
  protected:
    static said duplicate(const std::string &sys_ifindex, const std::string &linux_ifindex,
                          const std::string &ns = "") {
        return error("Interface with system ifindex " + sys_ifindex + " or linux_ifindex " + linux_ifindex +
                         " in namespace " + ns + " already exists in the Net-lib Interfaces DB\n",
                     true);
    }
    static void fill() {
        for (uint32_t i = 0; i < 4096; i++)
            ASSERT_EQ(YB_STATUS_SUCCESS, try_add(100000 + i, 1 + i));
    }
};

// ---- Duplicates ----

TEST_F(interface_table, refuses_a_system_ifindex_that_exists_even_with_another_linux_ifindex) {
    add(1, 2, block("a"));
    const std::vector<uint8_t> before = all_records();
    EXPECT_EQ(22u, try_add(1, 3, block("b")));
    EXPECT_THAT(take_lines(), ElementsAre(duplicate("1", "3", "b")));
    EXPECT_EQ(before, all_records());
}

TEST_F(interface_table, refuses_a_linux_ifindex_that_exists_in_the_same_namespace) {
    add(1, 2, block("a"));
    EXPECT_EQ(22u, try_add(3, 2, block("a")));
    EXPECT_THAT(take_lines(), ElementsAre(duplicate("3", "2", "a")));
    EXPECT_EQ(YB_STATUS_SUCCESS, try_add(3, 2, block("b"))) << "another namespace, another netdev";
    EXPECT_EQ(YB_STATUS_SUCCESS, try_add(4, 2, block(""))) << "the default one is one more";
    EXPECT_EQ(YB_STATUS_SUCCESS, try_add(5, 3, block("a")));
}

TEST_F(interface_table, prints_the_system_ifindex_signed_and_the_linux_ifindex_unsigned) {
    add(0xFFFFFFFE, 0xFFFFFFFD);
    EXPECT_EQ(22u, try_add(0xFFFFFFFE, 0xFFFFFFFD));
    EXPECT_THAT(take_lines(), ElementsAre(duplicate("-2", "4294967293")));
}

TEST_F(interface_table, compares_vrfs_only_when_the_new_block_says_exactly_1) {
    add(1, 2, block("a", "red", 1));
    EXPECT_EQ(YB_STATUS_SUCCESS, try_add(10, 2, block("a", "blue", 1))) << "valid, and the names differ";
    EXPECT_EQ(22u, try_add(11, 2, block("a", "red", 1))) << "valid, and they are the same";
    EXPECT_EQ(22u, try_add(12, 2, block("a", "green", 0))) << "not valid: not compared";
    EXPECT_EQ(22u, try_add(13, 2, block("a", "green", 2))) << "2 is not 1";
    EXPECT_EQ(22u, try_add(14, 2, block("a", "green", 0x80000001)));
}

TEST_F(interface_table, compares_the_vrf_names_of_records_whose_own_flag_is_0_too) {
    add(1, 2, block("a", "red", 0));
    EXPECT_EQ(22u, try_add(3, 2, block("a", "red", 1)));
    EXPECT_EQ(YB_STATUS_SUCCESS, try_add(3, 2, block("a", "blue", 1)));
}

TEST_F(interface_table, refuses_a_system_ifindex_that_exists_whatever_the_vrf) {
    add(1, 2, block("a", "red", 1));
    EXPECT_EQ(22u, try_add(1, 3, block("b", "blue", 1)));
}

TEST_F(interface_table, finds_a_duplicate_in_the_last_slot_behind_free_ones) {
    fill();
    for (const uint32_t gone : {100000u, 102000u})
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_remove(gone));
    EXPECT_EQ(22u, try_add(104095, 9999));
    EXPECT_EQ(22u, try_add(9999, 4096));
}

TEST_F(interface_table, tells_namespaces_apart_that_share_a_beginning) {
    add(1, 2, block("ns1"));
    EXPECT_EQ(YB_STATUS_SUCCESS, try_add(3, 2, block("ns10")));
    EXPECT_EQ(YB_STATUS_SUCCESS, try_add(4, 2, block("ns")));
}

TEST_F(interface_table, ignores_what_stands_behind_a_names_nul) {
    yb_net_interface_params_t dirty = block("ns1", "red", 1);
    memcpy(dirty.ns_name + 4, "old", 3);
    memcpy(dirty.vrf_name + 4, "old", 3);
    add(1, 2, dirty);
    EXPECT_EQ(22u, try_add(3, 2, block("ns1", "red", 1)));
}

TEST_F(interface_table, compares_names_without_nul_up_to_their_fields_end) {
    const std::string ns(32, 'n');
    const std::string vrf(16, 'v');
    add(1, 2, block(ns, vrf, 1)); // "vvv..." stands right behind "nnn...", vrf_valid behind that
    EXPECT_EQ(22u, try_add(3, 2, block(ns, vrf, 1)));
    EXPECT_THAT(take_lines(), ElementsAre(duplicate("3", "2", ns))) << "32 characters, and no more";
    EXPECT_EQ(YB_STATUS_SUCCESS, try_add(4, 2, block(ns, std::string(15, 'v') + "w", 1)));
    EXPECT_EQ(YB_STATUS_SUCCESS, try_add(5, 2, block(std::string(31, 'n') + "m", vrf, 1)));
    EXPECT_EQ(YB_STATUS_SUCCESS, try_add(6, 2, block(std::string(31, 'n'), vrf, 1)));
    EXPECT_EQ(22u, try_add(7, 2, block(ns, "", 0)));
}

// ---- Slots ----

TEST_F(interface_table, fills_its_first_free_slot) {
    for (uint32_t i = 0; i < 5; i++)
        add(10 + i, 20 + i);
    for (const uint32_t gone : {13u, 11u})
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_remove(gone));
    const auto key_in = [this](size_t db_index) { return view().word(record_at(db_index)); };
    add(31, 41);
    EXPECT_EQ(31u, key_in(1));
    add(32, 42);
    EXPECT_EQ(32u, key_in(3));
    add(33, 43);
    EXPECT_EQ(33u, key_in(5));
}

TEST_F(interface_table, writes_every_byte_of_a_record_into_a_slot_used_before) {
    const yb_net_interface_params_t full = block_filled_with(1);
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_add_full(1, 2, &full, 3, 4, 1));
    view().set_byte(112, 0); // freed with all its bytes in place
    ASSERT_EQ(YB_STATUS_SUCCESS, try_add(5, 6));
    const yb_net_interface_params_t empty = block();
    const yb_net_interface_record_t record = get(5);
    EXPECT_EQ(0, memcmp(&empty, &record.params, sizeof(empty)));
    EXPECT_EQ(0xFFFF, record.rif);
    EXPECT_EQ(255, record.vrid);
}

TEST_F(interface_table, refuses_the_4097th_record_with_5) {
    fill();
    EXPECT_THAT(take_lines(), IsEmpty());
    const std::vector<uint8_t> before = all_records();
    calls::reset();
    EXPECT_EQ(5u, try_add(1, 99999));
    EXPECT_THAT(take_lines(),
                ElementsAre(error("Net-lib Interfaces DB is full, cannot add a new entry\n", true)));
    EXPECT_EQ(1, calls::count("msync")) << "flushed all the same";
    EXPECT_EQ(before, all_records());
    EXPECT_EQ(4096u, get(104095).linux_ifindex) << "the last slot is one";
}

TEST_F(interface_table, that_is_full_takes_the_next_record_into_a_freed_slot) {
    fill();
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_remove(100000 + 1234));
    add(1, 99999);
    EXPECT_EQ(1u, view().word(record_at(1234)));
    EXPECT_EQ(5u, try_add(2, 99998));
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_remove(104095));
    add(2, 99998);
    EXPECT_EQ(2u, view().word(record_at(4095)));
}

TEST_F(interface_table, that_is_full_still_tells_a_duplicate_first) {
    fill();
    EXPECT_EQ(22u, try_add(100007, 99999));
    EXPECT_EQ(22u, try_add(1, 8));
}

// ---- Repaired ----

TEST_F(interface_table, that_is_repaired_keeps_what_an_erasing_leaves_and_clears_what_only_looks_like_it) {
    const auto set_none = [this](size_t db_index, std::vector<size_t> offsets) {
        for (const size_t offset : offsets)
            view().fill(record_at(db_index) + offset, record_at(db_index) + offset + 1, 0xFF);
    };
    const size_t rif = offsetof(yb_net_interface_record_t, rif);
    const size_t vrid = offsetof(yb_net_interface_record_t, vrid);
    for (size_t index = 0; index < 3; index++)
        view().fill(record_at(index), record_at(index + 1), 0);
    set_none(0, {rif, rif + 1, vrid});
    set_none(1, {rif, rif + 1});
    const std::vector<uint8_t> erased = record_bytes(0);
    const std::vector<uint8_t> removed(record_bytes(2));

    interfaces_segment.description.repair_body(interfaces_segment.body);
    EXPECT_EQ(erased, record_bytes(0));
    EXPECT_EQ(removed, record_bytes(1)) << "one of the two values alone was left by a change";
    EXPECT_EQ(removed, record_bytes(2));
    EXPECT_THAT(
        take_lines(),
        ElementsAre(said{3, "Net-lib interfaces DB - record 1 was left half changed: it is free\n", false}));
}

} // namespace
