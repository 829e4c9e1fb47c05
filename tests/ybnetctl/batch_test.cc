// SPDX-License-Identifier: Apache-2.0
//
// ybnetctl -b: many commands in one process; and ybnetctl hold, which keeps the databases.
#include "tests/ybnetctl/changes_fixture.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

#include "tests/support/processes.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

class batch : public changes_test {
  protected:
    static void write(const std::string &text) {
        std::ofstream("/run/batch") << text;
    }
};

using hold = batch;

} // namespace

TEST_F(batch, runs_every_line_with_one_start_of_the_library) {
    write("# two ports\nport set 1 --name 'a b'\n\nport set 2 --name \\\n  c # the second\nport list\n");
    const tool_result result = run_tool({"-b", "/run/batch"});
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_STREQ(stored_port(1).name, "a b");
    EXPECT_STREQ(stored_port(2).name, "c");
    EXPECT_THAT(result.out, HasSubstr("a b"));
    EXPECT_EQ(result.err, ""); // no progress bar: this is no terminal
}

TEST_F(batch, ends_at_the_first_failure_and_names_the_line) {
    write("port set 1 --name a\n\nport del 99\nport set 2 --name b\n");
    const tool_result result = run_tool({"-b", "/run/batch"});
    EXPECT_EQ(result.code, 3);
    EXPECT_THAT(result.err, StartsWith("ybnetctl: /run/batch:3: port 99: no record has this system ifindex"));
    EXPECT_STREQ(stored_port(2).name, "");
}

TEST_F(batch, goes_on_with_keep_going_and_ends_with_the_first_failures_code) {
    write("port set 1 --name a\nport del 99\nport set\nport set 2 --name b\nnonsense\n'\n");
    const tool_result result = run_tool({"--keep-going", "-b", "/run/batch"});
    EXPECT_EQ(result.code, 3);
    EXPECT_STREQ(stored_port(2).name, "b");
    EXPECT_THAT(result.err, HasSubstr("/run/batch:3: port set: SYSIF is required"));
    EXPECT_THAT(result.err, HasSubstr("/run/batch:5: "));
    EXPECT_THAT(result.err, HasSubstr("/run/batch:6: no closing '"));
    EXPECT_THAT(result.err, HasSubstr("4 of 6 commands failed"));
}

TEST_F(batch, as_json_prints_one_object_a_line) {
    write("port set 1 --name a\nport del 99\nport list\n(\n");
    const tool_result result = run_tool({"--json", "--keep-going", "-b", "/run/batch"});
    const auto lines = lines_of(result.out);
    ASSERT_EQ(lines.size(), 4U) << result.out;
    EXPECT_EQ(json::parse(lines[0])["line"], 1);
    EXPECT_EQ(json::parse(lines[0])["result"]["status"], "YB_STATUS_SUCCESS");
    EXPECT_EQ(json::parse(lines[0])["result"]["port"]["name"], "a");
    EXPECT_EQ(json::parse(lines[1])["line"], 2);
    EXPECT_EQ(json::parse(lines[1])["error"]["exit_code"], 3);
    EXPECT_EQ(json::parse(lines[2])["result"]["ports"].size(), 1U);
    EXPECT_EQ(json::parse(lines[3])["error"]["exit_code"], 2);
}

TEST_F(batch, line_inherits_nothing_from_the_line_before) {
    write("port set 1 --name a --attr-a 5\nport set 2 --attr-h 1\n");
    ASSERT_EQ(run_tool({"-b", "/run/batch"}).code, 0);
    EXPECT_EQ(stored_port(2).attr_a, 0);
    EXPECT_STREQ(stored_port(2).name, "");
}

TEST_F(batch, refuses_what_is_not_for_a_line) {
    for (const char *const line : {"-b x", "--json port list", "--dry-run port del 1", "hold", "monitor",
                                   "--help", "port list --keep-going", ""}) {
        write(std::string(line) + "\nport set 5 --name x\n");
        const tool_result result = run_tool({"-b", "/run/batch"});
        EXPECT_EQ(result.code, *line == '\0' ? 0 : 2) << line << result.err;
        if (*line != '\0') {
            EXPECT_THAT(result.err, StartsWith("ybnetctl: /run/batch:1: ")) << line;
        }
    }
    write("--version\n");
    EXPECT_THAT(run_tool({"-b", "/run/batch"}).err, HasSubstr("--version: not in a batch"));
    EXPECT_EQ(run_tool({"-b", "/run/none"}).code, 1);
    EXPECT_EQ(run_tool({"-b", "/run/batch", "port", "list"}).code, 2);
}

TEST_F(batch, through_a_pipe_runs_each_line_when_it_comes) {
    ASSERT_EQ(run_command({"mkfifo", "/run/fifo"}).code, 0);
    child_process tool([] { return run_tool({"-b", "/run/fifo"}).code; });
    const int fifo = open("/run/fifo", O_WRONLY | O_CLOEXEC);
    const std::string first = "port set 1 --name a\nport set 2 --na";
    ASSERT_EQ(::write(fifo, first.data(), first.size()), static_cast<ssize_t>(first.size()));
    for (int i = 0; i < 1000 && stored_port(1).name[0] == '\0'; i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_STREQ(stored_port(1).name, "a");
    ASSERT_EQ(::write(fifo, "me b", 4), 4);
    close(fifo);
    EXPECT_EQ(tool.wait(), 0);
    EXPECT_STREQ(stored_port(2).name, "b");
}

TEST_F(batch, that_is_interrupted_unregisters) {
    ASSERT_EQ(run_command({"mkfifo", "/run/fifo2"}).code, 0);
    shared_counter code;
    child_process tool([&code] {
        code.add(
            run_command({"timeout", "--foreground", "-s", "INT", "2", YBNETCTL, "-b", "/run/fifo2"}).code);
        return 0;
    });
    const int fifo = open("/run/fifo2", O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(::write(fifo, "port set 1 --name a\n", 20), 20);
    EXPECT_EQ(tool.wait(), 0);
    close(fifo);
    EXPECT_EQ(code.value(), 124); // timeout's
    EXPECT_EQ(segment_view(ports_format).user_count(), 1U);
}

// Ctrl-C while ip(8) runs: system(3) ignores it in the tool, so only ip dies of it.
TEST_F(batch, that_is_interrupted_in_a_command_of_the_library_goes_no_further) {
    std::filesystem::create_directory("/run/dying");
    std::ofstream("/run/dying/ip") << "#!/bin/sh\nkill -INT $$\n";
    std::filesystem::permissions("/run/dying/ip", std::filesystem::perms::owner_all);
    const tool_result result = run_tool({"-b", "-", "--keep-going"}, {"PATH=/run/dying:/usr/bin:/bin"},
                                        "interface create loopback 1 --name l1\n"
                                        "interface create loopback 2 --name l2\n"
                                        "port set 3 --name p3\n");
    EXPECT_EQ(result.code, 128 + SIGINT);
    EXPECT_THAT(result.err, HasSubstr("interrupted behind line 1"));
    EXPECT_STREQ(stored_port(3).name, "");
    EXPECT_EQ(segment_view(interfaces_format).user_count(), 1U);
}

TEST_F(batch, shows_its_progress_on_a_terminal_only) {
    std::string text;
    for (int i = 1; i <= 40000; i++)
        text += "port set " + std::to_string(i) + " --name p\n";
    write(text);
    const tool_result result = run_tool_on_terminal("-b /run/batch");
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.out, HasSubstr("\r\033[K["));
    EXPECT_THAT(result.out, HasSubstr("40000 commands, "));
}

// A failure, a note and a table, each behind a bar that has been shown: it is when a command comes late.
TEST_F(batch, takes_the_bar_away_before_anything_else_is_printed) {
    std::string script = "echo port set 1 --name p; ";
    for (const char *const line : {"port del 99999", "lag bind 1 --lag 0x10000500", "port find --name p"})
        script += "sleep 0.2; printf 'port set 1 --name p\\n" + std::string(line) + "\\n'; ";
    const auto printed = [&script](const std::string &output) {
        const tool_result result = run_command(
            {"script", "-qec", "{ " + script + "} | " YBNETCTL " --keep-going -b -" + output, "/dev/null"});
        EXPECT_EQ(result.code, 3);
        return result.out;
    };
    const auto behind_the_bar = [](const std::string &text, const std::string &said) {
        const size_t place = text.find(said);
        return place != std::string::npos && place >= 4 && text.substr(place - 4, 4) == "\r\033[K";
    };
    for (const char *const output : {"", " >/dev/null"}) {
        const std::string text = printed(output);
        EXPECT_PRED2(behind_the_bar, text, "ybnetctl: standard input:3: port 99999");
        EXPECT_PRED2(behind_the_bar, text, "ybnetctl: standard input:5: note: ");
        if (*output == '\0') {
            EXPECT_PRED2(behind_the_bar, text, "\033[1mSYSIF");
        }
    }
}

TEST_F(batch, names_the_line_in_notes) {
    write("port set 1 --name a\nlag bind 1 --lag 0x10000500\n");
    EXPECT_THAT(run_tool({"-b", "/run/batch"}).err,
                StartsWith("ybnetctl: /run/batch:2: note: LAG 0x10000500 is not recorded itself"));
}

// ---- hold -----------------------------------------------------------------------

TEST_F(hold, keeps_the_databases_until_it_is_told_to_end) {
    ASSERT_EQ(run_tool({"port", "set", "1", "--name", "a"}).code, 0);
    shared_counter code;
    child_process holder([&code] {
        code.add(run_command({"timeout", "--foreground", "-s", "TERM", "3", YBNETCTL, "hold"}).code);
        return 0;
    });
    for (int i = 0; i < 1000 && segment_view(ports_format).user_count() != 2; i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_EQ(net_lib_db_ports_unload(0), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_TRUE(segment_exists(ports_format));
    EXPECT_THAT(run_tool({"port", "list"}).out, HasSubstr("a"));
    EXPECT_EQ(holder.wait(), 0);
    EXPECT_EQ(code.value(), 124); // it ended by timeout's SIGTERM, in good order:
    EXPECT_FALSE(segment_exists(ports_format));
    EXPECT_EQ(segment_view(interfaces_format).user_count(), 1U);
    ASSERT_EQ(net_lib_db_ports_load(0), uint32_t{YB_STATUS_SUCCESS});
}

TEST_F(hold, tells_the_service_manager_when_it_holds) {
    const int manager = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::string("/run/notify").copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(manager, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
    const tool_result result = run_command(
        {"env", "--default-signal", "timeout", "-s", "TERM", "2", YBNETCTL, "hold", "--ports-only"},
        {"NOTIFY_SOCKET=/run/notify"});
    EXPECT_EQ(result.out, "holding the ports database until SIGTERM, SIGINT or SIGHUP\n");
    char text[256] = {};
    EXPECT_GT(recv(manager, text, sizeof(text) - 1, MSG_DONTWAIT), 0);
    EXPECT_STREQ(text, "READY=1\nSTATUS=holding the ports database");
    text[recv(manager, text, sizeof(text) - 1, MSG_DONTWAIT)] = '\0';
    EXPECT_STREQ(text, "STOPPING=1");
    close(manager);
}

// As nohup(1) has SIGHUP, and a shell SIGINT for what it starts with &.
TEST_F(hold, does_not_end_by_signals_that_were_ignored_when_it_started) {
    const std::string script = "rm -f /run/held; '" YBNETCTL "' hold --ports-only > /run/held & pid=$!\n"
                               "trap 'kill -KILL $pid 2>/dev/null' EXIT\n"
                               "until [ -s /run/held ]; do sleep 0.01; done\n"
                               "for signal in $SIGNALS; do kill -$signal $pid; done; sleep 0.3\n"
                               "kill -0 $pid && kill -$END $pid && wait $pid; echo $?; cat /run/held";
    EXPECT_EQ(run_command({"nohup", "sh", "-c", script}, {"SIGNALS=HUP INT", "END=TERM"}).out,
              "0\nholding the ports database until SIGTERM\n");
    EXPECT_EQ(run_command({"env", "--default-signal", "sh", "-c", script}, {"SIGNALS=INT", "END=HUP"}).out,
              "0\nholding the ports database until SIGTERM or SIGHUP\n");
}

TEST_F(hold, rehearses_its_registrations) {
    EXPECT_EQ(run_tool({"--dry-run", "hold"}).out, "would record: this process as user 2 of /net_lib_ifc\n"
                                                   "would record: this process as user 2 of /net_lib_port\n");
    const json said = json::parse(run_tool({"--dry-run", "--json", "hold", "--ports-only"}).out);
    ASSERT_EQ(said["steps"].size(), 1U);
    EXPECT_EQ(said["steps"][0]["details"]["user_count"], 2);
    EXPECT_EQ(segment_view(interfaces_format).user_count(), 1U);
    EXPECT_EQ(segment_view(ports_format).user_count(), 1U);

    ASSERT_EQ(net_lib_db_ports_unload(0), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(run_tool({"--dry-run", "hold", "--ports-only"}).out,
              "would record: this process as user 1 of /net_lib_port\n");
    EXPECT_FALSE(segment_exists(ports_format));
    ASSERT_EQ(net_lib_db_ports_load(0), uint32_t{YB_STATUS_SUCCESS});
}

TEST_F(hold, of_one_database_leaves_the_other_alone) {
    ASSERT_EQ(net_lib_db_ports_unload(0), uint32_t{YB_STATUS_SUCCESS});
    const tool_result result = run_command({"env", "--default-signal", "timeout", "-s", "INT", "1", YBNETCTL,
                                            "--json", "hold", "--interfaces-only"});
    const json said = json::parse(result.out);
    EXPECT_EQ(said["holding"]["interfaces"], true);
    EXPECT_EQ(said["holding"]["ports"], false);
    EXPECT_EQ(run_tool({"hold", "--interfaces-only", "--ports-only"}).code, 2);
    ASSERT_EQ(net_lib_db_ports_load(0), uint32_t{YB_STATUS_SUCCESS});
}
