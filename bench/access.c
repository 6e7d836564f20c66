// SPDX-License-Identifier: GPL-2.0
/*
 * What one register access costs through whatever CPLD module is loaded, call
 * included: measured once at load, shown as parameters in instructions.
 */
#include <linux/irqflags.h>
#include <linux/module.h>

#include "bench.h"
#include "intr/siblings.h"

#define WARM_UP 1000u
#define ACCESSES 5000u
#define CHIP 1

static uint read_cost, write_cost;
module_param_named(read, read_cost, uint, 0444);
module_param_named(write, write_cost, uint, 0444);

/* The registers are those that the program made known before. */
static int read_some(u32 count)
{
	struct drv_intr_reg_desc field = {.bit_offset = 0};
	int failed = 0;
	u32 i, value;

	for (i = 0; i < count; i++) {
		field.address = i % 32;
		failed |= drv_cpld_read(0xffffffff, CHIP, field, 1, &value);
	}
	return failed;
}

static int write_some(u32 count)
{
	struct drv_intr_reg_desc field = {.bit_offset = 0};
	int failed = 0;
	u32 i;

	for (i = 0; i < count; i++) {
		field.address = i % 16 * 2;
		failed |= drv_cpld_write(0xffffffff, CHIP, field, 1, 1);
	}
	return failed;
}

static int measure(int (*access)(u32 count), uint *cost)
{
	unsigned long flags;
	u64 start;
	int failed;

	local_irq_save(flags);
	failed = access(WARM_UP);
	start = bench_clock();
	failed |= access(ACCESSES);
	*cost = (bench_clock() - start) * BENCH_TICK_INSTRUCTIONS / ACCESSES;
	local_irq_restore(flags);
	return failed;
}

static int __init access_init(void)
{
	return measure(read_some, &read_cost) | measure(write_some, &write_cost);
}

static void __exit access_exit(void) {}

module_init(access_init);
module_exit(access_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Cost of a CPLD access");
