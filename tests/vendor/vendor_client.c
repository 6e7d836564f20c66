// SPDX-License-Identifier: GPL-2.0
/*
 * A vendor's user of intr.ko: goes once through all of its interface and has
 * one interrupt delivered. Says how it went in one line of the kernel log and
 * stays loaded only when all was well.
 */
#include <linux/completion.h>
#include <linux/errno.h>
#include <linux/interrupt.h>
#include <linux/jiffies.h>
#include <linux/module.h>
#include <linux/of.h>
#include <linux/of_irq.h>

#include "vendor_contract.h"

#define INDEX_ID 0x21
#define TYPE 4
#define KEY (TYPE << 16 | INDEX_ID)
#define CHIP 7
#define STATUS 0x11
#define STATUS_BIT 3

static DECLARE_COMPLETION(called);
static const char cookie[] = "vendor";

static void on_interrupt(u32 index_id, u32 type, void *data)
{
	if (index_id == INDEX_ID && type == TYPE && data == cookie)
		complete(&called);
}

/* The number of the first combiner's parent line, 0 without one. */
static u32 parent_line(void)
{
	struct device_node *node = of_find_node_by_name(NULL, "irq_combiner");
	u32 virq = node ? irq_of_parse_and_map(node, 0) : 0;

	of_node_put(node);
	return virq;
}

/* Whether the leaf's interrupt, raised as the hardware would, reaches the callback. */
static bool delivers(unsigned int wait_ms)
{
	const struct drv_intr_reg_desc status = { STATUS, STATUS_BIT };

	if (drv_cpld_write(0xffffffff, CHIP, status, 1, 1) ||
	    irq_set_irqchip_state(parent_line(), IRQCHIP_STATE_PENDING, true))
		return false;
	return wait_for_completion_timeout(&called, msecs_to_jiffies(wait_ms)) != 0;
}

/* What does not work with the leaf registered; null when everything does. */
static const char *try_registered(u32 virq)
{
	if (drv_find_mapping_irq(INDEX_ID, TYPE) != virq || bsp_find_mapping(KEY) != virq)
		return "registering changed the leaf's number";
	if (!delivers(2000))
		return "no callback for an interrupt";
	if (drv_intr_disable(INDEX_ID, TYPE))
		return "drv_intr_disable";
	if (delivers(50))
		return "callback while disabled";
	if (drv_intr_enable(INDEX_ID, TYPE))
		return "drv_intr_enable";
	return delivers(2000) ? NULL : "no callback after enabling";
}

static const char *try_all(void)
{
	u32 virq = bsp_mapping_irq(KEY);
	const char *failed;

	if (!virq || drv_mapping_irq(INDEX_ID, TYPE) != virq)
		return "mapping";
	if (drv_intr_set_regist(INDEX_ID, TYPE, on_interrupt, (void *)cookie))
		return "drv_intr_set_regist";
	failed = try_registered(virq);
	if (drv_intr_set_unregist(INDEX_ID, TYPE))
		return "drv_intr_set_unregist";
	if (!failed && drv_find_mapping_irq(INDEX_ID, TYPE))
		return "the number outlives its last user";
	return failed;
}

static int __init vendor_client_init(void)
{
	const char *failed = try_all();

	pr_info("vendor client: %s\n", failed ? failed : "ok");
	return failed ? -EIO : 0;
}

static void __exit vendor_client_exit(void)
{
}

module_init(vendor_client_init);
module_exit(vendor_client_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("A vendor's user of intr");
