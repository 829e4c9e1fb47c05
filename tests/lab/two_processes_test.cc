// SPDX-License-Identifier: Apache-2.0
//
// Two processes that make and remove real netdevs at once.
#include "tests/lab/netdev_fixture.h"
#include "ybnet/yb_net_rtnl.h"

namespace {

class lab_two_processes : public lab_netdev_test {
  protected:
    // Runs body(0) and body(1) in two processes that start together.
    static void run_two(const std::function<int(uint32_t)> &body) {
        shared_counter gate;
        const auto started = [&](uint32_t number) {
            rth = {-1, {}, 0, 0};
            gate.add();
            return gate.wait_for(2) ? body(number) : 98;
        };
        child_process first([&] { return started(0); });
        child_process second([&] { return started(1); });
        EXPECT_EQ(0, first.wait());
        EXPECT_EQ(0, second.wait());
    }
};

} // namespace

TEST_F(lab_two_processes, each_makes_its_interfaces_and_nothing_is_lost) {
    run_two([](uint32_t number) {
        for (uint16_t i = 1; i <= 3; i++) {
            const uint16_t id = static_cast<uint16_t>(number * 100 + i);
            yb_net_interface_params_t blocks[] = {
                vlan_params(static_cast<uint8_t>(number), id, "red", YB_NET_NAME_FORMAT_VLAN),
                port_params("swp" + std::to_string(id), "", id, number),
                loopback_params("lo" + std::to_string(id), "blue")};
            for (uint32_t kind = 0; kind < 3; kind++) {
                const yb_status_t status = yb_net_interface_set_full(YB_ACCESS_CMD_CREATE, kind * 1000 + id,
                                                                     &blocks[kind], id, YB_NET_VRID_NONE);
                if (status != YB_STATUS_SUCCESS)
                    return static_cast<int>(10 + status);
            }
        }
        return 0;
    });
    for (const uint16_t first : {uint16_t{1}, uint16_t{101}}) {
        for (uint16_t id = first; id < first + 3; id++) {
            const std::string word = std::to_string(id);
            EXPECT_EQ(id, vlan_id_of("vlan" + word, "red"));
            EXPECT_EQ(ifindex_of("vlan" + word, "red"), stored(id).linux_ifindex);
            EXPECT_EQ(word + " " + (first == 1 ? "0" : "1"), values_of("swp" + word));
            EXPECT_EQ(ifindex_of("swp" + word), stored(1000 + id).linux_ifindex);
            EXPECT_EQ(ifindex_of("lo" + word, "blue"), stored(2000 + id).linux_ifindex);
            EXPECT_EQ(id, stored(id).rif);
        }
    }
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_interface_remove_all());
}

TEST_F(lab_two_processes, one_makes_what_the_other_removes) {
    shared_counter made;
    shared_counter removed;
    constexpr int rounds = 3;
    child_process maker([&] {
        for (int i = 1; i <= rounds; i++) {
            const yb_status_t status = create(1, vlan_params(0, static_cast<uint16_t>(i), "red"));
            if (status != YB_STATUS_SUCCESS)
                return static_cast<int>(10 + status);
            made.add();
            if (!removed.wait_for(i))
                return 98;
        }
        return 0;
    });
    child_process remover([&] {
        for (int i = 1; i <= rounds; i++) {
            if (!made.wait_for(i))
                return 98;
            const yb_status_t status = destroy(1);
            if (status != YB_STATUS_SUCCESS)
                return static_cast<int>(10 + status);
            removed.add();
        }
        return 0;
    });
    EXPECT_EQ(0, maker.wait());
    EXPECT_EQ(0, remover.wait());
    EXPECT_THAT(run_ip({"-n", "red", "-br", "link"}).output, testing::Not(testing::HasSubstr("eth.")));
}

TEST_F(lab_two_processes, both_want_one_vlan_and_one_gets_it) {
    shared_counter got;
    run_two([&got](uint32_t number) {
        stderr_capture ips;
        yb_net_interface_params_t params = vlan_params(0, 5, "red");
        const yb_status_t status = yb_net_interface_set_full(YB_ACCESS_CMD_CREATE, number, &params, 1, 1);
        got.add(status == YB_STATUS_SUCCESS ? 1 : 0);
        return status == YB_STATUS_SUCCESS || status == YB_STATUS_ERROR || status == YB_STATUS_PARAM_ERROR
                   ? 0
                   : 1;
    });
    EXPECT_EQ(1, got.value());
    EXPECT_EQ(5, vlan_id_of("swid0_eth.5", "red"));
    EXPECT_NE(is_stored(0), is_stored(1));
}
