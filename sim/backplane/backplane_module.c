// SPDX-License-Identifier: GPL-2.0
/* Kernel entry of the backplane module, and what it exports. */
#include <linux/module.h>
#include "intr/siblings.h"
#include "backplane.h"

/* GPL-only: the look-up by name at run time finds no other kind. */
EXPORT_SYMBOL_GPL(drv_backplane_get_type);

static int __init backplane_module_init(void)
{
	return backplane_start();
}

static void __exit backplane_module_exit(void)
{
	backplane_stop();
}

module_init(backplane_module_init);
module_exit(backplane_module_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Backplane type");
