// SPDX-License-Identifier: Apache-2.0
//
// The functions that the library calls and that may fail, and how: the table that errnos.py makes (errnos.inc), and
// what injector.h does to a call beyond that.
#ifndef YBNET_TESTS_FAULTS_CALLEES_H
#define YBNET_TESTS_FAULTS_CALLEES_H

#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

namespace faults {

// How a function says that it failed: errno with -1 (or MAP_FAILED), errno with 0 (or NULL), or the number itself.
enum class fails_with { minus_one, zero, the_number };

// One imported function, or one number of syscall(2).
struct callee {
    const char *function;
    long number; // 0 for all but syscall(2)
    fails_with how;
    std::vector<int> errors;
};
const std::vector<callee> &callees();
std::string name_of(const callee &callee);
bool is_one_of(const char *name, std::initializer_list<const char *> names);

// What is done to one call.
enum class treatment {
    error,   // fails with an errno
    nothing, // a call that receives gets nothing, as at a stream's end
    cut,     // a call that receives has no more room than for a message's beginning
    exit_1,  // a command runs not, and counts as one that exited with 1
};
struct fault {
    size_t call; // which, in the order of the library's calls
    treatment what;
    int error;
};
std::string text_of(const fault &fault, const callee &callee);

// Everything that can happen to a call of this function, the call number aside.
std::vector<fault> faults_of(const callee &callee);

} // namespace faults

#endif
