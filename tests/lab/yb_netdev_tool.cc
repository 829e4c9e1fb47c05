// SPDX-License-Identifier: Apache-2.0
// Makes and shows links of kind yb_netdev attribute by attribute, which ip cannot:
// driver_sim_test.sh asks with it for right and wrong IFLA_INFO_DATA.
//   yb_netdev_tool create NAME bare|nul [ATTRIBUTE:HEX ...]   kind without or with its NUL
//   yb_netdev_tool show NAME                                  prints "KIND ATTRIBUTE:HEX ..."
// Prints the error libnl reports and fails if the kernel refuses.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <netlink/attr.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>

namespace {

constexpr int usage_status = 2;
constexpr std::string_view kind = "yb_netdev";

struct socket_free {
    void operator()(nl_sock *socket) const {
        nl_socket_free(socket);
    }
};
struct message_free {
    void operator()(nl_msg *message) const {
        nlmsg_free(message);
    }
};
using socket_ptr = std::unique_ptr<nl_sock, socket_free>;
using message_ptr = std::unique_ptr<nl_msg, message_free>;

int fail(const char *what, int error) {
    std::printf("%s: %s\n", what, nl_geterror(error));
    return EXIT_FAILURE;
}

message_ptr link_message(int type, int flags, const char *name) {
    message_ptr message(nlmsg_alloc_simple(type, flags));
    ifinfomsg header{};
    if (!message || nlmsg_append(message.get(), &header, sizeof(header), NLMSG_ALIGNTO) != 0 ||
        nla_put_string(message.get(), IFLA_IFNAME, name) != 0)
        std::abort();
    return message;
}

bool put_hex(nl_msg *message, const char *text) {
    char *end = nullptr;
    const int attribute = static_cast<int>(std::strtol(text, &end, 10));
    if (end == text || *end != ':')
        return false;
    std::string bytes;
    for (std::string_view hex = end + 1; hex.size() >= 2; hex.remove_prefix(2))
        bytes.push_back(static_cast<char>(std::strtol(std::string(hex.substr(0, 2)).c_str(), nullptr, 16)));
    return nla_put(message, attribute, static_cast<int>(bytes.size()), bytes.data()) == 0;
}

int create(nl_sock *socket, const char *name, bool with_nul, char **attributes) {
    message_ptr message = link_message(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL, name);
    nlattr *info = nla_nest_start(message.get(), IFLA_LINKINFO);
    if (!info ||
        nla_put(message.get(), IFLA_INFO_KIND, static_cast<int>(kind.size() + with_nul), kind.data()) != 0)
        std::abort();
    if (*attributes) {
        nlattr *data = nla_nest_start(message.get(), IFLA_INFO_DATA);
        for (; *attributes; ++attributes)
            if (!put_hex(message.get(), *attributes))
                return usage_status;
        nla_nest_end(message.get(), data);
    }
    nla_nest_end(message.get(), info);
    // nl_send_sync frees what it is given.
    const int error = nl_send_sync(socket, message.release());
    return error < 0 ? fail("create", error) : EXIT_SUCCESS;
}

int print_link(nl_msg *message, void *) {
    nlattr *info = nlmsg_find_attr(nlmsg_hdr(message), sizeof(ifinfomsg), IFLA_LINKINFO);
    nlattr *name =
        info ? nla_find(static_cast<nlattr *>(nla_data(info)), nla_len(info), IFLA_INFO_KIND) : nullptr;
    nlattr *data =
        info ? nla_find(static_cast<nlattr *>(nla_data(info)), nla_len(info), IFLA_INFO_DATA) : nullptr;
    std::printf("%s", name ? nla_get_string(name) : "no kind");
    if (data) {
        nlattr *attribute = nullptr;
        int left = 0;
        nla_for_each_nested(attribute, data, left) {
            std::printf(" %d:", nla_type(attribute));
            const auto *bytes = static_cast<const unsigned char *>(nla_data(attribute));
            for (int i = 0; i < nla_len(attribute); ++i)
                std::printf("%02x", bytes[i]);
        }
    }
    std::puts("");
    return NL_OK;
}

int show(nl_sock *socket, const char *name) {
    message_ptr message = link_message(RTM_GETLINK, 0, name);
    int error = nl_socket_modify_cb(socket, NL_CB_VALID, NL_CB_CUSTOM, print_link, nullptr);
    if (error == 0)
        error = nl_send_auto(socket, message.get());
    if (error >= 0)
        error = nl_recvmsgs_default(socket);
    return error < 0 ? fail("show", error) : EXIT_SUCCESS;
}

} // namespace

int main(int argc, char **argv) {
    const socket_ptr socket(nl_socket_alloc());
    if (!socket)
        std::abort();
    if (const int error = nl_connect(socket.get(), NETLINK_ROUTE); error != 0)
        return fail("connect", error);

    const std::string_view verb = argc > 1 ? argv[1] : "";
    if (verb == "create" && argc >= 4)
        return create(socket.get(), argv[2], std::string_view(argv[3]) == "nul", argv + 4);
    if (verb == "show" && argc == 3)
        return show(socket.get(), argv[2]);
    std::fputs("usage: yb_netdev_tool create NAME bare|nul [ATTRIBUTE:HEX...] | show NAME\n", stderr);
    return usage_status;
}
