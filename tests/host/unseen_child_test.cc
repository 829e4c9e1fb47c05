// SPDX-License-Identifier: Apache-2.0
//
// Children that the library is not told of: _Fork(3) and clone(2) run no handlers of pthread_atfork(3p). A child
// finds out by itself that it is one, and is a process of its own from then on.
#include <csignal>
#include <pthread.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>

#include "tests/host/dying_holder_fixture.h"

namespace {

struct way_to_make_a_child {
    const char *label;
    pid_t (*make)();

    friend void PrintTo(const way_to_make_a_child &one, std::ostream *out) {
        *out << one.label;
    }
};
const way_to_make_a_child ways[] = {
    {"fork_without_handlers", [] { return _Fork(); }},
    {"clone", [] { return static_cast<pid_t>(syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0)); }}};

class unseen_child : public dying_holder, public testing::WithParamInterface<way_to_make_a_child> {
  protected:
    void TearDown() override {
        for (const pid_t child : children_) {
            (void)kill(child, SIGKILL);
            (void)waitpid(child, nullptr, 0);
        }
        dying_holder::TearDown();
    }

    // Runs body in such a child of the calling process.
    static pid_t make(const std::function<int()> &body) {
        const pid_t child = GetParam().make();
        if (child == 0) {
            (void)prctl(PR_SET_PDEATHSIG, 0);
            _exit(body());
        }
        return child;
    }
    pid_t child_of_this_process(const std::function<int()> &body) {
        children_.push_back(make(body));
        return children_.back();
    }
    static int exit_status_of(pid_t child) {
        int status = 0;
        return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    // Takes the lock: whether it is this process that the lock records.
    static int is_recorded() {
        net_lib_db_interface_lock_acquire();
        const uint32_t owner = segment_view(interfaces_format).word(interfaces_format.lock + 4);
        const bool recorded = (owner & 0x3FFFFF) == static_cast<uint32_t>(syscall(SYS_gettid)) &&
                              (owner & 1U << 30) == 0; // announced
        net_lib_db_interface_lock_release();
        return recorded ? 0 : 1;
    }

    // As a load does, through this process's own descriptor of the segment: the lowest.
    static bool lock_the_segments_file() {
        struct stat wanted = {};
        struct stat found = {};
        (void)stat(interfaces_format.path, &wanted);
        for (int descriptor = 3; descriptor < 256; descriptor++) {
            if (fstat(descriptor, &found) == 0 && found.st_dev == wanted.st_dev &&
                found.st_ino == wanted.st_ino)
                return flock(descriptor, LOCK_EX) == 0;
        }
        return false;
    }

    std::list<pid_t> children_;
    shared_counter child_id_;
};

TEST_P(unseen_child, takes_the_lock_under_its_own_name) {
    EXPECT_EQ(0, exit_status_of(make(is_recorded)));
    EXPECT_EQ(0, is_recorded()) << "and so does its parent still";
}

TEST_P(unseen_child, of_such_a_child_takes_the_lock_under_its_own_name) {
    EXPECT_EQ(0, exit_status_of(make([] {
                  const int own = is_recorded();
                  return own + exit_status_of(make(is_recorded));
              })));
    EXPECT_EQ(0, exit_status_of(make([] { return exit_status_of(make(is_recorded)); })));
}

TEST_P(unseen_child, whose_new_thread_is_first_takes_the_lock_under_its_own_name) {
    EXPECT_EQ(0, exit_status_of(make([] {
                  int status = 1;
                  std::thread([&status] { status = is_recorded(); }).join();
                  return status + is_recorded();
              })));
}

TEST_P(unseen_child, that_dies_with_the_lock_is_succeeded_although_its_parent_lives) {
    const pid_t child = child_of_this_process([this] { return hold(); });
    ASSERT_TRUE(held_.wait_for(1));
    waiters_.push_back(in_another_namespace([this] { return wait_for_it(); }));
    start_waiters(2);
    expect_nobody_served();
    (void)kill(child, SIGKILL);
    expect_served(1);
}

TEST_P(unseen_child, keeps_the_lock_although_its_parent_dies) {
    child_process parent([this] {
        yb_net_interface_record_t record;
        (void)net_lib_db_interface_get(1, &record); // announces this thread
        child_id_.add(make([this] { return hold(); }));
        pause();
        return 0;
    });
    ASSERT_TRUE(held_.wait_for(1));
    ASSERT_TRUE(child_id_.wait_for(1)); // no id yet is 0, which kill(2) takes for all of this group
    children_.push_back(child_id_.value());
    waiters_.push_back(in_another_namespace([this] { return wait_for_it(); }));
    start_waiters(2);
    parent.signal(SIGKILL);
    expect_nobody_served();
    (void)kill(child_id_.value(), SIGKILL);
    expect_served(1);
}

TEST_P(unseen_child, that_used_the_library_does_not_keep_its_parent_alive) {
    child_process parent([this] {
        child_id_.add(make([this] {
            yb_net_interface_record_t record;
            (void)net_lib_db_interface_get(1, &record);
            forked_.add();
            pause();
            return 0;
        }));
        (void)forked_.wait_for(1);
        return hold();
    });
    ASSERT_TRUE(held_.wait_for(1));
    ASSERT_TRUE(child_id_.wait_for(1)); // no id yet is 0, which kill(2) takes for all of this group
    children_.push_back(child_id_.value());
    waiters_.push_back(in_another_namespace([this] { return wait_for_it(); }));
    ASSERT_TRUE(waiting_.wait_for(1));
    parent.signal(SIGKILL);
    expect_served(1);
}

TEST_P(unseen_child, has_nothing_to_release_of_what_its_parent_holds) {
    net_lib_db_interface_lock_acquire();
    EXPECT_EQ(0, exit_status_of(make([] {
                  platform::reset();
                  net_lib_db_interface_lock_release();
                  return platform::recorded().texts(1).empty() ? 1 : 0; // an assertion report
              })));
    EXPECT_TRUE(segment_view(interfaces_format).locked());
    start_waiters(1);
    expect_nobody_served();
    net_lib_db_interface_lock_release();
    expect_served(0);
}

TEST_P(unseen_child, waits_for_what_its_parent_holds) {
    net_lib_db_interface_lock_acquire();
    const pid_t child = child_of_this_process([this] { return wait_for_it(); });
    ASSERT_TRUE(waiting_.wait_for(1));
    expect_nobody_served();
    net_lib_db_interface_lock_release();
    expect_served(0);
    EXPECT_EQ(0, exit_status_of(child));
    children_.clear();
}

// The child unloads in its parent's stead, and must wait for a load that has the file lock.
TEST_P(unseen_child, does_not_share_its_parents_file_lock) {
    child_process parent([this] {
        if (!lock_the_segments_file())
            return 1;
        child_id_.add(make([this] {
            waiting_.add();
            (void)net_lib_db_interfaces_unload(0);
            served_.add();
            return 0;
        }));
        (void)leave_.wait_for(1);
        return 0; // and with it the file lock goes
    });
    ASSERT_TRUE(waiting_.wait_for(1));
    ASSERT_TRUE(child_id_.wait_for(1)); // no id yet is 0, which kill(2) takes for all of this group
    children_.push_back(child_id_.value());
    EXPECT_FALSE(served_.wait_for(1, std::chrono::milliseconds(200)));
    leave_.add();
    EXPECT_EQ(0, parent.wait());
    EXPECT_TRUE(served_.wait_for(1));
}

INSTANTIATE_TEST_SUITE_P(made_by, unseen_child, testing::ValuesIn(ways),
                         [](const auto &one) { return std::string(one.param.label); });

} // namespace
