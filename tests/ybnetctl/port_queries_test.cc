// SPDX-License-Identifier: Apache-2.0
//
// `ybnetctl port list|show|find`, `lag` and `mlag`: what is in the table and the
// maps, and what is said where the library answers something else.
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/segment_file.h"
#include "tests/ybnetctl/database_user.h"
#include "tests/ybnetctl/tool.h"
#include "tools/ybnetctl/segments/port_search.h"
#include "ybnet/net_lib_db.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

// A process that records what a test wants, and ends with the test.
class port_queries : public testing::Test {
  protected:
    void record(const std::function<void()> &work) {
        user_ = std::make_unique<database_user>(work);
    }
    ~port_queries() override {
        if (user_) {
            EXPECT_EQ(0, user_->end());
        }
        (void)unlink(interfaces_format.path);
        (void)unlink(ports_format.path);
    }
    static void set(uint32_t sys_ifindex, const yb_net_port_info_t &info) {
        if (net_lib_db_port_set(sys_ifindex, &info) != YB_STATUS_SUCCESS)
            _exit(1);
    }
    static std::string found(std::vector<std::string> words) {
        words.emplace_back("--json");
        const tool_result result = run_tool(words);
        EXPECT_EQ(0, result.code) << result.out;
        return jq(result.out, "[.ports[].sys_ifindex | tostring] | join(\" \")");
    }

    std::unique_ptr<database_user> user_;
};

TEST_F(port_queries, list_every_port_in_aligned_columns) {
    record(record_all);
    EXPECT_THAT(lines_of(run_tool({"port", "list"}).out),
                ElementsAre(" SYSIF  NAME    LOG-PORT  PROTOCOL         LAG  MLAG",
                            " 65537  swp1     0x10100         1  0x10000500     -",
                            " 65538  swp2     0x10200         2           -     -",
                            "131073  lag1  0x10000500         -           -     7"));
    const std::string document = run_tool({"port", "list", "--json"}).out;
    EXPECT_EQ("ports notes settled lock_seen_free", jq(document, "keys_unsorted | join(\" \")"));
    EXPECT_EQ("bucket sys_ifindex name log_port is_lag protocol lag_log_port mlag_id listed",
              jq(document, ".ports[0] | keys_unsorted | join(\" \")"));
    EXPECT_EQ(
        "65792 true null",
        jq(document,
           "[.ports[0].log_port, .ports[2].is_lag, .ports[1].lag_log_port] | map(tostring) | join(\" \")"));
}

TEST_F(port_queries, list_what_the_filters_leave) {
    record(record_all);
    EXPECT_EQ("65538", found({"port", "list", "--protocol", "2"}));
    EXPECT_EQ("131073", found({"port", "list", "--protocol", "0"}));
    EXPECT_EQ("65537", found({"port", "list", "--lag", "0x10000500"}));
    EXPECT_EQ("65538", found({"port", "list", "--name", "swp2"}));
    EXPECT_EQ(2, run_tool({"port", "list", "--protocol", "3"}).code);
}

TEST_F(port_queries, find_by_logical_port_and_by_name) {
    record(record_all);
    EXPECT_EQ("65537", found({"port", "find", "--log-port", "0x10100"}));
    EXPECT_EQ("131073", found({"port", "find", "--log-port", "0x10000500"}));
    EXPECT_EQ("65537", found({"port", "find", "--name", "swp1"}));
    EXPECT_EQ("65537", jq(run_tool({"port", "find", "--log-port", "65792", "--json"}).out, ".sys_ifindex"));
    EXPECT_EQ(3, run_tool({"port", "find", "--log-port", "0x10300"}).code);
    EXPECT_EQ(3, run_tool({"port", "find", "--name", "swp3"}).code);
    EXPECT_EQ("65537", found({"port", "find", "0x10001"}));
    EXPECT_EQ("65537", jq(run_tool({"port", "find", "65537", "--json"}).out, ".sys_ifindex"));
    EXPECT_EQ(3, run_tool({"port", "find", "65540"}).code);
    EXPECT_EQ(2, run_tool({"port", "find", "65537", "--name", "swp1"}).code);
    EXPECT_EQ(2, run_tool({"port", "find"}).code);
}

TEST_F(port_queries, say_what_the_library_answers_for_a_port_that_is_not_recorded) {
    record(record_all);
    const tool_result none = run_tool({"port", "show", "77"});
    EXPECT_EQ(3, none.code);
    EXPECT_THAT(none.err,
                HasSubstr("no bucket has this system ifindex; the library answers a record of zeros for this "
                          "key, with YB_STATUS_SUCCESS: its search ends on the empty bucket"));
}

TEST_F(port_queries, show_a_port_whose_crc_is_0_and_who_suffers_from_it) {
    uint32_t uncounted = 1;
    while (ybnetctl::home_bucket(uncounted) != 0)
        uncounted++;
    record([uncounted] { set(uncounted, port_info("crc0", 0x10100)); });
    const tool_result shown = run_tool({"port", "show", std::to_string(uncounted)});
    EXPECT_EQ(0, shown.code);
    EXPECT_THAT(shown.out, HasSubstr("note: its CRC-16 is 0, so its bucket counts as empty"));
    EXPECT_THAT(run_tool({"port", "list"}).out, HasSubstr("note: 1 of these the library does not list"));
    EXPECT_EQ("false", jq(run_tool({"port", "list", "--json"}).out, ".ports[0].listed"));

    uint32_t other = uncounted + 1; // another key that comes by that bucket
    while (ybnetctl::home_bucket(other) != 0)
        other++;
    const tool_result victim = run_tool({"port", "show", std::to_string(other)});
    EXPECT_EQ(3, victim.code);
    EXPECT_THAT(victim.err, HasSubstr("the library answers the record of port " + std::to_string(uncounted)));
}

TEST_F(port_queries, tell_maps_from_records) {
    record([] {
        set(1, port_info("moved", 0x10100));
        set(1, port_info("", 0x10200)); // stays in the map under 0x10100
        set(2, port_info("first", 0x10300));
        set(3, port_info("second", 0x10300)); // takes the slot
    });
    EXPECT_THAT(run_tool({"port", "find", "--log-port", "0x10100"}).out,
                HasSubstr("note: the library answers 1, whose record has logical port 0x10200 now"));
    EXPECT_THAT(run_tool({"port", "find", "--log-port", "0x10300"}).out,
                HasSubstr("note: port 2 has it too, but the library answers 3"));
    EXPECT_THAT(run_tool({"port", "show", "2"}).out,
                HasSubstr("note: for its logical port 0x10300 the library answers 3"));
    EXPECT_THAT(run_tool({"port", "show", "3"}).out, Not(HasSubstr("note:")));
}

TEST_F(port_queries, list_lags_with_their_members) {
    record(record_all);
    EXPECT_THAT(lines_of(run_tool({"lag", "list"}).out),
                ElementsAre("  LOG-PORT  INDEX   SYSIF  NAME  MLAG  MEMBERS",
                            "0x10000500      5  131073  lag1     7  swp1"));
    EXPECT_THAT(run_tool({"lag", "show", "0x20001"}).out, HasSubstr("Members\n"));
    const std::string document = run_tool({"lag", "show", "0x10000500", "--json"}).out;
    EXPECT_EQ("log_port lag_index sys_ifindex name mlag_id members notes",
              jq(document, ".lags[0] | keys_unsorted | join(\" \")"));
    EXPECT_EQ("65537", jq(document, ".lags[].members[].sys_ifindex"));
    EXPECT_EQ(3, run_tool({"lag", "show", "0x10000600"}).code);

    EXPECT_THAT(lines_of(run_tool({"mlag", "list"}).out),
                ElementsAre("MLAG         LAG   SYSIF  NAME", "   7  0x10000500  131073  lag1"));
    EXPECT_EQ("268436736", jq(run_tool({"mlag", "show", "7", "--json"}).out, ".mlags[0].lag_log_port"));
    EXPECT_EQ(3, run_tool({"mlag", "show", "8"}).code);
    EXPECT_EQ(2, run_tool({"mlag", "show", "1001"}).code);
    for (const std::string group : {"lag", "mlag"}) { // alone
        EXPECT_EQ(run_tool({group, "list"}).out, run_tool({group}).out);
        EXPECT_EQ(run_tool({group, "list", "--json"}).out, run_tool({"--json", group}).out);
        EXPECT_EQ(2, run_tool({group, "nonsense"}).code);
    }
}

TEST_F(port_queries, tell_of_bindings_that_were_left_behind) {
    record([] {
        yb_net_port_info_t lag = port_info("lag1", 0x10000500);
        lag.mlag_id = 9;
        set(0x20001, lag);
        lag.mlag_id = 10;
        set(0x20001, lag); // 9 keeps naming it
        set(0x20002, port_info("lag2", 0x10000600));
        set(1, port_info("member", 0x10100));
        if (net_lib_db_port_lag_set(1, 0x10000600) != YB_STATUS_SUCCESS ||
            net_lib_db_port_remove(0x20002) != YB_STATUS_SUCCESS)
            _exit(1);
    });
    EXPECT_THAT(
        run_tool({"mlag", "show", "9"}).out,
        HasSubstr(
            "the LAG 0x10000500 itself is bound to MLAG id 10 now; the library still answers it for 9"));
    EXPECT_THAT(run_tool({"mlag", "show", "10"}).out, Not(HasSubstr("note:")));
    EXPECT_THAT(run_tool({"lag", "show", "0x10000600"}).out,
                HasSubstr("its members name a LAG that is gone"));
}

} // namespace
