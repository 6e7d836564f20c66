// SPDX-License-Identifier: GPL-2.0
/*
 * Locks, the read-side section, and the context a caller runs in.
 *
 * The kernel takes a lock's class for lock checking from the place of its
 * initialisation. All locks of the driver are initialised here, so each kind
 * (and, for locks that nest, each level) gets a key of its own, or nesting two
 * kinds would look like recursion.
 */
#include <linux/build_bug.h>
#include <linux/delay.h>
#include <linux/irqflags.h>
#include <linux/minmax.h>
#include <linux/mutex.h>
#include <linux/preempt.h>
#include <linux/rcupdate.h>
#include <linux/spinlock.h>
#include <linux/srcu.h>

#include "platform/kernel_api.h"

static_assert(sizeof(struct mutex) == sizeof(struct plat_mutex));
static_assert(__alignof__(struct mutex) == __alignof__(struct plat_mutex));
static_assert(sizeof(raw_spinlock_t) == sizeof(struct plat_raw_spinlock));
static_assert(__alignof__(raw_spinlock_t) == __alignof__(struct plat_raw_spinlock));

static struct lock_class_key mutex_keys[PLAT_MUTEX_KINDS];
static const char *const mutex_names[PLAT_MUTEX_KINDS] = {
	[PLAT_MUTEX_DRIVER] = "&intr_driver_lock",
	[PLAT_MUTEX_LEAF] = "&irq_info->lock",
	[PLAT_MUTEX_PID_LIST] = "&irq_info->pid_list_lock",
};

static struct lock_class_key spin_keys[PLAT_SPIN_KINDS][PLAT_NEST_LEVELS];
static const char *const spin_names[PLAT_SPIN_KINDS] = {
	[PLAT_SPIN_LEAF_ENABLE] = "&irq_info->enable_lock",
	[PLAT_SPIN_PARENT_ENABLE] = "&combiner->parent_lock",
};

DEFINE_STATIC_SRCU(combiner_list_srcu);

noinline void plat_mutex_init(struct plat_mutex *lock, enum plat_mutex_kind kind)
{
	__mutex_init((struct mutex *)lock, mutex_names[kind], &mutex_keys[kind]);
}

noinline void plat_mutex_lock(struct plat_mutex *lock)
{
	mutex_lock((struct mutex *)lock);
}

noinline void plat_mutex_unlock(struct plat_mutex *lock)
{
	mutex_unlock((struct mutex *)lock);
}

noinline void plat_raw_spin_lock_init(struct plat_raw_spinlock *lock, enum plat_spin_kind kind,
				      u32 nest_level)
{
	u32 level = min_t(u32, nest_level, PLAT_NEST_LEVELS - 1);

	raw_spin_lock_init((raw_spinlock_t *)lock);
	lockdep_set_class_and_name((raw_spinlock_t *)lock, &spin_keys[kind][level],
				   spin_names[kind]);
}

noinline unsigned long plat_raw_spin_lock_irqsave(struct plat_raw_spinlock *lock)
{
	unsigned long flags;

	raw_spin_lock_irqsave((raw_spinlock_t *)lock, flags);
	return flags;
}

noinline void plat_raw_spin_unlock_irqrestore(struct plat_raw_spinlock *lock, unsigned long flags)
{
	raw_spin_unlock_irqrestore((raw_spinlock_t *)lock, flags);
}

noinline int plat_srcu_read_lock(void)
{
	return srcu_read_lock(&combiner_list_srcu);
}

noinline void plat_srcu_read_unlock(int token)
{
	srcu_read_unlock(&combiner_list_srcu, token);
}

noinline void plat_synchronize_srcu(void)
{
	synchronize_srcu(&combiner_list_srcu);
}

/*
 * Somebody waits, and a wait is short this way: the CPUs that run kernel code are asked
 * at once, by an interrupt of a few hundred instructions, instead of at their next tick
 * or two. Where that disturbs too much (a real-time kernel, rcupdate.rcu_normal) the
 * kernel makes an ordinary wait of it by itself.
 */
noinline void plat_synchronize_rcu(void)
{
	synchronize_rcu_expedited();
}

noinline int plat_in_task(void)
{
	return in_task();
}

noinline int plat_irqs_disabled(void)
{
	return irqs_disabled();
}

noinline void plat_local_irq_enable(void)
{
	local_irq_enable();
}

noinline void plat_local_irq_disable(void)
{
	local_irq_disable();
}

noinline void plat_msleep(u32 milliseconds)
{
	msleep(milliseconds);
}
