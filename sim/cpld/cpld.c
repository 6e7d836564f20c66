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
 * Writing the register that stands for "none" succeeds without effect: the driver
 * writes the enable field of every level. The mask is that of the field; called with
 * the lock held, as the next.
 */
static int write_field(u64 chip, u32 reg, u32 shift, u32 mask, u32 value)
{
	if (shift > 31)
		return -EINVAL;
	if (reg == CPLD_NO_REGISTER)
		return 0;
	return cpld_model_write(chip, reg, mask << shift, value << shift);
}

static int read_field(u64 chip, u32 reg, u32 shift, u32 mask, u32 *value)
{
	if (shift > 31)
		return -EINVAL;
	*value = cpld_model_read(chip, reg) >> shift & mask;
	return 0;
}

static int perform(struct cpld_access *access)
{
	u64 chip = cpld_chip(access->inst, access->chip);

	if (access->op == CPLD_READ || access->op == CPLD_REG_READ)
		return read_field(chip, access->reg, access->shift, access->mask, &access->value);
	return write_field(chip, access->reg, access->shift, access->mask, access->value);
}

/*
 * An access that goes into the trace, or may have to fail: a write of value, or a read
 * into *read. Takes over the held lock.
 */
static __attribute__((__noinline__)) int run_observed(enum cpld_op op, u64 chip, u32 reg, u32 shift,
						      u32 mask, u32 value, u32 *read,
						      unsigned long flags)
{
	struct cpld_access access = { .op = op, .inst = (u32)(chip >> 32), .chip = (u32)chip,
				      .reg = reg, .shift = shift, .mask = mask, .value = value };
	int ret = cpld_fail_check(op);

	if (!ret)
		ret = perform(&access);
	access.ret = ret;
	cpld_trace_add(&access);
	cpld_unlock(flags);
	if (!ret && read)
		*read = access.value;
	return ret;
}

static inline int read_access(enum cpld_op op, u64 chip, u32 reg, u32 shift, u32 mask, u32 *value)
{
	unsigned long flags;
	int ret;

	if (!value)
		return -EINVAL;
	flags = cpld_lock();
	if (cpld_state.observed)
		return run_observed(op, chip, reg, shift, mask, 0, value, flags);
	ret = read_field(chip, reg, shift, mask, value);
	port_unlock(&cpld_state.lock, flags);	/* nothing was touched */
	return ret;
}

static inline int write_access(enum cpld_op op, u64 chip, u32 reg, u32 shift, u32 mask, u32 value)
{
	unsigned long flags = cpld_lock();
	int ret;

	if (cpld_state.observed)
		return run_observed(op, chip, reg, shift, mask, value, NULL, flags);
	ret = write_field(chip, reg, shift, mask, value);
	cpld_unlock(flags);
	return ret;
}

/* The four operations, each in one piece: what they cost is what an interrupt costs. */
#define IN_ONE_PIECE __attribute__((__flatten__))

IN_ONE_PIECE
int drv_cpld_read(u32 inst_id, u32 chip_id, struct drv_intr_reg_desc desc, u32 mask, u32 *value)
{
	return read_access(CPLD_READ, cpld_chip(inst_id, chip_id), desc.address, desc.bit_offset,
			   mask, value);
}

IN_ONE_PIECE
int drv_cpld_write(u32 inst_id, u32 chip_id, struct drv_intr_reg_desc desc, u32 mask, u32 value)
{
	return write_access(CPLD_WRITE, cpld_chip(inst_id, chip_id), desc.address, desc.bit_offset,
			    mask, value);
}

IN_ONE_PIECE
int drv_cpld_reg_read(u32 inst_id, u32 chip_id, u32 reg, u32 *value)
{
	return read_access(CPLD_REG_READ, cpld_chip(inst_id, chip_id), reg, 0, 0xffffffffu, value);
}

IN_ONE_PIECE
int drv_cpld_reg_write(u32 inst_id, u32 chip_id, u32 reg, u32 value)
{
	return write_access(CPLD_REG_WRITE, cpld_chip(inst_id, chip_id), reg, 0, 0xffffffffu,
			    value);
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
