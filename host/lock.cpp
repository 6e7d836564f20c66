// SPDX-License-Identifier: GPL-2.0
//
// Locks, with the kernel's lock checking in small: classes instead of locks
// are put in order, so that one run in the good order and one in the bad are
// enough, whether or not they meet.
#include "internal.h"

#include <algorithm>
#include <new>

namespace model {

static std::atomic<bool> before[class_count][class_count]; // [a][b]: b was taken under a
static std::mutex before_lock;

u32 deepest_class(u32 nest_level)
{
	return std::min<u32>(nest_level, PLAT_NEST_LEVELS - 1);
}

static std::string class_name(u32 cls)
{
	static const char *const mutexes[] = {"driver mutex", "leaf mutex",
					      "&irq_info->pid_list_lock"};
	static const char *const spins[] = {"leaf enable lock", "parent enable lock"};
	static_assert(std::size(mutexes) == PLAT_MUTEX_KINDS);
	static_assert(std::size(spins) == PLAT_SPIN_KINDS);

	if (cls >= class_domain)
		return "irq_domain_mutex";
	if (cls >= class_affinity)
		return "tmp_mask_lock";
	if (cls >= class_request_level)
		return "request_mutex/" + std::to_string(cls - class_request_level);
	if (cls >= class_request)
		return "request_mutex";
	if (cls >= class_desc_level)
		return "irq_desc lock/" + std::to_string(cls - class_desc_level);
	if (cls >= class_desc)
		return "irq_desc lock";
	if (cls >= class_spin)
		return std::string(spins[(cls - class_spin) / PLAT_NEST_LEVELS]) + "/" +
		       std::to_string((cls - class_spin) % PLAT_NEST_LEVELS);
	return mutexes[cls - class_mutex];
}

static bool leads_to(u32 from, u32 to, bool (&seen)[class_count])
{
	if (from == to)
		return true;
	seen[from] = true;
	for (u32 next = 0; next < class_count; next++)
		if (before[from][next].load(std::memory_order_relaxed) && !seen[next] &&
		    leads_to(next, to, seen))
			return true;
	return false;
}

static void check_order(u32 outer, u32 inner, const char *what)
{
	if (outer == inner) {
		bug("%s: %s taken under another one of its class", what, class_name(inner).c_str());
		return;
	}
	if (before[outer][inner].load(std::memory_order_relaxed))
		return;

	bool seen[class_count] = {};
	bool circular;
	{
		const std::lock_guard guard(before_lock);
		circular = leads_to(inner, outer, seen);
		if (!circular)
			before[outer][inner].store(true, std::memory_order_relaxed);
	}
	if (circular)
		bug("%s: lock order: %s taken under %s, which is taken under it elsewhere", what,
		    class_name(inner).c_str(), class_name(outer).c_str());
}

static void note_held(context &self, lock &target)
{
	target.owner.store(&self, std::memory_order_relaxed);
	self.held[self.held_count++] = &target;
}

bool lock_acquire(lock &target, const char *what)
{
	context &self = current();
	const u32 cls = target.cls.load(std::memory_order_relaxed);

	if (target.owner.load(std::memory_order_relaxed) == &self) {
		bug("%s: %s locked again by its owner", what, class_name(cls).c_str());
		return false;
	}
	for (u32 index = 0; index < self.held_count; index++)
		check_order(self.held[index]->cls.load(std::memory_order_relaxed), cls, what);
	if (self.held_count == context::max_held) {
		bug("%s: more than %u locks held", what, context::max_held);
		return false;
	}
	target.mutex.lock();
	note_held(self, target);
	return true;
}

bool lock_try(lock &target)
{
	context &self = current();

	if (target.owner.load(std::memory_order_relaxed) == &self ||
	    self.held_count == context::max_held)
		return false;
	for (u32 tries = 0; tries < 1000; tries++) {
		if (target.mutex.try_lock()) {
			note_held(self, target);
			return true;
		}
		std::this_thread::yield();
	}
	return false;
}

bool lock_release(lock &target, const char *what)
{
	context &self = current();

	if (target.owner.load(std::memory_order_relaxed) != &self) {
		bug("%s: %s unlocked by a thread that does not hold it", what,
		    class_name(target.cls).c_str());
		return false;
	}
	u32 index = self.held_count - 1;
	while (self.held[index] != &target)
		index--;
	for (self.held_count--; index < self.held_count; index++)
		self.held[index] = self.held[index + 1];
	target.owner.store(nullptr, std::memory_order_relaxed);
	target.mutex.unlock();
	return true;
}

void check_locks_freed(const void *start, size_t size)
{
	const context &self = current();
	const auto first = reinterpret_cast<uintptr_t>(start);

	for (u32 index = 0; index < self.held_count; index++)
		if (reinterpret_cast<uintptr_t>(self.held[index]) - first < size)
			bug("kfree: memory holds a locked %s",
			    class_name(self.held[index]->cls).c_str());
}

sleeping_guard::sleeping_guard(lock &target, const char *what)
	: target_(target), taken_(might_sleep(what) && lock_acquire(target, what))
{
}

sleeping_guard::~sleeping_guard()
{
	if (taken_)
		lock_release(target_, "mutex_unlock");
}

raw_guard::raw_guard(lock &target) : target_(target), flags_(irqs_save())
{
	taken_ = lock_acquire(target, "raw_spin_lock_irqsave");
}

raw_guard::~raw_guard()
{
	if (taken_)
		lock_release(target_, "raw_spin_unlock_irqrestore");
	irqs_restore(flags_);
}

// What lies in the storage of plat_mutex and plat_raw_spinlock.
struct embedded_lock {
	static constexpr u32 initialised = 0x10c4ed;

	explicit embedded_lock(u32 cls) : base(cls) {}

	u32 magic = initialised;
	lock base;
};
static_assert(sizeof(embedded_lock) == sizeof(plat_mutex));
static_assert(sizeof(embedded_lock) == sizeof(plat_raw_spinlock));
static_assert(alignof(embedded_lock) == alignof(plat_mutex));
static_assert(alignof(embedded_lock) == alignof(plat_raw_spinlock));

static lock *lock_in(void *storage, const char *what)
{
	auto *embedded = std::launder(reinterpret_cast<embedded_lock *>(storage));

	if (embedded->magic == embedded_lock::initialised)
		return &embedded->base;
	bug("%s: the lock was never initialised", what);
	return nullptr;
}

} // namespace model

using namespace model;

void plat_mutex_init(struct plat_mutex *target, enum plat_mutex_kind kind)
{
	count_call(service::mutex_init);
	new (target->storage) embedded_lock(class_mutex + static_cast<u32>(kind));
}

void plat_mutex_lock(struct plat_mutex *target)
{
	count_call(service::mutex_lock);
	lock *base = lock_in(target->storage, "mutex_lock");

	if (base && might_sleep("mutex_lock"))
		lock_acquire(*base, "mutex_lock");
}

void plat_mutex_unlock(struct plat_mutex *target)
{
	count_call(service::mutex_unlock);
	if (lock *base = lock_in(target->storage, "mutex_unlock"))
		lock_release(*base, "mutex_unlock");
}

void plat_raw_spin_lock_init(struct plat_raw_spinlock *target, enum plat_spin_kind kind,
			     u32 nest_level)
{
	count_call(service::raw_spin_lock_init);
	new (target->storage)
		embedded_lock(class_spin + kind * PLAT_NEST_LEVELS + deepest_class(nest_level));
}

unsigned long plat_raw_spin_lock_irqsave(struct plat_raw_spinlock *target)
{
	count_call(service::raw_spin_lock_irqsave);
	const bool flags = irqs_save();

	if (lock *base = lock_in(target->storage, "raw_spin_lock_irqsave"))
		lock_acquire(*base, "raw_spin_lock_irqsave");
	return flags;
}

void plat_raw_spin_unlock_irqrestore(struct plat_raw_spinlock *target, unsigned long flags)
{
	count_call(service::raw_spin_unlock_irqrestore);
	if (lock *base = lock_in(target->storage, "raw_spin_unlock_irqrestore"))
		lock_release(*base, "raw_spin_unlock_irqrestore");
	irqs_restore(flags != 0);
}
