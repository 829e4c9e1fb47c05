// SPDX-License-Identifier: Apache-2.0
//
// Only for ./dev coverage, in whatever has counts of its own: the library and
// the programs with its objects. The children that tests fork (processes.cc) end
// without running exit handlers, and what they have run would be lost.
#include <cstdlib>

extern "C" void __gcov_dump(void);

[[gnu::constructor]] static void keep_counts_of_children() {
    (void)at_quick_exit(__gcov_dump); // one that is refused shows: what only children run is missing
}
