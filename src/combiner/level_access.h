// SPDX-License-Identifier: GPL-2.0
//
// What masking and unmasking a leaf does to its level registers, inline: it is most of
// what an interrupt costs. TRACED, whether the leaf's lines are wanted in the log, is
// looked at once for all of them. Others use combiner/level.h. Static: what the kernel
// traces of a function must not lie in a section that the linker drops.
#ifndef INTR_COMBINER_LEVEL_ACCESS_H
#define INTR_COMBINER_LEVEL_ACCESS_H

#include "core/log.h"
#include "core/records.h"
#include "core/registers.h"

// Turns the leaf's own enable field on (1) or off (0). 0 or -EFAULT.
template <bool TRACED>
[[nodiscard]] static inline int drv_intr_write_leaf_enable(drv_intr_irq_info &irq_info, u32 en)
{
	static constexpr char desc[] = "intr set irq leaf int en";
	const drv_intr_hwirq_cfg &cfg = irq_info.hwirq_cfg;
	const drv_intr_level_cfg &level = cfg.level[cfg.level_num - 1];

	intr_trace_if(TRACED, "[%s]enter, index_id=0x%x, type=%u, en=%u", desc, cfg.index_id,
		      cfg.type, en);
	const int ret = drv_intr_cpld_write(irq_info.combiner->inst_id, level.chip_id, level.en_reg,
					    level.shift, level.mask, en);
	if (ret != 0) [[unlikely]] {
		intr_err("[%s]write cpld fail, ret=0x%x", desc, ret);
		return -EFAULT;
	}
	intr_trace_if(TRACED, "[%s]success, index_id=0x%x, type=%u", desc, cfg.index_id, cfg.type);
	return 0;
}

// One write-to-clear level. The whole register is written with this leaf's bits
// only: a 0 leaves other leaves' pending bits as they are.
template <bool TRACED> [[nodiscard]] static inline int
drv_intr_clear_level(u32 inst_id, const drv_intr_level_cfg &level, u32 virq, u32 &status)
{
	static constexpr char desc[] = "intr clear irqinfo";
	const u32 bits = drv_intr_shift_mask(level.mask, level.shift);

	(void)drv_cpld_reg_read(inst_id, level.chip_id, level.status_reg, &status); // trace only
	intr_trace_if(TRACED, "[%s]virq=%u, before clr, status(0x%x)=0x%x, wr-value=0x%x", desc,
		      virq, level.status_reg, status, bits);
	const int ret = drv_cpld_reg_write(inst_id, level.chip_id, level.status_reg, bits);
	if (ret != 0) [[unlikely]] {
		intr_err("[%s]write cpld fail, ret=0x%x", desc, ret);
		return ret;
	}
	(void)drv_cpld_reg_read(inst_id, level.chip_id, level.status_reg, &status); // trace only
	intr_trace_if(TRACED, "[%s]virq=%u, after clr, status(0x%x)=0x%x", desc, virq,
		      level.status_reg, status);
	return 0;
}

// Clears the leaf's latched status on every write-to-clear level, leaf level first.
template <bool TRACED>
static inline void drv_intr_clear_levels(drv_intr_irq_info &irq_info, u32 virq)
{
	static constexpr char desc[] = "intr clear irqinfo";
	const drv_intr_hwirq_cfg &cfg = irq_info.hwirq_cfg;
	const u32 inst_id = irq_info.combiner->inst_id;
	u32 status = 0;

	intr_trace_if(TRACED, "[%s]enter, virq=%u", desc, virq);
	for (const drv_intr_level_cfg *level = cfg.level + cfg.level_num; level-- != cfg.level;) {
		intr_trace_if(TRACED,
			      "[%s]virq=%u, chip_id=%u, en_reg=0x%x, status_reg=0x%x, shift=%u, "
			      "mask=%u, status_wc=%u",
			      desc, virq, level->chip_id, level->en_reg, level->status_reg,
			      level->shift, level->mask, level->status_wc);
		if (level->status_wc == 0)
			continue;
		if (drv_intr_clear_level<TRACED>(inst_id, *level, virq, status) != 0)
			return;
	}
	intr_trace_if(TRACED, "[%s]success, virq=%u", desc, virq);
}

#endif
