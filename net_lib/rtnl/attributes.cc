// SPDX-License-Identifier: Apache-2.0
//
// Appending routing attributes to a request (rtnetlink(7)). Sending it is
// request.cc's.
#include "net_lib/rtnl/attributes.h"

#include <cstdio>
#include <cstring>

#include "net_lib/net_lib_log.h"

namespace {

constexpr int64_t rta_length_max = UINT16_MAX;

std::byte *end_of(struct nlmsghdr *n) {
    return reinterpret_cast<std::byte *>(n) + NLMSG_ALIGN(n->nlmsg_len);
}

// False, with nothing changed, when the attribute does not fit.
bool append(struct nlmsghdr *n, int32_t maxlen, int32_t type, const void *data, int32_t alen) {
    // In 64 bits: a message length or an attribute near the 32-bit limits must not wrap into fitting.
    const int64_t length = static_cast<int64_t>(alen) + static_cast<int64_t>(sizeof(struct rtattr));
    const int64_t start = (static_cast<int64_t>(n->nlmsg_len) + 3) & ~int64_t{3};
    const int64_t need = start + ((length + 3) & ~int64_t{3});
    if (alen < 0 || length > rta_length_max || need > maxlen)
        return false;

    auto *const attribute = reinterpret_cast<struct rtattr *>(end_of(n));
    attribute->rta_type = static_cast<uint16_t>(type);
    attribute->rta_len = static_cast<uint16_t>(length);
    if (alen != 0)
        memcpy(RTA_DATA(attribute), data, static_cast<size_t>(alen));
    n->nlmsg_len = static_cast<uint32_t>(need);
    return true;
}

} // namespace

YB_EXPORT int32_t addattr_l(struct nlmsghdr *n, int32_t maxlen, int32_t type, const void *data,
                            int32_t alen) {
    if (!append(n, maxlen, type, data, alen)) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "addattr_l ERROR: message exceeded bound of %d\n", maxlen);
        return -1;
    }
    return 0;
}

// A second appender beside addattr_l(), kept: its request reports on standard error, with another result.
int32_t __alias_addattr_l(struct nlmsghdr *n, int32_t maxlen, int32_t type, const void *data, int32_t alen) {
    if (!append(n, maxlen, type, data, alen)) {
        (void)fprintf(stderr, "addattr_l ERROR: message exceeded bound of %d\n", maxlen);
        return 1;
    }
    return 0;
}

YB_EXPORT int32_t addattr32(struct nlmsghdr *n, int32_t maxlen, int32_t type, uint32_t value) {
    return addattr_l(n, maxlen, type, &value, sizeof(value));
}

YB_EXPORT struct rtattr *addattr_nest(struct nlmsghdr *n, int32_t maxlen, int32_t type) {
    auto *const nest = reinterpret_cast<struct rtattr *>(end_of(n));
    (void)addattr_l(n, maxlen, type, nullptr, 0); // the position is returned either way
    return nest;
}

YB_EXPORT int32_t addattr_nest_end(struct nlmsghdr *n, struct rtattr *nest) {
    const std::ptrdiff_t length = end_of(n) - reinterpret_cast<std::byte *>(nest);
    if (length > 0) // else the nest did not fit and lies behind the message, maybe behind its buffer
        nest->rta_len = static_cast<uint16_t>(length);
    return static_cast<int32_t>(n->nlmsg_len);
}
