// SPDX-License-Identifier: GPL-2.0
//
// Operations on a leaf's chain of level registers.
#include "combiner/level.h"

#include "combiner/level_access.h"

int drv_intr_set_irq_leaf_int_en(drv_intr_irq_info &irq_info, u32 en)
{
	return drv_intr_trace_enabled(read_once(irq_info.virq))
		       ? drv_intr_write_leaf_enable<true>(irq_info, en)
		       : drv_intr_write_leaf_enable<false>(irq_info, en);
}

static int drv_intr_enable_irq_not_leaf_int(const drv_intr_combiner &combiner,
					    const drv_intr_irq_info &irq_info)
{
	static constexpr char desc[] = "intr enable irq not leaf int";
	const drv_intr_hwirq_cfg &cfg = irq_info.hwirq_cfg;

	for (u32 i = 0; i + 1 < cfg.level_num; i++) {
		const drv_intr_level_cfg &level = cfg.level[i];
		const int ret = drv_intr_cpld_write(combiner.inst_id, level.chip_id, level.en_reg,
						    level.shift, level.mask, 1);

		if (ret != 0) {
			intr_err("[%s]write cpld fail, ret=0x%x, i=%d", desc, ret,
				 static_cast<int>(i));
			return -EFAULT;
		}
	}
	return 0;
}

int drv_intr_disable_leaf_int(drv_intr_combiner &combiner)
{
	static constexpr char desc[] = "intr disable leaf int";

	intr_info("[%s]enter", desc);
	for (drv_intr_irq_info &irq_info : combiner.irq_info_list) {
		const int ret = drv_intr_set_irq_leaf_int_en(irq_info, 0);

		if (ret != 0) {
			intr_err("[%s]disable irq leaf int fail, ret=%d, index_id=0x%x, type=%u",
				 desc, ret, irq_info.hwirq_cfg.index_id, irq_info.hwirq_cfg.type);
			return ret;
		}
	}
	intr_info("[%s]success", desc);
	return 0;
}

int drv_intr_enable_not_leaf_int(drv_intr_combiner &combiner)
{
	static constexpr char desc[] = "intr enable not leaf int";

	intr_info("[%s]enter", desc);
	for (drv_intr_irq_info &irq_info : combiner.irq_info_list) {
		const int ret = drv_intr_enable_irq_not_leaf_int(combiner, irq_info);

		if (ret != 0) {
			intr_err("[%s]enable irq not leaf int fail, ret=%d, index_id=0x%x, type=%u",
				 desc, ret, irq_info.hwirq_cfg.index_id, irq_info.hwirq_cfg.type);
			return ret;
		}
	}
	intr_info("[%s]success", desc);
	return 0;
}

void drv_intr_clear_irqinfo(drv_intr_irq_info &irq_info)
{
	const u32 virq = read_once(irq_info.virq);

	if (drv_intr_trace_enabled(virq))
		drv_intr_clear_levels<true>(irq_info, virq);
	else
		drv_intr_clear_levels<false>(irq_info, virq);
}

void drv_combiner_clr_int(drv_intr_combiner &combiner)
{
	for (drv_intr_irq_info &irq_info : combiner.irq_info_list)
		drv_intr_clear_irqinfo(irq_info);
}

static bool is_field_set(u32 inst_id, const drv_intr_level_cfg &level, u32 reg)
{
	u32 value = 0;

	return drv_intr_cpld_read(inst_id, level.chip_id, reg, level.shift, level.mask, &value) ==
		       0 &&
	       value != 0;
}

static bool drv_combiner_is_int_enabled(u32 inst_id, const drv_intr_level_cfg &level)
{
	return level.en_reg == config::NO_REGISTER || is_field_set(inst_id, level, level.en_reg);
}

static bool drv_combiner_is_int_active(u32 inst_id, const drv_intr_level_cfg &level)
{
	return is_field_set(inst_id, level, level.status_reg);
}

static bool drv_combiner_is_level_active(u32 inst_id, const drv_intr_level_cfg &level)
{
	return drv_combiner_is_int_enabled(inst_id, level) &&
	       drv_combiner_is_int_active(inst_id, level);
}

bool drv_combiner_is_virq_active(const drv_intr_irq_info &irq_info)
{
	const drv_intr_combiner &combiner = *irq_info.combiner;
	const drv_intr_hwirq_cfg &cfg = irq_info.hwirq_cfg;

	if (combiner.common_cfg.direct != 0)
		return read_once(irq_info.virq) != 0;
	for (u32 i = 0; i < cfg.level_num; i++) {
		if (!drv_combiner_is_level_active(combiner.inst_id, cfg.level[i]))
			return false;
	}
	return true;
}
