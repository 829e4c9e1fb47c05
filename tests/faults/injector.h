// SPDX-License-Identifier: Apache-2.0
//
// Lets one call that the library makes of the C library or the kernel fail. What is replaced are the entries of
// libybnet.so's own table of imported functions: calls of the test, of the C library itself and of everybody else
// pass by. Which functions, and how each may fail, callees.h says.
#ifndef YBNET_TESTS_FAULTS_INJECTOR_H
#define YBNET_TESTS_FAULTS_INJECTOR_H

#include <cstddef>
#include <string>
#include <vector>

#include "tests/faults/callees.h"

namespace faults {

// Puts itself in front of the library's imports; what is wrong, or "".
std::string interpose();

// Whenever the library opens this file by fopen(3), it gets the other one.
void redirect(const char *path, const char *to);

// The next time that a watched process's library calls the function (name_of()), this is done before; at the end of
// the watch when it does not.
void before_call(const char *function, void (*action)());

// From now on, the library's calls are recorded, in this process and its children, and one of them is failed. Other
// processes see both through shared memory.
void watch(const fault *fault);
void watch_no_more();

// A process that runs cases beside its parent's and siblings' wants a record of its own.
void part_from_other_processes();

// Since the last watch(): the callees called (indices of callees()), in order, and whether the fault has happened.
std::vector<size_t> calls_made();
bool happened();

// What a failed release (munmap(2), close(2)) was to release is still there. That is no leak of the library's:
// releases it now.
void make_up_for_release();

} // namespace faults

#endif
