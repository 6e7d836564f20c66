// SPDX-License-Identifier: GPL-2.0
/* Kernel entry of the logging module, and what it exports. */
#include <linux/module.h>
#include "intr/siblings.h"
#include "log.h"

EXPORT_SYMBOL(drv_log_register);
EXPORT_SYMBOL(drv_log_record);

static int __init log_module_init(void)
{
	return log_start();
}

static void __exit log_module_exit(void)
{
	log_stop();
}

module_init(log_module_init);
module_exit(log_module_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Log of the interrupt driver and its siblings");
