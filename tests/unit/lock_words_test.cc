// SPDX-License-Identifier: Apache-2.0
//
// The lock's words in states that this build's own calls do not leave behind: another build's readers, a holder
// recorded nowhere, a holder that changes while it is looked at. complib_test.cc has the lock's plain use.
#include "net_lib_db/complib/cl_passivelock.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "tests/support/processes.h"
#include "tests/support/recording_platform.h"
#include "tests/support/system_calls.h"

namespace {

constexpr useconds_t two_rounds = 450'000; // of waiting, each with a look at the holder behind it

class lock_words : public testing::Test {
  protected:
    void SetUp() override {
        platform::reset();
        calls::reset();
        place_.name = "a test's lock";
        place_.descriptor = memfd_create("lock_words_test", MFD_CLOEXEC);
        struct stat file = {};
        ASSERT_EQ(0, fstat(place_.descriptor, &file));
        place_.device = file.st_dev;
        place_.inode = file.st_ino;
        ASSERT_EQ(0, cl_plock_init_pshared(&plock_));
        user_.id = static_cast<uint32_t>(gettid());
    }
    void TearDown() override {
        calls::reset();
        (void)close(place_.descriptor);
        EXPECT_TRUE(platform::recorded().log.empty()) << platform::recorded().log.front().text;
    }

    void put(uint32_t readers, uint32_t owner, uint32_t writer = 0) {
        __atomic_store_n(CL_PLOCK_WORD(&plock_, __cur_writer), writer, __ATOMIC_RELAXED);
        __atomic_store_n(cl_plock_words(&plock_), uint64_t{owner} << CL_PLOCK_OWNER_SHIFT | readers,
                         __ATOMIC_RELEASE);
    }
    uint32_t readers() {
        return static_cast<uint32_t>(__atomic_load_n(cl_plock_words(&plock_), __ATOMIC_ACQUIRE));
    }
    // Whether the lock is taken over while its words are left alone, which they are for two looks at its holder.
    bool is_taken_over(const cl_plock_place &place) {
        std::thread holder([this] {
            usleep(two_rounds);
            put(0, 0);
        });
        const uint32_t dead = cl_plock_excl_acquire(&plock_, user_, place);
        holder.join();
        if (dead == 0)
            cl_plock_release(&plock_, user_);
        user_ = {static_cast<uint32_t>(gettid())};
        return dead != 0;
    }
    static child_process sleeper() {
        return child_process([] {
            pause();
            return 0;
        });
    }
    static uint32_t unused_id() {
        child_process child([] { return 0; });
        const auto id = static_cast<uint32_t>(child.pid());
        (void)child.wait();
        return id;
    }

    cl_plock_t plock_ = {};
    cl_plock_place place_ = {};
    cl_plock_user user_ = {};
};

constexpr uint32_t held = CL_PLOCK_WRITE_PHASE | CL_PLOCK_WRITE_LOCKED;
constexpr uint32_t one_reader = CL_PLOCK_FLAGS + 1;

// ---- Another build's readers ----

TEST_F(lock_words, reader_of_another_build_sleeps_until_the_release_and_is_woken) {
    (void)cl_plock_excl_acquire(&plock_, user_, place_);
    std::atomic<bool> inside = false;
    std::thread reader([&] {
        EXPECT_EQ(0, pthread_rwlock_rdlock(cl_plock_rwlock(&plock_)));
        inside = true;
        EXPECT_EQ(0, pthread_rwlock_unlock(cl_plock_rwlock(&plock_)));
    });
    while ((__atomic_load_n(CL_PLOCK_WORD(&plock_, __wrphase_futex), __ATOMIC_RELAXED) &
            CL_PLOCK_FUTEX_USED) == 0)
        usleep(1000);
    EXPECT_FALSE(inside);
    cl_plock_release(&plock_, user_);
    reader.join();
    EXPECT_TRUE(inside);
    EXPECT_EQ(0, pthread_rwlock_trywrlock(cl_plock_rwlock(&plock_))) << "the lock is free again";
}

TEST_F(lock_words, reader_that_does_not_sleep_yet_gets_the_phase_at_the_release) {
    (void)cl_plock_excl_acquire(&plock_, user_, place_);
    (void)__atomic_fetch_add(cl_plock_words(&plock_), one_reader, __ATOMIC_RELAXED);
    cl_plock_release(&plock_, user_);
    EXPECT_EQ(one_reader, readers()) << "neither locked nor in a writer's phase";
    EXPECT_EQ(0u, __atomic_load_n(CL_PLOCK_WORD(&plock_, __wrphase_futex), __ATOMIC_RELAXED));
}

TEST_F(lock_words, with_readers_of_another_build_are_not_taken_over) {
    put(held + one_reader, unused_id());
    EXPECT_FALSE(is_taken_over(place_));
}

// ---- Holders ----

TEST_F(lock_words, of_a_dead_holder_are_taken_over) {
    put(held, unused_id());
    EXPECT_TRUE(is_taken_over(place_));
    put(held, cl_plock_namesake_here(unused_id()));
    EXPECT_TRUE(is_taken_over(place_)) << "of this namespace";
    put(held, 0, unused_id());
    EXPECT_TRUE(is_taken_over(place_)) << "of another build";
}

TEST_F(lock_words, of_a_holder_recorded_nowhere_are_waited_for) {
    put(held, 0, 0);
    EXPECT_FALSE(is_taken_over(place_));
}

TEST_F(lock_words, in_no_file_are_never_taken_over) {
    put(held, unused_id());
    EXPECT_FALSE(is_taken_over({}));
}

TEST_F(lock_words, that_change_hands_during_the_inquest_are_not_taken_over) {
    const child_process living = sleeper();
    put(held, unused_id());
    calls::before("fcntl", [&](int) { put(held, 0, static_cast<uint32_t>(living.pid())); });
    EXPECT_FALSE(is_taken_over(place_));
}

// The living one never announced itself, so that as an owner it is a dead one.
TEST_F(lock_words, that_come_to_another_build_under_the_dead_ones_id_are_not_taken_over) {
    const child_process living = sleeper();
    const auto id = static_cast<uint32_t>(living.pid());
    put(held, id);
    calls::before("fcntl", [&](int) { put(held, 0, id); });
    EXPECT_FALSE(is_taken_over(place_));
}

TEST_F(lock_words, that_readers_come_to_during_the_inquest_are_not_taken_over) {
    const uint32_t dead = unused_id();
    put(held, dead);
    calls::before("fcntl", [&](int) { put(held + one_reader, dead); });
    EXPECT_FALSE(is_taken_over(place_));
}

// What sleepers of another build go by: whether the writers' phase is on, and whether they are to be woken.
TEST_F(lock_words, taken_over_say_what_a_holders_say) {
    constexpr uint32_t slept_on = CL_PLOCK_FUTEX_ON | CL_PLOCK_FUTEX_USED;
    for (const uint32_t phase : {0U, uint32_t{CL_PLOCK_FUTEX_ON}, slept_on}) {
        SCOPED_TRACE(phase);
        cl_plock_t words = {};
        ASSERT_EQ(0, cl_plock_init_pshared(&words));
        const uint32_t dead = unused_id();
        *CL_PLOCK_WORD(&words, __wrphase_futex) = phase;
        *cl_plock_words(&words) = uint64_t{dead} << CL_PLOCK_OWNER_SHIFT | held;
        user_.owner = cl_plock_namesake_here(user_.id);
        EXPECT_EQ(dead, cl_plock_excl_acquire(&words, user_, place_));
        EXPECT_EQ(uint64_t{user_.owner} << CL_PLOCK_OWNER_SHIFT | held, *cl_plock_words(&words));
        EXPECT_EQ(user_.id, *CL_PLOCK_WORD(&words, __cur_writer));
        EXPECT_EQ(phase != 0 ? phase : uint32_t{CL_PLOCK_FUTEX_ON}, *CL_PLOCK_WORD(&words, __wrphase_futex));
        EXPECT_EQ(slept_on, *CL_PLOCK_WORD(&words, __writers_futex))
            << "the dead one may have owed a wake-up";
        cl_plock_release(&words, user_);
        EXPECT_EQ(uint64_t{CL_PLOCK_WRITE_PHASE}, *cl_plock_words(&words))
            << "free, and still in a writers' phase";
    }
}

// ---- Files ----

TEST_F(lock_words, lie_in_their_own_file_and_in_no_other_of_its_device) {
    const int other = memfd_create("another file", MFD_CLOEXEC);
    EXPECT_TRUE(cl_plock_is_file(place_.descriptor, place_));
    EXPECT_FALSE(cl_plock_is_file(other, place_));
    (void)close(other);
}

TEST_F(lock_words, file_that_is_closed_and_replaced_while_it_is_opened_again_is_not_taken_for_theirs) {
    const int other = memfd_create("another file", MFD_CLOEXEC);
    const int kept = dup(place_.descriptor);
    calls::before("open", [&](int) { (void)dup2(other, place_.descriptor); });
    errno = 0;
    EXPECT_EQ(-1, cl_plock_open_again(place_));
    EXPECT_EQ(EBADF, errno);
    (void)close(other);
    (void)close(kept);
}

// ---- Byte locks ----

TEST_F(lock_words, announcement_that_a_signal_interrupts_is_made_all_the_same) {
    calls::fail("fcntl", EINTR);
    EXPECT_TRUE(cl_plock_is_announced(cl_plock_announce(place_.descriptor, user_.id)));
    EXPECT_EQ(2, calls::count("fcntl"));
    calls::fail("fcntl", ENOLCK);
    const uint32_t refused = cl_plock_announce(place_.descriptor, user_.id);
    EXPECT_FALSE(cl_plock_is_announced(refused));
    EXPECT_EQ(user_.id, cl_plock_bytes::id_of(refused));
}

TEST_F(lock_words, are_not_taken_over_when_the_kernel_refuses_a_byte_lock) {
    put(held, unused_id());
    calls::before("fcntl", [](int) { calls::fail("fcntl", ENOLCK); });
    EXPECT_FALSE(is_taken_over(place_));
}

} // namespace
