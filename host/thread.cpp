// SPDX-License-Identifier: GPL-2.0
//
// Kernel threads. A thread that was created runs nothing until it is woken;
// one that is stopped before that never runs its function. A wake-up puts the
// thread to running whatever it does, so one that comes between the marking as
// sleeping and schedule() is not lost.
#include "internal.h"

#include <cstdio>
#include <pthread.h>
#include <vector>

namespace {

enum task_state : int {
	task_running,
	task_interruptible,
	task_created,
};

} // namespace

struct task_struct {
	char name[16]; // what the kernel has room for
	int (*function)(void *);
	void *data;
	int result = 0;
	std::atomic<int> state{task_created};
	std::atomic<bool> realtime{false};
	std::atomic<bool> should_stop{false};
	std::atomic<bool> asleep{false}; // in schedule(); woken already if state is running
	std::atomic<bool> exited{false};
	std::thread thread;
};

namespace model {

static std::mutex tasks_lock;
static std::vector<task_struct *> tasks;

static void wait_while(task_struct &task, int state)
{
	if (task.state.load(std::memory_order_acquire) != state)
		return;
	task.asleep.store(true, std::memory_order_release);
	while (task.state.load(std::memory_order_acquire) == state)
		task.state.wait(state, std::memory_order_acquire);
	task.asleep.store(false, std::memory_order_release);
}

static void task_main(task_struct *task)
{
	context &self = current();

	self.task = task;
	pthread_setname_np(pthread_self(), task->name);
	wait_while(*task, task_created);
	task->result = task->should_stop ? -eintr : task->function(task->data);
	if (self.held_count || self.irqs_off || self.srcu_depth)
		bug("thread %s ended with a lock held, interrupts off or a read-side section open",
		    task->name);
	note_activity();
	task->exited.store(true, std::memory_order_release);
}

task_struct *task_create(int (*thread)(void *), void *data, const char *name)
{
	auto *task = new task_struct;

	snprintf(task->name, sizeof(task->name), "%s", name);
	task->function = thread;
	task->data = data;
	const std::lock_guard guard(tasks_lock);
	tasks.push_back(task);
	task->thread = std::thread(task_main, task);
	return task;
}

int task_wake(task_struct *task)
{
	note_activity();
	if (task->state.exchange(task_running, std::memory_order_acq_rel) == task_running)
		return 0;
	task->state.notify_all();
	return 1;
}

int task_stop(task_struct *task)
{
	task->should_stop.store(true, std::memory_order_release);
	task_wake(task);
	wait_until([&] { return task->exited.load(std::memory_order_acquire); }, "kthread_stop");
	task->thread.join();
	{
		const std::lock_guard guard(tasks_lock);
		std::erase(tasks, task);
	}
	const int result = task->result;
	delete task;
	return result;
}

bool task_should_stop()
{
	const task_struct *task = current().task;

	if (!task) {
		bug("kthread_should_stop outside a kernel thread");
		return true;
	}
	return task->should_stop.load(std::memory_order_acquire);
}

void task_set_interruptible()
{
	if (task_struct *task = current().task)
		task->state.exchange(task_interruptible, std::memory_order_acq_rel);
	full_barrier();
}

void task_set_running()
{
	if (task_struct *task = current().task)
		task->state.store(task_running, std::memory_order_release);
}

void task_schedule()
{
	if (task_struct *task = current().task)
		wait_while(*task, task_interruptible);
	else
		std::this_thread::yield();
}

static bool task_idle(const task_struct &task)
{
	if (task.exited.load(std::memory_order_acquire))
		return true;
	return task.asleep.load(std::memory_order_acquire) &&
	       task.state.load(std::memory_order_acquire) != task_running;
}

bool tasks_idle()
{
	const std::lock_guard guard(tasks_lock);

	for (const task_struct *task : tasks)
		if (!task_idle(*task))
			return false;
	return true;
}

u32 tasks_left(std::string &text)
{
	const std::lock_guard guard(tasks_lock);

	for (const task_struct *task : tasks)
		text += std::string(" thread \"") + task->name + "\"";
	return static_cast<u32>(tasks.size());
}

} // namespace model

using namespace model;

// With tasks_lock held. Null when there is none.
static const task_struct *find_task(const char *name)
{
	for (const task_struct *task : tasks)
		if (std::string(task->name) == name)
			return task;
	return nullptr;
}

int host_thread_exists(const char *name)
{
	const std::lock_guard guard(tasks_lock);

	return find_task(name) != nullptr;
}

int host_thread_is_realtime(const char *name)
{
	const std::lock_guard guard(tasks_lock);
	const task_struct *task = find_task(name);

	return task && task->realtime;
}

void plat_sched_set_fifo(struct task_struct *task)
{
	count_call(service::sched_set_fifo);
	task->realtime = true;
}

struct task_struct *plat_kthread_create_on_node(int (*thread)(void *), void *data, int /*node*/,
						const char *name)
{
	long ret = 0;

	if (fails(service::kthread_create_on_node, ret))
		return reinterpret_cast<task_struct *>(ret ? ret : -enomem);
	if (!might_sleep("kthread_create_on_node"))
		return reinterpret_cast<task_struct *>(-enomem);
	return task_create(thread, data, name);
}

// A thread of a test has no task: its context stands for it.
struct task_struct *plat_get_current(void)
{
	count_call(service::get_current);
	return reinterpret_cast<task_struct *>(&current());
}

int plat_kthread_stop(struct task_struct *task)
{
	count_call(service::kthread_stop);
	if (!might_sleep("kthread_stop"))
		return -einval;
	if (task == current().task) {
		bug("kthread_stop of the calling thread");
		return -einval;
	}
	return task_stop(task);
}

int plat_kthread_should_stop(void)
{
	count_call(service::kthread_should_stop);
	return task_should_stop();
}

int plat_wake_up_process(struct task_struct *task)
{
	count_call(service::wake_up_process);
	return task_wake(task);
}

void plat_set_current_state_interruptible(void)
{
	count_call(service::set_current_state_interruptible);
	task_set_interruptible();
}

void plat_set_current_state_running(void)
{
	count_call(service::set_current_state_running);
	task_set_running();
}

void plat_schedule(void)
{
	count_call(service::schedule);
	if (might_sleep("schedule"))
		task_schedule();
}

void plat_cond_resched(void)
{
	count_call(service::cond_resched);
	if (might_sleep("cond_resched"))
		std::this_thread::yield();
}
