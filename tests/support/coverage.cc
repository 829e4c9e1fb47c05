// SPDX-License-Identifier: Apache-2.0
//
// In the library itself when it is built for ./dev coverage, because its counts
// are its own: the children that tests fork (processes.cc) end without running
// exit handlers, and what they have run would be lost.
#include <cstdlib>

extern "C" void __gcov_dump(void);

[[gnu::constructor]] static void keep_counts_of_children() {
    (void)at_quick_exit(__gcov_dump); // one that is refused shows: what only children run is missing
}
