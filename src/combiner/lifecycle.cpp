// SPDX-License-Identifier: GPL-2.0
//
// Bring-up of a combiner: the record with its configuration, the leaf records,
// the interrupt domain and the CPLD set-up. The parent line has a file of its
// own, and so has the tear-down.
#include "combiner/lifecycle.h"

#include "combiner/domain.h"
#include "combiner/level.h"
#include "combiner/parent.h"
#include "combiner/parent_setup.h"
#include "combiner/scan_plan.h"
#include "config/combiner_cfg.h"
#include "core/leaf_index.h"
#include "core/log.h"
#include "core/registers.h"

drv_intr_combiner *drv_intr_combiner_init_soft(drv_intr_ctrl &ctrl, u32 combiner_id,
					       const char *cfg_combiner_name, u32 inst_id)
{
	static constexpr char desc[] = "intr combiner init soft";

	intr_info("[%s]enter, combiner_id=%u, cfg_combiner_name=%s, inst_id=0x%x", desc,
		  combiner_id, cfg_combiner_name, inst_id);
	auto *combiner = kzalloc<drv_intr_combiner>();
	if (!combiner) {
		intr_err("[%s]malloc combiner mem fail", desc);
		return nullptr;
	}
	combiner->irq_info_list.init();
	combiner->cpu_cfg_list.init();
	combiner->cpu_default_cfg_list.init();
	combiner->hwirq_cfg_list.init();
	int ret = sprintf_s(combiner->cfg_combiner_name, sizeof(combiner->cfg_combiner_name), "%s",
			    cfg_combiner_name);
	if (ret < 0) {
		intr_err("sprintf_s to combiner name failed, ret=%d", ret);
		kfree(combiner);
		return nullptr;
	}
	combiner->combiner_id = combiner_id;
	combiner->inst_id = inst_id;
	ctrl.combiner_list.append(*combiner);
	ret = drv_intr_combiner_init_cfg(*combiner);
	if (ret != 0)
		intr_err("[%s]get cfg from xml fail, ret=%d", desc, ret);
	else
		intr_info("[%s]success", desc);
	return combiner;
}

// Every register operation on a leaf that is not direct starts from its leaf
// level, so a leaf without one must never get that far.
static int check_leaf_levels(const char *desc, drv_intr_combiner &combiner)
{
	if (combiner.common_cfg.direct != 0)
		return 0;
	for (const drv_intr_hwirq_cfg &cfg : combiner.hwirq_cfg_list) {
		if (cfg.level_num != 0)
			continue;
		intr_err("[%s]leaf without levels, index_id=0x%x, type=%u, hwirq=%u", desc,
			 cfg.index_id, cfg.type, cfg.hwirq);
		return -EINVAL;
	}
	return 0;
}

// The record takes over the configuration, in place of the item that had been read.
static int make_leaf(drv_intr_combiner &combiner, drv_intr_hwirq_cfg &cfg)
{
	auto *irq_info = kzalloc<drv_intr_irq_info>();

	if (!irq_info)
		return -ENOMEM;
	irq_info->combiner = &combiner;
	mutex_init(&irq_info->pid_list_lock, PLAT_MUTEX_PID_LIST);
	irq_info->pid_list.init();
	(void)memcpy_s(&irq_info->hwirq_cfg, sizeof(irq_info->hwirq_cfg), &cfg,
		       sizeof(cfg)); // both sizes are the same
	list<drv_intr_hwirq_cfg>::replace(cfg, irq_info->hwirq_cfg);
	kfree(&cfg);
	mutex_init(&irq_info->lock, PLAT_MUTEX_LEAF);
	raw_spin_lock_init(&irq_info->enable_lock, PLAT_SPIN_LEAF_ENABLE, combiner.nest_level);
	combiner.irq_info_list.append(*irq_info);
	return 0;
}

static int drv_intr_init_combiner_irq_info(drv_intr_combiner &combiner)
{
	list<drv_intr_hwirq_cfg> &cfgs = combiner.hwirq_cfg_list;
	u32 count = 0;

	for (auto at = cfgs.begin(); at != cfgs.end(); count++) {
		drv_intr_hwirq_cfg &cfg = *at;
		++at;
		if (make_leaf(combiner, cfg) != 0)
			return -ENOMEM;
	}
	const int ret = drv_intr_index_reserve(count);
	if (ret == 0)
		drv_intr_index_leaves(combiner);
	return ret;
}

static int write_cpu_list(const char *desc, list<drv_intr_cpu_cfg> &cpu_list)
{
	u32 value = 0;

	if (cpu_list.empty())
		return 0;
	intr_info("[%s]enter", desc);
	for (const drv_intr_cpu_cfg &cfg : cpu_list) {
		(void)irq_combiner_reg32_read(cfg.reg_addr, &value); // shown only
		intr_info("[%s]addr=0x%x, shift=%u, mask=0x%x, value=0x%x, read_value=0x%x", desc,
			  cfg.reg_addr, cfg.shift, cfg.mask, cfg.value, value);
		const int ret = drv_intr_cpu_reg_conf(cfg.reg_addr, cfg.shift, cfg.mask, cfg.value);
		if (ret != 0) {
			intr_err("[%s]cfg cpu register fail, ret=0x%x", desc, ret);
			return -EFAULT;
		}
	}
	intr_info("[%s]success", desc);
	return 0;
}

static int drv_intr_init_cpu_to_default(drv_intr_combiner &combiner)
{
	return write_cpu_list("intr init cpu to default", combiner.cpu_default_cfg_list);
}

static int drv_intr_init_cpu_int(drv_intr_combiner &combiner)
{
	return write_cpu_list("intr init cpu int", combiner.cpu_cfg_list);
}

// Leaves are disabled and cleared before the levels that aggregate them are enabled.
static int init_levels(const char *desc, drv_intr_combiner &combiner)
{
	intr_info("[%s]not direct int.", desc);
	int ret = drv_intr_disable_leaf_int(combiner);
	if (ret != 0) {
		intr_err("[%s]disable combiner leaf int fail, ret=%d", desc, ret);
		return ret;
	}
	drv_combiner_clr_int(combiner);
	ret = drv_intr_enable_not_leaf_int(combiner);
	if (ret != 0)
		intr_err("[%s]enable combiner not leaf int fail, ret=%d", desc, ret);
	return ret;
}

static int drv_intr_combiner_init_hw(drv_intr_combiner &combiner)
{
	static constexpr char desc[] = "intr combiner init hw";
	int ret;

	intr_info("[%s]enter", desc);
	if (combiner.common_cfg.direct == 0) {
		ret = init_levels(desc, combiner);
		if (ret != 0)
			return ret;
	}
	ret = drv_intr_init_cpu_int(combiner);
	if (ret != 0) {
		intr_err("[%s]init cpu int fail, ret=%d", desc, ret);
		return ret;
	}
	drv_intr_start_parent(combiner);
	intr_info("[%s]success", desc);
	return 0;
}

// What needs no hardware: the name, the chip, the leaf records.
static int init_records(const char *desc, drv_intr_combiner &combiner)
{
	int ret = sprintf_s(combiner.name, sizeof(combiner.name), "intr%u", combiner.combiner_id);

	if (ret < 0) {
		intr_err("[%s]sprintf_s fail, ret=%d", desc, ret);
		return ret;
	}
	ret = check_leaf_levels(desc, combiner);
	if (ret != 0)
		return ret;
	drv_intr_init_combiner_chip(combiner);
	ret = drv_intr_init_combiner_irq_info(combiner);
	if (ret != 0)
		intr_err("[%s]init irq info fail, ret=%d", desc, ret);
	return ret;
}

// Once the parent's trigger type is set. A direct combiner tests no register.
static int init_scan(const char *desc, drv_intr_combiner &combiner)
{
	if (combiner.common_cfg.direct != 0 || !drv_intr_parent_comes_back(combiner))
		return 0;
	const int ret = drv_intr_compile_scan_plan(combiner);
	if (ret != 0)
		intr_err("[%s]compile scan plan fail, ret=%d", desc, ret);
	return ret;
}

int drv_intr_combiner_init(drv_intr_combiner &combiner, platform_device *device, u32 virq)
{
	static constexpr char desc[] = "intr combiner init";

	intr_info("[%s]enter, combienr_id=%u, virq=%u", desc, combiner.combiner_id, virq);
	combiner.owner = device;
	int ret = drv_intr_claim_parent(combiner, virq);
	if (ret != 0)
		return ret;
	ret = init_records(desc, combiner);
	if (ret != 0)
		return ret;
	drv_intr_disable_parent(combiner, virq);
	ret = drv_intr_init_cpu_to_default(combiner);
	if (ret != 0) {
		intr_err("[%s]init cpu to default fail, ret=%d", desc, ret);
		return ret;
	}
	ret = drv_intr_combiner_init_virq(combiner, virq);
	if (ret != 0) {
		intr_err("[%s]combiner init virq fail", desc);
		return ret;
	}
	ret = init_scan(desc, combiner);
	if (ret != 0)
		return ret;
	ret = drv_intr_domain_alloc(device, combiner);
	if (ret != 0) {
		intr_err("[%s]alloc combiner fail, ret=%d", desc, ret);
		return ret;
	}
	ret = drv_intr_combiner_init_hw(combiner);
	if (ret != 0) {
		intr_err("[%s]combiner init hardware fail", desc);
		return ret;
	}
	store_release(combiner.ready, 1u); // pairs with the mapping of a leaf
	intr_info("[%s]success", desc);
	return 0;
}
