// SPDX-License-Identifier: Apache-2.0
//
// Several processes on one ports database, through libybnet.so: what one
// records the others read, nothing is lost, and no record is seen half-written.
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <iterator>
#include <list>
#include <random>

#include "tests/support/processes.h"
#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db.h"
#include "ybnet/platform/yb_util.h"

namespace {

constexpr uint32_t port_of(uint32_t port_index) {
    return port_index << 8;
}
constexpr uint32_t lag_of(uint32_t lag_index) {
    return 0x10000000u | lag_index << 8;
}

// Keys that lie all over the table and collide now and then; none with a CRC of 0, which is not kept like
// others.
std::vector<uint32_t> many_keys(size_t count) {
    std::mt19937 random(7);
    std::vector<uint32_t> keys;
    while (keys.size() < count) {
        const auto key = static_cast<uint32_t>(random());
        alignas(uint32_t) uint8_t work_area[YB_CRC_WORK_AREA_SIZE] = {};
        if (crc_16(work_area, reinterpret_cast<const uint8_t *>(&key), sizeof(key), 0x8D95) != 0)
            keys.push_back(key);
    }
    std::sort(keys.begin(), keys.end());
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
    std::shuffle(keys.begin(), keys.end(), random);
    return keys;
}

class ports_processes : public testing::Test {
  protected:
    ~ports_processes() override {
        if (loaded_)
            (void)yb_net_ports_deinit(0);
    }

    // Starts processes that load the database themselves and run body(number) once all are there; this one
    // loads it too.
    void start(int count, const std::function<int(int)> &body) {
        // Before this process has a mapping that they would inherit.
        ASSERT_FALSE(loaded_);
        for (int number = 0; number < count; number++) {
            children_.emplace_back([this, number, &body] {
                if (yb_net_ports_init(nullptr, 1, 0) != YB_STATUS_SUCCESS)
                    return 90;
                ready_.add();
                if (!go_.wait_for(1))
                    return 91;
                const int status = body(number);
                done_.add();
                if (!unload_.wait_for(1))
                    return 92;
                return yb_net_ports_deinit(0) == YB_STATUS_SUCCESS ? status : 93;
            });
        }
        ASSERT_TRUE(ready_.wait_for(count));
        ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_ports_init(nullptr, 1, 0));
        loaded_ = true;
        go_.add();
    }

    void let_them_finish() {
        ASSERT_TRUE(done_.wait_for(static_cast<int>(children_.size())));
        unload_.add();
        for (child_process &child : children_)
            EXPECT_EQ(0, child.wait());
    }

    shared_counter ready_;
    shared_counter go_;
    shared_counter done_;
    shared_counter unload_;
    std::list<child_process> children_;
    bool loaded_ = false;
};

TEST_F(ports_processes, read_what_another_recorded) {
    start(1, [](int) {
        for (uint32_t i = 1; i <= 64; i++) {
            yb_net_port_info_t info = {};
            info.log_port = port_of(i);
            info.protocol = 1 + i % 2;
            (void)snprintf(info.name, sizeof(info.name), "port%u", i);
            if (yb_net_port_set(YB_ACCESS_CMD_SET, 100 + i, &info) != YB_STATUS_SUCCESS)
                return 1;
        }
        for (uint32_t i = 0; i < 2; i++) {
            yb_net_port_info_t info = {};
            info.log_port = lag_of(i + 1);
            info.mlag_id = i == 1 ? 500 : 0;
            if (yb_net_port_set(YB_ACCESS_CMD_SET, 900 + i, &info) != YB_STATUS_SUCCESS)
                return 2;
        }
        return yb_net_port_lag_set(YB_ACCESS_CMD_SET, 101, lag_of(2)) == YB_STATUS_SUCCESS ? 0 : 3;
    });
    let_them_finish(); // it unloads, this process does not

    uint32_t word = 0;
    uint16_t half = 0;
    for (uint32_t i = 1; i <= 64; i++) {
        yb_net_port_info_t info;
        ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_port_get(100 + i, &info));
        EXPECT_EQ(port_of(i), info.log_port);
        EXPECT_EQ("port" + std::to_string(i), info.name);
        EXPECT_EQ(i == 1 ? lag_of(2) : 0, info.lag_log_port);
        ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_log_port_get(port_of(i), &word));
        EXPECT_EQ(100 + i, word);
    }
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_ports_get_all(1, nullptr, &word));
    EXPECT_EQ(32u, word);
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_log_port_get(lag_of(1), &word));
    EXPECT_EQ(900u, word);
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_lag_get(500, &word));
    EXPECT_EQ(lag_of(2), word);
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_mlag_get(lag_of(2), &half));
    EXPECT_EQ(500, half);
}

TEST_F(ports_processes, lose_nothing_on_disjoint_ports) {
    constexpr int writers = 4;
    const std::vector<uint32_t> keys = many_keys(20000);
    start(writers, [&](int number) {
        // Each takes every fourth key, sets it, and removes every other one of its own again.
        for (size_t i = static_cast<size_t>(number); i < keys.size(); i += writers) {
            yb_net_port_info_t info = {};
            info.log_port = port_of(static_cast<uint32_t>(i + 1));
            info.attr_i = keys[i];
            if (yb_net_port_set(YB_ACCESS_CMD_SET, keys[i], &info) != YB_STATUS_SUCCESS)
                return 1;
            if (i / writers % 2 == 1 &&
                yb_net_port_set(YB_ACCESS_CMD_DESTROY, keys[i], nullptr) != YB_STATUS_SUCCESS)
                return 2;
        }
        return 0;
    });
    ASSERT_TRUE(done_.wait_for(writers));

    std::vector<yb_net_port_info_t> all(keys.size());
    auto count = static_cast<uint32_t>(all.size());
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_ports_get_all(0, all.data(), &count));
    std::vector<uint32_t> found;
    for (uint32_t i = 0; i < count; i++)
        found.push_back(all[i].attr_i);
    std::vector<uint32_t> expected;
    for (size_t i = 0; i < keys.size(); i++) {
        const bool kept = i / writers % 2 == 0;
        if (kept)
            expected.push_back(keys[i]);
        uint32_t ifindex = 0;
        EXPECT_EQ(kept ? YB_STATUS_SUCCESS : YB_STATUS_ENTRY_NOT_FOUND,
                  yb_net_log_port_get(port_of(static_cast<uint32_t>(i + 1)), &ifindex));
        EXPECT_EQ(kept ? keys[i] : 0, ifindex);
    }
    std::sort(found.begin(), found.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(expected, found);
    let_them_finish();
}

TEST_F(ports_processes, lose_no_field_that_each_merges_into_the_same_port) {
    constexpr uint32_t rounds = 20000;
    start(4, [](int number) {
        for (uint32_t round = 1; round <= rounds; round++) {
            yb_net_port_info_t info = {};
            info.attr_b = YB_NET_PORT_ATTR_B_NONE;
            info.attr_g[number] = round;
            yb_net_port_info_t out;
            if (yb_net_port_set(YB_ACCESS_CMD_SET, 5, &info) != YB_STATUS_SUCCESS ||
                yb_net_port_get(5, &out) != YB_STATUS_SUCCESS || out.attr_g[number] != round)
                return 1;
        }
        return 0;
    });
    let_them_finish();
    yb_net_port_info_t out;
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_port_get(5, &out));
    for (const uint32_t value : out.attr_g)
        EXPECT_EQ(rounds, value);
}

// Every byte that merging takes over is this byte, so that a mixture of two records shows; the others are 0
// in all records.
yb_net_port_info_t record_of(uint8_t byte) {
    yb_net_port_info_t info;
    memset(&info, byte, sizeof(info));
    memset(info.reserved1, 0, sizeof(info.reserved1));
    info.lag_log_port = 0;
    info.reserved2 = 0;
    info.mlag_id = 0;
    memset(info.reserved3, 0, sizeof(info.reserved3));
    memset(info.reserved4, 0, sizeof(info.reserved4));
    return info;
}

bool is_whole(const yb_net_port_info_t &info) {
    const yb_net_port_info_t expected = record_of(info.attr_a);
    return memcmp(&info, &expected, sizeof(info)) == 0;
}

// From 0x20, the logical ports are single ones; 0xFF in attr_b would be merged as "not given".
constexpr int first_byte = 0x20;
constexpr int bytes_used = 0xFF - first_byte;

TEST_F(ports_processes, never_read_a_torn_record) {
    constexpr int writers = 2;
    constexpr uint32_t shared_ports = 3;
    constexpr int rounds = 30000;
    constexpr int reads_wanted = 2000;
    shared_counter torn;
    shared_counter reads_of_records;
    shared_counter finished_writers;
    start(4, [&](int number) {
        if (number < writers) {
            // Longer, when the readers have hardly had the lock until then.
            for (int round = 0; round < rounds || reads_of_records.value() < reads_wanted; round++) {
                const uint32_t key = 1 + static_cast<uint32_t>(round) % shared_ports;
                const int byte = first_byte + (round * writers + number) % bytes_used;
                const yb_net_port_info_t info = record_of(static_cast<uint8_t>(byte));
                if (round < rounds && round % 16 == 0) // each removal leaves a tombstone for ever
                    (void)yb_net_port_set(YB_ACCESS_CMD_DESTROY, key, nullptr);
                if (yb_net_port_set(YB_ACCESS_CMD_SET, key, &info) != YB_STATUS_SUCCESS)
                    return 1;
            }
            finished_writers.add();
            return 0;
        }
        std::vector<yb_net_port_info_t> array(shared_ports + 1);
        while (finished_writers.value() < writers) {
            yb_net_port_info_t out = {};
            const uint32_t key = 1 + static_cast<uint32_t>(reads_of_records.value()) % shared_ports;
            if (number == writers) {
                (void)yb_net_port_get(key, &out);
                torn.add(is_whole(out) ? 0 : 1);
                reads_of_records.add(out.attr_a != 0 ? 1 : 0);
            } else {
                auto size = static_cast<uint32_t>(array.size());
                (void)yb_net_ports_get_all(0, array.data(), &size);
                for (uint32_t i = 0; i < size; i++)
                    torn.add(is_whole(array[i]) ? 0 : 1);
                if (size > shared_ports)
                    return 2;
            }
        }
        return 0;
    });
    let_them_finish();
    EXPECT_EQ(0, torn.value());
}

} // namespace
