// SPDX-License-Identifier: GPL-2.0
//
// Tear-down of a combiner: the mirror of its bring-up, undoing what the record
// shows. First it is closed (no reader, no parent interrupt), then the thread is
// stopped and leaves are released, then records, domain and firmware node go.
//
// Only closing has to wait for others on any ordinary combiner, and each wait takes
// as long for one as for all: combiners that go together are closed together.
#include "combiner/domain.h"
#include "combiner/level.h"
#include "combiner/lifecycle.h"
#include "combiner/parent_setup.h"
#include "config/combiner_cfg.h"
#include "core/leaf_index.h"
#include "core/log.h"

static bool is_linked(const drv_intr_combiner &combiner)
{
	return combiner.teardown == drv_intr_teardown::NONE;
}

static bool is_any(const drv_intr_combiner &)
{
	return true;
}

static drv_intr_combiner *nested_combiner(drv_intr_combiner &combiner,
					  bool (*counts)(const drv_intr_combiner &))
{
	for (drv_intr_irq_info &irq_info : combiner.irq_info_list) {
		if (irq_info.cascaded && counts(*irq_info.cascaded))
			return irq_info.cascaded;
	}
	return nullptr;
}

static drv_intr_combiner &innermost(drv_intr_combiner &combiner,
				    bool (*counts)(const drv_intr_combiner &))
{
	drv_intr_combiner *inner = &combiner;

	while (drv_intr_combiner *nested = nested_combiner(*inner, counts))
		inner = nested;
	return *inner;
}

// Its own forward link stays, for readers that stand on it.
static void unlink_one(drv_intr_combiner &combiner)
{
	drv_intr_combiner **end = &drv_intr_get_ctrl()->unlinked;

	list<drv_intr_combiner>::unlink(combiner);
	drv_intr_unindex_leaves(combiner);
	combiner.teardown = drv_intr_teardown::UNLINKED;
	while (*end)
		end = &(*end)->next_unlinked;
	*end = &combiner;
}

void drv_intr_combiner_unlink(drv_intr_combiner &combiner)
{
	if (is_linked(combiner))
		unlink_one(combiner);
	for (;;) {
		drv_intr_combiner &inner = innermost(combiner, is_linked);

		if (&inner == &combiner)
			return;
		unlink_one(inner);
	}
}

static void forget_unlinked(drv_intr_combiner &combiner)
{
	drv_intr_combiner **at = &drv_intr_get_ctrl()->unlinked;

	while (*at != &combiner)
		at = &(*at)->next_unlinked;
	*at = combiner.next_unlinked;
}

static drv_intr_combiner *first_to_close(drv_intr_combiner *combiner)
{
	while (combiner && combiner->teardown == drv_intr_teardown::CLOSED)
		combiner = combiner->next_unlinked;
	return combiner;
}

// New ones stand behind those that are closed already. Readers are waited for while
// the leaves still work; one wait for handlers is enough for nested ones, too, as all
// marks are set before it.
void drv_intr_close_unlinked(drv_intr_ctrl &ctrl)
{
	drv_intr_combiner *const first = first_to_close(ctrl.unlinked);

	if (!first)
		return;
	synchronize_srcu();
	drv_intr_free_replaced_tables();
	for (drv_intr_combiner *combiner = first; combiner; combiner = combiner->next_unlinked)
		drv_intr_silence_parent(*combiner);
	synchronize_rcu();
	for (drv_intr_combiner *combiner = first; combiner; combiner = combiner->next_unlinked) {
		drv_intr_detach_parent(*combiner);
		combiner->teardown = drv_intr_teardown::CLOSED;
	}
}

// A combiner whose parent line is one of our leaves goes with that line.
static void free_nested(const char *desc, drv_intr_combiner &combiner)
{
	for (;;) {
		drv_intr_combiner &inner = innermost(combiner, is_any);

		if (&inner == &combiner)
			return;
		intr_err("[%s]combiner %u is cascaded to a leaf of combiner %u, freed first", desc,
			 inner.combiner_id, inner.parent_leaf->combiner->combiner_id);
		drv_intr_combiner_free(inner);
	}
}

// The virq has a handler of somebody else, who requested it by itself: disposing of it
// would take the line from under that handler, and its release later. It stays, without
// anything of ours behind it, and never interrupts again.
static void orphan_leaf(const char *desc, drv_intr_irq_info &irq_info)
{
	intr_err("[%s]virq=%u stays with another driver, index_id=0x%x, type=%u", desc,
		 irq_info.virq, irq_info.hwirq_cfg.index_id, irq_info.hwirq_cfg.type);
	irq_set_chip_and_handler_name(irq_info.virq, nullptr, nullptr, nullptr);
	(void)irq_set_chip_data(irq_info.virq, nullptr); // there is a descriptor
	irq_set_lasting_lockdep_class(irq_info.virq);
}

// False: the domain has mappings that must stay.
static bool release_leaves(const char *desc, drv_intr_combiner &combiner)
{
	bool all = true;

	for (drv_intr_irq_info &irq_info : combiner.irq_info_list) {
		if (irq_info.virq != 0) {
			intr_err("[%s]leaf still in use, released, index_id=0x%x, type=%u, virq=%u",
				 desc, irq_info.hwirq_cfg.index_id, irq_info.hwirq_cfg.type,
				 irq_info.virq);
		}
		g_drv_intr_leaf_users.abandon(irq_info);
		if (irq_info.virq == 0)
			continue;
		orphan_leaf(desc, irq_info);
		all = false;
	}
	return all;
}

static void free_domain(drv_intr_combiner &combiner, bool unmapped)
{
	if (!unmapped) {
		irq_domain_abandon(combiner.domain);
		return;
	}
	if (combiner.domain)
		irq_domain_remove(combiner.domain);
}

static void drv_intr_free_irq_info_list(list<drv_intr_irq_info> &irq_info_list)
{
	while (drv_intr_irq_info *irq_info = irq_info_list.first()) {
		list<drv_intr_hwirq_cfg>::unlink(irq_info->hwirq_cfg);
		irq_info_list.unlink(*irq_info);
		kfree(irq_info);
	}
}

// The chained handler of a nested combiner, run by the outer one's thread, has
// interrupts on while a leaf handler runs, and a driver that keeps the virq of a leaf
// has threads of its own that look at our chip.
static bool may_be_in_use(const drv_intr_combiner &combiner, bool unmapped)
{
	return !unmapped || (combiner.parent_leaf && combiner.parent_leaf->combiner->threaded != 0);
}

void drv_intr_combiner_free(drv_intr_combiner &combiner)
{
	static constexpr char desc[] = "intr combiner free";

	intr_info("[%s]enter, id=%u", desc, combiner.combiner_id);
	drv_intr_close_unlinked(*drv_intr_get_ctrl());
	free_nested(desc, combiner);
	drv_intr_combiner_close_virq(combiner);
	if (combiner.common_cfg.direct == 0) {
		const int ret = drv_intr_disable_leaf_int(combiner);

		if (ret != 0)
			intr_err("[%s]disable leaf int fail, ret=%d", desc, ret);
	}
	const bool unmapped = release_leaves(desc, combiner);
	if (may_be_in_use(combiner, unmapped))
		synchronize_rcu(); // leaf handlers are gone: this waits for the rest
	kfree(combiner.scan_plan);
	drv_intr_free_irq_info_list(combiner.irq_info_list);
	drv_intr_free_cpu_cfg_list(combiner.cpu_cfg_list);
	drv_intr_free_cpu_cfg_list(combiner.cpu_default_cfg_list);
	drv_intr_free_hwirq_cfg_list(combiner.hwirq_cfg_list);
	free_domain(combiner, unmapped);
	drv_intr_release_parent(combiner);
	if (combiner.fwnode && unmapped)
		drv_intr_free_fwnode(combiner.fwnode);
	forget_unlinked(combiner);
	kfree(&combiner);
	intr_info("[%s]success", desc);
}

void drv_intr_combiner_remove(drv_intr_combiner &combiner)
{
	drv_intr_combiner_unlink(combiner);
	drv_intr_combiner_free(combiner);
}

drv_intr_combiner *drv_intr_get_combiner_to_free(u32 combiner_id)
{
	drv_intr_combiner *combiner = drv_intr_get_combiner(combiner_id);

	if (combiner)
		return combiner;
	combiner = drv_intr_get_ctrl()->unlinked;
	while (combiner && combiner->combiner_id != combiner_id)
		combiner = combiner->next_unlinked;
	return combiner;
}

void drv_intr_free_combiner_by_bitmap(u32 bitmap)
{
	for (u32 id = 0; id < BOARD_COMBINERS; id++) {
		if (!(bitmap & (1u << id)))
			continue;
		if (drv_intr_combiner *combiner = drv_intr_get_combiner(id))
			drv_intr_combiner_unlink(*combiner);
	}
	for (u32 id = 0; id < BOARD_COMBINERS; id++) {
		if (!(bitmap & (1u << id)))
			continue;
		if (drv_intr_combiner *combiner = drv_intr_get_combiner_to_free(id))
			drv_intr_combiner_remove(*combiner);
	}
}

void drv_intr_all_combiner_close(drv_intr_ctrl &ctrl)
{
	while (drv_intr_combiner *combiner = ctrl.combiner_list.first())
		drv_intr_combiner_unlink(*combiner);
	drv_intr_close_unlinked(ctrl);
}

void drv_intr_all_combiner_free(drv_intr_ctrl &ctrl)
{
	drv_intr_all_combiner_close(ctrl);
	while (drv_intr_combiner *combiner = ctrl.unlinked)
		drv_intr_combiner_free(*combiner);
}
