/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The driver access library of the switch stack, as libybnet calls it.
 * libybnet defines none of these; platform/ybd is a reference implementation.
 *
 * Each function returns 0 on success; otherwise errno tells why.
 */
#ifndef YBNET_PLATFORM_YBD_H
#define YBNET_PLATFORM_YBD_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Bytes of each device-name buffer handed to ybd_get_dev_list(). */
#define YBD_DEV_NAME_SIZE 64

/* Control commands that libybnet sends. */
#define YBD_CTRL_CMD_SET_MULTI_PACKET_ENABLE 7u /* argument: 0 or 1 */
#define YBD_CTRL_CMD_SET_BLOCKING_ENABLE 8u     /* argument: 0 or 1 */
#define YBD_CTRL_CMD_VID2IP_SET 55u             /* argument: address of three 32-bit words */

/*
 * The control record, 16 bytes:
 *
 *   0        4        8               16
 *   | command| zero   | value/address |
 */
typedef struct ybd_ioctl_cmd {
    uint32_t ctrl_cmd; /* YBD_CTRL_CMD_* */
    uint32_t reserved; /* 0 */
    uint64_t argument; /* a value, or an address in the caller's memory */
} ybd_ioctl_cmd_t;

/*
 * Lists the driver's devices. names: *count pointers to buffers of
 * YBD_DEV_NAME_SIZE bytes, owned by the caller. count: in, the room in names;
 * out, how many were written.
 */
int ybd_get_dev_list(char **names, uint32_t *count);

/* Opens the device called name; *handle is written on success, never 0. */
int ybd_open_device(const char *name, uint32_t *handle);

/* Sends one control record (ybd_ioctl_cmd_t) to an open device. */
int ybd_ioctl(uint32_t handle, void *control_record);

/* Closes an open device. A handle that is not open, 0 too, fails with EBADF. */
int ybd_close_device(uint32_t handle);

#ifdef __cplusplus
}
#endif

#endif
