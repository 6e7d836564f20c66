// SPDX-License-Identifier: GPL-2.0
/*
 * The CPLD access module, over a simulation of the CPLDs: the four operations
 * of the driver, the operations of the virtual board, start and stop.
 */
#include "port.h"
#include "cpld.h"
#include "cpld_sim.h"
#include "cpld_model.h"

int cpld_sim_line_level(u32 line)
{
	unsigned long flags = cpld_lock();
	int level = cpld_model_line_level(line);

	cpld_unlock(flags);
	return level;
}

int cpld_sim_source(const char *name, int asserted)
{
	unsigned long flags = cpld_lock();
	int ret = cpld_model_set_source(name, asserted != 0);

	cpld_unlock(flags);
	return ret;
}

void cpld_sim_mark(const char *text)
{
	unsigned long flags = cpld_lock();

	cpld_trace_mark(text);
	cpld_unlock(flags);
}

/*
 * Act on the registers; called with the lock held. Writing the register that
 * stands for "none" succeeds without effect: the driver writes the enable
 * field of every level.
 */
static int perform(struct cpld_access *access)
{
	u32 bits = access->mask << (access->shift & 31);
	u32 word;

	if (access->shift > 31)
		return -EINVAL;
	switch (access->op) {
	case CPLD_READ:
	case CPLD_REG_READ:
		word = cpld_model_read(access->inst, access->chip, access->reg);
		access->value = (word >> access->shift) & access->mask;
		return 0;
	default:
		if (access->reg == CPLD_NO_REGISTER)
			return 0;
		return cpld_model_write(access->inst, access->chip, access->reg, bits,
					access->value << access->shift);
	}
}

static int run_access(struct cpld_access *access)
{
	unsigned long flags = cpld_lock();
	int ret = cpld_fail_check(access->op);

	if (!ret)
		ret = perform(access);
	access->ret = ret;
	cpld_trace_add(access);
	cpld_unlock(flags);
	return ret;
}

int drv_cpld_read(u32 inst_id, u32 chip_id, struct drv_intr_reg_desc desc, u32 mask, u32 *value)
{
	struct cpld_access access = { .op = CPLD_READ, .inst = inst_id, .chip = chip_id,
				      .reg = desc.address, .shift = desc.bit_offset, .mask = mask };
	int ret;

	if (!value)
		return -EINVAL;
	ret = run_access(&access);
	if (!ret)
		*value = access.value;
	return ret;
}

int drv_cpld_write(u32 inst_id, u32 chip_id, struct drv_intr_reg_desc desc, u32 mask, u32 value)
{
	struct cpld_access access = { .op = CPLD_WRITE, .inst = inst_id, .chip = chip_id,
				      .reg = desc.address, .shift = desc.bit_offset, .mask = mask,
				      .value = value };

	return run_access(&access);
}

int drv_cpld_reg_read(u32 inst_id, u32 chip_id, u32 reg, u32 *value)
{
	struct cpld_access access = { .op = CPLD_REG_READ, .inst = inst_id, .chip = chip_id,
				      .reg = reg, .mask = 0xffffffffu };
	int ret;

	if (!value)
		return -EINVAL;
	ret = run_access(&access);
	if (!ret)
		*value = access.value;
	return ret;
}

int drv_cpld_reg_write(u32 inst_id, u32 chip_id, u32 reg, u32 value)
{
	struct cpld_access access = { .op = CPLD_REG_WRITE, .inst = inst_id, .chip = chip_id,
				      .reg = reg, .mask = 0xffffffffu, .value = value };

	return run_access(&access);
}

int cpld_start(void)
{
	int ret = cpld_model_reset();

	if (ret)
		return ret;
	ret = cpld_trace_start();
	if (!ret)
		ret = cpld_ctl_register();
	if (ret) {
		cpld_trace_stop();
		cpld_model_free();
	}
	return ret;
}

void cpld_stop(void)
{
	cpld_ctl_unregister();
	cpld_sim_set_line_hook(NULL);
	cpld_trace_stop();
	cpld_model_free();
}
