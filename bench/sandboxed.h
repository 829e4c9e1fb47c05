// SPDX-License-Identifier: Apache-2.0
//
// Benchmarks, like tests, touch neither the host's netdevs nor its /dev/shm.
#ifndef YBNET_BENCH_SANDBOXED_H
#define YBNET_BENCH_SANDBOXED_H

// Moves the process into namespaces of its own (tests/support/sandbox.h). False, with a line on standard
// error, when that cannot be.
bool sandboxed();

#endif
