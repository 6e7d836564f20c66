// SPDX-License-Identifier: GPL-2.0
/* Load and unload. */
#include <linux/init.h>
#include <linux/module.h>
#include <linux/types.h>

#include "discovery/module.h"

static int __init intr_init(void)
{
	return drv_intr_module_init();
}

static void __exit intr_exit(void)
{
	drv_intr_module_exit();
}

module_init(intr_init);
module_exit(intr_exit);

MODULE_LICENSE("GPL");
MODULE_AUTHOR("intr maintainers");
MODULE_DESCRIPTION("Interrupt combiner: CPLD interrupt sources behind a few parent lines");
