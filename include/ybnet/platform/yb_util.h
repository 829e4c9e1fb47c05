/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The utility library of the switch stack, as libybnet calls it. libybnet
 * defines none of these; platform/util is a reference implementation.
 */
#ifndef YBNET_PLATFORM_YB_UTIL_H
#define YBNET_PLATFORM_YB_UTIL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Text of an access command (yb_access_cmd_t) for messages. Never NULL; the
 * string is static.
 */
const char *yb_access_cmd_str(uint32_t cmd);

/*
 * Text of a router interface type (YB_L2_INTERFACE_TYPE_*) for messages.
 * Never NULL; the string is static.
 */
const char *yb_router_interface_type_str(uint32_t type);

/* Bytes that each CRC work area holds at least; zero before its first use. */
#define YB_CRC_WORK_AREA_SIZE 1024

/*
 * CRC-16 of length bytes at data.
 * work_area: YB_CRC_WORK_AREA_SIZE bytes, aligned for uint32_t, all zero
 * before the first call; the function keeps a table in it, and one area must
 * not be used by two threads at once. parameter: what selects the variant;
 * libybnet passes 0x8D95. Every process that shares a ports segment must use
 * the same function: the bucket of each port depends on it.
 */
uint16_t crc_16(void *work_area, const uint8_t *data, uint32_t length, uint16_t parameter);

#ifdef __cplusplus
}
#endif

#endif
