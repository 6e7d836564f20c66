// SPDX-License-Identifier: GPL-2.0
/* Kernel entry of the interrupt monitor, and what it exports. */
#include <linux/module.h>
#include "intr/siblings.h"
#include "monitor.h"

EXPORT_SYMBOL(drv_intr_monitor_set_param);
EXPORT_SYMBOL(drv_intr_monitor_unset_param);
EXPORT_SYMBOL(drv_intr_monitor_do_check);
EXPORT_SYMBOL(drv_intr_mng_get_suppress_cnt);
EXPORT_SYMBOL(drv_intr_mng_get_irq_state);

static int __init monitor_module_init(void)
{
	return monitor_start();
}

static void __exit monitor_module_exit(void)
{
	monitor_stop();
}

module_init(monitor_module_init);
module_exit(monitor_module_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Interrupt storm suppression");
