// SPDX-License-Identifier: Apache-2.0
//
// Namespaces of the test's own: nothing that a test does reaches the host's
// netdevs, /dev/shm or /run/netns.
#ifndef YBNET_TESTS_SANDBOX_H
#define YBNET_TESTS_SANDBOX_H

#include <string>

// Moves this process into its own user (when the host lets it), mount and network namespaces, with its own
// tmpfs on /dev/shm and /run (and so /run/netns), its own sysfs on /sys, and lo up. Returns "", or what
// failed.
std::string sandbox_enter();

#endif
