// SPDX-License-Identifier: GPL-2.0
/* Kernel entry of the diagnostics module, and what it exports. */
#include <linux/module.h>
#include "intr/siblings.h"
#include "diag.h"

EXPORT_SYMBOL(diag_get_proc_root);

static int __init diag_module_init(void)
{
	return diag_start();
}

static void __exit diag_module_exit(void)
{
	diag_stop();
}

module_init(diag_module_init);
module_exit(diag_module_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Proc directory for diagnostic entries");
