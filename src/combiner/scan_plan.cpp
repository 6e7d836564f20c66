// SPDX-License-Identifier: GPL-2.0
//
// A combiner's scan, compiled from the level chains of its leaves.
//
// The leaves of a row that share their outer levels stand behind one step for each of
// these; then comes a step for each leaf's own level:
//
//	group 0, leaf 0, leaf 1, group 1, leaf 2, leaf 3, end
//
// An active level leads to the next step, a quiet one past all that lies behind it. So
// at any step all levels further out are known to be active, until something is
// forgotten: then they are tested again, outermost first.
//
// A register is read through drv_cpld_read as one field that spans all fields that the
// plan tests in it, and kept as it lies in the register. A level's enable and status lie
// at the same bits of two registers: once both are read, the same words serve all levels
// that lie in them. Values are valid while their epoch is the plan's; to forget everything
// takes one increment.
#include "combiner/scan_plan.h"

#include "core/log.h"
#include "core/registers.h"

static constexpr u32 REGISTER_BITS = 32;
static constexpr u16 NONE = 0xffff;
static constexpr u16 NEVER_ACTIVE = 0; // the pair of the end

// As one field: of a single tested field its own place, else from bit 0 on.
struct plan_register {
	u64 epoch; // 0: to be read
	u32 value;
	u32 chip_id;
	drv_intr_reg_desc field;
	u32 mask;
};

// An enable and a status register, both read.
struct plan_pair {
	u64 epoch;
	u32 enabled;
	u32 status;
	plan_register *enable_reg; // null: always enabled
	plan_register *status_reg;
};

// Their numbers, while the plan is compiled.
struct plan_source {
	u16 enable; // NONE: always enabled
	u16 status;
};

// Steps with the same outer level whose fields are single bits of one pair, each the bit
// after the one before it, and which lie equally far apart, are a run: one look at its
// bits finds the first active one.
struct plan_step {
	u32 bits; // of the level's field
	u32 run; // bits of the run from here on; 0: a field of several bits
	u16 pair;
	u16 quiet_next; // the first step that is not behind this level
	u16 run_end; // the same of the last step of the run
	u16 stride;
};

// What a step has besides, apart: a quiet level has no use for it.
struct plan_place {
	drv_intr_irq_info *leaf; // whose own level this is, or null
	u16 outer; // the step of the next level further out, or NONE
};

static_assert(sizeof(drv_intr_scan_plan) % alignof(u64) == 0 &&
	      sizeof(plan_register) % alignof(u64) == 0 && sizeof(plan_pair) % alignof(u64) == 0 &&
	      sizeof(plan_place) % alignof(u64) == 0);
static_assert(config::MAX_LEAF_ENTRIES * config::MAX_LEVELS * 2 < NONE,
	      "numbers of leaves, steps, pairs and registers fit in 16 bits");

// What the CPLD module gets of a level's shift.
static u16 shift_of(const drv_intr_level_cfg &level)
{
	return static_cast<u16>(level.shift);
}

// What a shift beyond the register selects is the CPLD module's business: such a field
// is read by itself, and any bit of it stands for all.
static bool is_alone(const drv_intr_level_cfg &level)
{
	return shift_of(level) >= REGISTER_BITS;
}

static bool same_level(const drv_intr_level_cfg &one, const drv_intr_level_cfg &other)
{
	return one.chip_id == other.chip_id && one.en_reg == other.en_reg &&
	       one.status_reg == other.status_reg && shift_of(one) == shift_of(other) &&
	       one.mask == other.mask;
}

// How many outer levels the leaf shares with the one before it.
static u32 count_shared(const drv_intr_hwirq_cfg &leaf, const drv_intr_hwirq_cfg *previous)
{
	u32 shared = 0;

	if (!previous)
		return 0;
	while (shared + 1 < leaf.level_num && shared + 1 < previous->level_num &&
	       same_level(leaf.level[shared], previous->level[shared]))
		shared++;
	return shared;
}

// Whether the register can be read for this level's field as well.
static bool takes(const plan_register &found, const drv_intr_level_cfg &level, u32 reg)
{
	if (found.chip_id != level.chip_id || found.field.address != reg)
		return false;
	if (found.field.bit_offset == shift_of(level) && found.mask == level.mask)
		return true;
	return found.field.bit_offset < REGISTER_BITS && !is_alone(level);
}

static void widen(plan_register &found, const drv_intr_level_cfg &level)
{
	if (found.field.bit_offset == shift_of(level) && found.mask == level.mask)
		return;
	found.mask = drv_intr_shift_mask(found.mask, found.field.bit_offset) |
		     drv_intr_shift_mask(level.mask, shift_of(level));
	found.field.bit_offset = 0;
}

// From the newest on: leaves in a row mostly lie in the same registers.
static u16 register_of(drv_intr_scan_plan &plan, const drv_intr_level_cfg &level, u32 reg)
{
	for (u32 i = plan.register_count; i-- > 0;) {
		if (!takes(plan.registers[i], level, reg))
			continue;
		widen(plan.registers[i], level);
		return static_cast<u16>(i);
	}
	plan_register &added = plan.registers[plan.register_count];

	added.chip_id = level.chip_id;
	added.field = {reg, shift_of(level)};
	added.mask = level.mask;
	return static_cast<u16>(plan.register_count++);
}

static u16 pair_of(drv_intr_scan_plan &plan, const drv_intr_level_cfg &level)
{
	const u16 enable =
		level.en_reg == config::NO_REGISTER ? NONE : register_of(plan, level, level.en_reg);
	const u16 status = register_of(plan, level, level.status_reg);

	for (u32 i = plan.pair_count; i-- > NEVER_ACTIVE + 1;) {
		if (plan.sources[i].enable == enable && plan.sources[i].status == status)
			return static_cast<u16>(i);
	}
	plan.sources[plan.pair_count] = {enable, status};
	return static_cast<u16>(plan.pair_count++);
}

// The steps of the path to the leaf last compiled, by level.
struct plan_path {
	u16 step[config::MAX_LEVELS];
	u32 depth;
};

// What lies behind the levels further in than the first `depth` ends before `step`.
static void close_levels(drv_intr_scan_plan &plan, plan_path &path, u32 depth, u16 step)
{
	while (path.depth > depth)
		plan.steps[path.step[--path.depth]].quiet_next = step;
}

static void compile_leaf(drv_intr_scan_plan &plan, plan_path &path, drv_intr_irq_info &irq_info)
{
	const drv_intr_hwirq_cfg &cfg = irq_info.hwirq_cfg;

	for (u32 n = path.depth; n < cfg.level_num; n++) {
		const drv_intr_level_cfg &level = cfg.level[n];
		plan_step &step = plan.steps[plan.end];
		plan_place &place = plan.places[plan.end];

		step.bits =
			is_alone(level) ? ~0u : drv_intr_shift_mask(level.mask, shift_of(level));
		step.pair = pair_of(plan, level);
		place.leaf = n + 1 == cfg.level_num ? &irq_info : nullptr;
		place.outer = n > 0 ? path.step[n - 1] : NONE;
		path.step[path.depth++] = static_cast<u16>(plan.end++);
	}
}

static bool is_single_bit(u32 bits)
{
	return bits != 0 && (bits & (bits - 1)) == 0;
}

// From the last step to the first, each knowing the run behind it.
static void link_runs(drv_intr_scan_plan &plan)
{
	for (u32 i = plan.end; i-- > 0;) {
		plan_step &step = plan.steps[i];
		const plan_step &next = plan.steps[step.quiet_next];
		const u16 stride = static_cast<u16>(step.quiet_next - i);

		step.run_end = step.quiet_next;
		if (!is_single_bit(step.bits))
			continue;
		step.run = step.bits;
		step.stride = stride;
		if (next.run == 0 || next.pair != step.pair || next.bits != step.bits << 1 ||
		    plan.places[step.quiet_next].outer != plan.places[i].outer ||
		    (next.run != next.bits && next.stride != stride))
			continue;
		step.run |= next.run;
		step.run_end = next.run_end;
	}
}

static void compile_leaves(drv_intr_scan_plan &plan, list<drv_intr_irq_info> &irq_info_list)
{
	const drv_intr_hwirq_cfg *previous = nullptr;
	plan_path path = {};

	plan.pair_count = NEVER_ACTIVE + 1;
	for (drv_intr_irq_info &irq_info : irq_info_list) {
		close_levels(plan, path, count_shared(irq_info.hwirq_cfg, previous),
			     static_cast<u16>(plan.end));
		compile_leaf(plan, path, irq_info);
		previous = &irq_info.hwirq_cfg;
	}
	close_levels(plan, path, 0, static_cast<u16>(plan.end));
	plan.steps[plan.end].pair = NEVER_ACTIVE;
	plan.places[plan.end].outer = NONE;
	link_runs(plan);
}

// The end included.
static u32 count_steps(list<drv_intr_irq_info> &irq_info_list)
{
	const drv_intr_hwirq_cfg *previous = nullptr;
	u32 steps = 1;

	for (const drv_intr_irq_info &irq_info : irq_info_list) {
		steps += irq_info.hwirq_cfg.level_num - count_shared(irq_info.hwirq_cfg, previous);
		previous = &irq_info.hwirq_cfg;
	}
	return steps;
}

// One block of memory: the plan, and behind it its arrays.
template <typename T> static T *take(char *&at, u32 count)
{
	T *items = reinterpret_cast<T *>(at);

	at += count * sizeof(T);
	return items;
}

static drv_intr_scan_plan *alloc_plan(u32 steps, u32 pairs, u32 registers, u32 sources)
{
	auto *at = static_cast<char *>(
		kzalloc_size(sizeof(drv_intr_scan_plan) + registers * sizeof(plan_register) +
			     steps * (sizeof(plan_place) + sizeof(plan_step)) +
			     pairs * sizeof(plan_pair) + sources * sizeof(plan_source)));

	if (!at)
		return nullptr;
	auto *plan = take<drv_intr_scan_plan>(at, 1);
	plan->registers = take<plan_register>(at, registers);
	plan->pairs = take<plan_pair>(at, pairs);
	plan->places = take<plan_place>(at, steps);
	plan->steps = take<plan_step>(at, steps);
	plan->sources = take<plan_source>(at, sources);
	return plan;
}

template <typename T> static void copy(T *to, const T *from, u32 count)
{
	for (u32 i = 0; i < count; i++)
		to[i] = from[i];
}

static drv_intr_scan_plan *copy_to_size(const drv_intr_scan_plan &from)
{
	const u32 steps = from.end + 1;
	drv_intr_scan_plan *plan = alloc_plan(steps, from.pair_count, from.register_count, 0);

	if (!plan)
		return nullptr;
	copy(plan->registers, from.registers, from.register_count);
	for (u32 i = NEVER_ACTIVE + 1; i < from.pair_count; i++) {
		const plan_source source = from.sources[i];

		if (source.enable != NONE)
			plan->pairs[i].enable_reg = &plan->registers[source.enable];
		plan->pairs[i].status_reg = &plan->registers[source.status];
	}
	copy(plan->places, from.places, steps);
	copy(plan->steps, from.steps, steps);
	plan->end = from.end;
	return plan;
}

int drv_intr_compile_scan_plan(drv_intr_combiner &combiner)
{
	const u32 steps = count_steps(combiner.irq_info_list);
	drv_intr_scan_plan *scratch = alloc_plan(steps, 0, steps * 2, steps); // room for any case

	if (!scratch)
		return -ENOMEM;
	compile_leaves(*scratch, combiner.irq_info_list);
	combiner.scan_plan = copy_to_size(*scratch);
	kfree(scratch);
	if (!combiner.scan_plan)
		return -ENOMEM;
	combiner.scan_plan->inst_id = combiner.inst_id;
	return 0;
}

// Into the record: a word on the stack would have this guarded against overruns.
static inline bool read_register(const drv_intr_scan_plan &plan, plan_register &reg)
{
	reg.value = 0;
	if (drv_cpld_read(plan.inst_id, reg.chip_id, reg.field, reg.mask, &reg.value) != 0)
		return false;
	if (reg.field.bit_offset < REGISTER_BITS) [[likely]]
		reg.value <<= reg.field.bit_offset;
	else if (reg.value != 0)
		reg.value = ~0u;
	reg.epoch = plan.epoch;
	return true;
}

enum class verdict : u8 { ACTIVE, QUIET, FAILED };

// Reads what is not known of the pair yet; the status only when the level is enabled.
// It is never older than the enable: a thread that unmasks its leaf clears the status
// first, and a status from before that with an enable from after it would be an
// occurrence that never was.
static inline verdict look_at(drv_intr_scan_plan &plan, const plan_step &step)
{
	plan_pair &pair = plan.pairs[step.pair];
	plan_register &status = *pair.status_reg;
	u32 enabled = ~0u;

	if (pair.enable_reg) {
		plan_register &enable = *pair.enable_reg;

		if (enable.epoch != plan.epoch) {
			status.epoch = 0;
			if (!read_register(plan, enable)) [[unlikely]]
				return verdict::FAILED;
		}
		enabled = enable.value;
		if ((enabled & step.bits) == 0)
			return verdict::QUIET;
	}
	pair.enabled = enabled;
	if (status.epoch != plan.epoch && !read_register(plan, status)) [[unlikely]]
		return verdict::FAILED;
	pair.status = status.value;
	pair.epoch = plan.epoch;
	return (pair.status & step.bits) != 0 ? verdict::ACTIVE : verdict::QUIET;
}

// A leaf without a mapping has nothing but its line in the log.
static inline bool is_wanted(const drv_intr_irq_info &irq_info, u32 trace_virq)
{
	return read_once(irq_info.virq) != 0 || drv_intr_trace_enabled(trace_virq);
}

// The step of the first wanted leaf from `at` on, or the end.
static inline u32 next_wanted(const drv_intr_scan_plan &plan, u32 at, u32 trace_virq)
{
	for (; at < plan.end; at++) {
		const drv_intr_irq_info *leaf = plan.places[at].leaf;

		if (leaf && is_wanted(*leaf, trace_virq))
			break;
	}
	return at;
}

// Tests a level, mostly with reads, for the first wanted leaf from `at` on that is
// behind it. Returns the step to go on from: `at` when the level is active, which is
// known then. When a read failed that one leaf is quiet, and everything forgotten.
// Inline: on the usual way it is called at one place.
[[gnu::always_inline]] static inline u32 test_level(drv_intr_scan_plan &plan, u32 level, u32 at,
						    u32 trace_virq)
{
	const plan_step &step = plan.steps[level];
	const u32 leaf = next_wanted(plan, at, trace_virq);

	if (leaf >= step.quiet_next)
		return step.quiet_next;
	switch (look_at(plan, step)) {
	case verdict::ACTIVE:
		return at;
	case verdict::QUIET:
		return step.quiet_next;
	case verdict::FAILED:
		break;
	}
	plan.epoch++;
	return leaf + 1;
}

// Tests the levels outside the step `at`, of which nothing is known. Returns the step
// to go on from, all of whose outer levels are active: another one where one is quiet.
[[gnu::noinline]] static u32 enter(drv_intr_scan_plan &plan, u32 at, u32 trace_virq)
{
	while (plan.places[at].outer != NONE) {
		const u64 epoch = plan.epoch;
		const u32 start = at;
		u16 outer[config::MAX_LEVELS];
		u32 depth = 0;

		for (u16 step = plan.places[at].outer; step != NONE; step = plan.places[step].outer)
			outer[depth++] = step;
		while (depth > 0 && at == start)
			at = test_level(plan, outer[--depth], at, trace_virq);
		if (plan.epoch == epoch)
			break;
	}
	return at;
}

// Whether this step, or one behind it in its run, is active: `at` becomes that one.
static inline bool is_active(const plan_step &step, const plan_pair &pair, u32 &at)
{
	const u32 active = pair.status & pair.enabled & step.run;

	if (active != 0) {
		at += step.stride *
		      static_cast<u32>(__builtin_ctz(active) - __builtin_ctz(step.bits));
		return true;
	}
	return step.run == 0 && (pair.status & step.bits) != 0 && (pair.enabled & step.bits) != 0;
}

drv_intr_irq_info *drv_intr_next_active(drv_intr_scan_plan &plan, u32 trace_virq)
{
	u64 epoch = ++plan.epoch;
	u32 at = plan.at;

	if (plan.places[at].outer != NONE) {
		at = enter(plan, at, trace_virq);
		epoch = plan.epoch;
	}
	for (;;) {
		const plan_step &step = plan.steps[at];
		const plan_pair &pair = plan.pairs[step.pair];

		if (pair.epoch != epoch) [[unlikely]] {
			if (at == plan.end) {
				plan.at = at;
				return nullptr;
			}
			at = test_level(plan, at, at, trace_virq);
			if (plan.epoch != epoch) [[unlikely]] {
				at = enter(plan, at, trace_virq);
				epoch = plan.epoch;
			}
			continue;
		}
		if (!is_active(step, pair, at)) {
			at = step.run_end;
			continue;
		}
		drv_intr_irq_info *leaf = plan.places[at++].leaf;
		if (leaf && is_wanted(*leaf, trace_virq)) {
			plan.at = at;
			return leaf;
		}
	}
}
