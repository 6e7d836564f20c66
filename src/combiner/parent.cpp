// SPDX-License-Identifier: GPL-2.0
//
// Small operations on a combiner's parent line.
#include "combiner/parent.h"

#include "core/atomic.h"

// With parent_lock held.
static void enable_parent_line(drv_intr_combiner &combiner)
{
	if (combiner.quiesced != 0)
		return;
	if (!combiner.parent_leaf) {
		enable_irq(combiner.virq);
		return;
	}
	// A client of that leaf may enable it at the same moment.
	const raw_spinlock_guard leaf_guard(combiner.parent_leaf->enable_lock);
	enable_irq(combiner.virq);
}

void drv_intr_enable_parent(drv_intr_combiner &combiner)
{
	const raw_spinlock_guard guard(combiner.parent_lock);

	enable_parent_line(combiner);
}

void drv_intr_mask_disable_parent(drv_intr_irq_info &irq_info)
{
	if (exchange(irq_info.parent_mask_disabled, 1u) == 0)
		disable_irq_nosync(irq_info.combiner->virq);
}

void drv_intr_mask_enable_parent(drv_intr_irq_info &irq_info)
{
	if (exchange(irq_info.parent_mask_disabled, 0u) != 0)
		drv_intr_enable_parent(*irq_info.combiner);
}

void drv_intr_defer_parent_enable(drv_intr_combiner &combiner)
{
	const raw_spinlock_guard guard(combiner.parent_lock);

	disable_irq_nosync(combiner.virq);
	combiner.deferred_enables++;
}

void drv_intr_run_deferred_enables(drv_intr_combiner &combiner)
{
	const raw_spinlock_guard guard(combiner.parent_lock);

	for (; combiner.deferred_enables > 0; combiner.deferred_enables--)
		enable_parent_line(combiner);
}

void drv_intr_quiesce_parent(drv_intr_combiner &combiner)
{
	const raw_spinlock_guard guard(combiner.parent_lock);

	combiner.quiesced = 1;
}

bool drv_intr_parent_comes_back(const drv_intr_combiner &combiner)
{
	irq_data *data = irq_get_irq_data(combiner.virq);
	const u32 trigger = data ? irqd_get_trigger_type(data) : 0;

	return !combiner.parent_leaf && combiner.common_cfg.int_type != DRV_INTR_COMBINER &&
	       (trigger == DRV_INTR_TYPE_LEVEL_HIGH || trigger == DRV_INTR_TYPE_LEVEL_LOW);
}

u32 drv_intr_get_hwirq(u32 virq)
{
	irq_data *data = irq_get_irq_data(virq);

	return data ? irqd_to_hwirq(data) : 0;
}

void drv_intr_virq_unmask(u32 virq)
{
	if (irq_data *data = irq_get_irq_data(virq))
		(void)irq_chip_unmask(data); // a chip without the operation is left as it is
}
