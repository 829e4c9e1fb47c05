// SPDX-License-Identifier: Apache-2.0
//
// Setting and getting the verbosity of both modules, and what it does to real
// messages of the library.
#include "net_lib/net_lib_log.h"
#include "net_lib_db/net_lib_db_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/processes.h"
#include "tests/support/recording_platform.h"
#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr yb_access_cmd_t unsupported_commands[] = {0,         1, 2, 3, 4, 12, 13, 14, 16, 18, 0x10000 + 15,
                                                    0xFFFFFFFF};

// The words as the process starts with them, before any test.
const uint32_t net_lib_verbosity_at_start = net_lib_verbosity.load();
const uint32_t net_lib_db_verbosity_at_start = net_lib_db_verbosity.load();

class verbosity : public testing::Test {
  protected:
    void SetUp() override {
        platform::reset();
    }
    void TearDown() override {
        net_lib_verbosity = YB_VERBOSITY_DEFAULT;
        net_lib_db_verbosity = YB_VERBOSITY_DEFAULT;
        platform::reset();
    }

    static uint32_t get(yb_status_t (*function)(yb_access_cmd_t, uint32_t *)) {
        uint32_t level = 0xEEEEEEEE;
        EXPECT_EQ(YB_STATUS_SUCCESS, function(17, &level));
        return level;
    }
    static void set(yb_status_t (*function)(yb_access_cmd_t, uint32_t *), uint32_t level) {
        const uint32_t given = level;
        EXPECT_EQ(YB_STATUS_SUCCESS, function(15, &level));
        EXPECT_EQ(given, level) << "read, not written";
    }
    // Severities of what the library writes when an ERROR, an INFO and a DEBUG message of the database and an
    // ERROR one of the API are due.
    static std::vector<uint32_t> severities_written() {
        platform::recorded() = {};
        yb_net_interface_record_t record;
        uint32_t level = 0;
        (void)yb_net_log_verbosity_level(0, &level);
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_load(0));
        (void)net_lib_db_interfaces_load(0);                         // WARN
        (void)net_lib_db_interface_remove(1);                        // ERROR
        (void)net_lib_db_interface_get(1, &record);                  // INFO
        (void)net_lib_db_interface_get_by_linux_ifindex(1, &record); // DEBUG
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_unload(0));
        std::vector<uint32_t> found;
        for (const platform::log_line &line : platform::recorded().log)
            found.push_back(line.severity);
        return found;
    }
};

TEST_F(verbosity, is_3_in_both_modules_at_first) {
    EXPECT_EQ(3u, net_lib_verbosity_at_start);
    EXPECT_EQ(3u, net_lib_db_verbosity_at_start);
    EXPECT_EQ(3u, get(yb_net_log_verbosity_level));
    EXPECT_EQ(3u, get(net_lib_db_log_verbosity_level));
}

TEST_F(verbosity, set_through_the_api_changes_both_modules) {
    for (const uint32_t level : {0u, 1u, 2u, 4u, 5u, 6u, 0xFFFFFFFFu}) {
        set(yb_net_log_verbosity_level, level);
        EXPECT_EQ(level, get(yb_net_log_verbosity_level));
        EXPECT_EQ(level, get(net_lib_db_log_verbosity_level));
    }
}

TEST_F(verbosity, set_for_the_database_leaves_the_api_module_alone_and_get_returns_only_the_api_modules) {
    set(yb_net_log_verbosity_level, 4);
    set(net_lib_db_log_verbosity_level, 1);
    EXPECT_EQ(4u, get(yb_net_log_verbosity_level));
    EXPECT_EQ(1u, get(net_lib_db_log_verbosity_level));
}

TEST_F(verbosity, refuses_other_commands_with_10_and_leaves_the_level_untouched) {
    for (const yb_access_cmd_t cmd : unsupported_commands) {
        SCOPED_TRACE(cmd);
        platform::recorded() = {};
        uint32_t level = 5;
        EXPECT_EQ(10u, yb_net_log_verbosity_level(cmd, &level));
        EXPECT_EQ(5u, level);
        ASSERT_EQ(1u, platform::recorded().log.size()) << "the database module is not asked";
        EXPECT_EQ(1u, platform::recorded().log[0].severity);
        EXPECT_EQ("yb_net_log_verbosity_level: Reached default access command : [%s]\n",
                  platform::recorded().log[0].format);
    }
    EXPECT_EQ(3u, get(yb_net_log_verbosity_level));
    EXPECT_EQ(3u, get(net_lib_db_log_verbosity_level));
}

TEST_F(verbosity, of_the_database_refuses_other_commands_with_a_message_without_newline) {
    for (const yb_access_cmd_t cmd : unsupported_commands) {
        SCOPED_TRACE(cmd);
        platform::recorded() = {};
        uint32_t level = 5;
        EXPECT_EQ(10u, net_lib_db_log_verbosity_level(cmd, &level));
        EXPECT_EQ(5u, level);
        ASSERT_EQ(1u, platform::recorded().log.size());
        EXPECT_EQ(1u, platform::recorded().log[0].severity);
        EXPECT_EQ("Reached default access command : [%s]", platform::recorded().log[0].format);
    }
    EXPECT_EQ(3u, get(net_lib_db_log_verbosity_level));
}

TEST_F(verbosity, refusals_name_the_command_by_its_text) {
    uint32_t level = 0;
    (void)yb_net_log_verbosity_level(YB_ACCESS_CMD_DESTROY, &level);
    (void)net_lib_db_log_verbosity_level(YB_ACCESS_CMD_UNSET, &level);
    EXPECT_THAT(platform::recorded().texts(1),
                ElementsAre("yb_net_log_verbosity_level: Reached default access command : [DESTROY]\n",
                            "Reached default access command : [UNSET]"));
}

TEST_F(verbosity, function_of_the_api_writes_trace_lines_on_every_path_and_the_databases_none) {
    set(yb_net_log_verbosity_level, 5);
    g_yb_log_module_func_enable = 1;
    for (const yb_access_cmd_t cmd : {15u, 17u, 1u}) {
        SCOPED_TRACE(cmd);
        platform::recorded() = {};
        uint32_t level = 5;
        (void)yb_net_log_verbosity_level(cmd, &level);
        EXPECT_THAT(platform::recorded().texts(31),
                    ElementsAre(MatchesRegex("net_lib\\[[0-9]+\\]- yb_net_log_verbosity_level: "
                                             "yb_net_log_verbosity_level - entered \n"),
                                MatchesRegex("net_lib\\[[0-9]+\\]- yb_net_log_verbosity_level: "
                                             "yb_net_log_verbosity_level - left \n")));
        platform::recorded() = {};
        (void)net_lib_db_log_verbosity_level(cmd, &level);
        EXPECT_THAT(platform::recorded().texts(31), IsEmpty());
    }
}

// ---- What it does to real messages ----

TEST_F(verbosity, at_3_lets_errors_and_warnings_through_and_drops_info_and_debug) {
    EXPECT_THAT(severities_written(), ElementsAre(1, 3, 1));
}

TEST_F(verbosity, at_4_lets_info_through_too) {
    set(yb_net_log_verbosity_level, 4);
    EXPECT_THAT(severities_written(), ElementsAre(1, 3, 1, 15));
}

TEST_F(verbosity, at_5_lets_debug_through_with_file_line_and_function_in_front) {
    set(yb_net_log_verbosity_level, 5);
    EXPECT_THAT(severities_written(), ElementsAre(1, 3, 1, 15, 31));
    EXPECT_THAT(platform::recorded().texts(31),
                ElementsAre(MatchesRegex("net_lib_db\\[[1-9][0-9]*\\]- "
                                         "net_lib_db_interface_get_by_linux_ifindex_ns: Interface with linux "
                                         "ifindex 1 does not exist in the Net-lib Interfaces DB\n")));
}

TEST_F(verbosity, at_0_silences_every_message) {
    set(yb_net_log_verbosity_level, 0);
    EXPECT_THAT(severities_written(), IsEmpty());
    EXPECT_THAT(platform::recorded().trace, IsEmpty());
}

TEST_F(verbosity, at_1_lets_only_errors_through) {
    set(yb_net_log_verbosity_level, 1);
    EXPECT_THAT(severities_written(), ElementsAre(1, 1));
}

TEST_F(verbosity, of_one_process_is_not_that_of_another) {
    EXPECT_EQ(0, child_process([] {
                     uint32_t level = 5;
                     return static_cast<int>(yb_net_log_verbosity_level(15, &level));
                 }).wait());
    EXPECT_EQ(3u, get(yb_net_log_verbosity_level));
    EXPECT_EQ(3u, get(net_lib_db_log_verbosity_level));
}

} // namespace
