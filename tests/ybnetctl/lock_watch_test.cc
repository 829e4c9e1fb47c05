// SPDX-License-Identifier: Apache-2.0
//
// What is concluded from what was seen of a lock and of the processes: functions
// without side effects, on cases that real processes show only by chance.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/sysmacros.h>

#include "tools/ybnetctl/see/segment_report.h"
#include "tools/ybnetctl/see/versions.h"

namespace {

using namespace ybnetctl;
using testing::HasSubstr;

lock_words taken_by(uint32_t thread) {
    return {.held = true,
            .writer = thread,
            .announced = thread,
            .slept_on = false,
            .state = CL_PLOCK_INITIALIZED};
}

lock_words free_lock() {
    return {.held = false, .writer = 0, .announced = 0, .slept_on = false, .state = CL_PLOCK_INITIALIZED};
}

lock_history seen(std::vector<lock_words> looks) {
    return {.looks = std::move(looks), .seconds = 0.1, .announced = {}};
}

TEST(lock_condition_of, several_looks) {
    EXPECT_EQ(lock_condition::free, condition_of(seen({free_lock()})));
    EXPECT_EQ(lock_condition::held, condition_of(seen({taken_by(7), taken_by(7), taken_by(7)})));
    EXPECT_EQ(lock_condition::in_use, condition_of(seen({taken_by(7), taken_by(8)})));
    EXPECT_EQ(lock_condition::in_use, condition_of(seen({taken_by(7), free_lock()})));
    EXPECT_EQ(lock_condition::not_usable, condition_of(seen({})));
}

TEST(lock_condition_of, holders_that_are_not_recorded_whole) {
    lock_words nobody = taken_by(0);
    EXPECT_EQ(lock_condition::held_by_nobody, condition_of(seen({nobody, nobody})));
    lock_words beginning = taken_by(7); // announced, not yet recorded by glibc
    beginning.writer = 0;
    EXPECT_EQ(7U, beginning.holder());
    EXPECT_EQ(lock_condition::held, condition_of(seen({beginning, taken_by(7)})));
    lock_words other_build = taken_by(9); // came in while 7 was releasing
    other_build.announced = 7;
    EXPECT_EQ(9U, other_build.holder());
    lock_words releasing = free_lock();
    releasing.announced = 7;
    EXPECT_EQ(7U, releasing.holder());
    EXPECT_TRUE(releasing.taken());
}

TEST(lock_holder_time, counts_only_what_is_certain) {
    const lock_history history = seen({taken_by(7), taken_by(7)});
    lock_holder holder;
    holder.pid = 70;
    holder.fate = holder_fate::alive;
    EXPECT_EQ(std::nullopt, held_for_at_least(history, holder)); // it may have given it up in between
    holder.fate = holder_fate::stopped;
    EXPECT_EQ(0.1, held_for_at_least(history, holder));
    holder.fate = holder_fate::alive;
    holder.children = {{71, 70, "/usr/bin/some-daemon", 5000},
                       {72, 70, "sh -c ip link set netns blue vlan10", 3.2},
                       {73, 72, "ip link set netns blue vlan10", 3.1}};
    EXPECT_EQ(3.2, held_for_at_least(history, holder));
}

TEST(lock_holder_time, knows_the_commands_of_the_library) {
    for (const char *const command : {"ip link add name loop1 type bridge", "vconfig add swid0_eth 10",
                                      "ip netns exec blue ip link del dev vlan10", "sh -c vconfig rem vlan10",
                                      "sh -c -- ip link set swid0_eth.10 name vlan10"})
        EXPECT_TRUE(is_command_of_library(command)) << command;
    for (const char *const command : {"ip monitor link", "sh -c while true; do ip link; done", "", "[ip]"})
        EXPECT_FALSE(is_command_of_library(command)) << command;
}

TEST(users_in_words, say_who_is_missing) {
    EXPECT_EQ("3 users are registered, 2 processes map the segment (pids 4, 5): 1 registration was left by a "
              "process "
              "that ended without unloading; the segment will outlive its users",
              users_in_words({.registered = 3, .live = {4, 5}, .deleted = {}}));
    EXPECT_EQ("1 user is registered, 1 process maps the segment (pid 4)",
              users_in_words({.registered = 1, .live = {4}, .deleted = {}}));
    EXPECT_THAT(
        users_in_words({.registered = 5, .live = {}, .deleted = {}, .unreadable = 0, .all_shown = false}),
        HasSubstr("5 registrations belong to processes that are not seen, or that ended without unloading "
                  "(/proc hides the processes of other users)"));
    EXPECT_EQ(agreement::shared, agreement_of({.registered = 1, .live = {4, 5}, .deleted = {}}));
}

TEST(deleting, is_said_to_be_safe_only_when_everything_was_seen) {
    users_known users;
    EXPECT_EQ(true, deleting_is_safe(users));
    EXPECT_EQ("safe now: nobody maps it", deleting_in_words(users));
    users.first_pid_namespace = false;
    EXPECT_THAT(deleting_in_words(users), HasSubstr("as far as this PID namespace shows"));
    users.unreadable = 3;
    EXPECT_EQ(std::nullopt, deleting_is_safe(users));
    EXPECT_EQ("cannot tell: the maps of 3 processes could not be read", deleting_in_words(users));
    users.live = {7};
    EXPECT_EQ(false, deleting_is_safe(users));
    users.deleted = {8, 9};
    EXPECT_THAT(stranded_in_words(users),
                HasSubstr("2 processes work on a deleted segment of this name (pids 8, 9)"));
}

TEST(lines_of_maps, are_taken_apart) {
    const mapped_file file = parse_map_line(
        "7f0c0a1ff000-7f0c0a273000 rw-s 00000000 00:1a 42                   /dev/shm/net_lib_ifc (deleted)");
    EXPECT_EQ(0x7f0c0a1ff000U, file.address);
    EXPECT_EQ(makedev(0, 0x1a), file.device);
    EXPECT_EQ(42U, file.inode);
    EXPECT_EQ("/dev/shm/net_lib_ifc (deleted)", file.path);
    EXPECT_EQ("", parse_map_line("7ffd8a7c2000-7ffd8a7e3000 rw-p 00000000 00:00 0").path);
}

TEST(versions, stand_behind_the_soname) {
    EXPECT_EQ("1.2.3", version_in_path("/usr/lib/libybnet.so.1.2.3"));
    EXPECT_EQ("", version_in_path("/usr/lib/libybnet.so"));
}

} // namespace
