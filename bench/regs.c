// SPDX-License-Identifier: GPL-2.0
/*
 * The register file behind all candidates, and the CPLD access module that the
 * driver gets from it. Accesses are counted here, not in the drivers. The bench has
 * one CPU: who writes a field has interrupts off, or nobody else does.
 */
#include <linux/errno.h>
#include <linux/module.h>

#include "intr/siblings.h"
#include "regs.h"

struct regs regs;

int drv_cpld_reg_read(u32 inst_id, u32 chip_id, u32 reg, u32 *value)
{
	if (reg >= BENCH_REGS)
		return -ENODEV;
	*value = regs_read(reg);
	return 0;
}
EXPORT_SYMBOL(drv_cpld_reg_read);

int drv_cpld_reg_write(u32 inst_id, u32 chip_id, u32 reg, u32 value)
{
	if (reg >= BENCH_REGS)
		return -ENODEV;
	regs_write(reg, value);
	return 0;
}
EXPORT_SYMBOL(drv_cpld_reg_write);

int drv_cpld_read(u32 inst_id, u32 chip_id, struct drv_intr_reg_desc desc, u32 mask, u32 *value)
{
	if (desc.address >= BENCH_REGS)
		return -ENODEV;
	*value = regs_read(desc.address) >> desc.bit_offset & mask;
	return 0;
}
EXPORT_SYMBOL(drv_cpld_read);

int drv_cpld_write(u32 inst_id, u32 chip_id, struct drv_intr_reg_desc desc, u32 mask, u32 value)
{
	u32 bits = mask << desc.bit_offset;

	if (desc.address >= BENCH_REGS)
		return -ENODEV;
	regs_write(desc.address,
		   (regs_read(desc.address) & ~bits) | (value << desc.bit_offset & bits));
	return 0;
}
EXPORT_SYMBOL(drv_cpld_write);

/*
 * A slot has room for half of a combiner's leaves here: each combiner that is set up
 * finds another backplane.
 */
static u32 next_slot;

void regs_restart_slots(void)
{
	next_slot = 0;
}

int drv_backplane_get_type(u32 *type)
{
	*type = next_slot++;
	return 0;
}
EXPORT_SYMBOL_GPL(drv_backplane_get_type);
