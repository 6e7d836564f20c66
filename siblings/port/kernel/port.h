/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What a sibling module or the virtual board needs of its home, over the
 * kernel's own headers. Everything is inline or static: each module stands
 * alone and can be replaced by one built elsewhere.
 *
 * Locks are raw: siblings are called under interrupt descriptor locks, where a
 * spinlock_t is not allowed. Static locks have a lock class each.
 */
#ifndef SIBLINGS_PORT_H
#define SIBLINGS_PORT_H

#include <linux/delay.h>
#include <linux/errno.h>
#include <linux/hrtimer.h>
#include <linux/interrupt.h>
#include <linux/irq.h>
#include <linux/irq_work.h>
#include <linux/irqdesc.h>
#include <linux/kernel.h>
#include <linux/ktime.h>
#include <linux/mm.h>
#include <linux/mutex.h>
#include <linux/proc_fs.h>
#include <linux/rcupdate.h>
#include <linux/sched.h>
#include <linux/slab.h>
#include <linux/spinlock.h>
#include <linux/stdarg.h>
#include <linux/string.h>
#include <linux/types.h>
#include <linux/uaccess.h>
#include <linux/version.h>
#include <asm/word-at-a-time.h>
#include "intr/siblings.h"

/* Any context. Held sections neither sleep nor allocate, and keep interrupts off. */
struct port_lock {
	raw_spinlock_t raw;
};

/* Of a lock that is, or lies in, a static object. */
#define PORT_LOCK_INIT(name) { .raw = __RAW_SPIN_LOCK_UNLOCKED(name.raw) }
#define PORT_LOCK(name) static struct port_lock name = PORT_LOCK_INIT(name)

static inline unsigned long port_lock(struct port_lock *lock)
{
	unsigned long flags;

	raw_spin_lock_irqsave(&lock->raw, flags);
	return flags;
}

static inline void port_unlock(struct port_lock *lock, unsigned long flags)
{
	raw_spin_unlock_irqrestore(&lock->raw, flags);
}

/* Process context. */
struct port_mutex {
	struct mutex mutex;
};

#define PORT_MUTEX(name) \
	static struct port_mutex name = { .mutex = __MUTEX_INITIALIZER(name.mutex) }

static inline void port_mutex_lock(struct port_mutex *lock)
{
	mutex_lock(&lock->mutex);
}

static inline void port_mutex_unlock(struct port_mutex *lock)
{
	mutex_unlock(&lock->mutex);
}

/*
 * Eight bytes of a text from here on, the first one lowest. What lies behind the text's
 * end is anything; it is read, but never faults.
 */
static inline u64 port_text_word(const char *text)
{
	return load_unaligned_zeropad(text);
}

/* Zeroed; may sleep; NULL on failure. Freeing NULL does nothing. */
static inline void *port_alloc(size_t size)
{
	return kvzalloc(size, GFP_KERNEL);
}

static inline void port_free(void *object)
{
	kvfree(object);
}

static inline u64 port_now_ns(void)
{
	return ktime_get_ns();
}

static inline void port_sleep_ms(u32 ms)
{
	msleep(ms);
}

/* fn runs in hard-interrupt context and may start the timer again. */
struct port_timer {
	struct hrtimer timer;
	void (*fn)(struct port_timer *timer);
};

static inline enum hrtimer_restart port_timer_expired(struct hrtimer *timer)
{
	struct port_timer *t = container_of(timer, struct port_timer, timer);

	t->fn(t);
	return HRTIMER_NORESTART;
}

static inline void port_timer_init(struct port_timer *t, void (*fn)(struct port_timer *timer))
{
	t->fn = fn;
#if LINUX_VERSION_CODE >= KERNEL_VERSION(6, 13, 0)
	hrtimer_setup(&t->timer, port_timer_expired, CLOCK_MONOTONIC, HRTIMER_MODE_REL_HARD);
#else
	hrtimer_init(&t->timer, CLOCK_MONOTONIC, HRTIMER_MODE_REL_HARD);
	t->timer.function = port_timer_expired;
#endif
}

/* Any context; moves a timer that runs already. */
static inline void port_timer_start_ms(struct port_timer *t, u32 ms)
{
	hrtimer_start(&t->timer, ms_to_ktime(ms), HRTIMER_MODE_REL_HARD);
}

/* Process context. Waits for a running fn, and takes back a start made by it. */
static inline void port_timer_cancel(struct port_timer *t)
{
	hrtimer_cancel(&t->timer);
}

/* A call out of the caller's locks: fn runs soon in hard-interrupt context. */
struct port_call {
	struct irq_work work;
	void (*fn)(struct port_call *call);
};

static inline void port_call_run(struct irq_work *work)
{
	struct port_call *call = container_of(work, struct port_call, work);

	call->fn(call);
}

static inline void port_call_init(struct port_call *call, void (*fn)(struct port_call *call))
{
	call->fn = fn;
	call->work = IRQ_WORK_INIT_HARD(port_call_run);
}

/* Any context; queueing what is queued already does nothing. */
static inline void port_call_queue(struct port_call *call)
{
	irq_work_queue(&call->work);
}

/* Process context: waits until a queued fn has run. */
static inline void port_call_sync(struct port_call *call)
{
	irq_work_sync(&call->work);
}

static inline void port_disable_irq_nosync(u32 virq)
{
	disable_irq_nosync(virq);
}

static inline void port_enable_irq(u32 virq)
{
	enable_irq(virq);
}

/* Disable depth, or -1 for a virq without a descriptor. */
static inline int port_irq_depth(u32 virq)
{
	struct irq_data *data;
	int depth = -1;

	rcu_read_lock();
	data = irq_get_irq_data(virq);
	if (data)
		depth = (int)READ_ONCE(irq_data_to_desc(data)->depth);
	rcu_read_unlock();
	return depth;
}

/* How often the interrupt occurred, wrapping; 0 without a descriptor. */
static inline u32 port_irq_count(u32 virq)
{
	struct irq_data *data;
	u32 count = 0;

	rcu_read_lock();
	data = irq_get_irq_data(virq);
	if (data)
		count = READ_ONCE(irq_data_to_desc(data)->tot_count);
	rcu_read_unlock();
	return count;
}

/* "hardirq", "softirq" or "thread:<task name>". */
static inline void port_context(char *buf, size_t size)
{
	if (in_hardirq())
		snprintf(buf, size, "hardirq");
	else if (in_serving_softirq())
		snprintf(buf, size, "softirq");
	else
		snprintf(buf, size, "thread:%s", current->comm);
}

/*
 * Stored now, written to the consoles later: a console's own lock must not be
 * taken in the contexts that siblings log from.
 */
static inline __printf(1, 2) void port_printk_deferred(const char *format, ...)
{
	va_list args;

	va_start(args, format);
	vprintk_emit(0, LOGLEVEL_SCHED, NULL, format, args);
	va_end(args);
}

/* Any context. level 1 = error, 2 = information; text without newline. */
static inline void port_printk(int level, const char *text)
{
	if (level == 1)
		port_printk_deferred(KERN_ERR "%s\n", text);
	else
		port_printk_deferred(KERN_INFO "%s\n", text);
}

/* Text that grows as it is written. */
struct port_out {
	char *text;
	size_t length;
	size_t size;
	bool failed;	/* out of memory: the text is cut */
};

static inline bool port_out_grow(struct port_out *out, size_t need)
{
	size_t size = max_t(size_t, 2 * out->size, max_t(size_t, need, 1024));
	char *text = kvmalloc(size, GFP_KERNEL);

	if (!text) {
		out->failed = true;
		return false;
	}
	if (out->length)
		memcpy(text, out->text, out->length);
	kvfree(out->text);
	out->text = text;
	out->size = size;
	return true;
}

/* Process context, never under a port_lock: allocates. */
static inline __printf(2, 3) void port_printf(struct port_out *out, const char *format, ...)
{
	va_list args;
	size_t need;

	if (out->failed)
		return;
	va_start(args, format);
	need = (size_t)vsnprintf(NULL, 0, format, args) + 1;
	va_end(args);
	if (out->length + need > out->size && !port_out_grow(out, out->length + need))
		return;
	va_start(args, format);
	out->length += (size_t)vscnprintf(out->text + out->length, need, format, args);
	va_end(args);
}

/*
 * A control file. Each operation may be NULL; all run in process context and
 * may sleep. command gets one line without newline and answers through reply
 * (empty on entry) and its result, 0 or -errno; blob gets one binary write. A
 * read gives the reply of the last write through the same open file, or, when
 * that left none, the text of show.
 */
struct port_ctl {
	const char *name;
	int (*command)(const char *line, char *reply, size_t reply_size);
	int (*blob)(const void *data, size_t size);
	void (*show)(struct port_out *out);
	struct proc_dir_entry *entry;	/* home's own */
};

#define PORT_LINE_MAX 4096
#define PORT_REPLY_MAX 512
#define PORT_BLOB_MAX (4u << 20)

struct port_ctl_open {
	struct port_ctl *ctl;
	struct mutex lock;	/* threads sharing the open file */
	char reply[PORT_REPLY_MAX];
	struct port_out out;
};

static inline int port_ctl_file_open(struct inode *inode, struct file *file)
{
	struct port_ctl_open *open = kzalloc(sizeof(*open), GFP_KERNEL);

	if (!open)
		return -ENOMEM;
	open->ctl = pde_data(inode);
	mutex_init(&open->lock);
	file->private_data = open;
	return 0;
}

static inline int port_ctl_file_release(struct inode *inode, struct file *file)
{
	struct port_ctl_open *open = file->private_data;

	mutex_destroy(&open->lock);
	kvfree(open->out.text);
	kfree(open);
	return 0;
}

/* Called with open->lock held. */
static inline int port_ctl_show(struct port_ctl_open *open)
{
	kvfree(open->out.text);
	memset(&open->out, 0, sizeof(open->out));
	if (open->ctl->show)
		open->ctl->show(&open->out);
	return open->out.failed ? -ENOMEM : 0;
}

static inline ssize_t port_ctl_file_read(struct file *file, char __user *buf, size_t count,
					 loff_t *pos)
{
	struct port_ctl_open *open = file->private_data;
	ssize_t ret = 0;

	mutex_lock(&open->lock);
	if (open->reply[0]) {
		ret = simple_read_from_buffer(buf, count, pos, open->reply, strlen(open->reply));
	} else {
		if (!*pos)
			ret = port_ctl_show(open);
		if (!ret)
			ret = simple_read_from_buffer(buf, count, pos, open->out.text,
						      open->out.length);
	}
	mutex_unlock(&open->lock);
	return ret;
}

/* data is a private copy with a terminating 0. */
static inline int port_ctl_dispatch(struct port_ctl_open *open, char *data, size_t count)
{
	struct port_ctl *ctl = open->ctl;

	open->reply[0] = '\0';
	if (ctl->blob)
		return ctl->blob(data, count);
	if (!ctl->command)
		return -EINVAL;
	if (count && data[count - 1] == '\n')
		data[count - 1] = '\0';
	return ctl->command(data, open->reply, sizeof(open->reply));
}

static inline ssize_t port_ctl_file_write(struct file *file, const char __user *buf, size_t count,
					  loff_t *pos)
{
	struct port_ctl_open *open = file->private_data;
	char *data;
	int ret;

	if (count > (open->ctl->blob ? PORT_BLOB_MAX : PORT_LINE_MAX))
		return -EFBIG;
	data = kvmalloc(count + 1, GFP_KERNEL);
	if (!data)
		return -ENOMEM;
	if (copy_from_user(data, buf, count)) {
		kvfree(data);
		return -EFAULT;
	}
	data[count] = '\0';
	mutex_lock(&open->lock);
	ret = port_ctl_dispatch(open, data, count);
	mutex_unlock(&open->lock);
	kvfree(data);
	*pos = 0;	/* the reply is read from its start */
	return ret ? ret : (ssize_t)count;
}

static const struct proc_ops port_ctl_ops __maybe_unused = {
	.proc_open = port_ctl_file_open,
	.proc_read = port_ctl_file_read,
	.proc_write = port_ctl_file_write,
	.proc_release = port_ctl_file_release,
	.proc_lseek = default_llseek,
};

/* Process context. Return: 0 or -ENOMEM (also for a name in use). */
static inline int port_ctl_register(struct port_ctl *ctl)
{
	ctl->entry = proc_create_data(ctl->name, 0600, diag_get_proc_root(), &port_ctl_ops, ctl);
	return ctl->entry ? 0 : -ENOMEM;
}

/* Waits for operations that run; files still open are cut off. */
static inline void port_ctl_unregister(struct port_ctl *ctl)
{
	proc_remove(ctl->entry);
	ctl->entry = NULL;
}

/* The directory that control files lie in, made by the diagnostics module. */
static inline struct proc_dir_entry *port_proc_root_make(const char *name)
{
	return proc_mkdir(name, NULL);
}

static inline void port_proc_root_remove(struct proc_dir_entry *root)
{
	proc_remove(root);
}

#endif
