// SPDX-License-Identifier: GPL-2.0
//
// CPU-side register writes, and the fixed order in which a combiner's whole
// configuration is read.
#include "config/combiner_cfg.h"
#include "core/log.h"

int drv_intr_get_xml_cpu_cfg(const char *cfg_name, const char *prefix, u32 inst_id,
			     list<drv_intr_cpu_cfg> &cpu_list)
{
	char entry[DRV_INTR_XML_NAME_SIZE];
	drv_intr_cpu_cfg scratch{};
	const drv_intr_xml_path path = {DRV_INTR_XML_ROOT, cfg_name, entry};
	const drv_intr_cfg_map_item items[] = {
		{1, "reg_addr", &scratch.reg_addr, nullptr, nullptr},
		{1, "shift", &scratch.shift, nullptr, nullptr},
		{1, "mask", &scratch.mask, nullptr, nullptr},
		{1, "value", &scratch.value, nullptr, nullptr},
	};

	for (u32 i = 0; i < DRV_INTR_MAX_CPU_CFG; i++) {
		const int ret = sprintf_s(entry, sizeof(entry), "%s%u", prefix, i);

		if (ret < 0) {
			intr_err("drv intr get xml cpu cfg sprintf_s to entry name faled.i[%d],errno[%d]",
				 static_cast<int>(i), ret);
			return -ENOMEM;
		}
		if (drv_intr_get_cfg_by_map(inst_id, path, array_size(items), items) != 0)
			return 0;
		auto *item = kzalloc<drv_intr_cpu_cfg>();
		if (!item)
			return -ENOMEM;
		*item = scratch;
		cpu_list.append(*item);
	}
	return 0;
}

void drv_intr_free_cpu_cfg_list(list<drv_intr_cpu_cfg> &cpu_list)
{
	while (drv_intr_cpu_cfg *item = cpu_list.first()) {
		cpu_list.unlink(*item);
		kfree(item);
	}
}

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
