// SPDX-License-Identifier: Apache-2.0
//
// ybnetctl beside a holder of the interfaces lock that is alive, busy, stopped or
// dead: what `status` says of it, and that the queries never wait for it.
#include <chrono>
#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "tests/support/segment_file.h"
#include "tests/ybnetctl/database_user.h"
#include "tests/ybnetctl/tool.h"
#include "ybnet/net_lib_db.h"

namespace {

using testing::HasSubstr;
using namespace std::chrono_literals;

class status_of_lock : public testing::Test {
  protected:
    status_of_lock() {
        remove_segments();
    }
    ~status_of_lock() override {
        remove_segments();
    }
    static void remove_segments() {
        (void)unlink(interfaces_format.path);
        (void)unlink(ports_format.path);
    }
    static std::string text() {
        return run_tool({"status"}).out;
    }
    static std::string document() {
        return run_tool({"status", "--json"}).out;
    }
    static void expect_all_records(bool beside_a_holder) {
        const auto begin = std::chrono::steady_clock::now();
        const tool_result result = run_tool({"interface", "list", "--json"});
        EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
        EXPECT_EQ(0, result.code) << result.err;
        EXPECT_EQ("101 110 130 140", jq(result.out, "[.interfaces[].sys_ifindex | tostring] | join(\" \")"));
        EXPECT_EQ(beside_a_holder ? "false" : "true", jq(result.out, ".lock_seen_free"));
        EXPECT_EQ("true", jq(result.out, ".settled"));
    }
};

std::string pid_text(const database_user &user) {
    return std::to_string(user.pid());
}

void record_and_hold() {
    record_all();
    net_lib_db_interface_lock_acquire();
}

TEST_F(status_of_lock, names_a_holder_that_is_alive_and_who_waits) {
    database_user holder([] {
        record_and_hold();
        (void)prctl(PR_SET_NAME, "lock-holder");
    });
    const child_process waiter([] {
        if (net_lib_db_interfaces_load(0) != YB_STATUS_SUCCESS)
            return 1;
        return 0;
    });
    ASSERT_TRUE(wait_until_blocked_on_lock(waiter.pid()));
    const std::string words = text();
    const std::string pid = pid_text(holder);
    EXPECT_THAT(words,
                testing::ContainsRegex("held in each of 5 looks within [0-9.]+ s by thread " + pid +
                                       " \\(lock-holder\\) of process " + pid +
                                       " \\(lock-holder\\), which is alive; 1 thread waits for it \\(" +
                                       std::to_string(waiter.pid()) + "\\)"));
    const std::string all = document();
    EXPECT_EQ("held", jq(all, ".interfaces.lock.condition"));
    EXPECT_EQ("free", jq(all, ".ports.lock.condition"));
    EXPECT_EQ("null", jq(all, ".interfaces.lock.holder.held_for_at_least_seconds"));
    EXPECT_EQ(std::to_string(waiter.pid()), jq(all, ".interfaces.lock.waiting[]"));
    expect_all_records(true);

    std::filesystem::copy_file(interfaces_format.path, "/run/held",
                               std::filesystem::copy_options::overwrite_existing);
    EXPECT_THAT(run_tool({"--file", "/run/held", "status"}).out,
                HasSubstr("held by thread " + pid_text(holder) + " when it was copied"));
    EXPECT_EQ(0, run_tool({"--file", "/run/held", "interface", "show", "110"}).code);
}

TEST_F(status_of_lock, tells_for_how_long_by_the_command_that_runs_under_it) {
    std::filesystem::create_directory("/run/bin");
    std::filesystem::create_symlink("/bin/sleep", "/run/bin/vconfig");
    database_user holder(
        [](const std::function<void()> &ready) {
            (void)setenv("PATH", "/run/bin:/usr/bin:/bin", 1);
            record_and_hold();
            ready();
            (void)system("vconfig 600");
        },
        0);
    const auto begin = std::chrono::steady_clock::now();
    std::string all;
    do {
        std::this_thread::sleep_for(100ms);
        all = document();
    } while (jq(all, ".interfaces.lock.holder.held_for_at_least_seconds >= 0.3") != "true" &&
             std::chrono::steady_clock::now() - begin < 20s);
    EXPECT_EQ("vconfig 600", jq(all, ".interfaces.lock.holder.children[-1].command_line"));
    EXPECT_EQ("true", jq(all, ".interfaces.lock.holder.held_for_at_least_seconds | . >= 0.3 and . < 30"));
    EXPECT_THAT(text(), testing::ContainsRegex("held for at least [0-9.]+ s by thread " + pid_text(holder)));
    EXPECT_THAT(text(), HasSubstr("it runs: vconfig 600 (pid "));
    const pid_t command = std::stoi(jq(all, ".interfaces.lock.holder.children[-1].pid"));
    EXPECT_EQ(0, ::kill(command, SIGKILL));
    std::filesystem::remove_all("/run/bin");
}

TEST_F(status_of_lock, tells_that_the_holder_is_stopped) {
    database_user holder(record_and_hold);
    holder.signal(SIGSTOP);
    int status = 0;
    ASSERT_EQ(holder.pid(), waitpid(holder.pid(), &status, WUNTRACED));
    EXPECT_THAT(text(), HasSubstr("which is stopped: nobody gets the lock before it goes on (kill -CONT " +
                                  pid_text(holder) + ")"));
    EXPECT_EQ("stopped", jq(document(), ".interfaces.lock.holder.fate"));
    expect_all_records(true);
}

TEST_F(status_of_lock, tells_that_the_holder_is_dead) {
    const database_user bystander; // maps the segment, and would be found
    database_user holder(record_and_hold);
    const std::string dead = pid_text(holder);
    holder.kill();
    EXPECT_THAT(text(),
                HasSubstr("by thread " + dead + ", which is dead: it ended without giving the lock up"));
    const std::string all = document();
    EXPECT_EQ("dead", jq(all, ".interfaces.lock.holder.fate"));
    EXPECT_EQ("null", jq(all, ".interfaces.lock.holder.pid"));
    EXPECT_EQ("true", jq(all, ".interfaces.lock.holder.held_for_at_least_seconds >= 0.1"));
    expect_all_records(true);
    EXPECT_THAT(run_tool({"interface", "list"}).err, HasSubstr("read while its lock was held"));
}

TEST_F(status_of_lock, tells_that_the_thread_is_dead_whose_process_lives) {
    uint32_t id = 0;
    shared_counter told;
    database_user holder([&told] {
        record_all();
        std::thread([&told] {
            net_lib_db_interface_lock_acquire();
            told.add(static_cast<int>(syscall(SYS_gettid)));
        }).join();
    });
    id = static_cast<uint32_t>(told.value());
    ASSERT_NE(0U, id);
    const std::string all = document();
    EXPECT_EQ(std::to_string(id), jq(all, ".interfaces.lock.holder.thread"));
    EXPECT_THAT(jq(all, ".interfaces.lock.holder.fate"), testing::AnyOf("dead", "unknown"));
    EXPECT_EQ("null", jq(all, ".interfaces.lock.holder.pid"));
    holder.kill();
}

TEST_F(status_of_lock, finds_a_holder_in_a_pid_namespace_of_its_own) {
    pid_t inner = -1;
    shared_counter held;
    shared_counter done;
    const child_process outer([&] {
        if (unshare(CLONE_NEWPID) != 0)
            return 77;
        inner = fork();
        if (inner == 0) { // process 1 of the new namespace
            (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (net_lib_db_interfaces_load(0) != YB_STATUS_SUCCESS)
                _exit(1);
            net_lib_db_interface_lock_acquire();
            held.add(getpid());
            (void)done.wait_for(1);
            _exit(0);
        }
        (void)done.wait_for(1);
        return 0;
    });
    ASSERT_TRUE(held.wait_for(1, 10s)) << "no PID namespace inside the test's";
    const std::string all = document();
    EXPECT_EQ("1", jq(all, ".interfaces.lock.holder.thread"));
    EXPECT_EQ("alive", jq(all, ".interfaces.lock.holder.fate"));
    EXPECT_EQ(jq(all, ".interfaces.processes[0].pid"), jq(all, ".interfaces.lock.holder.pid"));
    EXPECT_EQ("true", jq(all, ".interfaces.lock.holder.pid > 1"));
    done.add();
}

TEST_F(status_of_lock, is_quick_when_it_is_free) {
    database_user user;
    const std::string all = document();
    EXPECT_EQ("1", jq(all, ".interfaces.lock.looks"));
    EXPECT_EQ("0.0", jq(all, ".interfaces.lock.watched_seconds | if . == 0 then \"0.0\" else . end"));
    EXPECT_EQ(0, user.end());
}

TEST_F(status_of_lock, tells_a_lock_that_is_held_by_nobody_and_one_that_is_destroyed) {
    database_user user;
    {
        segment_view view(interfaces_format);
        view.set_word(interfaces_format.lock, 3); // glibc's: write phase, write-locked
        EXPECT_THAT(text(), HasSubstr("held, with no holder recorded in it"));
        EXPECT_THAT(text(),
                    HasSubstr("if it stays so: stop all users, delete /dev/shm/net_lib_ifc, start again"));
        view.set_word(interfaces_format.lock, 0);
        view.set_word(interfaces_format.lock_state(), 4);
        EXPECT_THAT(text(), HasSubstr("destroyed: the last user is removing the segment"));
        view.set_word(interfaces_format.lock_state(), 2);
    }
    EXPECT_EQ(0, user.end());
}

} // namespace
