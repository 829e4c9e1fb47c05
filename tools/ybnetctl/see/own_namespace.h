// SPDX-License-Identifier: Apache-2.0
//
// Whether the namespace that ybnetctl runs in is the one that records without a
// namespace name mean: to the library that is its caller's own, to `ip netns exec
// NAME ybnetctl` it is NAME, and not where those netdevs are.
#ifndef YBNET_YBNETCTL_SEE_OWN_NAMESPACE_H
#define YBNET_YBNETCTL_SEE_OWN_NAMESPACE_H

#include <string>

namespace ybnetctl {

// The name under /run/netns of the namespace that ybnetctl runs in, when that is not the default one as far as can be
// told. "" when it has no name, as in a container that has its own; when process 1 is in it; or when every process that
// maps the interfaces database is.
std::string named_instead_of_default();

// "this is namespace blue, not the default one"
std::string not_the_default_one(const std::string &name);

} // namespace ybnetctl

#endif
