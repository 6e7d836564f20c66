// SPDX-License-Identifier: GPL-2.0
/*
 * The trace of CPLD accesses, and accesses that fail to order. The trace keeps
 * its first records: a test clears it before the steps whose order it checks.
 */
#include "port.h"
#include "cpld_model.h"

#define TRACE_RECORDS 16384u
#define MARK_MAX 64

struct record {
	struct cpld_access access;
	char mark[MARK_MAX];
};

struct fail_rule {
	u32 nth, count;	/* count 0: no rule */
	s32 ret;
	u32 seen;
};

/* All under the lock. */
static struct record *records;
static u32 record_count, dropped_count;
static bool trace_on;
static struct fail_rule rules[CPLD_FAIL_RULES];

static void update_observed(void)
{
	u32 i;

	cpld_state.observed = trace_on;
	for (i = 0; i < CPLD_FAIL_RULES; i++)
		cpld_state.observed |= rules[i].count != 0;
}

int cpld_trace_start(void)
{
	struct record *fresh = port_alloc(TRACE_RECORDS * sizeof(*fresh));
	unsigned long flags;

	if (!fresh)
		return -ENOMEM;
	flags = cpld_lock();
	records = fresh;
	cpld_unlock(flags);
	return 0;
}

void cpld_trace_stop(void)
{
	unsigned long flags = cpld_lock();
	struct record *old = records;

	records = NULL;
	cpld_trace_switch(false);
	cpld_trace_clear();
	cpld_fail_clear();
	cpld_unlock(flags);
	port_free(old);
}

/* NULL: off, or full. */
static struct record *new_record(void)
{
	if (!trace_on || !records)
		return NULL;
	if (record_count == TRACE_RECORDS) {
		dropped_count++;
		return NULL;
	}
	return &records[record_count++];
}

void cpld_trace_add(const struct cpld_access *access)
{
	struct record *record = new_record();

	if (record)
		record->access = *access;
}

void cpld_trace_mark(const char *text)
{
	struct record *record = new_record();

	if (!record)
		return;
	record->access.op = CPLD_MARK;
	snprintf(record->mark, sizeof(record->mark), "%s", text);
}

void cpld_trace_switch(bool on)
{
	trace_on = on;
	update_observed();
}

void cpld_trace_clear(void)
{
	record_count = 0;
	dropped_count = 0;
}

static void show_field(struct port_out *out, const char *op, const struct cpld_access *access)
{
	port_printf(out, "%s inst=0x%x chip=%u reg=0x%x shift=%u mask=0x%x value=0x%x", op,
		    access->inst, access->chip, access->reg, access->shift, access->mask,
		    access->value);
}

static void show_register(struct port_out *out, const char *op, const struct cpld_access *access)
{
	port_printf(out, "%s inst=0x%x chip=%u reg=0x%x value=0x%x", op, access->inst, access->chip,
		    access->reg, access->value);
}

static void show_record(struct port_out *out, const struct record *record)
{
	const struct cpld_access *access = &record->access;

	switch (access->op) {
	case CPLD_READ:
		show_field(out, "read", access);
		break;
	case CPLD_WRITE:
		show_field(out, "write", access);
		break;
	case CPLD_REG_READ:
		show_register(out, "reg_read", access);
		break;
	case CPLD_REG_WRITE:
		show_register(out, "reg_write", access);
		break;
	case CPLD_ANY:
	case CPLD_MARK:
		port_printf(out, "mark %s\n", record->mark);
		return;
	}
	if (access->ret)
		port_printf(out, " ret=%d", access->ret);
	port_printf(out, "\n");
}

void cpld_trace_show(struct port_out *out)
{
	struct record record;
	unsigned long flags;
	u32 i, dropped = 0;
	bool there = true;

	for (i = 0; there; i++) {
		flags = cpld_lock();
		there = records && i < record_count;
		if (there)
			record = records[i];
		else
			dropped = dropped_count;
		cpld_unlock(flags);
		if (there)
			show_record(out, &record);
	}
	if (dropped)
		port_printf(out, "dropped %u\n", dropped);
}

void cpld_trace_show_counts(struct port_out *out)
{
	unsigned long flags = cpld_lock();
	u32 count = record_count, dropped = dropped_count;
	bool on = trace_on;

	cpld_unlock(flags);
	port_printf(out, "trace=%s records=%u capacity=%u dropped=%u\n", on ? "on" : "off", count,
		    TRACE_RECORDS, dropped);
}

void cpld_fail_set(enum cpld_op op, u32 nth, u32 count, s32 ret)
{
	struct fail_rule *rule = &rules[op];

	rule->nth = nth;
	rule->count = count;
	rule->ret = ret;
	rule->seen = 0;
	update_observed();
}

void cpld_fail_clear(void)
{
	memset(rules, 0, sizeof(rules));
	update_observed();
}

static s32 check_rule(struct fail_rule *rule)
{
	if (!rule->count)
		return 0;
	if (++rule->seen < rule->nth)
		return 0;
	if (rule->seen - rule->nth < rule->count)
		return rule->ret;
	rule->count = 0;
	update_observed();
	return 0;
}

s32 cpld_fail_check(enum cpld_op op)
{
	s32 own = check_rule(&rules[op]);
	s32 any = check_rule(&rules[CPLD_ANY]);

	return own ? own : any;
}
