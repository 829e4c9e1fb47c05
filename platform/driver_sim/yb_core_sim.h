/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * What the parts of the simulated switch driver share. main.c brings them up
 * and down, netdev.c has the link kind and the partition netdevs, procfs.c the
 * two files under /proc, chardev.c the control device.
 */
#ifndef YB_CORE_SIM_H
#define YB_CORE_SIM_H

#include <linux/init.h>
#include <linux/types.h>

struct net;
struct seq_file;

/* netdev.c */
int __init yb_netdev_init(const unsigned int *swids, unsigned int count);
void yb_netdev_exit(void);
/* -EINVAL unless @name is one of this driver's netdevs, as @net sees it. */
int yb_netdev_set_oper(struct net *net, const char *name, bool up);

/* procfs.c */
int __init yb_proc_init(void);
void yb_proc_exit(void);

/* chardev.c */
int __init yb_chardev_init(void);
void yb_chardev_exit(void);
void yb_chardev_show(struct seq_file *seq);

#endif /* YB_CORE_SIM_H */
