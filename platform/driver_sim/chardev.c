// SPDX-License-Identifier: GPL-2.0-only
/*
 * /dev/yb_core0, the control device: takes the driver settings the control
 * library makes and remembers them for /proc/qrn_yb/state (procfs.c). The ioctl
 * itself is defined in yb_core_ioctl.h, which user space includes too.
 */
#include <linux/compat.h>
#include <linux/fs.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/seq_file.h>
#include <linux/uaccess.h>

#include "yb_core_ioctl.h"
#include "yb_core_sim.h"

enum {
	YB_COMMAND_MULTI_PACKET_ENABLE = 7,
	YB_COMMAND_BLOCKING_ENABLE = 8,
	YB_COMMAND_VID2IP = 55,
};

struct yb_vid2ip {
	s32 word0;
	u32 word1;
	s32 word2;
};

static DEFINE_MUTEX(yb_state_lock);
static struct {
	bool multi_packet_enable;
	bool blocking_enable;
	struct yb_vid2ip vid2ip;
	u64 opens;
	u64 ioctls;
	u64 ioctls_refused;
} yb_state;

static int yb_set_flag(bool *flag, u64 argument)
{
	if (argument > 1)
		return -EINVAL;
	*flag = argument;
	return 0;
}

static int yb_set_vid2ip(u64 argument)
{
	struct yb_vid2ip vid2ip;

	/* On a 32-bit kernel an address that does not fit is as bad as any other. */
	if (argument > ULONG_MAX)
		return -EFAULT;
	if (copy_from_user(&vid2ip, u64_to_user_ptr(argument), sizeof(vid2ip)))
		return -EFAULT;
	yb_state.vid2ip = vid2ip;
	return 0;
}

static int yb_control(const void __user *from)
{
	struct yb_core_control control;

	if (copy_from_user(&control, from, sizeof(control)))
		return -EFAULT;
	if (control.reserved)
		return -EINVAL;
	switch (control.command) {
	case YB_COMMAND_MULTI_PACKET_ENABLE:
		return yb_set_flag(&yb_state.multi_packet_enable, control.argument);
	case YB_COMMAND_BLOCKING_ENABLE:
		return yb_set_flag(&yb_state.blocking_enable, control.argument);
	case YB_COMMAND_VID2IP:
		return yb_set_vid2ip(control.argument);
	default:
		return -EINVAL;
	}
}

static long yb_chardev_ioctl(struct file *file, unsigned int number, unsigned long argument)
{
	int err;

	if (number != YB_CORE_IOC_CONTROL)
		return -ENOTTY;
	mutex_lock(&yb_state_lock);
	err = yb_control((const void __user *)argument);
	yb_state.ioctls++;
	if (err)
		yb_state.ioctls_refused++;
	mutex_unlock(&yb_state_lock);
	return err;
}

static int yb_chardev_open(struct inode *inode, struct file *file)
{
	mutex_lock(&yb_state_lock);
	yb_state.opens++;
	mutex_unlock(&yb_state_lock);
	return nonseekable_open(inode, file);
}

void yb_chardev_show(struct seq_file *seq)
{
	mutex_lock(&yb_state_lock);
	seq_printf(seq, "multi_packet_enable %d\n", yb_state.multi_packet_enable);
	seq_printf(seq, "blocking_enable %d\n", yb_state.blocking_enable);
	seq_printf(seq, "vid2ip %d %u %d\n", yb_state.vid2ip.word0, yb_state.vid2ip.word1,
		   yb_state.vid2ip.word2);
	seq_printf(seq, "opens %llu\n", yb_state.opens);
	seq_printf(seq, "ioctls %llu\n", yb_state.ioctls);
	seq_printf(seq, "ioctls_refused %llu\n", yb_state.ioctls_refused);
	mutex_unlock(&yb_state_lock);
}

static const struct file_operations yb_chardev_fops = {
	.owner = THIS_MODULE,
	.open = yb_chardev_open,
	.unlocked_ioctl = yb_chardev_ioctl,
	/* The same layout for 32-bit callers; only the pointer needs converting. */
	.compat_ioctl = compat_ptr_ioctl,
	.llseek = no_llseek,
};

static struct miscdevice yb_chardev = {
	.minor = MISC_DYNAMIC_MINOR,
	.name = "yb_core0",
	.fops = &yb_chardev_fops,
};

int __init yb_chardev_init(void)
{
	return misc_register(&yb_chardev);
}

void yb_chardev_exit(void)
{
	misc_deregister(&yb_chardev);
}
