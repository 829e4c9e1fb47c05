// SPDX-License-Identifier: Apache-2.0
//
// What running commands does to the process that calls the library: nothing. And
// what commands get from it: no descriptors, and no words of an attacker's.
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/host/netdev_fixture.h"
#include "ybnet/yb_net_rtnl.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// SA_RESTORER, which sigaction(2) adds to whatever it restores.
constexpr int restorer = 0x04000000;

// All that a process has and that a command could change.
struct process_state {
    std::string environment;
    mode_t mask;
    sigset_t blocked;
    struct sigaction actions[3];
    std::string directory;
    std::vector<std::string> descriptors;

    friend void PrintTo(const process_state &state, std::ostream *out) {
        *out << "umask " << state.mask << " in " << state.directory << " with " << state.descriptors.size()
             << " descriptors";
        for (const std::string &descriptor : state.descriptors)
            *out << "\n" << descriptor;
    }
    bool operator==(const process_state &other) const {
        bool same = environment == other.environment && mask == other.mask && directory == other.directory &&
                    descriptors == other.descriptors;
        for (int number = 1; number < SIGRTMIN; number++)
            same = same && sigismember(&blocked, number) == sigismember(&other.blocked, number);
        for (size_t i = 0; i < std::size(actions); i++)
            same = same && actions[i].sa_handler == other.actions[i].sa_handler &&
                   (actions[i].sa_flags & ~restorer) == (other.actions[i].sa_flags & ~restorer);
        return same;
    }
};

void on_child(int) {}

class command_surroundings : public host_netdev_test {
  protected:
    void SetUp() override {
        host_netdev_test::SetUp();
        make_namespace("red");
        stand_in_for_vlans(shims);
        make_netdev("swid0_eth");
    }
    // Every path of the library that runs commands or opens descriptors.
    static void run_all_paths() {
        EXPECT_EQ(YB_STATUS_SUCCESS, create(1, vlan_params(0, 5, "red", YB_NET_NAME_FORMAT_VLAN)));
        EXPECT_EQ(YB_STATUS_SUCCESS, create(2, vlan_params_on("swid0_eth", 0, 6)));
        EXPECT_EQ(YB_STATUS_SUCCESS, create(3, port_vlan_params("swid0_eth", 7, "red")));
        EXPECT_EQ(YB_STATUS_SUCCESS, create(4, loopback_params("lo4", "red")));
        yb_net_interface_params_t edit = port_vlan_params("", 8);
        EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set(YB_ACCESS_CMD_EDIT, 3, &edit));
        EXPECT_EQ(YB_STATUS_SUCCESS, destroy(4));
        EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set(YB_ACCESS_CMD_DELETE_ALL, 0, nullptr));
    }
    static process_state state() {
        process_state now = {};
        for (char **entry = environ; *entry != nullptr; entry++)
            now.environment += std::string(*entry) + "\n";
        now.mask = umask(0);
        (void)umask(now.mask);
        (void)sigprocmask(SIG_BLOCK, nullptr, &now.blocked);
        const int numbers[] = {SIGCHLD, SIGINT, SIGQUIT};
        for (size_t i = 0; i < std::size(numbers); i++)
            (void)sigaction(numbers[i], nullptr, &now.actions[i]);
        now.directory = std::filesystem::current_path();
        for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone; // the iterator's own
            const auto target = std::filesystem::read_symlink(entry.path(), gone);
            if (!gone && target.string().find("/proc/") == std::string::npos)
                now.descriptors.push_back(entry.path().filename().string() + " " + target.string());
        }
        std::sort(now.descriptors.begin(), now.descriptors.end());
        return now;
    }

    tool_shims shims;
};

} // namespace

TEST_F(command_surroundings, process_is_left_as_it_was) {
    sigset_t some;
    (void)sigemptyset(&some);
    (void)sigaddset(&some, SIGUSR1);
    (void)sigprocmask(SIG_BLOCK, &some, nullptr);
    const mode_t old_mask = umask(0137);
    const process_state before = state();
    run_all_paths();
    EXPECT_EQ(before, state());
    (void)umask(old_mask);
    (void)sigprocmask(SIG_UNBLOCK, &some, nullptr);
}

TEST_F(command_surroundings, callers_own_child_handler_stays) {
    struct sigaction own = {};
    own.sa_handler = on_child;
    own.sa_flags = SA_RESTART | SA_NOCLDSTOP;
    struct sigaction old = {};
    ASSERT_EQ(0, sigaction(SIGCHLD, &own, &old));
    const process_state before = state();
    run_all_paths();
    EXPECT_EQ(before, state());
    EXPECT_EQ(0, sigaction(SIGCHLD, &old, nullptr));
}

TEST_F(command_surroundings, ignored_children_stay_ignored) {
    ASSERT_NE(SIG_ERR, ::signal(SIGCHLD, SIG_IGN));
    EXPECT_EQ(YB_STATUS_ERROR, create(1, loopback_params("lo1"))); // as net_lib.h says
    EXPECT_EQ(SIG_IGN, ::signal(SIGCHLD, SIG_DFL));
}

TEST_F(command_surroundings, callers_other_child_is_left_for_the_caller) {
    child_process other([] { return 33; });
    while (true) { // until it has ended, unreaped
        siginfo_t info = {};
        ASSERT_EQ(0, waitid(P_PID, static_cast<id_t>(other.pid()), &info, WEXITED | WNOWAIT));
        if (info.si_pid == other.pid())
            break;
    }
    run_all_paths();
    EXPECT_EQ(33, other.wait());
}

// ---- Descriptors ------------------------------------------------------------

namespace {

// What each command's process has open: the targets of its descriptors above 2, the shell's own
// script among them.
const char *const list_descriptors = "for d in /proc/$$/fd/*; do [ ${d##*/} -le 2 ] || "
                                     "readlink $d >> /run/fds; done; ";

} // namespace

TEST_F(command_surroundings, descriptors_of_the_library_are_not_inherited_by_commands) {
    {
        stderr_capture ignored;
        EXPECT_EQ(YB_STATUS_ERROR, create(9, port_params("a/b"))); // opens the request handle
    }
    ASSERT_EQ(1u, rth.opened);
    shims.replace("ip", std::string(list_descriptors) + "exec /sbin/ip \"$@\"");
    const auto inherited = [] {
        std::filesystem::remove("/run/fds");
        EXPECT_EQ(YB_STATUS_SUCCESS, create(1, loopback_params("lo1", "red")));
        EXPECT_EQ(YB_STATUS_SUCCESS, destroy(1));
        std::ifstream file("/run/fds");
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    const std::string seen = inherited();
    EXPECT_THAT(seen, testing::Not(HasSubstr("net_lib")));
    EXPECT_THAT(seen, testing::Not(HasSubstr("socket:")));

    // The list would have shown them, whatever their numbers:
    for (const int number : {3, 10, 11, 200}) {
        const int socket_there = socket(AF_INET, SOCK_DGRAM, 0);
        const int leaked = fcntl(socket_there, F_DUPFD, number);
        close(socket_there);
        EXPECT_THAT(inherited(), HasSubstr("socket:")) << leaked;
        close(leaked);
    }
}

// ---- Words ------------------------------------------------------------------

TEST_F(command_surroundings, no_name_makes_the_shell_run_anything) {
    for (const char *const word : {"$(>/run/c)", "`>/run/c`", ";>/run/c", "|>/run/c", "&>/run/c;",
                                   "a\n>/run/c", "'>/run/c'", "a >/run/c", ">/run/c"}) {
        yb_net_interface_params_t blocks[] = {
            loopback_params(word),      loopback_params("lo1", word), vlan_params(0, 5, word),
            vlan_params_on(word, 0, 6), port_vlan_params(word, 7),    port_vlan_params("swid0_eth", 8, word)};
        for (yb_net_interface_params_t &params : blocks) {
            EXPECT_NE(YB_STATUS_SUCCESS, create(1, params)) << word;
            ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_add(1, 1000, &params));
            EXPECT_NE(YB_STATUS_SUCCESS, destroy(1)) << word;
            ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_remove(1));
        }
        EXPECT_FALSE(std::filesystem::exists("/run/c")) << word;
        clear_netdevs();
        make_namespace("red");
        make_netdev("swid0_eth");
    }
    // Such a word does it when a shell sees it:
    EXPECT_NE("", output_of("true $(>/run/c) && ls /run/c"));
    EXPECT_TRUE(std::filesystem::exists("/run/c"));
    std::filesystem::remove("/run/c");
}

TEST_F(command_surroundings, tools_get_the_words_of_the_documented_texts) {
    EXPECT_EQ(YB_STATUS_SUCCESS, create(1, vlan_params_on("swid0_eth", 0, 5, "red")));
    EXPECT_EQ(YB_STATUS_SUCCESS, destroy(1));
    EXPECT_THAT(shims.runs(),
                ElementsAre("ip link add link swid0_eth swid0_eth.5 type vlan protocol 802.1Q id 5",
                            "ip link set netns red swid0_eth.5",
                            "ip netns exec red cat /sys/devices/virtual/net/swid0_eth.5/ifindex",
                            "ip netns exec red cat /sys/devices/virtual/net/vlan5/ifindex",
                            "ip netns exec red cat /sys/devices/virtual/net/swid0_eth.5/ifindex",
                            "ip netns exec red vconfig rem swid0_eth.5", "vconfig rem swid0_eth.5",
                            "ip netns exec red cat /sys/devices/virtual/net/swid0_eth.5/ifindex"));
}
