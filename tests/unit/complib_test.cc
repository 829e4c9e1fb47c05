// SPDX-License-Identifier: Apache-2.0
//
// The shared-memory and lock routines: their results, and the report that each
// writes when a precondition fails.
#include "net_lib_db/complib/cl_passivelock.h"
#include "net_lib_db/complib/cl_shared_memory.h"

#include <cerrno>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "tests/support/recording_platform.h"
#include "tests/support/system_calls.h"
#include "ybnet/net_lib.h"

namespace {

using testing::IsEmpty;
using testing::MatchesRegex;

constexpr cl_plock_place nowhere = {"a test's lock", -1};
cl_plock_user nobody;

class complib : public testing::Test {
  protected:
    cl_plock_user user = {static_cast<uint32_t>(gettid()), 0, 0, 0};

    void SetUp() override {
        platform::reset();
        calls::reset();
    }
    void TearDown() override {
        uint32_t verbosity = 3;
        (void)yb_net_log_verbosity_level(YB_ACCESS_CMD_SET, &verbosity);
        calls::reset();
        platform::reset();
    }

    // Exactly one report, to the letter, of this routine; forgotten by it. Returns the number of frames.
    static size_t expect_report(const std::string &header, const std::string &routine) {
        std::vector<platform::log_line> log;
        log.swap(platform::recorded().log);
        if (log.size() < 3) {
            ADD_FAILURE() << log.size() << " lines";
            return 0;
        }
        for (const platform::log_line &line : log) {
            EXPECT_EQ(1u, line.severity);
            EXPECT_EQ("TRACE_CBUFF", line.module);
        }
        EXPECT_EQ("ASSERT in %s[%d]- %s\n", log[0].format);
        EXPECT_THAT(log[0].text,
                    MatchesRegex("ASSERT in " + header + "\\[[1-9][0-9]*\\]- " + routine + "\n"));
        const size_t frames = log.size() - 2;
        EXPECT_EQ("ASSERT - Retrieved a list of %zd elements.\n", log[1].format);
        EXPECT_EQ("ASSERT - Retrieved a list of " + std::to_string(frames) + " elements.\n", log[1].text);
        for (size_t i = 0; i < frames; i++) {
            EXPECT_EQ("ASSERT - Element %zd: %s.\n", log[i + 2].format);
            EXPECT_THAT(log[i + 2].text,
                        MatchesRegex("ASSERT - Element " + std::to_string(i) + ": .*\\[0x[0-9a-f]+\\].\n"));
        }
        EXPECT_THAT(platform::recorded().trace, IsEmpty()) << "no form in the trace buffer";
        return frames;
    }
    static size_t expect_lock_report(const std::string &routine) {
        return expect_report("complib/cl_passivelock", routine);
    }
    static void expect_no_report() {
        EXPECT_THAT(platform::recorded().log, IsEmpty());
    }
    static bool locked(cl_plock_t &plock) {
        if (pthread_rwlock_trywrlock(cl_plock_rwlock(&plock)) != 0)
            return true;
        (void)pthread_rwlock_unlock(cl_plock_rwlock(&plock));
        return false;
    }
};

class initialized_plock : public complib {
  protected:
    void SetUp() override {
        complib::SetUp();
        ASSERT_EQ(0, cl_plock_init_pshared(&plock));
        calls::reset();
    }
    cl_plock_t plock = {};
};

// ---- The report itself ----

TEST_F(complib, report_is_written_at_verbosity_0) {
    uint32_t silent = 0;
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_log_verbosity_level(YB_ACCESS_CMD_SET, &silent));
    cl_plock_release(nullptr, nobody);
    EXPECT_LT(0u, expect_lock_report("cl_plock_release"));
}

__attribute__((noinline)) void report_from_depth(int depth) {
    if (depth > 0)
        report_from_depth(depth - 1);
    else
        cl_plock_release(nullptr, nobody);
    asm volatile(""); // keeps the frame
}

TEST_F(complib, report_has_at_most_20_frames) {
    report_from_depth(40);
    EXPECT_EQ(20u, expect_lock_report("cl_plock_release"));
}

TEST_F(complib, report_without_memory_for_names_ends_with_the_count) {
    calls::fail("backtrace_symbols", ENOMEM);
    cl_plock_release(nullptr, nobody);
    ASSERT_EQ(2u, platform::recorded().log.size());
    EXPECT_EQ("ASSERT in %s[%d]- %s\n", platform::recorded().log[0].format);
    EXPECT_EQ("ASSERT - Retrieved a list of %zd elements.\n", platform::recorded().log[1].format);
}

// ---- The lock ----

TEST_F(complib, lock_routines_report_a_null_lock_and_go_on) {
    EXPECT_EQ(1, cl_plock_init_pshared(nullptr));
    expect_lock_report("cl_plock_init_pshared");
    (void)cl_plock_excl_acquire(nullptr, user, nowhere);
    expect_lock_report("cl_plock_excl_acquire");
    cl_plock_release(nullptr, user);
    expect_lock_report("cl_plock_release");
    cl_plock_destroy(nullptr);
    expect_lock_report("cl_plock_destroy");
}

TEST_F(complib, lock_is_initialized_process_shared) {
    cl_plock_t plock = {};
    EXPECT_EQ(0, cl_plock_init_pshared(&plock));
    EXPECT_EQ(2u, plock.state);
    EXPECT_EQ(PTHREAD_PROCESS_SHARED, reinterpret_cast<const int32_t *>(plock.rwlock)[7])
        << "glibc keeps it at offset 28";
    EXPECT_EQ(1, calls::count("pthread_rwlockattr_destroy"));
    expect_no_report();
}

TEST_F(complib, lock_initialization_fails_with_each_of_its_calls_and_destroys_the_attribute) {
    for (const char *const function :
         {"pthread_rwlockattr_init", "pthread_rwlockattr_setpshared", "pthread_rwlock_init"}) {
        SCOPED_TRACE(function);
        calls::reset();
        calls::fail(function, ENOMEM);
        cl_plock_t plock = {};
        EXPECT_EQ(1, cl_plock_init_pshared(&plock));
        EXPECT_EQ(0u, plock.state);
        EXPECT_EQ(1, calls::count("pthread_rwlockattr_destroy"));
    }
    expect_no_report();
}

TEST_F(initialized_plock, is_taken_and_released) {
    (void)cl_plock_excl_acquire(&plock, user, nowhere);
    EXPECT_TRUE(locked(plock));
    cl_plock_release(&plock, user);
    EXPECT_FALSE(locked(plock));
    EXPECT_EQ(2u, plock.state);
    expect_no_report();
}

TEST_F(initialized_plock, in_another_state_is_reported_and_taken_all_the_same) {
    for (const uint32_t state : {0u, 1u, 3u, 4u, 0x02000002u}) {
        SCOPED_TRACE(state);
        plock.state = state;
        (void)cl_plock_excl_acquire(&plock, user, nowhere);
        expect_lock_report("cl_plock_excl_acquire");
        EXPECT_TRUE(locked(plock));
        cl_plock_release(&plock, user);
        expect_lock_report("cl_plock_release");
        EXPECT_FALSE(locked(plock));
        EXPECT_EQ(state, plock.state);
    }
}

TEST_F(initialized_plock, that_cannot_be_taken_is_reported_and_the_caller_goes_on) {
    (void)cl_plock_excl_acquire(&plock, user, nowhere);
    (void)cl_plock_excl_acquire(&plock, user, nowhere); // would wait for itself
    expect_lock_report("cl_plock_excl_acquire");
    cl_plock_release(&plock, user);
    expect_no_report();
}

TEST_F(initialized_plock, that_is_not_held_is_not_released) {
    cl_plock_release(&plock, user);
    expect_lock_report("cl_plock_release");
    (void)cl_plock_excl_acquire(&plock, user, nowhere);
    cl_plock_user other = {};
    cl_plock_release(&plock, other);
    expect_lock_report("cl_plock_release");
    EXPECT_TRUE(locked(plock));
    cl_plock_release(&plock, user);
    EXPECT_FALSE(locked(plock));
}

TEST_F(initialized_plock, goes_through_state_3_to_state_4_when_destroyed) {
    uint32_t during = 0;
    calls::before("pthread_rwlock_destroy", [&](int) { during = plock.state; });
    cl_plock_destroy(&plock);
    EXPECT_EQ(3u, during);
    EXPECT_EQ(4u, plock.state);
    EXPECT_EQ(1, calls::count("pthread_rwlock_destroy"));
    expect_no_report();
}

TEST_F(initialized_plock, that_cannot_be_destroyed_is_reported_and_counts_as_destroyed) {
    calls::fail("pthread_rwlock_destroy", EBUSY);
    cl_plock_destroy(&plock);
    expect_lock_report("cl_plock_destroy");
    EXPECT_EQ(4u, plock.state);
}

// ---- Shared memory ----

TEST_F(complib, shared_memory_routines_report_a_null_argument_and_fail) {
    int descriptor = 77;
    EXPECT_EQ(1, cl_shm_create(nullptr, &descriptor));
    expect_report("complib/cl_shared_memory", "cl_shm_create");
    EXPECT_EQ(1, cl_shm_create("/complib_test", nullptr));
    expect_report("complib/cl_shared_memory", "cl_shm_create");
    EXPECT_EQ(1, cl_shm_open(nullptr, &descriptor));
    expect_report("complib/cl_shared_memory", "cl_shm_open");
    EXPECT_EQ(1, cl_shm_open("/complib_test", nullptr));
    expect_report("complib/cl_shared_memory", "cl_shm_open");
    EXPECT_EQ(1, cl_shm_destroy(nullptr));
    expect_report("complib/cl_shared_memory", "cl_shm_destroy");
    EXPECT_EQ(77, descriptor);
    EXPECT_EQ(-1, access("/dev/shm/complib_test", F_OK));
}

TEST_F(complib, shared_memory_is_created_once_opened_and_destroyed) {
    int descriptor = -1;
    EXPECT_EQ(1, cl_shm_open("/complib_test", &descriptor));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_GT(0, descriptor);

    ASSERT_EQ(0, cl_shm_create("/complib_test", &descriptor));
    EXPECT_EQ(O_RDWR, fcntl(descriptor, F_GETFL) & O_ACCMODE);
    int second = -1;
    EXPECT_EQ(1, cl_shm_create("/complib_test", &second));
    EXPECT_EQ(EEXIST, errno);

    ASSERT_EQ(0, cl_shm_open("/complib_test", &second));
    EXPECT_EQ(O_RDWR, fcntl(second, F_GETFL) & O_ACCMODE);
    (void)close(second);
    (void)close(descriptor);

    EXPECT_EQ(0, cl_shm_destroy("/complib_test"));
    EXPECT_EQ(1, cl_shm_destroy("/complib_test"));
    EXPECT_EQ(ENOENT, errno);
    expect_no_report();
}

} // namespace
