// SPDX-License-Identifier: Apache-2.0
//
// See judging.h. The documented statuses are statuses.py's, out of the headers' comments.
#include "tests/faults/judging.h"

#include <algorithm>
#include <map>
#include <vector>

#include "ybnet/yb_status.h"

namespace faults {

namespace {

// Functions without a status have no entry; they always count as successful.
bool may_return(const std::string &function, uint32_t status) {
    static const std::map<std::string, std::vector<uint32_t>> documented = {
#define DOCUMENTED(name, ...) {name, {__VA_ARGS__}},
#include "documented_statuses.inc"
#undef DOCUMENTED
    };
    const auto found = documented.find(function);
    if (found == documented.end())
        return status == YB_STATUS_SUCCESS;
    return std::find(found->second.begin(), found->second.end(), status) != found->second.end();
}

int count_of(const holdings &all, const std::string &what) {
    const auto found = all.find(what);
    return found == all.end() ? 0 : found->second;
}

std::string leaks(const scenario &scenario, const observation &usual, const observation &seen) {
    std::string all;
    int failed_calls = 0;
    for (int turn = 0; turn < 2; turn++) {
        failed_calls += seen.status[turn] != YB_STATUS_SUCCESS ? 1 : 0;
        for (const auto &[what, count] : seen.after[turn]) {
            int limit = std::max({count_of(usual.before, what), count_of(usual.after[turn], what),
                                  count_of(seen.before, what)});
            if (scenario.may_keep[0] != '\0' && what.starts_with(scenario.may_keep))
                limit += failed_calls;
            if (count > limit)
                all += "; leaks " + std::to_string(count - limit) + " " + what +
                       (turn == 0 ? "" : " when called once more");
        }
    }
    return all;
}

std::string undocumented(const scenario &scenario, const observation &seen) {
    std::string all;
    for (int turn = 0; turn < 2; turn++) {
        if (!may_return(scenario.function, seen.status[turn]))
            all += "; returns the undocumented " + std::to_string(seen.status[turn]) +
                   (turn == 0 ? "" : " when called once more");
    }
    return all;
}

std::string without_separator(const std::string &text) {
    return text.empty() ? "" : text.substr(2);
}

} // namespace

std::string judge(const scenario &scenario, const observation &usual, const observation &seen) {
    if (!seen.problem.empty())
        return seen.problem;
    if (!seen.fault_happened && scenario.at_once == 1) // where others' pace counts, there may be fewer calls
        return "has not made the call that was to fail";
    std::string all = undocumented(scenario, seen) + leaks(scenario, usual, seen);
    if (!seen.lock.empty())
        all += "; " + seen.lock;
    if (seen.status[0] == YB_STATUS_SUCCESS) {
        if (usual.status[0] != YB_STATUS_SUCCESS)
            all += "; succeeds, which it does not without a fault";
        if (seen.answer != usual.answer && (scenario.fallback.empty() || seen.answer != scenario.fallback))
            all += "; says that it succeeded, but answers something else";
        if (!scenario.makes_netdevs && seen.records != usual.records)
            all += "; says that it succeeded, but leaves other records";
    }
    return without_separator(all);
}

std::string judge_usual(const scenario &scenario, const observation &usual) {
    if (!usual.problem.empty())
        return usual.problem;
    std::string all = undocumented(scenario, usual);
    if (!usual.lock.empty())
        all += "; " + usual.lock;
    for (const auto &[what, count] : usual.after[1]) {
        if (count > std::max(count_of(usual.after[0], what), count_of(usual.before, what)))
            all += "; holds one more " + what + " after each call";
    }
    return without_separator(all);
}

} // namespace faults
