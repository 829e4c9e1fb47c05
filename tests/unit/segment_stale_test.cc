// SPDX-License-Identifier: Apache-2.0
//
// Segments that another build, or a creator that died, left under /dev/shm: each
// is refused as a mismatch, without a look beyond the file's end, and its
// reference never followed.
#include "tests/unit/segments_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class stale_segment : public segments_test {
  protected:
    static void expect_refused(uint32_t reinitialize) {
        const std::vector<uint8_t> before = segment_bytes(format());
        platform::recorded().log.clear();
        EXPECT_EQ(1u, load(reinitialize));
        EXPECT_THAT(all_said(), ElementsAre(error(GetParam().mismatch)));
        EXPECT_EQ(before, segment_bytes(format())) << "neither erased nor registered in";
        EXPECT_EQ(18u, operation());
        EXPECT_EQ(YB_STATUS_SUCCESS, unload());
        EXPECT_TRUE(segment_exists(format())) << "the user removes it";
    }
    // A segment that is complete but for its size check.
    static void make(size_t size, uint32_t size_check) {
        segment_make(format(), size);
        segment_view view(format());
        view.set_byte(format().marker(), 222);
        view.set_word(format().size_check(), size_check);
    }
};

TEST_P(stale_segment, of_another_size_is_refused_until_its_file_is_deleted) {
    const size_t older = format().size + 40960;
    make(older, static_cast<uint32_t>(older));
    expect_refused(0);
    expect_refused(1);
    expect_refused(2);
    segment_remove(format());
    EXPECT_EQ(YB_STATUS_SUCCESS, load());
}

TEST_P(stale_segment, of_the_right_size_with_another_size_check_is_refused) {
    make(format().size, static_cast<uint32_t>(format().size) - 1);
    expect_refused(0);
    expect_refused(1);
}

TEST_P(stale_segment, that_is_shorter_is_refused_without_reading_beyond_its_end) {
    const size_t page = 4096;
    const size_t trailer_page = format().lock / page * page;
    for (const size_t size : {size_t{1}, page, trailer_page, format().size_check(), format().size - 1}) {
        SCOPED_TRACE(size);
        segment_make(format(), size);
        // In a process of its own, so that a SIGBUS would be seen as one.
        EXPECT_EQ(1, child_process([] { return static_cast<int>(load()); }).wait());
        EXPECT_EQ(1, child_process([] { return static_cast<int>(load(1)); }).wait());
        expect_refused(0);
        expect_refused(1);
    }
}

TEST_P(stale_segment, that_is_one_byte_short_is_refused_although_its_size_check_is_right) {
    make(format().size - 1, static_cast<uint32_t>(format().size));
    expect_refused(0);
}

TEST_P(stale_segment, that_is_refused_for_what_it_holds_is_refused_at_the_first_look) {
    segment_make(format(), 4096);
    EXPECT_EQ(1u, load());
    EXPECT_EQ(1, calls::count("fstat"));
    EXPECT_EQ(YB_STATUS_SUCCESS, unload());
    make(format().size, 1);
    calls::reset();
    EXPECT_EQ(1u, load());
    EXPECT_EQ(1, calls::count("fstat"));
}

// These two wait for a creator that never comes.
TEST_P(stale_segment, that_is_empty_is_refused_after_a_wait) {
    segment_make(format(), 0);
    expect_refused(0);
    EXPECT_LT(100, calls::count("fstat"));
}

TEST_P(stale_segment, whose_creator_died_before_it_wrote_the_size_check_is_refused_after_a_wait) {
    make(format().size, 0);
    expect_refused(1);
    EXPECT_LT(100, calls::count("fstat"));
}

TEST_P(stale_segment, whose_size_cannot_be_told_is_refused) {
    made_by_another_process();
    calls::fail("fstat", EIO);
    expect_refused(0);
}

TEST_P(stale_segment, that_is_longer_than_its_right_size_check_says_is_accepted) {
    made_by_another_process();
    ASSERT_EQ(0, truncate(format().path, static_cast<off_t>(format().size) + 4096));
    EXPECT_EQ(YB_STATUS_SUCCESS, load()) << "the size check alone tells the layout";
    EXPECT_EQ(2u, segment_view(format()).user_count());
}

TEST_P(stale_segment, leaves_the_reference_set_and_nothing_follows_it) {
    make(format().size, 1);
    EXPECT_EQ(1u, load());
    EXPECT_NE(nullptr, GetParam().reference.reference);
    EXPECT_EQ(18u, operation());
    platform::recorded().log.clear();
    // The file is gone, and with it what the mapping showed: still no load but the first.
    segment_remove(format());
    EXPECT_EQ(31u, load(0));
    EXPECT_EQ(1u, load(1));
    EXPECT_EQ(1u, load(2));
    EXPECT_THAT(all_said(),
                ElementsAre(said{severity_warn, GetParam().already_loaded}, error(GetParam().loaded_mismatch),
                            error(GetParam().loaded_mismatch)));
    EXPECT_FALSE(segment_exists(format()));

    calls::reset();
    EXPECT_EQ(YB_STATUS_SUCCESS, unload());
    EXPECT_EQ(nullptr, GetParam().reference.reference);
    EXPECT_EQ(0, calls::count("munmap")) << "it was unmapped by the load";
    EXPECT_EQ(0, calls::count("shm_unlink"));
    EXPECT_EQ(YB_STATUS_SUCCESS, load()) << "a later load works again";
    EXPECT_EQ(1u, segment_view(format()).user_count());
}

TEST_P(stale_segment, that_cannot_be_unmapped_is_told_twice) {
    make(format().size, 1);
    calls::fail("munmap", EINVAL);
    EXPECT_EQ(1u, load());
    EXPECT_THAT(all_said(), ElementsAre(error(GetParam().mismatch), error(GetParam().unmap_failed)));
    EXPECT_EQ(18u, operation());
    EXPECT_EQ(YB_STATUS_SUCCESS, unload());
}

TEST_P(stale_segment, whose_last_user_died_while_it_left_is_replaced_by_a_fresh_one) {
    for (const uint32_t state : {3u, 4u}) {
        SCOPED_TRACE(state);
        made_by_another_process();
        segment_view old(format());
        scribble(old);
        old.set_word(format().user_count(), 0);
        old.set_word(format().lock_state(), state);
        const size_t descriptors_before = descriptors().size();
        calls::reset();
        EXPECT_EQ(YB_STATUS_SUCCESS, load());
        EXPECT_EQ(1, calls::count("munmap"));
        EXPECT_EQ(descriptors_before + 2, descriptors().size()) << "none is kept of the old one";
        EXPECT_THAT(all_said(), IsEmpty());
        EXPECT_FALSE(scribble_is_there());
        EXPECT_EQ(1u, segment_view(format()).user_count());
        EXPECT_EQ(2u, segment_view(format()).word(format().lock_state()));
        EXPECT_EQ(0u, old.user_count()) << "the old one is not registered in";
        EXPECT_EQ(YB_STATUS_SUCCESS, unload());
    }
}

TEST_P(stale_segment, is_unmapped) {
    make(format().size, 1);
    calls::reset();
    EXPECT_EQ(1u, load());
    EXPECT_EQ(1, calls::count("munmap"));
}

FOR_BOTH_SEGMENTS(stale_segment);

} // namespace
