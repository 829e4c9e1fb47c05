// SPDX-License-Identifier: Apache-2.0
//
// Opening, configuring and closing the process's handle to the driver device.
#include "net_lib/driver_handle.h"

#include <cerrno>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "net_lib/net_lib_log.h"
#include "tests/support/recording_platform.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

class driver_handle : public testing::Test {
  protected:
    void SetUp() override {
        platform::reset();
        ybd_handle = 0;
        platform::next_handle() = 41;
    }
    void TearDown() override {
        net_lib_verbosity = YB_VERBOSITY_DEFAULT;
        platform::reset();
        ybd_handle = 0;
    }

    // The one message: logged at ERROR, and the same text in the trace buffer, so with the errno of the
    // failing call although the log spoils errno between the two.
    static void expect_message(const std::string &function, const std::string &text) {
        const platform::recording &seen = platform::recorded();
        ASSERT_EQ(1u, seen.log.size());
        EXPECT_EQ(1u, seen.log[0].severity);
        EXPECT_EQ("YB_NET_LIB", seen.log[0].module);
        EXPECT_EQ(text, seen.log[0].text);
        ASSERT_EQ(1u, seen.trace.size());
        const std::string begin = "[ERROR  ] [YB_NET_LIB] - " + function + "[";
        EXPECT_EQ(begin, seen.trace[0].substr(0, begin.size()));
        EXPECT_EQ("]: " + text, seen.trace[0].substr(seen.trace[0].find("]: ")));
    }
};

TEST_F(driver_handle, opens_the_first_device_and_configures_it) {
    EXPECT_EQ(0u, __init_ybd_handle());
    EXPECT_THAT(platform::recorded().calls,
                ElementsAre("ybd_get_dev_list", "ybd_open_device recorded0", "ybd_ioctl", "ybd_ioctl"));
    EXPECT_EQ(1u, platform::recorded().dev_list_room);
    EXPECT_EQ(41u, ybd_handle);
    EXPECT_THAT(platform::recorded().log, IsEmpty());
}

TEST_F(driver_handle, sends_multi_packet_off_then_blocking_on_in_records_of_16_bytes) {
    ASSERT_EQ(0u, __init_ybd_handle());
    ASSERT_EQ(2u, platform::recorded().controls.size());
    const uint8_t expected[2][16] = {{7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
                                     {8, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0}};
    for (size_t i = 0; i < 2; i++) {
        const platform::control &control = platform::recorded().controls[i];
        EXPECT_EQ(41u, control.handle);
        static_assert(sizeof(control.record) == 16);
        EXPECT_EQ(0, memcmp(expected[i], &control.record, 16)) << "record " << i;
    }
}

TEST_F(driver_handle, list_failure_returns_102) {
    platform::fail().get_dev_list = ENODEV;
    EXPECT_EQ(102u, __init_ybd_handle());
    expect_message("__init_ybd_handle", "ybd_get_dev_list error No such device.\n");
    EXPECT_THAT(platform::recorded().calls, ElementsAre("ybd_get_dev_list"));
    EXPECT_EQ(0u, ybd_handle);
}

TEST_F(driver_handle, open_failure_returns_102_and_closes_nothing) {
    platform::fail().open_device = EACCES;
    EXPECT_EQ(102u, __init_ybd_handle());
    expect_message("__init_ybd_handle", "ybd_open_device error Permission denied.\n");
    EXPECT_THAT(platform::recorded().calls, ElementsAre("ybd_get_dev_list", "ybd_open_device recorded0"));
    EXPECT_EQ(0u, ybd_handle);
}

TEST_F(driver_handle, multi_packet_failure_returns_102_and_closes_the_device) {
    platform::fail().ioctl_multi_packet = ENOTTY;
    EXPECT_EQ(102u, __init_ybd_handle());
    expect_message("__init_ybd_handle", "ybd_ioctl (set MULTI_PACKET_ENABLE = FALSE) error Inappropriate "
                                        "ioctl for device.\n");
    EXPECT_EQ(1u, platform::recorded().controls.size());
    EXPECT_EQ("ybd_close_device", platform::recorded().calls.back());
    EXPECT_THAT(platform::recorded().closed_handles, ElementsAre(41));
}

TEST_F(driver_handle, blocking_failure_returns_102_and_closes_the_device) {
    platform::fail().ioctl_blocking = EIO;
    EXPECT_EQ(102u, __init_ybd_handle());
    expect_message("__init_ybd_handle", "ybd_ioctl (set BLOCKING_ENABLE = TRUE) error Input/output error.\n");
    EXPECT_EQ(2u, platform::recorded().controls.size());
    EXPECT_EQ("ybd_close_device", platform::recorded().calls.back());
    EXPECT_THAT(platform::recorded().closed_handles, ElementsAre(41));
}

TEST_F(driver_handle, close_that_fails_too_adds_no_message) {
    platform::fail().ioctl_blocking = EIO;
    platform::fail().close_device = EBADF;
    EXPECT_EQ(102u, __init_ybd_handle());
    EXPECT_EQ(1u, platform::recorded().log.size());
}

TEST_F(driver_handle, is_closed_and_keeps_its_value) {
    ASSERT_EQ(0u, __init_ybd_handle());
    EXPECT_EQ(0u, __deinit_ybd_handle());
    EXPECT_THAT(platform::recorded().closed_handles, ElementsAre(41));
    EXPECT_EQ(41u, ybd_handle);
    EXPECT_THAT(platform::recorded().log, IsEmpty());
}

TEST_F(driver_handle, that_was_never_opened_fails_to_close_with_102) {
    EXPECT_EQ(102u, __deinit_ybd_handle());
    expect_message("__deinit_ybd_handle", "ybd_close_device error: Bad file descriptor\n");
    EXPECT_THAT(platform::recorded().closed_handles, ElementsAre(0));
}

TEST_F(driver_handle, close_failure_returns_102) {
    ASSERT_EQ(0u, __init_ybd_handle());
    platform::fail().close_device = EIO;
    EXPECT_EQ(102u, __deinit_ybd_handle());
    expect_message("__deinit_ybd_handle", "ybd_close_device error: Input/output error\n");
}

TEST_F(driver_handle, functions_write_both_trace_lines_on_every_path) {
    net_lib_verbosity = 5;
    g_yb_log_module_func_enable = 1;
    const auto both_lines_of = [](const std::string &function) {
        const std::string begin = "net_lib\\[[0-9]+\\]- " + function + ": " + function;
        return ElementsAre(MatchesRegex(begin + " - entered \n"), MatchesRegex(begin + " - left \n"));
    };
    for (int failing = 0; failing < 5; failing++) {
        SCOPED_TRACE(failing);
        platform::recorded() = {};
        platform::fail() = {failing == 1 ? EIO : 0,
                            failing == 2 ? EIO : 0,
                            failing == 3 ? EIO : 0,
                            failing == 4 ? EIO : 0,
                            0,
                            0};
        EXPECT_EQ(failing == 0 ? 0u : 102u, __init_ybd_handle());
        EXPECT_THAT(platform::recorded().texts(31), both_lines_of("__init_ybd_handle"));
    }
    for (const int reason : {0, EIO}) {
        platform::recorded() = {};
        platform::fail() = {0, 0, 0, 0, 0, reason};
        (void)__deinit_ybd_handle();
        EXPECT_THAT(platform::recorded().texts(31), both_lines_of("__deinit_ybd_handle"));
    }
}

} // namespace
