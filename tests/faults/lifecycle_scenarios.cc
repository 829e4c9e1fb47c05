// SPDX-License-Identifier: Apache-2.0
//
// Starting and stopping, loading and unloading: as the first user and as one of several, of segments in order and
// of segments that a process left when it died; and what a forked child does before it returns from fork(2).
#include "tests/faults/scenario.h"

#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/faults/injector.h"
#include "tests/support/processes.h"
#include "tests/support/segment_file.h"
#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db.h"

namespace faults {

namespace {

using loading = yb_status_t (*)(uint32_t);

// One of the two databases.
struct database {
    const char *load_name;
    loading load;
    const char *unload_name;
    loading unload;
    segment_format format;
};
constexpr database interfaces = {"net_lib_db_interfaces_load", net_lib_db_interfaces_load,
                                 "net_lib_db_interfaces_unload", net_lib_db_interfaces_unload,
                                 interfaces_format};
constexpr database ports = {"net_lib_db_ports_load", net_lib_db_ports_load, "net_lib_db_ports_unload",
                            net_lib_db_ports_unload, ports_format};

// ---- Loading and unloading --------------------------------------------------

void load(const database &database) {
    must(database.load(0) == YB_STATUS_SUCCESS, "a loaded database");
}

// A process that loads, and ends without unloading: its registration stays.
void be_used_by_another(const database &database) {
    child_process user([&database] { return static_cast<int>(database.load(0)); });
    must(user.wait() == 0, "another user");
}

// As a last user leaves it that dies after it has destroyed the lock.
void be_left_by_a_dying_user(const database &database) {
    constexpr uint32_t destroyed = 4;
    be_used_by_another(database);
    segment_view(database.format).set_word(database.format.lock_state(), destroyed);
}

// As its creator has it that is not done, but will be as soon as it is waited for.
void be_half_made(const database &database) {
    be_used_by_another(database);
    static const segment_format format = database.format;
    static uint32_t size_check;
    size_check = segment_view(format).word(format.size_check());
    segment_view(format).set_word(format.size_check(), 0);
    before_call("nanosleep", [] { segment_view(format).set_word(format.size_check(), size_check); });
}

// A load keeps one descriptor of the segment, also when it fails (net_lib_db.h).
constexpr const char *descriptor_of_a_load = "/dev/shm/net_lib_";

scenario loading_scenario(const database &database, const char *situation,
                          void (*prepare)(const struct database &), uint32_t reinitialize = 0) {
    return {database.load_name,
            situation,
            given::nothing,
            [&database, prepare] { prepare(database); },
            [&database, reinitialize](std::string *) { return database.load(reinitialize); },
            descriptor_of_a_load};
}

scenario unloading_scenario(const database &database, const char *situation,
                            void (*prepare)(const struct database &)) {
    return {database.unload_name, situation, given::nothing, [&database, prepare] { prepare(database); },
            [&database](std::string *) { return database.unload(0); }};
}

// What both do.
void add_loading(std::vector<scenario> &all, const database &database) {
    all.push_back(loading_scenario(database, "first_user", [](const struct database &) {}));
    all.push_back(loading_scenario(database, "second_user", be_used_by_another));
    all.push_back(unloading_scenario(database, "last_user", load));
}

// What differs in the frame of both, by the smaller one.
void add_rare_loading(std::vector<scenario> &all) {
    all.push_back(loading_scenario(interfaces, "erasing", be_used_by_another, 1));
    all.push_back(loading_scenario(interfaces, "loaded_before", load, 1));
    all.push_back(loading_scenario(interfaces, "half_made", be_half_made));
    all.push_back(loading_scenario(interfaces, "left_by_a_dying_user", be_left_by_a_dying_user));
    all.push_back(unloading_scenario(interfaces, "one_of_two", [](const database &database) {
        be_used_by_another(database);
        load(database);
    }));
}

// ---- Starting and stopping --------------------------------------------------

void start() {
    must(yb_net_init(nullptr, 3, 0) == YB_STATUS_SUCCESS, "a started library");
}

void add_halves(std::vector<scenario> &all) {
    const auto add_init = [&all](const char *function, yb_status_t (*init)(yb_log_cb_t, uint32_t, uint32_t)) {
        const auto call = [init](std::string *) { return init(nullptr, 3, 0); };
        all.push_back({function, "", given::nothing, {}, call, descriptor_of_a_load});
    };
    add_init("yb_net_init", yb_net_init);
    add_init("yb_net_interfaces_init", yb_net_interfaces_init);
    add_init("yb_net_ports_init", yb_net_ports_init);
    const auto add_deinit = [&all](const char *function, std::function<yb_status_t()> deinit) {
        const auto call = [deinit = std::move(deinit)](std::string *) { return deinit(); };
        all.push_back({function, "", given::nothing, start, call});
    };
    add_deinit("yb_net_deinit", yb_net_deinit);
    add_deinit("yb_net_interfaces_deinit", [] { return yb_net_interfaces_deinit(0); });
    add_deinit("yb_net_ports_deinit", [] { return yb_net_ports_deinit(0); });
}

// Goes on as the child, which ends its parent's part too.
uint32_t fork_and_list_ports(std::string *answer) {
    const pid_t child = fork();
    if (child != 0) {
        int status = 0;
        must(waitpid(child, &status, 0) == child && status == 0, "the forked child");
        _exit(0);
    }
    uint32_t count = 0;
    const yb_status_t status = net_lib_db_ports_get_all(0, nullptr, &count);
    *answer = bytes_of(count);
    return status;
}

// ---- A lock that is not free --------------------------------------------------

// Another process has the lock, and gives it back when the one that waits looks whether it is alive.
void be_locked_by_a_slow_process() {
    static shared_counter held;
    static shared_counter looked_at;
    load(interfaces);
    const pid_t holder = fork();
    must(holder >= 0, "a slow holder");
    if (holder == 0) {
        (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
        net_lib_db_interface_lock_acquire();
        held.add();
        (void)looked_at.wait_for(1);
        net_lib_db_interface_lock_release();
        _exit(0);
    }
    must(held.wait_for(1), "a lock that is held");
    before_call("tkill", [] { looked_at.add(); });
}

void be_locked_by_a_dead_process() {
    load(interfaces);
    child_process holder([] {
        net_lib_db_interface_lock_acquire();
        return 0;
    });
    must(holder.wait() == 0, "a dead holder");
}

uint32_t wait_for_the_lock(std::string *answer) {
    yb_net_interface_record_t record;
    const yb_status_t status = net_lib_db_interface_get_by_db_index(0, &record);
    *answer = bytes_of(status);
    return status;
}

scenario waiting_scenario(const char *situation, void (*prepare)()) {
    scenario waiting = {"net_lib_db_interface_get_by_db_index", situation, given::nothing, prepare,
                        wait_for_the_lock};
    waiting.at_once = 16; // each sleeps 200 ms and more
    return waiting;
}

} // namespace

std::vector<scenario> lifecycle_scenarios() {
    std::vector<scenario> all;
    add_loading(all, interfaces);
    add_loading(all, ports);
    add_rare_loading(all);
    add_halves(all);
    all.push_back({"net_lib_db_ports_get_all", "in_a_forked_child", given::nothing, [] { load(ports); },
                   fork_and_list_ports});
    all.push_back(waiting_scenario("lock_of_a_slow_process", be_locked_by_a_slow_process));
    all.push_back(waiting_scenario("lock_of_a_dead_process", be_locked_by_a_dead_process));
    return all;
}

} // namespace faults
