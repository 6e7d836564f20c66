// SPDX-License-Identifier: GPL-2.0
/*
 * The control files of the CPLD simulation: "cpld" takes commands, one a
 * write; "cpld_trace" and "cpld_state" are read. The commands:
 *
 *   reset
 *   source NAME INST LINE LEVEL...    LEVEL = chip:en:status:shift:mask:kind, outermost
 *                                     first; en may be "-"; kind latched or level; chip
 *                                     may be INST/chip, a register of another instance
 *   assert NAME, deassert NAME, pulse NAME
 *   fail read|write|reg_read|reg_write|any NTH COUNT RET, fail off
 *   trace on|off|clear, mark TEXT
 *   poke INST CHIP REG VALUE, peek INST CHIP REG, line N
 */
#include "port.h"
#include "args.h"
#include "cpld_model.h"

PORT_MUTEX(command_mutex);

struct reply {
	char *text;
	size_t size;
};

static int command_reset(const char *at, struct reply *reply)
{
	unsigned long flags;
	int ret;

	if (!port_line_ends(at))
		return port_refuse(reply->text, reply->size,
				   "cpld: reset takes no arguments; write \"reset\"");
	ret = cpld_model_reset();
	if (ret)
		return ret;
	flags = cpld_lock();
	cpld_trace_switch(false);
	cpld_trace_clear();
	cpld_fail_clear();
	cpld_unlock(flags);
	return 0;
}

/* Take the part up to the next separator, or to the end, off *arg. */
static bool next_part_at(char **arg, char separator, char **part)
{
	char *at = *arg;

	if (!at)
		return false;
	*part = at;
	while (*at && *at != separator)
		at++;
	*arg = *at ? at + 1 : NULL;
	*at = '\0';
	return true;
}

static bool next_part(char **arg, char **part)
{
	return next_part_at(arg, ':', part);
}

static bool next_part_number(char **arg, u32 *value)
{
	char *part;

	return next_part(arg, &part) && port_number(part, value);
}

/* "CHIP" or "INST/CHIP"; without an instance it is the source's. */
static bool parse_chip(char *arg, u32 inst, struct cpld_level_spec *level)
{
	char *part;

	level->inst = inst;
	if (!next_part_at(&arg, '/', &part))
		return false;
	if (!arg)
		return port_number(part, &level->chip);
	return port_number(part, &level->inst) && port_number(arg, &level->chip);
}

/* arg is taken apart. */
static bool parse_level(char *arg, u32 inst, struct cpld_level_spec *level)
{
	char *part;

	if (!next_part(&arg, &part) || !parse_chip(part, inst, level) || !next_part(&arg, &part))
		return false;
	level->enable = CPLD_NO_REGISTER;
	if (strcmp(part, "-") && !port_number(part, &level->enable))
		return false;
	if (!next_part_number(&arg, &level->status) || !next_part_number(&arg, &level->shift) ||
	    !next_part_number(&arg, &level->mask) || !next_part(&arg, &part) || arg)
		return false;
	level->latched = !strcmp(part, "latched");
	if (!level->latched && strcmp(part, "level"))
		return false;
	return level->shift < 32 && level->mask &&
	       ((level->mask << level->shift) >> level->shift) == level->mask;
}

static int command_source(const char *at, struct reply *reply)
{
	struct cpld_level_spec levels[CPLD_CHAIN_MAX];
	char name[CPLD_NAME_MAX], arg[80], shown[80];
	u32 inst, line, count = 0;
	unsigned long flags;
	const char *why;
	int ret;

	if (!port_arg(&at, name, sizeof(name)) || !port_arg_number(&at, &inst) ||
	    !port_arg_number(&at, &line))
		return port_refuse(reply->text, reply->size,
				   "cpld: source lacks its name, instance or line; write \"source NAME INST LINE LEVEL...\"");
	while (port_arg(&at, arg, sizeof(arg))) {
		if (count == CPLD_CHAIN_MAX)
			return port_refuse(reply->text, reply->size,
					   "cpld: source %s has too many levels; give at most %u",
					   name, CPLD_CHAIN_MAX);
		memcpy(shown, arg, sizeof(shown));
		if (!parse_level(arg, inst, &levels[count++]))
			return port_refuse(reply->text, reply->size,
					   "cpld: source %s: \"%s\" is no level; write chip:en:status:shift:mask:latched|level, with the field within 32 bits",
					   name, shown);
	}
	if (!count)
		return port_refuse(reply->text, reply->size,
				   "cpld: source %s has no level; give 1 to %u, outermost first",
				   name, CPLD_CHAIN_MAX);
	flags = cpld_lock();
	ret = cpld_model_add_source(name, line, levels, count, &why);
	cpld_unlock(flags);
	if (ret)
		return port_refuse(reply->text, reply->size,
				   "cpld: source %s: %s; change it, or reset first", name, why);
	return 0;
}

static int drive(const char *at, struct reply *reply, bool first, bool second)
{
	char name[CPLD_NAME_MAX];
	unsigned long flags;
	int ret;

	if (!port_arg(&at, name, sizeof(name)) || !port_line_ends(at))
		return port_refuse(reply->text, reply->size,
				   "cpld: one source is needed; write assert, deassert or pulse NAME");
	flags = cpld_lock();
	ret = cpld_model_set_source(name, first);
	if (!ret && second != first)
		ret = cpld_model_set_source(name, second);
	cpld_unlock(flags);
	if (ret)
		return port_refuse(reply->text, reply->size,
				   "cpld: there is no source \"%s\"; make it with \"source %s INST LINE LEVEL...\"",
				   name, name);
	return 0;
}

static int command_assert(const char *at, struct reply *reply)
{
	return drive(at, reply, true, true);
}

static int command_deassert(const char *at, struct reply *reply)
{
	return drive(at, reply, false, false);
}

/* Both within one hold of the lock: no access sees a "level" status up. */
static int command_pulse(const char *at, struct reply *reply)
{
	return drive(at, reply, true, false);
}

static bool parse_op(const char *arg, enum cpld_op *op)
{
	static const char *const names[] = { "read", "write", "reg_read", "reg_write", "any" };
	u32 i;

	for (i = 0; i < sizeof(names) / sizeof(names[0]); i++) {
		if (strcmp(arg, names[i]))
			continue;
		*op = (enum cpld_op)i;
		return true;
	}
	return false;
}

static int command_fail(const char *at, struct reply *reply)
{
	unsigned long flags;
	enum cpld_op op;
	u32 nth, count;
	char arg[16];
	bool off;
	s32 ret;

	if (!port_arg(&at, arg, sizeof(arg)))
		arg[0] = '\0';
	off = !strcmp(arg, "off") && port_line_ends(at);
	if (!off && (!parse_op(arg, &op) || !port_arg_number(&at, &nth) ||
		     !port_arg_number(&at, &count) || !port_arg_result(&at, &ret) || !nth ||
		     !count || !port_line_ends(at)))
		return port_refuse(reply->text, reply->size,
				   "cpld: no failure can be made of this; write \"fail read|write|reg_read|reg_write|any NTH COUNT RET\" or \"fail off\", numbers from 1, RET not 0");
	flags = cpld_lock();
	if (off)
		cpld_fail_clear();
	else
		cpld_fail_set(op, nth, count, ret);
	cpld_unlock(flags);
	return 0;
}

static int command_trace(const char *at, struct reply *reply)
{
	unsigned long flags;
	bool on, off, clear;
	char arg[8];

	if (!port_arg(&at, arg, sizeof(arg)))
		arg[0] = '\0';
	on = !strcmp(arg, "on");
	off = !strcmp(arg, "off");
	clear = !strcmp(arg, "clear");
	if ((!on && !off && !clear) || !port_line_ends(at))
		return port_refuse(reply->text, reply->size,
				   "cpld: trace has no such switch; write trace on, off or clear");
	flags = cpld_lock();
	if (clear)
		cpld_trace_clear();
	else
		cpld_trace_switch(on);
	cpld_unlock(flags);
	return 0;
}

static int command_mark(const char *at, struct reply *reply)
{
	unsigned long flags;

	(void)reply;
	while (*at == ' ')
		at++;
	flags = cpld_lock();
	cpld_trace_mark(at);
	cpld_unlock(flags);
	return 0;
}

static bool parse_register(const char **at, u32 *inst, u32 *chip, u32 *reg)
{
	return port_arg_number(at, inst) && port_arg_number(at, chip) &&
	       port_arg_number(at, reg);
}

static int command_poke(const char *at, struct reply *reply)
{
	u32 inst, chip, reg, value;
	unsigned long flags;
	int ret;

	if (!parse_register(&at, &inst, &chip, &reg) || !port_arg_number(&at, &value) ||
	    !port_line_ends(at))
		return port_refuse(reply->text, reply->size,
				   "cpld: poke needs four numbers; write \"poke INST CHIP REG VALUE\"");
	flags = cpld_lock();
	ret = cpld_model_poke(cpld_chip(inst, chip), reg, value);
	cpld_unlock(flags);
	return ret;
}

static int command_peek(const char *at, struct reply *reply)
{
	u32 inst, chip, reg, value;
	unsigned long flags;

	if (!parse_register(&at, &inst, &chip, &reg) || !port_line_ends(at))
		return port_refuse(reply->text, reply->size,
				   "cpld: peek needs three numbers; write \"peek INST CHIP REG\"");
	flags = cpld_lock();
	value = cpld_model_read(cpld_chip(inst, chip), reg);
	cpld_unlock(flags);
	snprintf(reply->text, reply->size, "0x%x", value);
	return 0;
}

static int command_line(const char *at, struct reply *reply)
{
	unsigned long flags;
	u32 line;
	int level;

	if (!port_arg_number(&at, &line) || !port_line_ends(at))
		return port_refuse(reply->text, reply->size,
				   "cpld: line needs a number; write \"line N\"");
	flags = cpld_lock();
	level = cpld_model_line_level(line);
	cpld_unlock(flags);
	snprintf(reply->text, reply->size, "%d", level);
	return 0;
}

static const struct {
	const char *name;
	int (*run)(const char *at, struct reply *reply);
} commands[] = {
	{ "reset", command_reset },   { "source", command_source },
	{ "assert", command_assert }, { "deassert", command_deassert },
	{ "pulse", command_pulse },   { "fail", command_fail },
	{ "trace", command_trace },   { "mark", command_mark },
	{ "poke", command_poke },     { "peek", command_peek },
	{ "line", command_line },
};

static int command(const char *line, char *text, size_t size)
{
	struct reply reply = { text, size };
	const char *at = line;
	char arg[16];
	int ret;
	u32 i;

	if (!port_arg(&at, arg, sizeof(arg)))
		arg[0] = '\0';
	for (i = 0; i < sizeof(commands) / sizeof(commands[0]); i++) {
		if (strcmp(arg, commands[i].name))
			continue;
		port_mutex_lock(&command_mutex);
		ret = commands[i].run(at, &reply);
		port_mutex_unlock(&command_mutex);
		return ret;
	}
	return port_refuse(text, size,
			   "cpld: there is no command \"%s\"; use reset, source, assert, deassert, pulse, fail, trace, mark, poke, peek or line",
			   arg);
}

static void show_counts(struct port_out *out)
{
	cpld_model_show_counts(out);
	cpld_trace_show_counts(out);
}

static struct port_ctl controls[] = {
	{ .name = "cpld", .command = command, .show = show_counts },
	{ .name = "cpld_trace", .show = cpld_trace_show },
	{ .name = "cpld_state", .show = cpld_model_show },
};

int cpld_ctl_register(void)
{
	u32 i;
	int ret;

	for (i = 0; i < sizeof(controls) / sizeof(controls[0]); i++) {
		ret = port_ctl_register(&controls[i]);
		if (!ret)
			continue;
		while (i--)
			port_ctl_unregister(&controls[i]);
		return ret;
	}
	return 0;
}

void cpld_ctl_unregister(void)
{
	u32 i;

	for (i = sizeof(controls) / sizeof(controls[0]); i--;)
		port_ctl_unregister(&controls[i]);
}
