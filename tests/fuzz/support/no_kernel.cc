// SPDX-License-Identifier: Apache-2.0
//
// See no_kernel.h. Outside of an input the real functions are called: the fuzzer itself runs commands when it
// merges or reduces.
#include "tests/fuzz/support/no_kernel.h"

#include <cerrno>
#include <cstdio>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netlink/attr.h>
#include <netlink/msg.h>
#include <sys/socket.h>

#include "tests/fuzz/support/check.h"
#include "tests/fuzz/support/command_text.h"
#include "ybnet/yb_net_rtnl.h"

namespace {

constexpr int the_socket = 1 << 20; // no descriptor of the process
constexpr uint32_t port_id = 4711;
constexpr uint8_t fails = 0xFF;

bool stands;
fuzz::input answers;
uint32_t last_sequence;

uint8_t next_answer() {
    return answers.take<uint8_t>();
}

int fail_with(int reason) {
    errno = reason;
    return -1;
}

// A request is whole, within its buffer, and made of attributes that end where it ends.
void check_request(const msghdr *message) {
    FUZZ_CHECK(message->msg_iovlen == 1);
    const auto *const header = static_cast<const nlmsghdr *>(message->msg_iov->iov_base);
    FUZZ_CHECK(header->nlmsg_len == message->msg_iov->iov_len);
    FUZZ_CHECK(header->nlmsg_len >= NLMSG_LENGTH(sizeof(ifinfomsg)));
    FUZZ_CHECK(header->nlmsg_len <= YB_NET_RTNL_REQ_SIZE);
    FUZZ_CHECK(header->nlmsg_type == RTM_NEWLINK || header->nlmsg_type == RTM_DELLINK);
    FUZZ_CHECK((header->nlmsg_flags & NLM_F_ACK) != 0);
    int remaining = nlmsg_attrlen(header, sizeof(ifinfomsg));
    bool named = false;
    for (const nlattr *at = nlmsg_attrdata(header, sizeof(ifinfomsg)); nla_ok(at, remaining);
         at = nla_next(at, &remaining)) {
        if (at->nla_type != IFLA_IFNAME)
            continue;
        named = true;
        const auto *const name = static_cast<const char *>(nla_data(at));
        FUZZ_CHECK(nla_len(at) > 1 && nla_len(at) <= IFNAMSIZ);
        FUZZ_CHECK(strnlen(name, static_cast<size_t>(nla_len(at))) + 1 == static_cast<size_t>(nla_len(at)));
    }
    FUZZ_CHECK(remaining == 0);
    FUZZ_CHECK(named == (header->nlmsg_type == RTM_NEWLINK));
    last_sequence = header->nlmsg_seq;
}

ssize_t put_answer(const msghdr *message, uint16_t type, uint32_t sequence, int error) {
    struct {
        nlmsghdr header;
        nlmsgerr payload;
    } answer = {};
    answer.header = {sizeof(answer), type, 0, sequence, port_id};
    answer.payload.error = error;
    FUZZ_CHECK(message->msg_iov->iov_len >= sizeof(answer));
    memcpy(message->msg_iov->iov_base, &answer, sizeof(answer));
    return sizeof(answer);
}

// What a cat of the ifindex file printed.
const char *printed(uint8_t which) {
    static constexpr const char *texts[] = {
        "17\n",
        "0\n",
        "\n",
        "cat: /sys/devices/virtual/net/x/ifindex: No such file or directory\n",
        "99999999999999999999999999999999\n",
        "-1\n",
        "18",
        " 12 and more\nand more\n"};
    return texts[which % std::size(texts)];
}

} // namespace

namespace fuzz {

no_kernel::no_kernel(input given) {
    answers = given;
    rth = {-1, {}, 0, 0};
    stands = true;
}

no_kernel::~no_kernel() {
    stands = false;
}

} // namespace fuzz

// The function's real self, outside of an input.
#define REAL_UNLESS_STANDS(name, ...)                                                                        \
    if (!stands)                                                                                             \
    return __real_##name(__VA_ARGS__)

extern "C" {

int __real_system(const char *);
FILE *__real_popen(const char *, const char *);
int __real_pclose(FILE *);
unsigned __real_if_nametoindex(const char *);
int __real_socket(int, int, int);
int __real_setsockopt(int, int, int, const void *, socklen_t);
int __real_bind(int, const sockaddr *, socklen_t);
int __real_getsockname(int, sockaddr *, socklen_t *);
ssize_t __real_sendmsg(int, const msghdr *, int);
ssize_t __real_recvmsg(int, msghdr *, int);

int __wrap_system(const char *command) {
    REAL_UNLESS_STANDS(system, command);
    FUZZ_CHECK(fuzz::is_a_command(command));
    const uint8_t answer = next_answer();
    return answer == fails ? fail_with(ENOMEM) : answer << 8; // an exit code
}

FILE *__wrap_popen(const char *command, const char *mode) {
    REAL_UNLESS_STANDS(popen, command, mode);
    FUZZ_CHECK(fuzz::is_a_query(command));
    const uint8_t answer = next_answer();
    if (answer == fails)
        return nullptr;
    const char *const text = printed(answer);
    return fmemopen(const_cast<char *>(text), strlen(text), "r");
}

int __wrap_pclose(FILE *output) {
    REAL_UNLESS_STANDS(pclose, output);
    FUZZ_CHECK(fclose(output) == 0);
    const uint8_t answer = next_answer();
    return answer == fails ? fail_with(ECHILD) : answer % 4 << 8;
}

unsigned __wrap_if_nametoindex(const char *name) {
    REAL_UNLESS_STANDS(if_nametoindex, name);
    FUZZ_CHECK(strlen(name) < 64);
    return next_answer();
}

int __wrap_socket(int domain, int type, int protocol) {
    REAL_UNLESS_STANDS(socket, domain, type, protocol);
    return next_answer() == fails ? fail_with(EMFILE) : the_socket;
}

int __wrap_setsockopt(int descriptor, int level, int option, const void *value, socklen_t size) {
    REAL_UNLESS_STANDS(setsockopt, descriptor, level, option, value, size);
    FUZZ_CHECK(descriptor == the_socket && size == sizeof(int));
    return 0;
}

int __wrap_bind(int descriptor, const sockaddr *address, socklen_t size) {
    REAL_UNLESS_STANDS(bind, descriptor, address, size);
    FUZZ_CHECK(descriptor == the_socket && size == sizeof(sockaddr_nl));
    return 0;
}

int __wrap_getsockname(int descriptor, sockaddr *address, socklen_t *size) {
    REAL_UNLESS_STANDS(getsockname, descriptor, address, size);
    FUZZ_CHECK(descriptor == the_socket && *size == sizeof(sockaddr_nl));
    sockaddr_nl own = {};
    own.nl_family = AF_NETLINK;
    own.nl_pid = port_id;
    memcpy(address, &own, sizeof(own));
    return 0;
}

ssize_t __wrap_sendmsg(int descriptor, const msghdr *message, int flags) {
    REAL_UNLESS_STANDS(sendmsg, descriptor, message, flags);
    FUZZ_CHECK(descriptor == the_socket);
    check_request(message);
    return next_answer() == fails ? fail_with(ENOBUFS) : static_cast<ssize_t>(message->msg_iov->iov_len);
}

// An acknowledgement, a refusal, or something to pass over.
ssize_t __wrap_recvmsg(int descriptor, msghdr *message, int flags) {
    REAL_UNLESS_STANDS(recvmsg, descriptor, message, flags);
    FUZZ_CHECK(descriptor == the_socket);
    message->msg_namelen = sizeof(sockaddr_nl);
    switch (const uint8_t answer = next_answer()) {
    case fails:
        return fail_with(EBADF);
    case fails - 1:
        return fail_with(EINTR);
    case fails - 2:
        return put_answer(message, NLMSG_ERROR, last_sequence - 1, 0);
    case fails - 3:
        return put_answer(message, RTM_NEWLINK, last_sequence, 0);
    case fails - 4:
        return 0;
    default:
        return put_answer(message, NLMSG_ERROR, last_sequence, -answer);
    }
}

} // extern "C"
