// SPDX-License-Identifier: GPL-2.0
//
// Taking a parent line into use, and releasing it.
#include "combiner/parent_setup.h"

#include "combiner/dispatch.h"
#include "combiner/domain.h"
#include "combiner/lifecycle.h"
#include "combiner/parent.h"
#include "core/log.h"

// The line of another combiner would lose its handler to this one.
static bool is_parent_line(const drv_intr_combiner &combiner, u32 virq)
{
	for (const drv_intr_combiner &other : drv_intr_get_ctrl()->combiner_list) {
		if (&other != &combiner && other.virq == virq)
			return true;
	}
	return false;
}

// With the leaf's lock held. A leaf with a handler of its own cannot carry a
// chained one: the kernel would replace the flow handler under the running
// action. The chained flow of a direct leaf would disable its parent, and no leaf
// handler is there to enable it again.
static bool can_cascade(const drv_intr_irq_info &leaf, u32 virq)
{
	return leaf.virq == virq && !leaf.requested && !leaf.cascaded && !irq_has_action(virq) &&
	       leaf.combiner->common_cfg.direct == 0;
}

// Clients neither enable nor disable a leaf that is a parent line: they would
// undo what its combiner or the monitor did.
static void set_cascaded(drv_intr_irq_info &leaf, drv_intr_combiner *combiner)
{
	const raw_spinlock_guard guard(leaf.enable_lock);

	leaf.cascaded = combiner;
}

static int claim_leaf(const char *desc, drv_intr_combiner &combiner, drv_intr_irq_info &leaf,
		      u32 virq)
{
	const mutex_guard guard(leaf.lock);

	if (!can_cascade(leaf, virq)) {
		intr_err("[%s]parent leaf in use or direct, index_id=0x%x, type=%u", desc,
			 leaf.hwirq_cfg.index_id, leaf.hwirq_cfg.type);
		return -EFAULT;
	}
	set_cascaded(leaf, &combiner);
	combiner.parent_leaf = &leaf;
	return 0;
}

int drv_intr_claim_parent(drv_intr_combiner &combiner, u32 virq)
{
	static constexpr char desc[] = "intr claim parent";
	drv_intr_irq_info *leaf = virq ? drv_intr_get_irq_info_by_virq(virq) : nullptr;
	const drv_intr_combiner *outer = leaf ? leaf->combiner : nullptr;

	combiner.nest_level = outer ? outer->nest_level + 1 : 0;
	combiner.threaded = combiner.common_cfg.async != 0 || (outer && outer->threaded != 0);
	raw_spin_lock_init(&combiner.parent_lock, PLAT_SPIN_PARENT_ENABLE, combiner.nest_level);
	if (leaf)
		return claim_leaf(desc, combiner, *leaf, virq);
	if (is_parent_line(combiner, virq)) {
		intr_err("[%s]parent line is another combiner's, virq=%u", desc, virq);
		return -EFAULT;
	}
	// A pin mistyped in the configuration: its driver would lose its flow handler.
	if (irq_has_action(virq)) {
		intr_err("[%s]parent line is in use by another driver, virq=%u", desc, virq);
		return -EFAULT;
	}
	return 0;
}

// As mapping left it: with the leaf's flow handler, and disabled once.
static void restore_leaf_line(drv_intr_irq_info &leaf)
{
	drv_intr_reset_leaf_line(leaf);
	enable_irq(leaf.virq);
	write_once(leaf.detached, 0u);
}

void drv_intr_release_parent(drv_intr_combiner &combiner)
{
	drv_intr_irq_info *leaf = combiner.parent_leaf;

	if (!leaf)
		return;
	const mutex_guard guard(leaf->lock);
	if (leaf->detached != 0)
		restore_leaf_line(*leaf);
	set_cascaded(*leaf, nullptr);
	// A combiner that mapped its parent leaf by itself unmaps it; nobody else
	// would. One that was handed a line names no leaf, or another one.
	if (combiner.common_cfg.int_type == DRV_INTR_COMBINER &&
	    leaf->hwirq_cfg.index_id == combiner.parent_index_id &&
	    leaf->hwirq_cfg.type == combiner.parent_type)
		g_drv_intr_leaf_users.unmap_parent_leaf(*leaf);
}

void drv_intr_disable_parent(drv_intr_combiner &combiner, u32 virq)
{
	// So that disabling the parent masks it at its chip at once.
	irq_modify_status(virq, 0, IRQ_DISABLE_UNLAZY);
	disable_irq_nosync(virq);
	combiner.disabled_virq = virq;
}

static int drv_intr_set_irq_type(drv_intr_combiner &combiner, u32 virq)
{
	static constexpr char desc[] = "intr set irq type";
	const drv_intr_global_cfg &cfg = drv_intr_get_ctrl()->global_cfg;
	const u32 irq_type = combiner.common_cfg.irq_type;

	if (!(cfg.cfg_type_bitmap & DRV_INTR_CFG_GPIO) ||
	    !(cfg.gpio_bitmap & (1u << (combiner.combiner_id % 32))))
		return 0;
	const int ret = irq_set_irq_type(virq, irq_type);
	if (ret == 0)
		return 0;
	intr_err("[%s]set irq type fail, ret=%d, irq_type=%u", desc, ret, irq_type);
	return -EFAULT;
}

static int drv_intr_create_thread(drv_intr_combiner &combiner)
{
	static constexpr char desc[] = "intr create thread";
	char name[sizeof(combiner.name) + sizeof("-handler")];

	if (combiner.common_cfg.async == 0)
		return 0;
	(void)snprintf_truncated_s(name, sizeof(name), "%s-handler", combiner.name);
	combiner.thread =
		kthread_create_on_node(drv_intr_combiner_thread, &combiner, NUMA_NO_NODE, name);
	if (!combiner.thread || IS_ERR(combiner.thread)) {
		intr_err("[%s]create combiner thread fail", desc);
		return -EFAULT;
	}
	// Its leaves wait for it as they would for an interrupt thread.
	sched_set_fifo(combiner.thread);
	wake_up_process(combiner.thread);
	return 0;
}

int drv_intr_combiner_init_virq(drv_intr_combiner &combiner, u32 virq)
{
	static constexpr char desc[] = "intr combiner init virq";
	const drv_intr_common_cfg &cfg = combiner.common_cfg;

	intr_info("[%s]enter", desc);
	int ret = drv_intr_set_irq_type(combiner, virq);
	if (ret != 0) {
		intr_err("[%s]set irq type fail, ret=%d, irq_type=%u", desc, ret, cfg.irq_type);
		return ret;
	}
	ret = drv_intr_monitor_set_param(virq, virq, cfg.allow_max, cfg.suppress_ms, cfg.policy,
					 nullptr);
	if (ret != 0) {
		intr_err("[%s]set irq supress para fail, ret=%d", desc, ret);
		return -EFAULT;
	}
	ret = irq_set_handler_data(virq, &combiner);
	if (ret != 0) {
		intr_err("[%s]set irq handler data fail, ret=%d", desc, ret);
		(void)drv_intr_monitor_unset_param(virq, virq); // nothing more can be undone
		return ret;
	}
	combiner.virq = virq;
	combiner.hwirq = drv_intr_get_hwirq(virq);
	ret = drv_intr_create_thread(combiner);
	if (ret != 0)
		return ret;
	intr_info("[%s]success", desc);
	return 0;
}

// The installation starts the line, whatever its disable depth. That of a direct
// combiner goes on only when a leaf is requested: the lock keeps interrupts off, so
// that a source that is up already cannot keep this CPU from disabling it.
void drv_intr_start_parent(drv_intr_combiner &combiner)
{
	const raw_spinlock_guard guard(combiner.parent_lock);

	combiner.disabled_virq = 0;
	combiner.chained = 1;
	irq_set_handler(combiner.virq, drv_combiner_irq_handler, 1, nullptr);
	if (combiner.common_cfg.direct != 0)
		disable_irq_nosync(combiner.virq);
	drv_intr_virq_unmask(combiner.virq);
}

static void drv_intr_stop_thread(drv_intr_combiner &combiner)
{
	if (combiner.common_cfg.async == 0 || !combiner.thread || IS_ERR(combiner.thread))
		return;
	(void)kthread_stop(combiner.thread); // always 0
	combiner.thread = nullptr;
}

// The disable of our own comes first: a monitor that ends its suppression then
// only lowers the depth. It masks the line at its chip, but a CPU that took the
// line before that has not found its flow handler yet: the chained handler stays
// until every region with interrupts off has ended, the interrupt's entry among
// them. The kernel's own waits do not see a chained handler, which is never
// marked as running. What the kernel leaves instead of it never ends an
// interrupt, so that from here on neither we nor a client may enable the line.
// A line that never had the chained handler keeps the flow handler that it has.
void drv_intr_silence_parent(drv_intr_combiner &combiner)
{
	const u32 virq = combiner.virq;

	if (virq == 0)
		return;
	drv_intr_quiesce_parent(combiner);
	if (combiner.chained != 0)
		disable_irq_nosync(virq);
	(void)drv_intr_monitor_unset_param(virq, virq); // tear-down goes on
	if (combiner.chained == 0)
		return;
	// Not before the line is disabled: a scan that skips an active leaf comes
	// back to it at once, and the task that disables it might never run.
	// A replay that was due goes with the line; quiesced, it gets no other.
	if (combiner.parent_leaf) {
		write_once(combiner.parent_leaf->detached, 1u);
		write_once(combiner.parent_leaf->replay_due, 0u);
	}
	write_once(combiner.detached, 1u);
}

void drv_intr_detach_parent(drv_intr_combiner &combiner)
{
	const u32 virq = combiner.virq;

	if (virq == 0)
		return;
	if (combiner.chained != 0) {
		irq_set_handler(virq, nullptr, 1, nullptr);
		// Against a monitor that failed to forget the line and enables it later.
		disable_irq_nosync(virq);
	}
	irq_set_handler_data(virq, nullptr);
}

void drv_intr_combiner_close_virq(drv_intr_combiner &combiner)
{
	drv_intr_stop_thread(combiner);
	if (combiner.disabled_virq != 0)
		enable_irq(combiner.disabled_virq);
}
