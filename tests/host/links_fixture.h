// SPDX-License-Identifier: Apache-2.0
//
// What the tests of links on the real kernel share: netdevs of the sandbox's own
// and their records, and an event socket with its loop.
#ifndef YBNET_TESTS_HOST_LINKS_FIXTURE_H
#define YBNET_TESTS_HOST_LINKS_FIXTURE_H

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <poll.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "tests/support/processes.h"
#include "tests/support/recording_platform.h"
#include "tests/support/tool_shims.h"
#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db.h"
#include "ybnet/yb_net_rtnl.h"

// One event, to be compared as a whole.
struct seen {
    uint32_t type;
    uint32_t sys_ifindex;

    bool operator==(const seen &other) const {
        return type == other.type && sys_ifindex == other.sys_ifindex;
    }
};
inline std::ostream &operator<<(std::ostream &out, const seen &event) {
    const char *const names[] = {"none", "down", "up", "change", "deleted"};
    return out << names[event.type] << " of " << event.sys_ifindex;
}

class kernel_links : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(net_lib_db_interfaces_load(0), YB_STATUS_SUCCESS);
        platform::reset();
    }
    void TearDown() override {
        for (const std::string &name : netdevs_)
            (void)output_of("ip link del " + name);
        (void)net_lib_db_interfaces_unload(0);
    }

    // Runs a command that must succeed silently.
    static void run(const std::string &command) {
        ASSERT_EQ(output_of(command), "") << command;
    }
    // Makes a netdev, "link NAME type ..." as ip(8) takes it, and records it when sys_ifindex is not 0.
    void make(const std::string &name, const std::string &rest, uint32_t sys_ifindex,
              uint32_t type = YB_L2_INTERFACE_TYPE_PORT) {
        run("ip link add " + name + " " + rest);
        netdevs_.push_back(name);
        if (sys_ifindex != 0)
            add_record(sys_ifindex, if_nametoindex(name.c_str()), name, type);
    }
    static void add_record(uint32_t sys_ifindex, uint32_t linux_ifindex, const std::string &name,
                           uint32_t type) {
        yb_net_interface_params_t params = {};
        params.type = type;
        memcpy(params.name, name.data(), std::min(name.size(), sizeof(params.name)));
        ASSERT_EQ(net_lib_db_interface_add(sys_ifindex, linux_ifindex, &params), YB_STATUS_SUCCESS);
    }

    // What ip(8) says of a netdev's flags.
    static bool ip_says_up(const std::string &name) {
        const std::string line = output_of("ip -o link show dev " + name);
        const std::string flags = line.substr(line.find('<'), line.find('>') - line.find('<'));
        return (flags + ",").find(",UP,") != std::string::npos || flags.starts_with("<UP");
    }
    static uint32_t state_of(uint32_t sys_ifindex) {
        uint32_t state = 77;
        EXPECT_EQ(yb_net_interface_state_get(sys_ifindex, &state), uint32_t{YB_STATUS_SUCCESS});
        return state;
    }

  private:
    std::vector<std::string> netdevs_;
};

// An event socket as a caller has it.
class event_loop {
  public:
    event_loop() {
        EXPECT_EQ(yb_net_register_net_if_event_group(YB_ACCESS_CMD_CREATE, YB_NET_IF_EVENT_GROUP_LINK, &sk_),
                  uint32_t{YB_STATUS_SUCCESS});
        EXPECT_EQ(yb_net_get_fd(&sk_, &fd_), uint32_t{YB_STATUS_SUCCESS});
    }
    ~event_loop() {
        EXPECT_EQ(yb_net_register_net_if_event_group(YB_ACCESS_CMD_DESTROY, YB_NET_IF_EVENT_GROUP_LINK, &sk_),
                  uint32_t{YB_STATUS_SUCCESS});
        close(fd_);
    }
    event_loop(const event_loop &) = delete;
    event_loop &operator=(const event_loop &) = delete;

    yb_net_sk_t *socket() {
        return &sk_;
    }
    int fd() const {
        return fd_;
    }
    // What poll(2) says of the descriptor, at once or within a time.
    short polled(int milliseconds = 0) const {
        struct pollfd waiting = {fd_, POLLIN, 0};
        (void)poll(&waiting, 1, milliseconds);
        return waiting.revents;
    }
    yb_status_t receive(seen *event) {
        yb_net_if_event_t received = {99, 99};
        const yb_status_t status = yb_net_if_event_receive(&sk_, &received);
        *event = {received.event_type, received.sys_ifindex};
        return status;
    }
    // Everything that can be read now, in order.
    std::vector<seen> all() {
        std::vector<seen> events;
        while (polled() != 0) {
            seen event = {};
            EXPECT_EQ(receive(&event), uint32_t{YB_STATUS_SUCCESS});
            events.push_back(event);
        }
        return events;
    }
    // This socket's line of /proc/net/netlink, column Drops.
    unsigned long drops() const {
        const std::string line = output_of("awk '$3 == " + std::to_string(getpid()) +
                                           " && $2 == 0 {print $9}' /proc/self/net/netlink");
        return line.empty() ? 0 : std::stoul(line);
    }

  private:
    yb_net_sk_t sk_ = {};
    int32_t fd_ = -1;
};

#endif
