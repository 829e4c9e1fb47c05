// SPDX-License-Identifier: Apache-2.0
//
// The queries and the setters of RIF and VRID: NULL pointers first, then the
// database's answer, unchanged.
#include "tests/unit/netdev_fixture.h"

using testing::ElementsAre;

namespace {

class interface_queries : public netdev_test {
  protected:
    void SetUp() override {
        netdev_test::SetUp();
        load();
        out = {};
        memset(&out, 0xEE, sizeof(out));
    }
    bool untouched() const {
        const std::string all(reinterpret_cast<const char *>(&out), sizeof(out));
        return all == std::string(sizeof(out), '\xEE');
    }
    // Two netdevs of one ifindex in two namespaces, and one of them in two VRFs.
    static void store_some() {
        store(1, loopback_params("own"), 50);
        store(2, loopback_params("inside", "red"), 50);
        yb_net_interface_params_t params = loopback_params("in_blue", "blue");
        params.vrf_valid = 1;
        fill_field(params.vrf_name, "one");
        store(3, params, 60);
        fill_field(params.vrf_name, "two");
        store(4, params, 60);
    }

    yb_net_interface_record_t out;
};

} // namespace

TEST_F(interface_queries, null_pointers_are_refused_unlogged_before_the_database_is_asked) {
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_unload(0));
    EXPECT_EQ(YB_STATUS_PARAM_NULL, yb_net_interface_params_get(1, nullptr));
    EXPECT_EQ(YB_STATUS_PARAM_NULL, yb_net_interface_params_get_by_linux_ifindex(1, nullptr));
    EXPECT_EQ(YB_STATUS_PARAM_NULL, yb_net_interface_params_get_by_linux_ifindex_ns(1, nullptr, &out));
    EXPECT_EQ(YB_STATUS_PARAM_NULL, yb_net_interface_params_get_by_linux_ifindex_ns(1, "", nullptr));
    EXPECT_EQ(YB_STATUS_PARAM_NULL,
              yb_net_interface_params_get_by_linux_ifindex_ns_vrf(1, nullptr, "", &out));
    EXPECT_EQ(YB_STATUS_PARAM_NULL,
              yb_net_interface_params_get_by_linux_ifindex_ns_vrf(1, "", nullptr, &out));
    EXPECT_EQ(YB_STATUS_PARAM_NULL, yb_net_interface_params_get_by_linux_ifindex_ns_vrf(1, "", "", nullptr));
    EXPECT_TRUE(untouched());
    expect_nothing_logged();
}

TEST_F(interface_queries, unloaded_database_is_told_by_the_database) {
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_unload(0));
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, yb_net_interface_params_get(1, &out));
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, yb_net_interface_params_get_by_linux_ifindex(1, &out));
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, yb_net_interface_params_get_by_linux_ifindex_ns(1, "", &out));
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED,
              yb_net_interface_params_get_by_linux_ifindex_ns_vrf(1, "", "", &out));
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, yb_net_interface_rif_set(1, 1));
    EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, yb_net_interface_vrid_set(1, 1));
    EXPECT_TRUE(untouched());
    EXPECT_EQ(6u, logged_lines().size()) << "one line of the database each, none besides";
}

TEST_F(interface_queries, nothing_found_is_the_databases_status) {
    store_some();
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, yb_net_interface_params_get(9, &out));
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, yb_net_interface_params_get_by_linux_ifindex(60, &out));
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, yb_net_interface_params_get_by_linux_ifindex_ns(50, "blue", &out));
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND,
              yb_net_interface_params_get_by_linux_ifindex_ns_vrf(60, "blue", "three", &out));
    EXPECT_TRUE(untouched());
}

TEST_F(interface_queries, record_of_112_bytes_is_found_by_system_ifindex) {
    store_some();
    struct {
        yb_net_interface_record_t record;
        uint8_t behind[16];
    } room;
    memset(&room, 0xEE, sizeof(room));
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_params_get(3, &room.record));
    EXPECT_EQ(3u, room.record.sys_ifindex);
    EXPECT_EQ(60u, room.record.linux_ifindex);
    EXPECT_STREQ("in_blue", room.record.params.name);
    EXPECT_EQ(0xFFFF, room.record.rif);
    EXPECT_EQ(255, room.record.vrid);
    EXPECT_THAT(room.behind, testing::Each(0xEE));
}

TEST_F(interface_queries, namespace_tells_netdevs_of_one_ifindex_apart) {
    store_some();
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_params_get_by_linux_ifindex_ns(50, "red", &out));
    EXPECT_EQ(2u, out.sys_ifindex);
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_params_get_by_linux_ifindex_ns(50, "", &out));
    EXPECT_EQ(1u, out.sys_ifindex);
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_params_get_by_linux_ifindex(50, &out));
    EXPECT_EQ(1u, out.sys_ifindex) << "the default namespace";
}

TEST_F(interface_queries, vrf_tells_netdevs_of_one_namespace_apart) {
    store_some();
    EXPECT_EQ(YB_STATUS_SUCCESS,
              yb_net_interface_params_get_by_linux_ifindex_ns_vrf(60, "blue", "two", &out));
    EXPECT_EQ(4u, out.sys_ifindex);
    EXPECT_EQ(YB_STATUS_SUCCESS,
              yb_net_interface_params_get_by_linux_ifindex_ns_vrf(60, "blue", "one", &out));
    EXPECT_EQ(3u, out.sys_ifindex);
}

TEST_F(interface_queries, rif_and_vrid_are_set_by_the_databases_rules) {
    store_some();
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_rif_set(1, 7));
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_rif_set(1, 8));
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_vrid_set(1, 9));
    EXPECT_EQ(YB_STATUS_ENTRY_ALREADY_EXISTS, yb_net_interface_vrid_set(1, 10));
    EXPECT_EQ(8, stored(1).rif);
    EXPECT_EQ(9, stored(1).vrid);
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_vrid_set(1, 255));
    EXPECT_EQ(255, stored(1).vrid);
    EXPECT_EQ(0xFFFF, stored(2).rif);
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, yb_net_interface_rif_set(9, 7));
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, yb_net_interface_vrid_set(9, 7));
}

TEST_F(interface_queries, entry_and_leaving_are_traced_by_all_but_the_wrappers) {
    g_yb_log_module_func_enable = 1;
    set_verbosity(5);
    const auto traced = [](const std::function<yb_status_t()> &call) {
        platform::recorded().log.clear();
        (void)call();
        std::vector<std::string> lines;
        for (const logged &line : logged_lines()) {
            if (line.text.rfind("net_lib ", 0) == 0)
                lines.push_back(line.text.substr(line.text.find(": ") + 2));
        }
        return lines;
    };
    const auto both = [](const std::string &name) {
        return ElementsAre(name + " - entered \n", name + " - left \n");
    };
    EXPECT_THAT(traced([this] { return yb_net_interface_params_get(1, &out); }),
                both("yb_net_interface_params_get"));
    EXPECT_THAT(traced([] { return yb_net_interface_params_get(1, nullptr); }),
                both("yb_net_interface_params_get"));
    EXPECT_THAT(traced([] { return yb_net_interface_rif_set(1, 1); }), both("yb_net_interface_rif_set"));
    EXPECT_THAT(traced([] { return yb_net_interface_vrid_set(1, 1); }), both("yb_net_interface_vrid_set"));
    EXPECT_THAT(traced([this] { return yb_net_interface_params_get_by_linux_ifindex_ns(1, "", &out); }),
                both("yb_net_interface_params_get_by_linux_ifindex_ns"));
    EXPECT_THAT(
        traced([this] { return yb_net_interface_params_get_by_linux_ifindex_ns_vrf(1, "", "", &out); }),
        both("yb_net_interface_params_get_by_linux_ifindex_ns_vrf"));
    EXPECT_THAT(traced([this] { return yb_net_interface_params_get_by_linux_ifindex(1, &out); }),
                both("yb_net_interface_params_get_by_linux_ifindex_ns"));
    EXPECT_THAT(traced([] { return net_lib_interface_remove_all(); }), both("net_lib_interface_remove_all"));
    EXPECT_THAT(traced([] { return yb_net_interface_set(12, 1, nullptr); }), both("net_interface_set"));
    EXPECT_THAT(traced([] { return yb_net_interface_set_full(12, 1, nullptr, 1, 1); }),
                both("net_interface_set"));
}
