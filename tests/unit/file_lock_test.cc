// SPDX-License-Identifier: Apache-2.0
//
// The lock on a segment's file where the kernel does not do at once what it is asked for. What the lock is for is
// segment_exclusion_test.cc's.
#include "net_lib_db/file_lock.h"

#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include "tests/support/system_calls.h"

namespace {

class lock_of_a_file : public testing::Test {
  protected:
    void SetUp() override {
        calls::reset();
        descriptor_ = open_file();
        ASSERT_LE(0, descriptor_);
    }
    void TearDown() override {
        calls::reset();
        (void)close(descriptor_);
        (void)unlink(path);
    }
    static int open_file() {
        return open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    }
    static bool others_can_lock() {
        const int other = open_file();
        const bool can = flock(other, LOCK_EX | LOCK_NB) == 0;
        (void)close(other);
        return can;
    }

    static constexpr const char *path = "/dev/shm/locked_file";
    int descriptor_ = -1;
};

TEST_F(lock_of_a_file, is_taken_although_a_signal_comes_first) {
    calls::fail("flock", EINTR);
    file_lock(descriptor_);
    EXPECT_FALSE(others_can_lock());
}

TEST_F(lock_of_a_file, is_released_although_the_kernel_lacks_memory_at_first) {
    file_lock(descriptor_);
    ASSERT_FALSE(others_can_lock());
    calls::fail("flock", ENOLCK);
    file_unlock(descriptor_);
    EXPECT_TRUE(others_can_lock());
}

TEST_F(lock_of_a_file, that_can_never_be_released_is_tried_for_ten_times) {
    file_lock(descriptor_);
    calls::reset();
    calls::before("flock", [](int) { calls::fail("flock", ENOLCK); });
    file_unlock(descriptor_);
    EXPECT_EQ(10, calls::count("flock"));
    calls::reset();
    EXPECT_FALSE(others_can_lock());
}

TEST_F(lock_of_a_file, of_a_closed_descriptor_is_not_released_twice) {
    calls::fail("flock", EBADF);
    file_unlock(descriptor_);
    EXPECT_EQ(1, calls::count("flock"));
}

} // namespace
