// SPDX-License-Identifier: GPL-2.0
//
// Context of each thread, and waiting for readers.
//
// A region with interrupts off, and a sleepable read-side section, is an odd
// value in the thread's own slot. Whoever waits looks at every slot once and
// waits for the odd ones to change. Entering orders nothing for the thread
// checker and leaving only releases, so that readers never order each other.
#include "internal.h"

#include <cstdio>
#include <pthread.h>
#include <vector>

namespace model {

// Threads outlive main()'s static objects; never destroyed on purpose.
static std::mutex &slots_lock = *new std::mutex;
static std::vector<std::shared_ptr<reader_slot>> &slots =
	*new std::vector<std::shared_ptr<reader_slot>>;

context::context() : slot(std::make_shared<reader_slot>())
{
	const std::lock_guard guard(slots_lock);
	slots.push_back(slot);
}

context::~context()
{
	const std::lock_guard guard(slots_lock);
	std::erase(slots, slot);
}

context &current()
{
	static thread_local context self;

	return self;
}

static void section_enter(std::atomic<u64> &section)
{
	section.store(section.load(std::memory_order_relaxed) + 1, std::memory_order_release);
	full_barrier();
}

static void section_leave(std::atomic<u64> &section)
{
	section.store(section.load(std::memory_order_relaxed) + 1, std::memory_order_release);
}

void wait_for_readers(std::atomic<u64> reader_slot::*section, const char *what)
{
	std::vector<std::shared_ptr<reader_slot>> seen;

	full_barrier();
	{
		const std::lock_guard guard(slots_lock);
		seen = slots;
	}
	for (const std::shared_ptr<reader_slot> &slot : seen) {
		std::atomic<u64> &word = (*slot).*section;
		const u64 value = word.load(std::memory_order_acquire);

		if (value % 2)
			wait_until([&] { return word.load(std::memory_order_acquire) != value; },
				   what);
	}
}

static void set_irqs(context &self, bool off)
{
	if (self.irqs_off == off)
		return;
	if (off)
		section_enter(self.slot->irqs_off);
	else
		section_leave(self.slot->irqs_off);
	self.irqs_off = off;
}

bool irqs_save()
{
	context &self = current();
	const bool were_off = self.irqs_off;

	set_irqs(self, true);
	return were_off;
}

void irqs_restore(bool were_off)
{
	set_irqs(current(), were_off);
}

bool might_sleep(const char *what)
{
	const context &self = current();

	if (!self.hardirq && !self.softirq && !self.irqs_off && !self.bottom_halves_off)
		return true;
	bug("%s: sleeping function called with %s", what,
	    self.bottom_halves_off ? "bottom halves off" : "interrupts off or from an interrupt");
	return false;
}

hardirq_scope::hardirq_scope(u32 cpu)
{
	context &self = current();

	flags_ = irqs_save();
	self.cpu = cpu;
	self.hardirq++;
}

hardirq_scope::~hardirq_scope()
{
	current().hardirq--;
	irqs_restore(flags_);
}

} // namespace model

using namespace model;

void host_might_sleep(const char *what)
{
	might_sleep(what);
}

int host_irqs_disabled(void)
{
	return current().irqs_off;
}

void host_context(char *buffer, size_t size)
{
	const context &self = current();
	char name[16] = "";

	if (self.hardirq) {
		snprintf(buffer, size, "hardirq");
	} else if (self.softirq) {
		snprintf(buffer, size, "softirq");
	} else {
		pthread_getname_np(pthread_self(), name, sizeof(name));
		snprintf(buffer, size, "thread:%s", name);
	}
}

int plat_srcu_read_lock(void)
{
	context &self = current();

	count_call(service::srcu_read_lock);
	if (self.srcu_depth++ == 0)
		section_enter(self.slot->srcu);
	return static_cast<int>(self.srcu_depth);
}

void plat_srcu_read_unlock(int token)
{
	context &self = current();

	count_call(service::srcu_read_unlock);
	if (token <= 0 || static_cast<u32>(token) != self.srcu_depth) {
		bug("srcu_read_unlock: token %d at depth %u", token, self.srcu_depth);
		return;
	}
	if (--self.srcu_depth == 0)
		section_leave(self.slot->srcu);
}

void plat_synchronize_srcu(void)
{
	count_call(service::synchronize_srcu);
	if (!might_sleep("synchronize_srcu"))
		return;
	if (current().srcu_depth) {
		bug("synchronize_srcu inside a read-side section would wait for itself");
		return;
	}
	wait_for_readers(&reader_slot::srcu, "synchronize_srcu");
}

void plat_synchronize_rcu(void)
{
	count_call(service::synchronize_rcu);
	if (might_sleep("synchronize_rcu"))
		wait_for_readers(&reader_slot::irqs_off, "synchronize_rcu");
}

int plat_in_task(void)
{
	count_call(service::in_task);
	return !current().hardirq && !current().softirq;
}

int plat_irqs_disabled(void)
{
	count_call(service::irqs_disabled);
	return current().irqs_off;
}

void plat_local_irq_enable(void)
{
	context &self = current();

	count_call(service::local_irq_enable);
	if (self.hardirq || self.held_count) {
		bug("local_irq_enable %s", self.hardirq ? "in a hard interrupt" : "under a lock");
		return;
	}
	set_irqs(self, false);
}

void plat_local_irq_disable(void)
{
	count_call(service::local_irq_disable);
	set_irqs(current(), true);
}

void plat_msleep(u32 milliseconds)
{
	count_call(service::msleep);
	if (might_sleep("msleep"))
		std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}
