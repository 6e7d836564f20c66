// SPDX-License-Identifier: GPL-2.0
//
// CPU-side register writes of a combiner.
#include "config/combiner_cfg.h"
#include "core/log.h"

int drv_intr_get_xml_cpu_cfg(const char *cfg_name, const char *prefix, u32 inst_id,
			     list<drv_intr_cpu_cfg> &cpu_list)
{
	char entry[DRV_INTR_XML_NAME_SIZE];
	drv_intr_cpu_cfg scratch{};
	const drv_intr_xml_path path = {DRV_INTR_XML_ROOT, cfg_name, entry};
	const drv_intr_cfg_map_item items[] = {
		drv_intr_cfg_item(config::cpu::reg_addr, &scratch.reg_addr),
		drv_intr_cfg_item(config::cpu::shift, &scratch.shift),
		drv_intr_cfg_item(config::cpu::mask, &scratch.mask),
		drv_intr_cfg_item(config::cpu::value, &scratch.value),
	};

	for (u32 i = 0; i < config::MAX_CPU_ENTRIES; i++) {
		const int ret = sprintf_s(entry, sizeof(entry), "%s%u", prefix, i);

		if (ret < 0) {
			intr_err("drv intr get xml cpu cfg sprintf_s to entry name "
				 "faled.i[%d],errno[%d]",
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
