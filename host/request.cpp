// SPDX-License-Identifier: GPL-2.0
//
// Requests of a line, and interrupt threads.
//
// A request without primary handler gets one that only wakes the thread; with
// IRQF_ONESHOT the line stays masked until the thread function has returned. A
// release takes the action off the line, shuts the line down with the last
// one, spins until no handler runs and then stops the thread.
#include "internal.h"

#include <cstdio>

namespace model {

static std::atomic<bool> threads_forced{false};

void requests_reset()
{
	threads_forced = false;
}

static int wake_only(int /*virq*/, void * /*cookie*/)
{
	return irq_wake_thread;
}

void wake_action_thread(irq_desc &desc, irqaction &action)
{
	if (!action.thread) {
		kernel_log("IRQ %u device %s returned IRQ_WAKE_THREAD but no thread function "
			   "available.",
			   action.irq, action.name.c_str());
		return;
	}
	if (action.run_thread.exchange(true, std::memory_order_acq_rel))
		return;
	desc.threads_oneshot.fetch_or(action.thread_mask, std::memory_order_acq_rel);
	desc.threads_active.fetch_add(1, std::memory_order_acq_rel);
	task_wake(action.thread);
}

static bool wait_for_interrupt(irqaction &action)
{
	for (;;) {
		task_set_interruptible();
		if (action.run_thread.exchange(false, std::memory_order_acq_rel)) {
			task_set_running();
			return true;
		}
		if (task_should_stop()) {
			task_set_running();
			return false;
		}
		task_schedule();
	}
}

// False: the flow handler has not returned yet, and would leave the line masked for good.
static bool try_finalize_oneshot(irq_desc &desc, irqaction &action)
{
	const raw_guard guard(desc.lock);

	if (desc.is(irqd_in_progress))
		return false;
	if (action.run_thread.load(std::memory_order_acquire))
		return true;
	desc.threads_oneshot.fetch_and(~action.thread_mask, std::memory_order_acq_rel);
	if (!desc.threads_oneshot.load() && !desc.is(irqd_disabled) && desc.is(irqd_masked))
		unmask_line(desc);
	return true;
}

static void finalize_oneshot(irq_desc &desc, irqaction &action)
{
	if (action.thread_mask)
		wait_until([&] { return try_finalize_oneshot(desc, action); },
			   "interrupt thread waiting for its handler");
}

static int irq_thread(void *data)
{
	auto &action = *static_cast<irqaction *>(data);
	irq_desc &desc = *desc_of(action.irq);

	action.ready.store(true, std::memory_order_release);
	while (wait_for_interrupt(action)) {
		current().bottom_halves_off = action.thread_forced;
		action.thread_fn(static_cast<int>(action.irq), action.cookie);
		current().bottom_halves_off = false;
		finalize_oneshot(desc, action);
		desc.threads_active.fetch_sub(1, std::memory_order_acq_rel);
	}
	return 0;
}

static bool handler_runs(irq_desc &desc)
{
	const raw_guard guard(desc.lock);

	return desc.is(irqd_in_progress) || (&desc.chip() == line_chip() && line_active(desc.data));
}

static void synchronize_hardirq(irq_desc &desc)
{
	wait_until([&] { return !handler_runs(desc); }, "synchronize_hardirq");
}

void synchronize(irq_desc &desc)
{
	synchronize_hardirq(desc);
	wait_until([&] { return desc.threads_active.load(std::memory_order_acquire) == 0; },
		   "synchronize_irq");
}

static unsigned long free_mask_bit(unsigned long used)
{
	return ~used & (used + 1);
}

// Under the descriptor lock. Finds the end of the list, or refuses to share the line.
static int find_place(irq_desc &desc, irqaction &action, std::atomic<irqaction *> *&place)
{
	unsigned long used = 0;
	const irqaction *old = desc.action.load();

	place = &desc.action;
	if (old && (!(old->flags & action.flags & irqf_shared) ||
		    (old->flags ^ action.flags) & irqf_oneshot)) {
		kernel_log("genirq: Flags mismatch irq %u. %08lx (%s) vs. %08lx (%s)", action.irq,
			   action.flags, action.name.c_str(), old->flags, old->name.c_str());
		return -ebusy;
	}
	while (irqaction *at = place->load()) {
		used |= at->thread_mask;
		place = &at->next;
	}
	if (action.flags & irqf_oneshot) {
		action.thread_mask = free_mask_bit(used);
	} else if (action.handler == wake_only) {
		kernel_log("genirq: Threaded irq requested with handler=NULL and !ONESHOT for %s "
			   "(irq %u)",
			   action.name.c_str(), action.irq);
		return -einval;
	}
	return 0;
}

static int install(irq_desc &desc, irqaction &action)
{
	const sleeping_guard request(desc.request_mutex, "request_irq");
	const raw_guard guard(desc.lock);
	std::atomic<irqaction *> *place;

	const int ret = find_place(desc, action, place);
	if (ret)
		return ret;
	if (place == &desc.action) {
		desc.istate &= ~irqs_oneshot;
		desc.clear(irqd_in_progress);
		if (action.flags & irqf_oneshot)
			desc.istate |= irqs_oneshot;
		desc.set(irqd_activated);
		if (action.flags & irqf_no_autoen || desc.settings & irq_noautoen)
			desc.depth = 1;
		else
			startup(desc, true);
	}
	place->store(&action, std::memory_order_release);
	return 0;
}

static void stop_thread(irqaction &action)
{
	if (action.thread)
		task_stop(action.thread);
	action.thread = nullptr;
}

static void force_thread(const irq_desc &desc, irqaction &action)
{
	if (!threads_forced || desc.settings & irq_nothread || action.handler == wake_only ||
	    action.flags & (irqf_no_thread | irqf_oneshot))
		return;
	action.flags |= irqf_oneshot;
	action.thread_forced = true;
	action.thread_fn = action.handler;
	action.handler = wake_only;
}

static int setup(irq_desc &desc, irqaction &action)
{
	char name[64];

	if (&desc.chip() == &no_chip)
		return -enosys;
	force_thread(desc, action);
	if (action.thread_fn) {
		snprintf(name, sizeof(name), "irq/%u-%s", action.irq, action.name.c_str());
		action.thread = task_create(irq_thread, &action, name);
	}
	const int ret = install(desc, action);
	if (ret) {
		stop_thread(action);
		return ret;
	}
	if (action.thread) {
		task_wake(action.thread);
		wait_until([&] { return action.ready.load(std::memory_order_acquire); },
			   "interrupt thread starting");
	}
	return 0;
}

static bool may_request(irq_desc &desc)
{
	const raw_guard guard(desc.lock);

	return !(desc.settings & irq_norequest);
}

static irqaction *unlink(irq_desc &desc, void *cookie)
{
	const raw_guard guard(desc.lock);
	std::atomic<irqaction *> *place = &desc.action;
	irqaction *action = place->load();

	while (action && (action == &chained_action || action->cookie != cookie)) {
		place = &action->next;
		action = place->load();
	}
	if (!action)
		return nullptr;
	place->store(action->next.load(), std::memory_order_release);
	if (!desc.action.load()) {
		desc.settings &= ~irq_disable_unlazy;
		shutdown(desc);
	}
	return action;
}

static int request(u32 virq, plat_irq_handler handler, plat_irq_handler thread_fn,
		   unsigned long flags, const char *name, void *cookie)
{
	irq_desc *desc = desc_of(virq);

	if (!desc || (flags & irqf_shared && (!cookie || flags & irqf_no_autoen)))
		return -einval;
	if (!may_request(*desc) || (!handler && !thread_fn))
		return -einval;
	if (!might_sleep("request_threaded_irq"))
		return -einval;

	auto *action = new irqaction{
		.handler = handler ? handler : wake_only,
		.thread_fn = thread_fn,
		.flags = flags,
		.name = name,
		.cookie = cookie,
		.irq = virq,
	};
	const int ret = setup(*desc, *action);
	if (ret)
		delete action;
	return ret;
}

} // namespace model

using namespace model;

void host_force_irq_threads(int forced)
{
	threads_forced = forced != 0;
}

int host_irq_request(uint32_t virq, int (*handler)(int virq, void *cookie), const char *name,
		     void *cookie)
{
	return request(virq, handler, nullptr, irqf_shared, name, cookie);
}

int plat_request_threaded_irq(u32 virq, plat_irq_handler handler, plat_irq_handler thread_fn,
			      unsigned long flags, const char *name, void *cookie)
{
	long injected;

	if (fails(service::request_threaded_irq, injected))
		return static_cast<int>(injected);
	return request(virq, handler, thread_fn, flags, name, cookie);
}

void host_irq_free(uint32_t virq, void *cookie)
{
	irq_desc *desc = desc_of(virq);

	if (!desc || !might_sleep("free_irq"))
		return;
	const sleeping_guard guard(desc->request_mutex, "free_irq");
	irqaction *action = unlink(*desc, cookie);
	if (!action) {
		bug("Trying to free already-free IRQ %u", virq);
		return;
	}
	synchronize_hardirq(*desc);
	stop_thread(*action);
	delete action;
}

void plat_free_irq(u32 virq, void *cookie)
{
	count_call(service::free_irq);
	host_irq_free(virq, cookie);
}
