// SPDX-License-Identifier: Apache-2.0
//
// The command runner: texts as given to the shell, the 256-byte bounds, and what
// becomes of every way in which a command can fail. Its effect on the process is
// seen in the host tier (command_test.cc there).
#include "net_lib/command.h"

#include "tests/unit/netdev_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class command : public netdev_test {
  protected:
    void TearDown() override {
        expect_nothing_logged(); // callers log
        netdev_test::TearDown();
    }
    static int run(const char *ns, const std::string &text) {
        return __yb_net_cmd_exec_in_ns(ns, text.c_str());
    }
    // "ip" prints this and ends with this status.
    void ip_prints(const std::string &line, int status = 0) {
        shims.replace("ip", "printf '" + line + "'; exit " + std::to_string(status));
    }
};

const std::string wrapper = "ip netns exec ";

} // namespace

// ---- Running ----------------------------------------------------------------

TEST_F(command, null_and_empty_namespace_run_the_command_as_it_is) {
    EXPECT_EQ(0, run(nullptr, "true  'a b' >/dev/null"));
    EXPECT_EQ(0, run("", "true  'a b' >/dev/null"));
    EXPECT_THAT(commands(), ElementsAre("true  'a b' >/dev/null", "true  'a b' >/dev/null"));
    EXPECT_THAT(shims.runs(), IsEmpty());
}

TEST_F(command, named_namespace_wraps_the_command) {
    make_namespace("red");
    EXPECT_EQ(0, run("red", "ip link add name inside type bridge"));
    EXPECT_THAT(commands(), ElementsAre("ip netns exec red ip link add name inside type bridge"));
    EXPECT_THAT(shims.runs(), ElementsAre("ip netns exec red ip link add name inside type bridge",
                                          "ip link add name inside type bridge"));
    EXPECT_TRUE(netdev_exists("inside", "red"));
    EXPECT_FALSE(netdev_exists("inside"));
}

TEST_F(command, result_is_the_raw_wait_status) {
    EXPECT_EQ(3 << 8, run("", "exit 3"));
    EXPECT_EQ(9, run(nullptr, "kill -9 $$"));
    EXPECT_EQ(127 << 8, run("", "no-such-program-anywhere 2>/dev/null"));
    EXPECT_NE(0, run("nowhere", "true 2>&1"));
}

TEST_F(command, shell_that_cannot_start_is_passed_up_with_its_errno) {
    for (const char *const ns : {"", "red"}) {
        calls::fail("system", EAGAIN);
        errno = 0;
        const int result = run(ns, "true");
        const int reason = errno;
        EXPECT_EQ(-1, result);
        EXPECT_EQ(EAGAIN, reason);
    }
}

TEST_F(command, wrapped_command_of_255_characters_runs_and_of_256_does_not) {
    calls::on_system() = [](const char *) { return 0; };
    const std::string fits(255 - wrapper.size() - 4, 'x');
    EXPECT_EQ(0, run("red", fits));
    ASSERT_THAT(commands(), ElementsAre(wrapper + "red " + fits));
    EXPECT_EQ(255u, commands()[0].size());
    EXPECT_EQ(1, run("red", fits + "x"));
    EXPECT_EQ(1, run("red", std::string(10000, 'x')));
    EXPECT_EQ(1u, commands().size());
}

TEST_F(command, namespace_long_enough_to_reach_256_characters_runs_nothing) {
    calls::on_system() = [](const char *) { return 0; };
    const std::string fits(255 - wrapper.size() - 5, 'n');
    EXPECT_EQ(0, run(fits.c_str(), "true"));
    EXPECT_EQ(1, run((fits + "n").c_str(), "true"));
    EXPECT_EQ(1u, commands().size());
}

TEST_F(command, text_that_could_not_be_formatted_is_refused) {
    errno = 0;
    EXPECT_FALSE(command_is_complete(-1, 50, true));
    EXPECT_EQ(ENAMETOOLONG, errno);
}

TEST_F(command, unwrapped_command_has_no_bound) {
    EXPECT_EQ(0, run("", "true " + std::string(5000, 'x')));
}

// ---- Moving -----------------------------------------------------------------

TEST_F(command, move_to_the_own_namespace_succeeds_without_running_anything) {
    EXPECT_EQ(1, __yb_net_if_move_to_ns("absent", "", nullptr));
    EXPECT_EQ(1, __yb_net_if_move_to_ns("absent", "red", ""));
    EXPECT_THAT(commands(), IsEmpty());
}

TEST_F(command, move_names_the_target_first) {
    make_namespace("red");
    make_netdev("dev0");
    EXPECT_EQ(1, __yb_net_if_move_to_ns("dev0", "", "red"));
    EXPECT_THAT(commands(), ElementsAre("ip link set netns red dev0"));
    EXPECT_TRUE(netdev_exists("dev0", "red"));
    EXPECT_FALSE(netdev_exists("dev0"));
}

TEST_F(command, move_runs_in_the_namespace_it_is_told) {
    make_namespace("red");
    make_namespace("blue");
    make_netdev("dev0", "red");
    EXPECT_EQ(1, __yb_net_if_move_to_ns("dev0", "red", "blue"));
    EXPECT_THAT(commands(), ElementsAre("ip netns exec red ip link set netns blue dev0"));
    EXPECT_TRUE(netdev_exists("dev0", "blue"));
}

TEST_F(command, move_that_fails_gives_0) {
    make_namespace("red");
    EXPECT_EQ(0, __yb_net_if_move_to_ns("absent", nullptr, "red 2>/dev/null"));
    EXPECT_THAT(commands(), IsEmpty()) << "that was no name";
    shims.replace("ip", "exit 1");
    EXPECT_EQ(0, __yb_net_if_move_to_ns("absent", nullptr, "red"));
    EXPECT_THAT(commands(), ElementsAre("ip link set netns red absent"));
    calls::fail("system", ENOMEM);
    EXPECT_EQ(0, __yb_net_if_move_to_ns("absent", "", "red"));
}

TEST_F(command, move_of_255_characters_runs_and_of_256_does_not) {
    calls::on_system() = [](const char *) { return 0; };
    const std::string target(255 - std::string("ip link set netns  dev0").size(), 'n');
    EXPECT_EQ(1, __yb_net_if_move_to_ns("dev0", "", target.c_str()));
    EXPECT_EQ(0, __yb_net_if_move_to_ns("dev0x", "", target.c_str()));
    EXPECT_EQ(0, __yb_net_if_move_to_ns("dev0", "", (target + "n").c_str()));
    ASSERT_EQ(1u, commands().size());
    EXPECT_EQ(255u, commands()[0].size());
}

TEST_F(command, move_whose_wrapped_text_reaches_256_does_not_run) {
    calls::on_system() = [](const char *) { return 0; };
    const std::string target(255 - std::string("ip link set netns  dev0").size() - wrapper.size() - 4, 'n');
    EXPECT_EQ(1, __yb_net_if_move_to_ns("dev0", "red", target.c_str()));
    EXPECT_EQ(0, __yb_net_if_move_to_ns("dev0", "redd", target.c_str()));
    EXPECT_EQ(1u, commands().size());
}

// ---- Reading an ifindex -----------------------------------------------------

TEST_F(command, null_and_empty_namespace_read_the_ifindex_by_if_nametoindex) {
    make_netdev("dev0");
    const uint32_t expected = ifindex_of("dev0");
    EXPECT_EQ(expected, __yb_net_if_ifindex_get_in_ns(nullptr, "dev0"));
    EXPECT_EQ(expected, __yb_net_if_ifindex_get_in_ns("", "dev0"));
    EXPECT_EQ(0u, __yb_net_if_ifindex_get_in_ns("", "absent"));
    EXPECT_EQ(0u, __yb_net_if_ifindex_get_in_ns(nullptr, ""));
    EXPECT_THAT(commands(), IsEmpty());
}

TEST_F(command, named_namespace_reads_the_ifindex_from_its_sysfs) {
    make_namespace("red");
    for (const char *const name : {"one", "two", "three"})
        make_netdev(name, "red");
    const uint32_t expected = ifindex_of("three", "red");
    ASSERT_NE(0u, expected);
    EXPECT_EQ(expected, __yb_net_if_ifindex_get_in_ns("red", "three"));
    EXPECT_THAT(commands(), ElementsAre("ip netns exec red cat /sys/devices/virtual/net/three/ifindex 2>&1"));
}

TEST_F(command, netdev_or_namespace_that_does_not_exist_has_ifindex_0) {
    make_namespace("red");
    make_netdev("outside");
    EXPECT_EQ(0u, __yb_net_if_ifindex_get_in_ns("red", "outside"));
    EXPECT_EQ(0u, __yb_net_if_ifindex_get_in_ns("blue", "outside"));
    EXPECT_EQ(2u, commands().size());
}

TEST_F(command, existence_follows_the_ifindex) {
    make_namespace("red");
    make_netdev("inside", "red");
    make_netdev("outside");
    EXPECT_EQ(1, __yb_net_if_exists_in_ns("red", "inside"));
    EXPECT_EQ(0, __yb_net_if_exists_in_ns("red", "outside"));
    EXPECT_EQ(1, __yb_net_if_exists_in_ns("", "outside"));
    EXPECT_EQ(1, __yb_net_if_exists_in_ns(nullptr, "outside"));
    EXPECT_EQ(0, __yb_net_if_exists_in_ns("", "inside"));
    EXPECT_EQ(1, __yb_net_if_exists("outside"));
    EXPECT_EQ(0, __yb_net_if_exists("inside"));
}

TEST_F(command, number_printed_by_a_failing_command_does_not_count) {
    ip_prints("7\\n", 1);
    EXPECT_EQ(0u, __yb_net_if_ifindex_get_in_ns("red", "dev0"));
    ip_prints("7\\n", 0);
    EXPECT_EQ(7u, __yb_net_if_ifindex_get_in_ns("red", "dev0"));
}

TEST_F(command, line_that_does_not_parse_has_ifindex_0) {
    for (const char *const line : {"", "\\n", "x7\\n", "cat: no\\n", "\\n7\\n"}) {
        ip_prints(line);
        EXPECT_EQ(0u, __yb_net_if_ifindex_get_in_ns("red", "dev0")) << line;
    }
    for (const char *const line : {"7", " 7 x\\n", "7\\n8\\n", "0007\\n"}) {
        ip_prints(line);
        EXPECT_EQ(7u, __yb_net_if_ifindex_get_in_ns("red", "dev0")) << line;
    }
    ip_prints("4294967295\\n");
    EXPECT_EQ(UINT32_MAX, __yb_net_if_ifindex_get_in_ns("red", "dev0"));
}

TEST_F(command, line_longer_than_19_characters_is_cut_and_its_beginning_parsed) {
    ip_prints(std::string(17, ' ') + "4299\\n");
    EXPECT_EQ(42u, __yb_net_if_ifindex_get_in_ns("red", "dev0"));
    ip_prints(std::string(19, ' ') + "42\\n");
    EXPECT_EQ(0u, __yb_net_if_ifindex_get_in_ns("red", "dev0"));
    ip_prints(std::string(15, '0') + "4299\\n");
    EXPECT_EQ(4299u, __yb_net_if_ifindex_get_in_ns("red", "dev0"));
}

TEST_F(command, shell_that_cannot_start_has_ifindex_0) {
    ip_prints("7\\n");
    calls::fail("popen", EMFILE);
    EXPECT_EQ(0u, __yb_net_if_ifindex_get_in_ns("red", "dev0"));
    EXPECT_EQ(7u, __yb_net_if_ifindex_get_in_ns("red", "dev0"));
}

TEST_F(command, reading_of_255_characters_runs_and_of_256_does_not) {
    ip_prints("7\\n");
    const std::string rest = "ip netns exec red cat /sys/devices/virtual/net//ifindex 2>&1";
    const std::string name(255 - rest.size(), 'n');
    EXPECT_EQ(7u, __yb_net_if_ifindex_get_in_ns("red", name.c_str()));
    EXPECT_EQ(0u, __yb_net_if_ifindex_get_in_ns("red", (name + "n").c_str()));
    EXPECT_EQ(0u, __yb_net_if_ifindex_get_in_ns("redd", name.c_str()));
    ASSERT_EQ(1u, commands().size());
    EXPECT_EQ(255u, commands()[0].size());
}
