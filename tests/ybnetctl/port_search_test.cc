// SPDX-License-Identifier: Apache-2.0
//
// The tool's own search of the port table against the library's: on tables that the
// library made, crowded, wrapped around the end, with removed ports and with keys
// whose CRC is 0, both must answer the same for every key.
#include <algorithm>
#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <unistd.h>

#include "tests/support/segment_file.h"
#include "tests/ybnetctl/database_user.h"
#include "tools/ybnetctl/segments/port_search.h"
#include "ybnet/net_lib_db.h"

namespace {

using namespace ybnetctl;

class port_search : public testing::Test {
  protected:
    port_search() {
        (void)unlink(ports_format.path);
        uint32_t silent = 0;
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_log_verbosity_level(YB_ACCESS_CMD_SET, &silent));
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_ports_load(0));
    }
    ~port_search() override {
        (void)net_lib_db_ports_unload(0);
    }

    // Answers of both for each key.
    void expect_same_answers(const std::vector<uint32_t> &keys) {
        bytes_ = segment_bytes(ports_format);
        ASSERT_EQ(sizeof(ports_body), bytes_.size());
        for (const uint32_t key : keys) {
            yb_net_port_info_t info = {};
            const yb_status_t status = net_lib_db_port_get(key, &info);
            const library_answer answer = library_port_get(body(), key);
            ASSERT_EQ(status, answer.status) << key;
            if (status == YB_STATUS_SUCCESS) {
                ASSERT_EQ(0, memcmp(&info, &body().port_table[answer.bucket].info, sizeof(info))) << key;
            }
        }
    }
    const ports_body &body() const {
        return *reinterpret_cast<const ports_body *>(bytes_.data());
    }

    std::vector<uint8_t> bytes_;
};

// Keys by home bucket, all of them near the table's end and beginning, so that they crowd and wrap around.
std::vector<uint32_t> crowding_keys(size_t count, uint16_t width) {
    std::vector<uint32_t> keys;
    for (uint32_t key = 1; keys.size() < count; key++) {
        if (static_cast<uint16_t>(home_bucket(key) + width / 2) < width)
            keys.push_back(key);
    }
    return keys;
}

TEST_F(port_search, answers_as_the_library_does_on_random_tables) {
    std::mt19937 random(20);
    for (const uint16_t width : {uint16_t{4}, uint16_t{12}, uint16_t{60}}) {
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_ports_load(1)); // erases
        const std::vector<uint32_t> keys = crowding_keys(40, width);
        for (int step = 0; step < 250; step++) {
            const uint32_t key = keys[random() % keys.size()];
            const yb_net_port_info_t info = port_info("p" + std::to_string(key), (key & 0xFFFFU) << 8);
            if (random() % 3 != 0)
                (void)net_lib_db_port_set(key, &info);
            else
                (void)net_lib_db_port_remove(key);
            if (step % 25 == 24) {
                expect_same_answers(keys);
                ASSERT_FALSE(HasFatalFailure());
            }
        }
    }
}

TEST_F(port_search, finds_each_logical_port_in_the_slot_that_the_library_reads) {
    for (const uint32_t log_port :
         {0x100U, 0x10100U, 0xFFFF00U, 0x2000FF00U, 0x10000000U, 0x1000FE00U, 0x1000FF00U}) {
        const yb_net_port_info_t info = port_info("p", log_port);
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_set(log_port ^ 0x5A5A, &info));
    }
    bytes_ = segment_bytes(ports_format);
    for (const uint32_t log_port : {0x100U, 0x10100U, 0xFFFF00U, 0x2000FF00U, 0x10000000U, 0x1000FE00U,
                                    0x1000FF00U, 0x1U, 0x300U, 0x10000300U}) {
        uint32_t sys_ifindex = 0;
        (void)net_lib_db_log_port_get(log_port, &sys_ifindex);
        EXPECT_EQ(sys_ifindex, library_log_port_get(body(), log_port)) << log_port;
    }
}

TEST_F(port_search, knows_every_state_of_a_bucket) {
    uint32_t uncounted = 1;
    while (home_bucket(uncounted) != 0)
        uncounted++;
    const yb_net_port_info_t info = port_info("p", 0x10100);
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_set(500, &info));
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_set(501, &info));
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_remove(501));
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_set(uncounted, &info));
    ASSERT_EQ(YB_STATUS_SUCCESS,
              net_lib_db_port_lag_set(502, 0x10000100)); // not recorded: leaves a stray binding
    bytes_ = segment_bytes(ports_format);

    EXPECT_EQ(std::vector<uint16_t>{home_bucket(500)}, buckets_of(body(), 500));
    EXPECT_EQ(bucket_state::removed, state_of(body().port_table[home_bucket(501)]));
    EXPECT_TRUE(buckets_of(body(), 501).empty());
    EXPECT_EQ(bucket_state::stray_bytes, state_of(body().port_table[home_bucket(502)]));
    ASSERT_EQ(1U, buckets_of(body(), uncounted).size());
    EXPECT_EQ(bucket_state::uncounted, state_of(body().port_table[buckets_of(body(), uncounted)[0]]));
    EXPECT_EQ("", difference_in_words(body(), 500, home_bucket(500)));
    EXPECT_EQ("", difference_in_words(body(), uncounted, buckets_of(body(), uncounted)[0]));
    EXPECT_NE(std::string::npos, absence_in_words(body(), 503).find("a record of zeros"));
    EXPECT_NE(std::string::npos, absence_in_words(body(), 502).find("what is left in bucket"));
    net_lib_port_entry_t damaged = body().port_table[home_bucket(500)];
    damaged.hash ^= 1;
    EXPECT_EQ(bucket_state::damaged, state_of(damaged));
}

// The library's own rule puts a port that is displaced where its search no longer comes by: whenever that happens, it
// is said for that port and for no other.
TEST_F(port_search, tells_exactly_the_ports_that_the_library_does_not_find) {
    std::mt19937 random(21);
    const std::vector<uint32_t> keys = crowding_keys(60, 40);
    for (int step = 0; step < 400; step++) {
        const uint32_t key = keys[random() % keys.size()];
        const yb_net_port_info_t info = port_info("p" + std::to_string(key), (key & 0xFFFFU) << 8);
        if (random() % 3 != 0)
            (void)net_lib_db_port_set(key, &info);
        else
            (void)net_lib_db_port_remove(key);
    }
    bytes_ = segment_bytes(ports_format);
    size_t told = 0;
    for (const uint32_t key : keys) {
        for (const uint16_t bucket : buckets_of(body(), key)) {
            yb_net_port_info_t answered = {};
            const yb_status_t status = net_lib_db_port_get(key, &answered);
            const bool same = status == YB_STATUS_SUCCESS &&
                              memcmp(&answered, &body().port_table[bucket].info, sizeof(answered)) == 0;
            const std::string words = difference_in_words(body(), key, bucket);
            if (buckets_of(body(), key).size() == 1) {
                EXPECT_EQ(same, words.empty()) << key << ": " << words;
            }
            told += words.empty() ? 0 : 1;
        }
    }
    RecordProperty("ports_not_found", static_cast<int>(told));
}

void expect_told_alike(const ports_body &body) {
    const std::vector<bool> answered = buckets_answered(body);
    for (uint32_t i = 0; i < YB_NET_PORTS_MAX; i++) {
        const bucket_state state = state_of(body.port_table[i]);
        if (state != bucket_state::recorded && state != bucket_state::uncounted)
            continue;
        const auto bucket = static_cast<uint16_t>(i);
        const bool found = difference_in_words(body, body.port_table[i].sys_ifindex, bucket).empty();
        ASSERT_EQ(found, answered[i]) << i;
    }
}

TEST_F(port_search, tells_of_the_whole_table_what_it_tells_of_each_port) {
    std::mt19937 random(22);
    const std::vector<uint32_t> keys = crowding_keys(300, 200);
    for (int step = 0; step < 900; step++) {
        const uint32_t key = keys[random() % keys.size()];
        const yb_net_port_info_t info = port_info("p", 0);
        if (random() % 3 != 0)
            (void)net_lib_db_port_set(key, &info);
        else
            (void)net_lib_db_port_remove(key);
    }
    bytes_ = segment_bytes(ports_format);
    expect_told_alike(body());
    // Then tables that no library made: copies of buckets elsewhere, homes of others, holes.
    auto &table = reinterpret_cast<ports_body *>(bytes_.data())->port_table;
    for (int round = 0; round < 40; round++) {
        for (int change = 0; change < 20; change++) {
            const auto place = [&] { return static_cast<uint16_t>(random() % 300 - 150); };
            net_lib_port_entry_t &bucket = table[place()];
            switch (random() % 4) {
            case 0:
                bucket = {};
                break;
            case 1:
                bucket.hash = place();
                break;
            default:
                bucket = table[place()];
            }
        }
        expect_told_alike(body());
        ASSERT_FALSE(HasFatalFailure()) << round;
    }
}

// As many ports as there are buckets, all with one home: each search goes past all that come before.
TEST_F(port_search, takes_no_longer_for_a_table_that_was_made_to_be_slow) {
    constexpr uint16_t home = 4711;
    std::vector<uint16_t> low_of(YB_NET_PORTS_MAX); // of each home, the key below 65536 that has it
    for (uint32_t low = 0; low < YB_NET_PORTS_MAX; low++)
        low_of[home_bucket(low)] = static_cast<uint16_t>(low);
    bytes_.assign(sizeof(ports_body), 0);
    auto &table = reinterpret_cast<ports_body *>(bytes_.data())->port_table;
    for (uint32_t i = 0; i < YB_NET_PORTS_MAX; i++) {
        // A CRC is linear: home(high + low) = home(high) ^ home(low) ^ home(0).
        const uint32_t high = i << 16;
        const auto wanted = static_cast<uint16_t>(home ^ home_bucket(high) ^ home_bucket(0));
        net_lib_port_entry_t &bucket = table[static_cast<uint16_t>(home + i)];
        bucket.sys_ifindex = high | low_of[wanted];
        bucket.hash = home;
        ASSERT_EQ(home, home_bucket(bucket.sys_ifindex));
    }
    const auto begin = std::chrono::steady_clock::now();
    const std::vector<bool> answered = buckets_answered(body());
    const auto taken = std::chrono::steady_clock::now() - begin;
    EXPECT_EQ(YB_NET_PORTS_MAX, std::count(answered.begin(), answered.end(), true));
    // One search after the other takes 2,147 million steps.
    EXPECT_LT(taken, std::chrono::seconds(1));
}

} // namespace
