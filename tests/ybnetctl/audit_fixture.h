// SPDX-License-Identifier: Apache-2.0
//
// What the tests of ybnetctl audit share: namespaces red and blue, a database of this process, netdevs with their
// records, and what the audit makes of them.
#ifndef YBNET_TESTS_YBNETCTL_AUDIT_FIXTURE_H
#define YBNET_TESTS_YBNETCTL_AUDIT_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "tests/support/netdevs.h"
#include "tests/ybnetctl/tool.h"
#include "ybnet/net_lib_db.h"

using nlohmann::json;

class audit_tool : public testing::Test {
  protected:
    void SetUp() override {
        make_namespace("blue");
        make_namespace("red");
        ASSERT_EQ(net_lib_db_interfaces_load(0), uint32_t{YB_STATUS_SUCCESS});
    }
    void TearDown() override {
        (void)net_lib_db_interfaces_unload(0);
        clear_netdevs();
    }

    static void ip(const std::vector<std::string> &words) {
        const run_result result = run_ip(words);
        ASSERT_EQ(result.status, 0) << result.output;
    }
    // Any program.
    static tool_result run_words(const std::vector<std::string> &words) {
        return run_program(words, std::vector<std::string>());
    }
    static void add(uint32_t sys_ifindex, uint32_t linux_ifindex, yb_net_interface_params_t params) {
        ASSERT_EQ(net_lib_db_interface_add(sys_ifindex, linux_ifindex, &params), uint32_t{YB_STATUS_SUCCESS});
    }
    // A loopback as the library makes it, with its record.
    static void make_loopback(uint32_t sys_ifindex, const std::string &name, const std::string &ns) {
        if (ns.empty())
            ip({"link", "add", "name", name, "type", "bridge"});
        else
            ip({"-n", ns, "link", "add", "name", name, "type", "bridge"});
        add(sys_ifindex, ifindex_of(name, ns), loopback_params(name, ns));
    }
    // The whole document; the exit code is checked too.
    static json audit(int code) {
        const tool_result result = run_tool({"--json", "audit"});
        EXPECT_EQ(result.code, code) << result.err;
        EXPECT_EQ(result.err, "");
        return json::parse(result.out);
    }
    static json record_of(const json &document, uint32_t sys_ifindex) {
        for (const json &each : document.at("records"))
            if (each.at("sys_ifindex") == sys_ifindex)
                return each;
        return {};
    }
    static std::string finding_of(uint32_t sys_ifindex) {
        return record_of(audit(1), sys_ifindex).at("finding");
    }
};

#endif
