// SPDX-License-Identifier: Apache-2.0
//
// Link events of the real kernel: which events come, in which order (ip monitor
// tells the same story), and what a reader sees that was too slow.
#include "tests/host/links_fixture.h"

#include <chrono>
#include <fcntl.h>
#include <fstream>
#include <linux/rtnetlink.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;

namespace {

constexpr uint32_t down = YB_NET_IF_EVENT_LINK_DOWN;
constexpr uint32_t up = YB_NET_IF_EVENT_LINK_UP;
constexpr uint32_t change = YB_NET_IF_EVENT_LINK_CHANGE;
constexpr uint32_t deleted = YB_NET_IF_EVENT_LINK_DELETED;

const char *const not_truncated = "__yb_net_if_state_event_receive: netlink message is not truncated\n";

// Sets a netdev up and down in turn, each one an event.
void toggle(const std::string &name, int times) {
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    struct ifreq request = {};
    memcpy(request.ifr_name, name.data(), name.size());
    for (int i = 0; i < times; i++) {
        request.ifr_flags = i % 2 == 0 ? IFF_UP : 0;
        if (ioctl(descriptor, SIOCSIFFLAGS, &request) != 0)
            abort();
    }
    close(descriptor);
}

bool eventually(const std::function<bool()> &condition) {
    for (int tries = 0; tries < 5000; tries++) {
        if (condition())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return false;
}

} // namespace

class link_events : public kernel_links {
  protected:
    event_loop loop_; // before any request of this process: it needs the process id as its port id
};

TEST_F(link_events, set_up_and_set_down_come_with_the_system_ifindex) {
    make("br1", "type bridge", 100);
    (void)loop_.all();
    EXPECT_EQ(yb_net_interface_state_set(100, 1), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_THAT(loop_.all(), testing::Contains(seen{up, 100}));
    EXPECT_EQ(yb_net_interface_state_set(100, 0), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_THAT(loop_.all(), testing::Contains(seen{down, 100}));
    EXPECT_THAT(platform::recorded().log, IsEmpty());
}

TEST_F(link_events, new_netdev_without_a_record_comes_as_down_of_nobody) {
    make("br1", "type bridge", 0);
    EXPECT_THAT(loop_.all(), ElementsAre(seen{down, 0}));
}

TEST_F(link_events, other_attributes_come_as_changes) {
    make("br1", "type bridge", 100);
    (void)loop_.all();
    run("ip link set br1 mtu 1400");
    const auto mtu = loop_.all();
    EXPECT_FALSE(mtu.empty());
    EXPECT_THAT(mtu, testing::Each(seen{change, 100}));
}

TEST_F(link_events, deletion_comes_last) {
    make("br1", "type bridge", 100);
    (void)loop_.all();
    run("ip link del br1");
    const auto events = loop_.all();
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.back(), (seen{deleted, 100}));
}

TEST_F(link_events, leaving_a_bridge_comes_as_deleted_although_the_netdev_stays) {
    make("br1", "type bridge", 0);
    make("ve0", "type veth peer name ve1", 100);
    run("ip link set ve0 master br1");
    (void)loop_.all();
    run("ip link set ve0 nomaster");
    EXPECT_THAT(loop_.all(), testing::Contains(seen{deleted, 100}));
    EXPECT_EQ(state_of(100), 0u); // still found
}

TEST_F(link_events, carrier_that_comes_or_goes_is_a_change_of_a_port_and_up_or_down_of_a_partition_key) {
    make("pt0", "type veth peer name pt1", 100);
    make("pk0", "type veth peer name pk1", 200, YB_L2_INTERFACE_TYPE_PKEY);
    run("ip link set pt0 up");
    run("ip link set pk0 up");
    std::vector<seen> events;
    const auto came = [&](const seen &wanted) {
        return eventually([&] {
            for (const seen &event : loop_.all())
                events.push_back(event);
            return std::find(events.begin(), events.end(), wanted) != events.end();
        });
    };
    EXPECT_TRUE(came({up, 100}));
    EXPECT_TRUE(came({down, 200})); // administratively up, without carrier
    events.clear();
    run("ip link set pt1 up");
    run("ip link set pk1 up");
    EXPECT_TRUE(came({change, 100})); // link watch may take a second
    EXPECT_TRUE(came({up, 200}));
    events.clear();
    run("ip link set pk1 down");
    EXPECT_TRUE(came({down, 200}));
}

TEST_F(link_events, other_process_sees_them_through_the_shared_records) {
    make("br1", "type bridge", 100);
    (void)loop_.all();
    child_process child([] { return yb_net_interface_state_set(100, 1) == YB_STATUS_SUCCESS ? 0 : 1; });
    EXPECT_EQ(child.wait(), 0);
    EXPECT_THAT(loop_.all(), testing::Contains(seen{up, 100}));
}

TEST_F(link_events, nothing_to_read_on_a_non_blocking_descriptor_is_an_error) {
    (void)loop_.all();
    ASSERT_EQ(fcntl(loop_.fd(), F_SETFL, O_NONBLOCK), 0);
    seen event = {};
    EXPECT_EQ(loop_.receive(&event), uint32_t{YB_STATUS_ERROR});
    EXPECT_EQ(event, (seen{99, 99}));
    EXPECT_THAT(platform::recorded().texts(1), ElementsAre(not_truncated));
}

TEST_F(link_events, second_event_socket_of_a_process_is_refused) {
    yb_net_sk_t second = {};
    EXPECT_EQ(yb_net_register_net_if_event_group(YB_ACCESS_CMD_CREATE, 0, &second),
              uint32_t{YB_STATUS_ERROR});
    close(second.fd);
}

TEST_F(link_events, monitor_of_ip_tells_the_same_story_in_the_same_order) {
    make("ve0", "type veth peer name ve1", 100);
    add_record(101, if_nametoindex("ve1"), "ve1", YB_L2_INTERFACE_TYPE_PORT);
    child_process monitor([] {
        if (freopen("/run/monitor", "w", stdout) == nullptr)
            return 1;
        (void)execlp("ip", "ip", "-o", "monitor", "link", nullptr);
        return 1;
    });
    ASSERT_TRUE(eventually([&] {
        return output_of("awk '$2 == 0 && $3 == " + std::to_string(monitor.pid()) +
                         "' /proc/net/netlink | wc -l") == "1";
    }));
    (void)loop_.all();
    for (const char *const command : {"ve0 up", "ve1 up", "ve0 mtu 1400", "ve1 down", "ve0 down", "ve1 up"})
        run("ip link set " + std::string(command));
    run("ip link del ve0");
    std::vector<std::string> told;
    ASSERT_TRUE(eventually([&] {
        told.clear();
        std::ifstream file("/run/monitor");
        for (std::string line; std::getline(file, line);)
            told.push_back(line);
        return std::count_if(told.begin(), told.end(),
                             [](const std::string &line) { return line.starts_with("Deleted"); }) == 2;
    }));
    monitor.signal(SIGTERM);
    const std::vector<seen> events = loop_.all();
    ASSERT_EQ(events.size(), told.size());
    for (size_t i = 0; i < told.size(); i++) {
        const bool is_up = told[i].find(",UP") != std::string::npos;
        EXPECT_EQ(events[i].sys_ifindex, told[i].find(" ve0@") != std::string::npos ? 100u : 101u) << told[i];
        EXPECT_EQ(events[i].type == deleted, told[i].starts_with("Deleted")) << told[i];
        EXPECT_FALSE(events[i].type == up && !is_up) << told[i];
        EXPECT_FALSE(events[i].type == down && is_up) << told[i];
    }
    EXPECT_THAT(events, testing::Contains(seen{up, 100}));
    EXPECT_THAT(events, testing::Contains(seen{down, 101}));
}

TEST_F(link_events, loss_shows_in_poll_in_one_error_and_in_the_kernels_count) {
    make("br1", "type bridge", 100);
    (void)loop_.all();
    ASSERT_EQ(yb_net_set_buffer_size(loop_.socket(), 1, 1),
              uint32_t{YB_STATUS_SUCCESS}); // the kernel's minimum
    toggle("br1", 51);                      // ends up
    EXPECT_NE(loop_.polled() & POLLERR, 0);
    seen event = {};
    EXPECT_EQ(loop_.receive(&event), uint32_t{YB_STATUS_ERROR});
    EXPECT_EQ(event, (seen{99, 99}));
    EXPECT_THAT(platform::recorded().texts(1), ElementsAre(not_truncated));
    EXPECT_EQ(loop_.polled() & POLLERR, 0); // said once
    const std::vector<seen> queued = loop_.all();
    EXPECT_FALSE(queued.empty());
    EXPECT_EQ(queued.size() + loop_.drops(), 51u);
    EXPECT_EQ(queued.front(), (seen{up, 100})); // the oldest, as they came
    EXPECT_EQ(state_of(100), 1u);               // what the caller reads anew
    toggle("br1", 2);
    EXPECT_FALSE(loop_.all().empty()); // and events come again
}

// 10,000 changes by another process, and what arrives of them.
class event_storm : public link_events, public testing::WithParamInterface<uint32_t> {};

TEST_P(event_storm, every_change_is_received_or_counted_as_dropped_and_no_event_is_false) {
    constexpr int changes = 10000;
    make("br1", "type bridge", 100);
    (void)loop_.all();
    if (GetParam() != 0) {
        ASSERT_EQ(yb_net_set_buffer_size(loop_.socket(), GetParam(), 4096), uint32_t{YB_STATUS_SUCCESS});
    }
    shared_counter finished;
    child_process storm([&] {
        toggle("br1", changes);
        finished.add();
        return 0;
    });
    size_t received = 0;
    size_t errors = 0;
    size_t others = 0;
    while (finished.value() == 0 || loop_.polled() != 0) {
        if (loop_.polled(10) == 0)
            continue;
        seen event = {};
        if (loop_.receive(&event) != YB_STATUS_SUCCESS)
            errors++;
        else if (event == seen{up, 100} || event == seen{down, 100})
            received++;
        else
            others++;
    }
    EXPECT_EQ(storm.wait(), 0);
    const unsigned long drops = loop_.drops();
    printf("receive buffer %u: %zu received, %lu dropped in %zu losses\n", GetParam(), received, drops,
           errors);
    (void)fflush(stdout); // or the next child prints it again
    EXPECT_EQ(received + drops, static_cast<size_t>(changes));
    EXPECT_EQ(others, 0u);
    EXPECT_EQ(errors == 0, drops == 0); // a loss is always noticed
    EXPECT_LE(errors, drops);
    EXPECT_EQ(platform::recorded().count(1, not_truncated), errors);
    EXPECT_EQ(state_of(100), 0u);
}

INSTANTIATE_TEST_SUITE_P(buffers, event_storm, testing::Values(0u, 1u, 65536u, 4u << 20),
                         [](const auto &instance) { return "of_" + std::to_string(instance.param); });
