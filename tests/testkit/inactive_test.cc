// SPDX-License-Identifier: Apache-2.0
//
// The kit before its beginning and after its end. A program of its own: libybnet
// keeps a socket of a test that has ended.
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <net/if.h>
#include <string>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include "ybnet/testkit/testkit.h"

TEST(kit_inactive, calls_the_c_librarys_own) {
    EXPECT_STREQ("", ybtk_directory());
    EXPECT_EQ(0, ybtk_reset());
    const int descriptor = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    ASSERT_GE(descriptor, 0);
    int domain = 0;
    socklen_t size = sizeof(domain);
    ASSERT_EQ(0, getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &size));
    EXPECT_EQ(AF_NETLINK, domain);
    close(descriptor);
    EXPECT_EQ(1u, if_nametoindex("lo"));
    const std::string name = "/ybnet-testkit-inactive-" + std::to_string(getpid());
    const int memory = shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
    ASSERT_GE(memory, 0);
    EXPECT_EQ(0, access(("/dev/shm" + name).c_str(), F_OK));
    EXPECT_EQ(0, shm_unlink(name.c_str()));
    close(memory);
}

TEST(kit_inactive, begins_and_ends_without_a_trace) {
    const std::string path = getenv("PATH");
    ASSERT_EQ(0, ybtk_begin());
    const std::string made = ybtk_directory();
    EXPECT_NE(path, getenv("PATH"));
    ASSERT_EQ(0, ybtk_end());
    EXPECT_EQ(path, getenv("PATH"));
    EXPECT_EQ(nullptr, getenv("YBNET_TESTKIT_DIR"));
    EXPECT_EQ(-1, access(made.c_str(), F_OK));
}

TEST(kit_inactive, socket_of_a_test_that_has_ended_does_not_wait_for_answers) {
    ASSERT_EQ(0, ybtk_begin());
    const int descriptor = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    struct nlmsghdr request = {};
    request.nlmsg_len = sizeof(request);
    request.nlmsg_flags = NLM_F_REQUEST;
    EXPECT_EQ(16, send(descriptor, &request, sizeof(request), 0));
    ASSERT_EQ(0, ybtk_end());
    ASSERT_EQ(0, ybtk_begin());
    EXPECT_EQ(-1, send(descriptor, &request, sizeof(request), 0));
    EXPECT_EQ(ENETDOWN, errno);
    close(descriptor);
    ASSERT_EQ(0, ybtk_end());
}

TEST(kit_inactive, descriptor_closed_by_other_means_is_no_netlink_socket_any_more) {
    ASSERT_EQ(0, ybtk_begin());
    const int descriptor = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    const int pair = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(descriptor, dup2(pair, descriptor));
    struct sockaddr_storage address = {};
    socklen_t size = sizeof(address);
    ASSERT_EQ(0, getsockname(descriptor, reinterpret_cast<struct sockaddr *>(&address), &size));
    EXPECT_EQ(AF_INET, address.ss_family);
    close(pair);
    close(descriptor);
    ASSERT_EQ(0, ybtk_end());
}
