// SPDX-License-Identifier: GPL-2.0
/* Threads. */
#include <linux/err.h>
#include <linux/kthread.h>
#include <linux/sched.h>
#include <linux/sched/task.h>

#include "platform/kernel_api.h"

/* A reference is held until the stop, or stopping a thread that has already ended is a use after free. */
noinline struct task_struct *plat_kthread_create_on_node(int (*thread)(void *), void *data,
							 int node, const char *name)
{
	struct task_struct *task = kthread_create_on_node(thread, data, node, "%s", name);

	if (!IS_ERR(task))
		get_task_struct(task);
	return task;
}

noinline void plat_sched_set_fifo(struct task_struct *task)
{
	sched_set_fifo(task);
}

noinline struct task_struct *plat_get_current(void)
{
	return current;
}

noinline int plat_kthread_stop(struct task_struct *task)
{
	int result = kthread_stop(task);

	put_task_struct(task);
	return result;
}

noinline int plat_kthread_should_stop(void)
{
	return kthread_should_stop();
}

noinline int plat_wake_up_process(struct task_struct *task)
{
	return wake_up_process(task);
}

noinline void plat_set_current_state_interruptible(void)
{
	set_current_state(TASK_INTERRUPTIBLE);
}

noinline void plat_set_current_state_running(void)
{
	__set_current_state(TASK_RUNNING);
}

noinline void plat_schedule(void)
{
	schedule();
}

noinline void plat_cond_resched(void)
{
	cond_resched();
}
