// SPDX-License-Identifier: Apache-2.0
//
// The segments between real processes: starting at once, leaving one by one,
// dying, and what the kernel really refuses.
#include "ybnet/net_lib_db.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "tests/support/processes.h"
#include "tests/support/recording_platform.h"
#include "tests/support/segment_file.h"
#include "tests/support/tool_shims.h"

namespace {

struct segment_case {
    const char *label;
    segment_format format;
    yb_status_t (*load)(uint32_t);
    yb_status_t (*unload)(uint32_t);
    const char *create_failed;
    const char *init_failed;

    friend void PrintTo(const segment_case &one, std::ostream *out) {
        *out << one.label;
    }
};

class segment_processes : public testing::TestWithParam<segment_case> {
  protected:
    void SetUp() override {
        platform::reset();
        segment_remove(format());
    }
    void TearDown() override {
        (void)GetParam().unload(0);
        segment_remove(format());
    }

    static const segment_format &format() {
        return GetParam().format;
    }

    // Another process makes and loads the segment, and ends without unloading: it stays in the count.
    static void made_by_another_process() {
        ASSERT_EQ(0, child_process([] { return static_cast<int>(GetParam().load(0)); }).wait());
    }

    // A process that loads when the first gate opens, tells its status, and unloads when the second one does.
    struct gates {
        shared_counter ready, start, loaded, leave;
    };
    static child_process user(gates &at) {
        return child_process([&at] {
            at.ready.add();
            if (!at.start.wait_for(1))
                return 200;
            const yb_status_t loaded = GetParam().load(0);
            at.loaded.add();
            if (!at.leave.wait_for(1))
                return 201;
            return static_cast<int>(loaded | GetParam().unload(0));
        });
    }
    static void expect_users_of(int processes) {
        gates at;
        std::vector<child_process> users;
        for (int i = 0; i < processes; i++)
            users.push_back(user(at));
        ASSERT_TRUE(at.ready.wait_for(processes));
        at.start.add();
        ASSERT_TRUE(at.loaded.wait_for(processes));
        {
            const segment_view view(format());
            EXPECT_EQ(static_cast<uint32_t>(processes), view.user_count());
            EXPECT_EQ(format().size, view.word(format().size_check()));
            EXPECT_EQ(222, view.byte(format().marker()));
            EXPECT_FALSE(view.locked());
        }
        at.leave.add();
        for (child_process &one : users)
            EXPECT_EQ(0, one.wait());
        EXPECT_FALSE(segment_exists(format())) << "the last to leave took it along";
    }
};

TEST_P(segment_processes, two_starting_at_once_end_with_a_count_of_2) {
    for (int round = 0; round < 20; round++)
        expect_users_of(2);
}

TEST_P(segment_processes, eight_starting_at_once_end_with_a_count_of_8) {
    for (int round = 0; round < 5; round++)
        expect_users_of(8);
}

TEST_P(segment_processes, fifty_starting_at_once_end_with_a_count_of_50) {
    expect_users_of(50);
}

TEST_P(segment_processes, first_of_two_to_unload_leaves_a_count_of_1_and_the_second_removes_the_name) {
    gates first, second;
    child_process one = user(first);
    child_process other = user(second);
    first.start.add();
    second.start.add();
    ASSERT_TRUE(first.loaded.wait_for(1));
    ASSERT_TRUE(second.loaded.wait_for(1));
    const segment_view view(format());
    EXPECT_EQ(2u, view.user_count());

    first.leave.add();
    EXPECT_EQ(0, one.wait());
    EXPECT_TRUE(segment_exists(format()));
    EXPECT_EQ(1u, view.user_count());
    EXPECT_EQ(2u, view.word(format().lock_state()));

    second.leave.add();
    EXPECT_EQ(0, other.wait());
    EXPECT_FALSE(segment_exists(format()));
    EXPECT_EQ(0u, view.user_count());
    EXPECT_EQ(4u, view.word(format().lock_state()));
}

TEST_P(segment_processes, that_die_without_unloading_stay_in_the_count) {
    gates at;
    child_process one = user(at);
    at.start.add();
    ASSERT_TRUE(at.loaded.wait_for(1));
    one.signal(SIGKILL);
    EXPECT_EQ(128 + SIGKILL, one.wait());
    EXPECT_EQ(YB_STATUS_SUCCESS, GetParam().load(0));
    EXPECT_EQ(2u, segment_view(format()).user_count());
    EXPECT_EQ(YB_STATUS_SUCCESS, GetParam().unload(0));
    EXPECT_TRUE(segment_exists(format())) << "it outlives its users";
    EXPECT_EQ(1u, segment_view(format()).user_count());
}

TEST_P(segment_processes, erase_what_the_others_see) {
    made_by_another_process();
    segment_view view(format());
    view.fill(0, 64, 0xAB);
    EXPECT_EQ(0, child_process([] { return static_cast<int>(GetParam().load(1)); }).wait());
    EXPECT_EQ(0u, view.word(0));
    EXPECT_EQ(2u, view.user_count());
}

TEST_P(segment_processes, do_not_hand_the_segment_to_the_commands_they_run) {
    ASSERT_EQ(YB_STATUS_SUCCESS, GetParam().load(0));
    const std::string own = output_of("ls -l /proc/" + std::to_string(getpid()) + "/fd");
    EXPECT_NE(std::string::npos, own.find(format().path)) << own;
    const std::string inherited = output_of("ls -l /proc/self/fd");
    EXPECT_EQ(std::string::npos, inherited.find(format().path)) << inherited;
}

// ---- What the kernel refuses ----

void drop_the_right_to_pass_over_permissions() {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    const __user_cap_data_struct none[2] = {};
    if (syscall(SYS_capset, &header, none) != 0)
        abort();
}

bool said_exactly(const std::vector<std::string> &errors) {
    return platform::recorded().texts(1) == errors && platform::recorded().log.size() == errors.size();
}

TEST_P(segment_processes, without_permission_end_with_6_and_leave_the_segment_alone) {
    made_by_another_process();
    ASSERT_EQ(0, chmod(format().path, 0));
    EXPECT_EQ(6, child_process([] {
                     drop_the_right_to_pass_over_permissions();
                     if (open(format().path, O_RDWR | O_CLOEXEC) != -1 || errno != EACCES)
                         return 100; // nothing would be shown
                     const yb_status_t status = GetParam().load(0);
                     return said_exactly({GetParam().init_failed}) ? static_cast<int>(status) : 101;
                 }).wait());
    ASSERT_EQ(0, chmod(format().path, 0600));
    EXPECT_EQ(1u, segment_view(format()).user_count());
}

TEST_P(segment_processes, without_permission_to_create_end_with_6) {
    ASSERT_EQ(0, chmod("/dev/shm", 0));
    EXPECT_EQ(6, child_process([] {
                     drop_the_right_to_pass_over_permissions();
                     const yb_status_t status = GetParam().load(0);
                     return said_exactly({GetParam().create_failed, GetParam().init_failed})
                                ? static_cast<int>(status)
                                : 101;
                 }).wait());
    ASSERT_EQ(0, chmod("/dev/shm", 01777));
    EXPECT_FALSE(segment_exists(format()));
}

TEST_P(segment_processes, out_of_descriptors_end_with_6_and_start_when_there_are_some_again) {
    made_by_another_process();
    EXPECT_EQ(0, child_process([] {
                     struct rlimit limit = {};
                     (void)getrlimit(RLIMIT_NOFILE, &limit);
                     const rlim_t before = std::exchange(limit.rlim_cur, 0);
                     (void)setrlimit(RLIMIT_NOFILE, &limit);
                     const yb_status_t status = GetParam().load(0);
                     const bool said = said_exactly({GetParam().create_failed, GetParam().init_failed});
                     limit.rlim_cur = before;
                     (void)setrlimit(RLIMIT_NOFILE, &limit);
                     if (status != 6 || !said)
                         return 100;
                     return static_cast<int>(GetParam().load(0));
                 }).wait());
    EXPECT_EQ(2u, segment_view(format()).user_count());
}

TEST_P(segment_processes, with_one_descriptor_left_start_and_say_what_they_cannot_do) {
    const auto start_with_one_descriptor = [] {
        constexpr int last = 100;
        while (open("/dev/null", O_RDONLY | O_CLOEXEC) < last - 1)
            continue; // no number below is free
        struct rlimit limit = {last + 1, last + 10};
        (void)setrlimit(RLIMIT_NOFILE, &limit);
        for (int round = 0; round < 2; round++) {
            if (GetParam().load(0) != YB_STATUS_SUCCESS || GetParam().unload(0) != YB_STATUS_SUCCESS)
                return 100;
            limit.rlim_cur++;
            (void)setrlimit(RLIMIT_NOFILE, &limit);
        }
        return platform::recorded().texts(3) ==
                           std::vector<std::string>{"Net-lib " + std::string(GetParam().label) +
                                                    " DB - its file cannot be opened a second time (errno "
                                                    "24): should that last, no "
                                                    "lock is taken over from a process that dies\n"} &&
                       platform::recorded().log.size() == 1
                   ? 0
                   : 101;
    };
    EXPECT_EQ(0, child_process(start_with_one_descriptor).wait());
    made_by_another_process();
    EXPECT_EQ(0, child_process(start_with_one_descriptor).wait());
}

TEST_P(segment_processes, without_room_for_the_segment_end_with_6_and_leave_no_name) {
    EXPECT_EQ(6, child_process([] {
                     (void)signal(SIGXFSZ, SIG_IGN);
                     const struct rlimit limit = {4096, 4096};
                     (void)setrlimit(RLIMIT_FSIZE, &limit);
                     return static_cast<int>(GetParam().load(0));
                 }).wait());
    EXPECT_FALSE(segment_exists(format()));
}

TEST_P(segment_processes, on_a_full_file_system_end_with_6_and_leave_no_name) {
    EXPECT_EQ(6, child_process([] {
                     // One page less than the segment needs, in a mount namespace of the child's own.
                     const std::string options = "size=" + std::to_string(format().size / 4096 * 4096);
                     if (unshare(CLONE_NEWNS) != 0 ||
                         mount("tmpfs", "/dev/shm", "tmpfs", 0, options.c_str()) != 0)
                         return 100;
                     const yb_status_t status = GetParam().load(0);
                     return segment_exists(format()) ? 101 : static_cast<int>(status);
                 }).wait());
}

// ---- The lock at an unload ----

// A load keeps the segment's file lock while it waits for the segment's lock; an unload needs the file lock.
TEST(unload, by_the_holder_of_the_lock_is_reported_and_does_not_wait_for_one_who_waits_for_it) {
    platform::reset();
    segment_remove(interfaces_format);
    shared_counter held;
    shared_counter waited_for;
    child_process holder([&] {
        if (net_lib_db_interfaces_load(0) != YB_STATUS_SUCCESS)
            return 100;
        net_lib_db_interface_lock_acquire();
        held.add();
        (void)waited_for.wait_for(1);
        if (net_lib_db_interfaces_unload(0) != YB_STATUS_SUCCESS)
            return 101;
        const std::vector<std::string> errors = platform::recorded().texts(1);
        return !errors.empty() && errors[0].find("ASSERT in net_lib_db/segment[") == 0 ? 0 : 102;
    });
    ASSERT_TRUE(held.wait_for(1));
    child_process loader([] { return static_cast<int>(net_lib_db_interfaces_load(0)); });
    EXPECT_TRUE(wait_until_blocked_on_lock(loader.pid()));
    waited_for.add();
    EXPECT_EQ(0, holder.wait(std::chrono::seconds(10)));
    EXPECT_EQ(0, loader.wait(std::chrono::seconds(10)));
    EXPECT_EQ(1u, segment_view(interfaces_format).user_count());
    EXPECT_FALSE(segment_view(interfaces_format).locked());
    segment_remove(interfaces_format);
}

INSTANTIATE_TEST_SUITE_P(
    both, segment_processes,
    testing::Values(segment_case{"interfaces", interfaces_format, net_lib_db_interfaces_load,
                                 net_lib_db_interfaces_unload,
                                 "Failed to create shared memory for the Net-lib interfaces DB\n",
                                 "Failed to init the Net-lib interfaces DB shared memory\n"},
                    segment_case{"ports", ports_format, net_lib_db_ports_load, net_lib_db_ports_unload,
                                 "Failed to create shared memory for the Net-lib ports DB\n",
                                 "Failed to init the Net-lib ports DB shared memory\n"}),
    [](const auto &one) { return std::string(one.param.label); });

} // namespace
