// SPDX-License-Identifier: Apache-2.0
//
// What the tests of the changing commands share: namespaces red and blue, no netdevs of an earlier test, and this
// process as a user of both databases, so that they outlive each run of the tool.
#ifndef YBNET_TESTS_YBNETCTL_CHANGES_FIXTURE_H
#define YBNET_TESTS_YBNETCTL_CHANGES_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/netdevs.h"
#include "tests/support/segment_file.h"
#include "tests/support/tool_shims.h"
#include "tests/ybnetctl/tool.h"
#include "ybnet/net_lib_db.h"

using nlohmann::json;

// Any program, as a user runs it.
inline tool_result run_command(const std::vector<std::string> &words,
                               const std::vector<std::string> &variables = {}) {
    return run_program(words, variables);
}

class changes_test : public testing::Test {
  protected:
    void SetUp() override {
        clear_netdevs();
        make_namespace("red");
        make_namespace("blue");
        ASSERT_EQ(net_lib_db_interfaces_load(0), uint32_t{YB_STATUS_SUCCESS});
        ASSERT_EQ(net_lib_db_ports_load(0), uint32_t{YB_STATUS_SUCCESS});
    }
    void TearDown() override {
        EXPECT_EQ(net_lib_db_interfaces_unload(0), uint32_t{YB_STATUS_SUCCESS});
        EXPECT_EQ(net_lib_db_ports_unload(0), uint32_t{YB_STATUS_SUCCESS});
        EXPECT_FALSE(segment_exists(interfaces_format)); // nobody else is registered
        EXPECT_FALSE(segment_exists(ports_format));
        clear_netdevs();
    }

    static yb_net_interface_record_t stored(uint32_t sys_ifindex) {
        yb_net_interface_record_t record = {};
        EXPECT_EQ(net_lib_db_interface_get(sys_ifindex, &record), uint32_t{YB_STATUS_SUCCESS});
        return record;
    }
    static bool is_stored(uint32_t sys_ifindex) {
        yb_net_interface_record_t record = {};
        return net_lib_db_interface_get(sys_ifindex, &record) == YB_STATUS_SUCCESS;
    }
    static yb_net_port_info_t stored_port(uint32_t sys_ifindex) {
        yb_net_port_info_t info = {};
        EXPECT_EQ(net_lib_db_port_get(sys_ifindex, &info), uint32_t{YB_STATUS_SUCCESS});
        return info;
    }
    // What the tool prints with --json, which must be one document.
    static json json_of(std::vector<std::string> words, int code = 0) {
        words.insert(words.begin(), "--json");
        const tool_result result = run_tool(words);
        EXPECT_EQ(result.code, code) << result.out << result.err;
        EXPECT_EQ(result.err, "");
        return json::parse(result.out);
    }
};

#endif
