// SPDX-License-Identifier: GPL-2.0
/*
 * What one register access costs through whatever CPLD module is loaded, call
 * included: measured once at load, shown as parameters in instructions.
 */
#include <linux/irqflags.h>
#include <linux/module.h>

#include "bench.h"
#include "intr/siblings.h"

#define ACCESSES 1000u
#define CHIP 1

static uint read_cost, write_cost;
module_param_named(read, read_cost, uint, 0444);
module_param_named(write, write_cost, uint, 0444);

static int __init access_init(void)
{
	struct drv_intr_reg_desc field = {.bit_offset = 0};
	unsigned long flags;
	int failed = 0;
	u64 start, read, written;
	u32 i, value;

	/* The registers that the program made known to it: each pass finds them all warm. */
	local_irq_save(flags);
	start = bench_clock();
	for (i = 0; i < ACCESSES; i++) {
		field.address = i % 32;
		failed |= drv_cpld_read(0xffffffff, CHIP, field, 1, &value);
	}
	read = bench_clock();
	for (i = 0; i < ACCESSES; i++) {
		field.address = i % 16 * 2;
		failed |= drv_cpld_write(0xffffffff, CHIP, field, 1, 1);
	}
	written = bench_clock();
	local_irq_restore(flags);
	read_cost = (read - start) * BENCH_TICK_INSTRUCTIONS / ACCESSES;
	write_cost = (written - read) * BENCH_TICK_INSTRUCTIONS / ACCESSES;
	return failed;
}

static void __exit access_exit(void) {}

module_init(access_init);
module_exit(access_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Cost of a CPLD access");
