/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The kernel services that the driver calls, as C symbols that each home
 * defines. The C files of the kernel home include this header beside the
 * kernel's own, so the compiler checks every prototype here against its
 * definition; the driver uses platform/kernel.h, which gives each of them the
 * kernel's own name back.
 *
 * Every function has the meaning of the kernel function it is named after
 * (plat_X is X). A comment stands only where this boundary promises more.
 *
 * Handles are the kernel's own types, never looked into by the driver. Objects
 * that the driver embeds are storage; each home asserts size and alignment. Locks,
 * of which a leaf has three, are of the exact size of the kernel that is built for
 * (lock checking grows a mutex fivefold): the home provides it in a header.
 *
 * A further kernel function X takes:
 *	here			the prototype plat_X, and what it promises beyond X
 *	platform/kernel.h	X for the driver: inline, [[nodiscard]] where it can fail
 *	kernel/ a C file	plat_X over the kernel's X; a new file joins kernel/Kbuild
 *	host/ same name .cpp	plat_X over the model: count_call(service::X) first, or
 *				fails(service::X, ...) where it can be told to fail
 *	host/services.inc	INFALLIBLE(X) or FALLIBLE(X), accordingly
 *	scripts/allowed-symbols	every name that intr.ko now takes from the kernel
 * The functions of kernel/ are noinline: in the guest a fault is a probe at the entry
 * of plat_X, which returns in its place (sim/board/kernel_board.c). It must be passed
 * by every call, so the compiler may not put the body where the call stands.
 */
#ifndef INTR_PLATFORM_KERNEL_API_H
#define INTR_PLATFORM_KERNEL_API_H

#include <platform/lock_sizes.h>

#include "intr/types.h"

#ifdef __cplusplus
extern "C" {
#endif

struct cpumask;
struct file;
struct fwnode_handle;
struct gpio_desc;
struct inode;
struct irq_chip;
struct irq_data;
struct irq_desc;
struct irq_domain;
struct platform_device;
struct proc_dir_entry;
struct seq_file;
struct sk_buff;
struct sock;
struct task_struct;

/* Storage of embedded objects. */
struct plat_mutex {
	unsigned char storage[PLAT_MUTEX_SIZE];
} __attribute__((aligned(PLAT_MUTEX_ALIGN)));
struct plat_raw_spinlock {
	unsigned char storage[PLAT_RAW_SPINLOCK_SIZE];
} __attribute__((aligned(PLAT_RAW_SPINLOCK_ALIGN)));
struct plat_irq_chip {
	unsigned long storage[48];
};

/*
 * Memory. kzalloc is GFP_KERNEL: process context, may sleep; null on failure.
 * Large objects need not be physically contiguous; they are freed in process context.
 */
void *plat_kzalloc(size_t size);
void plat_kfree(const void *object);

/* The kernel log, for the few messages that bypass the logging module. */
void plat_printk(const char *text);

/* Registers. ioremap: device nGnRE; null on failure. readl and writel carry the kernel's barriers.
 */
void *plat_ioremap(u64 physical, size_t size);
void plat_iounmap(void *base);
u32 plat_readl(const void *address);
void plat_writel(u32 value, void *address);

/* Locks. Each kind is a lock class of its own, so that lock checking tells them apart. */
enum plat_mutex_kind {
	PLAT_MUTEX_DRIVER,
	PLAT_MUTEX_LEAF,
	PLAT_MUTEX_PID_LIST, /* lock-debugging name "&irq_info->pid_list_lock" */
	PLAT_MUTEX_KINDS,
};
void plat_mutex_init(struct plat_mutex *lock, enum plat_mutex_kind kind);
void plat_mutex_lock(struct plat_mutex *lock);
void plat_mutex_unlock(struct plat_mutex *lock);

/*
 * Nesting levels that lock checking can tell apart: the depth of a combiner
 * behind other combiners' leaves. Deeper ones share the last level's class.
 */
#define PLAT_NEST_LEVELS 8

enum plat_spin_kind {
	PLAT_SPIN_LEAF_ENABLE,
	PLAT_SPIN_PARENT_ENABLE,
	PLAT_SPIN_KINDS,
};
/* Locks of one kind are taken from inner combiners to outer ones. */
void plat_raw_spin_lock_init(struct plat_raw_spinlock *lock, enum plat_spin_kind kind,
			     u32 nest_level);
unsigned long plat_raw_spin_lock_irqsave(struct plat_raw_spinlock *lock);
void plat_raw_spin_unlock_irqrestore(struct plat_raw_spinlock *lock, unsigned long flags);

/*
 * The one sleepable read-side section of the driver: readers of combiner_list.
 * The read side may be entered in any context, hard interrupt included, and
 * nests; synchronize waits for every section that was open, in process context
 * and never from inside one. plat_synchronize_rcu waits for every region with
 * interrupts off that was open, and hurries.
 */
int plat_srcu_read_lock(void);
void plat_srcu_read_unlock(int token);
void plat_synchronize_srcu(void);
void plat_synchronize_rcu(void);

/* Context and time. */
int plat_in_task(void);
int plat_irqs_disabled(void);
void plat_local_irq_enable(void);
void plat_local_irq_disable(void);
void plat_msleep(u32 milliseconds);

/* Threads. kthread_create_on_node returns an error value (see IS_ERR), never null, on failure. */
struct task_struct *plat_kthread_create_on_node(int (*thread)(void *), void *data, int node,
						const char *name);
/* The task that runs here, or that an interrupt came upon. To be compared only. */
struct task_struct *plat_get_current(void);
int plat_kthread_stop(struct task_struct *task);
int plat_kthread_should_stop(void);
int plat_wake_up_process(struct task_struct *task);
/* The middle real-time priority, which the kernel gives to interrupt threads. Process context. */
void plat_sched_set_fifo(struct task_struct *task);
void plat_set_current_state_interruptible(void);
void plat_set_current_state_running(void);
void plat_schedule(void);
void plat_cond_resched(void);

/* Interrupt descriptors and data. */
typedef void (*plat_flow_handler)(struct irq_desc *desc);

void *plat_irq_desc_get_handler_data(struct irq_desc *desc);
struct irq_data *plat_irq_desc_get_irq_data(struct irq_desc *desc);
struct irq_data *plat_irq_get_irq_data(u32 virq); /* null without a descriptor */
u32 plat_irq_data_irq(const struct irq_data *data);
unsigned long plat_irqd_to_hwirq(const struct irq_data *data);
u32 plat_irqd_get_trigger_type(const struct irq_data *data); /* 0: the kernel does not know it */
struct irq_chip *plat_irq_desc_get_chip(struct irq_desc *desc); /* may be null */
void *plat_irq_data_get_irq_chip_data(struct irq_data *data);

/*
 * Chip operations called past the interrupt core. -22 / 0 where the chip lacks the operation.
 *
 * A controller may mask a line while it moves it, so a disable from another CPU would
 * be undone: the move is made under the line's descriptor lock. The caller is the
 * set_affinity operation of a chip of ours, under a lock of the core that a move of the line
 * itself takes inside the descriptor lock. Hence the latter is only tried, and -16 when
 * it stays taken.
 *
 * The unmask leaves a disabled line masked: the core masks only when the depth leaves 0, so
 * a line unmasked at a greater depth could not be masked by anybody any more.
 */
int plat_irq_chip_set_affinity(struct irq_data *data, const struct cpumask *mask, bool force);
int plat_irq_chip_unmask(struct irq_data *data);
/* Not 0: the core is starting the line. For the operations of a chip made by plat_irq_chip_init. */
int plat_irq_data_is_starting(const struct irq_data *data);
/*
 * Gives a leaf the effective affinity that its parent has, or the core complains once a
 * boot. 0, or -22 when the parent has none: its controller cannot move it.
 */
int plat_irq_data_copy_effective_affinity(struct irq_data *leaf, struct irq_data *parent);

/*
 * Chained flow. The exit unmasks through the parent's chip only where the chip
 * has no end-of-interrupt operation, and leaves a line masked that was disabled
 * meanwhile: the chip's unmask knows nothing of the disable depth, and would
 * reopen a nested parent whose scan is still to come.
 */
void plat_chained_irq_enter(struct irq_chip *chip, struct irq_desc *desc);
void plat_chained_irq_exit(struct irq_chip *chip, struct irq_desc *desc);

/* Line state. */
/* How often the line is disabled now. 0, or -22 without a descriptor, *depth untouched. Any
 * context. */
int plat_irq_get_depth(u32 virq, u32 *depth);
/*
 * The domain of a mapped line and its hwirq there. 0, or -22 when the virq is not
 * mapped. Any context. The mapping may change at once, and the domain may be any
 * driver's: its address is good for comparing only.
 */
int plat_irq_get_mapping(u32 virq, const struct irq_domain **domain, u32 *hwirq);
void plat_disable_irq_nosync(u32 virq);
/*
 * A line whose disable depth is 0 is left alone, without the core's warning and
 * stack dump. The look and the enable are two steps: callers that may race on
 * one line hold a lock around the call.
 */
void plat_enable_irq(u32 virq);
/* Any context. From a thread, interrupts are off for the call. 0 or an unknown virq: nothing
 * happens.
 */
int plat_generic_handle_irq(u32 virq);
void plat_irq_modify_status(u32 virq, unsigned long clear, unsigned long set);
int plat_irq_set_irq_type(u32 virq, u32 type);
int plat_irq_set_handler_data(u32 virq, void *data);
int plat_irq_set_chip_data(u32 virq, void *data);
void plat_irq_set_chip_and_handler_name(u32 virq, struct plat_irq_chip *chip,
					plat_flow_handler handle, const char *name);
void plat___irq_set_handler(u32 virq, plat_flow_handler handle, int is_chained, const char *name);
void plat_handle_level_irq(struct irq_desc *desc);
/*
 * Marks a line of a domain without an activation step as activated, which the core
 * does only when the line is requested: a line that is enabled before that draws a
 * warning otherwise. Process context, before the line is in use.
 */
void plat_irq_set_activated(u32 virq);
/* A leaf's descriptor lock is taken inside its parent's callers: one class per nesting level. */
void plat_irq_set_lockdep_class(u32 virq, u32 nest_level);
/* That class goes with this module: a line that stays behind needs another. Process context, one
 * caller at a time. */
void plat_irq_set_lasting_lockdep_class(u32 virq);

/* Whether anybody has the line: with a handler, or chained to it. False without a descriptor. */
bool plat_irq_has_action(u32 virq);

/* Requests. The handler returns the kernel's IRQ_HANDLED (1); flags are the kernel's IRQF_ values.
 */
typedef int (*plat_irq_handler)(int virq, void *cookie);
int plat_request_threaded_irq(u32 virq, plat_irq_handler handler, plat_irq_handler thread_fn,
			      unsigned long flags, const char *name, void *cookie);
void plat_free_irq(u32 virq, void *cookie);

/*
 * Chip of a combiner's leaves: the operations below, everything else empty. irq_retrigger is
 * asked for a pending line that is enabled, with the descriptor lock held: not 0 when it sees
 * to the replay, 0 (or no operation) leaves that to the core, which does it in a softirq.
 */
struct plat_irq_chip_ops {
	void (*irq_enable)(struct irq_data *data);
	void (*irq_disable)(struct irq_data *data);
	void (*irq_mask)(struct irq_data *data);
	void (*irq_unmask)(struct irq_data *data);
	int (*irq_set_affinity)(struct irq_data *data, const struct cpumask *mask, bool force);
	int (*irq_retrigger)(struct irq_data *data);
};
/* name must outlive the chip. The core sets the affinity of its lines before it enables them. */
void plat_irq_chip_init(struct plat_irq_chip *chip, const char *name,
			const struct plat_irq_chip_ops *ops);

/* Domains. */
struct plat_irq_domain_ops {
	int (*map)(struct irq_domain *domain, unsigned int virq, unsigned long hwirq);
};
/* A domain of any hwirqs, or null. Process context. */
struct irq_domain *plat_irq_domain_create_tree(struct fwnode_handle *fwnode,
					       const struct plat_irq_domain_ops *ops,
					       void *host_data);
void *plat_irq_domain_host_data(struct irq_domain *domain);
void plat_irq_domain_remove(struct irq_domain *domain);
/*
 * Instead of the removal, where a mapping must stay since somebody else requested its
 * interrupt: the domain, its mappings and its node stay for good, and refer to nothing
 * of the driver any more. The mappings have no chip by then.
 */
void plat_irq_domain_abandon(struct irq_domain *domain);
u32 plat_irq_create_mapping(struct irq_domain *domain, unsigned long hwirq);
void plat_irq_dispose_mapping(u32 virq);
struct fwnode_handle *plat_irq_domain_alloc_named_fwnode(const char *name);
void plat_irq_domain_free_fwnode(struct fwnode_handle *fwnode);

/*
 * Platform drivers. The record lives as long as the registration; registering
 * probes the matching devices that exist. platform_get_irq: above 0, or there
 * is none.
 *
 * The bus takes each name once: second_name is used where it has a driver of
 * the first one already.
 */
struct plat_platform_driver {
	const char *name;
	const char *second_name; /* null: a taken name is a failure, -16 */
	const char *of_compatible; /* null: no device-tree matching */
	const char *acpi_id; /* null: no ACPI matching */
	int (*probe)(struct platform_device *device);
	void (*remove)(struct platform_device *device);
	unsigned long storage[128];
};
int plat_platform_driver_register(struct plat_platform_driver *driver);
void plat_platform_driver_unregister(struct plat_platform_driver *driver);
const char *plat_platform_device_name(const struct platform_device *device);
int plat_platform_get_irq(struct platform_device *device, u32 index);
struct fwnode_handle *plat_dev_fwnode(struct platform_device *device);

/*
 * GPIO lines by their global number. An unknown number has no descriptor; the
 * other two take a null one, the last with a result not above 0, as for any
 * line without an interrupt.
 */
struct gpio_desc *plat_gpio_to_desc(u32 gpio);
int plat_gpiod_direction_input(struct gpio_desc *gpio);
int plat_gpiod_to_irq(const struct gpio_desc *gpio);

/*
 * Netlink, in the initial network namespace, without input and groups. The
 * socket is null where the protocol number is taken or out of range. A message
 * is allocated without sleeping and belongs to netlink_unicast from there on,
 * whatever it returns: above 0 sent, else -errno. Never blocks with nonblock.
 */
struct sock *plat_netlink_kernel_create(u32 protocol);
void plat_netlink_kernel_release(struct sock *sock);
struct sk_buff *plat_nlmsg_new(size_t payload);
void plat_nlmsg_free(struct sk_buff *message);
/* The payload's place in the message, or null: no room for it. */
void *plat_nlmsg_put(struct sk_buff *message, u32 portid, u32 seq, u32 type, u32 payload,
		     u32 flags);
/* Who sends the message, and to which group; NETLINK_CB. */
void plat_netlink_set_source(struct sk_buff *message, u32 portid, u32 dst_group);
int plat_netlink_unicast(struct sock *sock, struct sk_buff *message, u32 portid, int nonblock);
/*
 * released is called for every socket of the protocol in the initial network namespace that
 * a process has closed and that had a port, at the end of the close: in process context, may
 * sleep. The port can have a new owner by then. The record lives as long as the registration;
 * unregister waits for calls that run.
 */
struct plat_netlink_notifier {
	u32 protocol;
	void (*released)(u32 portid);
	unsigned long storage[4];
};
int plat_netlink_register_notifier(struct plat_netlink_notifier *notifier);
void plat_netlink_unregister_notifier(struct plat_netlink_notifier *notifier);

/* User memory. Process context, may sleep. The number of bytes that could not be copied. */
unsigned long plat_copy_from_user(void *to, const void *user, unsigned long size);
unsigned long plat_copy_to_user(void *user, const void *from, unsigned long size);

/*
 * A misc character device with a minor number of its own. An open file holds
 * the module. ioctl serves native and 32-bit callers alike; the latter's
 * argument is zero-extended.
 */
struct plat_misc_device {
	const char *name;
	int (*open)(struct inode *inode, struct file *file);
	int (*release)(struct inode *inode, struct file *file);
	long (*ioctl)(struct file *file, unsigned int cmd, unsigned long arg);
	unsigned long storage[64];
};
int plat_misc_register(struct plat_misc_device *device);
void plat_misc_deregister(struct plat_misc_device *device);

/*
 * Proc files. Reading and seeking are those of a single-record sequence file,
 * which open makes with single_open; they end with the file's removal, which
 * waits for calls that run. The record lives until then.
 */
struct plat_proc_ops {
	int (*open)(struct inode *inode, struct file *file);
	/* null: writing is refused. Bytes taken, or -errno; buffer is user memory. */
	long (*write)(struct file *file, const char *buffer, size_t count, long long *position);
	unsigned long storage[16];
};
struct proc_dir_entry *plat_proc_mkdir(const char *name, struct proc_dir_entry *parent);
struct proc_dir_entry *plat_proc_create_data(const char *name, u16 mode,
					     struct proc_dir_entry *parent,
					     struct plat_proc_ops *ops, void *data);
void plat_proc_remove(struct proc_dir_entry *entry);
int plat_single_open(struct file *file, int (*show)(struct seq_file *seq, void *data), void *data);
/* One formatted write, "%s". */
void plat_seq_puts(struct seq_file *seq, const char *text);

/* A GPL-only symbol by name; holds a reference on its module until symbol_put. Null when absent. */
void *plat_symbol_get(const char *name);
void plat_symbol_put(const char *name);

/* Text. These are the kernel's (and the C library's) own symbols. */
unsigned long plat_simple_strtoul(const char *text, char **end, u32 base);

#ifdef __cplusplus
}
#endif

#endif
