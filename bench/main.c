// SPDX-License-Identifier: GPL-2.0
/* The bench's module: /dev/bench, and the thread that raises while a process sleeps. */
#include <linux/err.h>
#include <linux/fs.h>
#include <linux/kthread.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/uaccess.h>
#include <linux/sched.h>

#include "regs.h"

static const struct bench_intr *intr;
static DEFINE_MUTEX(lock);

void bench_set_intr(const struct bench_intr *functions)
{
	mutex_lock(&lock);
	intr = functions;
	mutex_unlock(&lock);
}
EXPORT_SYMBOL_GPL(bench_set_intr);

/* Raising for a process. */

static struct task_struct *raiser, *sleeper;
static struct bench_para armed;
static u64 raised;
static int raise_failed;

/* Lets the process run until it sleeps, then does in its place what a source would do. */
static void raise_for(struct task_struct *process)
{
	while (READ_ONCE(process->__state) == TASK_RUNNING)
		yield();
	if (!peer_is_bare()) {
		raise_failed = run_raise(&armed, &raised);
		return;
	}
	raised = bench_clock();
	peer_send();
}

/*
 * As a CPU that was idle, it is away once it has raised: nothing in between lets others
 * run first, after whom it would have to come back only to sleep.
 */
static int raiser_thread(void *unused)
{
	struct task_struct *process;

	for (;;) {
		set_current_state(TASK_INTERRUPTIBLE);
		if (kthread_should_stop())
			break;
		process = sleeper;
		if (process) {
			__set_current_state(TASK_RUNNING);
			sleeper = NULL;
			raise_for(process);
			continue;
		}
		schedule();
	}
	__set_current_state(TASK_RUNNING);
	return 0;
}

static int arm(const struct bench_para *para)
{
	armed = *para;
	sleeper = current;
	wake_up_process(raiser);
	return 0;
}

static int last_raise(struct bench_para *para)
{
	para->ticks[0] = raised;
	return raise_failed;
}

/* The driver's leaves. */

static void on_leaf(u32 index_id, u32 type, void *data)
{
	run_leaf_served();
}

static int regist(const struct bench_para *para, bool on)
{
	u32 type = BENCH_TYPE + para->line, leaf;
	int ret = intr ? 0 : -ENODEV;

	for (leaf = para->leaves; leaf < para->leaves + para->count && !ret; leaf++)
		ret = on ? intr->regist(leaf, type, on_leaf, NULL) : intr->unregist(leaf, type);
	return ret > 0 ? -EIO : ret;
}

static int gate(struct bench_para *para)
{
	u32 leaf = para->leaves, type = BENCH_TYPE + para->line, round;
	u64 ticks[3] = {0}, start, found, disabled;
	unsigned long flags;
	int failed = 0;

	for (round = 0; intr && round < para->count; round++) {
		local_irq_save(flags);
		start = bench_clock();
		failed |= !intr->find(leaf, type);
		found = bench_clock();
		failed |= intr->disable(leaf, type);
		disabled = bench_clock();
		failed |= intr->enable(leaf, type);
		ticks[2] += bench_clock() - disabled;
		ticks[1] += disabled - found;
		ticks[0] += found - start;
		local_irq_restore(flags);
	}
	memcpy(para->ticks, ticks, sizeof(ticks));
	return failed || !intr ? -EIO : 0;
}

static struct miscdevice device;

static int run_command(unsigned int command, struct bench_para *para)
{
	switch (command) {
	case BENCH_DEVICES:
		return devices_set(para->count);
	case BENCH_PEER:
		return peer_start(para, device.this_device);
	case BENCH_PEER_DOWN:
		peer_stop();
		return 0;
	case BENCH_REGISTER:
	case BENCH_UNREGISTER:
		return regist(para, command == BENCH_REGISTER);
	case BENCH_RUN:
		return run_interrupts(para);
	case BENCH_GATE:
		return gate(para);
	case BENCH_ARM:
		return arm(para);
	case BENCH_RAISED:
		return last_raise(para);
	case BENCH_ENABLE:
		peer_enable_last();
		return 0;
	case BENCH_ALLOC_START:
		return allocs_start(para->active != 0);
	case BENCH_ALLOC_STOP:
		allocs_stop(para);
		return 0;
	}
	return -ENOTTY;
}

static long bench_ioctl(struct file *file, unsigned int command, unsigned long user)
{
	struct bench_para para;
	int ret;

	if (copy_from_user(&para, (void __user *)user, sizeof(para)))
		return -EFAULT;
	mutex_lock(&lock);
	ret = run_command(command, &para);
	mutex_unlock(&lock);
	if (copy_to_user((void __user *)user, &para, sizeof(para)))
		return -EFAULT;
	return ret;
}

static ssize_t bench_read(struct file *file, char __user *user, size_t size, loff_t *offset)
{
	static const u32 one = 1;
	int ret = peer_wait();

	if (ret || size < sizeof(one))
		return ret ? ret : -EINVAL;
	return copy_to_user(user, &one, sizeof(one)) ? -EFAULT : (ssize_t)sizeof(one);
}

static const struct file_operations operations = {
	.owner = THIS_MODULE,
	.unlocked_ioctl = bench_ioctl,
	.read = bench_read,
};

static struct miscdevice device = {
	.minor = MISC_DYNAMIC_MINOR,
	.name = "bench",
	.fops = &operations,
};

static int __init bench_init(void)
{
	int ret = lines_start();

	if (ret)
		return ret;
	raiser = kthread_run(raiser_thread, NULL, "bench-raiser");
	ret = PTR_ERR_OR_ZERO(raiser);
	if (ret)
		goto no_raiser;
	ret = misc_register(&device);
	if (!ret)
		return 0;
	kthread_stop(raiser);
no_raiser:
	lines_stop();
	return ret;
}

static void __exit bench_exit(void)
{
	misc_deregister(&device);
	kthread_stop(raiser);
	peer_stop();
	lines_stop();
}

module_init(bench_init);
module_exit(bench_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("The bench: lines, registers, peers and the runner");
