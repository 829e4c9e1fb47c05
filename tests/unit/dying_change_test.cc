// SPDX-License-Identifier: Apache-2.0
//
// A process that dies in the middle of a change, at every instruction that changed shared memory: a child makes
// the change one step at a time under ptrace(2), every state that the segment goes through is kept, and each is
// repaired and looked at. The lock's own words go the same way, but through real takeovers. The ports are
// dying_port_change_test.cc's.
#include "tests/unit/dying_change_fixture.h"

#include <set>
#include <sys/user.h>

namespace {

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
        memcpy(&state[113], "\xD1\xA3\xE5", 3);
        put_back(interfaces_segment, everything, state);
        platform::recorded() = {};
        interfaces_segment.description.repair_body(interfaces_segment.body);
        EXPECT_TRUE(is_as(interfaces_segment, everything, erased));
        EXPECT_EQ(1u, warnings());
    }
}

TEST_F(dying_change, interfaces_are_not_erased_for_less_than_the_whole_mark) {
    ASSERT_EQ(YB_STATUS_SUCCESS, add(1));
    ASSERT_EQ(YB_STATUS_SUCCESS, add(2));
    const bytes before = copy_of(interfaces_segment, first_interfaces);
    for (const char *const stray : {"\xE5\0\0", "\xD1\0\0", "\xD1\xA3\0", "\0\xA3\xE5", "\xFF\xFF\xFF"}) {
        bytes state = before;
        memcpy(&state[113], stray, 3);
        put_back(interfaces_segment, first_interfaces, state);
        platform::recorded() = {};
        interfaces_segment.description.repair_body(interfaces_segment.body);
        EXPECT_TRUE(is_as(interfaces_segment, first_interfaces, state)) << "nothing is touched";
        EXPECT_EQ(0u, warnings());
    }
}

// A child stops after each store to one word, by the processor's own watch on it.
TEST_F(dying_change, interfaces_are_marked_before_the_first_and_after_the_last_store_of_an_erasing) {
    ASSERT_EQ(YB_STATUS_SUCCESS, add(1));
    const std::vector<part> rest = {{0, 112}, {116, offsetof(net_lib_db_interfaces_segment_t, trailer)}};
    const auto *const mark = static_cast<const uint8_t *>(interfaces_segment.body) + 112;
    std::vector<uint32_t> marks;
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
    constexpr long enable_for_writes_of_four_bytes = 0xD0001;
    ASSERT_EQ(0, ptrace(PTRACE_POKEUSER, child, offsetof(struct user, u_debugreg[0]), mark));
    ASSERT_EQ(0, ptrace(PTRACE_POKEUSER, child, offsetof(struct user, u_debugreg[7]),
                        enable_for_writes_of_four_bytes));
    for (;;) {
        (void)ptrace(PTRACE_CONT, child, nullptr, nullptr);
        ASSERT_EQ(child, waitpid(child, &status, 0));
        if (!WIFSTOPPED(status))
            break;
        uint32_t word;
        memcpy(&word, mark, sizeof(word));
        marks.push_back(word);
        states.push_back(copy_of(interfaces_segment, rest));
    }
    EXPECT_THAT(marks, testing::ElementsAre(0xE5A3D101, 0)) << "in use until the end";
    ASSERT_EQ(3u, states.size());
    EXPECT_TRUE(states[0] == states[1]) << "something was erased before";
    EXPECT_TRUE(is_as(interfaces_segment, rest, states[2])) << "something was erased after";
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
        const bool recorded = cl_plock_bytes::id_of(words[1]) == child_;
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
