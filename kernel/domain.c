// SPDX-License-Identifier: GPL-2.0
/* Interrupt domains and their firmware nodes. */
#include <linux/irqdomain.h>

#include "platform/kernel_api.h"

/* The kernel keeps the address for the domain's life. The driver gives all its domains one table.
 */
static struct irq_domain_ops domain_ops;

noinline struct irq_domain *plat_irq_domain_create_tree(struct fwnode_handle *fwnode,
							const struct plat_irq_domain_ops *ops,
							void *host_data)
{
	domain_ops.map = ops->map;
	return irq_domain_create_tree(fwnode, &domain_ops, host_data);
}

noinline void *plat_irq_domain_host_data(struct irq_domain *domain)
{
	return domain->host_data;
}

noinline void plat_irq_domain_remove(struct irq_domain *domain)
{
	irq_domain_remove(domain);
}

/*
 * A lookup of any node, and a release of the mapped interrupt, look into the operations
 * of the domain: they must outlive this module.
 */
noinline void plat_irq_domain_abandon(struct irq_domain *domain)
{
	domain->ops = &irq_domain_simple_ops;
	domain->host_data = NULL;
}

noinline u32 plat_irq_create_mapping(struct irq_domain *domain, unsigned long hwirq)
{
	return irq_create_mapping(domain, hwirq);
}

noinline void plat_irq_dispose_mapping(u32 virq)
{
	irq_dispose_mapping(virq);
}

noinline struct fwnode_handle *plat_irq_domain_alloc_named_fwnode(const char *name)
{
	return irq_domain_alloc_named_fwnode(name);
}

noinline void plat_irq_domain_free_fwnode(struct fwnode_handle *fwnode)
{
	irq_domain_free_fwnode(fwnode);
}
