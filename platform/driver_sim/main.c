// SPDX-License-Identifier: GPL-2.0-only
/*
 * A switch driver without a switch: offers a control library and its tests the
 * link kind, the /proc file and the control device the hardware's driver has,
 * and remembers what it was told. This file loads and unloads the parts.
 */
#include <linux/module.h>

#include "yb_core_sim.h"

#define YB_MAX_SWIDS 8

static unsigned int swids[YB_MAX_SWIDS];
static unsigned int swid_count;
module_param_array(swids, uint, &swid_count, 0444);
MODULE_PARM_DESC(swids, "switch partitions that get a netdev swidN_eth");

static int __init yb_core_sim_init(void)
{
	int err;

	err = yb_netdev_init(swids, swid_count);
	if (err)
		return err;
	err = yb_chardev_init();
	if (err)
		goto err_netdev;
	err = yb_proc_init();
	if (err)
		goto err_chardev;
	return 0;

err_chardev:
	yb_chardev_exit();
err_netdev:
	yb_netdev_exit();
	return err;
}

static void __exit yb_core_sim_exit(void)
{
	/* The file first: once it is gone, no writer can look for a netdev. */
	yb_proc_exit();
	yb_chardev_exit();
	yb_netdev_exit();
}

module_init(yb_core_sim_init);
module_exit(yb_core_sim_exit);

MODULE_DESCRIPTION("Simulated switch driver");
MODULE_LICENSE("GPL");
