// SPDX-License-Identifier: GPL-2.0
//
// The control block and the lookups.
#include "core/records.h"

#include "core/atomic.h"
#include "intr/siblings.h"

constinit drv_intr_ctrl g_drv_intr_ctrl{};
constinit mutex g_drv_intr_lock{};

drv_intr_ctrl *drv_intr_get_ctrl()
{
	return &g_drv_intr_ctrl;
}

void drv_intr_ctrl_init()
{
	g_drv_intr_ctrl = {};
	g_drv_intr_ctrl.combiner_list.init();
	mutex_init(&g_drv_intr_lock, PLAT_MUTEX_DRIVER);
}

int drv_intr_get_combiner_id(const char *text, u32 *combiner_id)
{
	u32 number = 0;

	// A name without a number is no combiner's: as number 0 it would take
	// combiner 0's place.
	if (sscanf_s(text, DRV_INTR_COMBINER_NAME_FORMAT, &number) != 1)
		return -EFAULT;
	*combiner_id = number;
	return 0;
}

drv_intr_combiner *drv_intr_get_combiner(u32 combiner_id)
{
	for (drv_intr_combiner &combiner : g_drv_intr_ctrl.combiner_list) {
		if (combiner.combiner_id == combiner_id)
			return &combiner;
	}
	return nullptr;
}

drv_intr_irq_info *drv_intr_get_irq_info_by_virq(u32 virq)
{
	for (drv_intr_combiner &combiner : g_drv_intr_ctrl.combiner_list) {
		for (drv_intr_irq_info &irq_info : combiner.irq_info_list) {
			if (read_once(irq_info.virq) == virq)
				return &irq_info;
		}
	}
	return nullptr;
}

drv_intr_irq_info *drv_intr_get_irq_info_by_hwirq(drv_intr_combiner &combiner, u32 hwirq)
{
	for (drv_intr_irq_info &irq_info : combiner.irq_info_list) {
		if (irq_info.hwirq_cfg.hwirq == hwirq)
			return &irq_info;
	}
	return nullptr;
}

drv_intr_irq_info *drv_intr_get_irq_info_by_index_type(u32 index_id, u32 type)
{
	for (drv_intr_combiner &combiner : g_drv_intr_ctrl.combiner_list) {
		for (drv_intr_irq_info &irq_info : combiner.irq_info_list) {
			const drv_intr_hwirq_cfg &cfg = irq_info.hwirq_cfg;

			if (cfg.index_id == index_id && cfg.type == type)
				return &irq_info;
		}
	}
	return nullptr;
}
