// SPDX-License-Identifier: GPL-2.0
//
// The fixed order in which a combiner's whole configuration is read.
#include "config/combiner_cfg.h"
#include "core/log.h"

int drv_intr_combiner_init_cfg(drv_intr_combiner &combiner)
{
	static constexpr char desc[] = "intr combiner init cfg";
	const char *name = combiner.cfg_combiner_name;
	const u32 inst_id = combiner.inst_id;

	if (drv_intr_get_xml_common_cfg(name, inst_id, &combiner.common_cfg) != 0) {
		intr_err("[%s]get common cfg fail", desc);
		return -EINVAL;
	}
	if (drv_intr_get_xml_cpu_cfg(name, "cpu_default_cfg", inst_id,
				     combiner.cpu_default_cfg_list) != 0) {
		intr_err("[%s]get cpu default cfg fail", desc);
		return -EINVAL;
	}
	if (drv_intr_get_xml_cpu_cfg(name, "cpu_cfg", inst_id, combiner.cpu_cfg_list) != 0) {
		intr_err("[%s]get cpu cfg fail", desc);
		return -EINVAL;
	}
	const u32 chip_id = combiner.common_cfg.chip_id;
	if (drv_intr_get_xml_hwirq_cfg(name, inst_id, chip_id, combiner.hwirq_cfg_list) != 0) {
		intr_err("[%s]get hwirq cfg fail", desc);
		return -EINVAL;
	}
	if (drv_intr_get_xml_slot_hwirq_cfg(inst_id, chip_id, combiner.combiner_id,
					    combiner.hwirq_cfg_list) != 0) {
		intr_err("[%s]get slot hwirq cfg fail", desc);
		return -EINVAL;
	}
	return 0;
}
