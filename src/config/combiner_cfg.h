// SPDX-License-Identifier: GPL-2.0
//
// A combiner's configuration: common settings, two lists of CPU-side register
// writes, its leaves, and the leaves of the backplane slot that name it.
//
// Process context, while the combiner is created. After a failure the lists
// keep what had been read; they are freed with the combiner.
#ifndef INTR_CONFIG_COMBINER_CFG_H
#define INTR_CONFIG_COMBINER_CFG_H

#include "config/keys.h"

// A key or entry name could not be formatted.
inline constexpr int DRV_INTR_ERR_NAME_FMT = 0x813E0001 - 0x100000000LL;

// Reads the whole configuration in its fixed order. 0, or -EINVAL with a line naming the step.
[[nodiscard]] int drv_intr_combiner_init_cfg(drv_intr_combiner &combiner);

// Appends the entries <prefix>0, <prefix>1, ... up to the first missing or
// incomplete one. 0 or -ENOMEM.
[[nodiscard]] int drv_intr_get_xml_cpu_cfg(const char *cfg_name, const char *prefix, u32 inst_id,
					   list<drv_intr_cpu_cfg> &cpu_list);
void drv_intr_free_cpu_cfg_list(list<drv_intr_cpu_cfg> &cpu_list);

// The combiner's own leaves: entries hwirq_cfg0, hwirq_cfg1, ... up to the
// first absent one. 0, DRV_INTR_ERR_NAME_FMT, or the first bad leaf's code.
[[nodiscard]] int drv_intr_get_xml_hwirq_cfg(const char *cfg_name, u32 inst_id, u32 chip_id,
					     list<drv_intr_hwirq_cfg> &hwirq_list);
// The leaves under the backplane slot's node that name this combiner. A board
// without a backplane has none. 0, -EFAULT, or the first bad leaf's code.
[[nodiscard]] int drv_intr_get_xml_slot_hwirq_cfg(u32 inst_id, u32 chip_id, u32 combiner_id,
						  list<drv_intr_hwirq_cfg> &hwirq_list);
void drv_intr_free_hwirq_cfg_list(list<drv_intr_hwirq_cfg> &hwirq_list);

#endif
