// SPDX-License-Identifier: Apache-2.0
//
// The kit's platform, shared memory and driver file.
#include "tests/testkit/kit_fixture.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include "ybnet/platform/yb_util.h"

using kit_platform = kit_test;

TEST_F(kit_platform, records_calls_and_controls) {
    std::vector<std::string> calls;
    for (size_t i = 0; i < ybtk_call_count(); i++)
        calls.emplace_back(ybtk_call_get(i));
    EXPECT_THAT(calls, testing::ElementsAre("yb_log_init", "ybd_get_dev_list", "ybd_open_device recorded0",
                                            "ybd_ioctl", "ybd_ioctl", "yb_log_init"));
    EXPECT_EQ(nullptr, ybtk_call_get(calls.size()));
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_vid2ip_set(-1, 2, 3));
    ASSERT_EQ(3u, ybtk_control_count());
    ybtk_control_t control = {};
    ASSERT_EQ(0, ybtk_control_get(2, &control));
    EXPECT_EQ(YBD_CTRL_CMD_VID2IP_SET, control.record.ctrl_cmd);
    EXPECT_THAT(control.words, testing::ElementsAre(-1, 2, 3));
    EXPECT_EQ(-1, ybtk_control_get(3, &control));
}

TEST_F(kit_platform, every_driver_function_fails_on_demand) {
    ASSERT_EQ(0, ybtk_platform_fail(YBTK_YBD_IOCTL_VID2IP, EIO));
    EXPECT_EQ(YB_STATUS_DEVICE_ERROR, yb_net_vid2ip_set(1, 2, 3));
    ASSERT_EQ(0, ybtk_platform_fail(YBTK_YBD_IOCTL_VID2IP, 0));
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_vid2ip_set(1, 2, 3));
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_deinit());
    for (const auto function : {YBTK_YBD_GET_DEV_LIST, YBTK_YBD_OPEN_DEVICE, YBTK_YBD_IOCTL_MULTI_PACKET,
                                YBTK_YBD_IOCTL_BLOCKING}) {
        ASSERT_EQ(0, ybtk_platform_fail(function, ENODEV));
        EXPECT_EQ(YB_STATUS_DEVICE_ERROR, yb_net_init(nullptr, 3, 0)) << function;
        (void)yb_net_deinit();
        ASSERT_EQ(0, ybtk_platform_fail(function, 0));
    }
    ASSERT_EQ(0, ybtk_platform_fail(YBTK_YBD_CLOSE_DEVICE, EBUSY));
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_init(nullptr, 3, 0));
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_deinit());
    EXPECT_EQ(1u, ybtk_log_matches(1, "ybd_close_device error: Device or resource busy\n"));
    EXPECT_EQ(-1, ybtk_platform_fail(YBTK_YBD_CLOSE_DEVICE, -1));
    ASSERT_EQ(0, ybtk_platform_fail(YBTK_YBD_CLOSE_DEVICE, 0));
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_init(nullptr, 3, 0));
}

TEST_F(kit_platform, log_lines_are_kept_and_shared) {
    yb_log(7, "tests", "a %s\n", "line");
    EXPECT_EQ(1u, ybtk_log_matches(7, "a line\n"));
    EXPECT_EQ(1u, ybtk_log_matches(0, "a line\n"));
    EXPECT_EQ(0u, ybtk_log_matches(3, "a line\n"));
    ybtk_log_line_t line = {};
    ASSERT_EQ(0, ybtk_log_get(ybtk_log_count() - 1, &line));
    EXPECT_STREQ("tests", line.module);
    EXPECT_STREQ("a %s\n", line.format);
    EXPECT_STREQ("a line\n", line.text);
    EXPECT_EQ(-1, ybtk_log_get(ybtk_log_count(), &line));
    EXPECT_EQ(0, ybtk_wait_for_log("a line\n", 0));
    EXPECT_EQ(-1, ybtk_wait_for_log("another line", 3));
    EXPECT_EQ(ETIMEDOUT, errno);
    yb_trace_cbuff_log("t%d", 1);
    EXPECT_STREQ("t1", ybtk_trace_get(ybtk_trace_count() - 1));
}

TEST_F(kit_platform, log_hook_sees_the_line_first) {
    size_t seen = 0;
    ybtk_log_hook(
        [](const ybtk_log_line_t *line, void *data) {
            EXPECT_STREQ("x", line->text);
            EXPECT_EQ(0u, ybtk_log_matches(0, "x"));
            ++*static_cast<size_t *>(data);
        },
        &seen);
    yb_log(7, "tests", "x");
    ybtk_log_hook(nullptr, nullptr);
    yb_log(7, "tests", "x");
    EXPECT_EQ(1u, seen);
}

TEST_F(kit_platform, driver_file_records_commands_and_can_be_absent) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1001, vlan(5)));
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_interface_oper_state_set(1001, YB_NET_IF_STATE_UP));
    char text[64];
    EXPECT_EQ(23u, ybtk_driver_file_text(text, sizeof(text)));
    EXPECT_STREQ("oper_dev swid0_eth.5 up", text);
    ASSERT_EQ(0, ybtk_driver_file_present(0));
    EXPECT_EQ(YB_STATUS_ERROR, yb_net_interface_oper_state_set(1001, YB_NET_IF_STATE_UP));
    ASSERT_EQ(0, ybtk_driver_file_present(1));
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_oper_state_set(1001, YB_NET_IF_STATE_UP));
}

TEST_F(kit_platform, carrier_is_read_where_sysfs_has_it_of_a_netdev_that_is_up) {
    const auto carrier = []() {
        FILE *const file = fopen("/sys/class/net/swid0_eth/carrier", "r");
        const int first = file == nullptr ? 'x' : fgetc(file);
        if (file != nullptr)
            (void)fclose(file);
        return first;
    };
    EXPECT_EQ(EOF, carrier());
    ASSERT_EQ(0, ybtk_netdev_set_up(nullptr, "swid0_eth", 1));
    EXPECT_EQ('1', carrier());
    ASSERT_EQ(0, ybtk_netdev_set_carrier(nullptr, "swid0_eth", 0));
    EXPECT_EQ('0', carrier());
    EXPECT_EQ(nullptr, fopen("/sys/class/net/nobody/carrier", "r"));
}

TEST_F(kit_platform, crc_can_be_another) {
    uint32_t work_area[YB_CRC_WORK_AREA_SIZE / 4] = {};
    const auto *const data = reinterpret_cast<const uint8_t *>("123456789");
    EXPECT_EQ(0x31C3, crc_16(work_area, data, 9, 0x1021));
    ybtk_crc_set([](void *, const uint8_t *, uint32_t, uint16_t) -> uint16_t { return 7; });
    EXPECT_EQ(7, crc_16(work_area, data, 9, 0x1021));
    ybtk_crc_set(nullptr);
}

TEST_F(kit_platform, segments_lie_in_the_tests_directory) {
    struct stat status = {};
    const std::string inside = std::string(ybtk_directory()) + "/shm/net_lib_ifc";
    ASSERT_EQ(0, stat(inside.c_str(), &status));
    EXPECT_EQ(475216, status.st_size);
    EXPECT_EQ(-1, shm_open("/nobody", O_RDWR, 0));
    EXPECT_EQ(-1, shm_open("/a/b", O_RDWR | O_CREAT, 0600));
    EXPECT_EQ(EINVAL, errno);
}
