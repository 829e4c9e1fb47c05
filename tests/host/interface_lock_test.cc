// SPDX-License-Identifier: Apache-2.0
//
// The interfaces lock between processes while a tool runs: a full CREATE keeps
// everybody waiting, the plain one nobody.
#include <fcntl.h>
#include <fstream>
#include <linux/futex.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "tests/host/netdev_fixture.h"

namespace {

// Which system call the process sleeps in, -1 for none: field 1 of /proc/PID/syscall.
long sleeping_in(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/syscall");
    std::string word;
    file >> word;
    return word.empty() || word == "running" ? -1 : std::stol(word);
}

class interface_lock : public host_netdev_test {
  protected:
    void SetUp() override {
        host_netdev_test::SetUp();
        make_namespace("red");
        make_netdev("swid0_eth");
        stand_in_for_vlans(shims);
        ASSERT_EQ(0, mkfifo("/run/entered", 0600));
        ASSERT_EQ(0, mkfifo("/run/go_on", 0600));
    }
    void TearDown() override {
        (void)unlink("/run/entered");
        (void)unlink("/run/go_on");
        host_netdev_test::TearDown();
    }
    // vconfig tells when it starts, and goes on when it is let.
    void make_vconfig_slow() {
        shims.replace("vconfig",
                      "echo > /run/entered; read word < /run/go_on; exec /sbin/ip link add $2.$3 type veth");
    }
    static void wait_until_in_vconfig() {
        std::ifstream entered("/run/entered");
        std::string line;
        std::getline(entered, line);
    }
    static void let_vconfig_go_on() {
        std::ofstream("/run/go_on") << "go on\n";
    }
    static int look_up() {
        yb_net_interface_record_t record = {};
        return static_cast<int>(yb_net_interface_params_get(1, &record));
    }
    // Waits until the process sleeps in futex(2), where the lock is waited for; false when it ended before.
    static bool comes_to_wait_for_the_lock(pid_t pid, const shared_counter &done) {
        while (done.value() == 0) {
            if (sleeping_in(pid) == SYS_futex)
                return true;
            usleep(1000);
        }
        return false;
    }

    tool_shims shims;
};

} // namespace

TEST_F(interface_lock, lookup_of_another_process_waits_for_a_full_create_and_then_finds_it_complete) {
    make_vconfig_slow();
    child_process maker([] {
        yb_net_interface_params_t params = vlan_params(0, 5, "red");
        return static_cast<int>(yb_net_interface_set_full(YB_ACCESS_CMD_CREATE, 1, &params, 7, 8));
    });
    wait_until_in_vconfig();
    shared_counter done;
    child_process looker([&done] {
        const int status = look_up();
        done.add();
        return status;
    });
    EXPECT_TRUE(comes_to_wait_for_the_lock(looker.pid(), done));
    EXPECT_EQ(0, done.value());
    let_vconfig_go_on();
    EXPECT_EQ(0, maker.wait());
    EXPECT_EQ(YB_STATUS_SUCCESS, static_cast<yb_status_t>(looker.wait()));
    yb_net_interface_record_t record = {};
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_params_get(1, &record));
    EXPECT_EQ(7, record.rif);
    EXPECT_EQ(8, record.vrid);
}

TEST_F(interface_lock, lookup_of_another_process_goes_through_beside_a_plain_create) {
    make_vconfig_slow();
    child_process maker([] { return static_cast<int>(create(1, vlan_params(0, 5, "red"))); });
    wait_until_in_vconfig();
    child_process looker(look_up);
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, static_cast<yb_status_t>(looker.wait())) << "not half-made either";
    let_vconfig_go_on();
    EXPECT_EQ(0, maker.wait());
    EXPECT_EQ(0, look_up());
}

TEST_F(interface_lock, full_creates_of_two_processes_take_turns) {
    shims.replace("vconfig", "mkdir /run/busy || exit 7; /sbin/ip link add $2.$3 type veth; rmdir /run/busy");
    std::vector<child_process> makers;
    for (uint32_t number = 0; number < 2; number++) {
        makers.emplace_back([number] {
            for (uint16_t i = 1; i <= 10; i++) {
                const uint32_t sys_ifindex = number * 100 + i;
                yb_net_interface_params_t params = vlan_params(0, static_cast<uint16_t>(sys_ifindex), "red");
                const yb_status_t status =
                    yb_net_interface_set_full(YB_ACCESS_CMD_CREATE, sys_ifindex, &params, 1, 1);
                if (status != YB_STATUS_SUCCESS)
                    return static_cast<int>(status);
            }
            return 0;
        });
    }
    for (child_process &maker : makers)
        EXPECT_EQ(0, maker.wait());
}

TEST_F(interface_lock, maker_that_dies_from_its_pointer_keeps_nobody_waiting) {
    child_process maker([] {
        return static_cast<int>(yb_net_interface_set_full(
            YB_ACCESS_CMD_CREATE, 1, reinterpret_cast<yb_net_interface_params_t *>(8), 1, 1));
    });
    EXPECT_EQ(128 + SIGSEGV, maker.wait());
    child_process looker(look_up);
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, static_cast<yb_status_t>(looker.wait(std::chrono::seconds(30))));
}
