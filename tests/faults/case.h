// SPDX-License-Identifier: Apache-2.0
//
// One case: a scenario's call in a process of its own, in which at most one call of the C library fails, and what that
// process and others see then. What is wrong with it is judging.h's to say.
#ifndef YBNET_TESTS_FAULTS_CASE_H
#define YBNET_TESTS_FAULTS_CASE_H

#include <map>
#include <string>
#include <vector>

#include "tests/faults/injector.h"
#include "tests/faults/scenario.h"
#include "tests/support/segment_file.h"

namespace faults {

// What a process holds, and how often: files behind descriptors, mappings of segments.
using holdings = std::map<std::string, int>;

// What a case's process was seen to do: its call, and then the same call once more.
struct observation {
    std::string problem; // "" or why there is nothing else in here
    std::vector<size_t> calls;
    bool fault_happened = false;
    uint32_t status[2] = {};
    std::string answer;
    holdings before;
    holdings after[2];
    std::string records; // of the database that is given, after the first call
    std::string lock;    // "" or what is wrong with the locks after the first call
};

// With the scenario's database loaded (load_what_is_given()), which is as before afterwards.
observation observe(const scenario &scenario, const fault *fault);

// The segment's file, as it is now, is what is given (nullptr: none is).
void keep_what_is_given(const segment_format *format);

} // namespace faults

#endif
