// SPDX-License-Identifier: Apache-2.0
//
// See callees.h.
#include "tests/faults/callees.h"

#include <cerrno>
#include <cstring>
#include <set>
#include <sys/syscall.h>

namespace faults {

const std::vector<callee> &callees() {
    using enum fails_with;
    static const std::vector<callee> all = {
#define CALLEE(function, number, how, ...) {function, number, how, {__VA_ARGS__}},
#include "tests/faults/errnos.inc"
#undef CALLEE
    };
    return all;
}

std::string name_of(const callee &callee) {
    switch (callee.number) {
    case 0:
        return callee.function;
    case SYS_futex:
        return "futex";
    case SYS_tkill:
        return "tkill";
    default:
        return std::string(callee.function) + " " + std::to_string(callee.number);
    }
}

std::string text_of(const fault &fault, const callee &callee) {
    const std::string call = "call " + std::to_string(fault.call + 1) + ", " + name_of(callee) + ": ";
    switch (fault.what) {
    case treatment::nothing:
        return call + "nothing there";
    case treatment::cut:
        return call + "cut";
    case treatment::exit_1:
        return call + "exit status 1";
    default:
        return call + strerrorname_np(fault.error);
    }
}

std::vector<fault> faults_of(const callee &callee) {
    std::vector<fault> all;
    for (const int error : std::set<int>(callee.errors.begin(), callee.errors.end())) // some have two names
        all.push_back({0, treatment::error, error});
    if (is_one_of(callee.function, {"fgets", "fread", "read", "recv", "recvmsg"}))
        all.push_back({0, treatment::nothing, 0});
    if (is_one_of(callee.function, {"read", "recv", "recvmsg"}))
        all.push_back({0, treatment::cut, 0});
    if (is_one_of(callee.function, {"pclose", "system"}))
        all.push_back({0, treatment::exit_1, 0});
    return all;
}

bool is_one_of(const char *name, std::initializer_list<const char *> names) {
    for (const char *const one : names) {
        if (strcmp(name, one) == 0)
            return true;
    }
    return false;
}

} // namespace faults
