// SPDX-License-Identifier: Apache-2.0
//
// What is wrong with what was observed of a case (case.h): statuses that the headers do not name, leaks, locks that
// are kept, successes without their effect.
#ifndef YBNET_TESTS_FAULTS_JUDGING_H
#define YBNET_TESTS_FAULTS_JUDGING_H

#include <string>

#include "tests/faults/case.h"
#include "tests/faults/scenario.h"

namespace faults {

// What is wrong with a case, "" when nothing is. usual: what is observed without a fault.
std::string judge(const scenario &scenario, const observation &usual, const observation &seen);

// What is wrong even without a fault, "" when nothing is.
std::string judge_usual(const scenario &scenario, const observation &usual);

} // namespace faults

#endif
