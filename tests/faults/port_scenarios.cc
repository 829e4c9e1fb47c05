// SPDX-License-Identifier: Apache-2.0
//
// The port records, by the database's own functions and by those of the API. Given are a port, 5, and a LAG, 6, that
// an MLAG id is bound to.
#include "tests/faults/scenario.h"

#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db.h"

namespace faults {

namespace {

constexpr uint32_t log_port = 5u << 8;
constexpr uint32_t lag = YB_NET_LOG_PORT_TYPE_LAG << 28 | 6u << 8;

using call_t = std::function<uint32_t(std::string *)>;

template <typename result_t> call_t answering(const std::function<yb_status_t(result_t *)> &get) {
    return [get](std::string *answer) {
        result_t result = {};
        const yb_status_t status = get(&result);
        *answer = bytes_of(result);
        return status;
    };
}

yb_net_port_info_t new_port() {
    yb_net_port_info_t info = {};
    info.log_port = 9u << 8;
    info.protocol = 1;
    return info;
}

yb_status_t list(yb_status_t (*get_all)(uint32_t, yb_net_port_info_t *, uint32_t *), std::string *answer) {
    yb_net_port_info_t ports[8] = {};
    uint32_t count = 8;
    const yb_status_t status = get_all(0, ports, &count);
    *answer = bytes_of(ports);
    answer->append(bytes_of(count));
    return status;
}

} // namespace

std::vector<scenario> port_scenarios() {
    std::vector<scenario> all;
    const auto add = [&all](const char *function, const call_t &call) {
        all.push_back({function, "", given::ports, {}, call});
    };
    add("net_lib_db_port_set", [](std::string *) {
        const yb_net_port_info_t info = new_port();
        return net_lib_db_port_set(9, &info);
    });
    add("yb_net_port_set", [](std::string *) {
        const yb_net_port_info_t info = new_port();
        return yb_net_port_set(YB_ACCESS_CMD_SET, 9, &info);
    });
    add("net_lib_db_port_remove", [](std::string *) { return net_lib_db_port_remove(5); });
    add("net_lib_db_port_lag_set", [](std::string *) { return net_lib_db_port_lag_set(5, lag); });
    add("yb_net_port_lag_set", [](std::string *) { return yb_net_port_lag_set(YB_ACCESS_CMD_SET, 5, lag); });
    add("net_lib_db_port_get",
        answering<yb_net_port_info_t>([](auto *out) { return net_lib_db_port_get(5, out); }));
    add("yb_net_port_get", answering<yb_net_port_info_t>([](auto *out) { return yb_net_port_get(5, out); }));
    add("net_lib_db_ports_get_all",
        [](std::string *answer) { return list(net_lib_db_ports_get_all, answer); });
    add("yb_net_ports_get_all", [](std::string *answer) { return list(yb_net_ports_get_all, answer); });
    add("net_lib_db_log_port_get",
        answering<uint32_t>([](auto *out) { return net_lib_db_log_port_get(log_port, out); }));
    add("yb_net_log_port_get",
        answering<uint32_t>([](auto *out) { return yb_net_log_port_get(log_port, out); }));
    add("net_lib_db_lag_get", answering<uint32_t>([](auto *out) { return net_lib_db_lag_get(7, out); }));
    add("yb_net_lag_get", answering<uint32_t>([](auto *out) { return yb_net_lag_get(7, out); }));
    add("net_lib_db_mlag_get", answering<uint16_t>([](auto *out) { return net_lib_db_mlag_get(lag, out); }));
    add("yb_net_mlag_get", answering<uint16_t>([](auto *out) { return yb_net_mlag_get(lag, out); }));
    return all;
}

} // namespace faults
