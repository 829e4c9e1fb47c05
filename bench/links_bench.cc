// SPDX-License-Identifier: Apache-2.0
//
// Link state and link events on the real kernel, in namespaces of the benchmark's
// own: each next to the bare system calls with the same bytes, and next to
// libnl-route doing the same job.
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netlink/netlink.h>
#include <netlink/route/link.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include "bench/run_benchmarks.h"
#include "bench/sandboxed.h"
#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db.h"

namespace {

constexpr uint32_t bridge_key = 1;
constexpr int events_per_round = 64; // they fit the event socket's buffer

[[noreturn]] void give_up(const char *what) {
    perror(what);
    exit(1);
}

// ---- Requests: one netdev set up, or up and down

int bridge_ifindex;

struct state_request {
    struct nlmsghdr header;
    struct ifinfomsg link;
};

int netlink_socket() {
    const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (fd < 0)
        give_up("socket");
    return fd;
}

void send_to_kernel(int fd, void *request, size_t size) {
    struct sockaddr_nl kernel = {};
    kernel.nl_family = AF_NETLINK;
    struct iovec part = {request, size};
    struct msghdr message = {};
    message.msg_name = &kernel;
    message.msg_namelen = sizeof(kernel);
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (sendmsg(fd, &message, 0) < 0)
        give_up("sendmsg");
}

size_t receive(int fd, void *buffer, size_t size) {
    struct iovec part = {buffer, size};
    struct msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    const ssize_t received = recvmsg(fd, &message, 0);
    if (received < 0)
        give_up("recvmsg");
    return static_cast<size_t>(received);
}

void library_set(uint32_t state) {
    if (yb_net_interface_state_set(bridge_key, state) != YB_STATUS_SUCCESS)
        give_up("yb_net_interface_state_set");
}

void bare_set(int fd, uint32_t state) {
    static uint32_t sequence = 0;
    state_request request = {};
    request.header = {sizeof(request), RTM_NEWLINK, NLM_F_REQUEST | NLM_F_ACK, ++sequence, 0};
    request.link.ifi_family = AF_NETLINK;
    request.link.ifi_index = bridge_ifindex;
    request.link.ifi_flags = state != 0 ? uint32_t{IFF_UP} : ~uint32_t{IFF_UP};
    request.link.ifi_change = IFF_UP;
    send_to_kernel(fd, &request, sizeof(request));
    alignas(struct nlmsghdr) std::byte answer[256];
    struct nlmsgerr error = {};
    (void)receive(fd, answer, sizeof(answer));
    memcpy(&error, answer + sizeof(struct nlmsghdr), sizeof(error));
    if (error.error != 0)
        give_up("answer");
}

struct nl_sock *libnl_socket() {
    struct nl_sock *const socket = nl_socket_alloc();
    if (socket == nullptr || nl_connect(socket, NETLINK_ROUTE) != 0)
        give_up("nl_connect");
    return socket;
}

// The bridge as libnl wants it named, looked up once.
struct rtnl_link *libnl_bridge(struct nl_sock *socket) {
    struct rtnl_link *link = nullptr;
    if (rtnl_link_get_kernel(socket, bridge_ifindex, nullptr, &link) != 0)
        give_up("rtnl_link_get_kernel");
    return link;
}

void libnl_set(struct nl_sock *socket, struct rtnl_link *bridge, uint32_t state) {
    struct rtnl_link *const change = rtnl_link_alloc();
    if (state != 0)
        rtnl_link_set_flags(change, IFF_UP);
    else
        rtnl_link_unset_flags(change, IFF_UP);
    if (rtnl_link_change(socket, bridge, change, 0) != 0)
        give_up("rtnl_link_change");
    rtnl_link_put(change);
}

template <typename set_t> void set_up_again(benchmark::State &state, set_t set) {
    set(1);
    for (auto _ : state)
        set(1);
}

template <typename set_t> void set_up_and_down(benchmark::State &state, set_t set) {
    for (auto _ : state) {
        set(1);
        set(0);
    }
}

// The three ways to set a state, each measured by run(state, set).
template <typename run_t> void register_set(const std::string &name, run_t run) {
    benchmark::RegisterBenchmark(name.c_str(), [run](benchmark::State &state) { run(state, library_set); });
    benchmark::RegisterBenchmark((name + "/floor").c_str(), [run](benchmark::State &state) {
        const int fd = netlink_socket();
        run(state, [fd](uint32_t up) { bare_set(fd, up); });
        close(fd);
    });
    benchmark::RegisterBenchmark((name + "/libnl").c_str(), [run](benchmark::State &state) {
        struct nl_sock *const socket = libnl_socket();
        struct rtnl_link *const bridge = libnl_bridge(socket);
        run(state, [socket, bridge](uint32_t up) { libnl_set(socket, bridge, up); });
        rtnl_link_put(bridge);
        nl_socket_free(socket);
    });
}

// ---- Events: received in rounds, produced outside the measured time

yb_net_sk_t events;

// One event each: a flag without an effect changes.
void produce_events() {
    static bool debug = false;
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    struct ifreq request = {};
    (void)snprintf(request.ifr_name, sizeof(request.ifr_name), "bench0");
    if (ioctl(fd, SIOCGIFFLAGS, &request) != 0)
        give_up("SIOCGIFFLAGS");
    for (int i = 0; i < events_per_round; i++) {
        debug = !debug;
        request.ifr_flags =
            static_cast<short>(debug ? request.ifr_flags | IFF_DEBUG : request.ifr_flags & ~IFF_DEBUG);
        if (ioctl(fd, SIOCSIFFLAGS, &request) != 0)
            give_up("SIOCSIFFLAGS");
    }
    close(fd);
}

void drain(int fd) {
    std::byte byte;
    while (recv(fd, &byte, sizeof(byte), MSG_DONTWAIT) >= 0 || errno == ENOBUFS) {
    }
}

double now() {
    struct timespec time = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

template <typename receive_t> void receive_rounds(benchmark::State &state, int fd, receive_t receive_one) {
    drain(fd);
    for (auto _ : state) {
        produce_events();
        const double start = now();
        for (int i = 0; i < events_per_round; i++)
            receive_one();
        state.SetIterationTime(now() - start);
        if (recv(fd, nullptr, 0, MSG_DONTWAIT | MSG_PEEK) >= 0)
            give_up("more events than expected");
    }
}

void event_receive(benchmark::State &state) {
    receive_rounds(state, events.fd, [] {
        yb_net_if_event_t event;
        if (yb_net_if_event_receive(&events, &event) != YB_STATUS_SUCCESS || event.sys_ifindex != bridge_key)
            give_up("yb_net_if_event_receive");
    });
}

void event_receive_floor(benchmark::State &state) {
    receive_rounds(state, events.fd, [] {
        alignas(struct nlmsghdr) std::byte buffer[8192];
        if (recv(events.fd, buffer, sizeof(buffer), 0) <= 0)
            give_up("recv");
        benchmark::DoNotOptimize(buffer);
    });
}

// What libnl hands to a caller is the message: the link's index is read out of it, nothing looked up.
int take_message(struct nl_msg *message, void *ifindex) {
    struct ifinfomsg link;
    memcpy(&link, nlmsg_data(nlmsg_hdr(message)), sizeof(link));
    *static_cast<int *>(ifindex) = link.ifi_index;
    return NL_OK;
}

void event_receive_libnl(benchmark::State &state) {
    struct nl_sock *const socket = libnl_socket();
    int ifindex = 0;
    nl_socket_disable_seq_check(socket);
    (void)nl_socket_modify_cb(socket, NL_CB_VALID, NL_CB_CUSTOM, take_message, &ifindex);
    if (nl_socket_set_buffer_size(socket, 4 << 20, 4096) != 0 ||
        nl_socket_add_membership(socket, RTNLGRP_LINK) != 0)
        give_up("nl_socket_add_membership");
    receive_rounds(state, nl_socket_get_fd(socket), [socket, &ifindex] {
        if (nl_recvmsgs_default(socket) != 0 || ifindex != bridge_ifindex)
            give_up("nl_recvmsgs_default");
    });
    nl_socket_free(socket);
}

// ---- Dumps: the state of the last of many links, each number of them in a network namespace of its own

struct crowd {
    uint32_t links; // with lo; also the last one's system ifindex
    int namespace_fd;
    int last_ifindex;
};
std::array<crowd, 3> crowds = {crowd{4, -1, 0}, crowd{100, -1, 0}, crowd{1000, -1, 0}};

void enter(int namespace_fd) {
    if (setns(namespace_fd, CLONE_NEWNET) != 0)
        give_up("setns");
}

int this_namespace() {
    const int fd = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        give_up("/proc/self/ns/net");
    return fd;
}

void make(crowd *of) {
    if (unshare(CLONE_NEWNET) != 0)
        give_up("unshare");
    of->namespace_fd = this_namespace();
    const std::string last = std::to_string(of->links - 1);
    const std::string command =
        "for i in $(seq " + last +
        "); do echo link add name b$i type bridge; done | ip -batch - && ip link set b" + last + " up";
    if (std::system(command.c_str()) != 0)
        give_up("ip");
    of->last_ifindex = static_cast<int>(if_nametoindex(("b" + last).c_str()));
    yb_net_interface_params_t params = {};
    params.type = YB_L2_INTERFACE_TYPE_LOOPBACK;
    (void)snprintf(params.name, sizeof(params.name), "b%s", last.c_str());
    if (net_lib_db_interface_add(of->links, static_cast<uint32_t>(of->last_ifindex), &params) !=
        YB_STATUS_SUCCESS)
        give_up("net_lib_db_interface_add");
}

void state_get(benchmark::State &state, const crowd &in) {
    for (auto _ : state) {
        uint32_t up = 0;
        if (yb_net_interface_state_get(in.links, &up) != YB_STATUS_SUCCESS || up != 1)
            give_up("yb_net_interface_state_get");
    }
}

// Whether one datagram of a dump has the link in it: nothing but headers is looked at.
bool has_link(const std::byte *at, size_t size, int ifindex) {
    while (size >= sizeof(struct nlmsghdr) + sizeof(struct ifinfomsg)) {
        struct nlmsghdr header;
        struct ifinfomsg link;
        memcpy(&header, at, sizeof(header));
        memcpy(&link, at + sizeof(header), sizeof(link));
        if (header.nlmsg_type != RTM_NEWLINK)
            give_up("link missing in the dump");
        if (link.ifi_index == ifindex)
            return true;
        at += NLMSG_ALIGN(header.nlmsg_len);
        size -= NLMSG_ALIGN(header.nlmsg_len);
    }
    return false;
}

void state_get_floor(benchmark::State &state, const crowd &in) {
    struct {
        struct nlmsghdr header;
        struct rtgenmsg family;
    } request = {{NLMSG_LENGTH(sizeof(struct rtgenmsg)), RTM_GETLINK, NLM_F_REQUEST | NLM_F_DUMP, 1, 0},
                 {AF_PACKET}};
    for (auto _ : state) {
        const int fd = netlink_socket();
        send_to_kernel(fd, &request, request.header.nlmsg_len);
        alignas(struct nlmsghdr) std::byte buffer[8192];
        while (!has_link(buffer, receive(fd, buffer, sizeof(buffer)), in.last_ifindex)) {
        }
        close(fd);
    }
}

void state_get_libnl(benchmark::State &state, const crowd &in) {
    struct nl_sock *const socket = libnl_socket(); // kept: cheaper than one for each dump
    for (auto _ : state) {
        struct nl_cache *links = nullptr;
        if (rtnl_link_alloc_cache(socket, AF_UNSPEC, &links) != 0)
            give_up("rtnl_link_alloc_cache");
        struct rtnl_link *const link = rtnl_link_get(links, in.last_ifindex);
        if (link == nullptr || (rtnl_link_get_flags(link) & IFF_UP) == 0)
            give_up("rtnl_link_get");
        rtnl_link_put(link);
        nl_cache_free(links);
    }
    nl_socket_free(socket);
}

void register_get(int home, const crowd &in) {
    const std::string name = "state get, " + std::to_string(in.links) + " links";
    const auto add = [home, &in](const std::string &of, void (*run)(benchmark::State &, const crowd &)) {
        benchmark::RegisterBenchmark(of.c_str(), [home, &in, run](benchmark::State &state) {
            enter(in.namespace_fd);
            run(state, in);
            enter(home);
        });
    };
    add(name, state_get);
    add(name + "/floor", state_get_floor);
    add(name + "/libnl", state_get_libnl);
}

void prepare(int home) {
    // First, while nobody has the process id as port id.
    if (yb_net_register_net_if_event_group(YB_ACCESS_CMD_CREATE, YB_NET_IF_EVENT_GROUP_LINK, &events) !=
            YB_STATUS_SUCCESS ||
        yb_net_set_buffer_size(&events, 4 << 20, 4096) != YB_STATUS_SUCCESS)
        give_up("event socket");
    if (net_lib_db_interfaces_load(0) != YB_STATUS_SUCCESS)
        give_up("net_lib_db_interfaces_load");
    if (std::system("ip link add name bench0 type bridge") != 0)
        give_up("ip");
    bridge_ifindex = static_cast<int>(if_nametoindex("bench0"));
    yb_net_interface_params_t params = {};
    params.type = YB_L2_INTERFACE_TYPE_LOOPBACK;
    (void)snprintf(params.name, sizeof(params.name), "bench0");
    // Recorded first: crowds may have the same Linux ifindex, and events find the first record that has it.
    if (net_lib_db_interface_add(bridge_key, static_cast<uint32_t>(bridge_ifindex), &params) !=
        YB_STATUS_SUCCESS)
        give_up("net_lib_db_interface_add");
    library_set(1); // opens rth here, at home
    for (crowd &of : crowds)
        make(&of);
    enter(home);
}

} // namespace

int main(int argc, char **argv) {
    if (!sandboxed())
        return 1;
    const int home = this_namespace();
    prepare(home);

    register_set("state set, up already",
                 [](benchmark::State &state, auto set) { set_up_again(state, set); });
    register_set("state set, up and down",
                 [](benchmark::State &state, auto set) { set_up_and_down(state, set); });
    benchmark::RegisterBenchmark("event receive, 64 events", event_receive)->UseManualTime()->Iterations(30);
    benchmark::RegisterBenchmark("event receive, 64 events/floor", event_receive_floor)
        ->UseManualTime()
        ->Iterations(30);
    benchmark::RegisterBenchmark("event receive, 64 events/libnl", event_receive_libnl)
        ->UseManualTime()
        ->Iterations(30);
    for (const crowd &in : crowds)
        register_get(home, in);
    const int status = run_benchmarks(argc, argv);
    (void)net_lib_db_interfaces_unload(0);
    return status;
}
