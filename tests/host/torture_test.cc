// SPDX-License-Identifier: Apache-2.0
//
// Twenty processes that load, add, look up, set, remove, erase and unload on both databases, while a killer sends
// SIGKILL to one after the other. Nobody hangs, every record read is whole, the user counts are explained by what
// the processes had begun and ended, and the last state is in order.
//
// YBNET_TORTURE_KILLS=N for another number of kills than the short 50; YBNET_TEST_SEED=S for another seed.
#include <array>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <set>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include "tests/support/processes.h"
#include "tests/support/recording_platform.h"
#include "tests/support/segment_file.h"
#include "ybnet/net_lib_db.h"
#include "ybnet/net_lib_db_layout.h"

namespace {

constexpr int workers = 20;
constexpr uint32_t interface_keys = 64;
constexpr uint32_t port_keys = 300;
constexpr uint32_t severity_warn = 3;

struct database {
    yb_status_t (*load)(uint32_t);
    yb_status_t (*unload)(uint32_t);
    segment_format format;
};
constexpr database databases[] = {
    {net_lib_db_interfaces_load, net_lib_db_interfaces_unload, interfaces_format},
    {net_lib_db_ports_load, net_lib_db_ports_unload, ports_format}};

// What all processes share: what each has done so far, and what anybody has seen go wrong.
struct tally {
    struct {
        std::atomic<long> loads_begun, loads_ended, unloads_begun, unloads_ended;
    } users[2];
    std::atomic<long> operations[workers];
    std::atomic<long> takeovers, repairs, torn, assertions, failed_loads;
    std::atomic<bool> stop;
};

// ---- Records that tell whether they are whole ----

yb_net_interface_params_t block_of(uint8_t byte) {
    yb_net_interface_params_t params;
    memset(&params, byte, sizeof(params));
    params.ns_name[31] = 0;
    return params;
}
bool is_whole(const yb_net_interface_record_t &record) {
    const yb_net_interface_params_t expected = block_of(static_cast<uint8_t>(record.params.name[0]));
    return memcmp(&record.params, &expected, sizeof(expected)) == 0 && record.sys_ifindex >= 1 &&
           record.sys_ifindex <= interface_keys && record.linux_ifindex == record.sys_ifindex + 1000;
}

yb_net_port_info_t info_of(uint32_t key, uint8_t byte) {
    yb_net_port_info_t info = {};
    info.attr_a = byte;
    info.attr_c = byte;
    info.attr_i = key;
    info.log_port = key << 8;
    memset(info.name, byte, sizeof(info.name));
    memset(info.attr_g, byte, sizeof(info.attr_g));
    info.attr_h = byte;
    return info;
}
bool is_whole(const yb_net_port_info_t &info) {
    const yb_net_port_info_t expected = info_of(info.attr_i, info.attr_a);
    static constexpr yb_net_port_info_t nothing = {};
    return memcmp(&info, &expected, sizeof(info)) == 0 || memcmp(&info, &nothing, sizeof(info)) == 0;
}

// ---- A worker ----

class worker {
  public:
    worker(tally &all, int number, uint64_t seed) : all_(all), number_(number), random_(seed) {}

    int run() {
        struct rlimit limit = {4096, 4096}; // each load keeps a descriptor
        (void)setrlimit(RLIMIT_NOFILE, &limit);
        load_both();
        for (int loads = 0; !all_.stop.load();) {
            interface_operation();
            port_operation();
            note_messages();
            all_.operations[number_]++;
            if (below(100) == 0 && loads < 1000) {
                loads++;
                unload_both();
                load_both();
            }
        }
        unload_both();
        note_messages();
        return 0;
    }

  private:
    uint32_t below(uint32_t limit) {
        return static_cast<uint32_t>(random_() % limit);
    }
    uint8_t any_byte() {
        return static_cast<uint8_t>(1 + below(254));
    }
    void load_both() {
        for (size_t i = 0; i < 2; i++) {
            all_.users[i].loads_begun++;
            // Now and then the first load erases.
            if (databases[i].load(below(50) == 0 ? 1 : 0) != YB_STATUS_SUCCESS)
                all_.failed_loads++;
            all_.users[i].loads_ended++;
        }
    }
    void unload_both() {
        for (size_t i = 0; i < 2; i++) {
            all_.users[i].unloads_begun++;
            (void)databases[i].unload(0);
            all_.users[i].unloads_ended++;
        }
    }
    void interface_operation() {
        const uint32_t key = 1 + below(interface_keys);
        yb_net_interface_record_t record;
        switch (below(8)) {
        case 0:
        case 1: {
            const yb_net_interface_params_t params = block_of(any_byte());
            (void)net_lib_db_interface_add(key, key + 1000, &params);
            break;
        }
        case 2:
            (void)net_lib_db_interface_remove(key);
            break;
        case 3:
            (void)net_lib_db_interface_rif_add(key, any_byte());
            break;
        default:
            if (net_lib_db_interface_get(key, &record) == YB_STATUS_SUCCESS && !is_whole(record))
                all_.torn++;
        }
    }
    void port_operation() {
        const uint32_t key = 1 + below(port_keys);
        yb_net_port_info_t info = info_of(key, any_byte());
        switch (below(10)) {
        case 0:
        case 1:
        case 2:
        case 3:
            (void)net_lib_db_port_set(key, &info);
            break;
        case 4:
            (void)net_lib_db_port_remove(key);
            break;
        case 5:
            if (below(50) == 0) // deleted buckets pile up
                (void)net_lib_db_ports_load(2);
            break;
        case 6: {
            std::array<yb_net_port_info_t, 64> list;
            uint32_t size = list.size();
            (void)net_lib_db_ports_get_all(0, list.data(), &size);
            for (uint32_t i = 0; i < size; i++)
                all_.torn += is_whole(list[i]) ? 0 : 1;
            break;
        }
        default:
            if (net_lib_db_port_get(key, &info) == YB_STATUS_SUCCESS && !is_whole(info))
                all_.torn++;
        }
    }
    void note_messages() {
        for (const platform::log_line &line : platform::recorded().log) {
            if (line.module != "YB_NET_LIB")
                all_.assertions++;
            else if (line.severity == severity_warn)
                (line.text.find("lock taken over") != std::string::npos ? all_.takeovers : all_.repairs)++;
        }
        platform::recorded() = {};
    }

    tally &all_;
    int number_;
    std::mt19937_64 random_;
};

// ---- The killer ----

long number_from(const char *variable, long otherwise) {
    const char *const text = getenv(variable);
    return text == nullptr ? otherwise : strtol(text, nullptr, 0);
}

class torture : public testing::Test {
  protected:
    void SetUp() override {
        platform::reset();
        void *const memory =
            mmap(nullptr, sizeof(tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        ASSERT_NE(MAP_FAILED, memory);
        all_ = new (memory) tally{};
        // Stays, so that the segments do: a creator that is killed leaves one that nobody can use, as documented.
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
    void expect_count_explained(size_t number) {
        const auto &users = all_->users[number];
        const long least = 1 + users.loads_ended - users.unloads_begun;
        const long most = 1 + users.loads_begun - users.unloads_ended;
        const long counted = segment_view(databases[number].format).user_count();
        printf("%s: %ld users, between %ld and %ld\n", databases[number].format.path, counted, least, most);
        EXPECT_LE(least, counted);
        EXPECT_GE(most, counted);
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

TEST_F(torture, of_both_databases_by_processes_that_are_killed) {
    const long kills = number_from("YBNET_TORTURE_KILLS", 50);
    const auto seed =
        static_cast<uint64_t>(number_from("YBNET_TEST_SEED", static_cast<long>(std::random_device{}())));
    printf("torture: YBNET_TEST_SEED=%llu, %ld kills\n", static_cast<unsigned long long>(seed), kills);
    (void)fflush(stdout); // or every child says it again
    random_.seed(seed);

    std::vector<std::unique_ptr<child_process>> all;
    for (int i = 0; i < workers; i++)
        all.push_back(new_worker(i));
    for (long kill = 0; kill < kills; kill++) {
        usleep(static_cast<useconds_t>(random_() % 60'000));
        const size_t victim = next_victim(all);
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
    printf("%ld rounds of operations, %ld takeovers, %ld repairs\n", operations, all_->takeovers.load(),
           all_->repairs.load());
    EXPECT_EQ(0, all_->torn);
    EXPECT_EQ(0, all_->assertions);
    EXPECT_EQ(0, all_->failed_loads);
    for (size_t i = 0; i < 2; i++)
        expect_count_explained(i);
    expect_in_order();
    leave_.add();
    EXPECT_EQ(0, keeper_->wait());
}

} // namespace
