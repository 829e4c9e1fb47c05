// SPDX-License-Identifier: Apache-2.0
//
// A process that dies in the middle of a change to the ports, at every instruction that changed shared memory: each
// state is repaired and looked at. As dying_change_test.cc for the interfaces.
#include "tests/unit/dying_change_fixture.h"

#include <map>

namespace {

constexpr uint32_t port_of(uint32_t key) {
    return key << 8;
}

yb_net_port_info_t info_of(uint32_t key, uint8_t byte) {
    yb_net_port_info_t info = {};
    info.attr_a = byte;
    info.attr_c = byte;
    info.attr_i = key;
    info.log_port = port_of(key);
    memset(info.name, byte, sizeof(info.name));
    memset(info.attr_g, byte, sizeof(info.attr_g));
    info.attr_h = byte;
    return info;
}

bool is_whole(const yb_net_port_info_t &info) {
    const yb_net_port_info_t expected = info_of(info.attr_i, info.attr_a);
    return memcmp(&info, &expected, sizeof(info)) == 0;
}

void set(uint32_t key, uint8_t byte) {
    const yb_net_port_info_t info = info_of(key, byte);
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_set(key, &info));
}

const std::vector<part> port_parts = {{0, 64 * 84}, // the buckets around the homes that are used
                                      {offsetof(net_lib_db_ports_segment_t, lag_to_mlag),
                                       offsetof(net_lib_db_ports_segment_t, port_to_ifindex)},
                                      {offsetof(net_lib_db_ports_segment_t, port_to_ifindex),
                                       offsetof(net_lib_db_ports_segment_t, port_to_ifindex) + 0x400 * 4}};

// All listed ports by key, with the byte that their records are full of; each once, whole, in the map, and found by
// its key; and nothing in the map that is not listed.
std::map<uint32_t, uint8_t> ports_found() {
    auto &body = *static_cast<net_lib_db_ports_segment_t *>(ports_segment.body);
    std::map<uint32_t, uint8_t> found;
    for (uint32_t index = 0; index < 64; index++) {
        const net_lib_port_entry_t &bucket = body.port_table[index];
        EXPECT_LE(bucket.deleted, 1) << "bucket " << index << " is marked still";
        EXPECT_EQ(0, bucket.reserved[0] | bucket.reserved[1] | bucket.reserved[2]) << index;
        if (bucket.hash == 0 || bucket.deleted != 0) {
            EXPECT_EQ(0u, bucket.sys_ifindex);
            EXPECT_EQ(0u, bucket.info.attr_i) << "remains in bucket " << index;
            continue;
        }
        EXPECT_TRUE(is_whole(bucket.info)) << "bucket " << index;
        EXPECT_EQ(bucket.sys_ifindex, bucket.info.attr_i);
        EXPECT_TRUE(found.emplace(bucket.sys_ifindex, bucket.info.attr_a).second) << "twice";
    }
    for (uint32_t key = 1; key < 0x400; key++) {
        uint32_t mapped = 0;
        (void)net_lib_db_log_port_get(port_of(key), &mapped);
        EXPECT_EQ(found.count(key) != 0 ? key : 0, mapped) << "in the map";
    }
    for (const auto &[key, byte] : found) {
        yb_net_port_info_t info = {};
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_get(key, &info));
        EXPECT_EQ(key, info.attr_i) << "found by its key";
    }
    return found;
}

class dying_port_change : public dying_change {
  protected:
    // Makes the change, and expects of each of its states, repaired, one of these two sets of ports.
    template <typename change_t>
    void expect(const std::map<uint32_t, uint8_t> &before, const std::map<uint32_t, uint8_t> &after,
                change_t change) {
        ASSERT_EQ(before, ports_found());
        const auto states = states_during(ports_segment, port_parts, change);
        ASSERT_LT(4u, states.size());
        EXPECT_EQ(after, ports_found());
        size_t repaired = 0;
        for (size_t i = 0; i < states.size(); i++) {
            SCOPED_TRACE(testing::Message() << "state " << i << " of " << states.size());
            put_back(ports_segment, port_parts, states[i]);
            platform::recorded() = {};
            ports_segment.description.repair_body(ports_segment.body);
            repaired += warnings() != 0 ? 1 : 0;
            const auto found = ports_found();
            EXPECT_TRUE(found == before || found == after);
            platform::recorded() = {};
            ports_segment.description.repair_body(ports_segment.body);
            EXPECT_EQ(0u, warnings()) << "nothing is left to repair";
            change(); // and once more, to its end
            EXPECT_EQ(after, ports_found());
        }
        EXPECT_LT(states.size() / 2, repaired);
    }
};

// ---- What the bytes tell ----

// A port with both its logical port and its LAG's MLAG in the maps.
yb_net_port_info_t lag_info(uint32_t lag_index, uint16_t mlag_id, uint8_t byte) {
    yb_net_port_info_t info = info_of(0x105, byte);
    info.log_port = 0x10000000 | lag_index << 8;
    info.mlag_id = mlag_id;
    return info;
}

class dying_whole_change : public dying_change {
  protected:
    // Makes the change, and expects of each of its states that one repair, said in one line, makes it the first or
    // the last, byte for byte.
    template <typename change_t> void expect_whole(const std::vector<part> &parts, change_t change) {
        const bytes before = copy_of(ports_segment, parts);
        const auto states = states_during(ports_segment, parts, change, steps::from_the_first_store);
        const bytes after = copy_of(ports_segment, parts);
        ASSERT_LT(4u, states.size());
        ASSERT_EQ(before, states.front());
        ASSERT_EQ(after, states.back());
        size_t completed = 0;
        for (size_t i = 1; i + 1 < states.size(); i++) {
            SCOPED_TRACE(testing::Message() << "state " << i << " of " << states.size());
            put_back(ports_segment, parts, states[i]);
            platform::recorded() = {};
            ports_segment.description.repair_body(ports_segment.body);
            EXPECT_EQ(1u, warnings());
            const bool is_completed = is_as(ports_segment, parts, after);
            EXPECT_TRUE(is_completed || is_as(ports_segment, parts, before));
            completed += is_completed ? 1 : 0;
            const bytes repaired = copy_of(ports_segment, parts);
            ports_segment.description.repair_body(ports_segment.body);
            EXPECT_EQ(1u, warnings()) << "nothing is left to repair";
            EXPECT_TRUE(is_as(ports_segment, parts, repaired));
        }
        EXPECT_LT(0u, completed);
        put_back(ports_segment, parts, after);
    }

    static net_lib_db_ports_segment_t &body() {
        return *static_cast<net_lib_db_ports_segment_t *>(ports_segment.body);
    }
};

TEST_F(dying_whole_change, new_lag_is_in_all_its_maps_or_in_none) {
    expect_whole(port_parts, [] {
        const yb_net_port_info_t info = lag_info(4, 7, 1);
        (void)net_lib_db_port_set(0x105, &info);
    });
    EXPECT_EQ(7, body().lag_to_mlag[4]);
    EXPECT_EQ(0x10000400u, body().mlag_to_lag[7]);
    EXPECT_EQ(0x105u, body().lag_to_ifindex[4]);
}

TEST_F(dying_whole_change, changed_lag_is_in_the_maps_as_before_or_as_after) {
    const yb_net_port_info_t before = lag_info(4, 7, 1);
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_set(0x105, &before));
    expect_whole(port_parts, [] {
        const yb_net_port_info_t info = lag_info(5, 8, 2);
        (void)net_lib_db_port_set(0x105, &info);
    });
    EXPECT_EQ(8, body().lag_to_mlag[5]);
    EXPECT_EQ(0x10000500u, body().mlag_to_lag[8]);
    EXPECT_EQ(0x105u, body().lag_to_ifindex[5]);
}

TEST_F(dying_whole_change, removed_lag_is_in_all_its_maps_or_in_none) {
    const yb_net_port_info_t before = lag_info(4, 7, 1);
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_set(0x105, &before));
    expect_whole(port_parts, [] { (void)net_lib_db_port_remove(0x105); });
    EXPECT_EQ(0, body().lag_to_mlag[4]);
    EXPECT_EQ(0u, body().mlag_to_lag[7]);
    EXPECT_EQ(0u, body().lag_to_ifindex[4]);
}

// ---- A table full of ports ----

uint16_t low_16_bits(void *, const uint8_t *data, uint32_t, uint16_t) {
    uint16_t home = 0;
    memcpy(&home, data, sizeof(home));
    return home;
}

class dying_full_table_change : public dying_whole_change {
  protected:
    static constexpr uint32_t near_the_end = 0x1FFF0; // so that the buckets behind its own go round
    static constexpr uint16_t its_bucket = 0xFFF0;

    void SetUp() override {
        dying_whole_change::SetUp();
        platform::crc_override() = low_16_bits;
        for (uint32_t index = 0; index < YB_NET_PORTS_MAX; index++) {
            const uint32_t home = index != 0 ? index : 0xFFFF; // a bucket with the hash 0 would be empty
            const uint32_t key = 0x10000 | home;
            net_lib_port_entry_t &bucket = body().port_table[index];
            bucket = {index != 0 ? key : 0x20000 | home, info_of(key, 1), 0, {}, home};
        }
    }
    static std::vector<part> around_its_bucket() {
        constexpr size_t map = offsetof(net_lib_db_ports_segment_t, port_to_ifindex);
        return {{0, 64 * sizeof(net_lib_port_entry_t)},
                {(its_bucket - 1) * sizeof(net_lib_port_entry_t),
                 offsetof(net_lib_db_ports_segment_t, lag_to_ifindex)},
                {map, map + 0x400 * 4}};
    }
};

TEST_F(dying_full_table_change, changed_port_is_the_old_one_or_the_new) {
    expect_whole(around_its_bucket(), [] {
        yb_net_port_info_t info = info_of(3, 7);
        (void)net_lib_db_port_set(near_the_end, &info);
    });
    EXPECT_EQ(7, body().port_table[its_bucket].info.attr_a);
    EXPECT_EQ(near_the_end, body().port_to_ifindex[3]);
}

TEST_F(dying_full_table_change, changed_port_without_a_logical_port_is_the_old_one_or_the_new) {
    expect_whole(around_its_bucket(), [] {
        yb_net_port_info_t info = info_of(3, 7);
        info.log_port = 0;
        (void)net_lib_db_port_set(near_the_end, &info);
    });
    EXPECT_EQ(7, body().port_table[its_bucket].info.attr_a);
    EXPECT_EQ(0u, body().port_to_ifindex[3]);
}

TEST_F(dying_full_table_change, uninterrupted_leaves_reserved_bytes_as_they_were) {
    const auto bucket_after = [this](uint32_t steps) -> net_lib_port_entry_t & {
        return body().port_table[static_cast<uint16_t>(its_bucket + steps)];
    };
    for (uint32_t steps = 0; steps < 64; steps++)
        memset(bucket_after(steps).reserved, static_cast<int>(0x40 + steps), 3);
    set(near_the_end, 7);
    EXPECT_EQ(7, bucket_after(0).info.attr_a);
    for (uint32_t steps = 0; steps < 64; steps++)
        EXPECT_THAT(bucket_after(steps).reserved, testing::Each(0x40 + steps)) << steps;
}

// ---- What the ports tell ----

TEST_F(dying_port_change, new_port_is_there_or_not) {
    set(0x105, 1);
    expect({{0x105, 1}}, {{0x105, 1}, {0x107, 9}}, [] { set(0x107, 9); });
}

TEST_F(dying_port_change, port_in_a_deleted_bucket_is_there_or_not) {
    set(0x105, 1);
    set(0x106, 2);
    set(0x107, 3);
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_remove(0x106));
    expect({{0x105, 1}, {0x107, 3}}, {{0x105, 1}, {0x107, 3}, {0x205, 9}}, [] { set(0x205, 9); });
}

TEST_F(dying_port_change, ports_that_make_room_are_never_lost) {
    for (uint32_t i = 0; i < 5; i++)
        set(0x105 + i, static_cast<uint8_t>(1 + i));
    expect({{0x105, 1}, {0x106, 2}, {0x107, 3}, {0x108, 4}, {0x109, 5}},
           {{0x105, 1}, {0x106, 2}, {0x107, 3}, {0x108, 4}, {0x109, 5}, {0x205, 9}}, [] { set(0x205, 9); });
}

TEST_F(dying_port_change, ports_that_make_room_up_to_a_deleted_bucket_are_never_lost) {
    for (uint32_t i = 0; i < 5; i++)
        set(0x105 + i, static_cast<uint8_t>(1 + i));
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_remove(0x108));
    expect({{0x105, 1}, {0x106, 2}, {0x107, 3}, {0x109, 5}},
           {{0x105, 1}, {0x106, 2}, {0x107, 3}, {0x109, 5}, {0x205, 9}}, [] { set(0x205, 9); });
}

TEST_F(dying_port_change, changed_port_is_the_old_one_or_the_new) {
    set(0x105, 1);
    set(0x106, 2);
    expect({{0x105, 1}, {0x106, 2}}, {{0x105, 7}, {0x106, 2}}, [] { set(0x105, 7); });
}

// The new record is kept there meanwhile.
TEST_F(dying_port_change, changed_port_is_whole_also_when_the_next_bucket_is_the_only_spare_one) {
    auto *const table = static_cast<net_lib_db_ports_segment_t *>(ports_segment.body)->port_table;
    constexpr uint32_t home = 40;
    std::map<uint32_t, uint8_t> ports;
    table[0].info.attr_a = 1; // no port, but in use
    for (uint32_t index = 1; index < YB_NET_PORTS_MAX; index++) {
        if (index < 64 && index != home + 1) {
            set(0x100 + index, 1);
            ports[0x100 + index] = 1;
        } else if (index != home + 1) {
            table[index].hash = index;
            table[index].sys_ifindex = 0x10000 + index;
        }
    }
    auto changed = ports;
    changed[0x100 + home] = 7;
    expect(ports, changed, [] { set(0x100 + home, 7); });
}

TEST_F(dying_port_change, removed_port_is_there_or_not) {
    set(0x105, 1);
    set(0x106, 2);
    expect({{0x105, 1}, {0x106, 2}}, {{0x106, 2}}, [] { (void)net_lib_db_port_remove(0x105); });
}

TEST_F(dying_port_change, erasing_is_finished_once_it_began) {
    set(0x105, 1);
    const std::vector<part> table = {{0, offsetof(net_lib_db_ports_segment_t, lag_to_ifindex)}};
    const bytes before = copy_of(ports_segment, table);
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_ports_load(2));
    const bytes erased = copy_of(ports_segment, table);
    bytes state = before;
    memcpy(&state[76], "\x29\xD1\xA3\xE5", 4);
    put_back(ports_segment, table, state);
    platform::recorded() = {};
    ports_segment.description.repair_body(ports_segment.body);
    EXPECT_TRUE(is_as(ports_segment, table, erased));
    EXPECT_EQ(1u, warnings());
}

TEST_F(dying_port_change, ports_are_not_erased_for_less_than_the_whole_mark) {
    set(0x105, 1);
    const bytes before = copy_of(ports_segment, port_parts);
    for (const char *const stray : {"\x29\0\0\0", "\x29\xD1\0\0", "\x29\xD1\xA3\0", "\0\xD1\xA3\xE5"}) {
        bytes state = before;
        memcpy(&state[76], stray, 4);
        put_back(ports_segment, port_parts, state);
        platform::recorded() = {};
        ports_segment.description.repair_body(ports_segment.body);
        EXPECT_TRUE(is_as(ports_segment, port_parts, state)) << "nothing is touched";
        EXPECT_EQ(0u, warnings());
    }
}

// A repair touches the reserved bytes of the buckets alone whose mark says that there is an index in them.
TEST_F(dying_port_change, repair_leaves_the_reserved_bytes_of_other_buckets) {
    set(0x105, 1);
    set(0x106, 2);
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_port_remove(0x106));
    auto *const table = static_cast<net_lib_db_ports_segment_t *>(ports_segment.body)->port_table;
    for (const int index : {5, 6, 7})
        memset(table[index].reserved, 0x5A, sizeof(table[index].reserved));
    table[8].deleted = 0x21; // half written: to be taken back
    table[8].sys_ifindex = 9;
    ports_segment.description.repair_body(ports_segment.body);
    EXPECT_EQ(0u, table[8].sys_ifindex) << "there was something to repair";
    for (const int index : {5, 6, 7})
        EXPECT_THAT(table[index].reserved, testing::Each(0x5A)) << index;
}

} // namespace
