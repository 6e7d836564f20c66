// SPDX-License-Identifier: GPL-2.0
/* Netlink: the kernel's socket and the messages it sends. */
#include <linux/build_bug.h>
#include <linux/container_of.h>
#include <linux/module.h>
#include <linux/netlink.h>
#include <linux/notifier.h>
#include <linux/skbuff.h>
#include <net/net_namespace.h>
#include <net/netlink.h>

#include "platform/kernel_api.h"

/* A process's socket of the protocol holds the module that is named here. */
noinline struct sock *plat_netlink_kernel_create(u32 protocol)
{
	return __netlink_kernel_create(&init_net, protocol, THIS_MODULE, NULL);
}

noinline void plat_netlink_kernel_release(struct sock *sock)
{
	netlink_kernel_release(sock);
}

noinline struct sk_buff *plat_nlmsg_new(size_t payload)
{
	return nlmsg_new(payload, GFP_ATOMIC);
}

noinline void plat_nlmsg_free(struct sk_buff *message)
{
	nlmsg_free(message);
}

noinline void *plat_nlmsg_put(struct sk_buff *message, u32 portid, u32 seq, u32 type, u32 payload,
			      u32 flags)
{
	struct nlmsghdr *header = nlmsg_put(message, portid, seq, type, payload, flags);

	return header ? nlmsg_data(header) : NULL;
}

noinline void plat_netlink_set_source(struct sk_buff *message, u32 portid, u32 dst_group)
{
	NETLINK_CB(message).portid = portid;
	NETLINK_CB(message).dst_group = dst_group;
}

noinline int plat_netlink_unicast(struct sock *sock, struct sk_buff *message, u32 portid,
				  int nonblock)
{
	return netlink_unicast(sock, message, portid, nonblock);
}

static_assert(sizeof(struct notifier_block) <= sizeof_field(struct plat_netlink_notifier, storage));
static_assert(__alignof__(struct notifier_block) <= __alignof__(struct plat_netlink_notifier));

static struct notifier_block *block_of(struct plat_netlink_notifier *notifier)
{
	return (struct notifier_block *)notifier->storage;
}

/* The chain is a blocking one, which the release of a socket calls when the port is free again. */
static int on_netlink_event(struct notifier_block *block, unsigned long event, void *data)
{
	const struct netlink_notify *notify = data;
	struct plat_netlink_notifier *notifier =
		container_of((void *)block, struct plat_netlink_notifier, storage);

	if (event == NETLINK_URELEASE && notify->protocol == notifier->protocol &&
	    net_eq(notify->net, &init_net))
		notifier->released(notify->portid);
	return NOTIFY_DONE;
}

noinline int plat_netlink_register_notifier(struct plat_netlink_notifier *notifier)
{
	*block_of(notifier) = (struct notifier_block){.notifier_call = on_netlink_event};
	return netlink_register_notifier(block_of(notifier));
}

noinline void plat_netlink_unregister_notifier(struct plat_netlink_notifier *notifier)
{
	netlink_unregister_notifier(block_of(notifier));
}
