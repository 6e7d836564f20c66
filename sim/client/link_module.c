// SPDX-License-Identifier: GPL-2.0
/* Links the driver's exported functions for the test client; see client_intr.h. */
#include <linux/module.h>

#include "client_intr.h"

static const struct client_intr intr = {
	.enable = drv_intr_enable,
	.disable = drv_intr_disable,
	.mapping_irq = drv_mapping_irq,
	.bsp_mapping_irq = bsp_mapping_irq,
	.find_mapping_irq = drv_find_mapping_irq,
	.bsp_find_mapping = bsp_find_mapping,
	.set_regist = drv_intr_set_regist,
	.set_unregist = drv_intr_set_unregist,
};

static int __init link_module_init(void)
{
	client_set_intr(&intr);
	return 0;
}

static void __exit link_module_exit(void)
{
	client_set_intr(NULL);
}

module_init(link_module_init);
module_exit(link_module_exit);

MODULE_LICENSE("GPL");
MODULE_AUTHOR("intr maintainers");
MODULE_DESCRIPTION("Hands the interrupt combiner driver to its test client");
