// SPDX-License-Identifier: GPL-2.0
/* Kernel entry of the CPLD access module, and what it exports. */
#include <linux/module.h>
#include "intr/siblings.h"
#include "cpld.h"
#include "cpld_sim.h"

EXPORT_SYMBOL(drv_cpld_read);
EXPORT_SYMBOL(drv_cpld_write);
EXPORT_SYMBOL(drv_cpld_reg_read);
EXPORT_SYMBOL(drv_cpld_reg_write);

EXPORT_SYMBOL_GPL(cpld_sim_set_line_hook);
EXPORT_SYMBOL_GPL(cpld_sim_line_level);
EXPORT_SYMBOL_GPL(cpld_sim_source);
EXPORT_SYMBOL_GPL(cpld_sim_mark);

static int __init cpld_module_init(void)
{
	return cpld_start();
}

static void __exit cpld_module_exit(void)
{
	cpld_stop();
}

module_init(cpld_module_init);
module_exit(cpld_module_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Simulated CPLD register access");
