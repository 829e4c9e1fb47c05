// SPDX-License-Identifier: Apache-2.0
//
// Adding, changing and removing interface records: the bytes in the table, the
// statuses, and what is flushed. Duplicates and the full table are
// interface_table_test.cc's.
#include "tests/unit/interfaces_fixture.h"

#include <sys/mman.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class interface_records : public interfaces_test {};

// ---- Bytes ----

TEST_F(interface_records, lie_in_the_file_at_their_documented_offsets) {
    const yb_net_interface_params_t params = block_filled_with(0x10); // 0x10, 0x11, ... 0x73
    ASSERT_EQ(YB_STATUS_SUCCESS,
              net_lib_db_interface_add_full(0x01020304, 0x05060708, &params, 0x090A, 0x0B0C, 1));
    std::vector<uint8_t> expected = {0x04, 0x03, 0x02, 0x01, 0x08, 0x07, 0x06, 0x05};
    for (uint8_t i = 0; i < 100; i++)
        expected.push_back(static_cast<uint8_t>(0x10 + i));
    const std::vector<uint8_t> tail = {0x0A, 0x09, 0x0C, 0x0B, 0x01, 0x00, 0x00, 0x00};
    expected.insert(expected.end(), tail.begin(), tail.end());
    EXPECT_EQ(expected, record_bytes(0));
}

TEST_F(interface_records, parameter_fields_lie_at_their_documented_offsets) {
    yb_net_interface_params_t params = {};
    (void)strcpy(params.name, "n");
    (void)strcpy(params.ns_name, "s");
    (void)strcpy(params.vrf_name, "v");
    params.vrf_valid = 0x11111111;
    params.type = 0x22222222;
    params.by_type.vlan = {0x33, 0, 0x4444, 0x55555555, 0x66666666, "p"};
    add(1, 2, params);
    yb_net_interface_params_t port_vlan = {};
    port_vlan.by_type.port_vlan.vlan_id = 0x7777;
    (void)strcpy(port_vlan.by_type.port_vlan.port_name, "q");
    add(3, 4, port_vlan);
    yb_net_interface_params_t port = {};
    port.by_type.port.value1 = 0x88888888;
    port.by_type.port.value2 = 0x99999999;
    add(5, 6, port);

    const auto at = [](size_t db_index, size_t offset) { return record_at(db_index) + 8 + offset; };
    EXPECT_EQ('n', view().byte(at(0, 0)));
    EXPECT_EQ('s', view().byte(at(0, 16)));
    EXPECT_EQ('v', view().byte(at(0, 48)));
    EXPECT_EQ(0x11111111u, view().word(at(0, 64)));
    EXPECT_EQ(0x22222222u, view().word(at(0, 68)));
    EXPECT_EQ(0x33, view().byte(at(0, 72)));
    EXPECT_EQ(0x4444, view().half(at(0, 74)));
    EXPECT_EQ(0x55555555u, view().word(at(0, 76)));
    EXPECT_EQ(0x66666666u, view().word(at(0, 80)));
    EXPECT_EQ('p', view().byte(at(0, 84)));
    EXPECT_EQ(0x7777, view().half(at(1, 80)));
    EXPECT_EQ('q', view().byte(at(1, 82)));
    EXPECT_EQ(0x88888888u, view().word(at(2, 72)));
    EXPECT_EQ(0x99999999u, view().word(at(2, 76)));
}

TEST_F(interface_records, added_without_rif_and_vrid_hold_the_values_that_mean_none) {
    add(1, 2);
    EXPECT_EQ(0xFFFF, view().half(108));
    EXPECT_EQ(255, view().half(110));
    EXPECT_EQ(1, view().byte(112));
}

TEST_F(interface_records, removed_leave_112_zero_bytes_and_a_free_slot) {
    const yb_net_interface_params_t params = block_filled_with(1);
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_add_full(7, 8, &params, 9, 10, 1));
    view().fill(113, 116, 0xAB); // reserved: nobody's to touch
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_remove(7));
    std::vector<uint8_t> expected(116, 0); // rif 0 and vrid 0, not the values that mean none
    expected[113] = expected[114] = expected[115] = 0xAB;
    EXPECT_EQ(expected, record_bytes(0));
    EXPECT_EQ(21u, status_of_get(7));
}

TEST_F(interface_records, removed_leave_the_others_alone) {
    add(1, 11);
    add(2, 12);
    add(3, 13);
    const std::vector<uint8_t> first = record_bytes(0);
    const std::vector<uint8_t> third = record_bytes(2);
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_remove(2));
    EXPECT_EQ(first, record_bytes(0));
    EXPECT_EQ(third, record_bytes(2));
}

// ---- RIF, VRID, VLAN ----

TEST_F(interface_records, rif_is_overwritten_unconditionally) {
    add(1, 2);
    for (const uint16_t rif : std::vector<uint16_t>{7, 8, 0, 0xFFFF, 9}) {
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_rif_add(1, rif));
        EXPECT_EQ(rif, view().half(108));
    }
    EXPECT_EQ(255, view().half(110));
}

TEST_F(interface_records, vrid_is_set_on_a_record_that_has_none) {
    add(1, 2);
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_vrid_add(1, 7));
    EXPECT_EQ(7, view().half(110));
    EXPECT_EQ(0xFFFF, view().half(108));
    EXPECT_THAT(take_lines(), IsEmpty());
}

TEST_F(interface_records, vrid_that_is_set_refuses_another_with_22_and_stays) {
    add(0xFFFFFFFE, 2);
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_vrid_add(0xFFFFFFFE, 7));
    for (const uint16_t vrid : std::vector<uint16_t>{0, 7, 8, 254, 256, 0xFFFF}) {
        EXPECT_EQ(22u, net_lib_db_interface_vrid_add(0xFFFFFFFE, vrid)) << vrid;
        EXPECT_EQ(7, view().half(110));
        EXPECT_THAT(take_lines(),
                    ElementsAre(error("Failed adding VRID. Interface with system ifindex -2 already has a "
                                      "VRID (7)\n")));
    }
}

TEST_F(interface_records, vrid_255_always_clears) {
    add(1, 2);
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_vrid_add(1, 255)) << "also where there is none";
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_vrid_add(1, 7));
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_vrid_add(1, 255));
    EXPECT_EQ(255, view().half(110));
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_vrid_add(1, 8));
    EXPECT_EQ(8, view().half(110));
    EXPECT_THAT(take_lines(), IsEmpty());
}

TEST_F(interface_records, vrid_0_counts_as_one) {
    add(1, 2);
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_vrid_add(1, 0));
    EXPECT_EQ(22u, net_lib_db_interface_vrid_add(1, 65535));
    EXPECT_THAT(take_lines(),
                ElementsAre(error("Failed adding VRID. Interface with system ifindex 1 already has "
                                  "a VRID (0)\n")));
}

TEST_F(interface_records, vlan_is_overwritten_at_parameter_offset_80_whatever_the_type) {
    const yb_net_interface_params_t params = block_filled_with(1);
    add(1, 2, params);
    std::vector<uint8_t> expected = record_bytes(0);
    for (const uint16_t vlan : std::vector<uint16_t>{0x0FFF, 0, 0xABCD}) {
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_vlan_set(1, vlan));
        expected[8 + 80] = static_cast<uint8_t>(vlan);
        expected[8 + 81] = static_cast<uint8_t>(vlan >> 8);
        EXPECT_EQ(expected, record_bytes(0));
    }
}

// ---- Not found ----

TEST_F(interface_records, changes_of_a_missing_record_return_21_at_error) {
    add(1, 2);
    const std::vector<uint8_t> before = all_records();
    EXPECT_EQ(21u, net_lib_db_interface_remove(2));
    EXPECT_EQ(21u, net_lib_db_interface_rif_add(2, 3));
    EXPECT_EQ(21u, net_lib_db_interface_vrid_add(2, 3));
    EXPECT_EQ(21u, net_lib_db_interface_vrid_add(2, 255));
    EXPECT_EQ(21u, net_lib_db_interface_vlan_set(0xFFFFFFFF, 3));
    EXPECT_THAT(take_lines(),
                ElementsAre(not_found(2), not_found(2), not_found(2), not_found(2), not_found(-1)));
    EXPECT_EQ(before, all_records());
}

TEST_F(interface_records, found_by_stale_keys_in_free_slots_are_not_found) {
    add(5, 6);
    view().set_byte(112, 0); // free, but the keys still stand there
    EXPECT_EQ(21u, status_of_get(5));
    EXPECT_EQ(21u, net_lib_db_interface_remove(5));
    EXPECT_EQ(21u, net_lib_db_interface_rif_add(5, 1));
    yb_net_interface_record_t out;
    EXPECT_EQ(21u, net_lib_db_interface_get_by_linux_ifindex(6, &out));
    EXPECT_EQ(21u, net_lib_db_interface_get_by_db_index(0, &out));
    EXPECT_EQ(YB_STATUS_SUCCESS, try_add(5, 6)) << "and no duplicates";
}

TEST_F(interface_records, are_in_use_with_any_in_use_byte_but_0) {
    add(5, 6);
    for (const uint8_t in_use : {uint8_t{2}, uint8_t{0x80}, uint8_t{0xFF}}) {
        view().set_byte(112, in_use);
        EXPECT_EQ(YB_STATUS_SUCCESS, status_of_get(5));
        EXPECT_EQ(22u, try_add(5, 7));
        yb_net_interface_record_t out;
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_get_by_linux_ifindex(6, &out));
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_get_by_db_index(0, &out));
    }
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_remove(5));
    EXPECT_EQ(0, view().byte(112));
}

TEST_F(interface_records, with_key_0_are_records_like_others) {
    EXPECT_EQ(21u, status_of_get(0)) << "a table of zeros holds none";
    EXPECT_EQ(21u, net_lib_db_interface_remove(0));
    add(0, 0);
    EXPECT_EQ(0u, get(0).linux_ifindex);
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_remove(0));
}

// ---- Flushing and locking ----

TEST_F(interface_records, are_flushed_whole_by_an_addition_with_the_lock_held) {
    int flushes = 0;
    calls::on_msync() = [&](void *, size_t size, int flags) {
        flushes++;
        EXPECT_EQ(interfaces_format.size, size);
        EXPECT_EQ(MS_SYNC, flags);
        EXPECT_TRUE(view().locked());
        EXPECT_EQ(1, view().byte(112)) << "after the record is there";
        return 0;
    };
    add(1, 2);
    EXPECT_EQ(1, flushes);
    EXPECT_EQ(22u, try_add(1, 3));
    EXPECT_EQ(2, flushes) << "a refused addition flushes too";
}

TEST_F(interface_records, are_not_flushed_by_changes_removals_and_lookups) {
    add(1, 2);
    platform::on_log() = nullptr; // it looks at the lock, and would be counted
    calls::reset();
    yb_net_interface_record_t out;
    (void)net_lib_db_interface_rif_add(1, 3);
    (void)net_lib_db_interface_vrid_add(1, 3);
    (void)net_lib_db_interface_vrid_add(1, 4);
    (void)net_lib_db_interface_vlan_set(1, 3);
    (void)net_lib_db_interface_get(1, &out);
    (void)net_lib_db_interface_get_by_db_index(0, &out);
    (void)net_lib_db_interface_get_by_linux_ifindex_ns_vrf(2, "", "", &out);
    (void)net_lib_db_interface_remove(1);
    (void)net_lib_db_interface_remove(1);
    EXPECT_EQ(0, calls::count("msync"));
    EXPECT_EQ(9, calls::count("segment_lock")) << "once each, failures included";
}

TEST_F(interface_records, are_added_without_the_lock_only_when_take_lock_is_0) {
    const yb_net_interface_params_t params = block();
    net_lib_db_interface_lock_acquire();
    calls::reset();
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_add_full(1, 2, &params, 3, 4, 0));
    EXPECT_EQ(22u, net_lib_db_interface_add_full(1, 2, &params, 3, 4, 0));
    EXPECT_EQ(0, calls::count("segment_lock"));
    EXPECT_EQ(2, calls::count("msync"));
    EXPECT_TRUE(view().locked()) << "the caller's still";
    net_lib_db_interface_lock_release();

    for (const uint32_t take_lock : {1u, 2u, 0x80000000u}) {
        calls::reset();
        EXPECT_EQ(22u, net_lib_db_interface_add_full(1, 2, &params, 3, 4, take_lock));
        EXPECT_EQ(1, calls::count("segment_lock"));
    }
}

TEST_F(interface_records, operations_write_no_trace_lines) {
    g_yb_log_module_func_enable = 1;
    uint32_t verbosity = 5;
    (void)net_lib_db_log_verbosity_level(YB_ACCESS_CMD_SET, &verbosity);
    yb_net_interface_record_t out;
    add(1, 2);
    (void)net_lib_db_interface_rif_add(1, 3);
    (void)net_lib_db_interface_vrid_add(1, 3);
    (void)net_lib_db_interface_vlan_set(1, 3);
    (void)net_lib_db_interface_get(1, &out);
    (void)net_lib_db_interface_get_by_db_index(0, &out);
    (void)net_lib_db_interface_get_by_linux_ifindex_ns_vrf(2, "", "", &out);
    (void)net_lib_db_interface_get_by_linux_ifindex_ns(2, "", &out);
    (void)net_lib_db_interface_get_by_linux_ifindex(2, &out);
    net_lib_db_interface_lock_acquire();
    net_lib_db_interface_lock_release();
    (void)net_lib_db_interface_remove(1);
    EXPECT_THAT(take_lines(), IsEmpty());
}

} // namespace
