// SPDX-License-Identifier: GPL-2.0-only
/*
 * The link kind "yb_netdev": Ethernet devices that swallow what they are given
 * to send and whose carrier follows the oper_dev commands procfs.c passes on.
 * The netdevs of the switch partitions are devices of the same kind.
 */
#include <linux/etherdevice.h>
#include <linux/list.h>
#include <linux/netdevice.h>
#include <linux/rtnetlink.h>
#include <net/rtnetlink.h>

#include "yb_core_sim.h"

#define YB_NETDEV_KIND "yb_netdev"

enum {
	YB_NETDEV_ATTR_UNSPEC,
	YB_NETDEV_ATTR_VALUE1,
	YB_NETDEV_ATTR_VALUE2,
	__YB_NETDEV_ATTR_MAX
};
#define YB_NETDEV_ATTR_MAX (__YB_NETDEV_ATTR_MAX - 1)

/* The values never change once the device is registered. */
struct yb_netdev {
	struct net_device *dev;
	struct list_head list;
	u32 value1;
	u32 value2;
};

/* Every registered device in every namespace; under RTNL. */
static LIST_HEAD(yb_netdevs);

static const struct nla_policy yb_netdev_policy[YB_NETDEV_ATTR_MAX + 1] = {
	[YB_NETDEV_ATTR_VALUE1] = { .type = NLA_U32 },
	[YB_NETDEV_ATTR_VALUE2] = { .type = NLA_U32 },
};

static ssize_t value1_show(struct device *dev, struct device_attribute *attr, char *buf)
{
	const struct yb_netdev *yb = netdev_priv(to_net_dev(dev));

	return sysfs_emit(buf, "%u\n", yb->value1);
}
static DEVICE_ATTR_RO(value1);

static ssize_t value2_show(struct device *dev, struct device_attribute *attr, char *buf)
{
	const struct yb_netdev *yb = netdev_priv(to_net_dev(dev));

	return sysfs_emit(buf, "%u\n", yb->value2);
}
static DEVICE_ATTR_RO(value2);

static struct attribute *yb_netdev_attrs[] = { &dev_attr_value1.attr, &dev_attr_value2.attr, NULL };

static const struct attribute_group yb_netdev_group = {
	.name = YB_NETDEV_KIND,
	.attrs = yb_netdev_attrs,
};

static int yb_ndo_init(struct net_device *dev)
{
	struct yb_netdev *yb = netdev_priv(dev);

	dev->lstats = netdev_alloc_pcpu_stats(struct pcpu_lstats);
	if (!dev->lstats)
		return -ENOMEM;
	list_add_tail(&yb->list, &yb_netdevs);
	return 0;
}

static void yb_ndo_uninit(struct net_device *dev)
{
	struct yb_netdev *yb = netdev_priv(dev);

	list_del(&yb->list);
	free_percpu(dev->lstats);
}

static netdev_tx_t yb_ndo_start_xmit(struct sk_buff *skb, struct net_device *dev)
{
	dev_lstats_add(dev, skb->len);
	skb_tx_timestamp(skb);
	dev_kfree_skb(skb);
	return NETDEV_TX_OK;
}

static void yb_ndo_set_rx_mode(struct net_device *dev)
{
	/* Nothing is ever received, so any filter is right. */
}

static void yb_ndo_get_stats64(struct net_device *dev, struct rtnl_link_stats64 *stats)
{
	dev_lstats_read(dev, &stats->tx_packets, &stats->tx_bytes);
}

static const struct net_device_ops yb_netdev_ops = {
	.ndo_init = yb_ndo_init,
	.ndo_uninit = yb_ndo_uninit,
	.ndo_start_xmit = yb_ndo_start_xmit,
	.ndo_set_rx_mode = yb_ndo_set_rx_mode,
	.ndo_set_mac_address = eth_mac_addr,
	.ndo_validate_addr = eth_validate_addr,
	.ndo_get_stats64 = yb_ndo_get_stats64,
};

static void yb_netdev_setup(struct net_device *dev)
{
	struct yb_netdev *yb = netdev_priv(dev);

	yb->dev = dev;
	ether_setup(dev);
	eth_hw_addr_random(dev);
	dev->netdev_ops = &yb_netdev_ops;
	dev->needs_free_netdev = true;
	dev->sysfs_groups[0] = &yb_netdev_group;
	dev->max_mtu = ETH_MAX_MTU;
	dev->priv_flags |= IFF_LIVE_ADDR_CHANGE | IFF_NO_QUEUE | IFF_UNICAST_FLT;
	dev->features |= NETIF_F_LLTX | NETIF_F_SG | NETIF_F_FRAGLIST | NETIF_F_GSO_SOFTWARE |
			 NETIF_F_HW_CSUM | NETIF_F_HIGHDMA;
	dev->hw_features |= dev->features;
	dev->vlan_features |= dev->features;
}

/*
 * Carrier off, then on: the edge makes link watch compute the operational
 * state, which would be "unknown" instead of "up" without one.
 */
static int yb_netdev_register(struct net_device *dev)
{
	int err;

	netif_carrier_off(dev);
	err = register_netdevice(dev);
	if (err)
		return err;
	netif_carrier_on(dev);
	return 0;
}

static int yb_validate(struct nlattr *tb[], struct nlattr *data[], struct netlink_ext_ack *extack)
{
	if (!tb[IFLA_ADDRESS])
		return 0;
	if (nla_len(tb[IFLA_ADDRESS]) != ETH_ALEN)
		return -EINVAL;
	if (!is_valid_ether_addr(nla_data(tb[IFLA_ADDRESS])))
		return -EADDRNOTAVAIL;
	return 0;
}

static int yb_newlink(struct net *src_net, struct net_device *dev, struct nlattr *tb[],
		      struct nlattr *data[], struct netlink_ext_ack *extack)
{
	struct yb_netdev *yb = netdev_priv(dev);

	if (data && data[YB_NETDEV_ATTR_VALUE1])
		yb->value1 = nla_get_u32(data[YB_NETDEV_ATTR_VALUE1]);
	if (data && data[YB_NETDEV_ATTR_VALUE2])
		yb->value2 = nla_get_u32(data[YB_NETDEV_ATTR_VALUE2]);
	return yb_netdev_register(dev);
}

static size_t yb_get_size(const struct net_device *dev)
{
	return 2 * nla_total_size(sizeof(u32));
}

static int yb_fill_info(struct sk_buff *skb, const struct net_device *dev)
{
	const struct yb_netdev *yb = netdev_priv(dev);

	if (nla_put_u32(skb, YB_NETDEV_ATTR_VALUE1, yb->value1) ||
	    nla_put_u32(skb, YB_NETDEV_ATTR_VALUE2, yb->value2))
		return -EMSGSIZE;
	return 0;
}

static struct rtnl_link_ops yb_link_ops __read_mostly = {
	.kind = YB_NETDEV_KIND,
	.priv_size = sizeof(struct yb_netdev),
	.setup = yb_netdev_setup,
	.maxtype = YB_NETDEV_ATTR_MAX,
	.policy = yb_netdev_policy,
	.validate = yb_validate,
	.newlink = yb_newlink,
	.get_size = yb_get_size,
	.fill_info = yb_fill_info,
};
MODULE_ALIAS_RTNL_LINK(YB_NETDEV_KIND);

/*
 * The namespace of who asks decides; a name it does not know may still mean the
 * one device elsewhere that bears it. Under RTNL.
 */
static struct net_device *yb_netdev_find(struct net *net, const char *name)
{
	struct net_device *dev = __dev_get_by_name(net, name);
	struct yb_netdev *yb;

	if (dev)
		return dev->netdev_ops == &yb_netdev_ops ? dev : NULL;

	list_for_each_entry (yb, &yb_netdevs, list) {
		if (strcmp(yb->dev->name, name))
			continue;
		if (dev)
			return NULL;
		dev = yb->dev;
	}
	return dev;
}

int yb_netdev_set_oper(struct net *net, const char *name, bool up)
{
	struct net_device *dev;

	if (rtnl_lock_killable())
		return -EINTR;
	dev = yb_netdev_find(net, name);
	if (dev && up)
		netif_carrier_on(dev);
	else if (dev)
		netif_carrier_off(dev);
	rtnl_unlock();
	return dev ? 0 : -EINVAL;
}

static int __init yb_partition_create(unsigned int swid)
{
	struct net_device *dev;
	char name[IFNAMSIZ];
	int err;

	if (snprintf(name, sizeof(name), "swid%u_eth", swid) >= sizeof(name))
		return -EINVAL;
	dev = alloc_netdev(sizeof(struct yb_netdev), name, NET_NAME_PREDICTABLE, yb_netdev_setup);
	if (!dev)
		return -ENOMEM;
	dev->rtnl_link_ops = &yb_link_ops;
	rtnl_lock();
	err = yb_netdev_register(dev);
	rtnl_unlock();
	if (err)
		free_netdev(dev);
	/* modprobe takes -EEXIST for "already loaded", which is no failure to it. */
	return err == -EEXIST ? -EBUSY : err;
}

int __init yb_netdev_init(const unsigned int *swids, unsigned int count)
{
	unsigned int i;
	int err;

	err = rtnl_link_register(&yb_link_ops);
	if (err)
		return err;
	for (i = 0; i < count; i++) {
		err = yb_partition_create(swids[i]);
		if (err) {
			pr_err("yb_core_sim: no netdev for partition %u: %d\n", swids[i], err);
			rtnl_link_unregister(&yb_link_ops);
			return err;
		}
	}
	return 0;
}

void yb_netdev_exit(void)
{
	/* Removes every device of the kind, in whatever namespace it is. */
	rtnl_link_unregister(&yb_link_ops);
}
