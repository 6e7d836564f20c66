// SPDX-License-Identifier: GPL-2.0
/* Load and unload of the virtual board; it is there before the driver and after it. */
#include <linux/module.h>

#include "board.h"

static int __init board_module_init(void)
{
	return board_start();
}

static void __exit board_module_exit(void)
{
	board_stop();
}

module_init(board_module_init);
module_exit(board_module_exit);

EXPORT_SYMBOL_GPL(board_set_leaf_resolver);

MODULE_LICENSE("GPL");
MODULE_AUTHOR("intr maintainers");
MODULE_DESCRIPTION("Virtual board: parent lines, combiner devices and faults");
