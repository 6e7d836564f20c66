// SPDX-License-Identifier: GPL-2.0
/* Interrupt descriptors, chips, flows, line state and requests. */
#include <linux/build_bug.h>
#include <linux/errno.h>
#include <linux/interrupt.h>
#include <linux/irq.h>
#include <linux/irqchip/chained_irq.h>
#include <linux/irqdesc.h>
#include <linux/lockdep.h>
#include <linux/minmax.h>
#include <linux/rcupdate.h>
#include <linux/slab.h>

#include "platform/kernel_api.h"

static_assert(sizeof(struct irq_chip) <= sizeof(struct plat_irq_chip));
static_assert(__alignof__(struct irq_chip) <= __alignof__(struct plat_irq_chip));

static struct lock_class_key desc_lock_keys[PLAT_NEST_LEVELS];
static struct lock_class_key request_mutex_keys[PLAT_NEST_LEVELS];

noinline void *plat_irq_desc_get_handler_data(struct irq_desc *desc)
{
	return irq_desc_get_handler_data(desc);
}

noinline struct irq_data *plat_irq_desc_get_irq_data(struct irq_desc *desc)
{
	return irq_desc_get_irq_data(desc);
}

noinline struct irq_data *plat_irq_get_irq_data(u32 virq)
{
	return irq_get_irq_data(virq);
}

noinline u32 plat_irq_data_irq(const struct irq_data *data)
{
	return data->irq;
}

noinline unsigned long plat_irqd_to_hwirq(const struct irq_data *data)
{
	return data->hwirq;
}

noinline u32 plat_irqd_get_trigger_type(const struct irq_data *data)
{
	return irqd_get_trigger_type((struct irq_data *)data);
}

noinline struct irq_chip *plat_irq_desc_get_chip(struct irq_desc *desc)
{
	return irq_desc_get_chip(desc);
}

noinline void *plat_irq_data_get_irq_chip_data(struct irq_data *data)
{
	return irq_data_get_irq_chip_data(data);
}

#define DESC_LOCK_TRIES 1000

/* Interrupts are off. Others hold the lock for a few instructions, or wait for the caller. */
static bool try_lock_desc(struct irq_desc *desc)
{
	int tries;

	for (tries = 0; tries < DESC_LOCK_TRIES; tries++) {
		if (raw_spin_trylock(&desc->lock))
			return true;
		cpu_relax();
	}
	return false;
}

noinline int plat_irq_chip_set_affinity(struct irq_data *data, const struct cpumask *mask,
					bool force)
{
	struct irq_desc *desc = irq_data_to_desc(data);
	int ret;

	if (!data->chip || !data->chip->irq_set_affinity)
		return -EINVAL;
	if (!try_lock_desc(desc))
		return -EBUSY;
	ret = data->chip->irq_set_affinity(data, mask, force);
	raw_spin_unlock(&desc->lock);
	return ret;
}

/* A start resets the depth first, then sets the affinity (IRQCHIP_AFFINITY_PRE_STARTUP). */
noinline int plat_irq_data_is_starting(const struct irq_data *data)
{
	return !irqd_is_started((struct irq_data *)data) &&
	       irq_data_to_desc((struct irq_data *)data)->depth == 0;
}

static void unmask_unless_disabled(struct irq_chip *chip, struct irq_desc *desc)
{
	unsigned long flags;

	raw_spin_lock_irqsave(&desc->lock, flags);
	if (!irqd_irq_disabled(&desc->irq_data))
		chip->irq_unmask(&desc->irq_data);
	raw_spin_unlock_irqrestore(&desc->lock, flags);
}

noinline int plat_irq_chip_unmask(struct irq_data *data)
{
	if (data->chip && data->chip->irq_unmask)
		unmask_unless_disabled(data->chip, irq_data_to_desc(data));
	return 0;
}

noinline int plat_irq_data_copy_effective_affinity(struct irq_data *leaf, struct irq_data *parent)
{
	const struct cpumask *mask = irq_data_get_effective_affinity_mask(parent);

	if (cpumask_empty(mask))
		return -EINVAL;
	irq_data_update_effective_affinity(leaf, mask);
	return 0;
}

noinline void plat_chained_irq_enter(struct irq_chip *chip, struct irq_desc *desc)
{
	chained_irq_enter(chip, desc);
}

noinline void plat_chained_irq_exit(struct irq_chip *chip, struct irq_desc *desc)
{
	if (chip->irq_eoi)
		chained_irq_exit(chip, desc);
	else
		unmask_unless_disabled(chip, desc);
}

noinline void plat_disable_irq_nosync(u32 virq)
{
	disable_irq_nosync(virq);
}

/* Descriptors are freed after a grace period, so one that is found stays while it is looked at. */
static int disable_depth(u32 virq, u32 *depth)
{
	struct irq_data *data;
	int ret = -EINVAL;

	rcu_read_lock();
	data = irq_get_irq_data(virq);
	if (data) {
		*depth = READ_ONCE(irq_data_to_desc(data)->depth);
		ret = 0;
	}
	rcu_read_unlock();
	return ret;
}

noinline int plat_irq_get_depth(u32 virq, u32 *depth)
{
	return disable_depth(virq, depth);
}

noinline int plat_irq_get_mapping(u32 virq, const struct irq_domain **domain, u32 *hwirq)
{
	struct irq_data *data;

	rcu_read_lock();
	data = irq_get_irq_data(virq);
	*domain = data ? READ_ONCE(data->domain) : NULL;
	*hwirq = data ? (u32)READ_ONCE(data->hwirq) : 0;
	rcu_read_unlock();
	return *domain ? 0 : -EINVAL;
}

noinline void plat_enable_irq(u32 virq)
{
	u32 depth;

	if (disable_depth(virq, &depth) == 0 && depth > 0)
		enable_irq(virq);
}

noinline int plat_generic_handle_irq(u32 virq)
{
	return generic_handle_irq_safe(virq);
}

noinline void plat_irq_modify_status(u32 virq, unsigned long clear, unsigned long set)
{
	irq_modify_status(virq, clear, set);
}

noinline int plat_irq_set_irq_type(u32 virq, u32 type)
{
	return irq_set_irq_type(virq, type);
}

noinline int plat_irq_set_handler_data(u32 virq, void *data)
{
	return irq_set_handler_data(virq, data);
}

noinline int plat_irq_set_chip_data(u32 virq, void *data)
{
	return irq_set_chip_data(virq, data);
}

noinline void plat_irq_set_chip_and_handler_name(u32 virq, struct plat_irq_chip *chip,
						 plat_flow_handler handle, const char *name)
{
	irq_set_chip_and_handler_name(virq, (struct irq_chip *)chip, handle, name);
}

noinline void plat___irq_set_handler(u32 virq, plat_flow_handler handle, int is_chained,
				     const char *name)
{
	__irq_set_handler(virq, handle, is_chained, name);
}

noinline void plat_handle_level_irq(struct irq_desc *desc)
{
	handle_level_irq(desc);
}

noinline void plat_irq_set_activated(u32 virq)
{
	struct irq_data *data = irq_get_irq_data(virq);

	if (data)
		irqd_set_activated(data);
}

noinline void plat_irq_set_lockdep_class(u32 virq, u32 nest_level)
{
	u32 level = min_t(u32, nest_level, PLAT_NEST_LEVELS - 1);

	irq_set_lockdep_class(virq, &desc_lock_keys[level], &request_mutex_keys[level]);
}

#ifdef CONFIG_LOCKDEP
/* Made once and never freed: the lines that have them are looked at as long as the kernel runs. */
struct lasting_keys {
	struct lock_class_key desc_lock, request_mutex;
};

static struct lasting_keys *make_lasting_keys(void)
{
	struct lasting_keys *keys = kzalloc(sizeof(*keys), GFP_KERNEL);

	if (!keys)
		return NULL;
	lockdep_register_key(&keys->desc_lock);
	lockdep_register_key(&keys->request_mutex);
	return keys;
}

noinline void plat_irq_set_lasting_lockdep_class(u32 virq)
{
	static struct lasting_keys *keys;

	if (!keys)
		keys = make_lasting_keys();
	if (keys)
		irq_set_lockdep_class(virq, &keys->desc_lock, &keys->request_mutex);
}
#else
noinline void plat_irq_set_lasting_lockdep_class(u32 virq) {}
#endif

noinline bool plat_irq_has_action(u32 virq)
{
	return irq_has_action(virq);
}

/* The kernel's result type is an enumeration of the size of an int, so the handlers fit as they
 * are. */
static_assert(sizeof(irqreturn_t) == sizeof(int) && IRQ_HANDLED == 1);

noinline int plat_request_threaded_irq(u32 virq, plat_irq_handler handler,
				       plat_irq_handler thread_fn, unsigned long flags,
				       const char *name, void *cookie)
{
	return request_threaded_irq(virq, (irq_handler_t)handler, (irq_handler_t)thread_fn, flags,
				    name, cookie);
}

noinline void plat_free_irq(u32 virq, void *cookie)
{
	free_irq(virq, cookie);
}

noinline void plat_irq_chip_init(struct plat_irq_chip *chip, const char *name,
				 const struct plat_irq_chip_ops *ops)
{
	*(struct irq_chip *)chip = (struct irq_chip){
		.name = name,
		.irq_enable = ops->irq_enable,
		.irq_disable = ops->irq_disable,
		.irq_mask = ops->irq_mask,
		.irq_unmask = ops->irq_unmask,
		.irq_set_affinity = ops->irq_set_affinity,
		.flags = IRQCHIP_AFFINITY_PRE_STARTUP,
		.irq_retrigger = ops->irq_retrigger,
	};
}
