// SPDX-License-Identifier: Apache-2.0
//
// libyb_util itself: the texts, and the CRC against published check values and
// against long division done bit by bit.
#include "ybnet/platform/yb_util.h"

#include <array>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace {

struct work_area {
    alignas(uint32_t) std::array<uint8_t, YB_CRC_WORK_AREA_SIZE> bytes{};
};

uint16_t crc_of(work_area &area, std::string_view text, uint16_t polynomial) {
    return crc_16(area.bytes.data(), reinterpret_cast<const uint8_t *>(text.data()),
                  static_cast<uint32_t>(text.size()), polynomial);
}

// The definition: the remainder of the message, followed by 16 zero bits, divided by x^16 + polynomial.
uint16_t remainder_by_long_division(const std::vector<uint8_t> &message, uint16_t polynomial) {
    std::vector<bool> bits;
    for (const uint8_t byte : message) {
        for (int bit = 7; bit >= 0; --bit)
            bits.push_back(((byte >> bit) & 1) != 0);
    }
    const size_t quotient_bits = bits.size();
    bits.resize(quotient_bits + 16, false);
    for (size_t at = 0; at < quotient_bits; ++at) {
        if (!bits[at])
            continue;
        bits[at] = false;
        for (size_t i = 0; i < 16; ++i)
            bits[at + 1 + i] = bits[at + 1 + i] != (((polynomial >> (15 - i)) & 1) != 0);
    }
    uint32_t remainder = 0;
    for (size_t i = 0; i < 16; ++i)
        remainder = (remainder << 1) | (bits[quotient_bits + i] ? 1u : 0u);
    return static_cast<uint16_t>(remainder);
}

TEST(platform_util, access_commands_have_their_names_and_other_numbers_are_unknown) {
    const std::map<uint32_t, std::string> names = {{1, "ADD"},        {2, "EDIT"},    {3, "DELETE"},
                                                   {4, "DELETE_ALL"}, {12, "CREATE"}, {13, "DESTROY"},
                                                   {15, "SET"},       {16, "UNSET"},  {17, "GET"}};
    for (uint32_t cmd = 0; cmd < 300; ++cmd)
        EXPECT_EQ(yb_access_cmd_str(cmd), names.contains(cmd) ? names.at(cmd) : "UNKNOWN") << cmd;
    EXPECT_STREQ(yb_access_cmd_str(UINT32_MAX), "UNKNOWN");
}

TEST(platform_util, router_interface_types_have_their_names_and_other_numbers_are_unknown) {
    const std::map<uint32_t, std::string> names = {
        {0, "VLAN"}, {1, "PORT_VLAN"}, {2, "PORT"}, {3, "PKEY"}, {6, "LOOPBACK"}};
    for (uint32_t type = 0; type < 300; ++type)
        EXPECT_EQ(yb_router_interface_type_str(type), names.contains(type) ? names.at(type) : "UNKNOWN")
            << type;
    EXPECT_STREQ(yb_router_interface_type_str(UINT32_MAX), "UNKNOWN");
}

TEST(platform_util, crc_16_yields_the_published_check_values) {
    constexpr std::string_view check = "123456789";
    work_area xmodem;
    work_area umts;
    EXPECT_EQ(crc_of(xmodem, check, 0x1021), 0x31C3);
    EXPECT_EQ(crc_of(umts, check, 0x8005), 0xFEE8);
}

TEST(platform_util, crc_16_equals_long_division_for_any_polynomial_and_length) {
    std::mt19937 random(20240607);
    std::uniform_int_distribution<uint32_t> any(0, 0xFFFF);
    work_area reused; // sees another polynomial each time, except for the last rounds
    for (int round = 0; round < 400; ++round) {
        const auto polynomial = static_cast<uint16_t>(round < 300 ? any(random) : 0x8D95);
        std::vector<uint8_t> message(any(random) % 70);
        for (uint8_t &byte : message)
            byte = static_cast<uint8_t>(any(random));
        const uint16_t expected = remainder_by_long_division(message, polynomial);
        const auto length = static_cast<uint32_t>(message.size());
        work_area fresh;
        EXPECT_EQ(crc_16(fresh.bytes.data(), message.data(), length, polynomial), expected) << round;
        EXPECT_EQ(crc_16(reused.bytes.data(), message.data(), length, polynomial), expected) << round;
    }
}

TEST(platform_util, crc_16_of_nothing_is_zero_even_without_data) {
    work_area area;
    EXPECT_EQ(crc_16(area.bytes.data(), nullptr, 0, 0x8D95), 0);
}

TEST(platform_util, crc_16_with_the_polynomial_zero_works_in_an_unused_work_area) {
    work_area area; // all zero, like the polynomial that it might seem to have been built for
    EXPECT_EQ(crc_of(area, "123456789", 0), 0);
    EXPECT_EQ(crc_of(area, "123456789", 0x1021), 0x31C3);
}

TEST(platform_util, crc_16_does_not_take_a_work_area_that_was_never_zeroed_for_a_built_one) {
    work_area area;
    area.bytes.fill(0x21); // wherever the polynomial is kept, it is the right one
    work_area clean;
    EXPECT_EQ(crc_of(area, "123456789", 0x2121), crc_of(clean, "123456789", 0x2121));
}

TEST(platform_util, crc_16_builds_its_table_once_for_each_polynomial) {
    work_area area;
    (void)crc_of(area, "a", 0x8D95);
    const work_area built = area;
    (void)crc_of(area, "something else", 0x8D95);
    EXPECT_EQ(area.bytes, built.bytes);
    (void)crc_of(area, "a", 0x1021);
    EXPECT_NE(area.bytes, built.bytes);

    // The table is really used: with one damaged entry the result is another one, so it was not rebuilt.
    work_area damaged = built;
    for (size_t i = 16; i < damaged.bytes.size(); ++i)
        damaged.bytes[i] ^= 0x5A;
    EXPECT_NE(crc_of(damaged, "abc", 0x8D95), crc_of(area, "abc", 0x8D95));
}

TEST(platform_util, crc_16_stays_inside_its_work_area) {
    struct {
        std::array<uint32_t, 16> before;
        work_area area;
        std::array<uint32_t, 16> after;
    } guarded{};
    guarded.before.fill(0xA5A5A5A5);
    guarded.after.fill(0xA5A5A5A5);
    (void)crc_of(guarded.area, "123456789", 0xFFFF);
    for (size_t i = 0; i < guarded.before.size(); ++i) {
        EXPECT_EQ(guarded.before[i], 0xA5A5A5A5);
        EXPECT_EQ(guarded.after[i], 0xA5A5A5A5);
    }
}

} // namespace
