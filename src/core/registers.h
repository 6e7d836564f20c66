// SPDX-License-Identifier: GPL-2.0
//
// The two ways to hardware: CPU-side registers as 32-bit memory-mapped words,
// CPLD registers through the CPLD access module. Shift counts are used modulo 32.
#ifndef INTR_CORE_REGISTERS_H
#define INTR_CORE_REGISTERS_H

#include "intr/siblings.h"
#include "intr/types.h"

[[nodiscard]] inline u32 drv_intr_shift_mask(u32 mask, u32 shift)
{
	return mask << (shift % 32);
}

// CPU-side registers. Every access maps and unmaps its own 16 bytes, so they
// serve bring-up only: process context. 0, or -1 when the address cannot be
// mapped (the read then leaves *value untouched).
[[nodiscard]] int irq_combiner_reg32_read(u32 address, u32 *value);
[[nodiscard]] int irq_combiner_reg32_write(u32 address, u32 value);

// Sets one field and keeps the other bits. Not atomic: bring-up only. Writes
// also when nothing changes. 0, or the -1 of the access that failed.
[[nodiscard]] int drv_intr_cpu_reg_conf(u32 reg_addr, u32 shift, u32 mask, u32 value);

// CPLD fields. Any context; the CPLD module's result unchanged, 0 = success.
// Inline: they are most of what a scan does.
[[nodiscard]] inline int drv_intr_cpld_read(u32 inst_id, u32 chip_id, u32 reg, u32 shift, u32 mask,
					    u32 *value)
{
	return drv_cpld_read(inst_id, chip_id, {reg, static_cast<u16>(shift)}, mask, value);
}
[[nodiscard]] inline int drv_intr_cpld_write(u32 inst_id, u32 chip_id, u32 reg, u32 shift, u32 mask,
					     u32 value)
{
	return drv_cpld_write(inst_id, chip_id, {reg, static_cast<u16>(shift)}, mask, value);
}

#endif
