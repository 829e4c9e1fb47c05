// SPDX-License-Identifier: Apache-2.0
//
// Processes that cannot open the segment's file any more, because they have given up their privileges or cannot see
// /proc: they take a dead holder's lock over like all others.
#include <cerrno>
#include <csignal>
#include <linux/capability.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <vector>

#include "tests/host/dying_holder_fixture.h"

namespace {

class unprivileged_heir : public dying_holder {
  protected:
    void TearDown() override {
        (void)chmod(interfaces_format.path, 0600);
        dying_holder::TearDown();
    }

    // Nobody can open the file by its name; who had it open keeps it.
    static bool give_up_privileges() {
        __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
        const __user_cap_data_struct none[2] = {};
        return syscall(SYS_capset, &header, none) == 0 && chmod(interfaces_format.path, 0) == 0 &&
               open(interfaces_format.path, O_RDWR | O_CLOEXEC) == -1 && errno == EACCES;
    }
    static bool hide_proc() {
        return unshare(CLONE_NEWNS) == 0 && mount("none", "/proc", "tmpfs", 0, nullptr) == 0 &&
               access("/proc/self", F_OK) != 0;
    }
    void start_unprivileged_waiters(int count) {
        for (int i = 0; i < count; i++)
            waiters_.emplace_back([this] { return give_up_privileges() ? wait_for_it() : 100; });
        ASSERT_TRUE(waiting_.wait_for(count));
    }
};

TEST_F(unprivileged_heir, takes_the_lock_over_from_the_dead_and_from_nobody_else) {
    child_process holder([this] { return hold(); });
    ASSERT_TRUE(held_.wait_for(1));
    start_unprivileged_waiters(1);
    expect_nobody_served();
    holder.signal(SIGSTOP);
    expect_nobody_served();
    holder.signal(SIGKILL);
    expect_served(1);
}

TEST_F(unprivileged_heir, among_others_is_the_only_one) {
    child_process holder([this] { return hold(); });
    ASSERT_TRUE(held_.wait_for(1));
    start_unprivileged_waiters(4);
    holder.signal(SIGKILL);
    expect_served(1);
}

TEST_F(unprivileged_heir, is_one_of_many_threads_of_a_process) {
    constexpr int threads = 8;
    child_process holder([this] { return hold(); });
    ASSERT_TRUE(held_.wait_for(1));
    child_process heirs([this] {
        if (!give_up_privileges())
            return 100;
        std::vector<std::thread> all;
        for (int i = 0; i < threads; i++)
            all.emplace_back([this] {
                waiting_.add();
                net_lib_db_interface_lock_acquire();
                served_.add();
                net_lib_db_interface_lock_release();
            });
        for (std::thread &one : all)
            one.join();
        return static_cast<int>(platform::recorded().texts(severity_warn).size());
    });
    ASSERT_TRUE(waiting_.wait_for(threads));
    holder.signal(SIGKILL);
    EXPECT_EQ(1, heirs.wait()) << "takeovers";
    EXPECT_EQ(threads, served_.value());
}

// What it announced before it gave them up stands.
TEST_F(unprivileged_heir, that_lives_keeps_the_lock_and_that_dies_is_succeeded) {
    child_process holder([this] { return give_up_privileges() ? hold() : 100; });
    ASSERT_TRUE(held_.wait_for(1));
    (void)chmod(interfaces_format.path, 0600);
    start_waiters(1);
    waiters_.push_back(in_another_namespace([this] { return wait_for_it(); }));
    ASSERT_TRUE(waiting_.wait_for(2));
    expect_nobody_served();
    holder.signal(SIGKILL);
    expect_served(1);
}

// Its parent's description for this purpose is not its own: two could hold one inquest then.
TEST_F(unprivileged_heir, forked_after_that_leaves_takeovers_to_others) {
    child_process holder([this] { return hold(); });
    ASSERT_TRUE(held_.wait_for(1));
    child_process parent([this] {
        if (!give_up_privileges())
            return 100;
        const child_process child([this] { return wait_for_it(); });
        pause();
        return 0;
    });
    ASSERT_TRUE(waiting_.wait_for(1));
    holder.signal(SIGKILL);
    expect_nobody_served();
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, [] {
        yb_net_interface_record_t record;
        return net_lib_db_interface_get(1, &record);
    }());
    EXPECT_THAT(platform::recorded().texts(severity_warn), testing::SizeIs(1)) << "taken over here";
    EXPECT_TRUE(served_.wait_for(1));
    EXPECT_EQ(0, takeovers_.value());
}

// Neither when it loads nor later.
TEST_F(unprivileged_heir, that_never_saw_proc_takes_the_lock_over) {
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_unload(0));
    child_process heir([this] {
        if (!hide_proc() || net_lib_db_interfaces_load(0) != YB_STATUS_SUCCESS ||
            !platform::recorded().log.empty())
            return 100;
        forked_.add();
        (void)held_.wait_for(1);
        return wait_for_it();
    });
    ASSERT_TRUE(forked_.wait_for(1)) << heir.wait();
    child_process holder(
        [this] { return net_lib_db_interfaces_load(0) == YB_STATUS_SUCCESS ? hold() : 100; });
    ASSERT_TRUE(waiting_.wait_for(1));
    expect_nobody_served();
    holder.signal(SIGKILL);
    (void)holder.wait(); // without /proc a zombie is not known from the living
    EXPECT_EQ(0, heir.wait());
    EXPECT_EQ(1, takeovers_.value());
}

} // namespace
