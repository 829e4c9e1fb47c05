// SPDX-License-Identifier: Apache-2.0
//
// The table of fields against the layout: no byte of a structure or segment is
// left out, none is named twice, and every size is the structure's own.
#include "tools/ybnetctl/segments/fields.h"

#include <map>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ybnet/net_lib_db_layout.h"

using namespace ybnetctl;
using ::testing::Each;
using ::testing::Eq;

namespace {

// How often each byte of a structure is named, counting the fields of one interface type and those of all.
std::vector<int> named(const structure &layout, uint32_t type) {
    std::vector<int> times(layout.size, 0);
    for (const field &each : layout.fields)
        if (each.type == every_type || each.type == type)
            for (size_t i = 0; i < each.size * each.count; i++)
                times.at(each.offset + i)++;
    return times;
}

class every_interface_type : public testing::TestWithParam<uint32_t> {};

} // namespace

TEST_P(every_interface_type, names_each_byte_of_its_record_once) {
    EXPECT_THAT(named(interface_entry_structure, GetParam()), Each(Eq(1)));
}

INSTANTIATE_TEST_SUITE_P(fields, every_interface_type,
                         testing::Values(YB_L2_INTERFACE_TYPE_VLAN, YB_L2_INTERFACE_TYPE_PORT_VLAN,
                                         YB_L2_INTERFACE_TYPE_PORT, YB_L2_INTERFACE_TYPE_PKEY,
                                         YB_L2_INTERFACE_TYPE_LOOPBACK));

TEST(fields, name_each_byte_of_a_port_and_of_the_trailer_once) {
    EXPECT_THAT(named(port_entry_structure, every_type), Each(Eq(1)));
    EXPECT_THAT(named(trailer_structure, every_type), Each(Eq(1)));
}

TEST(fields, have_the_sizes_of_the_layout) {
    EXPECT_EQ(interface_entry_structure.size, 116U);
    EXPECT_EQ(port_entry_structure.size, 84U);
    EXPECT_EQ(trailer_structure.size, 80U);
    EXPECT_EQ(format_of(segment_kind::interfaces).size, 475216U);
    EXPECT_EQ(format_of(segment_kind::ports).size, 5772784U);
}

TEST(fields, of_one_record_have_names_of_their_own) {
    for (const structure *layout : {&interface_entry_structure, &port_entry_structure, &trailer_structure}) {
        std::map<std::string, std::set<uint32_t>> types;
        for (const field &each : layout->fields) {
            auto &seen = types[each.name];
            EXPECT_TRUE(seen.insert(each.type).second) << each.name;
            EXPECT_TRUE(seen.size() == 1 || !seen.contains(every_type)) << each.name;
        }
    }
}

TEST(regions, cover_each_segment_without_gap_or_overlap) {
    for (const segment_kind kind : {segment_kind::interfaces, segment_kind::ports}) {
        const segment_format &format = format_of(kind);
        size_t end = 0;
        for (const region &each : format.regions) {
            EXPECT_EQ(each.offset, end) << format.name << ' ' << each.name;
            end = each.offset + each.count * each.element_size;
            if (each.element != nullptr) {
                EXPECT_EQ(each.element->size, each.element_size) << each.name;
            }
        }
        // The last region is the trailer; a segment ends with it.
        EXPECT_EQ(end, format.size) << format.name;
        EXPECT_EQ(format.regions.back().offset, format.trailer_offset);
    }
}
