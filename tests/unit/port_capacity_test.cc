// SPDX-License-Identifier: Apache-2.0
//
// The table filled to its last bucket through the exported functions: 65,536
// ports fit, the next one does not, and nothing is lost by the attempt.
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/recording_platform.h"
#include "ybnet/net_lib_db.h"
#include "ybnet/net_lib_db_layout.h"

namespace {

// Homes 1 to 65,535, each once, then 1 again: bucket 0 is reached by probing only.
uint16_t home_by_key(void *, const uint8_t *data, uint32_t, uint16_t) {
    uint32_t key;
    memcpy(&key, data, sizeof(key));
    return static_cast<uint16_t>((key - 1) % 65535 + 1);
}

class port_capacity : public testing::Test {
  protected:
    void SetUp() override {
        platform::reset();
        platform::crc_override() = home_by_key;
        ASSERT_EQ(net_lib_db_ports_load(0), YB_STATUS_SUCCESS);
    }
    void TearDown() override {
        EXPECT_EQ(net_lib_db_ports_unload(0), YB_STATUS_SUCCESS);
        platform::reset();
    }
    static yb_status_t set(uint32_t key) {
        yb_net_port_info_t info = {};
        info.attr_c = key;
        return net_lib_db_port_set(key, &info);
    }
};

TEST_F(port_capacity, the_65537th_distinct_insertion_fails_and_loses_nothing) {
    for (uint32_t key = 1; key <= YB_NET_PORTS_MAX; key++)
        ASSERT_EQ(set(key), YB_STATUS_SUCCESS) << key;
    uint32_t count = 0;
    EXPECT_EQ(net_lib_db_ports_get_all(0, nullptr, &count), YB_STATUS_SUCCESS);
    EXPECT_EQ(count, 65536u);

    EXPECT_EQ(set(65537), YB_STATUS_ERROR);
    EXPECT_EQ(platform::recorded().texts(1),
              (std::vector<std::string>{
                  "Netlib ports DB - port with sys_ifindex 0x10001 cannot be setto the DB. DB is full\n",
                  "Netlib ports DB - cannot set hash table entry by sys_ifindex 65537\n"}));
    count = 0;
    EXPECT_EQ(net_lib_db_ports_get_all(0, nullptr, &count), YB_STATUS_SUCCESS);
    EXPECT_EQ(count, 65536u);
}

} // namespace
