// SPDX-License-Identifier: GPL-2.0
//
// A combiner's scan, compiled from the level chains of its leaves.
//
// The plan finds the leaves that drv_combiner_is_virq_active finds, in the same
// order, with fewer reads: a level that leaves in a row share is tested once, the
// leaves behind a quiet one are jumped over, and a register is read once for all its
// fields. What was read is forgotten when a leaf is handed out, since its dispatch
// writes registers, and when a read fails: a failed read makes the one leaf quiet.
//
// The values of one look at the registers serve many leaves, so a leaf that turns
// active after the look waits for the parent's next interrupt. That comes by itself
// only from a level-triggered line of an interrupt controller; other combiners have
// no plan.
#ifndef INTR_COMBINER_SCAN_PLAN_H
#define INTR_COMBINER_SCAN_PLAN_H

#include "core/records.h"

struct plan_pair;
struct plan_place;
struct plan_register;
struct plan_source;
struct plan_step;

struct drv_intr_scan_plan {
	u64 epoch;
	plan_step *steps; // the last one is the end
	plan_place *places; // of the steps
	plan_pair *pairs;
	plan_source *sources; // of the pairs, while the plan is compiled
	plan_register *registers;
	u32 in_use; // not 0: a scan runs by the plan, which remembers for one at a time
	u32 at; // the step that the scan has got to
	u32 end;
	u32 inst_id;
	// Counted while the plan is compiled.
	u32 pair_count;
	u32 register_count;
};

// Compiles the plan, which stays with the combiner's leaf records and is freed with
// kfree. Once they are complete, before the parent line is started; process context.
// 0 or -ENOMEM.
[[nodiscard]] int drv_intr_compile_scan_plan(drv_intr_combiner &combiner);

// The plan remembers for one scan at a time: between its start and its last use nobody
// else may start one. Any context.
inline void drv_intr_start_scan(drv_intr_scan_plan &plan)
{
	plan.at = 0;
}

[[nodiscard]] inline bool drv_intr_scan_goes_on(const drv_intr_scan_plan &plan)
{
	return plan.at != plan.end;
}

// The next active leaf of the scan, or null. Nothing is remembered from before. A leaf
// without a mapping is passed over while `trace_virq` is not traced.
[[nodiscard]] drv_intr_irq_info *drv_intr_next_active(drv_intr_scan_plan &plan, u32 trace_virq);

#endif
