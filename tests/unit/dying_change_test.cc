// SPDX-License-Identifier: Apache-2.0
//
// A process that dies in the middle of a change, at every instruction that changed shared memory: a child makes
// the change one step at a time under ptrace(2), every state that the segment goes through is kept, and each is
// repaired and looked at. The lock's own words go the same way, but through real takeovers.
#include <csignal>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "net_lib_db/interfaces_segment.h"
#include "net_lib_db/ports_segment.h"
#include "tests/support/recording_platform.h"
#include "ybnet/net_lib_db.h"

namespace {

constexpr uint32_t severity_warn = 3;

// The part of a segment that the changes of these tests touch, as it was at one moment.
using bytes = std::vector<uint8_t>;
struct part {
    size_t from;
    size_t to;
};

uint16_t low_bits(void *, const uint8_t *data, uint32_t, uint16_t) {
    uint32_t key = 0;
    memcpy(&key, data, sizeof(key));
    return static_cast<uint16_t>(key & 0xFF); // a key 0x1NN has the home 0xNN, as has 0x2NN
}

class dying_change : public testing::Test {
  protected:
    void SetUp() override {
        platform::reset();
        platform::crc_override() = low_bits;
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_load(0));
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_ports_load(0));
    }
    void TearDown() override {
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_unload(0));
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_ports_unload(0));
    }

    static bytes copy_of(const segment &seg, const std::vector<part> &parts) {
        bytes all;
        for (const part &one : parts) {
            const auto *const begin = static_cast<const uint8_t *>(seg.body);
            all.insert(all.end(), begin + one.from, begin + one.to);
        }
        return all;
    }
    static void put_back(const segment &seg, const std::vector<part> &parts, const bytes &all) {
        const uint8_t *from = all.data();
        for (const part &one : parts) {
            memcpy(static_cast<uint8_t *>(seg.body) + one.from, from, one.to - one.from);
            from += one.to - one.from;
        }
    }
    static bool is_as(const segment &seg, const std::vector<part> &parts, const bytes &all) {
        const uint8_t *from = all.data();
        for (const part &one : parts) {
            if (memcmp(static_cast<uint8_t *>(seg.body) + one.from, from, one.to - one.from) != 0)
                return false;
            from += one.to - one.from;
        }
        return true;
    }

    // Every state of these parts while a child makes the change, the first and the last included. The child's
    // id is left in child_.
    template <typename change_t>
    std::vector<bytes> states_during(const segment &seg, const std::vector<part> &parts, change_t change) {
        std::vector<bytes> states = {copy_of(seg, parts)};
        const pid_t child = fork();
        if (child == 0) {
            (void)ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            (void)raise(SIGSTOP);
            change();
            _exit(0);
        }
        int status = 0;
        EXPECT_EQ(child, waitpid(child, &status, 0));
        steps_ = 0;
        while (WIFSTOPPED(status)) {
            if (!is_as(seg, parts, states.back()))
                states.push_back(copy_of(seg, parts));
            steps_++;
            (void)ptrace(PTRACE_SINGLESTEP, child, nullptr, nullptr);
            if (waitpid(child, &status, 0) != child)
                break;
        }
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
        child_ = static_cast<uint32_t>(child);
        printf("%d steps, %zu states\n", steps_, states.size());
        return states;
    }

    static size_t warnings() {
        return platform::recorded().texts(severity_warn).size();
    }

    uint32_t child_ = 0;
    int steps_ = 0;
};

// ---- Interfaces -------------------------------------------------------------

yb_net_interface_params_t block_of(uint8_t byte) {
    yb_net_interface_params_t params;
    memset(&params, byte, sizeof(params));
    params.ns_name[31] = 0;
    return params;
}

// Whole, and made by the tests: every byte of its parameters says the same.
bool is_whole(const yb_net_interface_record_t &record) {
    const yb_net_interface_params_t expected = block_of(static_cast<uint8_t>(record.sys_ifindex));
    return memcmp(&record.params, &expected, sizeof(expected)) == 0 &&
           record.linux_ifindex == record.sys_ifindex + 1000 && record.rif == record.sys_ifindex &&
           record.vrid == 255;
}

yb_status_t add(uint32_t key) {
    const yb_net_interface_params_t params = block_of(static_cast<uint8_t>(key));
    return net_lib_db_interface_add_full(key, key + 1000, &params, static_cast<uint16_t>(key), 255, 1);
}

std::set<uint32_t> interfaces_found() {
    std::set<uint32_t> keys;
    for (uint32_t index = 0; index < YB_NET_INTERFACES_MAX; index++) {
        yb_net_interface_record_t record;
        if (net_lib_db_interface_get_by_db_index(index, &record) != YB_STATUS_SUCCESS)
            continue;
        EXPECT_TRUE(is_whole(record)) << "slot " << index;
        EXPECT_TRUE(keys.insert(record.sys_ifindex).second) << "twice";
    }
    return keys;
}

const std::vector<part> first_interfaces = {{0, 16 * 116}};

TEST_F(dying_change, interface_is_there_or_not_wherever_its_addition_ends) {
    ASSERT_EQ(YB_STATUS_SUCCESS, add(1));
    const auto states = states_during(interfaces_segment, first_interfaces, [] { (void)add(2); });
    ASSERT_LT(4u, states.size());
    size_t repaired = 0;
    for (const bytes &state : states) {
        put_back(interfaces_segment, first_interfaces, state);
        platform::recorded() = {};
        interfaces_segment.description.repair_body(interfaces_segment.body);
        repaired += warnings();
        const auto found = interfaces_found();
        EXPECT_EQ(1u, found.count(1));
        EXPECT_EQ(&state == &states.back() ? 2u : 1u, found.size()) << "it is in use with its last store";
        EXPECT_EQ(&state == &states.back() || &state == &states.front() ? 0u : 1u, warnings());
        platform::recorded() = {};
        interfaces_segment.description.repair_body(interfaces_segment.body);
        EXPECT_EQ(0u, warnings()) << "nothing is left to repair";
        EXPECT_EQ(found.count(2) != 0 ? YB_STATUS_ENTRY_ALREADY_EXISTS : YB_STATUS_SUCCESS, add(2));
    }
    EXPECT_LT(2u, repaired);
}

TEST_F(dying_change, interface_is_there_or_not_wherever_its_removal_ends) {
    ASSERT_EQ(YB_STATUS_SUCCESS, add(1));
    ASSERT_EQ(YB_STATUS_SUCCESS, add(2));
    const auto states =
        states_during(interfaces_segment, first_interfaces, [] { (void)net_lib_db_interface_remove(1); });
    ASSERT_LT(4u, states.size());
    for (const bytes &state : states) {
        put_back(interfaces_segment, first_interfaces, state);
        platform::recorded() = {};
        interfaces_segment.description.repair_body(interfaces_segment.body);
        const auto found = interfaces_found();
        EXPECT_EQ(1u, found.count(2));
        EXPECT_EQ(&state == &states.front() ? 2u : 1u, found.size());
        EXPECT_EQ(&state != &states.front(), is_as(interfaces_segment, first_interfaces, states.back()))
            << "removed to the end";
    }
}

TEST_F(dying_change, interfaces_are_erased_to_the_end_once_it_began) {
    ASSERT_EQ(YB_STATUS_SUCCESS, add(1));
    ASSERT_EQ(YB_STATUS_SUCCESS, add(2));
    const std::vector<part> everything = {{0, offsetof(net_lib_db_interfaces_segment_t, trailer)}};
    const bytes before = copy_of(interfaces_segment, everything);
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_load(2));
    const bytes erased = copy_of(interfaces_segment, everything);
    for (const size_t reached : {size_t{116}, size_t{200}, size_t{60'000}, erased.size()}) {
        bytes state = before;
        std::copy(erased.begin() + 116, erased.begin() + static_cast<ptrdiff_t>(reached),
                  state.begin() + 116);
        state[113] = 0xE5;
        put_back(interfaces_segment, everything, state);
        platform::recorded() = {};
        interfaces_segment.description.repair_body(interfaces_segment.body);
        EXPECT_TRUE(is_as(interfaces_segment, everything, erased));
        EXPECT_EQ(1u, warnings());
    }
}

// A child stops after each store to one byte, by the processor's own watch on it.
TEST_F(dying_change, interfaces_are_marked_before_the_first_and_after_the_last_store_of_an_erasing) {
    ASSERT_EQ(YB_STATUS_SUCCESS, add(1));
    const std::vector<part> rest = {{0, 113}, {114, offsetof(net_lib_db_interfaces_segment_t, trailer)}};
    const auto *const mark = static_cast<const uint8_t *>(interfaces_segment.body) + 113;
    std::vector<int> marks;
    std::vector<bytes> states = {copy_of(interfaces_segment, rest)};
    const pid_t child = fork();
    if (child == 0) {
        (void)ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        (void)raise(SIGSTOP);
        (void)net_lib_db_interfaces_load(2);
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    constexpr long enable_for_writes_of_one_byte = 0x10001;
    ASSERT_EQ(0, ptrace(PTRACE_POKEUSER, child, offsetof(struct user, u_debugreg[0]), mark));
    ASSERT_EQ(0, ptrace(PTRACE_POKEUSER, child, offsetof(struct user, u_debugreg[7]),
                        enable_for_writes_of_one_byte));
    for (;;) {
        (void)ptrace(PTRACE_CONT, child, nullptr, nullptr);
        ASSERT_EQ(child, waitpid(child, &status, 0));
        if (!WIFSTOPPED(status))
            break;
        marks.push_back(*mark);
        states.push_back(copy_of(interfaces_segment, rest));
    }
    EXPECT_THAT(marks, testing::ElementsAre(0xE5, 0));
    ASSERT_EQ(3u, states.size());
    EXPECT_TRUE(states[0] == states[1]) << "something was erased before";
    EXPECT_TRUE(is_as(interfaces_segment, rest, states[2])) << "something was erased after";
}

// ---- Ports ------------------------------------------------------------------

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
    state[76] = 0x29;
    put_back(ports_segment, table, state);
    platform::recorded() = {};
    ports_segment.description.repair_body(ports_segment.body);
    EXPECT_TRUE(is_as(ports_segment, table, erased));
    EXPECT_EQ(1u, warnings());
}

// ---- The lock's words -------------------------------------------------------

// All states that the lock goes through, each with the body of that moment, left by a process that is dead.
TEST_F(dying_change, lock_can_be_taken_in_every_state_that_it_goes_through) {
    const std::vector<part> lock = {{offsetof(net_lib_db_interfaces_segment_t, trailer),
                                     offsetof(net_lib_db_interfaces_segment_t, trailer) + 56}};
    const auto states = states_during(interfaces_segment, lock, [] { (void)add(2); });
    ASSERT_LT(6u, states.size());
    int takeovers = 0;
    for (size_t i = 0; i < states.size(); i++) {
        SCOPED_TRACE(testing::Message() << "state " << i << " of " << states.size());
        put_back(interfaces_segment, lock, states[i]);
        uint32_t words[7];
        memcpy(words, states[i].data(), sizeof(words));
        const bool recorded = words[1] == child_;
        EXPECT_EQ(recorded, i != 0 && i + 1 != states.size()) << "the holder is known from first to last";
        platform::recorded() = {};
        (void)interfaces_found();
        EXPECT_EQ(recorded ? 1u : 0u, warnings());
        takeovers += recorded ? 1 : 0;
        EXPECT_TRUE(is_as(interfaces_segment, lock, states.back())) << "as every release leaves it";
    }
    EXPECT_LT(4, takeovers);
}

} // namespace
