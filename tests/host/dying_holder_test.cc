// SPDX-License-Identifier: Apache-2.0
//
// Real processes that die, or do not, with a segment's lock in their hands: who waits gets it from the dead,
// and from nobody else.
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <list>
#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include "tests/host/dying_holder_fixture.h"

namespace {

// What a daemon that closes all it did not open leaves: the numbers are another file's.
void give_all_descriptors_to_another_file() {
    const int other = memfd_create("a log file", MFD_CLOEXEC);
    for (int descriptor = 3; descriptor < 256; descriptor++)
        if (descriptor != other && fcntl(descriptor, F_GETFD) >= 0)
            (void)dup2(other, descriptor);
}

TEST_F(dying_holder, that_is_killed_is_succeeded_by_one_of_those_who_wait_who_says_so) {
    child_process holder([this] { return hold(); });
    ASSERT_TRUE(held_.wait_for(1));
    start_waiters(6);
    EXPECT_EQ(0, served_.value());
    holder.signal(SIGKILL); // a zombie until the test ends
    expect_served(1);
}

TEST_F(dying_holder, that_is_dead_and_buried_is_named_in_the_message) {
    child_process holder([this] { return hold(); });
    const std::string id = std::to_string(holder.pid());
    ASSERT_TRUE(held_.wait_for(1));
    holder.signal(SIGKILL);
    (void)holder.wait();
    yb_net_interface_record_t record;
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, net_lib_db_interface_get(1, &record));
    EXPECT_THAT(platform::recorded().texts(severity_warn),
                testing::ElementsAre("Net-lib interfaces DB - lock taken over from thread " + id +
                                     ", which died holding it\n"));
}

TEST_F(dying_holder, again_and_again_is_succeeded_by_one) {
    for (int round = 1; round <= 5; round++) {
        child_process holder([this] { return hold(); });
        ASSERT_TRUE(held_.wait_for(round));
        start_waiters(4);
        holder.signal(SIGKILL);
        ASSERT_TRUE(served_.wait_for(4 * round));
        EXPECT_EQ(round, takeovers_.value());
    }
}

TEST_F(dying_holder, that_only_stops_keeps_the_lock) {
    child_process holder([this] { return hold(); });
    ASSERT_TRUE(held_.wait_for(1));
    holder.signal(SIGSTOP);
    start_waiters(3);
    expect_nobody_served();
    let_go_.add();
    holder.signal(SIGCONT);
    EXPECT_EQ(0, holder.wait());
    expect_served(0);
}

TEST_F(dying_holder, that_is_slow_keeps_the_lock) {
    child_process holder([this] { return hold(); });
    ASSERT_TRUE(held_.wait_for(1));
    start_waiters(3);
    expect_nobody_served();
    let_go_.add();
    EXPECT_EQ(0, holder.wait());
    expect_served(0);
}

TEST_F(dying_holder, that_is_slow_or_stopped_in_another_namespace_keeps_the_lock) {
    child_process keeper = in_another_namespace([this] {
        net_lib_db_interface_lock_acquire();
        held_.add();
        (void)raise(SIGSTOP); // known to nobody outside; continued from outside the namespace below
        return hold();
    });
    ASSERT_TRUE(held_.wait_for(1));
    EXPECT_LT(holders_pid(), 10) << "an id that means somebody else here";
    start_waiters(2);
    expect_nobody_served();
}

TEST_F(dying_holder, of_another_namespace_is_succeeded_when_it_is_killed) {
    child_process keeper = in_another_namespace([this] { return hold(); });
    ASSERT_TRUE(held_.wait_for(1));
    start_waiters(3);
    expect_nobody_served();
    keeper.signal(SIGKILL); // and with it its children
    expect_served(1);
}

TEST_F(dying_holder, is_succeeded_from_another_namespace) {
    child_process holder([this] { return hold(); });
    ASSERT_TRUE(held_.wait_for(1));
    waiters_.push_back(in_another_namespace([this] { return wait_for_it(); }));
    ASSERT_TRUE(waiting_.wait_for(1));
    expect_nobody_served();
    holder.signal(SIGSTOP);
    expect_nobody_served();
    holder.signal(SIGKILL);
    expect_served(1);
}

TEST_F(dying_holder, is_not_taken_for_oneself_by_its_id) {
    child_process holder([this] { return hold(); });
    ASSERT_TRUE(held_.wait_for(1));
    waiters_.push_back(in_another_namespace([this] { return wait_for_it(); }, holder.pid()));
    ASSERT_TRUE(waiting_.wait_for(1)) << waiters_.back().wait();
    expect_nobody_served();
    holder.signal(SIGKILL);
    expect_served(1);
}

// The first process of each namespace has the id 1, and the same thread of it takes locks.
TEST_F(dying_holder, is_dead_although_a_namesake_that_uses_the_segment_lives_elsewhere) {
    const auto namesake = [this](const std::function<int()> &body) {
        return child_process([body] {
            if (unshare(CLONE_NEWPID) != 0)
                return 77;
            return child_process(body).wait();
        });
    };
    const child_process living = namesake([this] {
        yb_net_interface_record_t record;
        (void)net_lib_db_interface_get(1, &record); // announces it
        forked_.add();
        (void)leave_.wait_for(1);
        return 0;
    });
    ASSERT_TRUE(forked_.wait_for(1));
    child_process holder = namesake([this] { return hold(); });
    ASSERT_TRUE(held_.wait_for(1));
    EXPECT_EQ(1, holders_pid());
    start_waiters(2);
    expect_nobody_served();
    holder.signal(SIGKILL);
    expect_served(1);
    leave_.add();
}

TEST_F(dying_holder, of_another_namespace_is_said_to_be_of_one) {
    child_process holder = in_another_namespace([this] { return hold(); });
    ASSERT_TRUE(held_.wait_for(1));
    const std::string id = std::to_string(holders_pid());
    holder.signal(SIGKILL);
    yb_net_interface_record_t record;
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, net_lib_db_interface_get(1, &record));
    EXPECT_THAT(platform::recorded().texts(severity_warn),
                testing::ElementsAre("Net-lib interfaces DB - lock taken over from thread " + id +
                                     " of another PID namespace, which died holding it\n"));
}

// ---- Children of a fork ----

TEST_F(dying_holder, is_dead_although_its_forked_child_lives) {
    child_process holder([this] {
        const child_process child([this] {
            (void)prctl(PR_SET_PDEATHSIG, 0); // outlives it
            forked_.add();
            (void)leave_.wait_for(1);
            return 0;
        });
        (void)forked_.wait_for(1);
        return hold();
    });
    ASSERT_TRUE(held_.wait_for(1));
    waiters_.push_back(in_another_namespace([this] { return wait_for_it(); }));
    ASSERT_TRUE(waiting_.wait_for(1));
    start_waiters(2);
    holder.signal(SIGKILL);
    expect_served(1);
    leave_.add();
}

// The holder has loaded by itself, so that its own descriptor is behind its mapping, which its child inherits.
TEST_F(dying_holder, is_dead_to_another_namespace_alone_although_its_forked_child_lives) {
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_unload(0));
    child_process holder([this] {
        if (net_lib_db_interfaces_load(0) != YB_STATUS_SUCCESS)
            return 1;
        const child_process child([this] {
            (void)prctl(PR_SET_PDEATHSIG, 0); // outlives it
            forked_.add();
            (void)leave_.wait_for(1);
            return 0;
        });
        (void)forked_.wait_for(1);
        return hold();
    });
    ASSERT_TRUE(held_.wait_for(1));
    waiters_.push_back(in_another_namespace([this] {
        platform::reset();
        waiting_.add();
        const yb_status_t status = net_lib_db_interfaces_load(0);
        takeovers_.add(static_cast<int>(platform::recorded().texts(severity_warn).size()));
        served_.add();
        return status == YB_STATUS_SUCCESS ? 0 : 1;
    }));
    ASSERT_TRUE(waiting_.wait_for(1));
    holder.signal(SIGKILL);
    expect_served(1);
    leave_.add();
}

TEST_F(dying_holder, is_dead_although_its_parent_lives) {
    // This process announced itself when it loaded; the child took over its descriptor.
    child_process holder([this] { return hold(); });
    ASSERT_TRUE(held_.wait_for(1));
    waiters_.push_back(in_another_namespace([this] { return wait_for_it(); }));
    ASSERT_TRUE(waiting_.wait_for(1));
    holder.signal(SIGKILL);
    expect_served(1);
}

TEST_F(dying_holder, leaves_nothing_to_release_to_a_child_it_forks) {
    net_lib_db_interface_lock_acquire();
    child_process child([] {
        platform::reset();
        net_lib_db_interface_lock_release();
        return platform::recorded().texts(1).empty() ? 1 : 0; // an assertion report
    });
    EXPECT_EQ(0, child.wait());
    EXPECT_TRUE(segment_view(interfaces_format).locked());
    start_waiters(1);
    expect_nobody_served();
    net_lib_db_interface_lock_release();
    expect_served(0);
}

// ---- Descriptors that the process has closed ----

TEST_F(dying_holder, is_not_judged_on_another_file_than_the_segments) {
    child_process holder([this] { return hold(); });
    ASSERT_TRUE(held_.wait_for(1));
    waiters_.emplace_back([this] {
        give_all_descriptors_to_another_file();
        return wait_for_it();
    });
    ASSERT_TRUE(waiting_.wait_for(1));
    expect_nobody_served();
    let_go_.add();
    expect_served(0);
    EXPECT_EQ(0, holder.wait());
}

TEST_F(dying_holder, of_another_namespace_whose_process_closed_all_its_files_keeps_the_lock_while_it_lives) {
    const auto with_a_new_thread = [this] {
        give_all_descriptors_to_another_file();
        std::thread([this] { (void)hold(); }).join();
        return 0;
    };
    child_process holder = in_another_namespace(with_a_new_thread);
    ASSERT_TRUE(held_.wait_for(1));
    start_waiters(1);
    expect_nobody_served();
    holder.signal(SIGKILL);
    expect_served(1);
}

TEST_F(dying_holder, that_cannot_announce_itself_on_the_segments_file_keeps_the_lock) {
    child_process holder = in_another_namespace([this] {
        give_all_descriptors_to_another_file();
        (void)rename(interfaces_format.path, "/dev/shm/elsewhere");
        std::thread([this] { (void)hold(); }).join();
        return 0;
    });
    ASSERT_TRUE(held_.wait_for(1));
    ASSERT_EQ(0, rename("/dev/shm/elsewhere", interfaces_format.path));
    start_waiters(1);
    expect_nobody_served();
    let_go_.add();
    expect_served(0);
    EXPECT_EQ(0, holder.wait());
}

// ---- At every point of taking and releasing ----

struct lock_moment {
    const char *what;
    uint32_t readers;
    uint32_t writers_futex;
    uint32_t cur_writer; // 1: the holder's
};
constexpr lock_moment moments[] = {
    {"the flag was just set", 3, 0, 0},
    {"the futex was turned on", 3, 1, 0},
    {"it is held", 3, 1, 1},
    {"others sleep on it", 3, 3, 1},
    {"its record was just cleared", 3, 3, 0},
    {"sleepers are known, the flag stands", 3, 0, 0},
    {"it is free, but the id", 1, 0, 0},
};

void forge(const lock_moment &moment, pid_t holder) {
    segment_view view(interfaces_format);
    const size_t lock = interfaces_format.lock;
    view.set_word(lock + 12, moment.writers_futex);
    view.set_word(lock + 24, moment.cur_writer != 0 ? static_cast<uint32_t>(holder) : 0);
    struct stat space = {};
    ASSERT_EQ(0, stat("/proc/self/ns/pid", &space));
    view.set_word(lock + 4, static_cast<uint32_t>(holder) | (static_cast<uint32_t>(space.st_ino) & 0xFF)
                                                                << 22);
    view.set_word(lock + 0, moment.readers);
}

TEST_F(dying_holder, is_known_at_every_point_of_taking_and_releasing_the_lock) {
    for (const lock_moment &moment : moments) {
        SCOPED_TRACE(moment.what);
        shared_counter announced;
        child_process holder([&announced] {
            yb_net_interface_record_t record;
            (void)net_lib_db_interface_get(1, &record); // announces it
            announced.add();
            pause();
            return 0;
        });
        ASSERT_TRUE(announced.wait_for(1));
        forge(moment, holder.pid());
        const int served = served_.value();
        const int takeovers = takeovers_.value();
        waiters_.emplace_back([this] { return wait_for_it(); });
        EXPECT_FALSE(served_.wait_for(served + 1, std::chrono::milliseconds(600))) << "robbed";
        holder.signal(SIGKILL);
        EXPECT_TRUE(served_.wait_for(served + 1, std::chrono::seconds(10)));
        EXPECT_EQ(takeovers + 1, takeovers_.value());
        EXPECT_FALSE(segment_view(interfaces_format).locked());
    }
}

// ---- Other builds, which use pthread calls only ----

pthread_rwlock_t *raw_lock() {
    const int descriptor = open(interfaces_format.path, O_RDWR | O_CLOEXEC);
    void *const memory =
        mmap(nullptr, interfaces_format.size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    (void)close(descriptor);
    return reinterpret_cast<pthread_rwlock_t *>(static_cast<char *>(memory) + interfaces_format.lock);
}

TEST_F(dying_holder, of_another_build_is_known_by_glibcs_record) {
    child_process holder([this] {
        (void)pthread_rwlock_wrlock(raw_lock());
        held_.add();
        pause();
        return 0;
    });
    ASSERT_TRUE(held_.wait_for(1));
    start_waiters(2);
    expect_nobody_served();
    holder.signal(SIGKILL);
    expect_served(1);
}

TEST_F(dying_holder, beside_another_build_excludes_it_and_wakes_it) {
    shared_counter inside;
    shared_counter wrong;
    constexpr int rounds = 20000;
    const auto in_turn = [&](auto take, auto release) {
        for (int i = 0; i < rounds; i++) {
            take();
            inside.add();
            wrong.add(inside.value() == 1 ? 0 : 1);
            inside.add(-1);
            release();
        }
        return 0;
    };
    std::list<child_process> all;
    for (int i = 0; i < 2; i++) {
        all.emplace_back(
            [&] { return in_turn(net_lib_db_interface_lock_acquire, net_lib_db_interface_lock_release); });
        all.emplace_back([&] {
            pthread_rwlock_t *const lock = raw_lock();
            return in_turn([lock] { (void)pthread_rwlock_wrlock(lock); },
                           [lock] { (void)pthread_rwlock_unlock(lock); });
        });
    }
    for (child_process &one : all)
        EXPECT_EQ(0, one.wait());
    EXPECT_EQ(0, wrong.value());
}

} // namespace
