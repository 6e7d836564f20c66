// SPDX-License-Identifier: GPL-2.0
//
// Small operations on a combiner's parent line.
#ifndef INTR_COMBINER_PARENT_H
#define INTR_COMBINER_PARENT_H

#include "core/records.h"

// Takes back one disable of the parent line. The only way to enable it: once
// tear-down has closed the line nothing may open it, since the kernel leaves a
// flow handler there that never ends an interrupt. Any context.
void drv_intr_enable_parent(drv_intr_combiner &combiner);

// Masking a direct leaf disables the parent line; whoever comes first of the leaf's
// handler, its unmask and its release gives that disable back. Any context.
void drv_intr_hold_parent(drv_intr_irq_info &irq_info);
void drv_intr_give_back_parent(drv_intr_irq_info &irq_info);

// The release of a direct leaf closes the parent line; the next request takes back
// what the releases since the last one did, and nothing else: a disable that a
// running occurrence or the monitor holds is not theirs. Process context.
void drv_intr_owe_parent(drv_intr_combiner &combiner);
void drv_intr_repay_parent(drv_intr_combiner &combiner);

// From here on nothing enables the parent line. Process context.
void drv_intr_close_parent(drv_intr_combiner &combiner);

// The hardware number that the kernel holds for virq, 0 without a descriptor.
[[nodiscard]] u32 drv_intr_get_hwirq(u32 virq);

// Opens the line at its chip, past the interrupt core, unless it is disabled.
void drv_intr_virq_unmask(u32 virq);

#endif
