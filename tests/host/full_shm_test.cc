// SPDX-License-Identifier: Apache-2.0
//
// A /dev/shm with no room for a segment: creating one fails with a status, never
// with a signal at some later write.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include "tests/support/processes.h"
#include "tests/support/recording_platform.h"
#include "ybnet/net_lib_db.h"

namespace {

class full_shm : public testing::Test {
  protected:
    void SetUp() override {
        platform::reset();
        ASSERT_EQ(mount("tmpfs", "/dev/shm", "tmpfs", 0, "size=64k"), 0);
    }
    void TearDown() override {
        ASSERT_EQ(umount2("/dev/shm", MNT_DETACH), 0);
    }
};

TEST_F(full_shm, interfaces_load_fails_for_lack_of_memory_and_leaves_no_name) {
    child_process load([] { return static_cast<int>(net_lib_db_interfaces_load(0)); });
    EXPECT_EQ(load.wait(), YB_STATUS_NO_MEMORY);
    EXPECT_NE(access("/dev/shm/net_lib_ifc", F_OK), 0);
}

TEST_F(full_shm, ports_load_fails_for_lack_of_memory_and_leaves_no_name) {
    EXPECT_EQ(net_lib_db_ports_load(0), YB_STATUS_NO_MEMORY);
    EXPECT_NE(access("/dev/shm/net_lib_port", F_OK), 0);
    EXPECT_EQ(platform::recorded().texts(1),
              (std::vector<std::string>{"Failed to set shared memory size for the Net-lib ports DB\n",
                                        "Failed to init the Net-lib ports DB shared memory\n"}));
}

} // namespace
