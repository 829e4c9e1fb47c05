// SPDX-License-Identifier: Apache-2.0
//
// What the tests of holders that die share: a process that holds the interfaces
// segment's lock, others that wait for it, and what each of them got.
#ifndef YBNET_TESTS_DYING_HOLDER_FIXTURE_H
#define YBNET_TESTS_DYING_HOLDER_FIXTURE_H

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <list>
#include <sched.h>
#include <string>
#include <unistd.h>

#include "tests/support/processes.h"
#include "tests/support/recording_platform.h"
#include "tests/support/segment_file.h"
#include "ybnet/net_lib_db.h"

inline constexpr auto several_rounds = std::chrono::milliseconds(650);
inline constexpr uint32_t severity_warn = 3;

// A process in a PID namespace of its own: the first of it keeps the second, which runs body; under this id when
// one is given.
inline child_process in_another_namespace(const std::function<int()> &body, pid_t id = 0) {
    return child_process([&body, id] {
        if (unshare(CLONE_NEWPID) != 0)
            return 77;
        child_process first([&body, id] {
            if (id != 0) {
                const int last = open("/proc/sys/kernel/ns_last_pid", O_WRONLY | O_CLOEXEC);
                const std::string text = std::to_string(id - 1);
                if (write(last, text.data(), text.size()) < 0)
                    return 78;
                (void)close(last);
            }
            child_process second([&body, id] { return id != 0 && getpid() != id ? 79 : body(); });
            return second.wait();
        });
        return first.wait();
    });
}

class dying_holder : public testing::Test {
  protected:
    void SetUp() override {
        platform::reset();
        segment_remove(interfaces_format);
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_load(0));
    }
    void TearDown() override {
        waiters_.clear();
        (void)net_lib_db_interfaces_unload(0);
        segment_remove(interfaces_format);
    }

    // Takes the lock, and keeps it until it is told or dies.
    int hold() {
        net_lib_db_interface_lock_acquire();
        held_.add();
        (void)let_go_.wait_for(1);
        net_lib_db_interface_lock_release();
        return 0;
    }
    // Takes the lock once, and counts what it said.
    int wait_for_it() {
        platform::reset();
        yb_net_interface_record_t record;
        waiting_.add();
        const yb_status_t status = net_lib_db_interface_get(1, &record);
        for (const std::string &line : platform::recorded().texts(severity_warn)) {
            takeovers_.add(line.find("Net-lib interfaces DB - lock taken over from thread ") == 0 ? 1 : 100);
        }
        served_.add();
        return status == YB_STATUS_ENTRY_NOT_FOUND && platform::recorded().texts(1).empty() ? 0 : 1;
    }
    void start_waiters(int count) {
        for (int i = 0; i < count; i++)
            waiters_.emplace_back([this] { return wait_for_it(); });
        ASSERT_TRUE(waiting_.wait_for(count));
    }
    // All of them are served, and one of them, or none, took over.
    void expect_served(int takeovers) {
        EXPECT_TRUE(served_.wait_for(waiting_.value(), std::chrono::seconds(20)));
        for (child_process &waiter : waiters_)
            EXPECT_EQ(0, waiter.wait());
        EXPECT_EQ(takeovers, takeovers_.value());
        EXPECT_FALSE(segment_view(interfaces_format).locked());
        EXPECT_EQ(0u, segment_view(interfaces_format).word(interfaces_format.lock + 4)) << "nobody recorded";
    }
    void expect_nobody_served() {
        EXPECT_FALSE(served_.wait_for(1, several_rounds)) << "a living holder was robbed";
    }
    // The id that the lock records.
    static pid_t holders_pid() {
        return static_cast<pid_t>(segment_view(interfaces_format).word(interfaces_format.lock + 24));
    }

    shared_counter held_;
    shared_counter let_go_;
    shared_counter waiting_;
    shared_counter served_;
    shared_counter takeovers_;
    shared_counter forked_;
    shared_counter leave_;
    std::list<child_process> waiters_;
};

#endif
