// SPDX-License-Identifier: GPL-2.0
/* Hands the driver's exported functions to the bench, which is there before the driver. */
#include <linux/module.h>

#include "regs.h"

static const struct bench_intr intr = {
	.enable = drv_intr_enable,
	.disable = drv_intr_disable,
	.find = drv_find_mapping_irq,
	.regist = drv_intr_set_regist,
	.unregist = drv_intr_set_unregist,
};

static int __init link_init(void)
{
	bench_set_intr(&intr);
	return 0;
}

static void __exit link_exit(void)
{
	bench_set_intr(NULL);
}

module_init(link_init);
module_exit(link_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Hands the interrupt combiner driver to the bench");
