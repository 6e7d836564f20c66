// SPDX-License-Identifier: GPL-2.0
//
// The text reports for people. Each function writes its text at `buffer`, at
// most size - 1 characters and always a NUL, and returns the number of
// characters without it: what does not fit is cut. They log nothing and change
// nothing. size is above 0, buffer zero-filled.
//
// Those that walk the records do it inside an srcu_reader of their own, and leave
// out combiners whose bring-up is not through; counters and states may change
// between two lines. Process context.
#ifndef INTR_CONTROL_REPORT_H
#define INTR_CONTROL_REPORT_H

#include "core/records.h"

u32 drv_intr_dbg_print_runtime(char *buffer, u32 size);
u32 drv_intr_dbg_print_cfg(char *buffer, u32 size);
u32 drv_intr_dbg_print_int_debug_switch(char *buffer, u32 size);

// The leaf with this virq: 0, nothing written, when there is none, for virq 0, or when the monitor
// cannot answer for it.
u32 drv_intr_dbg_print_irq(char *buffer, u32 size, u32 virq);

// The word for a debug switch.
[[nodiscard]] inline const char *drv_intr_on_off(u32 value)
{
	return value != 0 ? "on" : "off";
}

enum drv_intr_report : u32 {
	DRV_INTR_REPORT_RUNTIME,
	DRV_INTR_REPORT_CFG,
	DRV_INTR_REPORT_DEBUG_SWITCH,
};

// Puts one report into the sequence file; nothing for any other type, or without memory.
void drv_intr_dbg_show(seq_file *seq, u32 report_type);

#endif
