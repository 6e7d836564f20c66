// SPDX-License-Identifier: GPL-2.0
//
// Operations on a leaf's chain of level registers.
#include "combiner/level.h"

#include "core/log.h"
#include "core/registers.h"

int drv_intr_set_irq_leaf_int_en(drv_intr_irq_info &irq_info, u32 en)
{
	static constexpr char desc[] = "intr set irq leaf int en";
	const drv_intr_hwirq_cfg &cfg = irq_info.hwirq_cfg;
	const drv_intr_level_cfg &level = cfg.level[cfg.level_num - 1];
	const u32 virq = read_once(irq_info.virq);

	intr_trace(virq, "[%s]enter, index_id=0x%x, type=%u, en=%u", desc, cfg.index_id, cfg.type,
		   en);
	const int ret = drv_intr_cpld_write(irq_info.combiner->inst_id, level.chip_id, level.en_reg,
					    level.shift, level.mask, en);
	if (ret != 0) {
		intr_err("[%s]write cpld fail, ret=0x%x", desc, ret);
		return -EFAULT;
	}
	intr_trace(virq, "[%s]success, index_id=0x%x, type=%u", desc, cfg.index_id, cfg.type);
	return 0;
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

// One write-to-clear level. The whole register is written with this leaf's bits
// only: a 0 leaves other leaves' pending bits as they are.
static int clear_level(u32 inst_id, const drv_intr_level_cfg &level, u32 virq, u32 &status)
{
	static constexpr char desc[] = "intr clear irqinfo";
	const u32 bits = drv_intr_shift_mask(level.mask, level.shift);

	(void)drv_cpld_reg_read(inst_id, level.chip_id, level.status_reg, &status); // trace only
	intr_trace(virq, "[%s]virq=%u, before clr, status(0x%x)=0x%x, wr-value=0x%x", desc, virq,
		   level.status_reg, status, bits);
	const int ret = drv_cpld_reg_write(inst_id, level.chip_id, level.status_reg, bits);
	if (ret != 0) {
		intr_err("[%s]write cpld fail, ret=0x%x", desc, ret);
		return ret;
	}
	(void)drv_cpld_reg_read(inst_id, level.chip_id, level.status_reg, &status); // trace only
	intr_trace(virq, "[%s]virq=%u, after clr, status(0x%x)=0x%x", desc, virq, level.status_reg,
		   status);
	return 0;
}

void drv_intr_clear_irqinfo(drv_intr_irq_info &irq_info)
{
	static constexpr char desc[] = "intr clear irqinfo";
	const drv_intr_hwirq_cfg &cfg = irq_info.hwirq_cfg;
	const u32 virq = read_once(irq_info.virq);
	u32 status = 0;

	intr_trace(virq, "[%s]enter, virq=%u", desc, virq);
	for (u32 i = cfg.level_num; i-- > 0;) {
		const drv_intr_level_cfg &level = cfg.level[i];

		intr_trace(virq,
			   "[%s]virq=%u, chip_id=%u, en_reg=0x%x, status_reg=0x%x, shift=%u, "
			   "mask=%u, status_wc=%u",
			   desc, virq, level.chip_id, level.en_reg, level.status_reg, level.shift,
			   level.mask, level.status_wc);
		if (level.status_wc == 0)
			continue;
		if (clear_level(irq_info.combiner->inst_id, level, virq, status) != 0)
			return;
	}
	intr_trace(virq, "[%s]success, virq=%u", desc, virq);
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
