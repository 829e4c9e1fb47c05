// SPDX-License-Identifier: Apache-2.0
//
// Unloading a segment: unregistering, what the last user takes along, and an
// unmapping that fails.
#include "tests/unit/segments_fixture.h"

#include <sys/mman.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class segment_unload_test : public segments_test {};

TEST_P(segment_unload_test, without_a_load_returns_0_and_does_nothing) {
    made_by_another_process();
    const std::vector<uint8_t> before = segment_bytes(format());
    calls::reset();
    EXPECT_EQ(YB_STATUS_SUCCESS, unload());
    EXPECT_EQ(before, segment_bytes(format()));
    for (const char *const function : {"munmap", "msync", "shm_unlink", "segment_lock"})
        EXPECT_EQ(0, calls::count(function)) << function;
    EXPECT_THAT(all_said(), IsEmpty());
}

TEST_P(segment_unload_test, twice_returns_0_and_counts_once) {
    made_by_another_process();
    ASSERT_EQ(YB_STATUS_SUCCESS, load());
    EXPECT_EQ(YB_STATUS_SUCCESS, unload());
    EXPECT_EQ(YB_STATUS_SUCCESS, unload());
    EXPECT_EQ(1u, segment_view(format()).user_count());
}

TEST_P(segment_unload_test, goes_on_where_the_process_has_closed_the_descriptor) {
    made_by_another_process();
    ASSERT_EQ(YB_STATUS_SUCCESS, load());
    ASSERT_EQ(0, close(GetParam().reference.place.descriptor));
    EXPECT_EQ(YB_STATUS_SUCCESS, unload());
    EXPECT_EQ(1u, segment_view(format()).user_count()) << "the registration is taken back";
}

TEST_P(segment_unload_test, by_the_last_user_removes_the_name_although_it_has_closed_the_descriptor) {
    ASSERT_EQ(YB_STATUS_SUCCESS, load());
    ASSERT_EQ(0, close(GetParam().reference.place.descriptor));
    EXPECT_EQ(YB_STATUS_SUCCESS, unload());
    EXPECT_FALSE(segment_exists(format()));
}

TEST_P(segment_unload_test, ignores_its_argument) {
    for (const uint32_t argument : {0u, 1u, 77u, 0xFFFFFFFFu}) {
        ASSERT_EQ(YB_STATUS_SUCCESS, load());
        EXPECT_EQ(YB_STATUS_SUCCESS, GetParam().unload(argument));
        EXPECT_FALSE(segment_exists(format()));
    }
}

TEST_P(segment_unload_test, by_one_of_two_users_leaves_the_segment_with_a_count_of_1) {
    made_by_another_process();
    ASSERT_EQ(YB_STATUS_SUCCESS, load());
    segment_view view(format());
    scribble(view);
    EXPECT_EQ(YB_STATUS_SUCCESS, unload());
    EXPECT_TRUE(segment_exists(format()));
    EXPECT_EQ(1u, view.user_count());
    EXPECT_EQ(2u, view.word(format().lock_state()));
    EXPECT_FALSE(view.locked());
    EXPECT_TRUE(scribble_is_there());
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, operation());
}

TEST_P(segment_unload_test, by_the_last_user_destroys_the_lock_and_removes_the_name) {
    ASSERT_EQ(YB_STATUS_SUCCESS, load());
    const segment_view view(format()); // outlives the name
    EXPECT_EQ(YB_STATUS_SUCCESS, unload());
    EXPECT_FALSE(segment_exists(format()));
    EXPECT_EQ(4u, view.word(format().lock_state()));
    EXPECT_EQ(0u, view.user_count());
    EXPECT_THAT(all_said(), IsEmpty());
}

TEST_P(segment_unload_test,
       by_the_last_user_goes_in_order_through_flush_destruction_unmapping_and_unlinking) {
    ASSERT_EQ(YB_STATUS_SUCCESS, load());
    const segment_view view(format());
    std::vector<std::string> steps;
    const auto step = [&](const char *name) {
        return [&, name](int) {
            steps.push_back(std::string(name) + " users " + std::to_string(view.user_count()) + " state " +
                            std::to_string(view.word(format().lock_state())) +
                            (segment_exists(format()) ? "" : " gone") +
                            (GetParam().reference.reference == nullptr ? " cleared" : ""));
        };
    };
    calls::reset();
    for (const char *const name : {"msync", "pthread_rwlock_destroy", "munmap", "shm_unlink"})
        calls::before(name, step(name));
    EXPECT_EQ(YB_STATUS_SUCCESS, unload());
    calls::reset(); // the view below unmaps, too
    EXPECT_THAT(steps, ElementsAre("msync users 0 state 2", "pthread_rwlock_destroy users 0 state 3",
                                   "munmap users 0 state 4", "shm_unlink users 0 state 4 cleared"));
}

TEST_P(segment_unload_test, flushes_the_whole_segment_with_the_lock_held) {
    made_by_another_process();
    ASSERT_EQ(YB_STATUS_SUCCESS, load());
    int flushes = 0;
    calls::on_msync() = [&](void *address, size_t size, int flags) {
        flushes++;
        EXPECT_EQ(GetParam().reference.body, address);
        EXPECT_EQ(format().size, size);
        EXPECT_EQ(MS_SYNC, flags);
        EXPECT_TRUE(segment_view(format()).locked());
        EXPECT_EQ(1u, segment_view(format()).user_count());
        return 0;
    };
    EXPECT_EQ(YB_STATUS_SUCCESS, unload());
    EXPECT_EQ(1, flushes);
}

TEST_P(segment_unload_test, never_counts_below_0) {
    ASSERT_EQ(YB_STATUS_SUCCESS, load());
    segment_view view(format());
    view.set_word(format().user_count(), 0);
    EXPECT_EQ(YB_STATUS_SUCCESS, unload());
    EXPECT_EQ(0u, view.user_count());
    EXPECT_FALSE(segment_exists(format())) << "a count of 0 is the last user";
}

TEST_P(segment_unload_test, whose_unmapping_fails_returns_1_and_unloads_all_the_same) {
    made_by_another_process();
    ASSERT_EQ(YB_STATUS_SUCCESS, load());
    calls::fail("munmap", EINVAL);
    EXPECT_EQ(1u, unload());
    EXPECT_THAT(all_said(), ElementsAre(error(GetParam().unmap_failed)));
    EXPECT_EQ(nullptr, GetParam().reference.reference);
    EXPECT_EQ(18u, operation());
    EXPECT_EQ(1u, segment_view(format()).user_count());
    EXPECT_EQ(YB_STATUS_SUCCESS, load());
    EXPECT_EQ(2u, segment_view(format()).user_count());
}

TEST_P(segment_unload_test, by_the_last_user_whose_unmapping_fails_removes_the_name_all_the_same) {
    ASSERT_EQ(YB_STATUS_SUCCESS, load());
    calls::fail("munmap", EINVAL);
    EXPECT_EQ(1u, unload());
    EXPECT_FALSE(segment_exists(format()));
}

TEST_P(segment_unload_test, by_the_last_user_returns_0_although_the_name_was_gone_already) {
    ASSERT_EQ(YB_STATUS_SUCCESS, load());
    segment_remove(format());
    EXPECT_EQ(YB_STATUS_SUCCESS, unload());
    EXPECT_THAT(all_said(), IsEmpty());
}

TEST_P(segment_unload_test, is_followed_by_a_new_empty_segment) {
    ASSERT_EQ(YB_STATUS_SUCCESS, load());
    {
        segment_view view(format());
        scribble(view);
    }
    ASSERT_EQ(YB_STATUS_SUCCESS, unload());
    ASSERT_EQ(YB_STATUS_SUCCESS, load());
    EXPECT_FALSE(scribble_is_there());
    EXPECT_EQ(1u, segment_view(format()).user_count());
}

FOR_BOTH_SEGMENTS(segment_unload_test);

} // namespace
