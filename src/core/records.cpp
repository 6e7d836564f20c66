// SPDX-License-Identifier: GPL-2.0
//
// The control block and the look-up of combiners; leaves are found in leaf_index.cpp.
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
