// SPDX-License-Identifier: Apache-2.0
//
// A load, an unload and a creation of one segment exclude each other: each is
// stopped in its middle while another process tries the next.
#include <cerrno>
#include <chrono>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "net_lib_db/interfaces_segment.h"
#include "tests/support/processes.h"
#include "tests/support/recording_platform.h"
#include "tests/support/system_calls.h"
#include "ybnet/net_lib_db.h"

namespace {

constexpr const char *path = "/dev/shm/net_lib_ifc";
constexpr auto a_moment = std::chrono::milliseconds(200); // for what must not happen

// True when the loaded segment is the one that its name stands for.
bool is_on_the_named_segment() {
    struct stat mapped;
    struct stat named;
    return fstat(interfaces_segment.place.descriptor, &mapped) == 0 && stat(path, &named) == 0 &&
           mapped.st_ino == named.st_ino;
}

class segment_exclusion : public testing::Test {
  protected:
    void SetUp() override {
        platform::reset();
        calls::reset();
    }

    // Loads in this process; stops before the registration until the counter is raised.
    int load_stopped_before(const char *function) {
        calls::before(function, [this, first = true](int) mutable {
            if (!std::exchange(first, false))
                return;
            stopped.add();
            (void)resume.wait_for(1);
        });
        if (net_lib_db_interfaces_load(0) != YB_STATUS_SUCCESS)
            return 1;
        const bool good = is_on_the_named_segment() && platform::recorded().log.empty();
        if (net_lib_db_interfaces_unload(0) != YB_STATUS_SUCCESS)
            return 2;
        return good ? 0 : 3;
    }

    shared_counter stopped;
    shared_counter resume;
    shared_counter done;
};

TEST_F(segment_exclusion, last_user_does_not_remove_a_segment_that_another_is_loading) {
    ASSERT_EQ(net_lib_db_interfaces_load(0), YB_STATUS_SUCCESS);
    child_process loader([this] {
        interfaces_segment.reference =
            nullptr; // a process of its own, not this one's child in the library's eyes
        interfaces_segment.body = nullptr;
        return load_stopped_before("msync");
    });
    ASSERT_TRUE(stopped.wait_for(1));
    child_process release([this] {
        const bool waited = !done.wait_for(1, a_moment);
        resume.add();
        return waited ? 0 : 1;
    });
    EXPECT_EQ(net_lib_db_interfaces_unload(0), YB_STATUS_SUCCESS);
    done.add();
    EXPECT_EQ(release.wait(), 0) << "the unload went on while the other process was loading";
    EXPECT_EQ(loader.wait(), 0);
    EXPECT_NE(access(path, F_OK), 0) << "the last user left the name behind";
}

TEST_F(segment_exclusion, creator_registers_before_another_user_can_be_the_last) {
    child_process creator([this] { return load_stopped_before("flock"); });
    ASSERT_TRUE(stopped.wait_for(1));
    // The file is there, empty and not locked yet: this load waits for its creator.
    child_process visitor([] {
        const yb_status_t status = net_lib_db_interfaces_load(0);
        return status == YB_STATUS_SUCCESS && net_lib_db_interfaces_unload(0) == YB_STATUS_SUCCESS ? 0 : 1;
    });
    resume.add();
    EXPECT_EQ(visitor.wait(), 0);
    EXPECT_EQ(creator.wait(), 0);
}

TEST_F(segment_exclusion, stopped_creator_blocks_no_other_load_for_ever) {
    child_process creator([this] { return load_stopped_before("posix_fallocate"); });
    ASSERT_TRUE(stopped.wait_for(1));
    child_process visitor([] { return static_cast<int>(net_lib_db_interfaces_load(0)); });
    EXPECT_EQ(visitor.wait(), YB_STATUS_ERROR) << "a creator that does not get on is waited for briefly";
    resume.add();
    EXPECT_EQ(creator.wait(), 0);
}

TEST_F(segment_exclusion, stopped_creator_is_not_waited_for_without_a_clock) {
    child_process creator([this] { return load_stopped_before("posix_fallocate"); });
    ASSERT_TRUE(stopped.wait_for(1));
    child_process visitor([] {
        calls::reset(); // this test has slept
        calls::before("clock_gettime", [](int) { calls::fail("clock_gettime", EPERM); });
        const yb_status_t status = net_lib_db_interfaces_load(0);
        return status == YB_STATUS_ERROR && calls::count("nanosleep") == 0 ? 0 : 1;
    });
    EXPECT_EQ(visitor.wait(), 0);
    resume.add();
    EXPECT_EQ(creator.wait(), 0);
}

TEST_F(segment_exclusion, load_finishes_what_a_dead_last_user_left_undone) {
    ASSERT_EQ(net_lib_db_interfaces_load(0), YB_STATUS_SUCCESS);
    segment_trailer(interfaces_segment).user_count = 0;
    segment_trailer(interfaces_segment).plock.state = CL_PLOCK_DESTROYED;
    child_process next([] {
        interfaces_segment.reference = nullptr;
        interfaces_segment.body = nullptr;
        const bool loaded = net_lib_db_interfaces_load(0) == YB_STATUS_SUCCESS;
        const bool fresh = loaded && segment_trailer(interfaces_segment).user_count == 1 &&
                           segment_trailer(interfaces_segment).plock.state == CL_PLOCK_INITIALIZED;
        return fresh && net_lib_db_interfaces_unload(0) == YB_STATUS_SUCCESS ? 0 : 1;
    });
    EXPECT_EQ(next.wait(), 0);
    segment_trailer(interfaces_segment).plock.state = CL_PLOCK_INITIALIZED;
    (void)net_lib_db_interfaces_unload(0);
}

TEST_F(segment_exclusion, users_of_a_file_removed_by_hand_leave_the_new_one_alone) {
    ASSERT_EQ(net_lib_db_interfaces_load(0), YB_STATUS_SUCCESS);
    ASSERT_EQ(unlink(path), 0);
    child_process other([this] {
        interfaces_segment.reference = nullptr;
        interfaces_segment.body = nullptr;
        const bool loaded = net_lib_db_interfaces_load(0) == YB_STATUS_SUCCESS;
        stopped.add();
        (void)resume.wait_for(1);
        const bool kept = loaded && is_on_the_named_segment();
        return kept && net_lib_db_interfaces_unload(0) == YB_STATUS_SUCCESS ? 0 : 1;
    });
    ASSERT_TRUE(stopped.wait_for(1));
    EXPECT_EQ(net_lib_db_interfaces_unload(0), YB_STATUS_SUCCESS);
    resume.add();
    EXPECT_EQ(other.wait(), 0);
}

} // namespace
