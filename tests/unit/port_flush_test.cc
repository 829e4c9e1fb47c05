// SPDX-License-Identifier: Apache-2.0
//
// How often the operations of the ports database take the lock, which of them
// flush the segment, and what a flush is of and sees. Their results:
// port_records_test.cc.
#include <sys/mman.h>

#include "tests/unit/ports_fixture.h"

namespace {

class port_flush : public ports_test {};

TEST_F(port_flush, operations_take_and_release_the_lock_once) {
    uint32_t word = 0;
    uint16_t half = 0;
    yb_net_port_info_t info = with_log_port(lag_of(1), 1);
    const auto locks = [](auto operation) {
        const int before = calls::count("segment_lock");
        operation();
        EXPECT_FALSE(locked());
        return calls::count("segment_lock") - before;
    };
    EXPECT_EQ(1, locks([&] { (void)net_lib_db_port_set(5, &info); }));
    EXPECT_EQ(1, locks([&] { (void)net_lib_db_port_get(5, &info); }));
    EXPECT_EQ(1, locks([&] { (void)net_lib_db_log_port_get(lag_of(1), &word); }));
    EXPECT_EQ(1, locks([&] { (void)net_lib_db_log_port_get(lag_of(2), &word); }));
    EXPECT_EQ(1, locks([&] { (void)net_lib_db_ports_get_all(0, nullptr, &word); }));
    EXPECT_EQ(1, locks([&] { (void)net_lib_db_lag_get(1, &word); }));
    EXPECT_EQ(1, locks([&] { (void)net_lib_db_mlag_get(lag_of(1), &half); }));
    EXPECT_EQ(1, locks([&] { (void)net_lib_db_port_lag_set(5, 0); }));
    EXPECT_EQ(1, locks([&] { (void)net_lib_db_port_remove(5); }));
}

TEST_F(port_flush, changes_are_flushed_once_but_a_lag_binding) {
    const yb_net_port_info_t info = with_log_port(port_of(3));
    yb_net_port_info_t out;
    uint32_t word = 0;
    uint16_t half = 0;
    const auto flushed = [](auto operation) {
        const int before = flushes();
        operation();
        return flushes() - before;
    };
    EXPECT_EQ(1, flushed([&] { (void)net_lib_db_port_set(5, &info); }));
    EXPECT_EQ(1, flushed([&] { (void)net_lib_db_port_set(5, &info); }));
    EXPECT_EQ(0, flushed([&] { (void)net_lib_db_port_lag_set(5, lag_of(1)); }));
    EXPECT_EQ(0, flushed([&] { (void)net_lib_db_port_get(5, &out); }));
    EXPECT_EQ(0, flushed([&] { (void)net_lib_db_log_port_get(port_of(3), &word); }));
    EXPECT_EQ(0, flushed([&] { (void)net_lib_db_ports_get_all(0, nullptr, &word); }));
    EXPECT_EQ(0, flushed([&] { (void)net_lib_db_lag_get(1, &word); }));
    EXPECT_EQ(0, flushed([&] { (void)net_lib_db_mlag_get(lag_of(1), &half); }));
    EXPECT_EQ(1, flushed([&] { (void)net_lib_db_port_remove(5); }));
    EXPECT_EQ(1, flushed([&] { (void)net_lib_db_port_remove(unreachable_key()); })); // and a failed search
    EXPECT_EQ(0, flushed([&] { (void)net_lib_db_port_remove(0); }));
    EXPECT_EQ(0, flushed([&] { (void)net_lib_db_port_set(0, &info); }));
}

TEST_F(port_flush, a_flush_is_of_the_whole_segment_under_the_lock_with_the_change_in_it) {
    const yb_net_port_info_t info = with_log_port(lag_of(3), 7);
    // What the flush sees: under the lock, a segment that differs from the one before and changes no more.
    const auto flushed_whole = [](const char *what, bool changes, auto operation) {
        SCOPED_TRACE(what);
        const auto before = snapshot();
        std::vector<uint8_t> at_flush;
        int seen = 0;
        calls::on_msync() = [&](void *address, size_t length, int flags) {
            EXPECT_EQ(ports_segment.body, address);
            EXPECT_EQ(5772784u, length);
            EXPECT_EQ(MS_SYNC, flags);
            EXPECT_TRUE(locked());
            at_flush = snapshot();
            seen++;
            return 0;
        };
        operation();
        calls::on_msync() = nullptr;
        EXPECT_EQ(1, seen);
        EXPECT_EQ(changes, before != at_flush);
        EXPECT_TRUE(at_flush == snapshot()); // not EXPECT_EQ, which would print five megabytes
    };
    flushed_whole("new", true, [&] { EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_set(5, &info)); });
    yb_net_port_info_t more = info;
    more.attr_i = 9;
    flushed_whole("known", true, [&] { EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_set(5, &more)); });
    flushed_whole("removed", true, [&] { EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_remove(5)); });
    const uint32_t unreachable = unreachable_key();
    flushed_whole("not found", false,
                  [&] { EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, net_lib_db_port_remove(unreachable)); });
    fill_table();
    homes()[700000] = 10;
    flushed_whole("full", true, [&] { EXPECT_EQ(YB_STATUS_ERROR, net_lib_db_port_set(700000, &info)); });
}

} // namespace
