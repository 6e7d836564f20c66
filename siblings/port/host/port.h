/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What a sibling module or the virtual board needs of its home, over POSIX
 * threads. The meaning of every name is that of kernel/port.h beside this
 * directory. Includable from C++, for the tests.
 */
#ifndef SIBLINGS_PORT_H
#define SIBLINGS_PORT_H

#include <errno.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include "intr/siblings.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifndef container_of
#define container_of(ptr, type, member) ((type *)((char *)(ptr) - offsetof(type, member)))
#endif

struct port_lock {
	pthread_mutex_t mutex;
};

#define PORT_LOCK_INIT(name) { PTHREAD_MUTEX_INITIALIZER }
#define PORT_LOCK(name) static struct port_lock name = PORT_LOCK_INIT(name)

unsigned long port_lock(struct port_lock *lock);
void port_unlock(struct port_lock *lock, unsigned long flags);

static inline u64 port_text_word(const char *text)
{
	u64 word = 0;
	u32 i;

	for (i = 0; i < 8 && text[i]; i++)
		word |= (u64)(unsigned char)text[i] << 8 * i;
	return word;
}

struct port_mutex {
	pthread_mutex_t mutex;
};

#define PORT_MUTEX(name) static struct port_mutex name = { PTHREAD_MUTEX_INITIALIZER }

void port_mutex_lock(struct port_mutex *lock);
void port_mutex_unlock(struct port_mutex *lock);

void *port_alloc(size_t size);
void port_free(void *object);
u64 port_now_ns(void);
void port_sleep_ms(u32 ms);

/* Runs fn on a model CPU, in hard-interrupt context. */
struct port_call {
	void (*fn)(struct port_call *call);
	bool queued;
	u32 running;	/* a call may be queued again, and run elsewhere, while it runs */
};

void port_call_init(struct port_call *call, void (*fn)(struct port_call *call));
void port_call_queue(struct port_call *call);
void port_call_sync(struct port_call *call);

struct port_timer {
	void (*fn)(struct port_timer *timer);
	struct port_call call;
	struct port_timer *next;	/* in the list of armed timers */
	bool armed;
	u64 due_ns;
};

void port_timer_init(struct port_timer *timer, void (*fn)(struct port_timer *timer));
void port_timer_start_ms(struct port_timer *timer, u32 ms);
void port_timer_cancel(struct port_timer *timer);

void port_disable_irq_nosync(u32 virq);
void port_enable_irq(u32 virq);
int port_irq_depth(u32 virq);
u32 port_irq_count(u32 virq);
void port_context(char *buf, size_t size);
void port_printk(int level, const char *text);

struct port_out {
	char *text;
	size_t length;
	size_t size;
	bool failed;
};

void port_printf(struct port_out *out, const char *format, ...)
	__attribute__((format(printf, 2, 3)));

struct port_ctl {
	const char *name;
	int (*command)(const char *line, char *reply, size_t reply_size);
	int (*blob)(const void *data, size_t size);
	void (*show)(struct port_out *out);
	struct port_ctl *next;	/* home's own, as users */
	u32 users;
};

#define PORT_LINE_MAX 4096
#define PORT_REPLY_MAX 512
#define PORT_BLOB_MAX (4u << 20)

int port_ctl_register(struct port_ctl *ctl);
void port_ctl_unregister(struct port_ctl *ctl);

struct proc_dir_entry *port_proc_root_make(const char *name);
void port_proc_root_remove(struct proc_dir_entry *root);

/*
 * The user's side of the control files. A write gives the result that write()
 * on the kernel's file gives, as 0 or -errno; reply may be NULL. A read gives
 * the text of show, to be freed by the caller, or NULL: no such file.
 */
int port_ctl_write(const char *name, const void *data, size_t size, char *reply,
		   size_t reply_size);
char *port_ctl_read(const char *name);

/*
 * Ends the timer thread. After every sibling was stopped; a timer started later
 * makes a new thread. Sibling calls and timers run on the model's CPUs: those
 * must still be there while siblings stop.
 */
void port_host_stop(void);

/* Tests listen to what port_printk writes; NULL: back to standard error. Any thread may call it. */
void port_host_set_printk(void (*listener)(int level, const char *text));

#ifdef __cplusplus
}
#endif

#endif
