// SPDX-License-Identifier: GPL-2.0
/*
 * The logging module: every line goes into a ring that the control file "log"
 * shows, one line a record: "MODULE LEVEL TEXT", and to the kernel log, headed by
 * the name that its module registered.
 *
 * An error line of the kernel log is written to the console at once, which is slow
 * and done where the line is logged, in hard interrupts too: of those only so many
 * pass in a period, and then how many did not.
 *
 * Records come from any context, interrupt descriptor locks included, so the
 * ring is one preallocated array of fixed slots. When it is full the oldest
 * line goes; how many went is said in front of the rest.
 */
#include "port.h"
#include "args.h"
#include "log.h"

#define RING_LINES 4096u
#define TEXT_MAX 240	/* longer lines are cut */
#define NAME_MAX_LEN 32
#define MODULES 32u
#define ERROR_LEVEL 1u
#define ERRORS_A_PERIOD 20u
#define PERIOD_NS 1000000000ull

struct log_line {
	u32 module_id;
	u32 level;
	char text[TEXT_MAX];
};

struct log_module {
	bool used;
	u32 id;
	u32 value;
	char name[NAME_MAX_LEN];
};

PORT_LOCK(log_lock);
/* All under log_lock. Line number n lies in slot n % RING_LINES. */
static struct log_line *ring;
static u64 next_line, first_line, dropped_lines;
static struct log_module modules[MODULES];
static s32 register_failure;
static u64 period_end;
static u32 period_errors, withheld_errors;

/*
 * Called with log_lock held, for each error line. Return: whether it may go to the
 * kernel log; *withheld, mostly 0: so many could not since the last that did.
 */
static bool error_may_pass(u64 now, u32 *withheld)
{
	*withheld = 0;
	if (now >= period_end) {
		period_end = now + PERIOD_NS;
		period_errors = 0;
	}
	if (period_errors >= ERRORS_A_PERIOD) {
		withheld_errors++;
		return false;
	}
	period_errors++;
	*withheld = withheld_errors;
	withheld_errors = 0;
	return true;
}

/* Called with log_lock held. Return: the module's record, else a free one, else NULL. */
static struct log_module *find_module(u32 id)
{
	struct log_module *free = NULL;
	u32 i;

	for (i = 0; i < MODULES; i++) {
		if (modules[i].used && modules[i].id == id)
			return &modules[i];
		if (!modules[i].used && !free)
			free = &modules[i];
	}
	return free;
}

/* Called with log_lock held. A module that is loaded again registers again. */
static int register_module(u32 id, const char *name, u32 value)
{
	struct log_module *module = find_module(id);
	int ret = register_failure;

	register_failure = 0;
	if (ret)
		return ret;
	if (!module)
		return -ENOSPC;
	module->used = true;
	module->id = id;
	module->value = value;
	snprintf(module->name, sizeof(module->name), "%s", name);
	return 0;
}

int drv_log_register(u32 module_id, const char *name, u32 value)
{
	unsigned long flags;
	int ret;

	if (!name || !name[0])
		return -EINVAL;
	flags = port_lock(&log_lock);
	ret = register_module(module_id, name, value);
	port_unlock(&log_lock, flags);
	return ret;
}

/* One record is one line: no newline at its end or inside. */
static void make_one_line(char *text)
{
	size_t length = strlen(text);

	while (length && text[length - 1] == '\n')
		text[--length] = '\0';
	for (; *text; text++)
		if (*text == '\n' || *text == '\r')
			*text = ' ';
}

/* Called with log_lock held. */
static void store(u32 module_id, u32 level, const char *text)
{
	struct log_line *line;

	if (!ring)
		return;
	if (next_line - first_line == RING_LINES) {
		first_line++;
		dropped_lines++;
	}
	line = &ring[next_line++ % RING_LINES];
	line->module_id = module_id;
	line->level = level;
	memcpy(line->text, text, strlen(text) + 1);
}

static void report_withheld(u32 withheld)
{
	char text[80];

	snprintf(text, sizeof(text), "log: %u error lines stand only in the file \"log\"", withheld);
	port_printk(1, text);
}

void drv_log_record(u32 module_id, u32 level, u32 reserved, const char *format, ...)
{
	char text[NAME_MAX_LEN + 2 + TEXT_MAX];
	char *body = text + NAME_MAX_LEN + 2;	/* the head is put in front of it */
	char head[NAME_MAX_LEN + 2];
	struct log_module *module;
	unsigned long flags;
	u64 now = port_now_ns();
	bool pass = true;
	u32 withheld = 0;
	size_t length;
	va_list args;

	(void)reserved;
	va_start(args, format);
	vsnprintf(body, TEXT_MAX, format, args);
	va_end(args);
	make_one_line(body);

	flags = port_lock(&log_lock);
	store(module_id, level, body);
	module = find_module(module_id);
	if (module && module->used)
		snprintf(head, sizeof(head), "%s: ", module->name);
	else
		snprintf(head, sizeof(head), "log module %u: ", module_id);
	if (level == ERROR_LEVEL)
		pass = error_may_pass(now, &withheld);
	port_unlock(&log_lock, flags);

	if (withheld)
		report_withheld(withheld);
	if (!pass)
		return;
	length = strlen(head);
	body -= length;
	memcpy(body, head, length);
	port_printk(level == ERROR_LEVEL ? 1 : 2, body);
}

/* Copy line number *number, or the oldest that is left, and step on. Return: false at end. */
static bool copy_line(u64 *number, u64 end, struct log_line *line)
{
	unsigned long flags = port_lock(&log_lock);
	bool there;

	if (*number < first_line)
		*number = first_line;
	there = *number < end && *number < next_line;
	if (there)
		*line = ring[(*number)++ % RING_LINES];
	port_unlock(&log_lock, flags);
	return there;
}

/* Line by line, as text cannot be made under the lock; what is added meanwhile is left out. */
static void show_lines(struct port_out *out)
{
	struct log_line line;
	u64 number, end, dropped;
	unsigned long flags;

	flags = port_lock(&log_lock);
	number = first_line;
	end = next_line;
	dropped = dropped_lines;
	port_unlock(&log_lock, flags);

	if (dropped)
		port_printf(out, "0 2 log: %llu older lines were dropped\n", dropped);
	while (copy_line(&number, end, &line))
		port_printf(out, "%u %u %s\n", line.module_id, line.level, line.text);
}

static void show_modules(struct port_out *out)
{
	struct log_module module;
	u64 lines, dropped;
	unsigned long flags;
	u32 i;

	flags = port_lock(&log_lock);
	lines = next_line - first_line;
	dropped = dropped_lines;
	port_unlock(&log_lock, flags);
	port_printf(out, "lines=%llu capacity=%u dropped=%llu\n", lines, RING_LINES, dropped);
	for (i = 0; i < MODULES; i++) {
		flags = port_lock(&log_lock);
		module = modules[i];
		port_unlock(&log_lock, flags);
		if (module.used)
			port_printf(out, "module=%u name=%s value=0x%x\n", module.id, module.name,
				    module.value);
	}
}

static void clear_lines(void)
{
	unsigned long flags = port_lock(&log_lock);

	first_line = next_line;
	dropped_lines = 0;
	port_unlock(&log_lock, flags);
}

static void set_register_failure(s32 ret)
{
	unsigned long flags = port_lock(&log_lock);

	register_failure = ret;
	port_unlock(&log_lock, flags);
}

static int command(const char *line, char *reply, size_t reply_size)
{
	const char *at = line;
	char arg[16];
	s32 ret;

	if (!port_arg(&at, arg, sizeof(arg)))
		arg[0] = '\0';
	if (!strcmp(arg, "clear") && port_line_ends(at)) {
		clear_lines();
		return 0;
	}
	if (!strcmp(arg, "fail_register") && port_arg_result(&at, &ret) && port_line_ends(at)) {
		set_register_failure(ret);
		return 0;
	}
	return port_refuse(reply, reply_size,
			   "log_ctl: \"%.80s\" is not understood; write \"clear\" or \"fail_register RET\"",
			   line);
}

static struct port_ctl lines_control = { .name = "log", .show = show_lines };
static struct port_ctl control = { .name = "log_ctl", .command = command, .show = show_modules };

/* Put a ring in place, or NULL, and forget all lines and modules. Return: the old one. */
static struct log_line *exchange_ring(struct log_line *fresh)
{
	unsigned long flags = port_lock(&log_lock);
	struct log_line *old = ring;

	ring = fresh;
	next_line = first_line = dropped_lines = 0;
	memset(modules, 0, sizeof(modules));
	register_failure = 0;
	period_end = 0;
	period_errors = withheld_errors = 0;
	port_unlock(&log_lock, flags);
	return old;
}

static int register_controls(void)
{
	int ret = port_ctl_register(&lines_control);

	if (ret)
		return ret;
	ret = port_ctl_register(&control);
	if (ret)
		port_ctl_unregister(&lines_control);
	return ret;
}

int log_start(void)
{
	struct log_line *fresh = port_alloc(RING_LINES * sizeof(*fresh));
	int ret;

	if (!fresh)
		return -ENOMEM;
	exchange_ring(fresh);
	ret = register_controls();
	if (ret)
		port_free(exchange_ring(NULL));
	return ret;
}

void log_stop(void)
{
	port_ctl_unregister(&control);
	port_ctl_unregister(&lines_control);
	port_free(exchange_ring(NULL));
}
