// SPDX-License-Identifier: GPL-2.0
/*
 * The functions that other modules call. They are defined in C++; the symbol
 * versions are computed from the C declarations seen here, so this file
 * includes nothing that would define more types.
 */
#include <linux/export.h>

#include "intr/drv_intr.h"

EXPORT_SYMBOL(drv_intr_enable);
EXPORT_SYMBOL(drv_intr_disable);
EXPORT_SYMBOL(drv_mapping_irq);
EXPORT_SYMBOL(bsp_mapping_irq);
EXPORT_SYMBOL(drv_find_mapping_irq);
EXPORT_SYMBOL(bsp_find_mapping);
EXPORT_SYMBOL(drv_intr_set_regist);
EXPORT_SYMBOL(drv_intr_set_unregist);
