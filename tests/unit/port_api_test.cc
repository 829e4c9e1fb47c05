// SPDX-License-Identifier: Apache-2.0
//
// The exported port functions as gates: commands, NULL pointers, what they log
// and pass on, their trace lines; and the L2 address of a packet, with no
// database at all.
#include <functional>

#include "tests/unit/long_descriptor_caller.h"
#include "tests/unit/ports_fixture.h"
#include "ybnet/net_lib.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class port_api : public ports_test {};

// ---- yb_net_port_set --------------------------------------------------------

TEST_F(port_api, port_set_records_and_removes) {
    const yb_net_port_info_t info = with_log_port(port_of(3));
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_port_set(YB_ACCESS_CMD_SET, 5, &info));
    EXPECT_EQ(5u, bucket(5).sys_ifindex);
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_port_set(YB_ACCESS_CMD_DESTROY, 5, nullptr));
    EXPECT_EQ(1, bucket(5).deleted);
    EXPECT_THAT(take_lines(), IsEmpty());
}

TEST_F(port_api, port_set_does_not_look_at_the_record_of_a_port_to_remove) {
    EXPECT_EQ(YB_STATUS_SUCCESS,
              yb_net_port_set(YB_ACCESS_CMD_DESTROY, 5, reinterpret_cast<const yb_net_port_info_t *>(1)));
}

TEST_F(port_api, port_set_refuses_a_null_record) {
    EXPECT_EQ(YB_STATUS_PARAM_NULL, yb_net_port_set(YB_ACCESS_CMD_SET, 0, nullptr));
    EXPECT_THAT(take_lines(), ElementsAre(error_line("yb_net_port_set: port_params is NULL\n")));
}

TEST_F(port_api, port_set_takes_two_commands) {
    const yb_net_port_info_t info = with_log_port(port_of(3));
    for (uint32_t cmd = 0; cmd < 20; cmd++) {
        if (cmd == YB_ACCESS_CMD_SET || cmd == YB_ACCESS_CMD_DESTROY)
            continue;
        EXPECT_EQ(YB_STATUS_CMD_UNSUPPORTED, yb_net_port_set(cmd, 5, &info)) << cmd;
        EXPECT_THAT(take_lines(), ElementsAre(error_line("yb_net_port_set: unsupported command\n")));
    }
    EXPECT_EQ(0u, bucket(5).sys_ifindex);
}

TEST_F(port_api, port_set_passes_the_databases_status_on_without_a_line_of_its_own) {
    const yb_net_port_info_t info = with_log_port(lag_of(3), 1001);
    EXPECT_EQ(YB_STATUS_PARAM_EXCEEDS_RANGE, yb_net_port_set(YB_ACCESS_CMD_SET, 5, &info));
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, yb_net_port_set(YB_ACCESS_CMD_DESTROY, 0, &info));
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, yb_net_port_set(YB_ACCESS_CMD_DESTROY, unreachable_key(), &info));
    EXPECT_EQ(4u, take_lines().size());
}

// ---- The queries ------------------------------------------------------------

TEST_F(port_api, queries_refuse_null_pointers) {
    EXPECT_EQ(YB_STATUS_PARAM_NULL, yb_net_port_get(0, nullptr));
    EXPECT_EQ(YB_STATUS_PARAM_NULL, yb_net_log_port_get(0, nullptr));
    EXPECT_EQ(YB_STATUS_PARAM_NULL, yb_net_lag_get(0, nullptr));
    EXPECT_EQ(YB_STATUS_PARAM_NULL, yb_net_mlag_get(0, nullptr));
    EXPECT_EQ(YB_STATUS_ERROR, yb_net_ports_get_all(9, nullptr, nullptr));
    EXPECT_THAT(take_lines(), ElementsAre(error_line("yb_net_port_get: port_params is NULL\n"),
                                          error_line("yb_net_log_port_get: sys_ifindex is NULL\n"),
                                          error_line("yb_net_lag_get: lag_id is NULL\n"),
                                          error_line("yb_net_mlag_get: mlag_id is NULL\n"),
                                          error_line("yb_net_ports_get_all: size parameter is NULL\n")));
}

TEST_F(port_api, queries_read_what_was_recorded) {
    yb_net_port_info_t info = with_log_port(lag_of(3), 7);
    info.protocol = 2;
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_port_set(YB_ACCESS_CMD_SET, 5, &info));
    yb_net_port_info_t out = {};
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_port_get(5, &out));
    EXPECT_EQ(info, out);
    uint32_t word = 0;
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_log_port_get(lag_of(3), &word));
    EXPECT_EQ(5u, word);
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_lag_get(7, &word));
    EXPECT_EQ(lag_of(3), word);
    uint16_t half = 0;
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_mlag_get(lag_of(3), &half));
    EXPECT_EQ(7, half);
    out = {};
    word = 1;
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_ports_get_all(2, &out, &word));
    EXPECT_EQ(1u, word);
    EXPECT_EQ(info, out);
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_ports_get_all(1, nullptr, &word));
    EXPECT_EQ(0u, word);
}

TEST_F(port_api, queries_pass_the_databases_status_on) {
    yb_net_port_info_t out = {};
    uint32_t word = 0xEE;
    uint16_t half = 0xEE;
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, yb_net_port_get(0, &out));
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, yb_net_log_port_get(0, &word));
    EXPECT_EQ(YB_STATUS_PARAM_EXCEEDS_RANGE, yb_net_lag_get(1001, &word));
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, yb_net_mlag_get(port_of(3), &half));
    EXPECT_EQ(4u, take_lines().size());
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, yb_net_log_port_get(lag_of(3), &word));
    EXPECT_EQ(0u, word);
}

TEST_F(port_api, lag_get_looks_at_the_low_16_bits_of_the_mlag_id) {
    const yb_net_port_info_t info = with_log_port(lag_of(3), 7);
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_port_set(YB_ACCESS_CMD_SET, 5, &info));
    uint32_t word = 0;
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_lag_get(0xABCD0007, &word));
    EXPECT_EQ(lag_of(3), word);
    (void)take_lines();
    EXPECT_EQ(YB_STATUS_PARAM_EXCEEDS_RANGE, yb_net_lag_get(0x00010000, &word));
    EXPECT_THAT(take_lines(),
                ElementsAre(error_line("Netlib ports DB - mlag_id 0 is out of range (1-1000)\n")));
}

TEST_F(port_api, ports_get_all_adds_a_line_to_the_databases) {
    uint32_t size = 0;
    EXPECT_EQ(YB_STATUS_PARAM_EXCEEDS_RANGE, yb_net_ports_get_all(3, nullptr, &size));
    EXPECT_THAT(take_lines(),
                ElementsAre(error_line("Netlib ports DB - invalid protocol 3 given"),
                            error_line("yb_net_ports_get_all: error 14 returned from netlib DB")));
}

// ---- yb_net_port_lag_set ----------------------------------------------------

TEST_F(port_api, port_lag_set_binds_and_unbinds) {
    put(5, 5, 5);
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_port_lag_set(YB_ACCESS_CMD_SET, 5, lag_of(3)));
    EXPECT_EQ(lag_of(3), bucket(5).info.lag_log_port);
    // The logical port is not looked at when unbinding.
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_port_lag_set(YB_ACCESS_CMD_UNSET, 5, port_of(3)));
    EXPECT_EQ(0u, bucket(5).info.lag_log_port);
    EXPECT_THAT(take_lines(), IsEmpty());
}

TEST_F(port_api, port_lag_set_takes_two_commands_and_names_others) {
    for (uint32_t cmd = 0; cmd < 20; cmd++) {
        if (cmd == YB_ACCESS_CMD_SET || cmd == YB_ACCESS_CMD_UNSET)
            continue;
        EXPECT_EQ(YB_STATUS_CMD_INVALID, yb_net_port_lag_set(cmd, 5, lag_of(3)));
        EXPECT_THAT(take_lines(), ElementsAre(error_line("yb_net_port_lag_set: received invalid command " +
                                                         std::to_string(cmd))));
    }
    EXPECT_EQ(0u, bucket(5).info.lag_log_port);
}

TEST_F(port_api, port_lag_set_names_a_command_as_a_signed_number) {
    EXPECT_EQ(YB_STATUS_CMD_INVALID, yb_net_port_lag_set(0xFFFFFFFF, 5, lag_of(3)));
    EXPECT_THAT(take_lines(), ElementsAre(error_line("yb_net_port_lag_set: received invalid command -1")));
}

TEST_F(port_api, port_lag_set_adds_a_line_to_the_databases) {
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, yb_net_port_lag_set(YB_ACCESS_CMD_SET, 5, port_of(3)));
    EXPECT_THAT(take_lines(),
                ElementsAre(error_line("Netlib ports DB - log port 0x300 is not a LAG port\n"),
                            error_line("yb_net_port_lag_set: error 13 returned from netlib DB")));
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, yb_net_port_lag_set(YB_ACCESS_CMD_UNSET, unreachable_key(), 0));
    EXPECT_THAT(take_lines(), Contains(error_line("yb_net_port_lag_set: error 21 returned from netlib DB")));
}

// ---- Frame ------------------------------------------------------------------

TEST_F(port_api, needs_a_loaded_database) {
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_ports_unload(0));
    yb_net_port_info_t info = {};
    uint32_t word = 0;
    uint16_t half = 0;
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, yb_net_port_set(YB_ACCESS_CMD_SET, 5, &info));
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, yb_net_port_set(YB_ACCESS_CMD_DESTROY, 5, &info));
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, yb_net_port_get(5, &info));
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, yb_net_ports_get_all(0, nullptr, &word));
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, yb_net_port_lag_set(YB_ACCESS_CMD_SET, 5, 0));
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, yb_net_log_port_get(1, &word));
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, yb_net_lag_get(1, &word));
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, yb_net_mlag_get(lag_of(1), &half));
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_ports_load(0));
}

TEST_F(port_api, writes_entered_and_left_lines_when_the_logging_library_asks_for_them) {
    uint32_t debug = 5;
    uint32_t default_level = YB_VERBOSITY_DEFAULT;
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_log_verbosity_level(YB_ACCESS_CMD_SET, &debug));
    g_yb_log_module_func_enable = 1;
    yb_net_port_info_t info = {};
    yb_net_l2_address_t address;
    uint32_t word = 0;
    uint16_t half = 0;
    const std::pair<std::string, std::function<void()>> functions[] = {
        {"yb_net_port_set", [&] { (void)yb_net_port_set(YB_ACCESS_CMD_SET, 5, &info); }},
        {"yb_net_port_set", [&] { (void)yb_net_port_set(0, 5, &info); }},
        {"yb_net_port_get", [&] { (void)yb_net_port_get(5, nullptr); }},
        {"yb_net_ports_get_all", [&] { (void)yb_net_ports_get_all(0, nullptr, &word); }},
        {"yb_net_port_lag_set", [&] { (void)yb_net_port_lag_set(0, 5, 0); }},
        {"yb_net_log_port_get", [&] { (void)yb_net_log_port_get(port_of(9), &word); }},
        {"yb_net_lag_get", [&] { (void)yb_net_lag_get(1, &word); }},
        {"yb_net_mlag_get", [&] { (void)yb_net_mlag_get(lag_of(1), &half); }},
        {"yb_net_resolve_l2_attribute", [&] { (void)yb_net_resolve_l2_attribute(&address, {}); }},
        {"yb_net_resolve_l2_attribute", [&] { (void)yb_net_resolve_l2_attribute(nullptr, {}); }}};
    for (const auto &[name, call] : functions) {
        SCOPED_TRACE(name);
        platform::recorded() = {};
        call();
        const auto lines = platform::recorded().texts(31);
        ASSERT_EQ(2u, lines.size());
        EXPECT_THAT(lines[0],
                    testing::MatchesRegex("net_lib\\[[0-9]+\\]- " + name + ": " + name + " - entered \n"));
        EXPECT_THAT(lines[1],
                    testing::MatchesRegex("net_lib\\[[0-9]+\\]- " + name + ": " + name + " - left \n"));
    }
    g_yb_log_module_func_enable = 0;
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_log_verbosity_level(YB_ACCESS_CMD_SET, &default_level));
}

TEST_F(port_api, names_the_reporting_function_in_the_trace_buffer) {
    uint32_t size = 0;
    (void)yb_net_ports_get_all(3, nullptr, &size);
    ASSERT_EQ(2u, platform::recorded().trace.size());
    EXPECT_THAT(
        platform::recorded().trace[0],
        testing::MatchesRegex("\\[ERROR  \\] \\[YB_NET_LIB\\] - net_lib_db_ports_get_all\\[[0-9]+\\]: "
                              "Netlib ports DB - invalid protocol 3 given"));
    EXPECT_THAT(platform::recorded().trace[1],
                testing::MatchesRegex("\\[ERROR  \\] \\[YB_NET_LIB\\] - yb_net_ports_get_all\\[[0-9]+\\]: "
                                      "yb_net_ports_get_all: error 14 returned from netlib DB"));
}

// ---- yb_net_resolve_l2_attribute --------------------------------------------

yb_net_packet_descriptor_t counting_descriptor() {
    yb_net_packet_descriptor_t descriptor;
    for (uint8_t i = 0; i < sizeof(descriptor.bytes); i++)
        descriptor.bytes[i] = static_cast<uint8_t>(0xA0 + i);
    descriptor.bytes[4] = 0;
    descriptor.bytes[5] = 0;
    return descriptor;
}

TEST_F(port_api, resolve_l2_attribute_reads_address_and_parameter) {
    yb_net_l2_address_t out;
    memset(&out, 0xEE, sizeof(out));
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_resolve_l2_attribute(&out, counting_descriptor()));
    EXPECT_EQ(0u, out.l2_type);
    EXPECT_THAT(out.l2_addr, ElementsAre(0xAE, 0xAF, 0xB0, 0xB1, 0xB2, 0xB3));
    EXPECT_EQ(0xACAD, out.l2_param);
    EXPECT_THAT(take_lines(), IsEmpty());
}

TEST_F(port_api, resolve_l2_attribute_knows_format_0_alone) {
    yb_net_l2_address_t out;
    memset(&out, 0xEE, sizeof(out));
    const yb_net_l2_address_t before = out;
    yb_net_packet_descriptor_t descriptor = counting_descriptor();
    descriptor.bytes[4] = 1;
    EXPECT_EQ(YB_STATUS_ERROR, yb_net_resolve_l2_attribute(&out, descriptor));
    descriptor.bytes[4] = 0;
    descriptor.bytes[5] = 0xAB;
    EXPECT_EQ(YB_STATUS_ERROR, yb_net_resolve_l2_attribute(&out, descriptor));
    EXPECT_EQ(0, memcmp(&before, &out, sizeof(out)));
    EXPECT_THAT(take_lines(),
                ElementsAre(error_line("yb_net_resolve_l2_attribute: unknown packet format. id:0x100 \n"),
                            error_line("yb_net_resolve_l2_attribute: unknown packet format. id:0xab \n")));
}

TEST_F(port_api, resolve_l2_attribute_refuses_a_null_output_first) {
    yb_net_packet_descriptor_t descriptor = {};
    descriptor.bytes[4] = 1;
    EXPECT_EQ(YB_STATUS_PARAM_NULL, yb_net_resolve_l2_attribute(nullptr, descriptor));
    EXPECT_THAT(take_lines(), ElementsAre(error_line("yb_net_resolve_l2_attribute: l2_address is NULL\n")));
}

TEST_F(port_api, resolve_l2_attribute_reads_the_head_of_a_longer_descriptor) {
    yb_net_l2_address_t out = {};
    EXPECT_EQ(YB_STATUS_SUCCESS, resolve_with_whole_descriptor(&out, counting_descriptor()));
    EXPECT_THAT(out.l2_addr, ElementsAre(0xAE, 0xAF, 0xB0, 0xB1, 0xB2, 0xB3));
    EXPECT_EQ(0xACAD, out.l2_param);
}

} // namespace
