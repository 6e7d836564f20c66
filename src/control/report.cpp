// SPDX-License-Identifier: GPL-2.0
//
// The text reports. Labels are padded per depth of indentation, so that the
// values of one block stand in a column; the column widths are L2 to L8.
#include "control/report.h"

#include "config/keys.h"
#include "control/text_out.h"
#include "core/atomic.h"
#include "intr/siblings.h"
#include "uapi/intr.h"

// A label at its depth; the format of its value follows.
#define L2 "  %-22s: "
#define L4 "    %-20s: "
#define L6 "      %-18s: "
#define L8 "        %-16s: "

// False: the kernel has no descriptor for the virq, so there is no depth to show.
static bool get_depth(u32 virq, u32 *depth)
{
	return virq != 0 && irq_get_depth(virq, depth) == 0;
}

static void drv_intr_dbg_print_one_irq(text_out &out, const drv_intr_irq_info &irq_info)
{
	const drv_intr_hwirq_cfg &cfg = irq_info.hwirq_cfg;
	const u32 virq = read_once(irq_info.virq);
	u32 depth = 0;

	intr_print(out, L6 "0x%x\n", "index_id", cfg.index_id);
	intr_print(out, L6 "%u\n", "type", cfg.type);
	intr_print(out, L6 "%u\n", "hwirq", cfg.hwirq);
	intr_print(out, L6 "%u\n", "virq", virq);
	if (get_depth(virq, &depth))
		intr_print(out, L6 "%u\n", "virq depth", depth);
}

static void drv_intr_dbg_print_irq_info(text_out &out, list<drv_intr_irq_info> &irq_info_list)
{
	u32 number = 0;

	intr_print(out, "  irq info\n");
	if (irq_info_list.empty())
		intr_print(out, "    no irq info\n");
	for (const drv_intr_irq_info &irq_info : irq_info_list) {
		if (out.full())
			break;
		intr_print(out, "    irq info%u\n", number++);
		drv_intr_dbg_print_one_irq(out, irq_info);
	}
}

static void drv_intr_dbg_print_combiner_runtime(text_out &out, drv_intr_combiner &combiner)
{
	const u32 virq = combiner.virq;
	u32 depth = 0;

	intr_print(out, "combiner%u\n", combiner.combiner_id);
	intr_print(out, L2 "0x%x\n", "inst_id", combiner.inst_id);
	intr_print(out, L2 "%u\n", "virq", virq);
	intr_print(out, L2 "%u\n", "hwirq", combiner.hwirq);
	intr_print(out, L2 "%u\n", "parent int cnt", read_once(combiner.parent_int_cnt));
	if (combiner.common_cfg.int_type == DRV_INTR_COMBINER) {
		intr_print(out, L2 "%u\n", "index_id", combiner.parent_index_id);
		intr_print(out, L2 "%u\n", "type", combiner.parent_type);
	}
	if (get_depth(virq, &depth))
		intr_print(out, L2 "%u\n", "virq depth", depth);
	drv_intr_dbg_print_irq_info(out, combiner.irq_info_list);
	intr_print(out, "\n");
}

u32 drv_intr_dbg_print_runtime(char *buffer, u32 size)
{
	drv_intr_ctrl &ctrl = *drv_intr_get_ctrl();
	const srcu_reader reader;
	text_out out{buffer, size, 0};

	intr_print(out, "intr ctrl\n");
	intr_print(out, L2 "%u\n", "debug_irq", read_once(ctrl.debug_irq));
	intr_print(out, L2 "%u\n\n", "int_debug_switch", read_once(ctrl.int_debug_switch));
	for (drv_intr_combiner &combiner : ctrl.combiner_list) {
		if (out.full())
			break;
		if (drv_intr_is_ready(combiner))
			drv_intr_dbg_print_combiner_runtime(out, combiner);
	}
	return out.length;
}

static void drv_intr_dbg_print_global_cfg(text_out &out, const drv_intr_ctrl &ctrl)
{
	const drv_intr_global_cfg &cfg = ctrl.global_cfg;

	intr_print(out, "global cfg\n");
	intr_print(out, L2 "0x%x(bit0=acpi, bit1=dts, bit2=gpio)\n", "cfg_type_bitmap",
		   cfg.cfg_type_bitmap);
	if (cfg.cfg_type_bitmap & DRV_INTR_CFG_ACPI)
		intr_print(out, L2 "0x%x\n", "acpi_bitmap", cfg.acpi_bitmap);
	if (cfg.cfg_type_bitmap & DRV_INTR_CFG_GPIO)
		intr_print(out, L2 "0x%x\n", "gpio_bitmap", cfg.gpio_bitmap);
	intr_print(out, L2 "%u\n", "netlink_id", cfg.netlink_id);
}

static void drv_intr_dbg_print_common_cfg(text_out &out, const drv_intr_common_cfg &cfg)
{

	intr_print(out, "common cfg\n");
	intr_print(out, L2 "%u\n", "chip id", cfg.chip_id);
	intr_print(out, L2 "%u\n", "allow_max", cfg.allow_max);
	intr_print(out, L2 "%u\n", "suppress_ms", cfg.suppress_ms);
	intr_print(out, L2 "%u\n", "policy", cfg.policy);
	intr_print(out, L2 "%u\n", "direct", cfg.direct);
	intr_print(out, L2 "%u(%s)\n", "irq_type", cfg.irq_type,
		   drv_intr_get_irq_type_desc(cfg.irq_type));
	intr_print(out, L2 "%u(%s, only valid for card combiner)\n", "int_type", cfg.int_type,
		   drv_intr_get_int_type_desc(cfg.int_type));
	intr_print(out, L2 "%u\n", "gpio", cfg.gpio);
}

static void drv_intr_dbg_print_cpu_cfg(text_out &out, const char *title,
				       list<drv_intr_cpu_cfg> &cpu_list)
{
	u32 number = 0;

	if (cpu_list.empty())
		return;
	intr_print(out, "%s\n", title);
	for (const drv_intr_cpu_cfg &cfg : cpu_list) {
		intr_print(out, "  cfg%u\n", number++);
		intr_print(out, L4 "0x%x\n", "reg_addr", cfg.reg_addr);
		intr_print(out, L4 "%u\n", "shift", cfg.shift);
		intr_print(out, L4 "0x%x\n", "mask", cfg.mask);
		intr_print(out, L4 "0x%x\n", "value", cfg.value);
	}
}

static void drv_intr_dbg_print_level_cfg(text_out &out, const drv_intr_hwirq_cfg &cfg)
{

	if (cfg.level_num == 0)
		return;
	intr_print(out, "    level_reg_info\n");
	for (u32 number = 0; number < cfg.level_num; number++) {
		const drv_intr_level_cfg &level = cfg.level[number];

		intr_print(out, "      level%u\n", number);
		intr_print(out, L8 "0x%x\n", "chip_id", level.chip_id);
		intr_print(out, L8 "0x%x\n", "en_reg", level.en_reg);
		intr_print(out, L8 "0x%x\n", "status_reg", level.status_reg);
		intr_print(out, L8 "%u\n", "shift", level.shift);
		intr_print(out, L8 "0x%x\n", "mask", level.mask);
		// Spelt as the programs that read it expect.
		intr_print(out, L8 "%u\n", "statuc_wc", level.status_wc);
	}
}

static void drv_intr_dbg_print_one_hwirq_cfg(text_out &out, const drv_intr_hwirq_cfg &cfg)
{

	intr_print(out, L4 "0x%x\n", "index_id", cfg.index_id);
	intr_print(out, L4 "%u\n", "type", cfg.type);
	intr_print(out, L4 "%u\n", "hwirq", cfg.hwirq);
	intr_print(out, L4 "%u\n", "irq_type", cfg.irq_type);
	intr_print(out, L4 "%u\n", "allow_max", cfg.allow_max);
	intr_print(out, L4 "%u\n", "suppress_ms", cfg.suppress_ms);
	intr_print(out, L4 "%u\n", "policy", cfg.policy);
	intr_print(out, L4 "%u\n", "level_num", cfg.level_num);
	intr_print(out, L4 "%u\n", "sync", cfg.sync);
	drv_intr_dbg_print_level_cfg(out, cfg);
}

static void drv_intr_dbg_print_hwirq_cfg(text_out &out, list<drv_intr_hwirq_cfg> &hwirq_list)
{
	u32 number = 0;

	if (hwirq_list.empty())
		return;
	intr_print(out, "hwirq cfg\n");
	for (const drv_intr_hwirq_cfg &cfg : hwirq_list) {
		if (out.full())
			break;
		intr_print(out, "  cfg%u\n", number++);
		drv_intr_dbg_print_one_hwirq_cfg(out, cfg);
	}
}

static void drv_intr_dbg_print_combiner_cfg(text_out &out, drv_intr_combiner &combiner)
{

	intr_print(out, "\n%s\n", combiner.name);
	drv_intr_dbg_print_common_cfg(out, combiner.common_cfg);
	drv_intr_dbg_print_cpu_cfg(out, "cpu default cfg", combiner.cpu_default_cfg_list);
	drv_intr_dbg_print_cpu_cfg(out, "cpu cfg", combiner.cpu_cfg_list);
	drv_intr_dbg_print_hwirq_cfg(out, combiner.hwirq_cfg_list);
}

u32 drv_intr_dbg_print_cfg(char *buffer, u32 size)
{
	drv_intr_ctrl &ctrl = *drv_intr_get_ctrl();
	const srcu_reader reader;
	text_out out{buffer, size, 0};

	drv_intr_dbg_print_global_cfg(out, ctrl);
	for (drv_intr_combiner &combiner : ctrl.combiner_list) {
		if (out.full())
			break;
		if (drv_intr_is_ready(combiner))
			drv_intr_dbg_print_combiner_cfg(out, combiner);
	}
	return out.length;
}

u32 drv_intr_dbg_print_int_debug_switch(char *buffer, u32 size)
{
	const drv_intr_ctrl &ctrl = *drv_intr_get_ctrl();
	const u32 int_debug_switch = read_once(ctrl.int_debug_switch);
	text_out out{buffer, size, 0};

	intr_print(out, "interrupt debug switch: %d(%s)\n", static_cast<int>(int_debug_switch),
		   drv_intr_on_off(int_debug_switch));
	intr_print(out, "debug irq: %u\n", read_once(ctrl.debug_irq));
	return out.length;
}

u32 drv_intr_dbg_print_irq(char *buffer, u32 size, u32 virq)
{
	const srcu_reader reader;
	// 0 stands for leaves that are not mapped.
	const drv_intr_irq_info *irq_info = virq ? drv_intr_get_irq_info_by_virq(virq) : nullptr;
	u32 suppress_cnt = 0;
	s32 irq_state = 0;

	if (!irq_info || drv_intr_mng_get_suppress_cnt(virq, &suppress_cnt) != 0 ||
	    drv_intr_mng_get_irq_state(virq, &irq_state) != 0)
		return 0;
	text_out out{buffer, size, 0};
	intr_print(out, "    runtime info\n");
	intr_print(out, L6 "%u\n", "Suppress count", suppress_cnt);
	intr_print(out, L6 "%d(0=normal, 1=suppressed)\n", "Suppress state", irq_state);
	drv_intr_dbg_print_one_irq(out, *irq_info);
	intr_print(out, "\n    cfg info\n");
	drv_intr_dbg_print_one_hwirq_cfg(out, irq_info->hwirq_cfg);
	return out.length;
}

struct drv_intr_dbg_show_item {
	u32 report_type;
	u32 (*print_report)(char *buffer, u32 size);
};

// Chosen by index.
static constexpr drv_intr_dbg_show_item g_drv_intr_dbg_show_map[] = {
	{DRV_INTR_REPORT_RUNTIME, drv_intr_dbg_print_runtime},
	{DRV_INTR_REPORT_CFG, drv_intr_dbg_print_cfg},
	{DRV_INTR_REPORT_DEBUG_SWITCH, drv_intr_dbg_print_int_debug_switch},
};

static consteval bool rows_stand_at_their_type()
{
	for (u32 i = 0; i < array_size(g_drv_intr_dbg_show_map); i++) {
		if (g_drv_intr_dbg_show_map[i].report_type != i)
			return false;
	}
	return true;
}
static_assert(rows_stand_at_their_type());

void drv_intr_dbg_show(seq_file *seq, u32 report_type)
{
	auto *buffer = static_cast<char *>(plat_kzalloc(DRV_INTR_REPORT_MAX));

	if (!buffer)
		return;
	u32 length = 0;
	if (report_type < array_size(g_drv_intr_dbg_show_map))
		length = g_drv_intr_dbg_show_map[report_type].print_report(buffer,
									   DRV_INTR_REPORT_MAX);
	if (length != 0)
		seq_puts(seq, buffer);
	kfree(buffer);
}
