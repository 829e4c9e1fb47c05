// SPDX-License-Identifier: Apache-2.0
//
// A request to the kernel in words: the header, the family header and every attribute of an rtnetlink(7) message, as
// this library builds them. What is not known by name is shown by number.
#ifndef YBNET_YBNETCTL_CHANGE_REQUEST_TEXT_H
#define YBNET_YBNETCTL_CHANGE_REQUEST_TEXT_H

#include <cstddef>
#include <functional>
#include <span>
#include <string>

#include "tools/ybnetctl/session.h"

namespace ybnetctl {

// Name of a netdev, "" when it has none.
using netdev_namer = std::function<std::string(unsigned ifindex)>;

struct request_words {
    std::string text; // "RTM_NEWLINK flags REQUEST|ACK ifindex 5 (swp1) link flags UP change UP"
    json details;     // the same by keys
};

// Never reads behind bytes; a message that ends early, or an attribute that does, is shown as far as it goes, with
// "cut short" behind it.
request_words describe_request(std::span<const std::byte> bytes, const netdev_namer &name_of);

} // namespace ybnetctl

#endif
