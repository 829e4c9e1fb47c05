// SPDX-License-Identifier: Apache-2.0
//
// The interface records, by the database's own functions and by those of the API; what needs no database at all.
// The one record that is given has system ifindex 101, Linux ifindex 1 and the name of the loopback netdev.
#include "tests/faults/scenario.h"

#include <cstddef>
#include <cstring>

#include "tests/support/netdevs.h"
#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db.h"
#include "ybnet/yb_net_rtnl.h"

namespace faults {

namespace {

constexpr uint32_t recorded = 101;

using call_t = std::function<uint32_t(std::string *)>;
using get_t = std::function<yb_status_t(yb_net_interface_record_t *)>;

call_t answering(const get_t &get) {
    return [get](std::string *answer) {
        yb_net_interface_record_t record = {};
        const yb_status_t status = get(&record);
        *answer = bytes_of(record);
        return status;
    };
}

call_t silent(const std::function<yb_status_t()> &set) {
    return [set](std::string *) { return set(); };
}

void add_database(std::vector<scenario> &all) {
    const auto add = [&all](const char *function, const call_t &call,
                            const std::function<void()> &prepare = {}) {
        all.push_back({function, "", given::interfaces, prepare, call});
    };
    add("net_lib_db_interface_add", silent([] {
            const yb_net_interface_params_t params = port_params("eth7");
            return net_lib_db_interface_add(107, 7, &params);
        }));
    add("net_lib_db_interface_add_full", silent([] {
            const yb_net_interface_params_t params = port_params("eth8");
            return net_lib_db_interface_add_full(108, 8, &params, 1, 2, 1);
        }));
    add("net_lib_db_interface_remove", silent([] { return net_lib_db_interface_remove(recorded); }));
    add("net_lib_db_interface_rif_add", silent([] { return net_lib_db_interface_rif_add(recorded, 3); }));
    add("net_lib_db_interface_vrid_add", silent([] { return net_lib_db_interface_vrid_add(recorded, 4); }));
    add("net_lib_db_interface_vlan_set", silent([] { return net_lib_db_interface_vlan_set(recorded, 5); }));
    add("net_lib_db_interface_get",
        answering([](auto *out) { return net_lib_db_interface_get(recorded, out); }));
    add("net_lib_db_interface_get_by_db_index",
        answering([](auto *out) { return net_lib_db_interface_get_by_db_index(0, out); }));
    add("net_lib_db_interface_get_by_linux_ifindex",
        answering([](auto *out) { return net_lib_db_interface_get_by_linux_ifindex(1, out); }));
    add("net_lib_db_interface_get_by_linux_ifindex_ns",
        answering([](auto *out) { return net_lib_db_interface_get_by_linux_ifindex_ns(1, "", out); }));
    add("net_lib_db_interface_get_by_linux_ifindex_ns_vrf", answering([](auto *out) {
            return net_lib_db_interface_get_by_linux_ifindex_ns_vrf(1, "", "", out);
        }));

    const call_t take_and_release = silent([] {
        net_lib_db_interface_lock_acquire();
        net_lib_db_interface_lock_release();
        return yb_status_t{YB_STATUS_SUCCESS};
    });
    add("net_lib_db_interface_lock_acquire", take_and_release);
    add("net_lib_db_interface_lock_release", take_and_release);
}

void add_api(std::vector<scenario> &all) {
    const auto add = [&all](const char *function, const call_t &call) {
        all.push_back({function, "", given::interfaces, {}, call});
    };
    add("yb_net_interface_rif_set", silent([] { return yb_net_interface_rif_set(recorded, 3); }));
    add("yb_net_interface_vrid_set", silent([] { return yb_net_interface_vrid_set(recorded, 4); }));
    add("yb_net_interface_params_get",
        answering([](auto *out) { return yb_net_interface_params_get(recorded, out); }));
    add("yb_net_interface_params_get_by_linux_ifindex",
        answering([](auto *out) { return yb_net_interface_params_get_by_linux_ifindex(1, out); }));
    add("yb_net_interface_params_get_by_linux_ifindex_ns",
        answering([](auto *out) { return yb_net_interface_params_get_by_linux_ifindex_ns(1, "", out); }));
    add("yb_net_interface_params_get_by_linux_ifindex_ns_vrf", answering([](auto *out) {
            return yb_net_interface_params_get_by_linux_ifindex_ns_vrf(1, "", "", out);
        }));
}

// A lock that is released without being held is reported, with the names of the calls that led there.
void add_assertion(std::vector<scenario> &all) {
    all.push_back({"net_lib_db_interface_lock_release", "not_held", given::interfaces, {}, silent([] {
                       net_lib_db_interface_lock_release();
                       return yb_status_t{YB_STATUS_SUCCESS};
                   })});
}

uint32_t build_a_request(std::string *answer) {
    struct {
        struct nlmsghdr header;
        std::byte room[64];
    } request = {};
    request.header.nlmsg_len = NLMSG_LENGTH(0);
    constexpr int32_t size = sizeof(request);
    struct rtattr *const nest = addattr_nest(&request.header, size, 1);
    const int32_t results[] = {addattr32(&request.header, size, 2, 7),
                               addattr_l(&request.header, size, 3, "abc", 4),
                               addattr_nest_end(&request.header, nest)};
    *answer = bytes_of(results);
    answer->append(bytes_of(request));
    return YB_STATUS_SUCCESS;
}

void add_without_database(std::vector<scenario> &all) {
    const auto add = [&all](const char *function, const char *situation, const call_t &call) {
        all.push_back({function, situation, given::nothing, {}, call});
    };
    for (const char *const builder : {"addattr32", "addattr_l", "addattr_nest", "addattr_nest_end"})
        add(builder, "", build_a_request);
    using verbosity_t = yb_status_t (*)(yb_access_cmd_t, uint32_t *);
    const auto level_by = [](verbosity_t verbosity) {
        return [verbosity](std::string *answer) {
            uint32_t level = 0;
            const yb_status_t status = verbosity(YB_ACCESS_CMD_GET, &level);
            *answer = bytes_of(level);
            return status;
        };
    };
    add("yb_net_log_verbosity_level", "", level_by(yb_net_log_verbosity_level));
    add("net_lib_db_log_verbosity_level", "", level_by(net_lib_db_log_verbosity_level));
    add("yb_net_is_addr_eth", "of_no_length", [](std::string *answer) {
        *answer = bytes_of(yb_net_is_addr_eth(nullptr, 3));
        return uint32_t{YB_STATUS_SUCCESS};
    });
    add("yb_net_resolve_l2_attribute", "", [](std::string *answer) {
        yb_net_l2_address_t address = {};
        const yb_status_t status = yb_net_resolve_l2_attribute(&address, yb_net_packet_descriptor_t{});
        *answer = bytes_of(address);
        return status;
    });
    add("yb_net_vid2ip_set", "", silent([] { return yb_net_vid2ip_set(1, 2, 3); }));
}

} // namespace

std::vector<scenario> interface_scenarios() {
    std::vector<scenario> all;
    add_database(all);
    add_api(all);
    add_assertion(all);
    add_without_database(all);
    return all;
}

} // namespace faults
