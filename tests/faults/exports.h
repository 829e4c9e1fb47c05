// SPDX-License-Identifier: Apache-2.0
//
// The functions that libybnet.so exports, read from the file itself (elf(5)).
#ifndef YBNET_TESTS_FAULTS_EXPORTS_H
#define YBNET_TESTS_FAULTS_EXPORTS_H

#include <set>
#include <string>

namespace faults {

// Empty when the file cannot be read.
std::set<std::string> exported_functions(const char *library);

} // namespace faults

#endif
