// SPDX-License-Identifier: GPL-2.0-only
/*
 * /proc/qrn_yb/yb_core, to which "oper_dev NAME up" or "oper_dev NAME down" is
 * written to move a netdev's carrier (netdev.c does it), and /proc/qrn_yb/state,
 * which shows what the control device (chardev.c) was told.
 */
#include <linux/fs.h>
#include <linux/netdevice.h>
#include <linux/nsproxy.h>
#include <linux/proc_fs.h>
#include <linux/sched.h>
#include <linux/seq_file.h>
#include <linux/spinlock.h>
#include <linux/string.h>
#include <linux/uaccess.h>

#include "yb_core_sim.h"

#define YB_PROC_DIR "qrn_yb"
#define YB_OPER_VERB "oper_dev "
/* The longest command: verb, name, " down" and a newline. */
#define YB_COMMAND_MAX (sizeof(YB_OPER_VERB) - 1 + IFNAMSIZ - 1 + 5 + 1)

static struct proc_dir_entry *yb_proc_dir;

/* The last accepted command, without its newline. */
static DEFINE_SPINLOCK(yb_last_lock);
static char yb_last[YB_COMMAND_MAX + 1];

/* Cuts @text into @name and @up if it is exactly the one known command. */
static bool yb_parse_oper(const char *text, char name[IFNAMSIZ], bool *up)
{
	const char *end;

	if (strncmp(text, YB_OPER_VERB, sizeof(YB_OPER_VERB) - 1))
		return false;
	text += sizeof(YB_OPER_VERB) - 1;
	end = strchr(text, ' ');
	if (!end || end - text >= IFNAMSIZ)
		return false;
	memcpy(name, text, end - text);
	name[end - text] = '\0';
	if (!strcmp(end, " up"))
		*up = true;
	else if (!strcmp(end, " down"))
		*up = false;
	else
		return false;
	return dev_valid_name(name);
}

/* One write is one command, wherever the file position is. */
static ssize_t yb_core_write(struct file *file, const char __user *from, size_t count, loff_t *pos)
{
	char text[YB_COMMAND_MAX + 1];
	size_t length = count;
	char name[IFNAMSIZ];
	bool up;
	int err;

	if (!count || count > YB_COMMAND_MAX)
		return -EINVAL;
	if (copy_from_user(text, from, count))
		return -EFAULT;
	if (text[length - 1] == '\n')
		length--;
	text[length] = '\0';
	if (strlen(text) != length || !yb_parse_oper(text, name, &up))
		return -EINVAL;

	err = yb_netdev_set_oper(current->nsproxy->net_ns, name, up);
	if (err)
		return err;

	spin_lock(&yb_last_lock);
	strscpy(yb_last, text, sizeof(yb_last));
	spin_unlock(&yb_last_lock);
	return count;
}

static int yb_core_show(struct seq_file *seq, void *unused)
{
	spin_lock(&yb_last_lock);
	if (yb_last[0])
		seq_printf(seq, "%s\n", yb_last);
	spin_unlock(&yb_last_lock);
	return 0;
}

static int yb_core_open(struct inode *inode, struct file *file)
{
	return single_open(file, yb_core_show, NULL);
}

static const struct proc_ops yb_core_proc_ops = {
	.proc_open = yb_core_open,
	.proc_read_iter = seq_read_iter,
	.proc_write = yb_core_write,
	/* Not seq_lseek: C stdio seeks to the end of what it opens to append. */
	.proc_lseek = default_llseek,
	.proc_release = single_release,
};

static int yb_state_show(struct seq_file *seq, void *unused)
{
	yb_chardev_show(seq);
	return 0;
}

int __init yb_proc_init(void)
{
	yb_proc_dir = proc_mkdir(YB_PROC_DIR, NULL);
	if (!yb_proc_dir)
		return -ENOMEM;
	if (!proc_create("yb_core", 0600, yb_proc_dir, &yb_core_proc_ops) ||
	    !proc_create_single("state", 0444, yb_proc_dir, yb_state_show)) {
		yb_proc_exit();
		return -ENOMEM;
	}
	return 0;
}

void yb_proc_exit(void)
{
	proc_remove(yb_proc_dir);
}
