// SPDX-License-Identifier: GPL-2.0
/*
 * A kernel client of the driver, driven by people and tests: file "client"
 * registers callbacks and calls the exported functions, "client_events" shows
 * every callback in order.
 */
#include "board/board.h"

#include "cpld/cpld_sim.h"
#include "intr/drv_intr.h"
#include "board/port_board.h"
#include "args.h"

#define NAME_SIZE 32
#define MAX_EVENTS 8192
#define HOLD_MAX_MS 20000

enum then {
	THEN_NOTHING,
	THEN_ENABLE,
	THEN_DISABLE,
	THEN_FIND,
	THEN_REGIST,
	THEN_UNREGIST,
};

/* One registration. Its callback reads it until the driver has let go of the leaf. */
struct registration {
	struct registration *next;
	u32 index_id;
	u32 type;
	char quiesce[NAME_SIZE];	/* source to deassert; empty: none */
	char tag[NAME_SIZE];
	u32 sleep_ms;
	u32 hold;			/* not 0: the callback waits for the command let_go */
	u32 null;			/* not 0: no callback is given to the driver */
	enum then then;
	u32 count;			/* under events_lock */
};

struct event {
	u32 index_id;
	u32 type;
	u32 count;
	bool irqs_on;
	char tag[NAME_SIZE];
	char context[NAME_SIZE];
};

PORT_MUTEX(registrations_lock);
static struct registration *registrations;

PORT_LOCK(events_lock);
static struct event *events;
static u32 events_stored;
static u32 let_go_count;
static u32 events_lost;

/* The callback. */

static void store_event(struct registration *registration, bool irqs_on, const char *context)
{
	unsigned long flags = port_lock(&events_lock);
	struct event *event = &events[events_stored];

	registration->count++;
	if (events_stored == MAX_EVENTS) {
		events_lost++;
		port_unlock(&events_lock, flags);
		return;
	}
	events_stored++;
	event->index_id = registration->index_id;
	event->type = registration->type;
	event->count = registration->count;
	event->irqs_on = irqs_on;
	memcpy(event->tag, registration->tag, NAME_SIZE);
	snprintf(event->context, NAME_SIZE, "%s", context);
	port_unlock(&events_lock, flags);
}

static u32 times_let_go(void)
{
	unsigned long flags = port_lock(&events_lock);
	u32 count = let_go_count;

	port_unlock(&events_lock, flags);
	return count;
}

/* Not for ever: a test that forgets the callback must not hang the driver. */
static void wait_until_let_go(u32 seen)
{
	u32 waited;

	for (waited = 0; waited < HOLD_MAX_MS && times_let_go() == seen; waited++)
		port_sleep_ms(1);
}

static void on_interrupt(u32 index_id, u32 type, void *data);

static void act_on_own_leaf(struct registration *registration)
{
	char mark[NAME_SIZE];
	int ret = 0;

	switch (registration->then) {
	case THEN_NOTHING:
		break;
	case THEN_ENABLE:
		drv_intr_enable(registration->index_id, registration->type);
		break;
	case THEN_DISABLE:
		drv_intr_disable(registration->index_id, registration->type);
		break;
	case THEN_FIND:
		drv_find_mapping_irq(registration->index_id, registration->type);
		break;
	case THEN_REGIST:
		ret = drv_intr_set_regist(registration->index_id, registration->type, on_interrupt,
					  registration);
		break;
	case THEN_UNREGIST:
		ret = drv_intr_set_unregist(registration->index_id, registration->type);
		break;
	}
	if (ret) {
		snprintf(mark, sizeof(mark), "then ret=%d", ret);
		cpld_sim_mark(mark);
	}
}

static void on_interrupt(u32 index_id, u32 type, void *data)
{
	struct registration *registration = data;
	bool irqs_on = port_irqs_enabled();
	u32 seen = times_let_go();
	char context[NAME_SIZE];
	char mark[NAME_SIZE + 32];

	port_context(context, sizeof(context));
	snprintf(mark, sizeof(mark), "handler index=0x%x type=%u", index_id, type);
	cpld_sim_mark(mark);
	if (registration->quiesce[0])
		cpld_sim_source(registration->quiesce, 0);
	store_event(registration, irqs_on, context);
	if (registration->sleep_ms)
		port_sleep_ms(registration->sleep_ms);
	if (registration->hold)
		wait_until_let_go(seen);
	if (registration->sleep_ms || registration->hold) {
		snprintf(mark, sizeof(mark), "done index=0x%x type=%u", index_id, type);
		cpld_sim_mark(mark);
	}
	act_on_own_leaf(registration);
}

/* Registering and releasing. Called with registrations_lock held. */

/* The driver keeps a first callback, so a second record of one leaf waits for the same release. */
static void forget(u32 index_id, u32 type)
{
	struct registration **link = &registrations;

	while (*link) {
		struct registration *registration = *link;

		if (registration->index_id != index_id || registration->type != type) {
			link = &registration->next;
			continue;
		}
		*link = registration->next;
		port_free(registration);
	}
}

/* A negative result: the driver cannot be reached, and still has the leaf. */
static int release(u32 index_id, u32 type)
{
	int ret = drv_intr_set_unregist(index_id, type);

	if (ret >= 0)
		forget(index_id, type);
	return ret;
}

/* Commands. An argument is "key=value" or a number. */

static int wrong(char *reply, size_t size, const char *arg)
{
	return port_refuse(reply, size, "client: wrong or missing argument '%s'; use regist, unregist, "
			   "enable, disable, map or find INDEX TYPE, bspmap or bspfind KEY, "
			   "let_go or clear", arg);
}

static const char *value_of(const char *arg, const char *key)
{
	size_t length = strlen(key);

	return strncmp(arg, key, length) == 0 && arg[length] == '=' ? arg + length + 1 : NULL;
}

static bool then_arg(const char *arg, enum then *then)
{
	static const char *const names[] = {
		[THEN_ENABLE] = "enable",
		[THEN_DISABLE] = "disable",
		[THEN_FIND] = "find",
		[THEN_REGIST] = "regist",
		[THEN_UNREGIST] = "unregist",
	};
	u32 i;

	for (i = THEN_ENABLE; i <= THEN_UNREGIST; i++) {
		if (strcmp(arg, names[i]) == 0) {
			*then = (enum then)i;
			return true;
		}
	}
	return false;
}

static bool option(struct registration *registration, const char *arg)
{
	const char *value;

	if ((value = value_of(arg, "quiesce"))) {
		snprintf(registration->quiesce, NAME_SIZE, "%s", value);
		return *value && strlen(value) < NAME_SIZE;
	}
	if ((value = value_of(arg, "tag"))) {
		snprintf(registration->tag, NAME_SIZE, "%s", value);
		return strlen(value) < NAME_SIZE;
	}
	if ((value = value_of(arg, "hold")))
		return port_number(value, &registration->hold);
	if ((value = value_of(arg, "null")))
		return port_number(value, &registration->null);
	if ((value = value_of(arg, "sleep_ms")))
		return port_number(value, &registration->sleep_ms);
	if ((value = value_of(arg, "then")))
		return then_arg(value, &registration->then);
	return false;
}

static int regist(u32 index_id, u32 type, const char *line, char *reply, size_t size)
{
	struct registration *registration = port_alloc(sizeof(*registration));
	char arg[2 * NAME_SIZE];
	int ret;

	if (!registration)
		return -ENOMEM;
	registration->index_id = index_id;
	registration->type = type;
	while (port_arg(&line, arg, sizeof(arg))) {
		if (!option(registration, arg)) {
			port_free(registration);
			return port_refuse(reply, size, "client: regist: wrong option '%s'; use "
					   "quiesce=SOURCE, sleep_ms=N, hold=1, null=1, tag=WORD "
					   "or then=enable|disable|find|regist|unregist", arg);
		}
	}
	registration->next = registrations;
	registrations = registration;
	ret = drv_intr_set_regist(index_id, type, registration->null ? NULL : on_interrupt,
				  registration);
	if (ret) {
		/* Only this one: the driver may still call an earlier one of the same leaf. */
		registrations = registration->next;
		port_free(registration);
	}
	snprintf(reply, size, "ret=%d", ret);
	return 0;
}

static int unregist(u32 index_id, u32 type, char *reply, size_t size)
{
	snprintf(reply, size, "ret=%d", release(index_id, type));
	return 0;
}

/* What takes a pair and gives a virq. */
static bool pair_call(const char *name, u32 index_id, u32 type, u32 *result)
{
	if (strcmp(name, "enable") == 0)
		*result = (u32)drv_intr_enable(index_id, type);
	else if (strcmp(name, "disable") == 0)
		*result = (u32)drv_intr_disable(index_id, type);
	else if (strcmp(name, "map") == 0)
		*result = drv_mapping_irq(index_id, type);
	else if (strcmp(name, "find") == 0)
		*result = drv_find_mapping_irq(index_id, type);
	else
		return false;
	return true;
}

static bool key_call(const char *name, u32 key, u32 *result)
{
	if (strcmp(name, "bspmap") == 0)
		*result = bsp_mapping_irq(key);
	else if (strcmp(name, "bspfind") == 0)
		*result = bsp_find_mapping(key);
	else
		return false;
	return true;
}

static void clear_events(void)
{
	unsigned long flags = port_lock(&events_lock);

	events_stored = 0;
	events_lost = 0;
	port_unlock(&events_lock, flags);
}

static void let_go(void)
{
	unsigned long flags = port_lock(&events_lock);

	let_go_count++;
	port_unlock(&events_lock, flags);
}

static int pair_command(const char *name, u32 index_id, const char *line, char *reply, size_t size)
{
	u32 result;
	u32 type;

	if (!port_arg_number(&line, &type))
		return wrong(reply, size, name);
	if (strcmp(name, "regist") == 0)
		return regist(index_id, type, line, reply, size);
	if (!port_line_ends(line))
		return wrong(reply, size, line);
	if (strcmp(name, "unregist") == 0)
		return unregist(index_id, type, reply, size);
	if (!pair_call(name, index_id, type, &result))
		return wrong(reply, size, name);
	snprintf(reply, size, "ret=%u", result);
	return 0;
}

/* Called with registrations_lock held. */
static int command(const char *line, char *reply, size_t size)
{
	char name[16];
	u32 result;
	u32 first;

	if (!port_arg(&line, name, sizeof(name)))
		return wrong(reply, size, "");
	if (!port_arg_number(&line, &first))
		return wrong(reply, size, name);
	if (!port_line_ends(line))
		return pair_command(name, first, line, reply, size);
	if (!key_call(name, first, &result))
		return wrong(reply, size, name);
	snprintf(reply, size, "ret=%u", result);
	return 0;
}

static int client_command(const char *line, char *reply, size_t size)
{
	int ret;

	/* Without the lock, which a release holds while it waits for a callback. */
	if (strcmp(line, "clear") == 0) {
		clear_events();
		return 0;
	}
	if (strcmp(line, "let_go") == 0) {
		let_go();
		return 0;
	}
	port_mutex_lock(&registrations_lock);
	ret = command(line, reply, size);
	port_mutex_unlock(&registrations_lock);
	return ret;
}

static bool copy_event(u32 i, struct event *event, u32 *lost)
{
	unsigned long flags = port_lock(&events_lock);
	bool stored = i < events_stored;

	if (stored)
		*event = events[i];
	*lost = events_lost;
	port_unlock(&events_lock, flags);
	return stored;
}

static void client_events_show(struct port_out *out)
{
	struct event event;
	u32 lost;
	u32 i;

	for (i = 0; copy_event(i, &event, &lost); i++)
		port_printf(out, "index=0x%x type=%u tag=%s context=%s count=%u irqs=%s\n",
			    event.index_id, event.type, event.tag, event.context, event.count,
			    event.irqs_on ? "on" : "off");
	if (lost)
		port_printf(out, "lost=%u\n", lost);
}

static struct port_ctl client_ctl = {
	.name = "client",
	.command = client_command,
};

static struct port_ctl client_events_ctl = {
	.name = "client_events",
	.show = client_events_show,
};

static u32 leaf_virq(u32 index_id, u32 type)
{
	return drv_mapping_irq(index_id, type);
}

static int register_files(void)
{
	int ret = port_ctl_register(&client_ctl);

	if (ret)
		return ret;
	ret = port_ctl_register(&client_events_ctl);
	if (ret)
		port_ctl_unregister(&client_ctl);
	return ret;
}

int client_start(void)
{
	int ret;

	events = port_alloc(MAX_EVENTS * sizeof(*events));
	if (!events)
		return -ENOMEM;
	clear_events();
	ret = register_files();
	if (ret) {
		port_free(events);
		return ret;
	}
	board_set_leaf_resolver(leaf_virq);
	return 0;
}

void client_forget_all(void)
{
	port_mutex_lock(&registrations_lock);
	while (registrations)
		forget(registrations->index_id, registrations->type);
	port_mutex_unlock(&registrations_lock);
}

static void release_all(void)
{
	port_mutex_lock(&registrations_lock);
	while (registrations && release(registrations->index_id, registrations->type) >= 0)
		;
	port_mutex_unlock(&registrations_lock);
}

void client_stop(void)
{
	board_set_leaf_resolver(NULL);
	port_ctl_unregister(&client_events_ctl);
	port_ctl_unregister(&client_ctl);
	release_all();
	port_free(events);
}
