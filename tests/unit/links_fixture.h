// SPDX-License-Identifier: Apache-2.0
//
// What the tests of link events, link state and aliases share: a freshly loaded
// interfaces database with records of the test's choosing, and a kernel that
// takes requests down and answers as the test says.
#ifndef YBNET_TESTS_LINKS_FIXTURE_H
#define YBNET_TESTS_LINKS_FIXTURE_H

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/recording_platform.h"
#include "tests/support/system_calls.h"
#include "tests/unit/netlink_bytes.h"
#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db.h"
#include "ybnet/yb_net_rtnl.h"

constexpr uint32_t severity_error = 1;
constexpr uint32_t severity_info = 15;
constexpr uint32_t severity_debug = 31;

// One request as sendmsg() got it.
struct sent_request {
    byte_vector bytes;
    struct sockaddr_nl address;
    int descriptor;
    bool close_on_exec;
};

class links_fixture : public testing::Test {
  protected:
    void SetUp() override {
        calls::reset();
        ASSERT_EQ(net_lib_db_interfaces_load(0), YB_STATUS_SUCCESS);
        platform::reset();
        set_verbosity(3);
        rth = {};
        rth.fd = -1;
    }
    void TearDown() override {
        calls::reset();
        (void)net_lib_db_interfaces_unload(0);
        if (rth.opened == 1)
            close(rth.fd);
    }

    static void set_verbosity(uint32_t level) {
        (void)yb_net_log_verbosity_level(YB_ACCESS_CMD_SET, &level);
    }

    static yb_net_interface_params_t params_of(uint32_t type, const std::string &name,
                                               const std::string &ns = "") {
        yb_net_interface_params_t params = {};
        params.type = type;
        memcpy(params.name, name.data(), std::min(name.size(), sizeof(params.name)));
        memcpy(params.ns_name, ns.data(), std::min(ns.size(), sizeof(params.ns_name)));
        return params;
    }
    static void add_record(uint32_t sys_ifindex, uint32_t linux_ifindex, const std::string &name,
                           uint32_t type = YB_L2_INTERFACE_TYPE_PORT, const std::string &ns = "") {
        const auto params = params_of(type, name, ns);
        ASSERT_EQ(net_lib_db_interface_add(sys_ifindex, linux_ifindex, &params), YB_STATUS_SUCCESS);
    }

    // From now on dump requests are taken down, and answered by the datagrams given, one by one; when they have
    // run out, the test fails and the receiver gets an error. Without datagrams: acknowledged with this
    // error.
    void answer_with(std::vector<byte_vector> datagrams) {
        take_requests();
        datagrams_ = std::move(datagrams);
        calls::on_recvmsg() = [this](int, struct msghdr *received, int flags) -> ssize_t {
            EXPECT_EQ(flags, 0);
            EXPECT_EQ(received->msg_iovlen, 1u);
            EXPECT_EQ(received->msg_iov[0].iov_len, 8192u);
            if (datagrams_.empty()) {
                ADD_FAILURE() << "received once too often";
                errno = EIO;
                return -1;
            }
            const byte_vector datagram = datagrams_.front();
            datagrams_.erase(datagrams_.begin());
            return hand_out(datagram, received);
        };
    }
    void acknowledge_with(int32_t error) {
        take_requests();
        calls::on_recvmsg() = [this, error](int, struct msghdr *received, int) -> ssize_t {
            struct nlmsghdr request;
            memcpy(&request, sent_.back().bytes.data(), sizeof(request));
            struct nlmsghdr header = {};
            byte_vector answer = error_message(error);
            memcpy(&header, answer.data(), sizeof(header));
            header.nlmsg_seq = request.nlmsg_seq;
            header.nlmsg_pid = rth.local.nl_pid;
            memcpy(answer.data(), &header, sizeof(header));
            return hand_out(answer, received);
        };
    }

    const std::vector<sent_request> &sent() const {
        return sent_;
    }
    size_t unread_datagrams() const {
        return datagrams_.size();
    }

    static const std::vector<platform::log_line> &log() {
        return platform::recorded().log;
    }
    static std::vector<std::string> errors() {
        return platform::recorded().texts(severity_error);
    }

  private:
    void take_requests() {
        calls::on_sendmsg() = [this](int descriptor, const struct msghdr *request, int flags) -> ssize_t {
            EXPECT_EQ(flags, 0);
            EXPECT_EQ(request->msg_iovlen, 1u);
            EXPECT_EQ(request->msg_namelen, sizeof(struct sockaddr_nl));
            sent_request taken = {};
            const auto *const from = static_cast<const uint8_t *>(request->msg_iov[0].iov_base);
            taken.bytes.assign(from, from + request->msg_iov[0].iov_len);
            memcpy(&taken.address, request->msg_name, sizeof(taken.address));
            taken.descriptor = descriptor;
            taken.close_on_exec = fcntl(descriptor, F_GETFD) == FD_CLOEXEC;
            sent_.push_back(taken);
            return static_cast<ssize_t>(taken.bytes.size());
        };
    }
    static ssize_t hand_out(const byte_vector &datagram, struct msghdr *received) {
        const size_t size = std::min(datagram.size(), received->msg_iov[0].iov_len);
        std::copy_n(datagram.begin(), size, static_cast<uint8_t *>(received->msg_iov[0].iov_base));
        received->msg_flags = size < datagram.size() ? MSG_TRUNC : 0;
        if (received->msg_name != nullptr) {
            struct sockaddr_nl kernel = {};
            kernel.nl_family = AF_NETLINK;
            memcpy(received->msg_name, &kernel, sizeof(kernel));
            received->msg_namelen = sizeof(kernel);
        }
        return static_cast<ssize_t>(size);
    }

    std::vector<sent_request> sent_;
    std::vector<byte_vector> datagrams_;
};

#endif
