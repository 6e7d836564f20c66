// SPDX-License-Identifier: GPL-2.0
//
// A combiner's interrupt domain and the chip of its leaves.
//
// The chip turns the kernel's requests into writes of the leaf's enable and
// status fields, or, on a direct combiner, into counted disables and enables
// of the parent line. The kernel calls the operations with the leaf's
// descriptor lock held. The chip has no acknowledge, start-up or shut-down of
// its own: the level flow handler masks on entry, and start-up and shut-down
// fall back to enable and disable.
#include "combiner/domain.h"

#include "combiner/dispatch.h"
#include "combiner/level_access.h"
#include "combiner/parent.h"

static inline drv_intr_irq_info &leaf_of(irq_data *data)
{
	return *static_cast<drv_intr_irq_info *>(irq_data_get_irq_chip_data(data));
}

static bool is_direct(const drv_intr_irq_info &irq_info)
{
	return irq_info.combiner->common_cfg.direct != 0;
}

// Of the operations there are two of each, with and without lines in the log: this is
// looked at once.
static inline bool is_traced(const irq_data *data)
{
	return drv_intr_is_tracing() && drv_intr_trace_enabled(irq_data_irq(data));
}

template <bool TRACED> static inline u32 traced_virq(const irq_data *data)
{
	return TRACED ? irq_data_irq(data) : 0;
}

template <bool TRACED> static inline void drv_intr_irq_clear(drv_intr_irq_info &irq_info, u32 virq)
{
	static constexpr char desc[] = "intr irq clear";

	intr_trace_if(TRACED, "[%s]enter, virq=%u", desc, virq);
	drv_intr_clear_levels<TRACED>(irq_info, virq);
	intr_trace_if(TRACED, "[%s]success, virq=%u", desc, virq);
}

template <bool TRACED>
static inline bool set_leaf_enable(drv_intr_irq_info &irq_info, u32 en, const char *desc)
{
	const int ret = drv_intr_write_leaf_enable<TRACED>(irq_info, en);

	if (ret == 0) [[likely]]
		return true;
	intr_err("[%s]set leaf int fail, ret=0x%x", desc, ret);
	return false;
}

// What masking and disabling share; they differ in how a direct leaf disables its
// parent. Enable field off first: nothing new gets past it while the status is
// cleared.
template <bool TRACED> static inline void
silence_leaf(irq_data *data, const char *desc, void (*disable_direct_parent)(drv_intr_irq_info &))
{
	drv_intr_irq_info &irq_info = leaf_of(data);
	const u32 virq = traced_virq<TRACED>(data);

	intr_trace_if(TRACED, "[%s]enter, virq=%u", desc, virq);
	if (is_direct(irq_info)) {
		intr_trace_if(TRACED, "[%s]disable parent irq, virq=%u", desc,
			      irq_info.combiner->virq);
		disable_direct_parent(irq_info);
	} else {
		if (!set_leaf_enable<TRACED>(irq_info, 0, desc))
			return;
		drv_intr_irq_clear<TRACED>(irq_info, virq);
	}
	intr_trace_if(TRACED, "[%s]success, virq=%u", desc, virq);
}

static void drv_intr_irq_mask(irq_data *data)
{
	static constexpr char desc[] = "intr irq mask";

	if (is_traced(data)) [[unlikely]]
		silence_leaf<true>(data, desc, drv_intr_mask_disable_parent);
	else
		silence_leaf<false>(data, desc, drv_intr_mask_disable_parent);
}

static void disable_parent(drv_intr_irq_info &irq_info)
{
	disable_irq_nosync(irq_info.combiner->virq);
}

static void drv_intr_irq_disable(irq_data *data)
{
	static constexpr char desc[] = "intr irq disable";

	if (is_traced(data)) [[unlikely]]
		silence_leaf<true>(data, desc, disable_parent);
	else
		silence_leaf<false>(data, desc, disable_parent);
}

template <bool TRACED> static inline void unmask_leaf(irq_data *data)
{
	static constexpr char desc[] = "intr irq unmask";
	drv_intr_irq_info &irq_info = leaf_of(data);
	const u32 virq = traced_virq<TRACED>(data);

	intr_trace_if(TRACED, "[%s]enter, virq=%u", desc, virq);
	if (is_direct(irq_info)) {
		// Unless the leaf's handler has done it.
		drv_intr_mask_enable_parent(irq_info);
	} else {
		drv_intr_irq_clear<TRACED>(irq_info, virq);
		if (!set_leaf_enable<TRACED>(irq_info, 1, desc))
			return;
	}
	intr_trace_if(TRACED, "[%s]success, virq=%u", desc, virq);
}

static void drv_intr_irq_unmask(irq_data *data)
{
	if (is_traced(data)) [[unlikely]]
		unmask_leaf<true>(data);
	else
		unmask_leaf<false>(data);
}

static bool is_level_type(const drv_intr_hwirq_cfg &cfg)
{
	return (cfg.irq_type & (DRV_INTR_TYPE_LEVEL_HIGH | DRV_INTR_TYPE_LEVEL_LOW)) != 0;
}

template <bool TRACED> static inline void enable_leaf(irq_data *data)
{
	static constexpr char desc[] = "intr irq enable";
	drv_intr_irq_info &irq_info = leaf_of(data);
	const u32 virq = traced_virq<TRACED>(data);

	intr_trace_if(TRACED, "[%s]enter, virq=%u", desc, virq);
	if (is_direct(irq_info)) {
		intr_trace_if(TRACED, "[%s]enable parent irq, virq=%u", desc,
			      irq_info.combiner->virq);
		drv_intr_enable_parent(*irq_info.combiner);
		// The kernel takes an enabled line for unmasked, and will not unmask it.
		drv_intr_mask_enable_parent(irq_info);
	} else {
		if (is_level_type(irq_info.hwirq_cfg))
			drv_intr_irq_clear<TRACED>(irq_info, virq);
		if (!set_leaf_enable<TRACED>(irq_info, 1, desc))
			return;
	}
	intr_trace_if(TRACED, "[%s]success, virq=%u", desc, virq);
}

static void drv_intr_irq_enable(irq_data *data)
{
	if (is_traced(data)) [[unlikely]]
		enable_leaf<true>(data);
	else
		enable_leaf<false>(data);
}

// A leaf in between knows only of its own moves, not of those of its siblings.
static int copy_outermost_affinity(irq_data *data, const drv_intr_combiner &combiner)
{
	const drv_intr_combiner *outermost = &combiner;

	while (outermost->parent_leaf)
		outermost = outermost->parent_leaf->combiner;
	irq_data *line = irq_get_irq_data(outermost->virq);
	return line ? irq_data_copy_effective_affinity(data, line) : -EINVAL;
}

// Moving one leaf moves the parent line and with it every leaf behind it. The kernel
// also places a line when it starts it, on the default CPUs: a leaf then joins its
// parent where that is, as somebody may have put it there through another leaf.
static int drv_intr_irq_set_affinity(irq_data *data, const cpumask *mask, bool force)
{
	const drv_intr_combiner &combiner = *leaf_of(data).combiner;
	irq_data *parent = irq_get_irq_data(combiner.virq);

	if (!parent)
		return -EINVAL;
	if (irq_data_is_starting(data))
		return copy_outermost_affinity(data, combiner);
	const int ret = irq_chip_set_affinity(parent, mask, force);
	if (ret >= 0)
		(void)copy_outermost_affinity(data, combiner); // it has moved, known or not
	return ret;
}

static int drv_intr_irq_retrigger(irq_data *data)
{
	return drv_intr_replay_in_thread(leaf_of(data)) ? 1 : 0;
}

static constexpr irq_chip_ops leaf_chip_ops = {
	.irq_enable = drv_intr_irq_enable,
	.irq_disable = drv_intr_irq_disable,
	.irq_mask = drv_intr_irq_mask,
	.irq_unmask = drv_intr_irq_unmask,
	.irq_set_affinity = drv_intr_irq_set_affinity,
	.irq_retrigger = drv_intr_irq_retrigger,
};

void drv_intr_init_combiner_chip(drv_intr_combiner &combiner)
{
	irq_chip_init(&combiner.chip, combiner.name, &leaf_chip_ops);
}

static void set_up_leaf_line(drv_intr_combiner &combiner, drv_intr_irq_info &irq_info, u32 virq)
{
	irq_set_chip_and_handler_name(virq, &combiner.chip, handle_level_irq, nullptr);
	irq_set_chip_data(virq, &irq_info);
	// The kernel replays a line that was pending while disabled, unless it is
	// a level: enabling clears those, and a replay would be a double.
	irq_modify_status(virq, IRQ_NOREQUEST | IRQ_NOPROBE | IRQ_DISABLE_UNLAZY,
			  is_level_type(irq_info.hwirq_cfg) ? IRQ_LEVEL : 0);
}

void drv_intr_reset_leaf_line(drv_intr_irq_info &irq_info)
{
	set_up_leaf_line(*irq_info.combiner, irq_info, irq_info.virq);
}

// Called by the kernel while it creates a mapping.
static int drv_intr_domain_map(irq_domain *domain, unsigned int virq, unsigned long hwirq)
{
	auto &combiner = *static_cast<drv_intr_combiner *>(irq_domain_host_data(domain));
	const srcu_reader reader; // the mapping may be another driver's demand
	drv_intr_irq_info *irq_info =
		drv_intr_get_irq_info_by_hwirq(combiner, static_cast<u32>(hwirq));

	if (!irq_info)
		return -EINVAL;
	irq_set_lockdep_class(virq, combiner.nest_level);
	irq_set_activated(virq); // a client may enable it before it is requested
	set_up_leaf_line(combiner, *irq_info, virq);
	return 0;
}

static constexpr irq_domain_ops drv_intr_domain_ops = {
	.map = drv_intr_domain_map,
};

void drv_intr_free_fwnode(fwnode_handle *fwnode)
{
	irq_domain_free_fwnode(fwnode);
}

int drv_intr_domain_alloc(platform_device *device, drv_intr_combiner &combiner)
{
	static constexpr char desc[] = "intr domain alloc";
	fwnode_handle *fwnode;

	intr_info("[%s]enter", desc);
	if (device) {
		fwnode = dev_fwnode(device);
	} else {
		fwnode = irq_domain_alloc_named_fwnode(combiner.name);
		if (!fwnode) {
			intr_err("[%s]intr alloc fwnode fail", desc);
			return -ENOMEM;
		}
		combiner.fwnode = fwnode;
	}
	write_once(combiner.domain,
		   irq_domain_create_tree(fwnode, &drv_intr_domain_ops, &combiner));
	if (!combiner.domain) {
		intr_err("[%s]alloc domain fail", desc);
		if (combiner.fwnode) {
			drv_intr_free_fwnode(combiner.fwnode);
			combiner.fwnode = nullptr;
		}
		return -ENOMEM;
	}
	intr_info("[%s]success", desc);
	return 0;
}
