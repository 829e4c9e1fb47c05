// SPDX-License-Identifier: Apache-2.0
//
// What the tests of the ports database share: a freshly loaded segment, its
// contents in the open, keys with homes of the test's choosing, and a look at
// the lock.
#ifndef YBNET_TESTS_PORTS_FIXTURE_H
#define YBNET_TESTS_PORTS_FIXTURE_H

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <pthread.h>
#include <string>
#include <utility>
#include <vector>

#include "net_lib_db/ports_segment.h"
#include "tests/support/recording_platform.h"
#include "tests/support/system_calls.h"
#include "ybnet/net_lib_db.h"
#include "ybnet/net_lib_db_layout.h"

constexpr uint32_t severity_error = 1;
constexpr uint32_t severity_notice = 7;
constexpr uint32_t severity_info = 15;

// Logical ports.
constexpr uint32_t port_of(uint32_t port_index) {
    return port_index << 8;
}
constexpr uint32_t lag_of(uint32_t lag_index) {
    return 0x10000000u | lag_index << 8;
}

inline bool operator==(const yb_net_port_info_t &left, const yb_net_port_info_t &right) {
    return memcmp(&left, &right, sizeof(left)) == 0; // there is no padding
}

inline yb_net_port_info_t filled_with(uint8_t byte) {
    yb_net_port_info_t info;
    memset(&info, byte, sizeof(info));
    return info;
}

inline yb_net_port_info_t with_log_port(uint32_t log_port, uint16_t mlag_id = 0) {
    yb_net_port_info_t info = {};
    info.attr_b = YB_NET_PORT_ATTR_B_NONE;
    info.log_port = log_port;
    info.mlag_id = mlag_id;
    return info;
}

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

inline said error_line(const std::string &text, bool locked = false) {
    return {severity_error, text, locked};
}

class ports_test : public testing::Test {
  protected:
    void SetUp() override {
        platform::reset();
        calls::reset();
        homes().clear();
        lines().clear();
        platform::crc_override() = home_of_key;
        platform::on_log() = keep_line;
        uint32_t verbosity = 4;
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_log_verbosity_level(YB_ACCESS_CMD_SET, &verbosity));
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_ports_load(0));
        calls::reset();
    }

    void TearDown() override {
        EXPECT_FALSE(locked()) << "an operation kept the lock";
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_ports_unload(0));
    }

    // Homes of keys; without one, a key's low 16 bits.
    static std::map<uint32_t, uint16_t> &homes() {
        static std::map<uint32_t, uint16_t> all;
        return all;
    }

    // What was logged so far; forgotten by it.
    static std::vector<said> take_lines() {
        return std::exchange(lines(), {});
    }

    static net_lib_db_ports_segment_t &segment_body() {
        return *static_cast<net_lib_db_ports_segment_t *>(ports_segment.body);
    }
    static net_lib_port_entry_t &bucket(uint16_t index) {
        return segment_body().port_table[index];
    }
    static void put(uint16_t index, uint32_t key, uint32_t hash, uint8_t deleted = 0) {
        bucket(index) = {};
        bucket(index).sys_ifindex = key;
        bucket(index).hash = hash;
        bucket(index).deleted = deleted;
        bucket(index).info.attr_i = key; // so that a record is seen to move with its key
    }

    // Every bucket but 0 at its home, bucket 0 displaced from the last.
    static void fill_table() {
        for (uint32_t i = 1; i <= 65535; i++)
            put(static_cast<uint16_t>(i), i, i);
        put(0, 65536, 65535);
    }

    // All bytes of the segment but its trailer.
    static std::vector<uint8_t> snapshot() {
        const auto *const bytes = static_cast<const uint8_t *>(ports_segment.body);
        return {bytes, bytes + offsetof(net_lib_db_ports_segment_t, trailer)};
    }

    static bool locked() {
        if (ports_segment.body == nullptr)
            return false;
        const auto *const lock =
            reinterpret_cast<const pthread_rwlock_t *>(segment_body().trailer.plock.rwlock);
        return (lock->__data.__readers & 2) != 0; // looked at, not tried: releases are counted
    }

    // ---- Operations that are expected to succeed ----

    static yb_net_port_info_t get(uint32_t key) {
        yb_net_port_info_t out = filled_with(0xEE);
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_get(key, &out));
        return out;
    }
    static void set(uint32_t key, const yb_net_port_info_t &info) {
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_set(key, &info));
    }
    static uint32_t ifindex_of(uint32_t log_port) {
        uint32_t out = 0xEEEEEEEE;
        (void)net_lib_db_log_port_get(log_port, &out);
        return out;
    }
    // A key whose search meets a nearer resident: it is found nowhere.
    static uint32_t unreachable_key() {
        homes()[0x7B] = 10;
        put(10, 1, 10);
        put(11, 2, 11);
        return 0x7B;
    }
    static std::vector<said> lines_of_unreachable_key() {
        return {error_line("Netlib ports DB - port with sys_ifindex 0x7b cannot be found in the DB\n", true),
                error_line("Netlib ports DB - cannot get hash table entry by sys_ifindex 123\n", true)};
    }

    static int flushes() {
        return calls::count("msync");
    }

  private:
    static std::vector<said> &lines() {
        static std::vector<said> all;
        return all;
    }
    static void keep_line(const platform::log_line &line) {
        EXPECT_EQ("YB_NET_LIB", line.module);
        lines().push_back({line.severity, line.text, locked()});
    }
    static uint16_t home_of_key(void *, const uint8_t *data, uint32_t length, uint16_t parameter) {
        uint32_t key = 0;
        EXPECT_EQ(sizeof(key), length);
        EXPECT_EQ(0x8D95, parameter);
        memcpy(&key, data, sizeof(key));
        const auto found = homes().find(key);
        return found == homes().end() ? static_cast<uint16_t>(key) : found->second;
    }
};

#endif
