// SPDX-License-Identifier: GPL-2.0
/* The bounded string routines as a kernel module: nothing to start or stop. */
#include <linux/module.h>
#include "intr/siblings.h"

EXPORT_SYMBOL(memcpy_s);
EXPORT_SYMBOL(sprintf_s);
EXPORT_SYMBOL(sscanf_s);
EXPORT_SYMBOL(snprintf_truncated_s);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Bounded string routines");
