// SPDX-License-Identifier: Apache-2.0
//
// Starting and stopping the library and its two halves: what is called in which
// order, whose status is returned, and what a failure leaves behind.
#include "ybnet/net_lib.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <vector>

#include "net_lib/driver_handle.h"
#include "net_lib/net_lib_log.h"
#include "net_lib_db/net_lib_db_log.h"
#include "tests/support/recording_platform.h"
#include "tests/support/segment_file.h"
#include "tests/support/system_calls.h"
#include "ybnet/net_lib_db.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

void callback(uint32_t, const char *, const char *) {}

class lifecycle : public testing::Test {
  protected:
    void SetUp() override {
        platform::reset();
        calls::reset();
        ybd_handle = 0;
        segment_remove(interfaces_format);
        segment_remove(ports_format);
        steps().clear();
    }
    void TearDown() override {
        platform::reset();
        calls::reset();
        (void)net_lib_db_interfaces_unload(0);
        (void)net_lib_db_ports_unload(0);
        segment_remove(interfaces_format);
        segment_remove(ports_format);
        net_lib_verbosity = YB_VERBOSITY_DEFAULT;
        net_lib_db_verbosity = YB_VERBOSITY_DEFAULT;
        ybd_handle = 0;
    }

    static bool interfaces_loaded() {
        yb_net_interface_record_t record;
        return net_lib_db_interface_get(1, &record) != YB_STATUS_DB_NOT_INITIALIZED;
    }
    static bool ports_loaded() {
        uint16_t mlag_id = 0;
        return net_lib_db_mlag_get(0x10000100, &mlag_id) != YB_STATUS_DB_NOT_INITIALIZED;
    }
    static void make_stale(const segment_format &format) {
        segment_make(format, 4096);
    }

    // From now on, trace lines and calls of the platform are kept in the order in which they come.
    static void trace_steps() {
        net_lib_verbosity = 5;
        net_lib_db_verbosity = 5;
        g_yb_log_module_func_enable = 1;
        platform::on_log() = [](const platform::log_line &line) {
            add_calls();
            steps().push_back(std::regex_replace(line.text, std::regex("\\[[0-9]+\\]- .*: "), ": "));
        };
    }
    static std::vector<std::string> take_steps() {
        add_calls();
        platform::recorded().calls.clear();
        return std::exchange(steps(), {});
    }

  private:
    static std::vector<std::string> &steps() {
        static std::vector<std::string> all;
        return all;
    }
    static void add_calls() {
        for (const std::string &call : platform::recorded().calls)
            steps().push_back(call);
        platform::recorded().calls.clear();
    }
};

// ---- Order ----

const std::vector<std::string> interfaces_start = {"yb_log_init",
                                                   "net_lib: yb_net_interfaces_init - entered \n",
                                                   "net_lib_db: net_lib_interfaces_db_init - left \n",
                                                   "net_lib: __init_ybd_handle - entered \n",
                                                   "ybd_get_dev_list",
                                                   "ybd_open_device recorded0",
                                                   "ybd_ioctl",
                                                   "ybd_ioctl",
                                                   "net_lib: __init_ybd_handle - left \n",
                                                   "net_lib: yb_net_interfaces_init - left \n"};
const std::vector<std::string> ports_start = {"yb_log_init", "net_lib: yb_net_ports_init - entered \n",
                                              "net_lib_db: net_lib_ports_db_init - left \n",
                                              "net_lib: yb_net_ports_init - left \n"};
const std::vector<std::string> interfaces_stop = {"net_lib: yb_net_interfaces_deinit - entered \n",
                                                  "net_lib: __deinit_ybd_handle - entered \n",
                                                  "ybd_close_device",
                                                  "net_lib: __deinit_ybd_handle - left \n",
                                                  "net_lib: yb_net_interfaces_deinit - left \n",
                                                  "yb_log_close"};
const std::vector<std::string> ports_stop = {"net_lib: yb_net_ports_deinit - entered \n",
                                             "net_lib: yb_net_ports_deinit - left \n", "yb_log_close"};

std::vector<std::string> joined(const std::vector<std::vector<std::string>> &parts) {
    std::vector<std::string> all;
    for (const std::vector<std::string> &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

TEST_F(lifecycle, interfaces_half_starts_and_stops_in_order) {
    trace_steps();
    EXPECT_EQ(0u, yb_net_interfaces_init(nullptr, 5, 0));
    EXPECT_THAT(take_steps(), ElementsAreArray(interfaces_start));
    EXPECT_EQ(0u, yb_net_interfaces_deinit(0));
    EXPECT_THAT(take_steps(), ElementsAreArray(interfaces_stop));
    EXPECT_FALSE(segment_exists(interfaces_format));
}

TEST_F(lifecycle, ports_half_starts_and_stops_in_order_and_has_no_device) {
    trace_steps();
    EXPECT_EQ(0u, yb_net_ports_init(nullptr, 5, 0));
    EXPECT_THAT(take_steps(), ElementsAreArray(ports_start));
    EXPECT_EQ(0u, yb_net_ports_deinit(0));
    EXPECT_THAT(take_steps(), ElementsAreArray(ports_stop));
    EXPECT_FALSE(segment_exists(ports_format));
}

TEST_F(lifecycle, whole_start_runs_interfaces_then_ports_between_its_own_trace_lines) {
    trace_steps();
    EXPECT_EQ(0u, yb_net_init(nullptr, 5, 0));
    EXPECT_THAT(take_steps(), ElementsAreArray(joined({{"net_lib: yb_net_init - entered \n"},
                                                       interfaces_start,
                                                       ports_start,
                                                       {"net_lib: yb_net_init - left \n"}})));
}

TEST_F(lifecycle, whole_stop_runs_interfaces_then_ports_and_writes_only_its_entered_line) {
    ASSERT_EQ(0u, yb_net_init(nullptr, 5, 0));
    (void)take_steps();
    trace_steps();
    EXPECT_EQ(0u, yb_net_deinit());
    EXPECT_THAT(take_steps(), ElementsAreArray(joined(
                                  {{"net_lib: yb_net_deinit - entered \n"}, interfaces_stop, ports_stop})));
}

TEST_F(lifecycle, trace_lines_need_the_flag_and_verbosity_5) {
    trace_steps();
    g_yb_log_module_func_enable = 0;
    ASSERT_EQ(0u, yb_net_init(nullptr, 5, 0));
    ASSERT_EQ(0u, yb_net_deinit());
    EXPECT_THAT(platform::recorded().log, IsEmpty());
    trace_steps();
    net_lib_db_verbosity = 4;
    ASSERT_EQ(0u, yb_net_init(nullptr, 4, 0));
    ASSERT_EQ(0u, yb_net_deinit());
    // Only yb_net_init's "entered" line comes before the level of the call is set.
    EXPECT_EQ(1u, platform::recorded().log.size());
    EXPECT_EQ(1u, platform::recorded().trace.size());
}

TEST_F(lifecycle, trace_lines_have_the_positioned_form_and_the_trace_buffers) {
    trace_steps();
    g_yb_log_module_func_enable = 0x80000000;
    ASSERT_EQ(0u, yb_net_ports_init(nullptr, 5, 0));
    ASSERT_EQ(3u, platform::recorded().log.size());
    EXPECT_EQ("%s[%d]- %s: %s - entered \n", platform::recorded().log[0].format);
    EXPECT_EQ("%s[%d]- %s: %s - left \n", platform::recorded().log[1].format);
    EXPECT_EQ("%s[%d]- %s: %s - left \n", platform::recorded().log[2].format);
    EXPECT_THAT(
        platform::recorded().trace,
        ElementsAre(
            testing::MatchesRegex("\\[DEBUG  \\] \\[YB_NET_LIB\\] - yb_net_ports_init\\[[0-9]+\\]: "
                                  "yb_net_ports_init - entered \n"),
            testing::MatchesRegex("\\[DEBUG  \\] \\[YB_NET_LIB\\] - net_lib_ports_db_init\\[[0-9]+\\]: "
                                  "net_lib_ports_db_init - left \n"),
            testing::MatchesRegex("\\[DEBUG  \\] \\[YB_NET_LIB\\] - yb_net_ports_init\\[[0-9]+\\]: "
                                  "yb_net_ports_init - left \n")));
    EXPECT_EQ("[%s] [%s] - %s[%d]: %s - entered \n", platform::recorded().trace_formats[0]);
    EXPECT_EQ("[%s] [%s] - %s[%d]: %s - left \n", platform::recorded().trace_formats[1]);
}

// ---- Arguments ----

TEST_F(lifecycle, start_hands_the_callback_with_1_and_0_to_the_logging_library) {
    for (const auto start : {yb_net_interfaces_init, yb_net_ports_init}) {
        platform::recorded() = {};
        platform::recorded().log_init_args[1] = 99;
        ASSERT_EQ(0u, start(callback, 3, 0));
        EXPECT_EQ(1u, platform::recorded().log_init_args[0]);
        EXPECT_EQ(0u, platform::recorded().log_init_args[1]);
        EXPECT_EQ(callback, platform::recorded().log_callback);
    }
}

TEST_F(lifecycle, start_sets_the_verbosity_of_the_api_module_only) {
    for (const auto start : {yb_net_interfaces_init, yb_net_ports_init}) {
        net_lib_verbosity = 3;
        net_lib_db_verbosity = 2;
        ASSERT_EQ(0u, start(nullptr, 4, 0));
        EXPECT_EQ(4u, net_lib_verbosity.load());
        EXPECT_EQ(2u, net_lib_db_verbosity.load());
    }
}

TEST_F(lifecycle, start_hands_the_reinitialize_flag_to_both_loads_unchanged) {
    ASSERT_EQ(0u, yb_net_init(nullptr, 3, 0));
    segment_view interfaces(interfaces_format);
    segment_view ports(ports_format);
    interfaces.fill(0, 64, 0xAB);
    ports.fill(0, 64, 0xAB);
    EXPECT_EQ(0u, yb_net_init(nullptr, 3, 0x100)) << "any value but 0, the second time";
    EXPECT_EQ(0u, interfaces.word(0));
    EXPECT_EQ(0u, ports.word(0));
    EXPECT_EQ(1u, interfaces.user_count());
    EXPECT_EQ(1u, ports.user_count());
}

TEST_F(lifecycle, stop_of_a_half_ignores_its_argument) {
    ASSERT_EQ(0u, yb_net_init(nullptr, 3, 0));
    EXPECT_EQ(0u, yb_net_interfaces_deinit(7));
    EXPECT_EQ(0u, yb_net_ports_deinit(0xFFFFFFFF));
    EXPECT_FALSE(segment_exists(interfaces_format));
    EXPECT_FALSE(segment_exists(ports_format));
}

// ---- Failures ----

TEST_F(lifecycle, start_on_an_interfaces_database_of_another_layout_returns_1_and_leaves_the_ports_unloaded) {
    make_stale(interfaces_format);
    EXPECT_EQ(1u, yb_net_init(nullptr, 3, 0));
    EXPECT_FALSE(ports_loaded());
    EXPECT_FALSE(segment_exists(ports_format));
    EXPECT_THAT(platform::recorded().calls, ElementsAre("yb_log_init")) << "no handle was opened";
    EXPECT_EQ(0u, ybd_handle);
}

TEST_F(lifecycle, start_on_a_ports_database_of_another_layout_returns_1_with_the_interfaces_loaded) {
    make_stale(ports_format);
    EXPECT_EQ(1u, yb_net_init(nullptr, 3, 0));
    EXPECT_TRUE(interfaces_loaded());
    EXPECT_FALSE(ports_loaded());
    EXPECT_EQ(1u, ybd_handle);
}

TEST_F(lifecycle, start_passes_the_statuses_of_the_load_on) {
    calls::fail("mmap", ENOMEM);
    EXPECT_EQ(6u, yb_net_interfaces_init(nullptr, 3, 0));
    calls::fail("mmap", ENOMEM);
    EXPECT_EQ(6u, yb_net_ports_init(nullptr, 3, 0));
    calls::fail("mmap", ENOMEM);
    EXPECT_EQ(6u, yb_net_init(nullptr, 3, 0));
}

TEST_F(lifecycle, start_without_a_device_returns_102_although_the_database_was_loaded) {
    platform::fail().get_dev_list = ENODEV;
    EXPECT_EQ(102u, yb_net_interfaces_init(nullptr, 3, 0));
    EXPECT_TRUE(interfaces_loaded());
    EXPECT_EQ(1u, segment_view(interfaces_format).user_count());
}

TEST_F(lifecycle, whole_start_without_a_device_returns_102_and_does_not_reach_the_ports) {
    platform::fail().get_dev_list = ENODEV;
    EXPECT_EQ(102u, yb_net_init(nullptr, 3, 0));
    EXPECT_TRUE(interfaces_loaded());
    EXPECT_FALSE(segment_exists(ports_format));
    EXPECT_EQ(0u, yb_net_deinit()) << "the close of no handle is only logged";
    EXPECT_THAT(platform::recorded().closed_handles, ElementsAre(0));
    EXPECT_FALSE(segment_exists(interfaces_format));
}

TEST_F(lifecycle, second_start_with_flag_0_returns_31_opens_no_handle_and_does_not_reach_the_ports) {
    ASSERT_EQ(0u, yb_net_init(nullptr, 3, 0));
    platform::recorded() = {};
    EXPECT_EQ(31u, yb_net_init(nullptr, 3, 0));
    EXPECT_THAT(platform::recorded().calls, ElementsAre("yb_log_init"));
    EXPECT_EQ(1u, platform::recorded().log.size()) << "the interfaces half's warning alone";
    EXPECT_EQ(1u, ybd_handle);
}

TEST_F(lifecycle, second_start_with_the_flag_replaces_the_handle_and_leaves_the_first_open) {
    ASSERT_EQ(0u, yb_net_interfaces_init(nullptr, 3, 0));
    EXPECT_EQ(0u, yb_net_interfaces_init(nullptr, 3, 1));
    EXPECT_EQ(2u, ybd_handle);
    EXPECT_THAT(platform::recorded().closed_handles, IsEmpty());
    EXPECT_EQ(0u, yb_net_interfaces_deinit(0));
    EXPECT_THAT(platform::recorded().closed_handles, ElementsAre(2));
    EXPECT_EQ(2u, ybd_handle) << "not cleared";
}

TEST_F(lifecycle, stop_returns_0_when_both_unloads_succeed) {
    ASSERT_EQ(0u, yb_net_init(nullptr, 3, 0));
    EXPECT_EQ(0u, yb_net_deinit());
}

TEST_F(lifecycle, stop_returns_1_when_either_unmapping_fails_and_always_runs_both_halves) {
    for (const int failing : {1, 2}) {
        SCOPED_TRACE(failing);
        ASSERT_EQ(0u, yb_net_init(nullptr, 3, 0));
        calls::reset();
        platform::recorded() = {};
        calls::fail("munmap", EINVAL, failing);
        EXPECT_EQ(1u, yb_net_deinit());
        EXPECT_FALSE(segment_exists(interfaces_format));
        EXPECT_FALSE(segment_exists(ports_format));
        EXPECT_THAT(platform::recorded().calls,
                    ElementsAre("ybd_close_device", "yb_log_close", "yb_log_close"));
    }
}

TEST_F(lifecycle, stop_of_a_half_returns_1_when_its_unmapping_fails) {
    ASSERT_EQ(0u, yb_net_init(nullptr, 3, 0));
    calls::fail("munmap", EINVAL);
    EXPECT_EQ(1u, yb_net_interfaces_deinit(0));
    calls::fail("munmap", EINVAL);
    EXPECT_EQ(1u, yb_net_ports_deinit(0));
}

TEST_F(lifecycle, stop_is_not_told_of_a_handle_that_does_not_close) {
    ASSERT_EQ(0u, yb_net_init(nullptr, 3, 0));
    platform::fail().close_device = EIO;
    EXPECT_EQ(0u, yb_net_deinit());
    EXPECT_THAT(platform::recorded().texts(1), ElementsAre("ybd_close_device error: Input/output error\n"));
}

TEST_F(lifecycle, stop_without_a_start_returns_0_and_logs_only_the_handle) {
    EXPECT_EQ(0u, yb_net_deinit());
    EXPECT_THAT(platform::recorded().texts(1), ElementsAre("ybd_close_device error: Bad file descriptor\n"));
    EXPECT_THAT(platform::recorded().calls, ElementsAre("ybd_close_device", "yb_log_close", "yb_log_close"));
}

} // namespace
