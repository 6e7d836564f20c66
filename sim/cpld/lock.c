// SPDX-License-Identifier: GPL-2.0
/*
 * The lock of the CPLD simulation, and the line hook that is called when it is
 * dropped. Below all other parts.
 *
 * One raw lock covers everything, since accesses come from hard interrupts and
 * from under interrupt descriptor locks. The line hook is called after it is
 * dropped; hook_users keeps a hook that is being called from going away.
 */
#include "port.h"
#include "cpld_sim.h"
#include "cpld_model.h"

struct touched_lines {
	u32 count;
	struct {
		u32 line;
		int level;
	} at[CPLD_LINES];
};

struct cpld_state cpld_state = { .lock = PORT_LOCK_INIT(cpld_state.lock) };
/* All under the lock. */
static struct touched_lines touched;
static void (*line_hook)(u32 line, int level);
static u32 hook_users;

void cpld_touch_line(u32 line, int level)
{
	u32 i = 0;

	while (i < touched.count && touched.at[i].line != line)
		i++;
	if (i == CPLD_LINES)
		return;
	if (i == touched.count)
		touched.count++;
	touched.at[i].line = line;
	touched.at[i].level = level;
	cpld_state.touched = touched.count;
}

static void take_touched(struct touched_lines *lines)
{
	lines->count = touched.count;
	memcpy(lines->at, touched.at, touched.count * sizeof(touched.at[0]));
	touched.count = 0;
	cpld_state.touched = 0;
}

static void call_hook(void (*hook)(u32 line, int level), const struct touched_lines *lines)
{
	unsigned long flags;
	u32 i;

	for (i = 0; i < lines->count; i++)
		hook(lines->at[i].line, lines->at[i].level);
	flags = port_lock(&cpld_state.lock);
	hook_users--;
	port_unlock(&cpld_state.lock, flags);
}

void cpld_unlock_touched(unsigned long flags)
{
	void (*hook)(u32 line, int level) = line_hook;
	struct touched_lines lines;

	take_touched(&lines);
	if (hook)
		hook_users++;
	port_unlock(&cpld_state.lock, flags);
	if (hook)
		call_hook(hook, &lines);
}

void cpld_sim_set_line_hook(void (*hook)(u32 line, int level))
{
	unsigned long flags = port_lock(&cpld_state.lock);

	line_hook = hook;
	while (hook_users) {
		port_unlock(&cpld_state.lock, flags);
		port_sleep_ms(1);
		flags = port_lock(&cpld_state.lock);
	}
	port_unlock(&cpld_state.lock, flags);
}
