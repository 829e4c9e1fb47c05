// SPDX-License-Identifier: Apache-2.0
//
// ybnetctl monitor on real link changes: what it shows, in which namespaces, and
// how it ends.
#include <poll.h>
#include <regex>
#include <thread>

#include "tests/ybnetctl/monitor_fixture.h"
#include "ybnet/yb_net_event.h"

using testing::HasSubstr;

namespace {

const char *const event_names[] = {"none", "down", "up", "change", "deleted"};

} // namespace

TEST_F(monitor_tool, line_has_time_event_both_ifindexes_name_namespace_and_state) {
    ip("link add pt0 type veth peer name pt1"); // which stays down: no carrier
    add(100, "pt0");
    running_monitor monitor({});
    const auto before =
        std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    ip("link set pt0 up");
    ASSERT_TRUE(monitor.shows({{"event", "up"}}));
    const json line = monitor.lines().at(0);
    EXPECT_EQ(line.at("sys_ifindex"), 100);
    EXPECT_EQ(line.at("linux_ifindex"), ifindex_of("pt0"));
    EXPECT_EQ(line.at("name"), "pt0");
    EXPECT_EQ(line.at("namespace"), "");
    EXPECT_EQ(line.at("up"), true);
    EXPECT_EQ(line.at("carrier"), false);
    EXPECT_GT(line.at("time").get<double>(), before - 0.001);
    EXPECT_LT(line.at("time").get<double>(), before + 60);
    EXPECT_TRUE(std::regex_match(line.at("time_iso").get<std::string>(),
                                 std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}[+-]\d\d:\d\d)")));
    EXPECT_EQ(monitor.end(), 0);
    EXPECT_EQ(monitor.errors(), "");
}

TEST_F(monitor_tool, text_has_columns_and_a_dash_for_netdevs_without_a_record) {
    running_monitor monitor({"--count", "1"}, {""}, false);
    ip("link add br1 type bridge");
    EXPECT_EQ(monitor.wait(), 0);
    EXPECT_TRUE(std::regex_match(
        contents_of("/run/monitor.out"),
        std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6}  down           -  +\d+  br1 +-  +down\n)")))
        << contents_of("/run/monitor.out");
}

TEST_F(monitor_tool, events_are_those_of_the_library_in_the_same_order) {
    yb_net_sk_t events = {};
    ASSERT_EQ(yb_net_register_net_if_event_group(YB_ACCESS_CMD_CREATE, YB_NET_IF_EVENT_GROUP_LINK, &events),
              uint32_t{YB_STATUS_SUCCESS});
    ip("link add pt0 type veth peer name pt1");
    ip("link add pk0 type veth peer name pk1");
    ip("link add br1 type bridge");
    add(100, "pt0");
    add(200, "pk0", "", YB_L2_INTERFACE_TYPE_PKEY);
    const auto received_now = [&] {
        std::vector<std::string> all;
        for (struct pollfd waiting = {events.fd, POLLIN, 0}; poll(&waiting, 1, 0) > 0;) {
            yb_net_if_event_t event = {};
            EXPECT_EQ(yb_net_if_event_receive(&events, &event), uint32_t{YB_STATUS_SUCCESS});
            all.push_back(std::string(event_names[event.event_type]) + " " +
                          std::to_string(event.sys_ifindex));
        }
        return all;
    };
    (void)received_now();
    std::vector<std::string> of_library;
    running_monitor monitor({});
    const auto read_library = [&] {
        for (const std::string &event : received_now())
            of_library.push_back(event);
    };
    for (const char *const words : {"link set pt0 up", "link set pk0 up", "link set pt0 mtu 1400",
                                    "link set pt0 master br1", "link set pt0 nomaster"}) {
        ip(words);
        read_library(); // at once: a partition key's event is decided by its carrier of the moment
    }
    ip("link set pk1 up");
    EXPECT_TRUE(eventually([&] {
        read_library();
        return std::find(of_library.begin(), of_library.end(), "up 200") != of_library.end();
    }));
    ip("link del pt0");
    ip("link del br1");
    read_library();
    EXPECT_THAT(of_library,
                testing::IsSupersetOf({"up 100", "down 200", "change 100", "deleted 100", "up 200"}));

    ASSERT_TRUE(monitor.shows({{"event", "deleted"}, {"name", "br1"}}));
    EXPECT_EQ(monitor.end(), 0);
    std::vector<std::string> of_monitor;
    for (const json &line : monitor.lines())
        of_monitor.push_back(
            line.at("event").get<std::string>() + " " +
            std::to_string(line.at("sys_ifindex").is_null() ? 0 : line.at("sys_ifindex").get<int>()));
    read_library();
    EXPECT_EQ(of_monitor, of_library);
    close(events.fd);
}

TEST_F(monitor_tool, record_made_while_it_runs_is_found) {
    running_monitor monitor({});
    ip("link add br1 type bridge");
    ASSERT_TRUE(monitor.shows({{"name", "br1"}, {"sys_ifindex", nullptr}}));
    add(100, "br1");
    ip("link set br1 up");
    EXPECT_TRUE(monitor.shows({{"event", "up"}, {"sys_ifindex", 100}}));
}

TEST_F(monitor_tool, deleted_netdev_is_shown_with_the_record_that_it_had) {
    ip("link add br1 type bridge");
    add(100, "br1");
    running_monitor monitor({});
    ip("link set br1 up");
    ASSERT_TRUE(monitor.shows({{"event", "up"}, {"sys_ifindex", 100}}));
    ASSERT_EQ(net_lib_db_interface_remove(100), uint32_t{YB_STATUS_SUCCESS});
    ip("link del br1");
    EXPECT_TRUE(monitor.shows({{"event", "deleted"}, {"sys_ifindex", 100}}));
}

TEST_F(monitor_tool, same_ifindex_in_two_namespaces_is_two_interfaces) {
    make_namespace("blue");
    make_namespace("red");
    ip("-n blue link add br1 index 77 type bridge");
    ip("-n red link add br1 index 77 type bridge");
    add(1, "br1", "blue");
    add(2, "br1", "red");
    running_monitor monitor({"--netns", "blue", "--netns", "red"}, {"blue", "red"});
    EXPECT_FALSE(monitor.listens_in(""));
    ip("-n red link set br1 up");
    EXPECT_TRUE(monitor.shows({{"sys_ifindex", 2}, {"namespace", "red"}, {"linux_ifindex", 77}}));
    ip("-n blue link set br1 up");
    EXPECT_TRUE(monitor.shows({{"sys_ifindex", 1}, {"namespace", "blue"}, {"linux_ifindex", 77}}));
}

TEST_F(monitor_tool, named_namespace_is_not_taken_for_the_default_one) {
    make_namespace("blue");
    ip("link add dev pt0 index 4711 type veth peer name pt1");
    ip("-n blue link add dev pt2 index 4711 type veth peer name pt3");
    add(100, "pt0");
    add(200, "pt2", "blue");
    running_monitor monitor({"--all-netns"}, {"blue"}, true, "blue");
    ip("link set pt0 up");
    ip("-n blue link set pt2 up");
    ASSERT_TRUE(monitor.shows({{"event", "up"}}));
    const json line = monitor.lines().at(0);
    EXPECT_EQ(line.at("sys_ifindex"), 200);
    EXPECT_EQ(line.at("namespace"), "blue");
    EXPECT_EQ(monitor.end(), 0);
    EXPECT_EQ(monitor.errors(),
              "ybnetctl: note: this is namespace blue, not the default one, whose events are "
              "not shown\n");
}

TEST_F(monitor_tool, all_namespaces_of_the_records_are_watched_also_those_that_come_later) {
    make_namespace("blue");
    make_namespace("red");
    ip("-n blue link add br1 type bridge");
    add(1, "br1", "blue");
    running_monitor monitor({"--all-netns"}, {"", "blue"});
    EXPECT_FALSE(monitor.listens_in("red"));
    ip("-n red link add br2 type bridge");
    add(2, "br2", "red");
    EXPECT_TRUE(eventually([&] { return monitor.listens_in("red"); }));
    ip("-n red link set br2 up");
    EXPECT_TRUE(monitor.shows({{"sys_ifindex", 2}, {"namespace", "red"}, {"event", "up"}}));
}

TEST_F(monitor_tool, namespace_that_comes_later_begins_with_the_states_in_it) {
    make_namespace("blue");
    make_namespace("red");
    ip("-n blue link add br1 type bridge");
    add(1, "br1", "blue");
    running_monitor monitor({"--all-netns"}, {"", "blue"});
    ip("-n red link add br2 type bridge");
    ip("-n red link set br2 up"); // before anybody watches
    add(2, "br2", "red");
    EXPECT_TRUE(monitor.shows(
        {{"event", "state"}, {"sys_ifindex", 2}, {"name", "br2"}, {"namespace", "red"}, {"up", true}}));
    EXPECT_EQ(monitor.end(), 0);
    for (const json &line : monitor.lines())
        EXPECT_NE(line.at("sys_ifindex"), 1) << "of blue, watched from the start";
}

TEST_F(monitor_tool, interface_is_followed_into_its_namespace_and_others_are_left_out) {
    make_namespace("blue");
    ip("-n blue link add br1 type bridge");
    ip("-n blue link add br2 type bridge");
    add(1, "br1", "blue");
    add(2, "br2", "blue");
    running_monitor monitor({"--interface", "2"}, {"blue"});
    ip("-n blue link set br1 up");
    ip("-n blue link set br2 up");
    ASSERT_TRUE(monitor.shows({{"sys_ifindex", 2}, {"event", "up"}}));
    for (const json &line : monitor.lines())
        EXPECT_EQ(line.at("sys_ifindex"), 2);
}

TEST_F(monitor_tool, namespace_that_is_deleted_is_said_with_what_it_leaves_and_let_go) {
    make_namespace("blue");
    ip("link add inner type veth peer name outer");
    ip("link set inner netns blue");
    ip("-n blue link add br1 type bridge");
    add(1, "br1", "blue");
    add(2, "outer"); // elsewhere: nothing to say of it
    running_monitor monitor({"--netns", "blue"}, {"blue"});
    ip("netns del blue");
    // With the namespace goes one end of the pair, and with that the other: unless somebody holds the namespace.
    EXPECT_TRUE(eventually([] { return !netdev_exists("outer"); }));
    ASSERT_TRUE(monitor.shows({{"event", "state"}, {"sys_ifindex", 1}, {"name", "br1"}, {"up", nullptr}}));
    EXPECT_EQ(monitor.end(), 0);
    EXPECT_EQ(monitor.errors(), "");
    const std::vector<json> lines = monitor.lines();
    ASSERT_GE(lines.size(), 2u);
    const json &deleted = lines[lines.size() - 2];
    EXPECT_EQ(deleted.at("event"), "namespace_deleted");
    EXPECT_EQ(deleted.at("namespace"), "blue");
    EXPECT_EQ(deleted.at("name"), nullptr);
    EXPECT_EQ(deleted.at("sys_ifindex"), nullptr);
    EXPECT_EQ(lines.back().at("carrier"), nullptr);
}

TEST_F(monitor_tool, text_says_that_a_namespace_was_deleted_among_the_events) {
    make_namespace("blue");
    running_monitor monitor({"--netns", "blue"}, {"blue"}, false);
    ip("netns del blue");
    EXPECT_TRUE(eventually([] {
        return std::regex_search(
            contents_of("/run/monitor.out"),
            std::regex("  namespace_deleted .* blue        no longer watched; the state of each interface "
                       "recorded in it follows\n"));
    })) << contents_of("/run/monitor.out");
    EXPECT_EQ(monitor.end(), 0);
    EXPECT_EQ(monitor.errors(), "");
}

TEST_F(monitor_tool, namespace_that_does_not_exist_ends_it_with_3) {
    const tool_result result = run_tool({"monitor", "--netns", "nowhere"});
    EXPECT_EQ(result.code, 3);
    EXPECT_THAT(result.err, HasSubstr("namespace nowhere: there is none of this name"));
}

TEST_F(monitor_tool, without_a_database_it_says_so_once_and_takes_one_up_that_comes) {
    ASSERT_EQ(net_lib_db_interfaces_unload(0), uint32_t{YB_STATUS_SUCCESS});
    running_monitor monitor({});
    ip("link add br1 type bridge");
    ip("link set br1 mtu 1400");
    ASSERT_TRUE(monitor.shows({{"event", "change"}, {"sys_ifindex", nullptr}}));
    EXPECT_THAT(monitor.errors(), HasSubstr("events come without system ifindex until there is one"));
    EXPECT_EQ(lines_of(monitor.errors()).size(), 1u);
    ASSERT_EQ(net_lib_db_interfaces_load(0), uint32_t{YB_STATUS_SUCCESS});
    add(100, "br1");
    ip("link set br1 up");
    EXPECT_TRUE(monitor.shows({{"event", "up"}, {"sys_ifindex", 100}}));
    EXPECT_EQ(monitor.end(), 0);
    EXPECT_EQ(lines_of(monitor.errors()).size(), 1u);
}

TEST_F(monitor_tool, interrupt_and_termination_end_it_with_0) {
    for (const int signal : {SIGINT, SIGTERM}) {
        running_monitor monitor({});
        EXPECT_EQ(monitor.end(signal), 0);
        EXPECT_EQ(monitor.errors(), "");
    }
}

// timeout(1) signals its child and then the whole group.
TEST_F(monitor_tool, being_told_to_end_again_and_again_ends_it_with_0_too) {
    for (int round = 0; round < 5; round++) {
        running_monitor monitor({});
        for (int i = 0; i < 2000; i++) {
            monitor.process().signal(SIGTERM);
            std::this_thread::sleep_for(std::chrono::microseconds(10));
        }
        ASSERT_EQ(monitor.wait(), 0) << round;
    }
}

TEST_F(monitor_tool, closed_pipe_ends_it_quietly) {
    ip("link add br1 type bridge");
    shared_counter ended;
    child_process storm([&] {
        while (ended.value() == 0)
            toggle("br1", 2);
        return 0;
    });
    const tool_result result = run_program(
        {"bash", "-c",
         std::string("timeout 20 ") + YBNETCTL + " --json monitor | head -n 1; echo ${PIPESTATUS[0]}"},
        {});
    ended.add();
    EXPECT_EQ(storm.wait(), 0);
    EXPECT_EQ(result.err, "");
    const auto lines = lines_of(result.out);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(json::parse(lines[0]).at("name"), "br1");
    EXPECT_EQ(lines[1], "0");
}

TEST_F(monitor_tool, reader_that_leaves_ends_it_although_nothing_happens) {
    const tool_result result = run_program(
        {"bash", "-c", std::string("timeout 20 ") + YBNETCTL + " monitor | true; echo ${PIPESTATUS[0]}"}, {});
    EXPECT_EQ(result.out, "0\n");
    EXPECT_EQ(result.err, "");
}

TEST_F(monitor_tool, heading_is_for_terminals_only) {
    ip("link add br1 type bridge");
    shared_counter ended;
    child_process storm([&] {
        while (ended.value() == 0)
            toggle("br1", 2);
        return 0;
    });
    EXPECT_THAT(run_tool_on_terminal("monitor --count 1").out, HasSubstr("EVENT"));
    EXPECT_THAT(run_tool({"monitor", "--count", "1"}).out, testing::Not(HasSubstr("EVENT")));
    ended.add();
    EXPECT_EQ(storm.wait(), 0);
}

// More changes than a small buffer holds, while the monitor is stopped and cannot read.
TEST_F(monitor_tool, loss_is_said_behind_what_came_before_it_and_followed_by_the_state_of_all) {
    constexpr int changes = 51; // ends up
    ip("link add br1 type bridge");
    ip("link add br2 type bridge");
    make_namespace("blue");
    ip("-n blue link add br3 type bridge");
    add(100, "br1");
    add(200, "br2");
    add(300, "br3", "blue"); // not where events were lost
    ip("link del br2");
    running_monitor monitor({"--buffer", "1"});
    monitor.process().signal(SIGSTOP);
    ASSERT_TRUE(eventually([&] {
        return output_of("awk '$1 == \"State:\" {print $2}' /proc/" +
                         std::to_string(monitor.process().pid()) + "/status") == "T";
    }));
    toggle("br1", changes);
    monitor.process().signal(SIGCONT);
    ASSERT_TRUE(monitor.shows({{"event", "state"}, {"sys_ifindex", 200}}));
    std::vector<json> lines = monitor.lines();
    const auto lost =
        std::find_if(lines.begin(), lines.end(), [](const json &line) { return line.at("event") == "lost"; });
    ASSERT_NE(lost, lines.end());
    EXPECT_EQ(lost->at("dropped").get<long>() + (lost - lines.begin()), changes);
    EXPECT_EQ(lost->at("namespace"), "");
    for (auto before = lines.begin(); before != lost; ++before)
        EXPECT_EQ(before->at("sys_ifindex"), 100);
    ASSERT_EQ(lines.end() - lost, 3);
    EXPECT_EQ(lost[1].at("event"), "state");
    EXPECT_EQ(lost[1].at("sys_ifindex"), 100);
    EXPECT_EQ(lost[1].at("up"), true);
    EXPECT_EQ(lost[2].at("sys_ifindex"), 200);
    EXPECT_EQ(lost[2].at("up"), nullptr); // gone
    ip("link set br1 down");
    EXPECT_TRUE(monitor.shows({{"event", "down"}, {"up", false}, {"sys_ifindex", 100}, {"carrier", false}}));
    EXPECT_EQ(monitor.end(), 0);
    EXPECT_EQ(monitor.lines().back().at("event"), "down");
}

TEST_F(monitor_tool, it_registers_nowhere) {
    const std::string before = contents_of("/dev/shm/net_lib_ifc");
    running_monitor monitor({});
    ip("link add br1 type bridge");
    ASSERT_TRUE(monitor.shows({{"name", "br1"}}));
    EXPECT_TRUE(contents_of("/dev/shm/net_lib_ifc") == before);
    EXPECT_EQ(output_of("grep -c /dev/shm /proc/" + std::to_string(monitor.process().pid()) + "/maps"), "0");
}
