// SPDX-License-Identifier: Apache-2.0
//
// The first use of the library in a process: what is arranged then, once, and what becomes of threads and children
// where the kernel or the C library refuses it. Each test's process is a new one: this program's own never uses the
// library, so that no child of it inherits anything.
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>

#include "net_lib_db/forked_child.h"
#include "net_lib_db/interfaces_segment.h"
#include "tests/support/processes.h"
#include "tests/support/recording_platform.h"
#include "tests/support/segment_file.h"
#include "tests/support/system_calls.h"
#include "ybnet/net_lib_db.h"

namespace {

void always_fail(const char *function, int reason) {
    calls::before(function, [function, reason](int) { calls::fail(function, reason); });
}

// The id that the lock records while this thread has it: 0 for one that is not announced.
uint32_t recorded_id() {
    net_lib_db_interface_lock_acquire();
    const cl_plock_t &plock = segment_trailer(interfaces_segment).plock;
    const uint32_t owner = reinterpret_cast<const pthread_rwlock_t *>(plock.rwlock)->__data.__writers;
    net_lib_db_interface_lock_release();
    return cl_plock_is_announced(owner) ? cl_plock_bytes::id_of(owner) : 0;
}

class first_use : public testing::Test {
  protected:
    void SetUp() override {
        platform::reset();
        calls::reset();
        segment_remove(interfaces_format);
    }
    void TearDown() override {
        calls::reset();
        segment_remove(interfaces_format);
    }
    static void load() {
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_load(0));
    }
    // Its failed expectations fail the test.
    template <typename body_t> static void in_a_new_process(body_t body) {
        child_process process([&] {
            body();
            return HasFailure() ? 1 : 0;
        });
        EXPECT_EQ(0, process.wait());
    }
};

TEST_F(first_use, by_two_threads_at_once_is_arranged_once) {
    in_a_new_process([] {
        shared_counter waiting;
        uint32_t number_of_second = 0;
        std::thread second;
        calls::before("nanosleep", [&](int) { waiting.add(); });
        calls::before("madvise", [&](int call) { // in the midst of the first thread's
            if (call != 1)
                return;
            second = std::thread([&] { number_of_second = process_number(); });
            EXPECT_TRUE(waiting.wait_for(1));
        });
        EXPECT_EQ(1u, process_number());
        second.join();
        EXPECT_EQ(1u, number_of_second);
        EXPECT_EQ(1, calls::count("madvise"));
    });
}

TEST_F(first_use, where_no_memory_can_be_wiped_leaves_children_to_their_handler) {
    always_fail("madvise", EINVAL);
    in_a_new_process([] {
        load();
        EXPECT_EQ(static_cast<uint32_t>(gettid()), recorded_id());
        in_a_new_process([] { EXPECT_EQ(static_cast<uint32_t>(gettid()), recorded_id()); });
    });
}

// A child would go on under its parent's name.
TEST_F(first_use, where_children_cannot_be_seen_lets_no_thread_be_announced) {
    always_fail("madvise", EINVAL);
    always_fail("__register_atfork", ENOMEM);
    in_a_new_process([] {
        load();
        EXPECT_EQ(0u, recorded_id());
        EXPECT_FALSE(segment_announces(interfaces_format, gettid()));
        in_a_new_process([] {
            EXPECT_EQ(0u, recorded_id());
            EXPECT_FALSE(segment_announces(interfaces_format, gettid()));
        });
    });
}

TEST_F(first_use, where_no_key_is_to_be_had_leaves_threads_announced_until_the_process_ends) {
    calls::fail("pthread_key_create", EAGAIN);
    shared_counter thread_id;
    in_a_new_process([&] {
        load();
        std::thread([&] {
            EXPECT_EQ(static_cast<uint32_t>(gettid()), recorded_id());
            thread_id.add(gettid());
        }).join();
        EXPECT_TRUE(segment_announces(interfaces_format, thread_id.value()));
        in_a_new_process([] { EXPECT_EQ(static_cast<uint32_t>(gettid()), recorded_id()); });
    });
    EXPECT_FALSE(segment_announces(interfaces_format, thread_id.value()));
}

} // namespace
