// SPDX-License-Identifier: GPL-2.0
//
// The interface for other kernel modules: mapping, registration, enable and
// disable of a leaf named by (index_id, type).
//
// Every function keeps the combiner alive with an srcu_reader for as long as it
// works on a leaf. Mapping, registration and release of one leaf are serialised
// by the leaf's lock; enable and disable run in any context and take only its
// enable_lock.
#include "combiner/level.h"
#include "core/log.h"
#include "delivery/drv_intr.h"
#include "delivery/request.h"

// Result codes of this interface are positive.
static constexpr int NOT_USABLE = 22;
static constexpr int FAILED = 14;

static drv_intr_irq_info *find_leaf(const char *desc, u32 index_id, u32 type)
{
	drv_intr_irq_info *irq_info = drv_intr_get_irq_info_by_index_type(index_id, type);

	if (!irq_info)
		intr_info("[%s]not support para, index_id=0x%x, type=%u", desc, index_id, type);
	return irq_info;
}

static constexpr char mapping_desc[] = "mapping irq";

// Two leaves of one hwirq would share one number, and the release of one would
// take it from under the other: only the first of them can be mapped.
static bool owns_hwirq(drv_intr_irq_info &irq_info)
{
	const u32 hwirq = irq_info.hwirq_cfg.hwirq;

	if (drv_intr_get_irq_info_by_hwirq(*irq_info.combiner, hwirq) == &irq_info)
		return true;
	intr_err("[%s]hwirq=%u is another leaf's", mapping_desc, hwirq);
	return false;
}

u32 drv_intr_map_leaf(drv_intr_irq_info &irq_info)
{
	static constexpr const char *desc = mapping_desc;
	const drv_intr_combiner &combiner = *irq_info.combiner;
	const drv_intr_hwirq_cfg &cfg = irq_info.hwirq_cfg;

	if (irq_info.virq != 0)
		return irq_info.virq;
	intr_info("[%s]index_id=0x%x, type=%u", desc, cfg.index_id, cfg.type);
	// Not before the whole bring-up is through: its set-up of the registers
	// would close a leaf that is in use already.
	u32 virq = 0;
	if (load_acquire(combiner.ready) != 0 && owns_hwirq(irq_info))
		virq = irq_create_mapping(combiner.domain, cfg.hwirq);
	if (virq == 0) {
		intr_err("[%s]map hwirq fail", desc);
		return 0;
	}
	{
		const raw_spinlock_guard guard(irq_info.enable_lock);
		irq_info.retiring = 0;
		write_once(irq_info.virq, virq);
	}
	intr_info("[%s]clear irq int state, virq=%u", desc, virq);
	drv_intr_clear_irqinfo(irq_info);
	intr_info("[%s]success, virq=%u", desc, virq);
	return virq;
}

u32 drv_mapping_irq(u32 index_id, u32 type)
{
	const srcu_reader reader;
	drv_intr_irq_info *irq_info = find_leaf(mapping_desc, index_id, type);

	if (!irq_info)
		return 0;
	const u32 virq = read_once(irq_info->virq);
	if (virq != 0)
		return virq;
	const mutex_guard guard(irq_info->lock);
	return drv_intr_map_leaf(*irq_info);
}

u32 drv_find_mapping_irq(u32 index_id, u32 type)
{
	const srcu_reader reader;
	const drv_intr_irq_info *irq_info = find_leaf("find mapping irq", index_id, type);

	return irq_info ? read_once(irq_info->virq) : 0;
}

// Packed key: type in bits 31-16, index_id in bits 15-0.
static u32 key_index_id(u32 key)
{
	static constexpr u32 LOW_HALF = 0xffff;
	static constexpr u32 NO_INDEX_ID = 0xffffffff;
	const u32 low = key & LOW_HALF;

	return low == LOW_HALF ? NO_INDEX_ID : low;
}

static u32 key_type(u32 key)
{
	return key >> 16;
}

u32 bsp_mapping_irq(u32 key)
{
	return drv_mapping_irq(key_index_id(key), key_type(key));
}

u32 bsp_find_mapping(u32 key)
{
	return drv_find_mapping_irq(key_index_id(key), key_type(key));
}

static int regist_leaf(const char *desc, drv_intr_irq_info &irq_info, drv_intr_handler handler,
		       void *data)
{
	if (read_once(irq_info.handler)) {
		intr_info("[%s]success, handler already exist", desc);
		return 0;
	}
	// A leaf requested for a subscriber may run its handler at any moment.
	write_once(irq_info.handler_data, data);
	store_release(irq_info.handler, handler);
	const int ret = drv_intr_request_irq(irq_info);
	if (ret == 0)
		return 0;
	intr_err("[%s]request irq fail, ret=%d", desc, ret);
	drv_intr_clear_handler(irq_info);
	(void)drv_intr_free_irq(irq_info); // always 0
	return FAILED;
}

int drv_intr_set_regist(u32 index_id, u32 type, drv_intr_handler handler, void *data)
{
	static constexpr char desc[] = "intr set regist";

	if (!handler) {
		intr_err("[%s]null handler, index_id=0x%x, type=%u", desc, index_id, type);
		return NOT_USABLE;
	}
	const srcu_reader reader;
	drv_intr_irq_info *irq_info = find_leaf(mapping_desc, index_id, type);
	if (!irq_info)
		return FAILED;
	const mutex_guard guard(irq_info->lock);
	if (drv_intr_map_leaf(*irq_info) == 0)
		return FAILED;
	intr_info("[%s]enter, index_id=0x%x, type=%d", desc, index_id, type);
	return regist_leaf(desc, *irq_info, handler, data);
}

static constexpr char unregist_desc[] = "intr set unregist";

int drv_intr_unregist_leaf(drv_intr_irq_info &irq_info)
{
	static constexpr const char *desc = unregist_desc;

	intr_info("[%s]enter, index_id=0x%x, type=%d", desc, irq_info.hwirq_cfg.index_id,
		  irq_info.hwirq_cfg.type);
	drv_intr_clear_handler(irq_info);
	const int ret = drv_intr_free_irq(irq_info);
	if (ret != 0) {
		intr_err("[%s]free irq fail, ret=%d", desc, ret);
		return FAILED;
	}
	intr_info("[%s]success", desc);
	return 0;
}

int drv_intr_set_unregist(u32 index_id, u32 type)
{
	const srcu_reader reader;
	drv_intr_irq_info *irq_info = find_leaf(unregist_desc, index_id, type);

	if (!irq_info)
		return NOT_USABLE;
	const mutex_guard guard(irq_info->lock);
	return drv_intr_unregist_leaf(*irq_info);
}

static int gate_leaf(const char *desc, u32 index_id, u32 type, void (*gate)(u32 virq))
{
	const srcu_reader reader;
	drv_intr_irq_info *irq_info = find_leaf(desc, index_id, type);

	if (!irq_info)
		return NOT_USABLE;
	const raw_spinlock_guard guard(irq_info->enable_lock);
	const u32 virq = irq_info->virq;
	if (virq == 0 || irq_info->retiring != 0) {
		intr_err("[%s]virq invalid, index_id=0x%x, type=%d", desc, index_id, type);
		return NOT_USABLE;
	}
	intr_trace(virq, "[%s]enter, index_id=0x%x, type=%d", desc, index_id, type);
	gate(virq);
	intr_trace(virq, "[%s]success", desc);
	return 0;
}

int drv_intr_enable(u32 index_id, u32 type)
{
	return gate_leaf("intr enable", index_id, type, enable_irq);
}

int drv_intr_disable(u32 index_id, u32 type)
{
	return gate_leaf("intr disable", index_id, type, disable_irq_nosync);
}
