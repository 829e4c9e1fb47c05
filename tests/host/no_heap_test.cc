// SPDX-License-Identifier: Apache-2.0
//
// The library allocates nothing: this program's own malloc() and operator new
// look at the address they are called from, and count those inside a library's
// mapping. Allocations of the C library on its own behalf, in popen(3) say, are
// not the library's.
#include <cstdlib>
#include <cstring>
#include <link.h>
#include <new>

#include "tests/host/netdev_fixture.h"

extern "C" {
void heap_user_malloc(void);
void heap_user_calloc(void);
void heap_user_realloc(void);
void heap_user_new(void);
void heap_user_nothing(void);
}

namespace {

// The executable mapping that is watched, and what was seen from there.
uintptr_t watched_from = 0;
uintptr_t watched_to = 0;
int seen = 0;

void note(const void *caller) {
    const auto address = reinterpret_cast<uintptr_t>(caller);
    if (address >= watched_from && address < watched_to)
        seen++;
}

} // namespace

extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *memory, size_t size);

void *malloc(size_t size) noexcept {
    note(__builtin_return_address(0));
    return __libc_malloc(size);
}
void *calloc(size_t count, size_t size) noexcept {
    note(__builtin_return_address(0));
    return __libc_calloc(count, size);
}
void *realloc(void *memory, size_t size) noexcept {
    note(__builtin_return_address(0));
    return __libc_realloc(memory, size);
}
} // extern "C"

namespace {
void *allocate_or_abort(size_t size) {
    void *const memory = __libc_malloc(size);
    if (memory == nullptr)
        abort();
    return memory;
}
} // namespace

// Inlined into one function, new and free() look like a mismatch to the compiler; together they are a pair.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

void *operator new(size_t size) {
    note(__builtin_return_address(0));
    return allocate_or_abort(size);
}
void *operator new[](size_t size) {
    note(__builtin_return_address(0));
    return allocate_or_abort(size);
}
void operator delete(void *memory) noexcept {
    free(memory);
}
void operator delete[](void *memory) noexcept {
    free(memory);
}
void operator delete(void *memory, size_t) noexcept {
    free(memory);
}
void operator delete[](void *memory, size_t) noexcept {
    free(memory);
}

namespace {

bool watch(const char *library) {
    watched_from = watched_to = 0;
    (void)dl_iterate_phdr(
        [](struct dl_phdr_info *object, size_t, void *name) {
            if (strstr(object->dlpi_name, static_cast<const char *>(name)) == nullptr)
                return 0;
            for (int i = 0; i < object->dlpi_phnum; i++) {
                const auto &part = object->dlpi_phdr[i];
                if (part.p_type == PT_LOAD && (part.p_flags & PF_X) != 0) {
                    watched_from = object->dlpi_addr + part.p_vaddr;
                    watched_to = watched_from + part.p_memsz;
                }
            }
            return 1;
        },
        const_cast<char *>(library));
    seen = 0;
    return watched_from != 0;
}

class no_heap : public testing::Test {
  protected:
    void SetUp() override {
        clear_netdevs();
        platform::reset();
    }
    void TearDown() override {
        clear_netdevs();
    }
    static int seen_in(void (*call)()) {
        seen = 0;
        call();
        return seen;
    }
};

} // namespace

TEST_F(no_heap, detector_sees_a_library_that_allocates) {
    ASSERT_TRUE(watch("libheap_user.so"));
    EXPECT_EQ(1, seen_in(heap_user_malloc));
    EXPECT_EQ(1, seen_in(heap_user_calloc));
    EXPECT_EQ(1, seen_in(heap_user_realloc));
    EXPECT_EQ(1, seen_in(heap_user_new));
    EXPECT_EQ(0, seen_in(heap_user_nothing));
    ASSERT_TRUE(watch("libybnet.so"));
    EXPECT_EQ(0, seen_in(heap_user_malloc)) << "of another library than the one that is watched";
}

TEST_F(no_heap, library_allocates_nothing_on_any_path) {
    ASSERT_TRUE(watch("libybnet.so"));
    make_namespace("red");
    make_netdev("swid0_eth");
    tool_shims shims;
    stand_in_for_vlans(shims);

    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_init(nullptr, 5, 0));
    g_yb_log_module_func_enable = 1;

    yb_net_interface_params_t params = loopback_params("lo1", "red");
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set_full(YB_ACCESS_CMD_CREATE, 1, &params, 1, 2));
    params = vlan_params(0, 5, "red", YB_NET_NAME_FORMAT_VLAN);
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set(YB_ACCESS_CMD_CREATE, 2, &params));
    params = port_vlan_params("swid0_eth", 7, "red");
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set(YB_ACCESS_CMD_CREATE, 3, &params));
    params.by_type.port_vlan.vlan_id = 8;
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set(YB_ACCESS_CMD_EDIT, 3, &params));
    params = port_params("a/b");
    {
        stderr_capture ignored;
        EXPECT_EQ(YB_STATUS_ERROR, yb_net_interface_set(YB_ACCESS_CMD_CREATE, 4, &params));
    }
    params = loopback_params("$(id)", "red");
    EXPECT_EQ(YB_STATUS_ERROR, yb_net_interface_set(YB_ACCESS_CMD_CREATE, 5, &params));

    yb_net_interface_record_t record;
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_params_get(1, &record));
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, yb_net_interface_params_get(99, &record));
    EXPECT_EQ(YB_STATUS_SUCCESS,
              yb_net_interface_params_get_by_linux_ifindex_ns(record.linux_ifindex, "red", &record));
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND,
              yb_net_interface_params_get_by_linux_ifindex_ns_vrf(1, "x", "y", &record));
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_rif_set(1, 3));
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_vrid_set(1, 255));

    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set(YB_ACCESS_CMD_DESTROY, 1, nullptr));
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set(YB_ACCESS_CMD_DELETE_ALL, 0, nullptr));
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_deinit());
    EXPECT_EQ(0, seen);
}

TEST_F(no_heap, library_names_no_allocating_function) {
    ASSERT_TRUE(watch("libybnet.so"));
    std::string path;
    (void)dl_iterate_phdr(
        [](struct dl_phdr_info *object, size_t, void *found) {
            if (strstr(object->dlpi_name, "libybnet.so") != nullptr)
                *static_cast<std::string *>(found) = object->dlpi_name;
            return 0;
        },
        &path);
    const run_result symbols = run_program({"nm", "-D", "--undefined-only", path});
    ASSERT_EQ(0, symbols.status) << symbols.output;
    EXPECT_THAT(symbols.output, testing::HasSubstr("popen"));
    // strdup(3) and the like allocate for their caller. backtrace_symbols(3) does so too, for the report of an
    // assertion that failed.
    for (const char *const name : {" malloc", " calloc", " realloc", " reallocarray", " posix_memalign",
                                   " aligned_alloc", " strdup", " strndup", " asprintf", " vasprintf",
                                   " getline", " getdelim", " open_memstream", " _Znw", " _Zna"})
        EXPECT_THAT(symbols.output, testing::Not(testing::HasSubstr(name)));
}
