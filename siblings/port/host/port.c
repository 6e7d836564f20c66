// SPDX-License-Identifier: GPL-2.0
/*
 * The siblings' home on the host: locks, timers, calls and control files over
 * POSIX threads. Interrupt lines, and the thread that plays hard-interrupt
 * context, belong to the host model.
 */
#include "port.h"

#include <stdlib.h>
#include <time.h>

/* Offered by the host model. */
extern void host_disable_irq_nosync(u32 virq);
extern void host_enable_irq(u32 virq);
extern int host_irq_depth(u32 virq);
extern u32 host_irq_count(u32 virq);
extern void host_context(char *buf, size_t size);
extern void host_queue_hardirq_call(void (*fn)(void *), void *arg);
/* A bug where the caller may not sleep. */
extern void host_might_sleep(const char *what);

unsigned long port_lock(struct port_lock *lock)
{
	pthread_mutex_lock(&lock->mutex);
	return 0;
}

void port_unlock(struct port_lock *lock, unsigned long flags)
{
	(void)flags;
	pthread_mutex_unlock(&lock->mutex);
}

void port_mutex_lock(struct port_mutex *lock)
{
	host_might_sleep("port_mutex_lock");
	pthread_mutex_lock(&lock->mutex);
}

void port_mutex_unlock(struct port_mutex *lock)
{
	pthread_mutex_unlock(&lock->mutex);
}

void *port_alloc(size_t size)
{
	host_might_sleep("port_alloc");
	return calloc(1, size);
}

void port_free(void *object)
{
	free(object);
}

u64 port_now_ns(void)
{
	struct timespec now;

	clock_gettime(CLOCK_MONOTONIC, &now);
	return (u64)now.tv_sec * 1000000000u + (u64)now.tv_nsec;
}

void port_sleep_ms(u32 ms)
{
	struct timespec time = { .tv_sec = ms / 1000, .tv_nsec = (long)(ms % 1000) * 1000000 };

	host_might_sleep("port_sleep_ms");
	while (nanosleep(&time, &time) && errno == EINTR)
		;
}

/* Calls */

static pthread_mutex_t call_lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t call_done = PTHREAD_COND_INITIALIZER;

void port_call_init(struct port_call *call, void (*fn)(struct port_call *call))
{
	memset(call, 0, sizeof(*call));
	call->fn = fn;
}

static void run_call(void *arg)
{
	struct port_call *call = arg;

	pthread_mutex_lock(&call_lock);
	call->queued = false;
	call->running++;
	pthread_mutex_unlock(&call_lock);
	call->fn(call);
	pthread_mutex_lock(&call_lock);
	call->running--;
	pthread_cond_broadcast(&call_done);
	pthread_mutex_unlock(&call_lock);
}

/* Return: the caller has to hand the call to the model, with no lock of this file held. */
static bool mark_queued(struct port_call *call)
{
	bool first;

	pthread_mutex_lock(&call_lock);
	first = !call->queued;
	call->queued = true;
	pthread_mutex_unlock(&call_lock);
	return first;
}

void port_call_queue(struct port_call *call)
{
	if (mark_queued(call))
		host_queue_hardirq_call(run_call, call);
}

void port_call_sync(struct port_call *call)
{
	host_might_sleep("port_call_sync");
	pthread_mutex_lock(&call_lock);
	while (call->queued || call->running)
		pthread_cond_wait(&call_done, &call_lock);
	pthread_mutex_unlock(&call_lock);
}

/* Timers: one thread waits for the earliest and hands it to a model CPU. */

static pthread_mutex_t timer_lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t timer_change;	/* made with the thread: monotonic clock */
static pthread_t timer_thread;
static bool timer_thread_runs, timer_thread_ends;
static struct port_timer *armed_timers;

/* Called with timer_lock held. */
static void disarm(struct port_timer *timer)
{
	struct port_timer **at = &armed_timers;

	if (!timer->armed)
		return;
	while (*at != timer)
		at = &(*at)->next;
	*at = timer->next;
	timer->armed = false;
}

/* Called with timer_lock held. */
static struct port_timer *earliest_timer(void)
{
	struct port_timer *first = armed_timers, *at;

	for (at = armed_timers; at; at = at->next)
		if (at->due_ns < first->due_ns)
			first = at;
	return first;
}

/* Called with timer_lock held. */
static void wait_for_timer(const struct port_timer *first)
{
	struct timespec due;

	if (!first) {
		pthread_cond_wait(&timer_change, &timer_lock);
		return;
	}
	due.tv_sec = (time_t)(first->due_ns / 1000000000u);
	due.tv_nsec = (long)(first->due_ns % 1000000000u);
	pthread_cond_timedwait(&timer_change, &timer_lock, &due);
}

static void *timer_main(void *arg)
{
	struct port_timer *first;
	bool queue;

	pthread_mutex_lock(&timer_lock);
	while (!timer_thread_ends) {
		first = earliest_timer();
		if (!first || first->due_ns > port_now_ns()) {
			wait_for_timer(first);
			continue;
		}
		/* Both in one hold: a cancel that finds the timer disarmed waits for the call. */
		disarm(first);
		queue = mark_queued(&first->call);
		pthread_mutex_unlock(&timer_lock);
		if (queue)
			host_queue_hardirq_call(run_call, &first->call);
		pthread_mutex_lock(&timer_lock);
	}
	pthread_mutex_unlock(&timer_lock);
	return arg;
}

/* Called with timer_lock held. */
static void start_timer_thread(void)
{
	pthread_condattr_t attr;

	if (timer_thread_runs)
		return;
	pthread_condattr_init(&attr);
	pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
	pthread_cond_init(&timer_change, &attr);
	pthread_condattr_destroy(&attr);
	timer_thread_ends = false;
	if (pthread_create(&timer_thread, NULL, timer_main, NULL)) {
		fprintf(stderr, "port: the timer thread cannot be started\n");
		abort();
	}
	timer_thread_runs = true;
}

void port_host_stop(void)
{
	bool join;

	pthread_mutex_lock(&timer_lock);
	join = timer_thread_runs;
	timer_thread_ends = true;
	if (join)
		pthread_cond_signal(&timer_change);
	pthread_mutex_unlock(&timer_lock);
	if (!join)
		return;
	pthread_join(timer_thread, NULL);
	pthread_mutex_lock(&timer_lock);
	pthread_cond_destroy(&timer_change);
	timer_thread_runs = false;
	pthread_mutex_unlock(&timer_lock);
}

static void timer_call(struct port_call *call)
{
	struct port_timer *timer = container_of(call, struct port_timer, call);

	timer->fn(timer);
}

void port_timer_init(struct port_timer *timer, void (*fn)(struct port_timer *timer))
{
	memset(timer, 0, sizeof(*timer));
	timer->fn = fn;
	port_call_init(&timer->call, timer_call);
}

void port_timer_start_ms(struct port_timer *timer, u32 ms)
{
	pthread_mutex_lock(&timer_lock);
	start_timer_thread();
	disarm(timer);
	timer->due_ns = port_now_ns() + (u64)ms * 1000000u;
	timer->next = armed_timers;
	armed_timers = timer;
	timer->armed = true;
	pthread_cond_signal(&timer_change);
	pthread_mutex_unlock(&timer_lock);
}

static void disarm_locked(struct port_timer *timer)
{
	pthread_mutex_lock(&timer_lock);
	disarm(timer);
	pthread_mutex_unlock(&timer_lock);
}

/* Twice: the fn that the wait lets end may have started the timer again. */
void port_timer_cancel(struct port_timer *timer)
{
	disarm_locked(timer);
	port_call_sync(&timer->call);
	disarm_locked(timer);
	port_call_sync(&timer->call);
}

/* Interrupt lines and context */

void port_disable_irq_nosync(u32 virq)
{
	host_disable_irq_nosync(virq);
}

void port_enable_irq(u32 virq)
{
	host_enable_irq(virq);
}

int port_irq_depth(u32 virq)
{
	return host_irq_depth(virq);
}

u32 port_irq_count(u32 virq)
{
	return host_irq_count(virq);
}

void port_context(char *buf, size_t size)
{
	host_context(buf, size);
}

static pthread_mutex_t printk_lock = PTHREAD_MUTEX_INITIALIZER;
static void (*printk_listener)(int level, const char *text);

void port_host_set_printk(void (*listener)(int level, const char *text))
{
	pthread_mutex_lock(&printk_lock);
	printk_listener = listener;
	pthread_mutex_unlock(&printk_lock);
}

void port_printk(int level, const char *text)
{
	pthread_mutex_lock(&printk_lock);
	if (printk_listener)
		printk_listener(level, text);
	else
		fprintf(stderr, "<%d>%s\n", level, text);
	pthread_mutex_unlock(&printk_lock);
}

/* Control files */

static bool grow(struct port_out *out, size_t need)
{
	size_t size = 2 * out->size > need ? 2 * out->size : need + 1024;
	char *text = realloc(out->text, size);

	if (!text) {
		out->failed = true;
		return false;
	}
	out->text = text;
	out->size = size;
	return true;
}

void port_printf(struct port_out *out, const char *format, ...)
{
	va_list args;
	int length;
	size_t need;

	host_might_sleep("port_printf");
	if (out->failed)
		return;
	va_start(args, format);
	length = vsnprintf(NULL, 0, format, args);
	va_end(args);
	need = (size_t)(length < 0 ? 0 : length) + 1;
	if (out->length + need > out->size && !grow(out, out->length + need))
		return;
	va_start(args, format);
	vsnprintf(out->text + out->length, need, format, args);
	va_end(args);
	out->length += need - 1;
}

static pthread_mutex_t ctl_lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t ctl_idle = PTHREAD_COND_INITIALIZER;
static struct port_ctl *controls;

/* Called with ctl_lock held. */
static struct port_ctl *find_ctl(const char *name)
{
	struct port_ctl *at;

	for (at = controls; at; at = at->next)
		if (!strcmp(at->name, name))
			return at;
	return NULL;
}

int port_ctl_register(struct port_ctl *ctl)
{
	int ret = 0;

	pthread_mutex_lock(&ctl_lock);
	if (find_ctl(ctl->name)) {
		ret = -ENOMEM;
	} else {
		ctl->users = 0;
		ctl->next = controls;
		controls = ctl;
	}
	pthread_mutex_unlock(&ctl_lock);
	return ret;
}

void port_ctl_unregister(struct port_ctl *ctl)
{
	struct port_ctl **at = &controls;

	pthread_mutex_lock(&ctl_lock);
	while (*at && *at != ctl)
		at = &(*at)->next;
	if (*at)
		*at = ctl->next;
	while (ctl->users)
		pthread_cond_wait(&ctl_idle, &ctl_lock);
	pthread_mutex_unlock(&ctl_lock);
}

static struct port_ctl *get_ctl(const char *name)
{
	struct port_ctl *ctl;

	pthread_mutex_lock(&ctl_lock);
	ctl = find_ctl(name);
	if (ctl)
		ctl->users++;
	pthread_mutex_unlock(&ctl_lock);
	return ctl;
}

static void put_ctl(struct port_ctl *ctl)
{
	pthread_mutex_lock(&ctl_lock);
	ctl->users--;
	pthread_cond_broadcast(&ctl_idle);
	pthread_mutex_unlock(&ctl_lock);
}

static int write_line(struct port_ctl *ctl, const void *data, size_t size, char *reply,
		      size_t reply_size)
{
	char *line;
	int ret;

	if (!ctl->command)
		return -EINVAL;
	if (size > PORT_LINE_MAX)
		return -EFBIG;
	line = malloc(size + 1);
	if (!line)
		return -ENOMEM;
	if (size)
		memcpy(line, data, size);
	if (size && line[size - 1] == '\n')
		size--;
	line[size] = '\0';
	ret = ctl->command(line, reply, reply_size);
	free(line);
	return ret;
}

int port_ctl_write(const char *name, const void *data, size_t size, char *reply, size_t reply_size)
{
	char own[PORT_REPLY_MAX] = "";
	struct port_ctl *ctl = get_ctl(name);
	int ret;

	if (!ctl)
		return -ENOENT;
	if (!ctl->blob)
		ret = write_line(ctl, data, size, own, sizeof(own));
	else if (size > PORT_BLOB_MAX)
		ret = -EFBIG;
	else
		ret = ctl->blob(data, size);
	put_ctl(ctl);
	if (reply && reply_size)
		snprintf(reply, reply_size, "%s", own);
	return ret;
}

char *port_ctl_read(const char *name)
{
	struct port_out out = { NULL, 0, 0, false };
	struct port_ctl *ctl = get_ctl(name);

	if (!ctl)
		return NULL;
	port_printf(&out, "%s", "");
	if (ctl->show)
		ctl->show(&out);
	put_ctl(ctl);
	if (out.failed) {
		free(out.text);
		return NULL;
	}
	return out.text;
}

/* The host has no proc tree of its own; the directory only has to be one and the same. */
static char root_directory;

struct proc_dir_entry *port_proc_root_make(const char *name)
{
	(void)name;
	return (struct proc_dir_entry *)&root_directory;
}

void port_proc_root_remove(struct proc_dir_entry *root)
{
	(void)root;
}
