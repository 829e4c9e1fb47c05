// SPDX-License-Identifier: Apache-2.0
//
// The request socket and the port requests as strace(1) decodes them from
// outside, and what becomes of them on a kernel that does not know the link
// kind. The lab has one that does.
#include <fstream>
#include <regex>
#include <sstream>
#include <unistd.h>

#include "tests/host/netdev_fixture.h"
#include "ybnet/yb_net_rtnl.h"

using testing::HasSubstr;

namespace {

bool is_traced() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("TracerPid:", 0) == 0)
            return line.find_first_of("123456789") != std::string::npos;
    }
    return false;
}

class port_request : public host_netdev_test {
  protected:
    // The system calls that body makes, one a line, as strace shows them.
    static std::string traced(const std::string &which, const std::function<int()> &body,
                              int expected_status) {
        char file[] = "/tmp/ybnet-strace-XXXXXX";
        const int descriptor = mkstemp(file);
        EXPECT_GE(descriptor, 0);
        close(descriptor);
        child_process child([&body]() -> int {
            rth = {-1, {}, 0, 0}; // this process's own, whatever its parent opened
            while (!is_traced())
                usleep(1000);
            _exit(body()); // whatever ran behind it would be shown, too
        });
        child_process tracer([&] {
            const run_result run =
                run_program({"strace", "-qq", "-s", "4096", "-e", "trace=" + which, "-e", "signal=none", "-o",
                             file, "-p", std::to_string(child.pid())});
            if (run.status != 0)
                (void)fputs(run.output.c_str(), stderr);
            return run.status;
        });
        EXPECT_EQ(expected_status, child.wait());
        EXPECT_EQ(0, tracer.wait());
        std::ifstream in(file);
        std::string calls(std::istreambuf_iterator<char>(in), {});
        (void)unlink(file);
        return calls;
    }

    // In a process of its own, so that the handle is fresh: status, standard error and log of one CREATE.
    static std::string said_by_create(yb_net_interface_params_t params) {
        char file[] = "/tmp/ybnet-said-XXXXXX";
        close(mkstemp(file));
        child_process child([&file, params]() mutable {
            rth = {-1, {}, 0, 0};
            stderr_capture captured;
            const yb_status_t status = yb_net_interface_set(YB_ACCESS_CMD_CREATE, 1, &params);
            std::ofstream out(file);
            out << status << "\n" << captured.text();
            for (const logged &line : logged_lines())
                out << line.severity << " " << line.text;
            return 0;
        });
        EXPECT_EQ(0, child.wait());
        std::ifstream in(file);
        std::string said(std::istreambuf_iterator<char>(in), {});
        (void)unlink(file);
        return said;
    }
};

int create_port() {
    yb_net_interface_params_t params = port_params("swp1", "red", 0x01020304, 0xA0B0C0D0);
    return static_cast<int>(yb_net_interface_set(YB_ACCESS_CMD_CREATE, 1, &params));
}

} // namespace

TEST_F(port_request, create_is_decoded_as_a_new_link_of_the_drivers_kind) {
    const std::string calls = traced("sendmsg,sendto", create_port, YB_STATUS_ERROR);
    EXPECT_THAT(calls, testing::StartsWith("sendmsg("));
    EXPECT_EQ(1, std::count(calls.begin(), calls.end(), '\n')) << calls;
    EXPECT_THAT(
        calls, HasSubstr("{msg_name={sa_family=AF_NETLINK, nl_pid=0, nl_groups=00000000}, msg_namelen=12, "));
    EXPECT_THAT(calls, HasSubstr("nlmsg_len=84, nlmsg_type=RTM_NEWLINK, "
                                 "nlmsg_flags=NLM_F_REQUEST|NLM_F_ACK|NLM_F_EXCL|NLM_F_CREATE, nlmsg_seq="));
    EXPECT_THAT(calls, HasSubstr(", nlmsg_pid=0}, {ifi_family="));
    EXPECT_THAT(calls, HasSubstr("ifi_index=0, ifi_flags=0, ifi_change=0}"));
    EXPECT_THAT(calls, HasSubstr("[{nla_len=9, nla_type=IFLA_IFNAME}, \"swp1\"], "
                                 "[{nla_len=40, nla_type=IFLA_LINKINFO}, ["
                                 "[{nla_len=13, nla_type=IFLA_INFO_KIND}, \"yb_netdev\"...], "
                                 "[{nla_len=20, nla_type=IFLA_INFO_DATA}, "));
    EXPECT_THAT(calls, HasSubstr("iov_len=84}], msg_iovlen=1, msg_controllen=0, msg_flags=0}, 0) = 84"));
}

TEST_F(port_request, destroy_is_decoded_as_the_removal_of_the_netdevs_index) {
    make_netdev("swp1");
    const yb_net_interface_params_t params = port_params("swp1");
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_add(1, 99, &params));
    const std::string index = std::to_string(ifindex_of("swp1"));
    const std::string calls = traced(
        "sendmsg", [] { return static_cast<int>(destroy(1)); }, YB_STATUS_SUCCESS);
    EXPECT_EQ(1, std::count(calls.begin(), calls.end(), '\n')) << calls;
    EXPECT_THAT(calls,
                HasSubstr("nlmsg_len=32, nlmsg_type=RTM_DELLINK, nlmsg_flags=NLM_F_REQUEST|NLM_F_ACK, "));
    EXPECT_THAT(calls, HasSubstr("ifi_flags=0, ifi_change=0}"));
    EXPECT_FALSE(netdev_exists("swp1"));
}

TEST_F(port_request, handle_is_opened_with_the_documented_calls) {
    const std::string calls =
        traced("socket,setsockopt,bind,getsockname,fcntl", create_port, YB_STATUS_ERROR);
    // if_nametoindex(3) is not asked by CREATE, so all of these are the library's.
    EXPECT_THAT(calls,
                testing::MatchesRegex(
                    "socket\\(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE\\) += ([0-9]+)\n"
                    "fcntl\\([0-9]+, F_SETFD, FD_CLOEXEC\\) += 0\n"
                    "setsockopt\\([0-9]+, SOL_SOCKET, SO_SNDBUF, \\[32768\\], 4\\) = 0\n"
                    "setsockopt\\([0-9]+, SOL_SOCKET, SO_RCVBUF, \\[1048576\\], 4\\) = 0\n"
                    "bind\\([0-9]+, \\{sa_family=AF_NETLINK, nl_pid=0, nl_groups=00000000\\}, 12\\) = 0\n"
                    "getsockname\\([0-9]+, \\{sa_family=AF_NETLINK, nl_pid=[0-9]+, nl_groups=00000000\\}, "
                    "\\[12\\]\\) = 0\n"));
}

TEST_F(port_request, kernel_without_the_link_kind_refuses_it_and_all_is_told) {
    if (run_ip({"link", "add", "probe", "type", "yb_netdev"}).status == 0)
        GTEST_SKIP() << "this kernel has the driver and refuses nothing: lab.netdevs shows what it does then";
    EXPECT_EQ("1\n"
              "RTNETLINK answers [95]: Operation not supported\n"
              "1 yb_net_port_if_set: rtnl_talk: failed to CREATE port netdev \"swp1\".\n",
              said_by_create(port_params("swp1")));
}

TEST_F(port_request, name_that_is_taken_is_refused_and_all_is_told) {
    make_netdev("swp1");
    EXPECT_EQ("1\n"
              "RTNETLINK answers [17]: File exists\n"
              "1 yb_net_port_if_set: rtnl_talk: failed to CREATE port netdev \"swp1\".\n",
              said_by_create(port_params("swp1")));
}
