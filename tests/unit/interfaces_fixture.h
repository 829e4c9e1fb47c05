// SPDX-License-Identifier: Apache-2.0
//
// What the tests of the interface records share: a freshly loaded database, its
// file in the open, parameter blocks, and what was logged under which lock.
#ifndef YBNET_TESTS_INTERFACES_FIXTURE_H
#define YBNET_TESTS_INTERFACES_FIXTURE_H

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/recording_platform.h"
#include "tests/support/segment_file.h"
#include "tests/support/system_calls.h"
#include "ybnet/net_lib_db.h"

constexpr uint32_t severity_error = 1;
constexpr uint32_t severity_info = 15;
constexpr uint32_t severity_debug = 31;

// One line that was logged, and whether the segment's lock was held then.
struct said {
    uint32_t severity;
    std::string text;
    bool locked;

    bool operator==(const said &other) const {
        return severity == other.severity && text == other.text && locked == other.locked;
    }
    friend void PrintTo(const said &line, std::ostream *out) {
        *out << line.severity << (line.locked ? " locked \"" : " unlocked \"") << line.text << '"';
    }
};

// A parameter block; a name that fills its field has no NUL.
inline yb_net_interface_params_t block(const std::string &ns = "", const std::string &vrf = "",
                                       uint32_t vrf_valid = 0) {
    yb_net_interface_params_t params = {};
    memcpy(params.ns_name, ns.data(), std::min(ns.size(), sizeof(params.ns_name)));
    memcpy(params.vrf_name, vrf.data(), std::min(vrf.size(), sizeof(params.vrf_name)));
    params.vrf_valid = vrf_valid;
    return params;
}

inline yb_net_interface_params_t block_filled_with(uint8_t first) {
    yb_net_interface_params_t params;
    auto *const bytes = reinterpret_cast<uint8_t *>(&params);
    for (size_t i = 0; i < sizeof(params); i++)
        bytes[i] = static_cast<uint8_t>(first + i);
    return params;
}

class interfaces_test : public testing::Test {
  protected:
    void SetUp() override {
        platform::reset();
        calls::reset();
        segment_remove(interfaces_format);
        uint32_t verbosity = 4;
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_log_verbosity_level(YB_ACCESS_CMD_SET, &verbosity));
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_load(0));
        view_ = std::make_unique<segment_view>(interfaces_format);
        watched() = view_.get();
        lines().clear();
        platform::on_log() = [](const platform::log_line &line) {
            EXPECT_EQ("YB_NET_LIB", line.module);
            lines().push_back({line.severity, line.text, watched()->locked()});
        };
        calls::reset();
    }
    void TearDown() override {
        EXPECT_FALSE(view_->locked()) << "an operation kept the lock";
        calls::reset();
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_unload(0));
        platform::reset();
    }

    segment_view &view() {
        return *view_;
    }
    static constexpr size_t record_at(size_t db_index) {
        return db_index * 116;
    }
    std::vector<uint8_t> record_bytes(size_t db_index) {
        return view_->bytes(record_at(db_index), record_at(db_index + 1));
    }
    std::vector<uint8_t> all_records() {
        return view_->bytes(0, interfaces_format.lock);
    }
    // What was logged so far; forgotten by it.
    static std::vector<said> take_lines() {
        return std::exchange(lines(), {});
    }
    static said error(const std::string &text, bool locked = false) {
        return {severity_error, text, locked};
    }
    static said not_found(int sys_ifindex) {
        return error("Interface with system ifindex " + std::to_string(sys_ifindex) +
                     " does not exist in the Net-lib Interfaces DB\n");
    }

    static void add(uint32_t sys_ifindex, uint32_t linux_ifindex,
                    const yb_net_interface_params_t &params = block()) {
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_add(sys_ifindex, linux_ifindex, &params));
    }
    static yb_status_t try_add(uint32_t sys_ifindex, uint32_t linux_ifindex,
                               const yb_net_interface_params_t &params = block()) {
        return net_lib_db_interface_add(sys_ifindex, linux_ifindex, &params);
    }
    static yb_net_interface_record_t get(uint32_t sys_ifindex) {
        yb_net_interface_record_t out;
        memset(&out, 0xEE, sizeof(out));
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_get(sys_ifindex, &out));
        return out;
    }
    static yb_status_t status_of_get(uint32_t sys_ifindex) {
        yb_net_interface_record_t out;
        return net_lib_db_interface_get(sys_ifindex, &out);
    }

  private:
    static std::vector<said> &lines() {
        static std::vector<said> all;
        return all;
    }
    static segment_view *&watched() {
        static segment_view *one;
        return one;
    }
    std::unique_ptr<segment_view> view_;
};

#endif
