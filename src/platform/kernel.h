// SPDX-License-Identifier: GPL-2.0
//
// The kernel's services under the kernel's names, for the driver. What each
// one promises stands in kernel_api.h; nothing here adds behaviour.
#ifndef INTR_PLATFORM_KERNEL_H
#define INTR_PLATFORM_KERNEL_H

#include "platform/kernel_api.h"

extern "C" {
char *strstr(const char *text, const char *wanted);
}

// Result codes: the kernel's errno values.
inline constexpr int EINVAL = 22;
inline constexpr int ENOMEM = 12;
inline constexpr int EFAULT = 14;

// Values the kernel fixes (linux/irq.h, linux/interrupt.h).
inline constexpr unsigned long IRQF_SHARED = 0x80;
inline constexpr unsigned long IRQF_ONESHOT = 0x2000;
inline constexpr unsigned long IRQF_NO_THREAD = 0x10000;
inline constexpr unsigned long IRQ_LEVEL = 1ul << 8;
inline constexpr unsigned long IRQ_NOPROBE = 1ul << 10;
inline constexpr unsigned long IRQ_NOREQUEST = 1ul << 11;
inline constexpr unsigned long IRQ_DISABLE_UNLAZY = 1ul << 19;
inline constexpr int IRQ_HANDLED = 1;
inline constexpr int NUMA_NO_NODE = -1;

// A pointer in the last page is an error value, as the kernel returns them.
template <typename T> [[nodiscard]] inline bool IS_ERR(T *pointer)
{
	return reinterpret_cast<unsigned long>(pointer) >= static_cast<unsigned long>(-4095L);
}

// A zeroed object, or null. Objects of the driver are plain records for which
// all zero is a valid start.
template <typename T> [[nodiscard]] inline T *kzalloc()
{
	return static_cast<T *>(plat_kzalloc(sizeof(T)));
}
[[nodiscard]] inline void *kzalloc_size(size_t size)
{
	return plat_kzalloc(size);
}
inline void kfree(const void *object)
{
	plat_kfree(object);
}
inline void printk(const char *text)
{
	plat_printk(text);
}

[[nodiscard]] inline void *ioremap(u64 physical, size_t size)
{
	return plat_ioremap(physical, size);
}
inline void iounmap(void *base)
{
	plat_iounmap(base);
}
[[nodiscard]] inline u32 readl(const void *address)
{
	return plat_readl(address);
}
inline void writel(u32 value, void *address)
{
	plat_writel(value, address);
}

using mutex = plat_mutex;
inline void mutex_init(mutex *lock, plat_mutex_kind kind)
{
	plat_mutex_init(lock, kind);
}
inline void mutex_lock(mutex *lock)
{
	plat_mutex_lock(lock);
}
inline void mutex_unlock(mutex *lock)
{
	plat_mutex_unlock(lock);
}

using raw_spinlock = plat_raw_spinlock;
inline void raw_spin_lock_init(raw_spinlock *lock, plat_spin_kind kind, u32 nest_level)
{
	plat_raw_spin_lock_init(lock, kind, nest_level);
}

inline void synchronize_srcu()
{
	plat_synchronize_srcu();
}
inline void synchronize_rcu()
{
	plat_synchronize_rcu();
}

[[nodiscard]] inline bool in_task()
{
	return plat_in_task() != 0;
}
[[nodiscard]] inline bool irqs_disabled()
{
	return plat_irqs_disabled() != 0;
}
inline void local_irq_enable()
{
	plat_local_irq_enable();
}
inline void local_irq_disable()
{
	plat_local_irq_disable();
}
inline void msleep(u32 milliseconds)
{
	plat_msleep(milliseconds);
}

[[nodiscard]] inline task_struct *kthread_create_on_node(int (*thread)(void *), void *data,
							 int node, const char *name)
{
	return plat_kthread_create_on_node(thread, data, node, name);
}
inline void sched_set_fifo(task_struct *task)
{
	plat_sched_set_fifo(task);
}
[[nodiscard]] inline const task_struct *get_current()
{
	return plat_get_current();
}
inline int kthread_stop(task_struct *task)
{
	return plat_kthread_stop(task);
}
[[nodiscard]] inline bool kthread_should_stop()
{
	return plat_kthread_should_stop() != 0;
}
inline int wake_up_process(task_struct *task)
{
	return plat_wake_up_process(task);
}
inline void set_current_state_interruptible()
{
	plat_set_current_state_interruptible();
}
inline void set_current_state_running()
{
	plat_set_current_state_running();
}
inline void schedule()
{
	plat_schedule();
}
inline void cond_resched()
{
	plat_cond_resched();
}

using irq_flow_handler = plat_flow_handler;
[[nodiscard]] inline void *irq_desc_get_handler_data(irq_desc *desc)
{
	return plat_irq_desc_get_handler_data(desc);
}
[[nodiscard]] inline irq_data *irq_desc_get_irq_data(irq_desc *desc)
{
	return plat_irq_desc_get_irq_data(desc);
}
[[nodiscard]] inline irq_data *irq_get_irq_data(u32 virq)
{
	return plat_irq_get_irq_data(virq);
}
[[nodiscard]] inline u32 irq_data_irq(const irq_data *data)
{
	return plat_irq_data_irq(data);
}
[[nodiscard]] inline u32 irqd_to_hwirq(const irq_data *data)
{
	return static_cast<u32>(plat_irqd_to_hwirq(data));
}
[[nodiscard]] inline u32 irqd_get_trigger_type(const irq_data *data)
{
	return plat_irqd_get_trigger_type(data);
}
[[nodiscard]] inline irq_chip *irq_desc_get_chip(irq_desc *desc)
{
	return plat_irq_desc_get_chip(desc);
}
[[nodiscard]] inline void *irq_data_get_irq_chip_data(irq_data *data)
{
	return plat_irq_data_get_irq_chip_data(data);
}
[[nodiscard]] inline int irq_chip_set_affinity(irq_data *data, const cpumask *mask, bool force)
{
	return plat_irq_chip_set_affinity(data, mask, force);
}
inline int irq_chip_unmask(irq_data *data)
{
	return plat_irq_chip_unmask(data);
}
[[nodiscard]] inline bool irq_data_is_starting(const irq_data *data)
{
	return plat_irq_data_is_starting(data) != 0;
}
[[nodiscard]] inline int irq_data_copy_effective_affinity(irq_data *leaf, irq_data *parent)
{
	return plat_irq_data_copy_effective_affinity(leaf, parent);
}
inline void chained_irq_enter(irq_chip *chip, irq_desc *desc)
{
	plat_chained_irq_enter(chip, desc);
}
inline void chained_irq_exit(irq_chip *chip, irq_desc *desc)
{
	plat_chained_irq_exit(chip, desc);
}

[[nodiscard]] inline int irq_get_depth(u32 virq, u32 *depth)
{
	return plat_irq_get_depth(virq, depth);
}
[[nodiscard]] inline int irq_get_mapping(u32 virq, const irq_domain **domain, u32 *hwirq)
{
	return plat_irq_get_mapping(virq, domain, hwirq);
}
inline void disable_irq_nosync(u32 virq)
{
	plat_disable_irq_nosync(virq);
}
inline void enable_irq(u32 virq)
{
	plat_enable_irq(virq);
}
inline int generic_handle_irq(u32 virq)
{
	return plat_generic_handle_irq(virq);
}
inline void irq_modify_status(u32 virq, unsigned long clear, unsigned long set)
{
	plat_irq_modify_status(virq, clear, set);
}
[[nodiscard]] inline int irq_set_irq_type(u32 virq, u32 type)
{
	return plat_irq_set_irq_type(virq, type);
}
inline int irq_set_handler_data(u32 virq, void *data)
{
	return plat_irq_set_handler_data(virq, data);
}
inline int irq_set_chip_data(u32 virq, void *data)
{
	return plat_irq_set_chip_data(virq, data);
}
inline void irq_set_chip_and_handler_name(u32 virq, plat_irq_chip *chip, irq_flow_handler handle,
					  const char *name)
{
	plat_irq_set_chip_and_handler_name(virq, chip, handle, name);
}
inline void irq_set_handler(u32 virq, irq_flow_handler handle, int is_chained, const char *name)
{
	plat___irq_set_handler(virq, handle, is_chained, name);
}
inline constexpr irq_flow_handler handle_level_irq = plat_handle_level_irq;
inline void irq_set_activated(u32 virq)
{
	plat_irq_set_activated(virq);
}
inline void irq_set_lockdep_class(u32 virq, u32 nest_level)
{
	plat_irq_set_lockdep_class(virq, nest_level);
}
inline void irq_set_lasting_lockdep_class(u32 virq)
{
	plat_irq_set_lasting_lockdep_class(virq);
}

[[nodiscard]] inline bool irq_has_action(u32 virq)
{
	return plat_irq_has_action(virq);
}

using irq_handler = plat_irq_handler;
[[nodiscard]] inline int request_threaded_irq(u32 virq, irq_handler handler, irq_handler thread_fn,
					      unsigned long flags, const char *name, void *cookie)
{
	return plat_request_threaded_irq(virq, handler, thread_fn, flags, name, cookie);
}
inline void free_irq(u32 virq, void *cookie)
{
	plat_free_irq(virq, cookie);
}

using irq_chip_ops = plat_irq_chip_ops;
inline void irq_chip_init(plat_irq_chip *chip, const char *name, const irq_chip_ops *ops)
{
	plat_irq_chip_init(chip, name, ops);
}

using irq_domain_ops = plat_irq_domain_ops;
[[nodiscard]] inline irq_domain *irq_domain_create_tree(fwnode_handle *fwnode,
							const irq_domain_ops *ops, void *host_data)
{
	return plat_irq_domain_create_tree(fwnode, ops, host_data);
}
[[nodiscard]] inline void *irq_domain_host_data(irq_domain *domain)
{
	return plat_irq_domain_host_data(domain);
}
inline void irq_domain_remove(irq_domain *domain)
{
	plat_irq_domain_remove(domain);
}
inline void irq_domain_abandon(irq_domain *domain)
{
	plat_irq_domain_abandon(domain);
}
[[nodiscard]] inline u32 irq_create_mapping(irq_domain *domain, unsigned long hwirq)
{
	return plat_irq_create_mapping(domain, hwirq);
}
inline void irq_dispose_mapping(u32 virq)
{
	plat_irq_dispose_mapping(virq);
}
[[nodiscard]] inline fwnode_handle *irq_domain_alloc_named_fwnode(const char *name)
{
	return plat_irq_domain_alloc_named_fwnode(name);
}
inline void irq_domain_free_fwnode(fwnode_handle *fwnode)
{
	plat_irq_domain_free_fwnode(fwnode);
}

using platform_driver = plat_platform_driver;
[[nodiscard]] inline int platform_driver_register(platform_driver *driver)
{
	return plat_platform_driver_register(driver);
}
inline void platform_driver_unregister(platform_driver *driver)
{
	plat_platform_driver_unregister(driver);
}
[[nodiscard]] inline const char *platform_device_name(const platform_device *device)
{
	return plat_platform_device_name(device);
}
[[nodiscard]] inline int platform_get_irq(platform_device *device, u32 index)
{
	return plat_platform_get_irq(device, index);
}
[[nodiscard]] inline fwnode_handle *dev_fwnode(platform_device *device)
{
	return plat_dev_fwnode(device);
}

[[nodiscard]] inline gpio_desc *gpio_to_desc(u32 gpio)
{
	return plat_gpio_to_desc(gpio);
}
inline int gpiod_direction_input(gpio_desc *gpio)
{
	return plat_gpiod_direction_input(gpio);
}
[[nodiscard]] inline int gpiod_to_irq(const gpio_desc *gpio)
{
	return plat_gpiod_to_irq(gpio);
}

[[nodiscard]] inline sock *netlink_kernel_create(u32 protocol)
{
	return plat_netlink_kernel_create(protocol);
}
inline void netlink_kernel_release(sock *sock)
{
	plat_netlink_kernel_release(sock);
}
[[nodiscard]] inline sk_buff *nlmsg_new(size_t payload)
{
	return plat_nlmsg_new(payload);
}
inline void nlmsg_free(sk_buff *message)
{
	plat_nlmsg_free(message);
}
[[nodiscard]] inline void *nlmsg_put(sk_buff *message, u32 portid, u32 seq, u32 type, u32 payload,
				     u32 flags)
{
	return plat_nlmsg_put(message, portid, seq, type, payload, flags);
}
inline void netlink_set_source(sk_buff *message, u32 portid, u32 dst_group)
{
	plat_netlink_set_source(message, portid, dst_group);
}
[[nodiscard]] inline int netlink_unicast(sock *sock, sk_buff *message, u32 portid, bool nonblock)
{
	return plat_netlink_unicast(sock, message, portid, nonblock);
}
using netlink_notifier = plat_netlink_notifier;
[[nodiscard]] inline int netlink_register_notifier(netlink_notifier *notifier)
{
	return plat_netlink_register_notifier(notifier);
}
inline void netlink_unregister_notifier(netlink_notifier *notifier)
{
	plat_netlink_unregister_notifier(notifier);
}

[[nodiscard]] inline unsigned long copy_from_user(void *to, const void *user, unsigned long size)
{
	return plat_copy_from_user(to, user, size);
}
[[nodiscard]] inline unsigned long copy_to_user(void *user, const void *from, unsigned long size)
{
	return plat_copy_to_user(user, from, size);
}

using misc_device = plat_misc_device;
[[nodiscard]] inline int misc_register(misc_device *device)
{
	return plat_misc_register(device);
}
inline void misc_deregister(misc_device *device)
{
	plat_misc_deregister(device);
}

using proc_ops = plat_proc_ops;
[[nodiscard]] inline proc_dir_entry *proc_mkdir(const char *name, proc_dir_entry *parent)
{
	return plat_proc_mkdir(name, parent);
}
[[nodiscard]] inline proc_dir_entry *
proc_create_data(const char *name, u16 mode, proc_dir_entry *parent, proc_ops *ops, void *data)
{
	return plat_proc_create_data(name, mode, parent, ops, data);
}
inline void proc_remove(proc_dir_entry *entry)
{
	plat_proc_remove(entry);
}
[[nodiscard]] inline int single_open(file *file, int (*show)(seq_file *seq, void *data), void *data)
{
	return plat_single_open(file, show, data);
}
inline void seq_puts(seq_file *seq, const char *text)
{
	plat_seq_puts(seq, text);
}

[[nodiscard]] inline void *symbol_get(const char *name)
{
	return plat_symbol_get(name);
}
inline void symbol_put(const char *name)
{
	plat_symbol_put(name);
}

[[nodiscard]] inline unsigned long simple_strtoul(const char *text, char **end, u32 base)
{
	return plat_simple_strtoul(text, end, base);
}

// Guards for what one function must undo. Making one and dropping it at once
// would undo at once, hence [[nodiscard]].
class [[nodiscard]] mutex_guard {
public:
	explicit mutex_guard(mutex &lock) : lock_(lock) { mutex_lock(&lock_); }
	~mutex_guard() { mutex_unlock(&lock_); }
	mutex_guard(const mutex_guard &) = delete;
	mutex_guard &operator=(const mutex_guard &) = delete;

private:
	mutex &lock_;
};

class [[nodiscard]] raw_spinlock_guard {
public:
	explicit raw_spinlock_guard(raw_spinlock &lock)
		: lock_(lock), flags_(plat_raw_spin_lock_irqsave(&lock))
	{
	}
	~raw_spinlock_guard() { plat_raw_spin_unlock_irqrestore(&lock_, flags_); }
	raw_spinlock_guard(const raw_spinlock_guard &) = delete;
	raw_spinlock_guard &operator=(const raw_spinlock_guard &) = delete;

private:
	raw_spinlock &lock_;
	unsigned long flags_;
};

// Interrupts off on this CPU, as they were before at the end.
class [[nodiscard]] irqs_off_guard {
public:
	irqs_off_guard() : were_off_(irqs_disabled())
	{
		if (!were_off_)
			local_irq_disable();
	}
	~irqs_off_guard()
	{
		if (!were_off_)
			local_irq_enable();
	}
	irqs_off_guard(const irqs_off_guard &) = delete;
	irqs_off_guard &operator=(const irqs_off_guard &) = delete;

private:
	bool were_off_;
};

// Keeps every combiner reached through combiner_list, and its leaves, alive.
class [[nodiscard]] srcu_reader {
public:
	srcu_reader() : token_(plat_srcu_read_lock()) {}
	~srcu_reader() { plat_srcu_read_unlock(token_); }
	srcu_reader(const srcu_reader &) = delete;
	srcu_reader &operator=(const srcu_reader &) = delete;

private:
	int token_;
};

#endif
