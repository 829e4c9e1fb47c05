// SPDX-License-Identifier: Apache-2.0
//
// Finding interface records by either ifindex and by position, and what every
// operation answers when the database is not loaded.
#include "tests/unit/interfaces_fixture.h"

#include <functional>
#include <unistd.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class interface_lookups : public interfaces_test {
  protected:
    // A buffer with a guard behind it.
    struct guarded {
        yb_net_interface_record_t record;
        uint8_t guard[16];

        guarded() {
            memset(this, 0xEE, sizeof(*this));
        }
        bool untouched() const {
            const guarded fresh;
            return memcmp(this, &fresh, sizeof(fresh)) == 0;
        }
        bool guard_untouched() const {
            const guarded fresh;
            return memcmp(guard, fresh.guard, sizeof(guard)) == 0;
        }
    };
    static uint32_t by_ns_vrf(uint32_t linux_ifindex, const std::string &ns, const std::string &vrf) {
        guarded out;
        return net_lib_db_interface_get_by_linux_ifindex_ns_vrf(linux_ifindex, ns.c_str(), vrf.c_str(),
                                                                &out.record) == YB_STATUS_SUCCESS
                   ? out.record.sys_ifindex
                   : 0;
    }
    static uint32_t by_ns(uint32_t linux_ifindex, const std::string &ns) {
        guarded out;
        return net_lib_db_interface_get_by_linux_ifindex_ns(linux_ifindex, ns.c_str(), &out.record) ==
                       YB_STATUS_SUCCESS
                   ? out.record.sys_ifindex
                   : 0;
    }
    static uint32_t by_linux(uint32_t linux_ifindex) {
        guarded out;
        return net_lib_db_interface_get_by_linux_ifindex(linux_ifindex, &out.record) == YB_STATUS_SUCCESS
                   ? out.record.sys_ifindex
                   : 0;
    }
};

// ---- What is returned ----

TEST_F(interface_lookups, copy_the_records_first_112_bytes_and_no_more) {
    const yb_net_interface_params_t params = block_filled_with(0x20);
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_add_full(1, 2, &params, 3, 4, 1));
    view().fill(113, 116, 0xAB);
    const std::vector<uint8_t> expected = view().bytes(0, 112);
    const std::string ns(params.ns_name, 32);
    const std::string vrf(params.vrf_name, 16);
    add(5, 2, block(""));
    const auto check = [&](const char *name,
                           const std::function<yb_status_t(yb_net_interface_record_t *)> &get_by) {
        SCOPED_TRACE(name);
        guarded out;
        EXPECT_EQ(YB_STATUS_SUCCESS, get_by(&out.record));
        EXPECT_EQ(0, memcmp(expected.data(), &out.record, 112));
        EXPECT_TRUE(out.guard_untouched());
    };
    check("system ifindex", [](auto *out) { return net_lib_db_interface_get(1, out); });
    check("position", [](auto *out) { return net_lib_db_interface_get_by_db_index(0, out); });
    check("namespace",
          [&](auto *out) { return net_lib_db_interface_get_by_linux_ifindex_ns(2, ns.c_str(), out); });
    check("namespace and VRF", [&](auto *out) {
        return net_lib_db_interface_get_by_linux_ifindex_ns_vrf(2, ns.c_str(), vrf.c_str(), out);
    });
}

TEST_F(interface_lookups, leave_the_callers_buffer_alone_when_nothing_is_found) {
    guarded out;
    EXPECT_EQ(21u, net_lib_db_interface_get(1, &out.record));
    EXPECT_EQ(21u, net_lib_db_interface_get_by_db_index(0, &out.record));
    EXPECT_EQ(21u, net_lib_db_interface_get_by_linux_ifindex(1, &out.record));
    EXPECT_EQ(21u, net_lib_db_interface_get_by_linux_ifindex_ns(1, "", &out.record));
    EXPECT_EQ(21u, net_lib_db_interface_get_by_linux_ifindex_ns_vrf(1, "", "", &out.record));
    EXPECT_EQ(12u, net_lib_db_interface_get_by_linux_ifindex_ns(1, nullptr, &out.record));
    EXPECT_TRUE(out.untouched());
}

TEST_F(interface_lookups, take_the_first_match_in_slot_order) {
    add(1, 10);
    add(2, 20);
    add(3, 30);
    view().set_word(record_at(2), 2);      // the third says it is system ifindex 2,
    view().set_word(record_at(2) + 4, 20); // and Linux ifindex 20
    view().set_byte(record_at(2) + 108, 0x77);
    EXPECT_EQ(0xFFFF, get(2).rif);
    guarded out;
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_get_by_linux_ifindex(20, &out.record));
    EXPECT_EQ(0xFFFF, out.record.rif);
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_remove(2));
    EXPECT_EQ(0, view().byte(record_at(1) + 112));
    EXPECT_EQ(1, view().byte(record_at(2) + 112));
}

TEST_F(interface_lookups, reach_the_last_slot) {
    for (uint32_t i = 1; i <= 4096; i++)
        add(i, 10000 + i);
    EXPECT_EQ(14096u, get(4096).linux_ifindex);
    EXPECT_EQ(4096u, by_linux(14096));
    guarded out;
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_get_by_db_index(4095, &out.record));
    EXPECT_EQ(4096u, out.record.sys_ifindex);
}

// ---- Messages ----

TEST_F(interface_lookups, of_a_missing_system_ifindex_log_at_info) {
    EXPECT_EQ(21u, status_of_get(7));
    EXPECT_EQ(21u, status_of_get(0x80000000));
    EXPECT_THAT(take_lines(),
                ElementsAre(said{severity_info,
                                 "Interface with system ifindex 7 does not exist in the Net-lib "
                                 "Interfaces DB\n",
                                 false},
                            said{severity_info,
                                 "Interface with system ifindex -2147483648 does not exist in "
                                 "the Net-lib Interfaces DB\n",
                                 false}));
}

TEST_F(interface_lookups, of_a_missing_linux_ifindex_log_at_debug_with_their_position) {
    EXPECT_EQ(0u, by_ns(7, ""));
    EXPECT_THAT(take_lines(), IsEmpty()) << "not at verbosity 4";
    uint32_t verbosity = 5;
    (void)net_lib_db_log_verbosity_level(YB_ACCESS_CMD_SET, &verbosity);
    platform::recorded() = {};
    EXPECT_EQ(0u, by_ns_vrf(0xFFFFFFFE, "", ""));
    EXPECT_EQ(0u, by_ns(7, ""));
    ASSERT_EQ(2u, platform::recorded().log.size());
    for (const platform::log_line &line : platform::recorded().log) {
        EXPECT_EQ(severity_debug, line.severity);
        EXPECT_EQ("%s[%d]- %s: Interface with linux ifindex %d does not exist in the Net-lib Interfaces DB\n",
                  line.format);
    }
    EXPECT_THAT(
        platform::recorded().log[0].text,
        testing::MatchesRegex("net_lib_db\\[[0-9]+\\]- net_lib_db_interface_get_by_linux_ifindex_ns_vrf: "
                              "Interface with linux ifindex -2 does not exist in the Net-lib "
                              "Interfaces DB\n"));
    EXPECT_THAT(platform::recorded().log[1].text,
                testing::MatchesRegex("net_lib_db\\[[0-9]+\\]- net_lib_db_interface_get_by_linux_ifindex_ns: "
                                      "Interface with linux ifindex 7 does not exist in the Net-lib "
                                      "Interfaces DB\n"));
    for (const said &line : take_lines())
        EXPECT_FALSE(line.locked);
}

TEST_F(interface_lookups, by_position_of_a_free_slot_or_of_none_return_21_silently) {
    uint32_t verbosity = 5;
    (void)net_lib_db_log_verbosity_level(YB_ACCESS_CMD_SET, &verbosity);
    guarded out;
    for (const uint32_t db_index : {0u, 1u, 4095u, 4096u, 4097u, 0x02000000u, 0x80000000u, 0xFFFFFFFFu})
        EXPECT_EQ(21u, net_lib_db_interface_get_by_db_index(db_index, &out.record)) << db_index;
    EXPECT_THAT(take_lines(), IsEmpty());
    EXPECT_TRUE(out.untouched());
}

TEST_F(interface_lookups, by_position_never_look_behind_the_last_slot) {
    // A longer file, with a byte that would be the in-use byte of a slot 4096.
    ASSERT_EQ(0, truncate(interfaces_format.path, static_cast<off_t>(interfaces_format.size) + 4096));
    segment_view longer(interfaces_format);
    longer.set_byte(record_at(4096) + 112, 1);
    guarded out;
    EXPECT_EQ(21u, net_lib_db_interface_get_by_db_index(4096, &out.record));
    EXPECT_TRUE(out.untouched());
}

// ---- Namespaces and VRFs ----

TEST_F(interface_lookups, without_a_namespace_find_only_records_of_the_default_one) {
    add(1, 10, block(""));
    add(2, 10, block("ns1"));
    add(3, 11, block("ns1"));
    EXPECT_EQ(1u, by_linux(10));
    EXPECT_EQ(0u, by_linux(11));
    EXPECT_EQ(1u, by_ns(10, ""));
    EXPECT_EQ(2u, by_ns(10, "ns1"));
    EXPECT_EQ(3u, by_ns(11, "ns1"));
    EXPECT_EQ(3u, by_ns_vrf(11, "ns1", ""));
    EXPECT_EQ(0u, by_ns(11, ""));
    EXPECT_EQ(0u, by_ns(11, "ns2"));
}

TEST_F(interface_lookups, with_a_vrf_compare_it_and_the_others_ignore_it) {
    add(1, 10, block("a", "red", 1));
    add(2, 10, block("a", "blue", 1));
    add(3, 11, block("a", "green", 0));
    EXPECT_EQ(1u, by_ns_vrf(10, "a", "red"));
    EXPECT_EQ(2u, by_ns_vrf(10, "a", "blue"));
    EXPECT_EQ(0u, by_ns_vrf(10, "a", "green"));
    EXPECT_EQ(0u, by_ns_vrf(10, "a", ""));
    EXPECT_EQ(0u, by_ns_vrf(10, "", "red"));
    EXPECT_EQ(3u, by_ns_vrf(11, "a", "green")) << "compared whatever the record's flag says";
    EXPECT_EQ(0u, by_ns_vrf(11, "a", "red"));
    EXPECT_EQ(1u, by_ns(10, "a"));
}

TEST_F(interface_lookups, compare_whole_names) {
    add(1, 10, block("ns1", "vrf1", 1));
    for (const char *const ns : {"ns", "ns10", "NS1", "ns1 ", ""})
        EXPECT_EQ(0u, by_ns(10, ns)) << ns;
    for (const char *const vrf : {"vrf", "vrf10", "VRF1", ""})
        EXPECT_EQ(0u, by_ns_vrf(10, "ns1", vrf)) << vrf;
    EXPECT_EQ(1u, by_ns_vrf(10, "ns1", "vrf1"));
}

TEST_F(interface_lookups, find_names_that_fill_their_fields_and_no_longer_ones) {
    const std::string ns(32, 'n');
    const std::string vrf(16, 'v');
    add(1, 10, block(ns, vrf, 1)); // neither has a NUL in the record
    EXPECT_EQ(1u, by_ns(10, ns));
    EXPECT_EQ(1u, by_ns_vrf(10, ns, vrf));
    EXPECT_EQ(0u, by_ns(10, ns + "n"));
    EXPECT_EQ(0u, by_ns(10, ns + vrf)) << "what stands behind the field in the record";
    EXPECT_EQ(0u, by_ns(10, ns.substr(1)));
    EXPECT_EQ(0u, by_ns_vrf(10, ns, vrf + "v"));
    EXPECT_EQ(0u, by_ns_vrf(10, ns, vrf + "\x01"));
    EXPECT_EQ(0u, by_ns_vrf(10, ns, vrf.substr(1)));
}

TEST_F(interface_lookups, with_a_null_name_return_12_and_look_at_the_namespace_first) {
    guarded out;
    EXPECT_EQ(12u, net_lib_db_interface_get_by_linux_ifindex_ns(1, nullptr, &out.record));
    EXPECT_EQ(12u, net_lib_db_interface_get_by_linux_ifindex_ns_vrf(1, nullptr, nullptr, &out.record));
    EXPECT_EQ(12u, net_lib_db_interface_get_by_linux_ifindex_ns_vrf(1, nullptr, "v", &out.record));
    EXPECT_EQ(12u, net_lib_db_interface_get_by_linux_ifindex_ns_vrf(1, "n", nullptr, &out.record));
    EXPECT_THAT(take_lines(),
                ElementsAre(error("Namespace name is NULL\n"), error("Namespace name is NULL\n"),
                            error("Namespace name is NULL\n"), error("VRF name is NULL\n")));
    EXPECT_EQ(0, calls::count("segment_lock"));
}

// ---- Not loaded ----

class interfaces_not_loaded : public testing::Test {
  protected:
    // Every operation, with pointers that are as bad as they can be.
    static void expect_18_from_every_operation() {
        const std::pair<const char *, std::function<yb_status_t()>> operations[] = {
            {"net_lib_db_interface_add_full",
             [] { return net_lib_db_interface_add_full(1, 2, nullptr, 3, 4, 1); }},
            {"net_lib_db_interface_add_full",
             [] { return net_lib_db_interface_add_full(1, 2, nullptr, 3, 4, 0); }},
            {"net_lib_db_interface_add_full", [] { return net_lib_db_interface_add(1, 2, nullptr); }},
            {"net_lib_db_interface_remove", [] { return net_lib_db_interface_remove(1); }},
            {"net_lib_db_interface_rif_add", [] { return net_lib_db_interface_rif_add(1, 2); }},
            {"net_lib_db_interface_vrid_add", [] { return net_lib_db_interface_vrid_add(1, 2); }},
            {"net_lib_db_interface_vlan_set", [] { return net_lib_db_interface_vlan_set(1, 2); }},
            {"net_lib_db_interface_get", [] { return net_lib_db_interface_get(1, nullptr); }},
            {"net_lib_db_interface_get_by_db_index",
             [] { return net_lib_db_interface_get_by_db_index(5000, nullptr); }},
            {"net_lib_db_interface_get_by_linux_ifindex_ns_vrf",
             [] { return net_lib_db_interface_get_by_linux_ifindex_ns_vrf(1, nullptr, nullptr, nullptr); }},
            {"net_lib_db_interface_get_by_linux_ifindex_ns",
             [] { return net_lib_db_interface_get_by_linux_ifindex_ns(1, nullptr, nullptr); }},
            {"net_lib_db_interface_get_by_linux_ifindex_ns",
             [] { return net_lib_db_interface_get_by_linux_ifindex(1, nullptr); }},
        };
        for (const auto &[function, operation] : operations) {
            SCOPED_TRACE(function);
            platform::reset();
            calls::reset();
            EXPECT_EQ(18u, operation());
            EXPECT_THAT(platform::recorded().texts(severity_error),
                        ElementsAre("Net-lib Interfaces DB was not initialized\n"));
            EXPECT_EQ(1u, platform::recorded().log.size());
            EXPECT_THAT(platform::recorded().trace,
                        ElementsAre(testing::MatchesRegex(std::string("\\[ERROR  \\] \\[YB_NET_LIB\\] - ") +
                                                          function +
                                                          "\\[[0-9]+\\]: Net-lib Interfaces DB "
                                                          "was not initialized\n")));
            EXPECT_EQ(0, calls::count("segment_lock"));
        }
    }
};

TEST_F(interfaces_not_loaded, every_operation_returns_18_without_touching_a_lock) {
    expect_18_from_every_operation();
}

TEST_F(interfaces_not_loaded, every_operation_returns_18_again_after_an_unload) {
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_load(0));
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_unload(0));
    expect_18_from_every_operation();
}

TEST_F(interfaces_not_loaded, every_operation_returns_18_behind_a_refused_segment) {
    segment_make(interfaces_format, 4096);
    ASSERT_EQ(1u, net_lib_db_interfaces_load(0));
    expect_18_from_every_operation();
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_unload(0));
    segment_remove(interfaces_format);
}

} // namespace
