// SPDX-License-Identifier: GPL-2.0
/*
 * CPLD access of another revision: drv_cpld_read wants one argument more. Called
 * as intr.ko calls it, it would take a stray register for its last argument;
 * the kernel must refuse to bring the two together.
 */
#include <linux/errno.h>
#include <linux/module.h>

#define drv_cpld_read drv_cpld_read_of_the_contract
#include "vendor_contract.h"
#undef drv_cpld_read

int drv_cpld_read(u32 inst, u32 chip, struct drv_intr_reg_desc field, u32 mask, u32 *value,
		  u32 timeout_us);

int drv_cpld_read(u32 inst, u32 chip, struct drv_intr_reg_desc field, u32 mask, u32 *value,
		  u32 timeout_us)
{
	return -ENODEV;
}
EXPORT_SYMBOL(drv_cpld_read);

int drv_cpld_write(u32 inst, u32 chip, struct drv_intr_reg_desc field, u32 mask, u32 value)
{
	return -ENODEV;
}
EXPORT_SYMBOL(drv_cpld_write);

int drv_cpld_reg_read(u32 inst, u32 chip, u32 reg, u32 *value)
{
	return -ENODEV;
}
EXPORT_SYMBOL(drv_cpld_reg_read);

int drv_cpld_reg_write(u32 inst, u32 chip, u32 reg, u32 value)
{
	return -ENODEV;
}
EXPORT_SYMBOL(drv_cpld_reg_write);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("A vendor's CPLD access that does not fit");
