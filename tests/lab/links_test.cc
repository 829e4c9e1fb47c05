// SPDX-License-Identifier: Apache-2.0
//
// Link events, link state, aliases and VLAN-to-IP with the reference platform and
// the simulated driver: VLAN netdevs, carriers that the driver moves, and what the
// driver was told. Runs in the lab's guest.
#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <net/if.h>
#include <poll.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

std::vector<std::string> errors_logged;

void on_log(uint32_t severity, const char *, const char *message) {
    if (severity == 1)
        errors_logged.emplace_back(message);
}

std::string content_of(const std::string &path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

std::string output_of(const std::string &command) {
    FILE *const output = popen((command + " 2>&1").c_str(), "r");
    std::string all;
    char part[512];
    while (fgets(part, sizeof(part), output) != nullptr)
        all += part;
    (void)pclose(output);
    return all;
}

std::string carrier_of(const std::string &name) {
    return content_of("/sys/class/net/" + name + "/carrier");
}

yb_net_interface_params_t params_of(uint32_t type, const std::string &name) {
    yb_net_interface_params_t params = {};
    params.type = type;
    memcpy(params.name, name.data(), name.size());
    return params;
}

} // namespace

class lab_links : public testing::Test {
  protected:
    void SetUp() override {
        errors_logged.clear();
        ASSERT_EQ(yb_net_init(on_log, 3, 0), uint32_t{YB_STATUS_SUCCESS});
        // Before the first request: the socket needs the process id as its port id. Only the first test gets
        // it.
        if (events_.type == YB_NET_SK_TYPE_NONE) {
            ASSERT_EQ(yb_net_register_net_if_event_group(YB_ACCESS_CMD_CREATE, 0, &events_),
                      uint32_t{YB_STATUS_SUCCESS});
        }
    }
    void TearDown() override {
        EXPECT_EQ(yb_net_interface_set(YB_ACCESS_CMD_DELETE_ALL, 0, nullptr), uint32_t{YB_STATUS_SUCCESS});
        EXPECT_EQ(yb_net_deinit(), uint32_t{YB_STATUS_SUCCESS});
    }

    static void make_port(uint32_t sys_ifindex, const std::string &name) {
        auto params = params_of(YB_L2_INTERFACE_TYPE_PORT, name);
        ASSERT_EQ(yb_net_interface_set(YB_ACCESS_CMD_CREATE, sys_ifindex, &params),
                  uint32_t{YB_STATUS_SUCCESS});
    }
    static std::string make_vlan(uint32_t sys_ifindex, uint16_t vlan_id) {
        auto params = params_of(YB_L2_INTERFACE_TYPE_VLAN, "");
        params.by_type.vlan.vlan_id = vlan_id;
        EXPECT_EQ(yb_net_interface_set(YB_ACCESS_CMD_CREATE, sys_ifindex, &params),
                  uint32_t{YB_STATUS_SUCCESS});
        return params.name;
    }
    static uint32_t state_of(uint32_t sys_ifindex) {
        uint32_t state = 77;
        EXPECT_EQ(yb_net_interface_state_get(sys_ifindex, &state), uint32_t{YB_STATUS_SUCCESS});
        return state;
    }

    // Receives until this event has come; false when it does not within ten seconds.
    static bool comes(uint32_t event_type, uint32_t sys_ifindex) {
        struct pollfd waiting = {events_.fd, POLLIN, 0};
        while (poll(&waiting, 1, 10000) == 1) {
            yb_net_if_event_t event = {};
            if (yb_net_if_event_receive(&events_, &event) != YB_STATUS_SUCCESS)
                return false;
            if (event.event_type == event_type && event.sys_ifindex == sys_ifindex)
                return true;
        }
        return false;
    }

    static yb_net_sk_t events_;
};
yb_net_sk_t lab_links::events_ = {};

TEST_F(lab_links, vlan_goes_up_and_down_with_events) {
    const std::string name = make_vlan(10, 10);
    ASSERT_EQ(name, "swid0_eth.10");
    EXPECT_EQ(state_of(10), 0u);
    EXPECT_EQ(system("ip link set swid0_eth up"), 0);
    EXPECT_EQ(yb_net_interface_state_set(10, 1), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(state_of(10), 1u);
    EXPECT_TRUE(comes(YB_NET_IF_EVENT_LINK_UP, 10));
    EXPECT_THAT(output_of("ip -d link show dev " + name), HasSubstr(",UP"));
    EXPECT_EQ(yb_net_interface_state_set(10, 0), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_TRUE(comes(YB_NET_IF_EVENT_LINK_DOWN, 10));
    EXPECT_EQ(system(("ip link del " + name).c_str()), 0); // behind the library's back: the record stays
    EXPECT_TRUE(comes(YB_NET_IF_EVENT_LINK_DELETED, 10));
    EXPECT_EQ(net_lib_db_interface_remove(10), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_THAT(errors_logged, IsEmpty());
}

TEST_F(lab_links, operational_state_moves_the_carrier_of_the_drivers_netdev) {
    make_port(20, "swp1");
    ASSERT_EQ(yb_net_interface_state_set(20, 1), uint32_t{YB_STATUS_SUCCESS});
    ASSERT_EQ(carrier_of("swp1"), "1\n");
    EXPECT_TRUE(comes(YB_NET_IF_EVENT_LINK_UP, 20));
    EXPECT_EQ(yb_net_interface_oper_state_set(20, 0), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(carrier_of("swp1"), "0\n");
    EXPECT_EQ(content_of("/proc/qrn_yb/yb_core"),
              "oper_dev swp1 down\n"); // as the driver shows what it was told
    EXPECT_TRUE(comes(YB_NET_IF_EVENT_LINK_CHANGE, 20));
    EXPECT_EQ(state_of(20), 1u); // administratively
    EXPECT_EQ(yb_net_interface_oper_state_set(20, 1), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(carrier_of("swp1"), "1\n");
    EXPECT_EQ(content_of("/proc/qrn_yb/yb_core"), "oper_dev swp1 up\n");
    EXPECT_THAT(errors_logged, IsEmpty());
}

TEST_F(lab_links, command_reaches_the_driver_in_one_write_without_a_newline) {
    make_port(20, "swp1");
    // strace is attached to a child, which waits for it.
    int gate[2];
    ASSERT_EQ(pipe2(gate, O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
        char go = 0;
        (void)!read(gate[0], &go, 1);
        _exit(yb_net_interface_oper_state_set(20, 0) == YB_STATUS_SUCCESS ? 0 : 1);
    }
    const std::string pid = std::to_string(child);
    ASSERT_EQ(system(("strace -qq -e trace=write -o /tmp/writes -p " + pid + " & ").c_str()), 0);
    for (int tries = 0;
         tries < 5000 && output_of("grep TracerPid /proc/" + pid + "/status") == "TracerPid:\t0\n"; tries++)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    ASSERT_EQ(write(gate[1], "g", 1), 1);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    std::string writes; // strace, too, has to come to its end
    for (int tries = 0; tries < 5000 && writes.find(" = ") == std::string::npos; tries++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        writes = content_of("/tmp/writes");
    }
    EXPECT_THAT(writes, testing::ContainsRegex("^write\\([0-9]+, \"oper_dev swp1 down\", 18\\) += 18\n$"));
    close(gate[0]);
    close(gate[1]);
}

TEST_F(lab_links, refusal_of_the_driver_is_said_twice) {
    const auto params = params_of(YB_L2_INTERFACE_TYPE_PORT, "lo"); // not the driver's
    ASSERT_EQ(net_lib_db_interface_add(30, 1, &params), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(yb_net_interface_oper_state_set(30, 0), uint32_t{YB_STATUS_ERROR});
    EXPECT_THAT(
        errors_logged,
        ElementsAre(
            HasSubstr("__qrn_proc_write: failed to close file /proc/qrn_yb/yb_core, err [22]: Invalid "
                      "argument"),
            HasSubstr("yb_net_interface_oper_state_set: writing Command \"oper_dev lo down\" to qrn "
                      "proc failed. err: [1]")));
    EXPECT_EQ(net_lib_db_interface_remove(30), uint32_t{YB_STATUS_SUCCESS});
}

TEST_F(lab_links, partition_keys_follow_the_carrier_that_the_driver_gives_them) {
    ASSERT_EQ(system("ip link add pkey0 type yb_netdev"), 0);
    const auto params = params_of(YB_L2_INTERFACE_TYPE_PKEY, "pkey0");
    ASSERT_EQ(net_lib_db_interface_add(40, if_nametoindex("pkey0"), &params), uint32_t{YB_STATUS_SUCCESS});
    ASSERT_EQ(yb_net_interface_state_set(40, 1), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_TRUE(comes(YB_NET_IF_EVENT_LINK_UP, 40));
    EXPECT_EQ(state_of(40), 1u);
    EXPECT_EQ(yb_net_interface_oper_state_set(40, 0), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_TRUE(comes(YB_NET_IF_EVENT_LINK_DOWN, 40)); // the kernel calls it a change
    EXPECT_EQ(state_of(40), 0u);
    EXPECT_EQ(yb_net_interface_oper_state_set(40, 1), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_TRUE(comes(YB_NET_IF_EVENT_LINK_UP, 40));
    EXPECT_EQ(state_of(40), 1u);
    EXPECT_EQ(net_lib_db_interface_remove(40), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(system("ip link del pkey0"), 0);
}

TEST_F(lab_links, alias_of_a_vlan_shows_with_label_and_broadcast_and_goes) {
    const std::string name = make_vlan(10, 10);
    ASSERT_EQ(yb_net_interface_state_set(10, 1), uint32_t{YB_STATUS_SUCCESS});
    yb_ip_addr_t address = {};
    yb_ip_addr_t prefix = {};
    address.version = prefix.version = YB_IP_VERSION_IPV4;
    address.address.ipv4 = inet_addr("10.0.0.5");
    prefix.address.ipv4_prefix.addr = inet_addr("10.0.0.0");
    prefix.address.ipv4_prefix.mask = inet_addr("255.255.255.0");
    EXPECT_EQ(yb_net_virtual_net_if_alias_set(YB_ACCESS_CMD_ADD, 10, "swid0_eth.10:1", &address, &prefix),
              uint32_t{YB_STATUS_SUCCESS});
    EXPECT_THAT(output_of("ip -d -o -4 addr show dev " + name),
                HasSubstr("inet 10.0.0.5/32 brd 10.0.0.255 scope global swid0_eth.10:1\\"));
    EXPECT_EQ(yb_net_virtual_net_if_alias_set(YB_ACCESS_CMD_DELETE, 10, nullptr, &address, &prefix),
              uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(output_of("ip -d -o -4 addr show dev " + name), "");
}

TEST_F(lab_links, three_words_arrive_in_the_driver_as_they_are) {
    const int32_t lowest = std::numeric_limits<int32_t>::min();
    EXPECT_EQ(yb_net_vid2ip_set(-1, 0xFFFFFFFF, lowest), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_THAT(content_of("/proc/qrn_yb/state"), HasSubstr("vid2ip -1 4294967295 -2147483648\n"));
    EXPECT_EQ(yb_net_vid2ip_set(10, 0x0A000005, 3), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_THAT(content_of("/proc/qrn_yb/state"), HasSubstr("vid2ip 10 167772165 3\n"));
}

TEST_F(lab_links, three_words_without_an_open_device_are_a_device_error) {
    EXPECT_EQ(yb_net_interfaces_deinit(0), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(yb_net_vid2ip_set(7, 7, 7), uint32_t{YB_STATUS_DEVICE_ERROR});
    EXPECT_THAT(content_of("/proc/qrn_yb/state"), testing::Not(HasSubstr("vid2ip 7 7 7")));
    EXPECT_EQ(yb_net_interfaces_init(on_log, 3, 0), uint32_t{YB_STATUS_SUCCESS});
}
