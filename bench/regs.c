// SPDX-License-Identifier: GPL-2.0
/*
 * The register file behind all candidates, and the CPLD access module that the
 * driver gets from it. Accesses are counted here, not in the drivers. The bench has
 * one CPU: who writes a field has interrupts off, or nobody else does. Addresses are
 * not checked: those of the bench's own configurations are good.
 */
#include <linux/bitops.h>
#include <linux/module.h>

#include "intr/siblings.h"
#include "regs.h"

struct regs regs;

static bool is_up(u32 status)
{
	return regs.word[status] & regs.word[status - 1];
}

static bool is_any_group_up(u32 line)
{
	u32 word;

	for (word = BENCH_GROUPS_AT; word < BENCH_SHARED_AT; word += 2)
		if (is_up(line + word + 1))
			return true;
	return false;
}

u32 regs_inputs(u32 reg, u32 bits)
{
	u32 line = reg - reg % BENCH_LINE_REGS, at = reg % BENCH_LINE_REGS, up = 0;

	if (at >= BENCH_SHARED_AT)
		return is_any_group_up(line) ? bits : 0;
	for (; bits; bits &= bits - 1)
		if (is_up(line + (at - 1 - BENCH_GROUPS_AT) * 8 + 2 * __ffs(bits) + 1))
			up |= bits & -bits;
	return up;
}

int drv_cpld_reg_read(u32 inst_id, u32 chip_id, u32 reg, u32 *value)
{
	*value = regs_read(reg);
	return 0;
}
EXPORT_SYMBOL(drv_cpld_reg_read);

int drv_cpld_reg_write(u32 inst_id, u32 chip_id, u32 reg, u32 value)
{
	regs_write(reg, value);
	return 0;
}
EXPORT_SYMBOL(drv_cpld_reg_write);

int drv_cpld_read(u32 inst_id, u32 chip_id, struct drv_intr_reg_desc desc, u32 mask, u32 *value)
{
	*value = regs_read(desc.address) >> desc.bit_offset & mask;
	return 0;
}
EXPORT_SYMBOL(drv_cpld_read);

int drv_cpld_write(u32 inst_id, u32 chip_id, struct drv_intr_reg_desc desc, u32 mask, u32 value)
{
	u32 bits = mask << desc.bit_offset;

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
