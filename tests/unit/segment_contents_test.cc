// SPDX-License-Identifier: Apache-2.0
//
// Every byte of a segment as it is after its creation and after an erase, read
// from the file under /dev/shm by offset.
#include "tests/unit/segments_fixture.h"

#include <cstring>
#include <pthread.h>

namespace {

using bytes = std::vector<uint8_t>;

void put(bytes &to, size_t offset, uint32_t value) {
    for (size_t i = 0; i < 4; i++)
        to.at(offset + i) = static_cast<uint8_t>(value >> (8 * i));
}

// The bytes of a process-shared lock that was taken and released this often.
bytes lock_used(int times) {
    pthread_rwlockattr_t attribute;
    (void)pthread_rwlockattr_init(&attribute);
    (void)pthread_rwlockattr_setpshared(&attribute, PTHREAD_PROCESS_SHARED);
    pthread_rwlock_t lock;
    memset(&lock, 0, sizeof(lock));
    (void)pthread_rwlock_init(&lock, &attribute);
    for (int i = 0; i < times; i++) {
        (void)pthread_rwlock_wrlock(&lock);
        (void)pthread_rwlock_unlock(&lock);
    }
    const auto *const begin = reinterpret_cast<const uint8_t *>(&lock);
    return {begin, begin + sizeof(lock)};
}

// A segment right after its creator loaded it: a body of zeros and the trailer.
bytes fresh(const segment_format &format) {
    bytes expected(format.size, 0);
    const bytes lock = lock_used(2); // for the contents and for the registration
    EXPECT_EQ(56u, lock.size());
    std::copy(lock.begin(), lock.end(), expected.begin() + static_cast<ptrdiff_t>(format.lock));
    put(expected, format.lock + 56, 2);
    expected.at(format.lock + 64) = 222;
    put(expected, format.lock + 68, 1);
    put(expected, format.lock + 72, static_cast<uint32_t>(format.size));
    return expected;
}

void expect_same_bytes(const bytes &expected, const bytes &found) {
    ASSERT_EQ(expected.size(), found.size());
    for (size_t i = 0; i < expected.size(); i++)
        ASSERT_EQ(expected[i], found[i]) << "at offset " << i;
}

class segment_contents : public segments_test {
  protected:
    // What an erase leaves of a body full of 0xAB.
    static bytes erased_body() {
        bytes body(format().lock, 0);
        if (format().size == interfaces_format.size) {
            write_no_rif_and_vrid(body);
            return body;
        }
        // Entry 255 of the LAG map, and the two ifindex maps behind the MLAG map, are not touched.
        body.at(0x540000 + 510) = 0xAB;
        body.at(0x540000 + 511) = 0xAB;
        std::fill(body.begin() + 0x540200 + 1001 * 4, body.end(), uint8_t{0xAB});
        return body;
    }
    static void write_no_rif_and_vrid(bytes &body) {
        for (size_t record = 0; record < 4096; record++) {
            body.at(record * 116 + 108) = 0xFF; // rif 65535
            body.at(record * 116 + 109) = 0xFF;
            body.at(record * 116 + 110) = 0xFF; // vrid 255
            body.at(record * 116 + 111) = 0x00;
        }
    }
    // Fills the body, erases with this flag, and looks at every byte; the trailer's reserved bytes stay as
    // well.
    static void expect_erase_by(yb_status_t (*load)(uint32_t), uint32_t flag, uint32_t users_then) {
        segment_view view(format());
        view.fill(0, format().lock, 0xAB);
        view.fill(format().lock + 60, format().lock + 64, 0xC1);
        view.fill(format().lock + 65, format().lock + 68, 0xC2);
        view.fill(format().lock + 76, format().lock + 80, 0xC3);
        EXPECT_EQ(YB_STATUS_SUCCESS, load(flag));
        expect_same_bytes(erased_body(), view.bytes(0, format().lock));
        EXPECT_EQ(2u, view.word(format().lock_state()));
        EXPECT_EQ(0xC1C1C1C1u, view.word(format().lock + 60));
        EXPECT_EQ(0xC2C2C2DEu, view.word(format().marker()));
        EXPECT_EQ(users_then, view.user_count());
        EXPECT_EQ(format().size, view.word(format().size_check()));
        EXPECT_EQ(0xC3C3C3C3u, view.word(format().lock + 76));
        EXPECT_FALSE(view.locked());
    }
};

TEST_P(segment_contents, of_a_fresh_segment_are_right_to_the_byte) {
    ASSERT_EQ(YB_STATUS_SUCCESS, load());
    bytes expected = fresh(format());
    if (format().size == interfaces_format.size)
        write_no_rif_and_vrid(expected);
    expect_same_bytes(expected, segment_bytes(format()));
}

TEST_P(segment_contents, after_a_second_load_with_any_flag_but_0_are_erased) {
    ASSERT_EQ(YB_STATUS_SUCCESS, load());
    for (const uint32_t flag : {1u, 2u, 0x80000000u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(flag);
        expect_erase_by(GetParam().load, flag, 1);
    }
}

TEST_P(segment_contents, after_a_first_load_with_flag_1_are_erased) {
    made_by_another_process();
    expect_erase_by(GetParam().load, 1, 2);
}

TEST_P(segment_contents, of_a_segment_made_anew_after_the_last_unload_are_fresh_again) {
    ASSERT_EQ(YB_STATUS_SUCCESS, load());
    segment_view(format()).fill(0, format().lock, 0xAB);
    ASSERT_EQ(YB_STATUS_SUCCESS, unload());
    ASSERT_EQ(YB_STATUS_SUCCESS, load());
    bytes expected = fresh(format());
    if (format().size == interfaces_format.size)
        write_no_rif_and_vrid(expected);
    expect_same_bytes(expected, segment_bytes(format()));
}

TEST_P(segment_contents, are_erased_and_flushed_with_the_lock_held) {
    ASSERT_EQ(YB_STATUS_SUCCESS, load());
    segment_view view(format());
    scribble(view);
    calls::reset();
    bool locked = false;
    bool erased = false;
    calls::before("msync", [&](int) {
        locked = view.locked();
        erased = view.word(0) == 0;
    });
    ASSERT_EQ(YB_STATUS_SUCCESS, load(1));
    EXPECT_EQ(1, calls::count("msync"));
    EXPECT_TRUE(locked);
    EXPECT_TRUE(erased);
    EXPECT_EQ(1, calls::count("segment_lock"));
}

FOR_BOTH_SEGMENTS(segment_contents);

} // namespace
