// SPDX-License-Identifier: Apache-2.0
//
// Every call that the library makes of the C library and the kernel fails once, in turn, with every errno that its
// manual page lists: each exported function then succeeds or returns a status that its header names, with the locks
// free and nothing leaked, and can be called again.
#include <algorithm>
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <set>

#include "tests/faults/case.h"
#include "tests/faults/exports.h"
#include "tests/faults/injector.h"
#include "tests/faults/judging.h"
#include "tests/faults/scenario.h"
#include "tests/support/processes.h"
#include "tests/support/sandbox.h"

using namespace faults;

namespace {

std::vector<scenario> all_scenarios() {
    std::vector<scenario> all;
    for (auto some : {lifecycle_scenarios(), interface_scenarios(), port_scenarios(), link_scenarios(),
                      netdev_scenarios()})
        all.insert(all.end(), some.begin(), some.end());
    return all;
}

// Before any test's segment is mapped, and once.
void interpose_once() {
    static const std::string problem = interpose();
    ASSERT_EQ("", problem);
}

// ---- The cases of one scenario ----------------------------------------------

std::vector<fault> faults_of_all(const std::vector<size_t> &calls) {
    std::vector<fault> all;
    for (size_t call = 0; call < calls.size(); call++) {
        for (fault one : faults_of(callees()[calls[call]])) {
            one.call = call;
            all.push_back(one);
        }
    }
    return all;
}

class what_is_given {
  public:
    explicit what_is_given(given what) : what_(what) {
        load_what_is_given(what);
    }
    ~what_is_given() {
        unload_what_is_given(what_);
    }
    what_is_given(const what_is_given &) = delete;
    what_is_given &operator=(const what_is_given &) = delete;

  private:
    given what_;
};

// What is wrong with each at_once-th case, from the first on; a number of them is enough.
std::vector<std::string> problems_of_share(const scenario &scenario, size_t first) {
    constexpr size_t enough = 10;
    const what_is_given given(scenario.before);
    const observation usual = observe(scenario, nullptr);
    std::vector<std::string> problems;
    if (const std::string problem = judge_usual(scenario, usual); !problem.empty())
        problems.push_back("without a fault: " + problem);
    const std::vector<fault> faults = faults_of_all(usual.calls);
    for (size_t i = first; i < faults.size() && problems.size() < enough;
         i += static_cast<size_t>(scenario.at_once)) {
        const std::string problem = judge(scenario, usual, observe(scenario, &faults[i]));
        if (!problem.empty())
            problems.push_back(text_of(faults[i], callees()[usual.calls[faults[i].call]]) + ": " + problem);
    }
    return problems;
}

// Each share is a process in a sandbox of its own, where neither segments nor netdevs meet the others'.
void run_at_once(const scenario &scenario) {
    std::vector<child_process> shares;
    for (size_t first = 0; first < static_cast<size_t>(scenario.at_once); first++) {
        shares.emplace_back([&scenario, first] {
            const std::string problem = sandbox_enter();
            must(problem.empty(), problem.c_str());
            part_from_other_processes();
            const std::vector<std::string> problems = problems_of_share(scenario, first);
            for (const std::string &one : problems)
                (void)printf("%s\n", one.c_str());
            return problems.empty() ? 0 : 1;
        });
    }
    for (child_process &share : shares)
        EXPECT_EQ(0, share.wait(std::chrono::minutes(5))) << "cases with problems, named above";
}

class every_call : public testing::TestWithParam<scenario> {};

} // namespace

TEST_P(every_call, fails_with_every_errno) {
    interpose_once();
    const scenario &scenario = GetParam();
    if (scenario.at_once > 1)
        run_at_once(scenario);
    else
        EXPECT_THAT(problems_of_share(scenario, 0), testing::IsEmpty());
}

namespace {

std::string test_name(const testing::TestParamInfo<scenario> &info) {
    const std::string situation = info.param.situation;
    return info.param.function + (situation.empty() ? "" : "_" + situation);
}

} // namespace

INSTANTIATE_TEST_SUITE_P(lifecycle, every_call, testing::ValuesIn(lifecycle_scenarios()), test_name);
INSTANTIATE_TEST_SUITE_P(interfaces, every_call, testing::ValuesIn(interface_scenarios()), test_name);
INSTANTIATE_TEST_SUITE_P(ports, every_call, testing::ValuesIn(port_scenarios()), test_name);
INSTANTIATE_TEST_SUITE_P(links, every_call, testing::ValuesIn(link_scenarios()), test_name);
INSTANTIATE_TEST_SUITE_P(netdevs, every_call, testing::ValuesIn(netdev_scenarios()), test_name);

// ---- That nothing is left out -----------------------------------------------

TEST(faults, every_exported_function_has_a_scenario) {
    std::set<std::string> covered;
    for (const scenario &scenario : all_scenarios())
        covered.insert(scenario.function);
    EXPECT_EQ(exported_functions(YBNET_LIBRARY), covered);
}

TEST(faults, every_function_that_the_library_calls_is_called_in_a_scenario) {
    interpose_once();
    std::set<std::string> expected;
    for (const callee &callee : callees())
        expected.insert(name_of(callee));
    std::set<std::string> called;
    for (const scenario &scenario : all_scenarios()) {
        const what_is_given given(scenario.before);
        for (const size_t callee : observe(scenario, nullptr).calls)
            called.insert(name_of(callees()[callee]));
    }
    std::vector<std::string> uncalled;
    std::set_difference(expected.begin(), expected.end(), called.begin(), called.end(),
                        std::back_inserter(uncalled));
    EXPECT_THAT(uncalled, testing::IsEmpty());
}
