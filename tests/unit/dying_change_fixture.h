// SPDX-License-Identifier: Apache-2.0
//
// What the tests of processes that die in the middle of a change share: both databases loaded, and all the states
// that a part of a segment goes through while a child makes a change, one step at a time under ptrace(2).
#ifndef YBNET_TESTS_DYING_CHANGE_FIXTURE_H
#define YBNET_TESTS_DYING_CHANGE_FIXTURE_H

#include <csignal>
#include <cstdio>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "net_lib_db/interfaces_segment.h"
#include "net_lib_db/ports_segment.h"
#include "tests/support/recording_platform.h"
#include "ybnet/net_lib_db.h"

inline constexpr uint32_t severity_warn = 3;

// The part of a segment that the changes of these tests touch, as it was at one moment.
using bytes = std::vector<uint8_t>;
struct part {
    size_t from;
    size_t to;
};

inline uint16_t low_bits(void *, const uint8_t *data, uint32_t, uint16_t) {
    uint32_t key = 0;
    memcpy(&key, data, sizeof(key));
    return static_cast<uint16_t>(key & 0xFF); // a key 0x1NN has the home 0xNN, as has 0x2NN
}

// Where the steps begin. Up to the first store to the records nothing changes but the lock's words; the way there is
// long where a table is searched through.
enum class steps { from_the_start, from_the_first_store };

// The pages of a segment that hold records alone, closed to stores until the first one is tried.
class closed_records {
  public:
    static void close(const segment &seg) {
        address_ = seg.body;
        length_ = seg.description.trailer_offset / 4096 * 4096;
        struct sigaction action = {};
        action.sa_handler = open;
        (void)sigaction(SIGSEGV, &action, nullptr);
        (void)mprotect(address_, length_, PROT_READ);
    }

  private:
    static void open(int) {
        (void)mprotect(address_, length_, PROT_READ | PROT_WRITE);
    }
    static inline void *address_;
    static inline size_t length_;
};

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
    std::vector<bytes> states_during(const segment &seg, const std::vector<part> &parts, change_t change,
                                     steps begin = steps::from_the_start) {
        std::vector<bytes> states = {copy_of(seg, parts)};
        const pid_t child = fork();
        if (child == 0) {
            (void)ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            if (begin == steps::from_the_first_store)
                closed_records::close(seg);
            (void)raise(SIGSTOP);
            change();
            _exit(0);
        }
        int status = 0;
        EXPECT_EQ(child, waitpid(child, &status, 0));
        intptr_t signal = 0;
        if (begin == steps::from_the_first_store) {
            (void)ptrace(PTRACE_CONT, child, nullptr, nullptr);
            EXPECT_EQ(child, waitpid(child, &status, 0));
            signal = SIGSEGV;
            EXPECT_TRUE(WIFSTOPPED(status) && WSTOPSIG(status) == signal) << "no store to the records";
        }
        steps_ = 0;
        while (WIFSTOPPED(status)) {
            if (!is_as(seg, parts, states.back()))
                states.push_back(copy_of(seg, parts));
            steps_++;
            (void)ptrace(PTRACE_SINGLESTEP, child, nullptr, signal);
            signal = 0;
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

#endif
