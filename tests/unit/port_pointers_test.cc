// SPDX-License-Identifier: Apache-2.0
//
// Bad pointers from callers: the process dies of them, as it should, but never
// with the segment's lock in its hands, which would stop the whole stack.
#include <csignal>
#include <sys/mman.h>
#include <unistd.h>

#include "tests/support/processes.h"
#include "tests/unit/ports_fixture.h"

namespace {

constexpr size_t page_size = 4096;
constexpr int faulted_unlocked = 40;
constexpr int faulted_locked = 41;
constexpr int did_not_fault = 42;

pthread_rwlock_t *segment_rwlock;

void look_at_the_lock(int) {
    const bool locked = pthread_rwlock_trywrlock(segment_rwlock) != 0;
    (void)pthread_rwlock_unlock(segment_rwlock); // in either case ours: the test goes on
    _exit(locked ? faulted_locked : faulted_unlocked);
}

class port_pointers : public ports_test {
  protected:
    void SetUp() override {
        ports_test::SetUp();
        segment_rwlock = reinterpret_cast<pthread_rwlock_t *>(segment_body().trailer.plock.rwlock);
        pages_ = static_cast<uint8_t *>(
            mmap(nullptr, 4 * page_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        ASSERT_NE(MAP_FAILED, pages_);
        ASSERT_EQ(0, mprotect(pages_ + page_size, page_size, PROT_NONE));
        ASSERT_EQ(0, mprotect(pages_ + 2 * page_size, page_size, PROT_READ));
        set(5, with_log_port(lag_of(4), 9));
        set(6, with_log_port(port_of(6)));
    }
    void TearDown() override {
        (void)munmap(pages_, 4 * page_size);
        ports_test::TearDown();
    }

    // Up to here and no further can be accessed; behind it lie a read-only page and a good one.
    void *barrier() const {
        return pages_ + page_size;
    }
    void *readable() const {
        return pages_ + 2 * page_size;
    }

    template <typename operation_t> static int run(operation_t operation) {
        child_process child([&] {
            (void)signal(SIGSEGV, look_at_the_lock);
            operation();
            return did_not_fault;
        });
        return child.wait(std::chrono::seconds(10));
    }

  private:
    uint8_t *pages_ = nullptr;
};

TEST_F(port_pointers, set_reads_the_record_before_the_lock) {
    auto *const bad = reinterpret_cast<yb_net_port_info_t *>(static_cast<uint8_t *>(barrier()) - 68);
    EXPECT_EQ(faulted_unlocked, run([=] { (void)net_lib_db_port_set(5, bad); }));
    EXPECT_EQ(faulted_unlocked, run([] { (void)net_lib_db_port_set(5, nullptr); }));
}

TEST_F(port_pointers, get_writes_the_record_after_the_lock) {
    auto *const bad = static_cast<yb_net_port_info_t *>(readable());
    EXPECT_EQ(faulted_unlocked, run([=] { (void)net_lib_db_port_get(5, bad); }));
}

TEST_F(port_pointers, lookups_write_their_results_after_the_lock) {
    auto *const bad_word = static_cast<uint32_t *>(readable());
    auto *const bad_half = static_cast<uint16_t *>(readable());
    EXPECT_EQ(faulted_unlocked, run([=] { (void)net_lib_db_log_port_get(lag_of(4), bad_word); }));
    EXPECT_EQ(faulted_unlocked, run([=] { (void)net_lib_db_log_port_get(lag_of(5), bad_word); }));
    EXPECT_EQ(faulted_unlocked, run([=] { (void)net_lib_db_lag_get(9, bad_word); }));
    EXPECT_EQ(faulted_unlocked, run([=] { (void)net_lib_db_mlag_get(lag_of(4), bad_half); }));
}

TEST_F(port_pointers, get_all_reads_the_size_before_and_writes_it_after_the_lock) {
    auto *const unreadable = static_cast<uint32_t *>(barrier());
    auto *const unwritable = static_cast<uint32_t *>(readable());
    EXPECT_EQ(faulted_unlocked, run([=] { (void)net_lib_db_ports_get_all(0, nullptr, unreadable); }));
    EXPECT_EQ(faulted_unlocked, run([=] { (void)net_lib_db_ports_get_all(0, nullptr, unwritable); }));
}

TEST_F(port_pointers, get_all_touches_both_ends_of_the_array_before_the_lock) {
    auto *const last = reinterpret_cast<yb_net_port_info_t *>(static_cast<uint8_t *>(barrier())) - 2;
    uint32_t size = 2;
    EXPECT_EQ(did_not_fault, run([=] {
                  uint32_t fitting = 2;
                  (void)net_lib_db_ports_get_all(0, last, &fitting);
              }));
    auto *const bad_end =
        reinterpret_cast<yb_net_port_info_t *>(reinterpret_cast<uint8_t *>(last) + 1); // one byte too few
    EXPECT_EQ(faulted_unlocked, run([&] { (void)net_lib_db_ports_get_all(0, bad_end, &size); }));
    auto *const bad_start = // the last byte of the read-only page, and a good one behind it
        reinterpret_cast<yb_net_port_info_t *>(static_cast<uint8_t *>(readable()) + page_size - 1);
    EXPECT_EQ(faulted_unlocked, run([&] { (void)net_lib_db_ports_get_all(0, bad_start, &size); }));
}

TEST_F(port_pointers, get_all_changes_nothing_in_an_array_that_it_touches) {
    std::vector<yb_net_port_info_t> array(4, filled_with(0xEE));
    uint32_t size = 4;
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_ports_get_all(2, array.data(), &size));
    EXPECT_EQ(0u, size);
    EXPECT_EQ(std::vector<yb_net_port_info_t>(4, filled_with(0xEE)), array);
}

TEST_F(port_pointers, get_all_writes_a_single_record_after_the_lock) {
    auto *const bad = static_cast<yb_net_port_info_t *>(readable());
    for (uint32_t size : {0u, 1u}) {
        EXPECT_EQ(faulted_unlocked, run([&] { (void)net_lib_db_ports_get_all(0, bad, &size); }));
        // Where there is nothing to write, the array is left alone.
        EXPECT_EQ(did_not_fault, run([&] { (void)net_lib_db_ports_get_all(2, bad, &size); }));
    }
}

} // namespace
