// SPDX-License-Identifier: GPL-2.0
/*
 * The virtual board: drives the parent lines from the simulated CPLD, adds and
 * removes combiner devices at run time, requests interrupts as another driver
 * would, and injects faults; file "board".
 *
 * A parent line is level-triggered: it asks for an interrupt as long as its
 * CPLD output is 1. The interrupt controller of the home only takes single
 * pending marks, which it forgets when the interrupt is taken. So every change
 * of an output sets or withdraws the mark, and a timer sets it again while the
 * output stays 1.
 *
 * A change is reported in the middle of a register access, where the caller may
 * hold locks of the interrupt core. The mark is therefore set later, outside
 * those locks, from what the output is then.
 */
#include "board.h"

#include "cpld/cpld_sim.h"
#include "port_board.h"
#include "args.h"

#define REASSERT_MS 1

/*
 * Held over looking at an output and setting the mark: of two evaluations the
 * later look also marks later, so no mark of a line that has gone quiet stays.
 */
PORT_LOCK(line_lock);
static u64 asserted_lines;
static bool reassert_armed;
static u64 changed_lines;
PORT_LOCK(changed_lock);

static struct port_call changed_call;
static struct port_timer reassert_timer;

PORT_MUTEX(resolver_lock);
static u32 (*leaf_resolver)(u32 index_id, u32 type);

void board_set_leaf_resolver(u32 (*resolver)(u32 index_id, u32 type))
{
	port_mutex_lock(&resolver_lock);
	leaf_resolver = resolver;
	port_mutex_unlock(&resolver_lock);
}

/* Parent lines. A set of them is a mask, line 0 the lowest bit. */

static u64 line_bit(u32 line)
{
	return 1ull << line;
}

static void evaluate_line(u32 line)
{
	unsigned long flags = port_lock(&line_lock);
	int level = cpld_sim_line_level(line);

	port_line_set_pending(line, level);
	if (level)
		asserted_lines |= line_bit(line);
	else
		asserted_lines &= ~line_bit(line);
	port_unlock(&line_lock, flags);
}

static void evaluate_lines(u64 lines)
{
	u32 line;

	for (line = 0; line < BOARD_LINES; line++)
		if (lines & line_bit(line))
			evaluate_line(line);
}

static u64 lines_asserted(void)
{
	unsigned long flags = port_lock(&line_lock);
	u64 lines = asserted_lines;

	port_unlock(&line_lock, flags);
	return lines;
}

/* A timer that runs is left alone: changes of one line must not put off another line's turn. */
static void arm_while_asserted(void)
{
	unsigned long flags = port_lock(&line_lock);
	bool start = asserted_lines && !reassert_armed;

	reassert_armed |= start;
	port_unlock(&line_lock, flags);
	if (start)
		port_timer_start_ms(&reassert_timer, REASSERT_MS);
}

static void set_disarmed(void)
{
	unsigned long flags = port_lock(&line_lock);

	reassert_armed = false;
	port_unlock(&line_lock, flags);
}

static void on_reassert(struct port_timer *timer)
{
	(void)timer;
	set_disarmed();
	evaluate_lines(lines_asserted());
	arm_while_asserted();
}

static void on_changed(struct port_call *call)
{
	unsigned long flags = port_lock(&changed_lock);
	u64 lines = changed_lines;

	(void)call;
	changed_lines = 0;
	port_unlock(&changed_lock, flags);
	evaluate_lines(lines);
	arm_while_asserted();
}

static void on_line_output(u32 line, int level)
{
	unsigned long flags;

	(void)level;
	if (line >= BOARD_LINES)
		return;
	flags = port_lock(&changed_lock);
	changed_lines |= line_bit(line);
	port_unlock(&changed_lock, flags);
	port_call_queue(&changed_call);
}

/* Commands. */

#define MAX_ARGS 4
#define ARG_SIZE 64

struct args {
	char arg[MAX_ARGS][ARG_SIZE];
	u32 count;
};

/* False: more arguments than any command has. */
static bool split(struct args *args, const char *line)
{
	args->count = 0;
	while (args->count < MAX_ARGS && port_arg(&line, args->arg[args->count], ARG_SIZE))
		args->count++;
	return port_line_ends(line);
}

/* A value to return: 0, or a result code. */
static bool return_value(const char *arg, long *value)
{
	s32 code = 0;
	u32 zero;

	if (!port_result_code(arg, &code) && (!port_number(arg, &zero) || zero != 0))
		return false;
	*value = code;
	return true;
}

static bool line_arg(const char *arg, u32 *line)
{
	return port_number(arg, line) && *line < BOARD_LINES;
}

static u32 resolve_leaf(u32 index_id, u32 type)
{
	u32 virq = 0;

	port_mutex_lock(&resolver_lock);
	if (leaf_resolver)
		virq = leaf_resolver(index_id, type);
	port_mutex_unlock(&resolver_lock);
	return virq;
}

/* "INDEX:TYPE" */
static bool leaf_virq(const char *arg, u32 *virq)
{
	char pair[ARG_SIZE];
	char *colon;
	u32 index_id;
	u32 type;

	memcpy(pair, arg, strlen(arg) + 1);
	colon = strstr(pair, ":");
	if (!colon)
		return false;
	*colon = '\0';
	if (!port_number(pair, &index_id) || !port_number(colon + 1, &type))
		return false;
	*virq = resolve_leaf(index_id, type);
	return true;
}

/* "line:N", "virq:N" or "leaf:INDEX:TYPE"; a line or leaf that has no interrupt gives 0. */
static bool interrupt_arg(const char *arg, u32 *virq)
{
	u32 line;

	if (strncmp(arg, "virq:", 5) == 0)
		return port_number(arg + 5, virq);
	if (strncmp(arg, "leaf:", 5) == 0)
		return leaf_virq(arg + 5, virq);
	if (strncmp(arg, "line:", 5) != 0 || !line_arg(arg + 5, &line))
		return false;
	*virq = port_line_virq(line);
	return true;
}

static int add_device(const char *name, const char *irq, char *reply, size_t size)
{
	bool none = strcmp(irq, "irq=none") == 0;
	u32 virq = 0;
	int ret;

	if (!none && (strncmp(irq, "irq=", 4) != 0 || !interrupt_arg(irq + 4, &virq)))
		return port_refuse(reply, size, "board: device add: wrong interrupt '%s'; use "
				   "irq=line:N, irq=leaf:INDEX:TYPE, irq=virq:N or irq=none", irq);
	if (!none && virq == 0)
		return port_refuse(reply, size, "board: device add: %s is no interrupt; "
				   "name one that exists, or irq=none", irq + 4);
	ret = port_device_add(name, virq);
	if (ret < 0) {
		port_refuse(reply, size, "board: device add: %s cannot be added (%d); "
			    "use a name that no device has", name, ret);
		return ret;
	}
	snprintf(reply, size, "probed=%d", ret);
	return 0;
}

static int device_command(struct args *args, char *reply, size_t size)
{
	if (args->count == 4 && strcmp(args->arg[1], "add") == 0)
		return add_device(args->arg[2], args->arg[3], reply, size);
	if (args->count != 3 || strcmp(args->arg[1], "del") != 0)
		return port_refuse(reply, size, "board: device: unknown form; "
				   "use device add NAME irq=..., or device del NAME");
	if (port_device_del(args->arg[2]) != 0)
		return port_refuse(reply, size, "board: device del: there is no %s; "
				   "name a device that was added", args->arg[2]);
	return 0;
}

/* One interrupt without a cause. */
static int raise_command(struct args *args, char *reply, size_t size)
{
	unsigned long flags;
	u32 line;

	if (args->count != 2 || !line_arg(args->arg[1], &line))
		return port_refuse(reply, size, "board: raise: no such line; use raise LINE, 0 to %u",
				   BOARD_LINES - 1);
	if (port_line_virq(line) == 0)
		return port_refuse(reply, size, "board: raise: line %u has no interrupt; "
				   "use another line", line);
	flags = port_lock(&line_lock);
	port_line_set_pending(line, 1);
	port_unlock(&line_lock, flags);
	return 0;
}

static int depth_command(struct args *args, char *reply, size_t size)
{
	u32 virq;

	if (args->count != 2 || !interrupt_arg(args->arg[1], &virq))
		return port_refuse(reply, size, "board: depth: wrong interrupt; use "
				   "depth line:N, depth virq:N or depth leaf:INDEX:TYPE");
	snprintf(reply, size, "depth=%d", port_irq_depth(virq));
	return 0;
}

static int cpus_command(struct args *args, char *reply, size_t size)
{
	u32 virq;

	if (args->count != 2 || !interrupt_arg(args->arg[1], &virq))
		return port_refuse(reply, size, "board: cpus: wrong interrupt; use "
				   "cpus line:N, cpus virq:N or cpus leaf:INDEX:TYPE");
	snprintf(reply, size, "cpus=0x%x", port_irq_cpus(virq));
	return 0;
}

static int masked_command(struct args *args, char *reply, size_t size)
{
	u32 line;
	int masked;

	if (args->count != 2 || !line_arg(args->arg[1], &line))
		return port_refuse(reply, size, "board: masked: no such line; use masked LINE, 0 to %u",
				   BOARD_LINES - 1);
	masked = port_line_masked(line);
	if (masked < 0) {
		port_refuse(reply, size, "board: masked: the controller of line %u does not tell (%d); "
			    "use another line", line, masked);
		return masked;
	}
	snprintf(reply, size, "masked=%d", masked);
	return 0;
}

static int virq_command(struct args *args, char *reply, size_t size)
{
	u32 virq;

	if (args->count != 2 || !interrupt_arg(args->arg[1], &virq))
		return port_refuse(reply, size, "board: virq: wrong interrupt; use "
				   "virq line:N, virq virq:N or virq leaf:INDEX:TYPE");
	snprintf(reply, size, "virq=%u", virq);
	return 0;
}

/* What another driver does: requests an interrupt by its number, past the combiner driver. */

#define REQUESTS_MAX 4

struct board_request {
	u32 virq;	/* 0: free; under requests_mutex */
	u32 taken;	/* under taken_lock */
};

PORT_MUTEX(requests_mutex);
PORT_LOCK(taken_lock);
static struct board_request requests[REQUESTS_MAX];

void board_request_taken(struct board_request *request)
{
	unsigned long flags = port_lock(&taken_lock);

	request->taken++;
	port_unlock(&taken_lock, flags);
}

/* Called with requests_mutex held, as the next three. */
static struct board_request *find_request(u32 virq)
{
	u32 at;

	for (at = 0; at < REQUESTS_MAX; at++)
		if (requests[at].virq == virq)
			return &requests[at];
	return NULL;
}

static int request_virq(u32 virq)
{
	struct board_request *request = find_request(0);
	int ret;

	if (!request)
		return -ENOMEM;
	request->taken = 0;
	ret = port_irq_request(virq, request);
	if (ret == 0)
		request->virq = virq;
	return ret;
}

static void free_request(struct board_request *request)
{
	port_irq_free(request->virq, request);
	request->virq = 0;
}

static bool taken_count(u32 virq, u32 *count)
{
	struct board_request *request = find_request(virq);
	unsigned long flags;

	if (!request)
		return false;
	flags = port_lock(&taken_lock);
	*count = request->taken;
	port_unlock(&taken_lock, flags);
	return true;
}

static int request_command(struct args *args, char *reply, size_t size)
{
	u32 virq;
	int ret;

	if (args->count != 2 || !interrupt_arg(args->arg[1], &virq) || !virq)
		return port_refuse(reply, size, "board: request: wrong interrupt; use "
				   "request line:N, request virq:N or request leaf:INDEX:TYPE");
	port_mutex_lock(&requests_mutex);
	ret = request_virq(virq);
	port_mutex_unlock(&requests_mutex);
	snprintf(reply, size, "ret=%d", ret);
	return 0;
}

static int free_command(struct args *args, char *reply, size_t size)
{
	struct board_request *request = NULL;
	u32 virq = 0;

	port_mutex_lock(&requests_mutex);
	if (args->count == 2 && interrupt_arg(args->arg[1], &virq) && virq)
		request = find_request(virq);
	if (request)
		free_request(request);
	port_mutex_unlock(&requests_mutex);
	if (request)
		return 0;
	return port_refuse(reply, size, "board: free: wrong interrupt; name one that was requested");
}

static int taken_command(struct args *args, char *reply, size_t size)
{
	u32 count = 0, virq = 0;
	bool found = false;

	port_mutex_lock(&requests_mutex);
	if (args->count == 2 && interrupt_arg(args->arg[1], &virq) && virq)
		found = taken_count(virq, &count);
	port_mutex_unlock(&requests_mutex);
	if (!found)
		return port_refuse(reply, size,
				   "board: taken: wrong interrupt; name one that was requested");
	snprintf(reply, size, "taken=%u", count);
	return 0;
}

static void free_all_requests(void)
{
	u32 at;

	port_mutex_lock(&requests_mutex);
	for (at = 0; at < REQUESTS_MAX; at++)
		if (requests[at].virq)
			free_request(&requests[at]);
	port_mutex_unlock(&requests_mutex);
}

static int set_fault(struct args *args, char *reply, size_t size)
{
	long ret;
	u32 nth;
	int failed;

	if (args->count != 4 || !port_number(args->arg[2], &nth) || nth == 0 ||
	    !return_value(args->arg[3], &ret))
		return port_refuse(reply, size, "board: fault: unknown form; use fault SYMBOL NTH RET "
				   "with NTH from 1, fault count or fault off");
	failed = strncmp(args->arg[1], "plat_", 5) == 0 ?
		 port_fault(args->arg[1], nth, ret) : -EINVAL;
	if (failed)
		port_refuse(reply, size, "board: fault: %s cannot be caught (%d); "
			    "name a function of the platform boundary, plat_...",
			    args->arg[1], failed);
	return failed;
}

static int fault_command(struct args *args, char *reply, size_t size)
{
	u32 calls;
	int hit;

	if (args->count == 2 && strcmp(args->arg[1], "off") == 0) {
		port_fault_off();
		return 0;
	}
	if (args->count != 2 || strcmp(args->arg[1], "count") != 0)
		return set_fault(args, reply, size);
	hit = port_fault_count(&calls);
	snprintf(reply, size, "calls=%u hit=%d", calls, hit);
	return 0;
}

/* The CPU-side registers that a configuration may write. */
static int mmio_command(struct args *args, char *reply, size_t size)
{
	bool poke = args->count == 4 && strcmp(args->arg[1], "poke") == 0;
	bool peek = args->count == 3 && strcmp(args->arg[1], "peek") == 0;
	u32 address, value = 0;
	int ret;

	if (!(poke || peek) || !port_number(args->arg[2], &address) ||
	    (poke && !port_number(args->arg[3], &value)))
		return port_refuse(reply, size, "board: mmio: unknown form; use mmio peek ADDRESS "
				   "or mmio poke ADDRESS VALUE");
	ret = poke ? port_mmio_write(address, value) : port_mmio_read(address, &value);
	if (ret) {
		port_refuse(reply, size, "board: mmio: 0x%x is outside the register area (%d)",
			    address, ret);
		return ret;
	}
	snprintf(reply, size, "value=0x%x", value);
	return 0;
}

static const struct {
	const char *name;
	int (*run)(struct args *args, char *reply, size_t size);
} commands[] = {
	{ "device", device_command },
	{ "raise", raise_command },
	{ "depth", depth_command },
	{ "cpus", cpus_command },
	{ "masked", masked_command },
	{ "virq", virq_command },
	{ "request", request_command },
	{ "free", free_command },
	{ "taken", taken_command },
	{ "fault", fault_command },
	{ "mmio", mmio_command },
};

static int board_command(const char *line, char *reply, size_t size)
{
	struct args args;
	size_t i;

	if (split(&args, line) && args.count > 0)
		for (i = 0; i < sizeof(commands) / sizeof(commands[0]); i++)
			if (strcmp(args.arg[0], commands[i].name) == 0)
				return commands[i].run(&args, reply, size);
	return port_refuse(reply, size, "board: no such command, or too many arguments; "
			   "use device, raise, depth, cpus, masked, virq, request, free, taken, "
			   "fault or mmio");
}

static void board_show(struct port_out *out)
{
	u64 asserted = lines_asserted();
	u32 line;

	for (line = 0; line < BOARD_LINES; line++)
		if (asserted & line_bit(line))
			port_printf(out, "line=%u level=1\n", line);
}

static struct port_ctl board_ctl = {
	.name = "board",
	.command = board_command,
	.show = board_show,
};

int board_start(void)
{
	int ret = port_board_start();

	if (ret)
		return ret;
	port_call_init(&changed_call, on_changed);
	port_timer_init(&reassert_timer, on_reassert);
	ret = port_ctl_register(&board_ctl);
	if (ret) {
		port_board_stop();
		return ret;
	}
	cpld_sim_set_line_hook(on_line_output);
	return 0;
}

/* The hook is removed first; after that no call starts the timer again but the last one. */
void board_stop(void)
{
	cpld_sim_set_line_hook(NULL);
	port_ctl_unregister(&board_ctl);
	port_call_sync(&changed_call);
	port_timer_cancel(&reassert_timer);
	set_disarmed();
	port_fault_off();
	free_all_requests();
	port_board_stop();
}
