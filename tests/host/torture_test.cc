// SPDX-License-Identifier: Apache-2.0
//
// Twenty processes that load, add, look up, set, remove, erase and unload on both databases, while a killer sends
// SIGKILL to one after the other. Nobody hangs, every record read is whole, locks are taken over from the killed ones
// alone, the user counts are explained by what the processes had begun and ended, and the last state is in order.
//
// YBNET_TORTURE_KILLS=N for another number of kills in each test than the short 150; YBNET_TEST_SEED=S for another
// seed.
#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <random>
#include <set>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/host/torture_worker.h"
#include "tests/support/processes.h"
#include "tests/support/recording_platform.h"
#include "tests/support/segment_file.h"
#include "ybnet/net_lib_db.h"
#include "ybnet/net_lib_db_layout.h"

namespace {

long number_from(const char *variable, long otherwise) {
    const char *const text = getenv(variable);
    return text == nullptr ? otherwise : strtol(text, nullptr, 0);
}

enum class aim { anywhere, outside_loads_and_unloads };

class torture : public testing::Test {
  protected:
    void run(aim where);

    void SetUp() override {
        platform::reset();
        for (const database &db : databases)
            segment_remove(db.format);
        void *const memory =
            mmap(nullptr, sizeof(tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        ASSERT_NE(MAP_FAILED, memory);
        all_ = new (memory) tally{};
        // Stays, so that the segments do, and what the processes did to them.
        keeper_ = std::make_unique<child_process>([this] {
            for (const database &db : databases)
                (void)db.load(0);
            ready_.add();
            (void)leave_.wait_for(1, std::chrono::hours(1));
            for (const database &db : databases)
                (void)db.unload(0);
            return 0;
        });
        ASSERT_TRUE(ready_.wait_for(1));
    }
    void TearDown() override {
        (void)munmap(all_, sizeof(*all_));
    }

    std::unique_ptr<child_process> new_worker(int number) {
        const uint64_t seed = random_();
        return std::make_unique<child_process>(
            [this, number, seed] { return worker(*all_, number, seed).run(); });
    }
    // Every other time the worker that has a lock at that moment, when there is one.
    size_t next_victim(const std::vector<std::unique_ptr<child_process>> &all) {
        const auto any = static_cast<size_t>(random_() % workers);
        const uint64_t choice = random_() % 4;
        if (choice >= 2)
            return any;
        const segment_view view(databases[choice].format);
        for (int look = 0; look < 1000; look++) {
            const auto holder = static_cast<pid_t>(view.word(databases[choice].format.lock + 4) & 0x3FFFFF);
            for (size_t i = 0; i < all.size(); i++) {
                if (all[i]->pid() == holder)
                    return i;
            }
        }
        return any;
    }
    // The next victim, stopped, and neither in a load nor in an unload: what it has registered is known exactly. One
    // that holds a lock, if such a one turns up soon.
    size_t stop_next_victim(const std::vector<std::unique_ptr<child_process>> &all) {
        for (int look = 0;; look++) {
            const size_t victim = next_victim(all);
            all[victim]->signal(SIGSTOP);
            int status = 0;
            (void)waitpid(all[victim]->pid(), &status, WUNTRACED);
            if (!all_->loads_or_unloads[victim] && (look > 8 || holds_a_lock(all[victim]->pid())))
                return victim;
            all[victim]->signal(SIGCONT);
        }
    }
    static bool holds_a_lock(pid_t pid) {
        return std::any_of(std::begin(databases), std::end(databases), [pid](const database &db) {
            return segment_view(db.format).word(db.format.lock + 4) == static_cast<uint32_t>(pid);
        });
    }
    // Every worker gets on; asked for again and again, because a lock that is stuck stops them all.
    void expect_progress() {
        std::array<long, workers> before = {};
        for (size_t i = 0; i < workers; i++)
            before[i] = all_->operations[i];
        for (size_t i = 0; i < workers; i++) {
            const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
            while (all_->operations[i] == before[i] && std::chrono::steady_clock::now() < limit)
                usleep(1000);
            ASSERT_NE(before[i], all_->operations[i]) << "worker " << i << " hangs";
        }
    }
    void expect_count_explained(size_t number, bool exactly) {
        const auto &users = all_->users[number];
        const long least = 1 + users.loads_ended - users.unloads_begun;
        const long most = 1 + users.loads_begun - users.unloads_ended;
        if (exactly) {
            EXPECT_EQ(least, most);
        }
        const long counted = segment_view(databases[number].format).user_count();
        printf("%s: %ld users, between %ld and %ld\n", databases[number].format.path, counted, least, most);
        EXPECT_LE(least, counted);
        EXPECT_GE(most, counted);
    }
    // From each of the killed ones at most once, and from nobody else.
    void expect_takeovers_explained(std::vector<uint32_t> killed) {
        const std::vector<uint32_t> noted(std::begin(all_->taken_over_from), std::end(all_->taken_over_from));
        std::vector<uint32_t> from(noted.begin(), std::find(noted.begin(), noted.end(), 0u));
        printf("%zu takeovers\n", from.size());
        EXPECT_GE(killed.size(), from.size());
        if (killed.size() >= 150) {
            EXPECT_FALSE(from.empty()) << "nobody died with a lock";
        }
        std::sort(from.begin(), from.end());
        std::sort(killed.begin(), killed.end());
        std::vector<uint32_t> others;
        std::set_difference(from.begin(), from.end(), killed.begin(), killed.end(),
                            std::back_inserter(others));
        EXPECT_EQ(std::vector<uint32_t>(), others) << "locks were taken over from those that were not killed";
    }
    static void expect_in_order() {
        const std::vector<uint8_t> interfaces = segment_bytes(interfaces_format);
        const auto &table = *reinterpret_cast<const net_lib_db_interfaces_segment_t *>(interfaces.data());
        std::set<uint32_t> keys;
        for (const net_lib_db_interface_entry_t &entry : table.entries) {
            EXPECT_EQ(0, entry.reserved[0] | entry.reserved[1] | entry.reserved[2]);
            EXPECT_LE(entry.in_use, 1);
            if (entry.in_use == 0)
                continue;
            EXPECT_TRUE(is_whole(entry.record));
            EXPECT_TRUE(keys.insert(entry.record.sys_ifindex).second) << "twice";
        }
        const std::vector<uint8_t> ports = segment_bytes(ports_format);
        const auto &body = *reinterpret_cast<const net_lib_db_ports_segment_t *>(ports.data());
        keys.clear();
        for (const net_lib_port_entry_t &bucket : body.port_table) {
            EXPECT_EQ(0, bucket.reserved[0] | bucket.reserved[1] | bucket.reserved[2]);
            EXPECT_LE(bucket.deleted, 1);
            if (bucket.hash == 0 || bucket.deleted != 0)
                continue;
            EXPECT_TRUE(is_whole(bucket.info));
            EXPECT_EQ(bucket.sys_ifindex, bucket.info.attr_i);
            EXPECT_EQ(bucket.sys_ifindex, body.port_to_ifindex[bucket.sys_ifindex]) << "in the map";
            EXPECT_TRUE(keys.insert(bucket.sys_ifindex).second) << "twice";
        }
        for (const database &db : databases) {
            EXPECT_FALSE(segment_view(db.format).locked());
            EXPECT_EQ(0u, segment_view(db.format).word(db.format.lock + 4)) << "a holder is recorded still";
        }
    }

    tally *all_ = nullptr;
    shared_counter ready_;
    shared_counter leave_;
    std::unique_ptr<child_process> keeper_;
    std::mt19937_64 random_;
};

void torture::run(aim where) {
    const long kills = number_from("YBNET_TORTURE_KILLS", 150);
    const auto seed =
        static_cast<uint64_t>(number_from("YBNET_TEST_SEED", static_cast<long>(std::random_device{}())));
    printf("torture: YBNET_TEST_SEED=%llu, %ld kills\n", static_cast<unsigned long long>(seed), kills);
    (void)fflush(stdout); // or every child says it again
    random_.seed(seed);

    std::vector<std::unique_ptr<child_process>> all;
    for (int i = 0; i < workers; i++)
        all.push_back(new_worker(i));
    std::vector<uint32_t> killed;
    for (long kill = 0; kill < kills; kill++) {
        usleep(static_cast<useconds_t>(random_() % 60'000));
        const size_t victim = where == aim::anywhere ? next_victim(all) : stop_next_victim(all);
        killed.push_back(static_cast<uint32_t>(all[victim]->pid()));
        all[victim]->signal(SIGKILL);
        (void)all[victim]->wait();
        all[victim] = new_worker(static_cast<int>(victim));
        if (kill % 50 == 49)
            expect_progress();
        if (HasFatalFailure())
            break;
    }
    expect_progress();
    all_->stop = true;
    for (auto &one : all)
        EXPECT_EQ(0, one->wait());

    long operations = 0;
    for (const auto &one : all_->operations)
        operations += one;
    printf("%ld rounds of operations, %ld repairs\n", operations, all_->repairs.load());
    EXPECT_EQ(0, all_->torn);
    EXPECT_EQ(0, all_->assertions);
    EXPECT_EQ(0, all_->failed_loads);
    expect_takeovers_explained(killed);
    for (size_t i = 0; i < 2; i++)
        expect_count_explained(i, where == aim::outside_loads_and_unloads);
    expect_in_order();
    leave_.add();
    EXPECT_EQ(0, keeper_->wait());
}

TEST_F(torture, of_both_databases_by_processes_that_are_killed) {
    run(aim::anywhere);
}

TEST_F(torture, counts_exactly_those_that_are_killed_outside_loads_and_unloads) {
    run(aim::outside_loads_and_unloads);
}

} // namespace
