// SPDX-License-Identifier: GPL-2.0
//
// Operations on a leaf's chain of level registers.
//
// Each level has an enable field and a status field at the same bits. Testing
// walks from level 0 (outermost) towards the leaf, clearing from the leaf
// outwards. The registers hold the only state. Leaves of combiners that are
// not direct have 1 to config::MAX_LEVELS levels.
//
// Nothing here sleeps or takes a lock: hard-interrupt context and interrupt
// descriptor locks are fine. The module that serves the registers makes a
// field write of a shared register atomic.
#ifndef INTR_COMBINER_LEVEL_H
#define INTR_COMBINER_LEVEL_H

#include "core/records.h"

// Turns the leaf's own enable field on (1) or off (0). 0 or -EFAULT.
[[nodiscard]] int drv_intr_set_irq_leaf_int_en(drv_intr_irq_info &irq_info, u32 en);

// Walk over all leaves in list order, stopping at the first failure; what was
// written stays. 0 or -EFAULT.
[[nodiscard]] int drv_intr_disable_leaf_int(drv_intr_combiner &combiner);
[[nodiscard]] int drv_intr_enable_not_leaf_int(drv_intr_combiner &combiner);

// Clears the leaf's latched status on every write-to-clear level, leaf level first.
void drv_intr_clear_irqinfo(drv_intr_irq_info &irq_info);
void drv_combiner_clr_int(drv_intr_combiner &combiner);

// Whether every level from the outermost to the leaf's is enabled and shows its
// status; the first disabled or quiet level ends the test, and a failed read
// counts as quiet. On a direct combiner: whether the leaf is mapped.
[[nodiscard]] bool drv_combiner_is_virq_active(const drv_intr_irq_info &irq_info);

#endif
