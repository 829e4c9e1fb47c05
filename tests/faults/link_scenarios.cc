// SPDX-License-Identifier: Apache-2.0
//
// Link events, link state and address aliases, of the sandbox's loopback netdev and on its kernel. Only the driver's
// command file is another file, for the driver is not there.
#include "tests/faults/scenario.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/faults/injector.h"
#include "tests/support/ip_values.h"
#include "tests/support/netdevs.h"
#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db.h"
#include "ybnet/yb_net_rtnl.h"

namespace faults {

namespace {

constexpr uint32_t recorded = 101;

void set_loopback(bool up) {
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    struct ifreq request = {};
    (void)snprintf(request.ifr_name, sizeof(request.ifr_name), "lo");
    request.ifr_flags = up ? IFF_UP : 0;
    must(ioctl(descriptor, SIOCSIFFLAGS, &request) == 0, "lo");
    close(descriptor);
}

// What the kernel says of a name of the loopback netdev by one of netdevice(7)'s requests.
std::string asked(unsigned long request_number, const char *name) {
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    struct ifreq request = {};
    (void)snprintf(request.ifr_name, sizeof(request.ifr_name), "%s", name);
    const int failed = ioctl(descriptor, request_number, &request);
    close(descriptor);
    return failed != 0 ? "" : bytes_of(request);
}

// ---- Events -----------------------------------------------------------------

yb_net_sk_t event_socket;

yb_status_t open_event_socket() {
    return yb_net_register_net_if_event_group(YB_ACCESS_CMD_CREATE, YB_NET_IF_EVENT_GROUP_LINK,
                                              &event_socket);
}

// As a caller does it, also after a failure.
uint32_t open_and_close_event_socket(std::string *) {
    const yb_status_t status = open_event_socket();
    if (event_socket.fd >= 0)
        close(event_socket.fd);
    return status;
}

void subscribe() {
    must(open_event_socket() == YB_STATUS_SUCCESS, "an event socket");
}

// Two events wait on the socket.
void bring_events() {
    set_loopback(true);
    subscribe();
    set_loopback(false);
    set_loopback(true);
}

uint32_t receive(std::string *answer) {
    // A first call that consumed no event leaves two for the second; one that failed after it leaves one.
    yb_net_if_event_t event = {};
    const yb_status_t status = yb_net_if_event_receive(&event_socket, &event);
    *answer = bytes_of(event);
    return status;
}

// The record as one of a partition key, for which the carrier in sysfs counts.
void make_partition_key() {
    yb_net_interface_params_t params = port_params("lo");
    params.type = YB_L2_INTERFACE_TYPE_PKEY;
    must(net_lib_db_interface_remove(recorded) == YB_STATUS_SUCCESS &&
             net_lib_db_interface_add(recorded, 1, &params) == YB_STATUS_SUCCESS,
         "a partition key");
}

void add_events(std::vector<scenario> &all) {
    all.push_back(
        {"yb_net_register_net_if_event_group", "", given::interfaces, {}, open_and_close_event_socket});
    all.push_back({"yb_net_if_event_receive", "", given::interfaces, bring_events, receive});
    all.push_back({"yb_net_if_event_receive", "of_a_partition_key", given::interfaces,
                   [] {
                       make_partition_key();
                       set_loopback(false);
                       subscribe();
                       set_loopback(true);
                       set_loopback(false);
                       set_loopback(true);
                   },
                   receive});
    // What it is while sysfs does not show the carrier.
    all.back().fallback = bytes_of(yb_net_if_event_t{YB_NET_IF_EVENT_LINK_DOWN, recorded});
    all.push_back({"yb_net_get_fd", "", given::interfaces, subscribe, [](std::string *answer) {
                       int32_t fd = -1;
                       const yb_status_t status = yb_net_get_fd(&event_socket, &fd);
                       *answer = bytes_of(fd);
                       return status;
                   }});
    all.push_back({"yb_net_set_buffer_size", "", given::interfaces, subscribe,
                   [](std::string *) { return yb_net_set_buffer_size(&event_socket, 8192, 8192); }});
}

// ---- State ------------------------------------------------------------------

// A request socket that cannot be made ready is dropped open (yb_net_rtnl.h).
constexpr const char *dropped_request_socket = "socket";

// Somebody else sends a message that looks as if it belonged to the next request, but is no answer.
void bring_another_answer() {
    must(yb_net_interface_state_set(recorded, YB_NET_IF_STATE_DOWN) == YB_STATUS_SUCCESS, "a request socket");
    struct nlmsghdr message = {};
    message.nlmsg_len = sizeof(message);
    message.nlmsg_type = NLMSG_NOOP;
    message.nlmsg_pid = rth.local.nl_pid;
    message.nlmsg_seq = rth.seq + 1;
    const int descriptor = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    must(sendto(descriptor, &message, sizeof(message), 0,
                reinterpret_cast<const struct sockaddr *>(&rth.local), sizeof(rth.local)) == sizeof(message),
         "another's message");
    close(descriptor);
}

uint32_t set_state(std::string *) {
    return yb_net_interface_state_set(recorded, YB_NET_IF_STATE_UP);
}

uint32_t get_state(std::string *answer) {
    uint32_t state = 77;
    const yb_status_t status = yb_net_interface_state_get(recorded, &state);
    *answer = bytes_of(state);
    return status;
}

constexpr const char *driver_file = "/run/yb_core";

void bring_driver_file() {
    const int descriptor = open(driver_file, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    must(descriptor >= 0, driver_file);
    close(descriptor);
    redirect("/proc/qrn_yb/yb_core", driver_file);
}

std::string driver_file_text() {
    std::ifstream file(driver_file);
    return {std::istreambuf_iterator<char>(file), {}};
}

uint32_t set_oper_state(std::string *) {
    return yb_net_interface_oper_state_set(recorded, YB_NET_IF_STATE_UP);
}

void add_state(std::vector<scenario> &all) {
    all.push_back({"yb_net_interface_state_set", "", given::interfaces, [] { set_loopback(false); },
                   set_state, dropped_request_socket});
    const auto flags = [] { return asked(SIOCGIFFLAGS, "lo"); };
    all.back().effect = flags;
    all.push_back({"yb_net_interface_state_set", "answered_by_others_too", given::interfaces,
                   bring_another_answer, set_state});
    all.back().effect = flags;
    all.push_back(
        {"yb_net_interface_state_get", "", given::interfaces, [] { set_loopback(true); }, get_state});
    all.push_back(
        {"yb_net_interface_oper_state_set", "", given::interfaces, bring_driver_file, set_oper_state});
    all.back().effect = driver_file_text;
}

// ---- Address aliases --------------------------------------------------------

yb_status_t set_alias(yb_access_cmd_t cmd) {
    const yb_ip_addr_t address = address_of(inet_addr("10.9.8.7"));
    const yb_ip_addr_t prefix = prefix_of(inet_addr("10.9.8.0"), inet_addr("255.255.255.0"));
    return yb_net_virtual_net_if_alias_set(cmd, recorded, "lo:1", &address, &prefix);
}

void open_requests_without_alias() {
    must(yb_net_interface_state_set(recorded, YB_NET_IF_STATE_UP) == YB_STATUS_SUCCESS, "a request socket");
    (void)set_alias(YB_ACCESS_CMD_DELETE); // of the case before
}

} // namespace

std::vector<scenario> link_scenarios() {
    std::vector<scenario> all;
    add_events(all);
    add_state(all);
    all.push_back({"yb_net_virtual_net_if_alias_set", "", given::interfaces, open_requests_without_alias,
                   [](std::string *) { return set_alias(YB_ACCESS_CMD_ADD); }});
    all.back().effect = [] { return asked(SIOCGIFADDR, "lo:1"); };
    return all;
}

} // namespace faults
