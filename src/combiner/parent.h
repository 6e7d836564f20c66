// SPDX-License-Identifier: GPL-2.0
//
// Small operations on a combiner's parent line.
#ifndef INTR_COMBINER_PARENT_H
#define INTR_COMBINER_PARENT_H

#include "core/records.h"

// Undoes one disable of the parent line. The only way to enable it: once
// tear-down has quiesced the line nothing may enable it, since the kernel leaves
// a flow handler there that never ends an interrupt. Any context.
void drv_intr_enable_parent(drv_intr_combiner &combiner);

// Masking a direct leaf disables the parent line; whoever comes first of the leaf's
// handler, its unmask, its enable and its release enables it again. Any context.
void drv_intr_mask_disable_parent(drv_intr_irq_info &irq_info);
void drv_intr_mask_enable_parent(drv_intr_irq_info &irq_info);

// The release of a direct leaf disables the parent line and defers the enable to
// the next request, which undoes what the releases since the last one did, and
// nothing else: a disable by a running occurrence or by the monitor is not
// theirs. Process context.
void drv_intr_defer_parent_enable(drv_intr_combiner &combiner);
void drv_intr_run_deferred_enables(drv_intr_combiner &combiner);

// Whether the line interrupts again by itself while a leaf is active: level-triggered at
// an interrupt controller, as the kernel knows it, and no leaf of another combiner.
[[nodiscard]] bool drv_intr_parent_comes_back(const drv_intr_combiner &combiner);

// From here on nothing enables the parent line. Process context.
void drv_intr_quiesce_parent(drv_intr_combiner &combiner);

// The hardware number that the kernel holds for virq, 0 without a descriptor.
[[nodiscard]] u32 drv_intr_get_hwirq(u32 virq);

// Unmasks the line at its chip, past the interrupt core, unless it is disabled.
void drv_intr_virq_unmask(u32 virq);

#endif
