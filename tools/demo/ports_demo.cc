// SPDX-License-Identifier: Apache-2.0
//
// See ports_demo.h. The switch has 32 ports, swp1 to swp32; two of its LAGs
// bundle its uplinks, and one of them is the near end of an MLAG.
#include "tools/demo/ports_demo.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "tools/demo/status_name.h"
#include "tools/demo/transcript.h"
#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db_layout.h"

namespace {

constexpr uint32_t switch_ports = 32;
constexpr uint32_t first_port_ifindex = 1000; // of swp1, less one
constexpr uint32_t first_lag_ifindex = 2000;
constexpr uint16_t mlag_id = 100;

// What this demo takes the two protocols for.
constexpr uint32_t bridged = 1;
constexpr uint32_t routed = 2;

constexpr uint32_t port_ifindex(uint32_t number) {
    return first_port_ifindex + number;
}
constexpr uint32_t lag_ifindex(uint32_t number) {
    return first_lag_ifindex + number;
}
constexpr uint32_t port_log_port(uint32_t number) {
    return number << 8;
}
constexpr uint32_t lag_log_port(uint32_t number) {
    return YB_NET_LOG_PORT_TYPE_LAG << 28 | number << 8;
}

yb_net_port_info_t describe(const std::string &name, uint32_t log_port, uint32_t protocol, uint16_t mlag) {
    yb_net_port_info_t info = {};
    info.attr_b = YB_NET_PORT_ATTR_B_NONE;
    info.protocol = protocol;
    info.log_port = log_port;
    info.mlag_id = mlag;
    memcpy(info.name, name.data(), std::min(name.size(), sizeof(info.name)));
    return info;
}

yb_status_t record(uint32_t sys_ifindex, const yb_net_port_info_t &info) {
    return yb_net_port_set(YB_ACCESS_CMD_SET, sys_ifindex, &info);
}

// The first 24 ports are bridged, the rest routed. Returns the first status that is not a success.
yb_status_t record_ports() {
    for (uint32_t number = 1; number <= switch_ports; number++) {
        const yb_status_t status =
            record(port_ifindex(number), describe("swp" + std::to_string(number), port_log_port(number),
                                                  number <= 24 ? bridged : routed, 0));
        if (status != YB_STATUS_SUCCESS)
            return status;
    }
    return YB_STATUS_SUCCESS;
}

void join(uint32_t number, uint32_t lag) {
    tell(YB_STATUS_SUCCESS, yb_net_port_lag_set(YB_ACCESS_CMD_SET, port_ifindex(number), lag_log_port(lag)),
         "swp%u joins lag%u", number, lag);
}

// ---- The other process ------------------------------------------------------

// Any status but success is shown and makes the exit status 1.
bool failures;
bool good(const char *what, yb_status_t status) {
    if (status == YB_STATUS_SUCCESS)
        return true;
    printf("%s = %s\n", what, status_name(status));
    failures = true;
    return false;
}

// "lag1" for a LAG's logical port.
std::string lag_name(uint32_t log_port) {
    return log_port == 0 ? "-" : "lag" + std::to_string(YB_NET_LOG_PORT_LAG_INDEX(log_port));
}

void print_port(uint32_t sys_ifindex) {
    yb_net_port_info_t info;
    if (!good("yb_net_port_get", yb_net_port_get(sys_ifindex, &info)))
        return;
    printf("%6u  %-6.16s  0x%08x  %-7s  %-4s  %4s\n", sys_ifindex, info.name, info.log_port,
           info.protocol == bridged ? "bridged" : "routed", lag_name(info.lag_log_port).c_str(),
           info.mlag_id == 0 ? "-" : std::to_string(info.mlag_id).c_str());
}

void print_by_log_port(const char *name, uint32_t log_port) {
    uint32_t sys_ifindex = 0;
    if (good("yb_net_log_port_get", yb_net_log_port_get(log_port, &sys_ifindex)))
        printf("logical port 0x%08x is system ifindex %u (%s)\n", log_port, sys_ifindex, name);
}

// "swp1-swp4" for names that count on.
std::string ranges(std::vector<uint32_t> numbers) {
    std::sort(numbers.begin(), numbers.end());
    std::string text;
    for (size_t i = 0; i < numbers.size(); i++) {
        const size_t first = i;
        while (i + 1 < numbers.size() && numbers[i + 1] == numbers[i] + 1)
            i++;
        text += (text.empty() ? "swp" : ", swp") + std::to_string(numbers[first]);
        if (i != first)
            text += "-swp" + std::to_string(numbers[i]);
    }
    return text;
}

void print_by_protocol(const char *name, uint32_t protocol) {
    std::vector<yb_net_port_info_t> infos(YB_NET_PORTS_MAX);
    auto size = static_cast<uint32_t>(infos.size());
    if (!good("yb_net_ports_get_all", yb_net_ports_get_all(protocol, infos.data(), &size)))
        return;
    std::vector<uint32_t> ports;
    std::string lags;
    for (uint32_t i = 0; i < size; i++) {
        if (YB_NET_LOG_PORT_IS_LAG(infos[i].log_port))
            lags += ", " + lag_name(infos[i].log_port);
        else
            ports.push_back(YB_NET_LOG_PORT_PORT_INDEX(infos[i].log_port));
    }
    printf("%-7s  %2u: %s%s\n", name, size, ranges(ports).c_str(), lags.c_str());
}

} // namespace

void play_ports(const std::string &self) {
    heading("the switch's ports: 32 of them, two LAGs, and lag1 the near end of MLAG 100");
    tell(YB_STATUS_SUCCESS, record_ports(), "SET %u..%u (swp1..swp%u)", port_ifindex(1),
         port_ifindex(switch_ports), switch_ports);
    tell(YB_STATUS_SUCCESS, record(lag_ifindex(1), describe("lag1", lag_log_port(1), bridged, mlag_id)),
         "SET %u (lag1, MLAG %u)", lag_ifindex(1), mlag_id);
    tell(YB_STATUS_SUCCESS, record(lag_ifindex(2), describe("lag2", lag_log_port(2), routed, 0)),
         "SET %u (lag2)", lag_ifindex(2));
    for (const uint32_t number : {1u, 2u})
        join(number, 1);
    for (const uint32_t number : {31u, 32u})
        join(number, 2);

    heading("and as another process finds them");
    run(self + " --ports");

    heading("swp32 leaves its LAG and goes; its logical port answers no more");
    tell(YB_STATUS_SUCCESS, yb_net_port_lag_set(YB_ACCESS_CMD_UNSET, port_ifindex(32), 0),
         "swp32 leaves its LAG");
    tell(YB_STATUS_SUCCESS, yb_net_port_set(YB_ACCESS_CMD_DESTROY, port_ifindex(32), nullptr), "DESTROY %u",
         port_ifindex(32));
    uint32_t sys_ifindex = 0;
    tell(YB_STATUS_ENTRY_NOT_FOUND, yb_net_log_port_get(port_log_port(32), &sys_ifindex),
         "logical port 0x%08x", port_log_port(32));
}

int show_ports_table() {
    if (!good("yb_net_ports_init", yb_net_ports_init(nullptr, 1, 0)))
        return 1;
    uint32_t silent = 0; // the database logs of an MLAG id that is bound that it is not
    (void)yb_net_log_verbosity_level(YB_ACCESS_CMD_SET, &silent);

    printf("%6s  %-6s  %-10s  %-7s  %-4s  %4s\n", "SYSIF", "NAME", "LOG PORT", "KIND", "LAG", "MLAG");
    for (const uint32_t sys_ifindex : {port_ifindex(1), port_ifindex(2), port_ifindex(3), port_ifindex(31),
                                       port_ifindex(32), lag_ifindex(1), lag_ifindex(2)})
        print_port(sys_ifindex);
    print_by_log_port("swp17", port_log_port(17));
    print_by_log_port("lag2", lag_log_port(2));
    print_by_protocol("bridged", bridged);
    print_by_protocol("routed", routed);

    uint32_t lag = 0;
    uint16_t mlag = 0;
    if (good("yb_net_lag_get", yb_net_lag_get(mlag_id, &lag)) &&
        good("yb_net_mlag_get", yb_net_mlag_get(lag_log_port(1), &mlag)))
        printf("MLAG %u is bound to %s, and lag1 to MLAG %u\n", mlag_id, lag_name(lag).c_str(), mlag);
    if (!good("yb_net_ports_deinit", yb_net_ports_deinit(0)))
        return 1;
    return failures ? 1 : 0;
}
