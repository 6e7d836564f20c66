// SPDX-License-Identifier: GPL-2.0
/*
 * A vendor's CPLD access: an array of registers behind a raw lock. Writing a
 * whole status register clears the bits written, as the hardware does; a write
 * of one of its fields stores, and so plays the source.
 */
#include <linux/errno.h>
#include <linux/module.h>
#include <linux/spinlock.h>

#include "vendor_contract.h"

#define CHIP 7
#define REGISTERS 0x20
#define STATUS 0x11

static DEFINE_RAW_SPINLOCK(lock);
static u32 registers[REGISTERS];

static u32 *find_register(u32 chip, u32 reg)
{
	return chip == CHIP && reg < REGISTERS ? &registers[reg] : NULL;
}

int drv_cpld_read(u32 inst, u32 chip, struct drv_intr_reg_desc field, u32 mask, u32 *value)
{
	u32 *word = find_register(chip, field.address);

	if (!word)
		return -ENODEV;
	*value = READ_ONCE(*word) >> field.bit_offset & mask;
	return 0;
}
EXPORT_SYMBOL(drv_cpld_read);

int drv_cpld_write(u32 inst, u32 chip, struct drv_intr_reg_desc field, u32 mask, u32 value)
{
	u32 *word = find_register(chip, field.address);
	unsigned long flags;

	if (!word)
		return -ENODEV;
	raw_spin_lock_irqsave(&lock, flags);
	WRITE_ONCE(*word, (*word & ~(mask << field.bit_offset)) |
			  (value & mask) << field.bit_offset);
	raw_spin_unlock_irqrestore(&lock, flags);
	return 0;
}
EXPORT_SYMBOL(drv_cpld_write);

int drv_cpld_reg_read(u32 inst, u32 chip, u32 reg, u32 *value)
{
	u32 *word = find_register(chip, reg);

	if (!word)
		return -ENODEV;
	*value = READ_ONCE(*word);
	return 0;
}
EXPORT_SYMBOL(drv_cpld_reg_read);

int drv_cpld_reg_write(u32 inst, u32 chip, u32 reg, u32 value)
{
	u32 *word = find_register(chip, reg);
	unsigned long flags;

	if (!word)
		return -ENODEV;
	raw_spin_lock_irqsave(&lock, flags);
	WRITE_ONCE(*word, reg == STATUS ? *word & ~value : value);
	raw_spin_unlock_irqrestore(&lock, flags);
	return 0;
}
EXPORT_SYMBOL(drv_cpld_reg_write);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("A vendor's own CPLD access");
