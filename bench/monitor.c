// SPDX-License-Identifier: GPL-2.0
/* An interrupt monitor that watches nothing: what the driver costs without one. */
#include <linux/errno.h>
#include <linux/module.h>

#include "intr/siblings.h"

int drv_intr_monitor_set_param(u32 virq, u32 dev_virq, u32 allow_max, u32 suppress_ms, u32 policy,
			       void *reserved)
{
	return 0;
}
EXPORT_SYMBOL(drv_intr_monitor_set_param);

int drv_intr_monitor_unset_param(u32 virq, u32 dev_virq)
{
	return 0;
}
EXPORT_SYMBOL(drv_intr_monitor_unset_param);

int drv_intr_monitor_do_check(u32 virq, struct irq_desc *desc, u32 dev_virq)
{
	return 0;
}
EXPORT_SYMBOL(drv_intr_monitor_do_check);

int drv_intr_mng_get_suppress_cnt(u32 virq, u32 *count)
{
	return -ENOENT;
}
EXPORT_SYMBOL(drv_intr_mng_get_suppress_cnt);

int drv_intr_mng_get_irq_state(u32 virq, s32 *state)
{
	return -ENOENT;
}
EXPORT_SYMBOL(drv_intr_mng_get_irq_state);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("An interrupt monitor without effect, for the bench");
