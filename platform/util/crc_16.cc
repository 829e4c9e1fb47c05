// SPDX-License-Identifier: Apache-2.0
//
// CRC-16 by table: most significant bit first, initial value 0, nothing
// reflected, no final xor. The last argument is the polynomial, without its
// x^16; the table lives in the caller's work area.
#include "ybnet/platform/yb_util.h"

#include "platform/export.h"

namespace {

// How a work area is used. built_mark is zero until the table is there.
struct crc_table {
    uint32_t built_mark;
    uint16_t polynomial;
    uint16_t reserved;
    uint16_t remainders[256];
};
static_assert(sizeof(crc_table) <= YB_CRC_WORK_AREA_SIZE);
static_assert(alignof(crc_table) <= alignof(uint32_t));

// Not just 1: an area that was never zeroed is then all but never taken for a built one.
constexpr uint32_t built = 0x43524331; // "CRC1"

uint16_t remainder_of(uint8_t byte, uint16_t polynomial) {
    uint32_t remainder = static_cast<uint32_t>(byte) << 8;
    for (int bit = 0; bit < 8; ++bit) {
        const bool carry = (remainder & 0x8000u) != 0;
        remainder <<= 1;
        if (carry)
            remainder ^= polynomial;
    }
    return static_cast<uint16_t>(remainder);
}

void build(crc_table &table, uint16_t polynomial) {
    for (uint32_t byte = 0; byte < 256; ++byte)
        table.remainders[byte] = remainder_of(static_cast<uint8_t>(byte), polynomial);
    table.polynomial = polynomial;
    table.built_mark = built;
}

} // namespace

YB_PLATFORM_EXPORT uint16_t crc_16(void *work_area, const uint8_t *data, uint32_t length,
                                   uint16_t parameter) {
    crc_table &table = *static_cast<crc_table *>(work_area);
    if (table.built_mark != built || table.polynomial != parameter)
        build(table, parameter);

    uint32_t crc = 0;
    for (uint32_t i = 0; i < length; ++i)
        crc = ((crc << 8) & 0xFFFFu) ^ table.remainders[(crc >> 8) ^ data[i]];
    return static_cast<uint16_t>(crc);
}
