// SPDX-License-Identifier: Apache-2.0
//
// `ybnetctl status`: who uses the segments, by their count and by /proc, and what
// may be done about it.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/segment_file.h"
#include "tests/ybnetctl/database_user.h"
#include "tests/ybnetctl/tool.h"
#include "ybnet/net_lib_db.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class status_of_segments : public testing::Test {
  protected:
    status_of_segments() {
        remove_segments();
    }
    ~status_of_segments() override {
        remove_segments();
    }
    static void remove_segments() {
        (void)unlink(interfaces_format.path);
        (void)unlink(ports_format.path);
    }
    static std::string text() {
        const tool_result result = run_tool({"status"});
        EXPECT_EQ(0, result.code) << result.err;
        return result.out;
    }
    static std::string document() {
        const tool_result result = run_tool({"status", "--json"});
        EXPECT_EQ(0, result.code) << result.err;
        return result.out;
    }
};

std::string pid_text(const database_user &user) {
    return std::to_string(user.pid());
}

TEST_F(status_of_segments, tells_that_there_are_none_and_makes_none) {
    EXPECT_THAT(text(), HasSubstr("absent: not loaded, or its file was deleted"));
    const std::string all = document();
    EXPECT_EQ("false", jq(all, ".interfaces.present"));
    EXPECT_EQ("null", jq(all, ".ports.lock"));
    EXPECT_TRUE(std::filesystem::is_empty("/dev/shm"));
}

TEST_F(status_of_segments, names_the_processes_that_use_them) {
    database_user first(record_all);
    database_user second;
    const std::string words = text();
    EXPECT_THAT(words, HasSubstr("475216 bytes, this build's layout, initialised"));
    EXPECT_THAT(words, HasSubstr("2 users are registered, 2 processes map the segment (pids " +
                                 pid_text(first) + ", " + pid_text(second) + ")\n"));
    EXPECT_THAT(words, HasSubstr("not safe: 2 processes map it"));
    EXPECT_THAT(words, HasSubstr("lock      free\n"));

    const std::string all = document();
    EXPECT_EQ("true", jq(all, ".interfaces.users_agree"));
    EXPECT_EQ("false", jq(all, ".ports.deleting_is_safe"));
    EXPECT_EQ(pid_text(first), jq(all, ".ports.processes[0].pid"));
    EXPECT_EQ("1", jq(all, ".ports.processes[0].threads"));
    EXPECT_EQ("0", jq(all, ".interfaces.processes[1].uid"));
    EXPECT_EQ("true", jq(all, ".interfaces.processes[1].age_seconds < 60"));
    EXPECT_EQ(0, first.end());
    EXPECT_EQ(0, second.end());
}

TEST_F(status_of_segments, tells_of_a_registration_that_a_killed_process_left) {
    database_user stays;
    database_user dies;
    dies.kill();
    EXPECT_THAT(text(),
                HasSubstr("2 users are registered, 1 process maps the segment (pid " + pid_text(stays) +
                          "): 1 registration was left by a process that ended without unloading; the "
                          "segment will outlive its users"));
    EXPECT_EQ("false", jq(document(), ".interfaces.users_agree"));
    EXPECT_EQ(0, stays.end());

    EXPECT_THAT(text(), HasSubstr("no process maps the segment: 1 registration was left"));
    EXPECT_THAT(text(), HasSubstr("safe now"));
    EXPECT_EQ("true", jq(document(), ".interfaces.deleting_is_safe"));
}

TEST_F(status_of_segments, tells_of_children_that_share_a_registration) {
    shared_counter done;
    database_user parent([&done] {
        if (fork() == 0) {
            (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
            _exit(done.wait_for(1) ? 0 : 1);
        }
    });
    EXPECT_THAT(text(), HasSubstr("1 user is registered, 2 processes map the segment"));
    EXPECT_THAT(text(), HasSubstr("children made by fork share a registration, or a load is under way"));
    done.add();
    EXPECT_EQ(0, parent.end());
}

TEST_F(status_of_segments, tells_of_processes_on_a_deleted_segment) {
    database_user stranded;
    ASSERT_EQ(0, unlink(interfaces_format.path));
    EXPECT_THAT(text(), HasSubstr("absent"));
    EXPECT_THAT(text(),
                HasSubstr("1 process works on a deleted segment of this name (pid " + pid_text(stranded)));

    database_user fresh; // makes a new one, which the other never sees
    const std::string all = document();
    EXPECT_EQ(pid_text(fresh), jq(all, ".interfaces.processes[].pid"));
    EXPECT_EQ(pid_text(stranded), jq(all, ".interfaces.processes_on_deleted[].pid"));
    EXPECT_EQ("true", jq(all, ".interfaces.users_agree"));
    EXPECT_THAT(text(), HasSubstr("a deleted one"));
    EXPECT_EQ(0, fresh.end());
    stranded.kill();
}

TEST_F(status_of_segments, does_not_guess_about_processes_that_may_not_be_looked_into) {
    database_user hidden([] { (void)prctl(PR_SET_DUMPABLE, 0); });
    // Root too, without the capability that looks into such a process; this one has it, and is closed to who has not.
    const auto from_outside = [](std::vector<std::string> words) {
        std::vector<std::string> all = {"setpriv", "--bounding-set=-sys_ptrace", "--inh-caps=-sys_ptrace",
                                        YBNETCTL};
        all.insert(all.end(), words.begin(), words.end());
        const tool_result result = run_program(all);
        EXPECT_EQ(0, result.code) << result.err;
        return result.out;
    };
    const std::string words = from_outside({"status"});
    EXPECT_THAT(words,
                HasSubstr("1 user is registered, none of the processes that could be looked at maps the "
                          "segment: 1 registration belongs to processes that are not seen, or that ended "
                          "without unloading (the maps of 2 "
                          "processes could not be read)"));
    EXPECT_THAT(words, HasSubstr("cannot tell: the maps of 2 processes could not be read"));
    const std::string all = from_outside({"status", "--json"});
    EXPECT_EQ("null", jq(all, ".interfaces.deleting_is_safe"));
    EXPECT_EQ("null", jq(all, ".interfaces.users_agree"));
    EXPECT_EQ(std::to_string(getpid()) + '\n' + pid_text(hidden), jq(all, ".unreadable_processes[]"));
    EXPECT_EQ(0, hidden.end());
}

TEST_F(status_of_segments, tells_a_foreign_and_an_unfinished_segment) {
    segment_make(interfaces_format, 1000);
    segment_make(ports_format, ports_format.size);
    EXPECT_THAT(text(), HasSubstr("1000 bytes instead of 475216: another build's layout"));
    EXPECT_THAT(text(), HasSubstr("size check 0: its creator is making it, or died"));
    EXPECT_THAT(text(), HasSubstr("not made yet"));
    segment_make(interfaces_format, 0);
    EXPECT_THAT(text(), HasSubstr("0 bytes: its creator is making it, or died"));
    EXPECT_EQ("false", jq(document(), ".interfaces.fits"));
}

TEST_F(status_of_segments, tells_of_a_segment_that_cannot_be_read_and_of_the_other_one) {
    segment_make(interfaces_format, interfaces_format.size);
    segment_make(ports_format, 1000);
    ASSERT_EQ(0, chmod(interfaces_format.path, 0));
    const auto unprivileged = [](const std::vector<std::string> &words) {
        std::vector<std::string> all = {"setpriv", "--bounding-set=-dac_override,-dac_read_search", YBNETCTL};
        all.insert(all.end(), words.begin(), words.end());
        const tool_result result = run_program(all);
        EXPECT_EQ(0, result.code) << result.err;
        return result.out;
    };
    const std::string words = unprivileged({"status"});
    EXPECT_THAT(words, HasSubstr("cannot be read: Permission denied; try: run it as a user who may read"));
    EXPECT_THAT(words, HasSubstr("mode 0000, owner root:"));
    EXPECT_THAT(words, HasSubstr("1000 bytes instead of"));
    EXPECT_THAT(words, HasSubstr("\nVersions\n"));
    const std::string all = unprivileged({"status", "--json"});
    EXPECT_EQ("true false null", jq(all, ".interfaces | \"\\(.present) \\(.fits) \\(.lock)\""));
}

TEST_F(status_of_segments, tells_what_is_no_file_in_the_place_of_a_segment) {
    const auto expect_in_the_way = [](const char *what) {
        EXPECT_THAT(text(), HasSubstr(std::string("cannot be read: ") + what +
                                      "; try: removing it: no segment can be made while it is there"));
        const tool_result contents = run_tool({"interface", "list"});
        EXPECT_EQ(1, contents.code);
        EXPECT_THAT(contents.err,
                    HasSubstr("  try: removing it: no segment can be made while it is there\n"));
        const tool_result load = run_tool({"hold"});
        EXPECT_EQ(1, load.code) << load.out;
    };
    ASSERT_EQ(0, mkdir(interfaces_format.path, 0755));
    expect_in_the_way("is a directory");
    ASSERT_EQ(0, rmdir(interfaces_format.path));
    ASSERT_EQ(0, mkfifo(interfaces_format.path, 0600));
    expect_in_the_way("is a FIFO");
    ASSERT_EQ(0, unlink(interfaces_format.path));
    ASSERT_EQ(0, symlink("/run/elsewhere", interfaces_format.path));
    expect_in_the_way("Too many levels of symbolic links");
}

TEST_F(status_of_segments, reads_a_copy_and_says_nothing_of_processes) {
    {
        database_user user(record_all);
        std::filesystem::copy_file(interfaces_format.path, "/run/ifc",
                                   std::filesystem::copy_options::overwrite_existing);
        EXPECT_EQ(0, user.end());
    }
    const tool_result result = run_tool({"--file", "/run/ifc", "status"});
    EXPECT_EQ(0, result.code);
    EXPECT_THAT(result.out, HasSubstr("1 registered when it was copied"));
    EXPECT_THAT(result.out, Not(HasSubstr("deleting")));
    EXPECT_THAT(result.out, HasSubstr("none of the files given is a copy of it"));
    EXPECT_EQ("null", jq(run_tool({"--file", "/run/ifc", "status", "--json"}).out, ".interfaces.processes"));
}

TEST_F(status_of_segments, names_the_libraries_in_use) {
    const std::string all = document();
    EXPECT_THAT(jq(all, ".libraries[0].path"),
                testing::MatchesRegex(".*/libybnet\\.so\\.[0-9]+\\.[0-9]+\\.[0-9]+"));
    EXPECT_THAT(jq(all, ".libraries[0].path"), testing::EndsWith(jq(all, ".libraries[0].version")));
    EXPECT_EQ("logging utilities driver access", jq(all, "[.libraries[1:][].role] | join(\" \")"));
    EXPECT_THAT(jq(all, ".libraries[2].path"), HasSubstr("libyb_util.so."));
    EXPECT_THAT(jq(all, ".libraries[3].path"), HasSubstr("libybd.so."));
    const tool_result none = run_tool({"status", "--json"}, {"YBD_DEVICE=none"});
    EXPECT_EQ("No such device", jq(none.out, ".driver.error"));
    EXPECT_EQ("1", jq(run_tool({"status", "--json"}, {"YBD_DEVICE=soft"}).out, ".driver.devices | length"));
}

} // namespace
