// SPDX-License-Identifier: GPL-2.0
/* Netlink: the kernel's socket and the messages it sends. */
#include <linux/module.h>
#include <linux/netlink.h>
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
