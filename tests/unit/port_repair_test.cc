// SPDX-License-Identifier: Apache-2.0
//
// What the repair of the ports database makes of marks that its own changes do
// not leave, or leave rarely: memory is shared, and may be damaged. What they do
// leave, instruction by instruction, is dying_change_test.cc's.
#include "tests/unit/ports_fixture.h"

#include <gmock/gmock.h>

#include "net_lib_db/port_change.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t severity_warn = 3;

class port_repair : public ports_test {
  protected:
    static void repair() {
        ports_segment.description.repair_body(ports_segment.body);
    }
    // Where a mark finds the number of another bucket.
    static void put_index(uint16_t index, uint16_t of) {
        bucket(index).reserved[0] = static_cast<uint8_t>(of);
        bucket(index).reserved[1] = static_cast<uint8_t>(of >> 8);
    }
    static said warning(const std::string &text) {
        return {severity_warn, "Netlib ports DB - " + text, false};
    }
};

TEST_F(port_repair, leaves_a_mark_alone_that_no_change_makes) {
    for (const int mark : {0x40, 0x61 + 0x05, 0x7F, 0x80, 0xFF}) {
        SCOPED_TRACE(mark);
        put(10, 10, 10, static_cast<uint8_t>(mark));
        put_index(10, 11);
        const auto before = snapshot();
        repair();
        EXPECT_EQ(before, snapshot());
        EXPECT_THAT(take_lines(), IsEmpty());
    }
}

TEST_F(port_repair, takes_back_a_move_that_says_it_came_from_its_own_bucket) {
    put(10, 10, 10, PORT_FILLING_EMPTY | PORT_FILLING_SOURCE);
    put_index(10, 10);
    repair();
    EXPECT_THAT(take_lines(), ElementsAre(warning("bucket 10 was left half written: taken back\n")));
    EXPECT_EQ(std::vector<uint8_t>(snapshot().size()), snapshot()) << "the bucket was empty, and is";
}

TEST_F(port_repair, takes_back_a_move_whose_source_is_not_marked) {
    put(10, 11, 11, PORT_FILLING_DELETED | PORT_FILLING_SOURCE);
    put_index(10, 11);
    put(11, 11, 11);
    repair();
    EXPECT_THAT(take_lines(), ElementsAre(warning("bucket 10 was left half written: taken back\n")));
    EXPECT_EQ(PORT_DELETED, bucket(10).deleted);
    EXPECT_EQ(0u, bucket(10).sys_ifindex);
    EXPECT_EQ(11u, get(11).attr_i);
}

TEST_F(port_repair, says_that_it_completed_a_move) {
    put(10, 10, 10, PORT_FILLING_EMPTY | PORT_FILLING_SOURCE);
    put_index(10, 11);
    put(11, 10, 10, PORT_FILLING_LIVE);
    repair();
    EXPECT_THAT(take_lines(), ElementsAre(warning("the move of port 10 was left half done: completed\n"),
                                          warning("bucket 11 was left half written: taken back\n")));
    EXPECT_EQ(10u, get(10).attr_i);
}

TEST_F(port_repair, completes_a_change_without_a_logical_port_and_leaves_the_maps_alone) {
    set(10, with_log_port(port_of(7)));
    yb_net_port_info_t changed = with_log_port(port_of(8));
    changed.attr_i = 99;
    bucket(20).info = changed;
    bucket(20).sys_ifindex = 10;
    put_index(20, 10);
    bucket(20).deleted = PORT_SPARE_RECORD;
    repair();
    EXPECT_THAT(take_lines(), ElementsAre(warning("the change of port 10 was left half done: completed\n")));
    EXPECT_EQ(changed, get(10));
    EXPECT_EQ(10u, ifindex_of(port_of(7)));
    EXPECT_EQ(0u, ifindex_of(port_of(8)));
}

TEST_F(port_repair, enters_a_lag_with_a_damaged_mlag_id_without_leaving_the_maps) {
    put(10, 10, 10, PORT_MAPPING);
    bucket(10).info.log_port = lag_of(4);
    bucket(10).info.mlag_id = YB_NET_MLAG_ID_MAX + 1;
    const std::vector<uint32_t> before(std::begin(segment_body().mlag_to_lag),
                                       std::end(segment_body().mlag_to_lag));
    repair();
    EXPECT_THAT(take_lines(), ElementsAre(warning("port 10 was not in the maps yet: entered\n")));
    EXPECT_EQ(10u, ifindex_of(lag_of(4)));
    EXPECT_THAT(segment_body().mlag_to_lag, testing::ElementsAreArray(before));
}

} // namespace
