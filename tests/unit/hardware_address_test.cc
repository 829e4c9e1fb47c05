// SPDX-License-Identifier: Apache-2.0
//
// The hardware-address check, and the setting that goes to the driver as three
// words.
#include "tests/unit/links_fixture.h"

#include <algorithm>
#include <cerrno>
#include <limits>

#include "net_lib/driver_handle.h"
#include "tests/support/tool_shims.h"

using testing::IsEmpty;

using hardware_address = links_fixture;

TEST_F(hardware_address, of_20_bytes_is_judged_by_its_first_12) {
    for (size_t i = 0; i < 20; i++) {
        const guarded_bytes one_set([i] {
            byte_vector bytes(20, 0);
            bytes[i] = 0x80;
            return bytes;
        }());
        EXPECT_EQ(yb_net_is_addr_eth(one_set.data(), 20), i < 12 ? 1 : 0) << i;
    }
}

TEST_F(hardware_address, of_20_bytes_that_starts_with_zeros_is_none) {
    byte_vector bytes(20, 0);
    std::fill(bytes.begin() + 12, bytes.end(), 0xFF);
    EXPECT_EQ(yb_net_is_addr_eth(bytes.data(), 20), 0);
}

TEST_F(hardware_address, of_20_bytes_is_summed_without_wrapping) {
    EXPECT_EQ(yb_net_is_addr_eth(byte_vector(20, 0xFF).data(), 20), 1);
    byte_vector wraps(20, 0); // sums up to 256
    wraps[0] = wraps[11] = 0x80;
    EXPECT_EQ(yb_net_is_addr_eth(wraps.data(), 20), 1);
}

TEST_F(hardware_address, of_6_bytes_is_none_and_not_looked_at) {
    stderr_capture captured;
    EXPECT_EQ(yb_net_is_addr_eth(nullptr, 6), 0);
    EXPECT_EQ(captured.text(), "");
}

TEST_F(hardware_address, of_another_length_is_one_and_said_on_standard_error) {
    stderr_capture captured;
    EXPECT_EQ(yb_net_is_addr_eth(nullptr, 7), 1);
    EXPECT_EQ(captured.text(), "Invalid address length 7 \n");
    for (const int32_t length : {0, 12, 19, 21, -6})
        EXPECT_EQ(yb_net_is_addr_eth(nullptr, length), 1);
    EXPECT_THAT(captured.text(), testing::EndsWith("length 21 \nInvalid address length -6 \n"));
}

TEST_F(hardware_address, is_never_logged_not_even_entered_and_left) {
    set_verbosity(5);
    g_yb_log_module_func_enable = 1;
    stderr_capture captured;
    (void)yb_net_is_addr_eth(nullptr, 6);
    (void)yb_net_is_addr_eth(nullptr, 7);
    EXPECT_THAT(log(), IsEmpty());
    EXPECT_THAT(platform::recorded().trace, IsEmpty());
}

using vid2ip = links_fixture;

TEST_F(vid2ip, hands_three_words_to_the_open_device) {
    const int32_t lowest = std::numeric_limits<int32_t>::min();
    ybd_handle = 9;
    EXPECT_EQ(yb_net_vid2ip_set(-1, 0xFFFFFFFF, lowest), uint32_t{YB_STATUS_SUCCESS});
    ASSERT_EQ(platform::recorded().controls.size(), 1u);
    const platform::control &control = platform::recorded().controls[0];
    EXPECT_EQ(control.handle, 9u);
    EXPECT_EQ(control.record.ctrl_cmd, 55u);
    EXPECT_EQ(control.record.reserved, 0u);
    EXPECT_EQ(control.words[0], -1);
    EXPECT_EQ(static_cast<uint32_t>(control.words[1]), 0xFFFFFFFFu);
    EXPECT_EQ(control.words[2], lowest);
    EXPECT_EQ(yb_net_vid2ip_set(1, 2, 3), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_THAT(platform::recorded().controls[1].words, testing::ElementsAre(1, 2, 3));
    ybd_handle = 0;
}

TEST_F(vid2ip, does_not_ask_whether_a_device_is_open) {
    ybd_handle = 0;
    EXPECT_EQ(yb_net_vid2ip_set(1, 2, 3), uint32_t{YB_STATUS_SUCCESS}); // the recording library takes it
    EXPECT_EQ(platform::recorded().controls[0].handle, 0u);
}

TEST_F(vid2ip, refusal_of_the_driver_is_a_device_error_and_silent) {
    platform::fail().ioctl_vid2ip = EBADF;
    EXPECT_EQ(yb_net_vid2ip_set(1, 2, 3), uint32_t{YB_STATUS_DEVICE_ERROR});
    EXPECT_THAT(log(), IsEmpty());
}

// The functions of this topic and their trace lines.
struct traced_call {
    const char *name;
    void (*call)();
};

class link_trace : public links_fixture, public testing::WithParamInterface<traced_call> {};

TEST_P(link_trace, entered_and_left_lines_stand_around_everything_else) {
    set_verbosity(5);
    g_yb_log_module_func_enable = 1;
    platform::recorded().log.clear();
    GetParam().call();
    ASSERT_GE(log().size(), 2u);
    const std::string name = GetParam().name;
    const std::string position = "net_lib\\[[0-9]+\\]- " + name + ": ";
    EXPECT_THAT(log().front().text, testing::MatchesRegex(position + name + " - entered \n"));
    EXPECT_THAT(log().back().text, testing::MatchesRegex(position + name + " - left \n"));
    EXPECT_EQ(log().front().severity, severity_debug);
}

// NULLs and an interface that does not exist: the first check refuses each.
INSTANTIATE_TEST_SUITE_P(
    functions, link_trace,
    testing::Values(
        traced_call{"yb_net_register_net_if_event_group",
                    [] { (void)yb_net_register_net_if_event_group(12, 0, nullptr); }},
        traced_call{"yb_net_if_event_receive", [] { (void)yb_net_if_event_receive(nullptr, nullptr); }},
        traced_call{"yb_net_get_fd", [] { (void)yb_net_get_fd(nullptr, nullptr); }},
        traced_call{"yb_net_set_buffer_size", [] { (void)yb_net_set_buffer_size(nullptr, 1, 1); }},
        traced_call{"yb_net_interface_state_set", [] { (void)yb_net_interface_state_set(1, 1); }},
        traced_call{"yb_net_interface_state_get", [] { (void)yb_net_interface_state_get(1, nullptr); }},
        traced_call{"yb_net_interface_oper_state_set", [] { (void)yb_net_interface_oper_state_set(1, 1); }},
        traced_call{"yb_net_virtual_net_if_alias_set",
                    [] { (void)yb_net_virtual_net_if_alias_set(1, 1, nullptr, nullptr, nullptr); }},
        traced_call{"yb_net_vid2ip_set", [] { (void)yb_net_vid2ip_set(1, 2, 3); }}),
    [](const auto &instance) { return std::string(instance.param.name); });
