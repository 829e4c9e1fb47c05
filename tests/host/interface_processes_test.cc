// SPDX-License-Identifier: Apache-2.0
//
// The interface records between real processes: lookups of what others added,
// several writers at once with exact counts, and the lock held and waited for.
#include "ybnet/net_lib_db.h"

#include <csignal>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/processes.h"
#include "tests/support/recording_platform.h"
#include "tests/support/segment_file.h"

namespace {

constexpr size_t record_size = 116;
constexpr size_t in_use_offset = 112;

yb_net_interface_params_t named(uint32_t number, const char *ns = "") {
    yb_net_interface_params_t params = {};
    (void)snprintf(params.name, sizeof(params.name), "if%u", number);
    (void)snprintf(params.ns_name, sizeof(params.ns_name), "%s", ns);
    return params;
}

class interface_processes : public testing::Test {
  protected:
    void SetUp() override {
        platform::reset();
        segment_remove(interfaces_format);
        // The test itself loads nothing: each process is a user of its own. One makes the segment and stays.
        ASSERT_EQ(0, child_process([] { return static_cast<int>(net_lib_db_interfaces_load(0)); }).wait());
        view_ = std::make_unique<segment_view>(interfaces_format);
    }
    void TearDown() override {
        EXPECT_FALSE(view_->locked());
        segment_remove(interfaces_format);
    }

    // A process that has loaded the database while body runs.
    static child_process user(const std::function<int()> &body) {
        return child_process([&body] {
            if (net_lib_db_interfaces_load(0) != YB_STATUS_SUCCESS)
                return 200;
            const int result = body();
            return net_lib_db_interfaces_unload(0) == YB_STATUS_SUCCESS ? result : 201;
        });
    }
    segment_view &view() {
        return *view_;
    }
    size_t records_in_use() {
        size_t found = 0;
        for (size_t i = 0; i < 4096; i++)
            found += view().byte(i * record_size + in_use_offset) != 0 ? 1 : 0;
        return found;
    }
    size_t records_with_key(uint32_t sys_ifindex) {
        size_t found = 0;
        for (size_t i = 0; i < 4096; i++)
            found += view().byte(i * record_size + in_use_offset) != 0 &&
                             view().word(i * record_size) == sys_ifindex
                         ? 1
                         : 0;
        return found;
    }

  private:
    std::unique_ptr<segment_view> view_;
};

TEST_F(interface_processes, find_what_another_process_added) {
    EXPECT_EQ(0, user([] {
                     const yb_net_interface_params_t params = named(1, "red");
                     return static_cast<int>(net_lib_db_interface_add_full(0x101, 42, &params, 7, 8, 1));
                 }).wait());
    EXPECT_EQ(0, user([] {
                     yb_net_interface_record_t by_sys, by_linux, by_position;
                     if (net_lib_db_interface_get(0x101, &by_sys) != YB_STATUS_SUCCESS ||
                         net_lib_db_interface_get_by_linux_ifindex_ns(42, "red", &by_linux) !=
                             YB_STATUS_SUCCESS ||
                         net_lib_db_interface_get_by_db_index(0, &by_position) != YB_STATUS_SUCCESS)
                         return 1;
                     const bool same = memcmp(&by_sys, &by_linux, sizeof(by_sys)) == 0 &&
                                       memcmp(&by_sys, &by_position, sizeof(by_sys)) == 0;
                     return same && strcmp(by_sys.params.name, "if1") == 0 && by_sys.linux_ifindex == 42 &&
                                    by_sys.rif == 7 && by_sys.vrid == 8
                                ? 0
                                : 2;
                 }).wait());
    EXPECT_EQ(0, user([] { return static_cast<int>(net_lib_db_interface_remove(0x101)); }).wait());
    EXPECT_EQ(21, user([] {
                      yb_net_interface_record_t record;
                      return static_cast<int>(net_lib_db_interface_get(0x101, &record));
                  }).wait());
}

TEST_F(interface_processes, adding_looking_up_and_removing_at_once_end_with_exact_counts) {
    constexpr uint32_t processes = 6;
    constexpr uint32_t each = 150;
    shared_counter ready, start;
    const auto key = [](uint32_t process, uint32_t i) { return 1000 * (process + 1) + i; };
    std::vector<child_process> all;
    for (uint32_t process = 0; process < processes; process++) {
        const std::function<int()> body = [&, process] {
            ready.add();
            if (!start.wait_for(1))
                return 1;
            for (uint32_t i = 0; i < each; i++) {
                const yb_net_interface_params_t params = named(key(process, i));
                if (net_lib_db_interface_add_full(key(process, i), key(process, i), &params,
                                                  static_cast<uint16_t>(i), 255, 1) != YB_STATUS_SUCCESS)
                    return 2;
                yb_net_interface_record_t record;
                if (net_lib_db_interface_get(key(process, i), &record) != YB_STATUS_SUCCESS ||
                    record.rif != i || memcmp(&record.params, &params, sizeof(params)) != 0)
                    return 3;
                // Somebody else's record is whole or not there.
                const uint32_t other = key((process + 1) % processes, i);
                if (net_lib_db_interface_get_by_linux_ifindex(other, &record) == YB_STATUS_SUCCESS &&
                    (record.sys_ifindex != other || record.params.name != "if" + std::to_string(other)))
                    return 4;
                if (i % 2 == 1 && net_lib_db_interface_remove(key(process, i)) != YB_STATUS_SUCCESS)
                    return 5;
            }
            return 0;
        };
        all.push_back(user(body));
    }
    ASSERT_TRUE(ready.wait_for(static_cast<int>(processes)));
    start.add();
    for (child_process &one : all)
        EXPECT_EQ(0, one.wait());

    EXPECT_EQ(processes * each / 2, records_in_use());
    for (uint32_t process = 0; process < processes; process++)
        for (uint32_t i = 0; i < each; i++)
            ASSERT_EQ(i % 2 == 0 ? 1u : 0u, records_with_key(key(process, i)));
    EXPECT_EQ(1u, view().user_count());
}

TEST_F(interface_processes, racing_for_the_same_keys_add_each_once) {
    constexpr uint32_t keys = 300;
    shared_counter ready, start, added, refused;
    std::vector<child_process> all;
    const std::function<int()> body = [&] {
        ready.add();
        if (!start.wait_for(1))
            return 1;
        for (uint32_t i = 0; i < keys; i++) {
            const yb_net_interface_params_t params = named(i);
            switch (net_lib_db_interface_add(i, 5000 + i, &params)) {
            case YB_STATUS_SUCCESS:
                added.add();
                break;
            case YB_STATUS_ENTRY_ALREADY_EXISTS:
                refused.add();
                break;
            default:
                return 2;
            }
        }
        return 0;
    };
    for (int i = 0; i < 4; i++)
        all.push_back(user(body));
    ASSERT_TRUE(ready.wait_for(4));
    start.add();
    for (child_process &one : all)
        EXPECT_EQ(0, one.wait());
    EXPECT_EQ(static_cast<int>(keys), added.value());
    EXPECT_EQ(static_cast<int>(3 * keys), refused.value());
    EXPECT_EQ(keys, records_in_use());
}

// ---- The lock ----

TEST_F(interface_processes, wait_for_a_holder_of_the_lock_and_see_all_that_it_did) {
    shared_counter held, go_on, seen;
    const std::function<int()> hold = [&] {
        const yb_net_interface_params_t params = named(1);
        net_lib_db_interface_lock_acquire();
        if (net_lib_db_interface_add_full(1, 11, &params, 3, 4, 0) != YB_STATUS_SUCCESS)
            return 1;
        held.add();
        if (!go_on.wait_for(1))
            return 2;
        if (net_lib_db_interface_add_full(2, 12, &params, 3, 4, 0) != YB_STATUS_SUCCESS)
            return 3;
        net_lib_db_interface_lock_release();
        return 0;
    };
    // Loaded before the lock is held: a load takes it too.
    shared_counter loaded, look_now;
    const std::function<int()> look = [&] {
        loaded.add();
        if (!look_now.wait_for(1))
            return 1;
        yb_net_interface_record_t record;
        const yb_status_t status = net_lib_db_interface_get(2, &record);
        seen.add();
        return status == YB_STATUS_SUCCESS && record.linux_ifindex == 12 ? 0 : 2;
    };
    child_process looker = user(look);
    ASSERT_TRUE(loaded.wait_for(1));
    child_process holder = user(hold);
    ASSERT_TRUE(held.wait_for(1));
    EXPECT_TRUE(view().locked());
    look_now.add();
    EXPECT_TRUE(wait_until_blocked_on_lock(looker.pid()));
    EXPECT_EQ(0, seen.value());
    go_on.add();
    EXPECT_EQ(0, looker.wait());
    EXPECT_EQ(0, holder.wait());
}

TEST_F(interface_processes, that_load_wait_for_a_holder_too) {
    shared_counter held, go_on;
    const std::function<int()> hold = [&] {
        net_lib_db_interface_lock_acquire();
        held.add();
        if (!go_on.wait_for(1))
            return 1;
        net_lib_db_interface_lock_release();
        return 0;
    };
    child_process holder = user(hold);
    ASSERT_TRUE(held.wait_for(1));
    const std::function<int()> nothing = [] { return 0; };
    child_process comer = user(nothing);
    EXPECT_TRUE(wait_until_blocked_on_lock(comer.pid()));
    EXPECT_EQ(2u, view().user_count());
    go_on.add();
    EXPECT_EQ(0, comer.wait());
    EXPECT_EQ(0, holder.wait());
    EXPECT_EQ(1u, view().user_count());
}

} // namespace
