// SPDX-License-Identifier: Apache-2.0
//
// Hundreds of thousands of random operations on the ports database and on its
// model: every status, result and message is the same, and so is every byte of
// the segment's body. A failure names the seed and the step; run again with
// YBNET_TEST_SEED=SEED.
#include <cstdlib>
#include <random>

#include "tests/unit/port_model.h"
#include "tests/unit/ports_fixture.h"

namespace {

uint64_t test_seed() {
    if (const char *const given = getenv("YBNET_TEST_SEED"); given != nullptr)
        return strtoull(given, nullptr, 0);
    return std::random_device{}();
}

// How a phase's keys lie in the table.
struct layout {
    const char *name;
    uint32_t keys;
    uint16_t homes; // how many there are
    uint16_t first; // the lowest, counting over the table's end
};

uint16_t home_in(const layout &keys_layout, uint32_t key) {
    const uint32_t scattered = (key * 2654435761u) >> 16;
    return static_cast<uint16_t>(keys_layout.first + scattered % keys_layout.homes);
}

const layout *current_layout;

uint16_t hash_of(uint32_t key) {
    return home_in(*current_layout, key);
}

uint16_t crc_of_layout(void *, const uint8_t *data, uint32_t, uint16_t) {
    uint32_t key;
    memcpy(&key, data, sizeof(key));
    return hash_of(key);
}

class port_differential : public ports_test {
  protected:
    port_differential() : seed_(test_seed()), random_(seed_), model_(hash_of) {}

    void SetUp() override {
        ports_test::SetUp();
        current_layout = nullptr;
        platform::crc_override() = crc_of_layout;
        printf("port_differential: YBNET_TEST_SEED=%llu\n", static_cast<unsigned long long>(seed_));
        RecordProperty("seed", std::to_string(seed_));
    }

    uint32_t below(uint32_t limit) {
        return static_cast<uint32_t>(random_() % limit);
    }
    uint32_t random_key() {
        return below(200) == 0 ? 0 : 1 + below(current_layout->keys);
    }
    uint32_t random_log_port() {
        switch (below(8)) {
        case 0:
            return 0;
        case 1:
        case 2:
        case 3: // a LAG, often the one that shares its slot
            return 0x10000000 | below(4) << 16 | (below(4) == 0 ? 255u : below(256)) << 8 | below(256);
        case 4: // the port index that shares its slot
            return (2 + below(14)) << 28 | below(16) << 24 | 1;
        default:
            return (below(4) == 0 ? below(16) << 28 : 0) | below(4000) << 8;
        }
    }

    // Fields are often 0, which is what merging turns on.
    port_model::record random_record() {
        port_model::record record = {};
        for (uint8_t &byte : record)
            byte = below(3) == 0 ? static_cast<uint8_t>(random_()) : uint8_t{0};
        if (below(3) == 0)
            record[1] = 255;
        const uint32_t log_port = random_log_port();
        memcpy(&record[12], &log_port, sizeof(log_port));
        const uint32_t protocol = below(3);
        memcpy(&record[8], &protocol, sizeof(protocol));
        const auto mlag_id = static_cast<uint16_t>(below(10) == 0 ? 995 + below(10) : below(12));
        memcpy(&record[26], &mlag_id, sizeof(mlag_id));
        return record;
    }

    static yb_net_port_info_t as_info(const port_model::record &record) {
        yb_net_port_info_t info;
        memcpy(&info, record.data(), sizeof(info));
        return info;
    }

    void one_operation() {
        const uint32_t key = random_key();
        port_model::record expected = {};
        yb_net_port_info_t out = {};
        uint32_t expected_word = 0xEE;
        uint32_t word = 0xEE;
        uint16_t expected_half = 0xEE;
        uint16_t half = 0xEE;
        switch (below(20)) {
        default: {
            const port_model::record record = random_record();
            const yb_net_port_info_t info = as_info(record);
            const uint32_t status = model_.set(key, record);
            ASSERT_EQ(status, net_lib_db_port_set(key, &info));
            full_failures_ += status == YB_STATUS_ERROR ? 1 : 0;
            break;
        }
        case 9:
        case 10:
        case 11:
        case 12:
        case 13:
            ASSERT_EQ(model_.remove(key), net_lib_db_port_remove(key));
            break;
        case 14:
            ASSERT_EQ(model_.get(key, &expected), net_lib_db_port_get(key, &out));
            break;
        case 15:
        case 16: {
            const uint32_t log_port = random_log_port();
            ASSERT_EQ(model_.lag_set(key, log_port), net_lib_db_port_lag_set(key, log_port));
            break;
        }
        case 17: {
            const uint32_t log_port = random_log_port();
            ASSERT_EQ(model_.log_port_get(log_port, &expected_word),
                      net_lib_db_log_port_get(log_port, &word));
            break;
        }
        case 18: {
            const auto mlag_id = static_cast<uint16_t>(below(1003));
            ASSERT_EQ(model_.lag_get(mlag_id, &expected_word), net_lib_db_lag_get(mlag_id, &word));
            break;
        }
        case 19: {
            const uint32_t log_port = random_log_port();
            ASSERT_EQ(model_.mlag_get(log_port, &expected_half), net_lib_db_mlag_get(log_port, &half));
            break;
        }
        }
        ASSERT_EQ(as_info(expected), out);
        ASSERT_EQ(expected_word, word);
        ASSERT_EQ(expected_half, half);
        check_messages();
    }

    void one_list() {
        const uint32_t protocol = below(4);
        uint32_t size = below(3) == 0 ? below(4) : below(70000);
        uint32_t expected_size = size;
        if (below(4) == 0) {
            ASSERT_EQ(model_.get_all(protocol, nullptr, &expected_size),
                      net_lib_db_ports_get_all(protocol, nullptr, &size));
        } else {
            std::vector<port_model::record> expected;
            std::vector<yb_net_port_info_t> array(std::max(size, 1u), filled_with(0xEE));
            ASSERT_EQ(model_.get_all(protocol, &expected, &expected_size),
                      net_lib_db_ports_get_all(protocol, array.data(), &size));
            for (size_t i = 0; i < array.size(); i++)
                ASSERT_EQ(i < expected.size() ? as_info(expected[i]) : filled_with(0xEE), array[i]) << i;
        }
        ASSERT_EQ(expected_size, size);
        check_messages();
    }

    void check_messages() {
        std::vector<port_model::message> lines;
        for (const said &line : take_lines())
            lines.emplace_back(line.severity, line.text);
        platform::recorded() = {};
        ASSERT_EQ(model_.said(), lines);
    }

    void check_body() {
        const auto *const bytes = static_cast<const uint8_t *>(ports_segment.body);
        if (memcmp(bytes, model_.body().data(), port_model::body_size) == 0)
            return;
        for (size_t i = 0; i < port_model::body_size; i++)
            ASSERT_EQ(model_.body()[i], bytes[i]) << "at offset " << i;
    }

    // Overwrites one byte, of a bucket where the keys lie or of a map, as a process gone wrong would.
    void damage() {
        constexpr size_t maps = offsetof(net_lib_db_ports_segment_t, lag_to_mlag);
        const uint32_t index = (current_layout->first + below(2u * current_layout->homes)) % YB_NET_PORTS_MAX;
        const size_t offset =
            below(4) == 0 ? maps + below(static_cast<uint32_t>(port_model::body_size - maps))
                          : index * sizeof(net_lib_port_entry_t) + below(sizeof(net_lib_port_entry_t));
        constexpr uint8_t likely[] = {0, 1, 0x10, 0xFF};
        const uint8_t value = below(2) == 0 ? likely[below(4)] : static_cast<uint8_t>(random_());
        static_cast<uint8_t *>(ports_segment.body)[offset] = value;
        model_.overwrite(offset, value);
    }

    // A new table, erased as a load erases it, and `steps` operations on it, one in `damage_every` of them on
    // a segment that was damaged just before; 0: none.
    void phase(const layout &keys_layout, uint32_t steps, uint32_t check_every, uint32_t damage_every = 0) {
        current_layout = &keys_layout;
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_ports_load(1));
        model_.initialize();
        check_body();
        for (uint32_t step = 0; step < steps && !HasFatalFailure(); step++) {
            SCOPED_TRACE(testing::Message()
                         << "YBNET_TEST_SEED=" << seed_ << " " << keys_layout.name << " step " << step);
            if (damage_every != 0 && below(damage_every) == 0)
                damage();
            one_operation();
            if (step % check_every == 0 && !HasFatalFailure()) {
                one_list();
                check_body();
            }
        }
        check_body();
    }

    uint64_t seed_;
    std::mt19937_64 random_;
    port_model model_;
    int full_failures_ = 0;
};

// Crowded: every set and remove leaves tombstones behind, so the chains grow into each other.
TEST_F(port_differential, clustered_homes) {
    const layout crowded = {"one cluster", 200, 40, 1000};
    for (int round = 0; round < 30 && !HasFatalFailure(); round++)
        phase(crowded, 5000, 500);
}

// Home 0 is among them, whose ports count as empty buckets.
TEST_F(port_differential, homes_around_the_tables_end) {
    const layout around_the_end = {"around the end", 120, 12, 65530};
    for (int round = 0; round < 40 && !HasFatalFailure(); round++)
        phase(around_the_end, 4000, 500);
}

TEST_F(port_differential, one_home) {
    const layout single = {"one home", 30, 1, 65535};
    for (int round = 0; round < 10 && !HasFatalFailure(); round++)
        phase(single, 2000, 500);
}

TEST_F(port_differential, only_home_0) {
    const layout zero = {"home 0", 5, 1, 0};
    phase(zero, 10000, 1000);
}

TEST_F(port_differential, homes_all_over_the_table) {
    const layout scattered = {"scattered", 50000, 65535, 1};
    phase(scattered, 300000, 5000);
}

// Hashes beyond the table, LAGs with any MLAG id, keys in the wrong place: the same answers, within the maps.
TEST_F(port_differential, a_damaged_segment) {
    const layout crowded = {"damaged", 200, 40, 1000};
    for (int round = 0; round < 20 && !HasFatalFailure(); round++)
        phase(crowded, 3000, 300, 5);
    const layout around_the_end = {"damaged around the end", 60, 12, 65530};
    for (int round = 0; round < 20 && !HasFatalFailure(); round++)
        phase(around_the_end, 2000, 300, 5);
}

TEST_F(port_differential, a_table_that_gets_full) {
    const layout full = {"full", 200000, 65535, 1};
    current_layout = &full;
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_ports_load(1));
    // All but a hundred buckets filled by hand, each port at its home: then the last hundred and beyond.
    for (uint32_t i = 1; i <= 65435; i++)
        put(static_cast<uint16_t>(i), 0x1000000 + i, i);
    model_.adopt(snapshot());
    for (uint32_t step = 0; step < 1500 && !HasFatalFailure(); step++) {
        SCOPED_TRACE(testing::Message() << "YBNET_TEST_SEED=" << seed_ << " step " << step);
        one_operation();
        if (step % 100 == 0 && !HasFatalFailure()) {
            one_list();
            check_body();
        }
    }
    check_body();
    EXPECT_GT(full_failures_, 50);
}

} // namespace
