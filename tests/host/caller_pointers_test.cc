// SPDX-License-Identifier: Apache-2.0
//
// A caller's bad pointer crashes the caller and nobody else: no pointer is
// followed while the interfaces lock is held, so another process's lookup works
// at once.
#include "ybnet/net_lib_db.h"

#include <csignal>
#include <cstddef>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include "tests/support/processes.h"
#include "tests/support/recording_platform.h"
#include "tests/support/segment_file.h"

namespace {

struct bad_call {
    const char *label;
    // Called with the address of a page that can be neither read nor written, behind one full of 'n' that can.
    std::function<void(void *)> call;
    bool read_only = false; // the page can be read, not written

    friend void PrintTo(const bad_call &one, std::ostream *out) {
        *out << one.label;
    }
};

yb_net_interface_record_t *record(void *page) {
    return static_cast<yb_net_interface_record_t *>(page);
}
const char *text(void *page) {
    return static_cast<const char *>(page);
}

const bad_call bad_calls[] = {
    {"add_params",
     [](void *page) { net_lib_db_interface_add(9, 9, static_cast<yb_net_interface_params_t *>(page)); }},
    {"add_full_params",
     [](void *page) {
         net_lib_db_interface_add_full(9, 9, static_cast<yb_net_interface_params_t *>(page), 1, 2, 1);
     }},
    {"add_params_half",
     [](void *page) {
         // The names can be read, what stands behind them cannot.
         auto *const block = static_cast<char *>(page) - offsetof(yb_net_interface_params_t, type);
         net_lib_db_interface_add(9, 9, reinterpret_cast<yb_net_interface_params_t *>(block));
     }},
    {"get_out_half", [](void *page) { net_lib_db_interface_get(1, record(static_cast<char *>(page) - 56)); }},
    {"by_ns_name_half",
     [](void *page) {
         yb_net_interface_record_t out;
         net_lib_db_interface_get_by_linux_ifindex_ns(11, text(page) - 5, &out);
     }},
    {"get_out", [](void *page) { net_lib_db_interface_get(1, record(page)); }},
    {"get_out_read_only", [](void *page) { net_lib_db_interface_get(1, record(page)); }, true},
    {"get_by_db_index_out", [](void *page) { net_lib_db_interface_get_by_db_index(0, record(page)); }},
    {"by_linux_ifindex_out", [](void *page) { net_lib_db_interface_get_by_linux_ifindex(11, record(page)); }},
    {"by_ns_out", [](void *page) { net_lib_db_interface_get_by_linux_ifindex_ns(11, "", record(page)); }},
    {"by_ns_name",
     [](void *page) {
         yb_net_interface_record_t out;
         net_lib_db_interface_get_by_linux_ifindex_ns(11, text(page), &out);
     }},
    {"by_ns_vrf_out",
     [](void *page) { net_lib_db_interface_get_by_linux_ifindex_ns_vrf(11, "", "", record(page)); }},
    {"by_ns_vrf_ns_name",
     [](void *page) {
         yb_net_interface_record_t out;
         net_lib_db_interface_get_by_linux_ifindex_ns_vrf(11, text(page), "", &out);
     }},
    {"by_ns_vrf_vrf_name",
     [](void *page) {
         yb_net_interface_record_t out;
         net_lib_db_interface_get_by_linux_ifindex_ns_vrf(11, "", text(page), &out);
     }},
};

class caller_pointer : public testing::TestWithParam<bad_call> {};

TEST_P(caller_pointer, that_is_bad_crashes_the_caller_and_leaves_the_lock_free) {
    platform::reset();
    segment_remove(interfaces_format);
    ASSERT_EQ(0, child_process([] {
                     const yb_net_interface_params_t params = {};
                     const yb_status_t loaded = net_lib_db_interfaces_load(0);
                     return static_cast<int>(loaded | net_lib_db_interface_add(1, 11, &params));
                 }).wait());
    const segment_view view(interfaces_format);
    const std::vector<uint8_t> before = view.bytes(0, interfaces_format.lock);

    child_process crashing([] {
        (void)signal(SIGSEGV, SIG_DFL);
        const struct rlimit no_core = {0, 0};
        (void)setrlimit(RLIMIT_CORE, &no_core);
        void *const pages = mmap(nullptr, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pages == MAP_FAILED || net_lib_db_interfaces_load(0) != YB_STATUS_SUCCESS)
            return 1;
        memset(pages, 'n', 4096);
        void *const page = static_cast<char *>(pages) + 4096;
        if (mprotect(page, 4096, GetParam().read_only ? PROT_READ : PROT_NONE) != 0)
            return 1;
        GetParam().call(page);
        return 2; // it did not follow the pointer at all
    });
    EXPECT_EQ(128 + SIGSEGV, crashing.wait());

    EXPECT_FALSE(view.locked());
    EXPECT_EQ(before, view.bytes(0, interfaces_format.lock));
    EXPECT_EQ(0, child_process([] {
                     yb_net_interface_record_t out;
                     if (net_lib_db_interfaces_load(0) != YB_STATUS_SUCCESS)
                         return 1;
                     return static_cast<int>(net_lib_db_interface_get(1, &out));
                 }).wait(std::chrono::seconds(20)));
    segment_remove(interfaces_format);
}

INSTANTIATE_TEST_SUITE_P(of, caller_pointer, testing::ValuesIn(bad_calls),
                         [](const auto &one) { return std::string(one.param.label); });

// A name is read up to the longest that a record can hold, and no further.
TEST(callers_names, are_not_read_beyond_the_longest_that_can_match) {
    segment_remove(interfaces_format);
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_load(0));
    auto *const pages =
        static_cast<char *>(mmap(nullptr, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(MAP_FAILED, static_cast<void *>(pages));
    ASSERT_EQ(0, mprotect(pages + 4096, 4096, PROT_NONE));
    yb_net_interface_params_t params = {};
    memset(params.ns_name, 'n', sizeof(params.ns_name));
    memset(params.vrf_name, 'v', sizeof(params.vrf_name));
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_add(1, 11, &params));
    // Both end with their NUL at the page's end.
    char *const ns = pages + 4096 - 33;
    memset(ns, 'n', 32);
    char *const vrf = pages + 4096 - 33 - 17;
    memset(vrf, 'v', 16);
    yb_net_interface_record_t out;
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_get_by_linux_ifindex_ns_vrf(11, ns, vrf, &out));
    // 33 characters and no NUL before the page's end: told apart by the 33rd.
    memset(pages + 4096 - 33, 'n', 33);
    EXPECT_EQ(21u, net_lib_db_interface_get_by_linux_ifindex_ns(11, pages + 4096 - 33, &out));
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_unload(0));
    (void)munmap(pages, 8192);
}

} // namespace
