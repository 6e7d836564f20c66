// SPDX-License-Identifier: GPL-2.0
//
// Tear-down of a combiner: the mirror of its bring-up, undoing what the record
// shows. First it is quiesced (no reader, no parent interrupt, no thread), then
// leaves are released, then records, domain and firmware node go.
#include "combiner/domain.h"
#include "combiner/level.h"
#include "combiner/lifecycle.h"
#include "combiner/parent_setup.h"
#include "config/combiner_cfg.h"
#include "core/leaf_index.h"
#include "core/log.h"

static drv_intr_combiner *nested_combiner(drv_intr_combiner &combiner)
{
	for (drv_intr_irq_info &irq_info : combiner.irq_info_list) {
		if (irq_info.cascaded)
			return irq_info.cascaded;
	}
	return nullptr;
}

static drv_intr_combiner &innermost(drv_intr_combiner &combiner)
{
	drv_intr_combiner *inner = &combiner;

	while (drv_intr_combiner *nested = nested_combiner(*inner))
		inner = nested;
	return *inner;
}

// A combiner whose parent line is one of our leaves goes with that line.
static void free_nested(const char *desc, drv_intr_combiner &combiner)
{
	for (;;) {
		drv_intr_combiner &inner = innermost(combiner);

		if (&inner == &combiner)
			return;
		intr_err("[%s]combiner %u is cascaded to a leaf of combiner %u, freed first", desc,
			 inner.combiner_id, inner.parent_leaf->combiner->combiner_id);
		drv_intr_combiner_remove(inner);
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

void drv_intr_combiner_free(drv_intr_combiner &combiner)
{
	static constexpr char desc[] = "intr combiner free";

	intr_info("[%s]enter, id=%u", desc, combiner.combiner_id);
	drv_intr_unindex_leaves(combiner);
	synchronize_srcu();
	drv_intr_free_replaced_tables();
	free_nested(desc, combiner);
	drv_intr_combiner_close_virq(combiner);
	if (combiner.common_cfg.direct == 0) {
		const int ret = drv_intr_disable_leaf_int(combiner);

		if (ret != 0)
			intr_err("[%s]disable leaf int fail, ret=%d", desc, ret);
	}
	const bool unmapped = release_leaves(desc, combiner);
	// The chained handler of a nested combiner, run by the outer one's thread, had
	// interrupts on while a leaf handler ran. Those are gone, so this waits for the
	// rest of it.
	synchronize_rcu();
	kfree(combiner.scan_plan);
	drv_intr_free_irq_info_list(combiner.irq_info_list);
	drv_intr_free_cpu_cfg_list(combiner.cpu_cfg_list);
	drv_intr_free_cpu_cfg_list(combiner.cpu_default_cfg_list);
	drv_intr_free_hwirq_cfg_list(combiner.hwirq_cfg_list);
	free_domain(combiner, unmapped);
	drv_intr_release_parent(combiner);
	if (combiner.fwnode && unmapped)
		drv_intr_free_fwnode(combiner.fwnode);
	kfree(&combiner);
	intr_info("[%s]success", desc);
}

void drv_intr_combiner_remove(drv_intr_combiner &combiner)
{
	list<drv_intr_combiner>::unlink(combiner);
	drv_intr_combiner_free(combiner);
}

void drv_intr_free_combiner_by_bitmap(u32 bitmap)
{
	for (u32 id = 0; id < BOARD_COMBINERS; id++) {
		if (!(bitmap & (1u << id)))
			continue;
		if (drv_intr_combiner *combiner = drv_intr_get_combiner(id))
			drv_intr_combiner_remove(*combiner);
	}
}

void drv_intr_all_combiner_free(drv_intr_ctrl &ctrl)
{
	while (drv_intr_combiner *combiner = ctrl.combiner_list.first())
		drv_intr_combiner_remove(*combiner);
}
