// SPDX-License-Identifier: GPL-2.0
//
// From one parent interrupt to the interrupts of the pending leaves.
//
// A combiner without `async` scans its leaves in the chained handler. One with
// `async` disables its parent line, marks a scan pending and wakes its thread,
// which scans and enables the line again: each handler invocation disables once,
// each finished scan enables once. A leaf that turns active after its turn, or after
// the plan looked at its registers, waits for the next parent interrupt.
//
// The kernel keeps an edge that came while its leaf was disabled or not requested,
// and replays it from a tasklet when the leaf is enabled. A handler that belongs in
// a combiner's thread may sleep: those are replayed by the thread.
#include "combiner/dispatch.h"

#include "combiner/level.h"
#include "combiner/parent.h"
#include "combiner/scan_plan.h"
#include "core/log.h"

// Takes the replay that the leaf is due. Pairs with drv_intr_replay_in_thread.
static bool take_replay(drv_intr_irq_info &irq_info)
{
	return read_once(irq_info.replay_due) != 0 && exchange(irq_info.replay_due, 0u) != 0;
}

using leaf_iterator = list<drv_intr_irq_info>::iterator;

// The virq is read for the dispatch itself, with interrupts off from there on: a
// release clears it and waits for such regions, so that a virq that another leaf got
// meanwhile is never used. So does whoever takes the chained handler off a leaf: marks
// it, waits, and then leaves it without one; and a tear-down marks the combiner and waits
// once, to release all leaves after that.
static inline void handle_leaf(drv_intr_irq_info &irq_info)
{
	if (read_once(irq_info.detached) == 0 && read_once(irq_info.combiner->detached) == 0)
		(void)generic_handle_irq(read_once(irq_info.virq));
}

static inline void dispatch_leaf(drv_intr_irq_info &irq_info, u32 trace_virq, const char *desc)
{
	intr_trace(trace_virq, "[%s]chained irq valid, virq=%u", desc, read_once(irq_info.virq));
	if (irq_info.combiner->common_cfg.async == 0) {
		handle_leaf(irq_info); // from a chained handler
		return;
	}
	const irqs_off_guard irqs_off;
	handle_leaf(irq_info);
}

// Tests leaf after leaf from `at` on, each with reads of its own.
static void walk_leaves(drv_intr_combiner &combiner, leaf_iterator at, u32 trace_virq,
			const char *desc)
{
	for (; at != combiner.irq_info_list.end(); ++at) {
		if (take_replay(*at) || drv_combiner_is_virq_active(*at))
			dispatch_leaf(*at, trace_virq, desc);
	}
}

// Up to the end, or to where a replay is due: the plan knows nothing of those. One that
// a handler of this scan causes is in time for its leaf's turn. Returns the first leaf
// that had no turn.
static leaf_iterator scan_by_plan(drv_intr_combiner &combiner, u32 trace_virq, const char *desc)
{
	drv_intr_scan_plan &plan = *combiner.scan_plan;
	leaf_iterator rest = combiner.irq_info_list.begin();

	drv_intr_start_scan(plan);
	while (drv_intr_scan_goes_on(plan)) {
		if (test_bit(DRV_INTR_REPLAY_PENDING, combiner.flags))
			return rest;
		drv_intr_irq_info *irq_info = drv_intr_next_active(plan, trace_virq);

		if (!irq_info)
			break;
		(void)take_replay(*irq_info); // due since a moment ago
		dispatch_leaf(*irq_info, trace_virq, desc);
		rest = ++leaf_iterator(&irq_info->node);
	}
	return combiner.irq_info_list.end();
}

// Tests every leaf once, in configuration order, and dispatches the active ones. A
// plan serves one scan at a time; a second one, of a line that somebody enables while
// its handler runs, walks.
static void scan_leaves(drv_intr_combiner &combiner, u32 trace_virq, const char *desc)
{
	leaf_iterator rest = combiner.irq_info_list.begin();

	if (combiner.scan_plan && exchange(combiner.scan_plan->in_use, 1u) == 0) {
		rest = scan_by_plan(combiner, trace_virq, desc);
		store_release(combiner.scan_plan->in_use, 0u);
	}
	walk_leaves(combiner, rest, trace_virq, desc);
}

static void defer_scan(drv_intr_combiner &combiner, u32 virq, const char *desc)
{
	disable_irq_nosync(virq);
	if (test_and_set_bit(DRV_INTR_SCAN_PENDING, combiner.flags))
		return;
	intr_trace(virq, "[%s]wakeup combiner thread", desc);
	wake_up_process(combiner.thread);
}

static void drv_combiner_handler(u32 virq, irq_desc *desc, drv_intr_combiner &combiner)
{
	static constexpr char text[] = "combiner handler";
	irq_chip *chip = irq_desc_get_chip(desc);
	const bool traced = drv_intr_trace_enabled(virq);
	const u32 hwirq = traced ? irqd_to_hwirq(irq_desc_get_irq_data(desc)) : 0;

	intr_trace_if(traced, "[%s]enter, virq=%u, hwirq=%u", text, virq, hwirq);
	if (!chip) {
		intr_trace_if(traced, "null irq chip");
		return;
	}
	chained_irq_enter(chip, desc);
	write_once(combiner.parent_int_cnt, combiner.parent_int_cnt + 1);
	// A storm is the monitor's business; dispatch goes on whatever it says.
	(void)drv_intr_monitor_do_check(virq, desc, virq);
	if (combiner.common_cfg.async != 0)
		defer_scan(combiner, virq, text);
	else
		scan_leaves(combiner, virq, text);
	chained_irq_exit(chip, desc);
	intr_trace_if(traced, "[%s]success, virq=%u, hwirq=%u", text, virq, hwirq);
}

void drv_combiner_irq_handler(irq_desc *desc)
{
	// Set before this handler is installed, cleared only when no invocation of
	// it can be running any more.
	auto *combiner = static_cast<drv_intr_combiner *>(irq_desc_get_handler_data(desc));

	drv_combiner_handler(combiner->virq, desc, *combiner);
}

// Touches no register but those of the leaves that are due.
static void replay_leaves(drv_intr_combiner &combiner)
{
	for (drv_intr_irq_info &irq_info : combiner.irq_info_list) {
		irqs_off_guard irqs_off; // from the look on: what is due belongs to this virq
		if (take_replay(irq_info))
			handle_leaf(irq_info);
	}
}

bool drv_intr_replay_in_thread(drv_intr_irq_info &irq_info)
{
	drv_intr_irq_info *leaf = &irq_info;

	if (irq_info.hwirq_cfg.sync == 0 || irq_info.combiner->threaded == 0)
		return false;
	for (;;) {
		drv_intr_combiner &combiner = *leaf->combiner;
		const raw_spinlock_guard guard(combiner.parent_lock);

		if (combiner.quiesced != 0)
			return true; // the leaf is about to be released
		store_release(leaf->replay_due, 1u);
		if (combiner.common_cfg.async != 0) {
			if (!test_and_set_bit(DRV_INTR_REPLAY_PENDING, combiner.flags))
				wake_up_process(combiner.thread);
			return true;
		}
		// Threaded without a thread of its own: one further out has it, and reaches
		// this leaf through the leaf that is the parent line.
		leaf = combiner.parent_leaf;
	}
}

int drv_intr_combiner_thread(void *data)
{
	static constexpr char desc[] = "drv_intr_combiner_thread";
	auto &combiner = *static_cast<drv_intr_combiner *>(data);

	intr_info("[%s]enter, %s", desc, combiner.name);
	for (;;) {
		// Marked as sleeping before the stop request and the bit are
		// looked at: a wake-up that comes in between makes schedule
		// return at once.
		set_current_state_interruptible();
		if (kthread_should_stop())
			break;
		if (test_and_clear_bit(DRV_INTR_REPLAY_PENDING, combiner.flags)) {
			set_current_state_running();
			replay_leaves(combiner);
			continue;
		}
		if (!test_and_clear_bit(DRV_INTR_SCAN_PENDING, combiner.flags)) {
			schedule();
			continue;
		}
		set_current_state_running();
		const u32 virq = combiner.virq;
		intr_trace(virq, "[%s]begin scan, %s", desc, combiner.name);
		scan_leaves(combiner, virq, desc);
		intr_trace(virq, "[%s]end scan, %s", desc, combiner.name);
		drv_intr_enable_parent(combiner);
		// A stuck source keeps the bit set: without this the loop would never
		// let go of its CPU.
		cond_resched();
	}
	set_current_state_running();
	intr_info("[%s]exit, %s", desc, combiner.name);
	return 0;
}
