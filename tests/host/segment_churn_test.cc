// SPDX-License-Identifier: Apache-2.0
//
// Short-lived users: processes that load and unload both databases in a loop, so
// that last users leave while others arrive. Nobody may end up in a segment whose
// name is gone, or meet a destroyed lock.
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <vector>

#include "tests/support/processes.h"
#include "tests/support/recording_platform.h"
#include "ybnet/net_lib_db.h"

namespace {

constexpr int processes = 8;
constexpr int rounds = 300;

struct database {
    const char *path;
    yb_status_t (*load)(uint32_t);
    yb_status_t (*unload)(uint32_t);
};

// The inode that this process has mapped under the path, 0 when it is mapped no more or its name is gone.
ino_t mapped_inode(const char *path) {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.find(path) == std::string::npos || line.find("(deleted)") != std::string::npos)
            continue;
        unsigned long inode = 0;
        if (sscanf(line.c_str(), "%*s %*s %*s %*s %lu", &inode) == 1)
            return inode;
    }
    return 0;
}

ino_t named_inode(const char *path) {
    struct stat status;
    return stat(path, &status) == 0 ? status.st_ino : 0;
}

// What goes wrong in one process, as bits of its exit status.
enum { load_failed = 1, unload_failed = 2, on_an_orphan = 4, assertion_reported = 8 };

int churn(const database &db, shared_counter &ready) {
    // Each load keeps a descriptor.
    struct rlimit limit = {4096, 4096};
    (void)setrlimit(RLIMIT_NOFILE, &limit);
    platform::reset();
    ready.add();
    (void)ready.wait_for(processes);
    int wrong = 0;
    for (int round = 0; round < rounds; round++) {
        if (db.load(0) != YB_STATUS_SUCCESS)
            return wrong | load_failed;
        if (mapped_inode(db.path) == 0 || mapped_inode(db.path) != named_inode(db.path))
            wrong |= on_an_orphan;
        if (db.unload(0) != YB_STATUS_SUCCESS)
            wrong |= unload_failed;
    }
    if (!platform::recorded().log.empty())
        wrong |= assertion_reported;
    return wrong;
}

class segment_churn : public testing::TestWithParam<database> {};

TEST_P(segment_churn, nobody_stays_on_a_segment_whose_name_is_gone) {
    const database &db = GetParam();
    shared_counter ready;
    std::vector<child_process> children;
    for (int i = 0; i < processes; i++)
        children.emplace_back([&db, &ready] { return churn(db, ready); });
    for (child_process &child : children)
        EXPECT_EQ(child.wait(std::chrono::minutes(2)), 0);
    EXPECT_EQ(named_inode(db.path), 0u) << "the last user left the name behind";
}

INSTANTIATE_TEST_SUITE_P(both, segment_churn,
                         testing::Values(database{"/dev/shm/net_lib_ifc", net_lib_db_interfaces_load,
                                                  net_lib_db_interfaces_unload},
                                         database{"/dev/shm/net_lib_port", net_lib_db_ports_load,
                                                  net_lib_db_ports_unload}),
                         [](const auto &instance) { return instance.index == 0 ? "interfaces" : "ports"; });

} // namespace
