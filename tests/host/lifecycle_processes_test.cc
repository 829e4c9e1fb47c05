// SPDX-License-Identifier: Apache-2.0
//
// Starting and stopping the whole library, libybnet.so as processes load it, in
// several processes at once.
#include "ybnet/net_lib.h"

#include <gtest/gtest.h>
#include <vector>

#include "tests/support/processes.h"
#include "tests/support/recording_platform.h"
#include "tests/support/segment_file.h"
#include "ybnet/net_lib_db.h"

namespace {

void callback(uint32_t, const char *, const char *) {}

class lifecycle_processes : public testing::Test {
  protected:
    void SetUp() override {
        platform::reset();
        segment_remove(interfaces_format);
        segment_remove(ports_format);
    }
    void TearDown() override {
        segment_remove(interfaces_format);
        segment_remove(ports_format);
    }
};

TEST_F(lifecycle_processes, start_uses_the_platform_that_the_process_brings) {
    EXPECT_EQ(0u, yb_net_init(callback, 3, 0));
    const std::vector<std::string> started = {"yb_log_init", "ybd_get_dev_list", "ybd_open_device recorded0",
                                              "ybd_ioctl",   "ybd_ioctl",        "yb_log_init"};
    EXPECT_EQ(started, platform::recorded().calls);
    EXPECT_EQ(callback, platform::recorded().log_callback);
    platform::recorded().calls.clear();
    EXPECT_EQ(0u, yb_net_deinit());
    const std::vector<std::string> stopped = {"ybd_close_device", "yb_log_close", "yb_log_close"};
    EXPECT_EQ(stopped, platform::recorded().calls);
    EXPECT_FALSE(segment_exists(interfaces_format));
    EXPECT_FALSE(segment_exists(ports_format));
}

void start_and_stop_together(int processes) {
    shared_counter ready, start, started, leave;
    std::vector<child_process> all;
    for (int i = 0; i < processes; i++)
        all.emplace_back([&] {
            ready.add();
            if (!start.wait_for(1))
                return 200;
            const yb_status_t status = yb_net_init(nullptr, 3, 0);
            started.add();
            if (!leave.wait_for(1))
                return 201;
            return static_cast<int>(status | yb_net_deinit());
        });
    ASSERT_TRUE(ready.wait_for(processes));
    start.add();
    ASSERT_TRUE(started.wait_for(processes));
    EXPECT_EQ(static_cast<uint32_t>(processes), segment_view(interfaces_format).user_count());
    EXPECT_EQ(static_cast<uint32_t>(processes), segment_view(ports_format).user_count());
    leave.add();
    for (child_process &one : all)
        EXPECT_EQ(0, one.wait());
    EXPECT_FALSE(segment_exists(interfaces_format));
    EXPECT_FALSE(segment_exists(ports_format));
}

TEST_F(lifecycle_processes, two_starting_at_once_are_two_users_of_both_databases) {
    start_and_stop_together(2);
}

TEST_F(lifecycle_processes, eight_starting_at_once_are_eight_users_of_both_databases) {
    start_and_stop_together(8);
}

TEST_F(lifecycle_processes, fifty_starting_at_once_are_fifty_users_of_both_databases) {
    start_and_stop_together(50);
}

TEST_F(lifecycle_processes, starting_with_flag_1_erases_what_the_others_recorded) {
    EXPECT_EQ(0, child_process([] {
                     const yb_net_interface_params_t params = {};
                     const yb_status_t status = yb_net_init(nullptr, 3, 0);
                     return static_cast<int>(status | net_lib_db_interface_add(1, 2, &params));
                 }).wait());
    EXPECT_EQ(0, child_process([] { return static_cast<int>(yb_net_init(nullptr, 3, 0)); }).wait());
    EXPECT_EQ(1u, segment_view(interfaces_format).word(0)) << "flag 0 keeps it";
    EXPECT_EQ(0, child_process([] { return static_cast<int>(yb_net_init(nullptr, 3, 1)); }).wait());
    EXPECT_EQ(0u, segment_view(interfaces_format).word(0));
    EXPECT_EQ(3u, segment_view(interfaces_format).user_count());
}

TEST_F(lifecycle_processes, one_stays_while_others_come_and_go) {
    ASSERT_EQ(0, child_process([] { return static_cast<int>(yb_net_init(nullptr, 3, 0)); }).wait());
    std::vector<child_process> all;
    for (int i = 0; i < 4; i++)
        all.emplace_back([] {
            for (int round = 0; round < 50; round++) {
                if (yb_net_init(nullptr, 3, 0) != YB_STATUS_SUCCESS)
                    return 1;
                if (yb_net_deinit() != YB_STATUS_SUCCESS)
                    return 2;
            }
            return 0;
        });
    for (child_process &one : all)
        EXPECT_EQ(0, one.wait());
    EXPECT_EQ(1u, segment_view(interfaces_format).user_count());
    EXPECT_EQ(1u, segment_view(ports_format).user_count());
}

} // namespace
