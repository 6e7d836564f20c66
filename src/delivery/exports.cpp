// SPDX-License-Identifier: GPL-2.0
//
// The interface for other kernel modules: mapping, registration, enable and
// disable of a leaf named by (index_id, type).
//
// Every function keeps the combiner alive with an srcu_reader for as long as it
// works on a leaf. Mapping, registration and release of one leaf are serialised
// by the leaf's lock; enable and disable run in any context and take only its
// enable_lock.
#include "core/log.h"
#include "intr/drv_intr.h"
#include "delivery/mapping.h"
#include "delivery/request.h"

// Result codes of this interface are positive.
static constexpr int NOT_USABLE = 22;
static constexpr int FAILED = 14;

u32 drv_mapping_irq(u32 index_id, u32 type)
{
	const srcu_reader reader;
	drv_intr_irq_info *irq_info = drv_intr_find_leaf_to_map(index_id, type);

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
	const drv_intr_irq_info *irq_info = drv_intr_find_leaf("find mapping irq", index_id, type);

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
	drv_intr_irq_info *irq_info = drv_intr_find_leaf_to_map(index_id, type);
	if (!irq_info)
		return FAILED;
	if (!drv_intr_may_wait(desc, *irq_info))
		return NOT_USABLE;
	const mutex_guard guard(irq_info->lock);
	if (drv_intr_map_leaf(*irq_info) == 0)
		return FAILED;
	intr_info("[%s]enter, index_id=0x%x, type=%d", desc, index_id, type);
	return regist_leaf(desc, *irq_info, handler, data);
}

int drv_intr_set_unregist(u32 index_id, u32 type)
{
	const srcu_reader reader;
	drv_intr_irq_info *irq_info = drv_intr_find_leaf(drv_intr_unregist_desc, index_id, type);

	if (!irq_info || !drv_intr_may_wait(drv_intr_unregist_desc, *irq_info))
		return NOT_USABLE;
	const mutex_guard guard(irq_info->lock);
	return drv_intr_unregist_leaf(*irq_info) == 0 ? 0 : FAILED;
}

static int gate_leaf(const char *desc, u32 index_id, u32 type,
		     void (*gate)(drv_intr_irq_info &irq_info, u32 virq))
{
	const srcu_reader reader;
	drv_intr_irq_info *irq_info = drv_intr_find_leaf(desc, index_id, type);

	if (!irq_info)
		return NOT_USABLE;
	const raw_spinlock_guard guard(irq_info->enable_lock);
	const u32 virq = irq_info->virq;
	if (virq == 0 || irq_info->retiring != 0) {
		intr_err("[%s]virq invalid, index_id=0x%x, type=%d", desc, index_id, type);
		return NOT_USABLE;
	}
	if (irq_info->cascaded) {
		intr_err("[%s]leaf is the parent of combiner %u, index_id=0x%x, type=%u", desc,
			 irq_info->cascaded->combiner_id, index_id, type);
		return NOT_USABLE;
	}
	intr_trace(virq, "[%s]enter, index_id=0x%x, type=%d", desc, index_id, type);
	gate(*irq_info, virq);
	intr_trace(virq, "[%s]success", desc);
	return 0;
}

int drv_intr_enable(u32 index_id, u32 type)
{
	return gate_leaf("intr enable", index_id, type, drv_intr_enable_leaf);
}

static void disable_leaf(drv_intr_irq_info &, u32 virq)
{
	disable_irq_nosync(virq);
}

int drv_intr_disable(u32 index_id, u32 type)
{
	return gate_leaf("intr disable", index_id, type, disable_leaf);
}
