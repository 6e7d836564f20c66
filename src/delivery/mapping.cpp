// SPDX-License-Identifier: GPL-2.0
//
// Finding a leaf by its name, and giving it a Linux interrupt.
#include "delivery/mapping.h"

#include "combiner/level.h"
#include "core/log.h"

static constexpr char mapping_desc[] = "mapping irq";

drv_intr_irq_info *drv_intr_find_leaf(const char *desc, u32 index_id, u32 type)
{
	drv_intr_irq_info *irq_info = drv_intr_get_irq_info_by_index_type(index_id, type);

	if (!irq_info)
		intr_info("[%s]not support para, index_id=0x%x, type=%u", desc, index_id, type);
	return irq_info;
}

drv_intr_irq_info *drv_intr_find_leaf_to_map(u32 index_id, u32 type)
{
	return drv_intr_find_leaf(mapping_desc, index_id, type);
}

// Two leaves of one hwirq would share one virq, and the release of one would
// take it from under the other: only the first of them can be mapped. None can be
// whose combiner is about to go.
static bool owns_hwirq(drv_intr_irq_info &irq_info)
{
	const u32 hwirq = irq_info.hwirq_cfg.hwirq;
	const drv_intr_irq_info *first = drv_intr_get_irq_info_by_hwirq(*irq_info.combiner, hwirq);

	if (first && first != &irq_info)
		intr_err("[%s]hwirq=%u is another leaf's", mapping_desc, hwirq);
	return first == &irq_info;
}

u32 drv_intr_map_leaf(drv_intr_irq_info &irq_info)
{
	static constexpr const char *desc = mapping_desc;
	const drv_intr_combiner &combiner = *irq_info.combiner;
	const drv_intr_hwirq_cfg &cfg = irq_info.hwirq_cfg;

	if (irq_info.virq != 0)
		return irq_info.virq;
	intr_info("[%s]index_id=0x%x, type=%u", desc, cfg.index_id, cfg.type);
	// Not before the whole bring-up is through: its set-up of the registers
	// would disable a leaf that is in use already.
	u32 virq = 0;
	if (drv_intr_is_ready(combiner) && owns_hwirq(irq_info))
		virq = irq_create_mapping(combiner.domain, cfg.hwirq);
	if (virq == 0) {
		intr_err("[%s]map hwirq fail", desc);
		return 0;
	}
	{
		const raw_spinlock_guard guard(irq_info.enable_lock);
		irq_info.retiring = 0;
		write_once(irq_info.replay_due, 0u); // of an earlier mapping
		write_once(irq_info.virq, virq);
	}
	intr_info("[%s]clear irq int state, virq=%u", desc, virq);
	drv_intr_clear_irqinfo(irq_info);
	intr_info("[%s]success, virq=%u", desc, virq);
	return virq;
}
