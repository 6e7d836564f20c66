// SPDX-License-Identifier: GPL-2.0
//
// Flow handlers and their installation: how a line is masked, handled and
// unmasked. The actions run without the descriptor lock; the line is marked in
// progress meanwhile, and a second occurrence is dropped, masked.
#include "internal.h"

#include <new>

namespace model {

static int bad_chained(int virq, void * /*cookie*/)
{
	bug("chained irq %d should not call an action", virq);
	return irq_none;
}

irqaction chained_action = {
	.handler = bad_chained,
	.thread_fn = nullptr,
	.flags = 0,
	.name = "chained",
	.cookie = nullptr,
	.irq = 0,
};

// A line without handler is never ended. On the root controller that is the end of its
// CPU, which cpu.cpp finds.
void handle_bad(irq_desc *desc)
{
	desc->count_interrupt();
	kernel_log("unexpected IRQ trap at vector %02x", desc->data.irq);
}

// Without the lock: the list is only changed by those who wait for "in progress" to end.
static void run_actions(irq_desc &desc)
{
	irqaction *action = desc.action.load(std::memory_order_acquire);

	for (; action; action = action->next.load(std::memory_order_acquire)) {
		const int ret = action->handler(static_cast<int>(desc.data.irq), action->cookie);

		if (!current().irqs_off) {
			bug("irq %u handler %s enabled interrupts", desc.data.irq,
			    action->name.c_str());
			(void)irqs_save();
		}
		if (ret == irq_wake_thread)
			wake_action_thread(desc, *action);
	}
}

// The descriptor lock is held, and dropped while the actions run.
static void handle_event(irq_desc &desc)
{
	desc.istate &= ~irqs_pending;
	desc.set(irqd_in_progress);
	lock_release(desc.lock, "raw_spin_unlock");
	run_actions(desc);
	lock_acquire(desc.lock, "raw_spin_lock");
	desc.clear(irqd_in_progress);
}

static bool may_handle(irq_desc &desc)
{
	desc.istate &= ~irqs_replay;
	if (desc.action.load(std::memory_order_relaxed) && !desc.is(irqd_disabled)) {
		desc.count_interrupt();
		return true;
	}
	desc.istate |= irqs_pending;
	return false;
}

// A one-shot line stays masked until its threads have run.
static void unmask_after_event(irq_desc &desc)
{
	if (!desc.is(irqd_disabled) && desc.is(irqd_masked) && !desc.threads_oneshot.load())
		unmask_line(desc);
}

// The lines of the root controller that were requested instead of chained.
void handle_fasteoi(irq_desc *desc)
{
	const raw_guard guard(desc->lock);

	if (!desc->is(irqd_in_progress)) {
		if (may_handle(*desc)) {
			if (desc->istate & irqs_oneshot)
				mask_line(*desc);
			handle_event(*desc);
			unmask_after_event(*desc);
		} else {
			mask_line(*desc);
		}
	}
	desc->chip().irq_eoi(&desc->data);
}

// Leaves, and the requested lines of a chip without end-of-interrupt.
void handle_level(irq_desc *desc)
{
	const raw_guard guard(desc->lock);

	mask_ack_line(*desc);
	if (desc->is(irqd_in_progress) || !may_handle(*desc))
		return;
	handle_event(*desc);
	unmask_after_event(*desc);
}

static void install_chained(irq_desc &desc)
{
	const u32 type = static_cast<u32>(desc.settings & irq_type_mask);

	if (type)
		(void)set_trigger(desc, type);
	desc.settings |= irq_noprobe | irq_norequest | irq_nothread;
	desc.action.store(&chained_action, std::memory_order_release);
	desc.set(irqd_activated);
	startup(desc, true);
}

void set_handler(irq_desc &desc, plat_flow_handler handle, bool is_chained)
{
	if (!handle) {
		if (&desc.chip() != &no_chip)
			mask_ack_line(desc);
		desc.set(irqd_disabled);
		if (is_chained)
			desc.action.store(nullptr, std::memory_order_release);
		desc.depth = 1;
		desc.handle_irq.store(handle_bad, std::memory_order_release);
		return;
	}
	if (&desc.chip() == &no_chip) {
		bug("__irq_set_handler: interrupt %u has no chip yet", desc.data.irq);
		return;
	}
	desc.handle_irq.store(handle, std::memory_order_release);
	if (is_chained)
		install_chained(desc);
}

} // namespace model

using namespace model;

void plat_handle_level_irq(struct irq_desc *desc)
{
	count_call(service::handle_level_irq);
	handle_level(desc);
}

void plat___irq_set_handler(u32 virq, plat_flow_handler handle, int is_chained,
			    const char * /*name*/)
{
	count_call(service::__irq_set_handler);
	if (irq_desc *desc = desc_of(virq)) {
		const raw_guard guard(desc->lock);
		const irqaction *action = desc->action.load(std::memory_order_relaxed);

		if (is_chained && action && (handle || action != &chained_action)) {
			bug("__irq_set_handler: interrupt %u is %s", virq,
			    action == &chained_action ? "chained already" : "requested");
			return;
		}
		set_handler(*desc, handle, is_chained != 0);
	}
}

void plat_irq_set_chip_and_handler_name(u32 virq, struct plat_irq_chip *chip,
					plat_flow_handler handle, const char * /*name*/)
{
	count_call(service::irq_set_chip_and_handler_name);
	if (irq_desc *desc = desc_of(virq)) {
		const raw_guard guard(desc->lock);
		auto *real =
			chip ? std::launder(reinterpret_cast<irq_chip *>(chip->storage)) : &no_chip;

		desc->data.chip.store(real, std::memory_order_release);
		set_handler(*desc, handle, false);
	}
}

static_assert(sizeof(irq_chip) <= sizeof(plat_irq_chip));
static_assert(alignof(irq_chip) <= alignof(plat_irq_chip));

void plat_irq_chip_init(struct plat_irq_chip *chip, const char *name,
			const struct plat_irq_chip_ops *ops)
{
	count_call(service::irq_chip_init);
	auto *real = new (chip->storage) irq_chip{};

	real->name = name;
	real->irq_enable = ops->irq_enable;
	real->irq_disable = ops->irq_disable;
	real->irq_mask = ops->irq_mask;
	real->irq_unmask = ops->irq_unmask;
	real->irq_set_affinity = ops->irq_set_affinity;
	real->affinity_pre_startup = true;
	real->irq_retrigger = ops->irq_retrigger;
}

void plat_chained_irq_enter(struct irq_chip *chip, struct irq_desc *desc)
{
	count_call(service::chained_irq_enter);
	if (!chip->irq_eoi && chip->irq_mask)
		chip->irq_mask(&desc->data);
}

void plat_chained_irq_exit(struct irq_chip *chip, struct irq_desc *desc)
{
	count_call(service::chained_irq_exit);
	if (chip->irq_eoi) {
		chip->irq_eoi(&desc->data);
		return;
	}
	const raw_guard guard(desc->lock);
	if (!desc->is(irqd_disabled) && chip->irq_unmask)
		chip->irq_unmask(&desc->data);
}
