// SPDX-License-Identifier: Apache-2.0
//
// When the dispatcher holds the interfaces lock, and that it never touches its
// caller's memory then: a bad pointer must not leave the stack's lock taken.
// Other processes wait for it in the host tier (interface_lock_test.cc).
#include <csignal>
#include <functional>
#include <sys/mman.h>

#include "tests/support/processes.h"
#include "tests/unit/netdev_fixture.h"

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr uint32_t sys_ifindex = 40;

// A parameter block that can be locked away; touching it then unlocks it and notes whether the lock was held.
class watched_params {
  public:
    explicit watched_params(std::function<bool()> is_locked) : is_locked_(std::move(is_locked)) {
        memory_ = mmap(nullptr, page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        current = this;
        struct sigaction action = {};
        action.sa_sigaction = touched;
        action.sa_flags = SA_SIGINFO;
        (void)sigaction(SIGSEGV, &action, &old_);
    }
    ~watched_params() {
        (void)sigaction(SIGSEGV, &old_, nullptr);
        current = nullptr;
        (void)munmap(memory_, page);
    }
    yb_net_interface_params_t *operator->() {
        return params();
    }
    yb_net_interface_params_t *params() {
        return static_cast<yb_net_interface_params_t *>(memory_);
    }
    void lock_away() {
        (void)mprotect(memory_, page, PROT_NONE);
    }
    // Of each touch after lock_away(): whether the interfaces lock was held.
    std::vector<bool> touches;

  private:
    static constexpr size_t page = 4096;
    static watched_params *current;

    static void touched(int number, siginfo_t *info, void *) {
        const auto *const at = static_cast<const char *>(info->si_addr);
        const auto *const from = static_cast<const char *>(current->memory_);
        if (at < from || at >= from + page) {
            (void)signal(number, SIG_DFL); // somebody else's fault: crash there
            return;
        }
        current->touches.push_back(current->is_locked_());
        (void)mprotect(current->memory_, page, PROT_READ | PROT_WRITE);
    }

    std::function<bool()> is_locked_;
    void *memory_;
    struct sigaction old_;
};
watched_params *watched_params::current = nullptr;

class interface_set_lock : public netdev_test {
  protected:
    void SetUp() override {
        netdev_test::SetUp();
        make_netdev("swid0_eth");
        make_netdev("swp1");
        make_namespace("red");
        load();
        for (const char *const function : {"system", "popen"})
            calls::before(function, [this](int) { held.push_back(locked()); });
    }
    std::vector<bool> held; // at each command
};

} // namespace

TEST_F(interface_set_lock, is_held_across_every_command_of_a_full_create) {
    yb_net_interface_params_t params = vlan_params(0, 5, "red", YB_NET_NAME_FORMAT_VLAN);
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set_full(YB_ACCESS_CMD_CREATE, sys_ifindex, &params, 1, 2));
    EXPECT_THAT(held, ElementsAre(true, true, true, true));
    EXPECT_EQ(1, calls::count("segment_lock")) << "the record is added without locking again";
    EXPECT_FALSE(locked());
}

TEST_F(interface_set_lock, is_not_held_by_the_plain_entry) {
    yb_net_interface_params_t params = vlan_params(0, 5, "red", YB_NET_NAME_FORMAT_VLAN);
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set(YB_ACCESS_CMD_CREATE, sys_ifindex, &params));
    EXPECT_THAT(held, ElementsAre(false, false, false, false));
    EXPECT_EQ(1, calls::count("segment_lock"));
}

TEST_F(interface_set_lock, is_not_held_across_edit_and_destroy_of_the_full_entry) {
    yb_net_interface_params_t params = port_vlan_params("swp1", 7, "red");
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set(YB_ACCESS_CMD_CREATE, sys_ifindex, &params));
    held.clear();
    params.by_type.port_vlan.vlan_id = 8;
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set_full(YB_ACCESS_CMD_EDIT, sys_ifindex, &params, 1, 2));
    EXPECT_EQ(YB_STATUS_SUCCESS,
              yb_net_interface_set_full(YB_ACCESS_CMD_DESTROY, sys_ifindex, nullptr, 1, 2));
    EXPECT_THAT(held, Not(IsEmpty()));
    EXPECT_THAT(held, Each(false));
}

TEST_F(interface_set_lock, is_released_whatever_the_status) {
    const auto status_of_create = [](yb_net_interface_params_t params) {
        const yb_status_t status =
            yb_net_interface_set_full(YB_ACCESS_CMD_CREATE, sys_ifindex, &params, 1, 2);
        EXPECT_FALSE(locked());
        return status;
    };
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, status_of_create(vlan_params(9, 5)));
    yb_net_interface_params_t unknown = loopback_params("lo1");
    unknown.type = 4;
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, status_of_create(unknown));
    EXPECT_EQ(YB_STATUS_PARAM_ERROR, status_of_create(port_params("")));
    shims.replace("vconfig", "exit 1");
    EXPECT_EQ(YB_STATUS_ERROR, status_of_create(vlan_params(0, 5)));
    EXPECT_EQ(YB_STATUS_SUCCESS, status_of_create(loopback_params("lo1")));
    EXPECT_EQ(YB_STATUS_ENTRY_ALREADY_EXISTS, status_of_create(loopback_params("lo2")));
    shims.replace("ip", "exit 0");
    EXPECT_EQ(YB_STATUS_ERROR, status_of_create(loopback_params("lo3"))); // not found
    EXPECT_EQ(YB_STATUS_PARAM_NULL,
              yb_net_interface_set_full(YB_ACCESS_CMD_CREATE, sys_ifindex, nullptr, 1, 2));
    EXPECT_FALSE(locked());
}

// ---- The caller's memory ----------------------------------------------------

TEST_F(interface_set_lock, parameters_are_read_before_it_is_taken) {
    watched_params params(locked);
    *params.params() = loopback_params("lo1", "red");
    params.lock_away();
    EXPECT_EQ(YB_STATUS_SUCCESS,
              yb_net_interface_set_full(YB_ACCESS_CMD_CREATE, sys_ifindex, params.params(), 1, 2));
    EXPECT_THAT(params.touches, ElementsAre(false));
}

TEST_F(interface_set_lock, name_is_written_back_after_its_release) {
    watched_params params(locked);
    *params.params() = vlan_params(0, 5, "red");
    calls::before("system", [&params](int) { params.lock_away(); });
    EXPECT_EQ(YB_STATUS_SUCCESS,
              yb_net_interface_set_full(YB_ACCESS_CMD_CREATE, sys_ifindex, params.params(), 1, 2));
    EXPECT_THAT(params.touches, ElementsAre(false));
    EXPECT_STREQ("swid0_eth.5", params->name);
    EXPECT_STREQ("swid0_eth.5", stored(sys_ifindex).params.name);
}

TEST_F(interface_set_lock, callers_change_during_a_create_reaches_neither_netdev_nor_record) {
    yb_net_interface_params_t params = vlan_params(0, 5, "red");
    calls::before("system", [&params](int) { params = loopback_params("changed", "changed"); });
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set_full(YB_ACCESS_CMD_CREATE, sys_ifindex, &params, 1, 2));
    EXPECT_STREQ("swid0_eth.5", stored(sys_ifindex).params.name);
    EXPECT_STREQ("red", stored(sys_ifindex).params.ns_name);
    EXPECT_TRUE(netdev_exists("swid0_eth.5", "red"));
}

TEST_F(interface_set_lock, block_that_cannot_be_written_is_fine_when_no_name_is_given_back) {
    watched_params params(locked);
    *params.params() = loopback_params("lo1", "red");
    calls::before("system", [&params](int) { params.lock_away(); });
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set(YB_ACCESS_CMD_CREATE, sys_ifindex, params.params()));
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set(YB_ACCESS_CMD_DESTROY, sys_ifindex, params.params()));
    EXPECT_LE(params.touches.size(), 1u) << "at most the comparison of the name";
    EXPECT_THAT(params.touches, Each(false));
}

TEST_F(interface_set_lock, bad_pointer_crashes_its_caller_and_leaves_the_lock_free) {
    auto *const nonsense = reinterpret_cast<yb_net_interface_params_t *>(8);
    child_process caller([nonsense] {
        return static_cast<int>(yb_net_interface_set_full(YB_ACCESS_CMD_CREATE, sys_ifindex, nonsense, 1, 2));
    });
    EXPECT_EQ(128 + SIGSEGV, caller.wait());
    EXPECT_FALSE(locked());
    EXPECT_FALSE(is_stored(sys_ifindex));
}
