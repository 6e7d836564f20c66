// SPDX-License-Identifier: GPL-2.0
//
// Subscriptions follow the registration of a kernel client: an srcu_reader keeps
// the combiner alive, the leaf's lock serialises mapping, request and release.
#include "delivery/subscription.h"

#include "core/log.h"
#include "delivery/mapping.h"
#include "delivery/notify.h"
#include "delivery/request.h"
#include "uapi/intr.h"

static bool is_full(list<drv_intr_pid_info> &pid_list)
{
	u32 count = 0;

	for ([[maybe_unused]] const drv_intr_pid_info &pid_info : pid_list)
		count++;
	return count >= DRV_INTR_SUBSCRIBERS_MAX;
}

// With the leaf's lock held. Only one of two subscriptions of a port at the
// same time must make an entry.
static int subscribe_mapped(const char *desc, drv_intr_irq_info &irq_info, u32 pid)
{
	{
		const mutex_guard guard(irq_info.pid_list_lock);

		if (drv_intr_get_pid_info(irq_info, pid)) {
			intr_info("[%s]success, pid already exist", desc);
			return 0;
		}
		if (is_full(irq_info.pid_list)) {
			intr_err("[%s]too many subscribers, max=%u, index_id=0x%x, type=%u, pid=%u",
				 desc, DRV_INTR_SUBSCRIBERS_MAX, irq_info.hwirq_cfg.index_id,
				 irq_info.hwirq_cfg.type, pid);
			return -EFAULT;
		}
	}
	if (!drv_intr_add_pid(irq_info, pid)) {
		(void)drv_intr_free_irq(irq_info); // always 0
		return -ENOMEM;
	}
	const int ret = drv_intr_request_irq(irq_info);
	if (ret == 0) {
		intr_info("[%s]success, index_id=0x%x, type=%d, pid=%u", desc,
			  irq_info.hwirq_cfg.index_id, irq_info.hwirq_cfg.type, pid);
		return 0;
	}
	intr_err("[%s]request irq fail, ret=%d", desc, ret);
	// Gone perhaps: a request that the monitor refuses was live until then, and a
	// message that found no receiver ended the subscription.
	(void)drv_intr_forget_pid(irq_info, pid);
	(void)drv_intr_free_irq(irq_info); // always 0
	return -EFAULT;
}

int drv_intr_subscribe(const char *desc, u32 index_id, u32 type, u32 pid)
{
	const srcu_reader reader;
	drv_intr_irq_info *irq_info = drv_intr_find_leaf_to_map(index_id, type);

	if (!irq_info) {
		intr_err("[%s]map virq fail", desc);
		return -EFAULT;
	}
	const mutex_guard guard(irq_info->lock);
	if (drv_intr_map_leaf(*irq_info) == 0) {
		intr_err("[%s]map virq fail", desc);
		return -EFAULT;
	}
	return subscribe_mapped(desc, *irq_info, pid);
}

int drv_intr_unsubscribe(const char *desc, u32 index_id, u32 type, u32 pid)
{
	const srcu_reader reader;
	drv_intr_irq_info *irq_info = drv_intr_get_irq_info_by_index_type(index_id, type);

	if (!irq_info) {
		intr_err("[%s]get irq info fail", desc);
		return -EFAULT;
	}
	const mutex_guard guard(irq_info->lock);
	if (!drv_intr_forget_pid(*irq_info, pid)) {
		intr_err("[%s]pid not exist", desc);
		return -EFAULT;
	}
	const int ret = drv_intr_free_irq(*irq_info);
	if (ret != 0) {
		intr_err("[%s]free irq fail, ret=%d", desc, ret);
		return ret;
	}
	intr_info("[%s]success, index_id=0x%x, type=%d, pid=%u", desc, index_id, type, pid);
	return 0;
}

template <typename F> static void for_each_leaf(F visit)
{
	for (drv_intr_combiner &combiner : drv_intr_get_ctrl()->combiner_list) {
		for (drv_intr_irq_info &irq_info : combiner.irq_info_list)
			visit(irq_info);
	}
}

// First all subscriptions, then the leaves: a release takes its time, and the port
// can have a new owner already.
void drv_intr_unsubscribe_port(u32 pid)
{
	const srcu_reader reader;

	for_each_leaf([pid](drv_intr_irq_info &irq_info) {
		if (drv_intr_forget_closed_pid(irq_info, pid))
			store_release(irq_info.release_due, 1u);
	});
	for_each_leaf([](drv_intr_irq_info &irq_info) {
		if (load_acquire(irq_info.release_due) == 0 || !exchange(irq_info.release_due, 0u))
			return;
		const mutex_guard guard(irq_info.lock);
		(void)drv_intr_free_irq(irq_info); // always 0
	});
}
