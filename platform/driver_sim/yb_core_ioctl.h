/* SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0 */
/*
 * The control ioctl of the switch driver's device nodes, /dev/yb_core0 and on:
 * chardev.c answers it in the kernel, platform/ybd sends it from user space.
 * Both include this file, so the record has one definition.
 */
#ifndef YB_CORE_IOCTL_H
#define YB_CORE_IOCTL_H

#include <linux/ioctl.h>
#include <linux/types.h>

/*
 * One control record, the same 16 bytes for 32-bit and 64-bit callers.
 * @argument is a value or a user-space address, depending on @command.
 */
struct yb_core_control {
	__u32 command;
	__u32 reserved; /* zero */
	__u64 argument;
};

#define YB_CORE_IOC_CONTROL _IOWR('Y', 0x01, struct yb_core_control)

#endif
