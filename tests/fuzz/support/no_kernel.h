// SPDX-License-Identifier: Apache-2.0
//
// The shell, the kernel's netdevs and its rtnetlink, for a target that makes and removes netdevs: while one
// of these stands, no command is run and nothing is sent. What would have been is checked, and answered as
// the input says. Needs the wraps that CMakeLists.txt links.
#ifndef YBNET_TESTS_FUZZ_NO_KERNEL_H
#define YBNET_TESTS_FUZZ_NO_KERNEL_H

#include "tests/fuzz/support/input.h"

namespace fuzz {

class no_kernel {
  public:
    // One byte for each answer; all of them are good news once there are no more, but no netdev exists.
    explicit no_kernel(input answers);
    ~no_kernel();
    no_kernel(const no_kernel &) = delete;
    no_kernel &operator=(const no_kernel &) = delete;
};

} // namespace fuzz

#endif
