// SPDX-License-Identifier: GPL-2.0
//
// Interrupt descriptors: the disable depth and the state of a line at its chip,
// kept as the kernel keeps them, since which chip operation is called depends on both.
//
// depth counts disables. The chip is called when it goes from 0 to 1 and back.
// Without an irq_disable operation a disable is lazy: the line is only marked,
// and masked when it next fires, unless IRQ_DISABLE_UNLAZY is set. "Masked" and
// "disabled" are remembered, and a line is never masked or unmasked twice.
#include "internal.h"

#include <cstdio>
#include <cstring>

namespace model {

static std::atomic<irq_desc *> descs[virq_limit];

// The chip of a descriptor that has none.
irq_chip no_chip = {
	.name = "none",
	.irq_enable = nullptr,
	.irq_disable = nullptr,
	.irq_mask = nullptr,
	.irq_unmask = nullptr,
	.irq_eoi = nullptr,
	.irq_set_affinity = nullptr,
	.irq_set_type = nullptr,
	.irq_retrigger = nullptr,
	.set_type_masked = false,
	.hardirq_only = false,
	.affinity_pre_startup = false,
};

irq_desc *desc_of(u32 virq)
{
	return virq < virq_limit ? descs[virq].load(std::memory_order_acquire) : nullptr;
}

irq_desc *desc_alloc()
{
	for (u32 virq = first_virq; virq < virq_limit; virq++) {
		if (descs[virq].load(std::memory_order_relaxed))
			continue;
		auto *desc = new irq_desc(virq);
		descs[virq].store(desc, std::memory_order_release);
		return desc;
	}
	return nullptr;
}

void desc_withdraw(irq_desc *desc)
{
	descs[desc->data.irq].store(nullptr, std::memory_order_release);
	free_after_readers(desc);
}

u32 descs_left(std::string &text)
{
	u32 left = 0;

	for (const auto &slot : descs) {
		irq_desc *desc = slot.load(std::memory_order_acquire);

		if (!desc)
			continue;
		const irqaction *action = desc->action.load(std::memory_order_acquire);

		if ((is_line(*desc) || is_abandoned(desc->data)) && !action)
			continue;
		text += " interrupt " + std::to_string(desc->data.irq);
		if (action)
			text += action == &chained_action ? " chained"
							  : " requested by " + action->name;
		left++;
	}
	return left;
}

void descs_reset()
{
	for (auto &slot : descs)
		delete slot.exchange(nullptr);
}

void mask_line(irq_desc &desc)
{
	if (desc.is(irqd_masked) || !desc.chip().irq_mask)
		return;
	desc.chip().irq_mask(&desc.data);
	desc.set(irqd_masked);
}

void unmask_line(irq_desc &desc)
{
	if (!desc.is(irqd_masked) || !desc.chip().irq_unmask)
		return;
	desc.chip().irq_unmask(&desc.data);
	desc.clear(irqd_masked);
}

// No chip here has an acknowledge operation.
void mask_ack_line(irq_desc &desc)
{
	mask_line(desc);
}

static void enable_line(irq_desc &desc)
{
	if (!desc.is(irqd_disabled)) {
		unmask_line(desc);
		return;
	}
	desc.clear(irqd_disabled);
	if (desc.chip().irq_enable) {
		desc.chip().irq_enable(&desc.data);
		desc.clear(irqd_masked);
	} else {
		unmask_line(desc);
	}
}

static void disable_line(irq_desc &desc, bool mask)
{
	if (desc.is(irqd_disabled)) {
		if (mask)
			mask_line(desc);
		return;
	}
	desc.set(irqd_disabled);
	if (desc.chip().irq_disable) {
		desc.chip().irq_disable(&desc.data);
		desc.set(irqd_masked);
	} else if (mask) {
		mask_line(desc);
	}
}

// A pending occurrence that came while the line was disabled is replayed, except
// of a level line, whose source asserts it again.
static void replay(irq_desc &desc)
{
	if (desc.settings & irq_level) {
		desc.istate &= ~irqs_pending;
		return;
	}
	if (desc.istate & irqs_replay || !(desc.istate & irqs_pending))
		return;
	desc.istate &= ~irqs_pending;
	if (desc.chip().irq_retrigger && desc.chip().irq_retrigger(&desc.data)) {
		desc.istate |= irqs_replay;
	} else if (!desc.chip().hardirq_only) {
		queue_replay(desc.data.irq);
		desc.istate |= irqs_replay;
	}
}

static lock tmp_mask_lock{class_affinity};

// The kernel has one buffer for the mask, and holds its lock over the chip's operation.
static int chip_set_affinity(irq_desc &desc, const cpumask &wanted)
{
	const raw_guard guard(tmp_mask_lock);

	return desc.chip().irq_set_affinity(&desc.data, &wanted, false);
}

int set_affinity(irq_desc &desc, unsigned long mask)
{
	enum : int { ok, ok_no_copy, ok_done }; // what chips return besides errors
	const cpumask wanted = {mask & all_cpus};

	if (!desc.chip().irq_set_affinity || !wanted.bits)
		return -einval;
	const int ret = chip_set_affinity(desc, wanted);
	if (ret < 0)
		return ret;
	if (ret == ok || ret == ok_done)
		desc.affinity = mask;
	if (!desc.data.effective.load())
		kernel_log("genirq: irq_chip %s did not update eff. affinity mask of irq %u",
			   desc.chip().name, desc.data.irq);
	return 0;
}

static void setup_affinity(irq_desc &desc)
{
	if (desc.settings & (irq_per_cpu | irq_no_balancing))
		return;
	(void)set_affinity(desc, desc.is(irqd_affinity_set) ? desc.affinity : all_cpus);
}

void startup(irq_desc &desc, bool resend)
{
	desc.depth = 0;
	if (desc.is(irqd_started)) {
		enable_line(desc);
	} else {
		if (!desc.is(irqd_activated))
			bug("interrupt %u is started without being activated", desc.data.irq);
		const bool first = desc.chip().affinity_pre_startup;

		if (first)
			setup_affinity(desc);
		enable_line(desc);
		desc.set(irqd_started);
		if (!first)
			setup_affinity(desc);
	}
	if (resend)
		replay(desc);
}

void shutdown(irq_desc &desc)
{
	if (!desc.is(irqd_started))
		return;
	desc.depth = 1;
	disable_line(desc, true);
	desc.clear(irqd_started);
}

void disable_depth(irq_desc &desc)
{
	if (desc.depth++ == 0)
		disable_line(desc, desc.settings & irq_disable_unlazy);
}

void enable_depth(irq_desc &desc)
{
	if (desc.depth == 0) {
		bug("Unbalanced enable for IRQ %u", desc.data.irq);
	} else if (desc.depth > 1) {
		desc.depth--;
	} else {
		desc.settings |= irq_noprobe;
		startup(desc, true);
	}
}

int set_trigger(irq_desc &desc, u32 type)
{
	if (!desc.chip().irq_set_type)
		return 0;
	if (desc.chip().set_type_masked)
		mask_line(desc);
	type &= irq_type_mask;
	const int ret = desc.chip().irq_set_type(&desc.data, type);
	if (ret) {
		kernel_log("genirq: Setting trigger mode %u for irq %u failed", type,
			   desc.data.irq);
	} else {
		desc.settings &= ~(irq_type_mask | irq_level);
		desc.settings |= type;
		if (type & irq_type_level)
			desc.settings |= irq_level;
	}
	if (desc.chip().set_type_masked && !desc.is(irqd_disabled))
		unmask_line(desc);
	return ret;
}

int handle_desc(irq_desc *desc)
{
	if (!desc)
		return -einval;
	if (!current().hardirq && desc->chip().hardirq_only) {
		kernel_log(
			"interrupt %u of the root controller dispatched outside a hard interrupt",
			desc->data.irq);
		return -eperm;
	}
	desc->handle_irq.load(std::memory_order_acquire)(desc);
	return 0;
}

} // namespace model

using namespace model;

irq_desc::irq_desc(u32 virq) : handle_irq(handle_bad), state(irqd_disabled | irqd_masked)
{
	data.irq = virq;
	data.desc = this;
	data.chip = &no_chip;
}

int host_irq_depth(uint32_t virq)
{
	irq_desc *desc = desc_of(virq);

	if (!desc)
		return -1;
	const raw_guard guard(desc->lock);
	return static_cast<int>(desc->depth);
}

uint32_t host_irq_count(uint32_t virq)
{
	irq_desc *desc = desc_of(virq);
	uint32_t sum = 0;

	if (!desc)
		return 0;
	for (const std::atomic<u32> &count : desc->counts)
		sum += count.load(std::memory_order_relaxed);
	return sum;
}

void host_disable_irq_nosync(uint32_t virq)
{
	if (irq_desc *desc = desc_of(virq)) {
		const raw_guard guard(desc->lock);
		disable_depth(*desc);
	}
}

void host_enable_irq(uint32_t virq)
{
	if (irq_desc *desc = desc_of(virq)) {
		const raw_guard guard(desc->lock);
		enable_depth(*desc);
	}
}

int host_irq_set_affinity(uint32_t virq, unsigned long cpu_mask)
{
	irq_desc *desc = desc_of(virq);

	if (!desc)
		return -einval;
	const raw_guard guard(desc->lock);
	const int ret = set_affinity(*desc, cpu_mask);
	if (ret == 0)
		desc->set(irqd_affinity_set);
	return ret;
}

unsigned long host_irq_affinity(uint32_t virq)
{
	const irq_desc *desc = desc_of(virq);

	return desc ? desc->data.effective.load() : 0;
}

static std::string interrupt_row(irq_desc &desc)
{
	char text[256];
	std::string row;

	const raw_guard guard(desc.lock);
	const irqaction *action = desc.action.load(std::memory_order_acquire);
	if (!action || action == &chained_action)
		return row;
	snprintf(text, sizeof(text), "%3u: %10u %10u  %8s  %3lu %-8s", desc.data.irq,
		 desc.counts[0].load(), desc.counts[1].load(), desc.chip().name,
		 desc.data.hwirq.load(), desc.settings & irq_level ? "Level" : "Edge");
	row = text;
	for (const char *separator = "  "; action; separator = ", ") {
		row += separator + action->name;
		action = action->next.load(std::memory_order_acquire);
	}
	return row + "\n";
}

char *host_interrupts_text(void)
{
	std::string text = "           CPU0       CPU1\n";

	for (const auto &slot : descs)
		if (irq_desc *desc = slot.load(std::memory_order_acquire))
			text += interrupt_row(*desc);
	return strdup(text.c_str());
}

void *plat_irq_desc_get_handler_data(struct irq_desc *desc)
{
	count_call(service::irq_desc_get_handler_data);
	return desc->handler_data.load(std::memory_order_acquire);
}

struct irq_data *plat_irq_desc_get_irq_data(struct irq_desc *desc)
{
	count_call(service::irq_desc_get_irq_data);
	return &desc->data;
}

struct irq_data *plat_irq_get_irq_data(u32 virq)
{
	long ret;

	if (fails(service::irq_get_irq_data, ret))
		return nullptr;
	irq_desc *desc = desc_of(virq);
	return desc ? &desc->data : nullptr;
}

u32 plat_irq_data_irq(const struct irq_data *data)
{
	count_call(service::irq_data_irq);
	return data->irq;
}

unsigned long plat_irqd_to_hwirq(const struct irq_data *data)
{
	count_call(service::irqd_to_hwirq);
	return data->hwirq;
}

u32 plat_irqd_get_trigger_type(const struct irq_data *data)
{
	count_call(service::irqd_get_trigger_type);
	return static_cast<u32>(data->desc->settings & irq_type_mask);
}

struct irq_chip *plat_irq_desc_get_chip(struct irq_desc *desc)
{
	long ret;

	if (fails(service::irq_desc_get_chip, ret))
		return nullptr;
	return desc->data.chip.load(std::memory_order_acquire);
}

void *plat_irq_data_get_irq_chip_data(struct irq_data *data)
{
	count_call(service::irq_data_get_irq_chip_data);
	return data->chip_data.load(std::memory_order_acquire);
}

int plat_irq_chip_set_affinity(struct irq_data *data, const struct cpumask *mask, bool force)
{
	long injected;

	if (fails(service::irq_chip_set_affinity, injected))
		return static_cast<int>(injected);
	irq_chip *chip = data->chip.load(std::memory_order_acquire);
	if (!chip->irq_set_affinity)
		return -einval;
	if (!lock_try(data->desc->lock))
		return -ebusy;
	const int ret = chip->irq_set_affinity(data, mask, force);
	lock_release(data->desc->lock, "raw_spin_unlock");
	return ret;
}

int plat_irq_data_is_starting(const struct irq_data *data)
{
	count_call(service::irq_data_is_starting);
	return !data->desc->is(irqd_started) && data->desc->depth == 0;
}

int plat_irq_chip_unmask(struct irq_data *data)
{
	long ret;

	if (fails(service::irq_chip_unmask, ret))
		return static_cast<int>(ret);
	irq_chip *chip = data->chip.load(std::memory_order_acquire);
	irq_desc *desc = desc_of(data->irq);
	if (!chip->irq_unmask || !desc)
		return 0;
	const raw_guard guard(desc->lock);
	if (!desc->is(irqd_disabled))
		chip->irq_unmask(data);
	return 0;
}

int plat_irq_data_copy_effective_affinity(struct irq_data *leaf, struct irq_data *parent)
{
	count_call(service::irq_data_copy_effective_affinity);
	const unsigned long cpus = parent->effective.load();

	if (cpus == 0)
		return -einval;
	leaf->effective = cpus;
	return 0;
}

// A descriptor that is found stays while interrupts are off.
int plat_irq_get_depth(u32 virq, u32 *depth)
{
	long injected;

	if (fails(service::irq_get_depth, injected))
		return static_cast<int>(injected);
	const bool flags = irqs_save();
	const irq_desc *desc = desc_of(virq);
	if (desc)
		*depth = desc->depth.load(std::memory_order_relaxed);
	irqs_restore(flags);
	return desc ? 0 : -einval;
}

int plat_irq_get_mapping(u32 virq, const struct irq_domain **domain, u32 *hwirq)
{
	count_call(service::irq_get_mapping);
	const bool flags = irqs_save();
	const irq_desc *desc = desc_of(virq);

	*domain = desc ? desc->data.domain.load(std::memory_order_relaxed) : nullptr;
	*hwirq = desc ? static_cast<u32>(desc->data.hwirq.load(std::memory_order_relaxed)) : 0;
	irqs_restore(flags);
	return *domain ? 0 : -einval;
}

void plat_disable_irq_nosync(u32 virq)
{
	count_call(service::disable_irq_nosync);
	host_disable_irq_nosync(virq);
}

void plat_enable_irq(u32 virq)
{
	count_call(service::enable_irq);
	if (host_irq_depth(virq) > 0) {
		reached(moment::depth_seen);
		host_enable_irq(virq);
	}
	reached(moment::irq_enabled);
}

int plat_generic_handle_irq(u32 virq)
{
	long injected;

	if (fails(service::generic_handle_irq, injected))
		return static_cast<int>(injected);
	const bool flags = irqs_save();
	const int ret = handle_desc(desc_of(virq));
	irqs_restore(flags);
	return ret;
}

void plat_irq_modify_status(u32 virq, unsigned long clear, unsigned long set)
{
	count_call(service::irq_modify_status);
	if (irq_desc *desc = desc_of(virq)) {
		const raw_guard guard(desc->lock);
		desc->settings &= ~(clear & irq_modifiable);
		desc->settings |= set & irq_modifiable;
	}
}

int plat_irq_set_irq_type(u32 virq, u32 type)
{
	long injected;

	if (fails(service::irq_set_irq_type, injected))
		return static_cast<int>(injected);
	irq_desc *desc = desc_of(virq);
	if (!desc)
		return -einval;
	const raw_guard guard(desc->lock);
	return set_trigger(*desc, type);
}

int plat_irq_set_handler_data(u32 virq, void *data)
{
	long injected;

	if (fails(service::irq_set_handler_data, injected))
		return static_cast<int>(injected);
	irq_desc *desc = desc_of(virq);
	if (!desc)
		return -einval;
	const raw_guard guard(desc->lock);
	desc->handler_data.store(data, std::memory_order_release);
	return 0;
}

int plat_irq_set_chip_data(u32 virq, void *data)
{
	long injected;

	if (fails(service::irq_set_chip_data, injected))
		return static_cast<int>(injected);
	irq_desc *desc = desc_of(virq);
	if (!desc)
		return -einval;
	const raw_guard guard(desc->lock);
	desc->data.chip_data.store(data, std::memory_order_release);
	return 0;
}

bool plat_irq_has_action(u32 virq)
{
	count_call(service::irq_has_action);
	const irq_desc *desc = desc_of(virq);

	return desc && desc->action.load(std::memory_order_acquire);
}

void plat_irq_set_activated(u32 virq)
{
	count_call(service::irq_set_activated);
	if (irq_desc *desc = desc_of(virq))
		desc->set(irqd_activated);
}

void plat_irq_set_lasting_lockdep_class(u32 virq)
{
	count_call(service::irq_set_lasting_lockdep_class);
	if (irq_desc *desc = desc_of(virq)) {
		desc->lock.cls = class_desc;
		desc->request_mutex.cls = class_request;
	}
}

void plat_irq_set_lockdep_class(u32 virq, u32 nest_level)
{
	count_call(service::irq_set_lockdep_class);
	if (irq_desc *desc = desc_of(virq)) {
		desc->lock.cls = class_desc_level + deepest_class(nest_level);
		desc->request_mutex.cls = class_request_level + deepest_class(nest_level);
	}
}
