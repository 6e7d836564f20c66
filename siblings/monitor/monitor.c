// SPDX-License-Identifier: GPL-2.0
/*
 * The interrupt monitor: bounds interrupt storms.
 *
 * A period of suppress_ms begins with the first occurrence after the last one
 * ended. With policy not 0, the occurrence number allow_max + 1 of a period
 * disables the line until the period's end; then it is enabled again. Policy 0
 * only counts; so does an allow_max or suppress_ms of 0, which set no bound.
 *
 * Parent lines are reported, occurrence by occurrence. Leaves are not: theirs are
 * sampled from the kernel's own count of each interrupt, so that a leaf that
 * storms is disabled before its parent's bound disables all of its neighbours. A
 * leaf occurs at most once for each occurrence of a parent: while all parents
 * together occur no more often than the smallest bound of a sampled line allows,
 * nothing is sampled. A parent that reaches its bound is looked at once more: where
 * a leaf is found to storm just then, the parent's period begins anew.
 *
 * A suppressed line has one disable of ours. Whoever changes `suppressed` from
 * true to false, under monitor_lock, enables it again: the timer or the unset.
 * The timer is started only after the disable, so it never enables first.
 */
#include "port.h"
#include "args.h"
#include "monitor.h"

#define BUCKETS 256u
#define SAMPLE_MS 5u
#define NS_PER_MS 1000000u

struct watched_line {
	struct watched_line *next;
	u32 virq;
	u32 allow_max;
	u32 suppress_ms;
	u32 policy;
	/* under monitor_lock */
	u64 period_start_ns;
	u32 period_count;
	u32 count;		/* occurrences since it is watched */
	u32 suppress_cnt;
	bool suppressed;
	bool reported;		/* else it is sampled */
	u32 total;		/* the kernel's count at the last sample */
	u32 series;		/* of samples that `total` belongs to */
	u32 checks;		/* running outside the lock; none begins once it is unlinked */
	struct watched_line *next_storm;	/* of one sample; counted in checks */
	struct port_timer timer;
};

/* When to sample; all but the timer under monitor_lock. */
struct sampler {
	u32 smallest_bound;	/* of the lines that were set since there were none */
	u32 longest_period_ms;
	u32 lines;
	u64 window_start_ns;
	u32 window_count;	/* occurrences of all parents since then */
	u32 series;		/* raised when sampling begins */
	u64 last_storm_ns;	/* when a sampled line was last found to storm */
	bool running;
	struct port_timer timer;
};

#define HOLD_MAX_MS 20000

/* A refusal that the control file asked for: the call number nth from now gives ret. */
struct refusal {
	u32 nth;	/* 0 = none */
	s32 ret;
	bool hold;	/* the refused call waits for the command let_go */
};

PORT_MUTEX(setup_mutex);	/* watched lines come and go */
PORT_LOCK(monitor_lock);	/* inside setup_mutex: the lists, counters and refusals */
static struct watched_line *buckets[BUCKETS];
static struct refusal refuse_set, refuse_unset;
static struct sampler sampler;

/* Called with monitor_lock held. */
static struct watched_line **find_link(u32 virq)
{
	struct watched_line **at = &buckets[virq % BUCKETS];

	while (*at && (*at)->virq != virq)
		at = &(*at)->next;
	return at;
}

static bool is_held(const struct refusal *refusal)
{
	unsigned long flags = port_lock(&monitor_lock);
	bool held = refusal->hold;

	port_unlock(&monitor_lock, flags);
	return held;
}

/* Process context. What happens meanwhile happens before the caller sees the refusal. */
static s32 take_refusal(struct refusal *refusal)
{
	unsigned long flags = port_lock(&monitor_lock);
	s32 ret = 0;
	u32 waited;

	if (refusal->nth && !--refusal->nth)
		ret = refusal->ret;
	port_unlock(&monitor_lock, flags);
	/* Not for ever: a test that forgets the call must not hang the driver. */
	for (waited = 0; ret && waited < HOLD_MAX_MS && is_held(refusal); waited++)
		port_sleep_ms(1);
	return ret;
}

static void say(const struct watched_line *line, const char *what)
{
	char text[120];

	snprintf(text, sizeof(text), "monitor: virq %u: %s (allow_max %u in %u ms)", line->virq,
		 what, line->allow_max, line->suppress_ms);
	port_printk(2, text);
}

/* Return: the caller has to enable the line. */
static bool end_suppression(struct watched_line *line)
{
	unsigned long flags = port_lock(&monitor_lock);
	bool ended = line->suppressed;

	line->suppressed = false;
	line->period_count = 0;
	port_unlock(&monitor_lock, flags);
	return ended;
}

/* A client that enables once too often has taken our disable back already. */
static void enable_once(u32 virq)
{
	if (port_irq_depth(virq) > 0)
		port_enable_irq(virq);
}

static void period_over(struct port_timer *timer)
{
	struct watched_line *line = container_of(timer, struct watched_line, timer);

	if (!end_suppression(line))
		return;
	say(line, "enabled again");
	enable_once(line->virq);
}

static bool is_bounded(const struct watched_line *line)
{
	return line->policy && line->allow_max && line->suppress_ms;
}

/* Called with monitor_lock held. Return: the line has reached its bound. */
static bool count_occurrences(struct watched_line *line, u32 times, u64 now)
{
	line->count += times;
	if (!is_bounded(line) || line->suppressed || !times)
		return false;
	if (!line->period_count ||
	    now - line->period_start_ns >= (u64)line->suppress_ms * NS_PER_MS) {
		line->period_start_ns = now;
		line->period_count = 0;
	}
	line->period_count += times;
	return line->period_count > line->allow_max;
}

/* Called with monitor_lock held; the caller calls suppress() without it. */
static void mark_suppressed(struct watched_line *line)
{
	line->suppressed = true;
	line->suppress_cnt++;
	line->checks++;
}

static u32 rest_of_period_ms(const struct watched_line *line)
{
	u64 passed_ms = (port_now_ns() - line->period_start_ns) / NS_PER_MS;

	return passed_ms < line->suppress_ms ? line->suppress_ms - (u32)passed_ms : 1;
}

/* Of a line that is marked; it stays while `checks` counts it. */
static void suppress(struct watched_line *line)
{
	unsigned long flags;

	port_disable_irq_nosync(line->virq);
	say(line, "storm, disabled for the rest of the period");
	port_timer_start_ms(&line->timer, rest_of_period_ms(line));
	flags = port_lock(&monitor_lock);
	line->checks--;
	port_unlock(&monitor_lock, flags);
}

/*
 * Called with monitor_lock held, for each occurrence of a parent. Return: sampling
 * begins with this one.
 */
static bool want_samples(u64 now)
{
	if (!sampler.lines)
		return false;
	if (now - sampler.window_start_ns >= (u64)sampler.longest_period_ms * NS_PER_MS) {
		sampler.window_start_ns = now;
		sampler.window_count = 0;
	}
	if (++sampler.window_count <= sampler.smallest_bound || sampler.running)
		return false;
	sampler.running = true;
	sampler.series++;
	return true;
}

/* Called with monitor_lock held. Return: whether to go on; a quiet window ends it. */
static bool go_on_sampling(u64 now)
{
	if (now - sampler.window_start_ns < (u64)sampler.longest_period_ms * NS_PER_MS)
		return true;
	sampler.running = sampler.window_count > sampler.smallest_bound;
	sampler.window_start_ns = now;
	sampler.window_count = 0;
	return sampler.running;
}

/* Called with monitor_lock held. The first sample of a series only begins it. */
static bool sample_line(struct watched_line *line, u64 now)
{
	u32 total = port_irq_count(line->virq);
	u32 times = line->series == sampler.series ? total - line->total : 0;

	line->total = total;
	line->series = sampler.series;
	return count_occurrences(line, times, now);
}

/* Called with monitor_lock held. Return: the lines that have to be suppressed. */
static struct watched_line *sample_bucket(struct watched_line *line, u64 now)
{
	struct watched_line *storms = NULL;

	for (; line; line = line->next) {
		if (line->reported || !is_bounded(line) || !sample_line(line, now))
			continue;
		mark_suppressed(line);
		sampler.last_storm_ns = now;
		line->next_storm = storms;
		storms = line;
	}
	return storms;
}

/*
 * Any context; the lock is dropped between buckets, as there may be many lines.
 * Those that storm are disabled.
 */
static void sample_lines(void)
{
	struct watched_line *line, *next;
	unsigned long flags;
	u32 i;

	for (i = 0; i < BUCKETS; i++) {
		flags = port_lock(&monitor_lock);
		line = sample_bucket(buckets[i], port_now_ns());
		port_unlock(&monitor_lock, flags);
		for (; line; line = next) {
			next = line->next_storm;	/* the line may go once it is suppressed */
			suppress(line);
		}
	}
}

static void sample(struct port_timer *timer)
{
	unsigned long flags;
	bool go_on;

	sample_lines();
	flags = port_lock(&monitor_lock);
	go_on = go_on_sampling(port_now_ns());
	port_unlock(&monitor_lock, flags);
	if (go_on)
		port_timer_start_ms(timer, SAMPLE_MS);
}

/*
 * The parent has reached its bound and is counted in `checks`. Where a leaf was
 * found to storm in its period, here or by the timer just before, the leaf is
 * disabled and the parent begins a new period.
 */
static void judge_parent(struct watched_line *line)
{
	unsigned long flags;
	bool leaf_storms, storm;

	sample_lines();
	flags = port_lock(&monitor_lock);
	leaf_storms = sampler.last_storm_ns >= line->period_start_ns;
	storm = !leaf_storms && !line->suppressed;
	if (leaf_storms)
		line->period_count = 0;
	if (storm)
		mark_suppressed(line);
	line->checks--;
	port_unlock(&monitor_lock, flags);
	if (storm)
		suppress(line);
}

/* Hard-interrupt context. The line stays while `checks` counts it. */
int drv_intr_monitor_do_check(u32 virq, struct irq_desc *desc, u32 dev_virq)
{
	struct watched_line *line;
	unsigned long flags;
	u64 now = port_now_ns();
	bool at_bound = false, samples;

	(void)desc;
	(void)dev_virq;
	flags = port_lock(&monitor_lock);
	line = *find_link(virq);
	if (line) {
		line->reported = true;
		at_bound = count_occurrences(line, 1, now);
		line->checks += at_bound;
	}
	samples = want_samples(now);
	port_unlock(&monitor_lock, flags);
	if (samples) {
		sample_lines();
		port_timer_start_ms(&sampler.timer, SAMPLE_MS);
	}
	if (at_bound)
		judge_parent(line);
	return line ? 0 : -ENOENT;
}

/* Called with monitor_lock held: the line may be one to sample. */
static void widen_samples(const struct watched_line *line)
{
	if (!is_bounded(line))
		return;
	if (!sampler.lines++) {
		sampler.smallest_bound = line->allow_max;
		sampler.longest_period_ms = line->suppress_ms;
	}
	if (line->allow_max < sampler.smallest_bound)
		sampler.smallest_bound = line->allow_max;
	if (line->suppress_ms > sampler.longest_period_ms)
		sampler.longest_period_ms = line->suppress_ms;
}

/* Called with setup_mutex held. */
static int link_line(struct watched_line *line)
{
	unsigned long flags = port_lock(&monitor_lock);
	struct watched_line **link = find_link(line->virq);
	int ret = *link ? -EEXIST : 0;

	if (!ret) {
		*link = line;
		widen_samples(line);
	}
	port_unlock(&monitor_lock, flags);
	return ret;
}

static struct watched_line *make_line(u32 virq, u32 allow_max, u32 suppress_ms, u32 policy)
{
	struct watched_line *line = port_alloc(sizeof(*line));

	if (!line)
		return NULL;
	line->virq = virq;
	line->allow_max = allow_max;
	line->suppress_ms = suppress_ms;
	line->policy = policy;
	port_timer_init(&line->timer, period_over);
	return line;
}

int drv_intr_monitor_set_param(u32 virq, u32 dev_virq, u32 allow_max, u32 suppress_ms, u32 policy,
			       void *reserved)
{
	struct watched_line *line;
	int ret = take_refusal(&refuse_set);

	(void)dev_virq;
	(void)reserved;
	if (ret)
		return ret;
	if (!virq)
		return -EINVAL;
	line = make_line(virq, allow_max, suppress_ms, policy);
	if (!line)
		return -ENOMEM;
	port_mutex_lock(&setup_mutex);
	ret = link_line(line);
	port_mutex_unlock(&setup_mutex);
	if (ret)
		port_free(line);
	return ret;
}

static struct watched_line *unlink_line(u32 virq)
{
	unsigned long flags = port_lock(&monitor_lock);
	struct watched_line **link = find_link(virq);
	struct watched_line *line = *link;

	if (line) {
		*link = line->next;
		sampler.lines -= is_bounded(line);
	}
	port_unlock(&monitor_lock, flags);
	return line;
}

static bool checks_run(struct watched_line *line)
{
	unsigned long flags = port_lock(&monitor_lock);
	bool run = line->checks != 0;

	port_unlock(&monitor_lock, flags);
	return run;
}

/* The line is unlinked. First the checks end, as one of them may still start the timer. */
static void release_line(struct watched_line *line)
{
	while (checks_run(line))
		port_sleep_ms(1);
	port_timer_cancel(&line->timer);
	if (end_suppression(line)) {
		say(line, "enabled again, no longer watched");
		enable_once(line->virq);
	}
	port_free(line);
}

/* setup_mutex also keeps the line from a reader of the control file. */
int drv_intr_monitor_unset_param(u32 virq, u32 dev_virq)
{
	struct watched_line *line;
	int refusal = take_refusal(&refuse_unset);

	(void)dev_virq;
	port_mutex_lock(&setup_mutex);
	line = unlink_line(virq);
	if (line)
		release_line(line);
	port_mutex_unlock(&setup_mutex);
	/* An ordered refusal is only reported: the caller frees the virq, and its next user needs it. */
	if (refusal)
		return refusal;
	return line ? 0 : -ENOENT;
}

/* What the reports ask of a line. -ENOENT: it is not watched. */
static int read_line(u32 virq, u32 *suppress_cnt, bool *suppressed)
{
	unsigned long flags = port_lock(&monitor_lock);
	struct watched_line *line = *find_link(virq);

	if (line) {
		*suppress_cnt = line->suppress_cnt;
		*suppressed = line->suppressed;
	}
	port_unlock(&monitor_lock, flags);
	return line ? 0 : -ENOENT;
}

int drv_intr_mng_get_suppress_cnt(u32 virq, u32 *count)
{
	bool suppressed;

	return count ? read_line(virq, count, &suppressed) : -EINVAL;
}

int drv_intr_mng_get_irq_state(u32 virq, s32 *state)
{
	bool suppressed = false;
	u32 count;
	int ret;

	if (!state)
		return -EINVAL;
	ret = read_line(virq, &count, &suppressed);
	if (ret == 0)
		*state = suppressed ? 1 : 0;
	return ret;
}

static void set_refusal(struct refusal *refusal, u32 nth, s32 ret, bool hold)
{
	unsigned long flags = port_lock(&monitor_lock);

	refusal->nth = nth;
	refusal->ret = ret;
	refusal->hold = hold;
	port_unlock(&monitor_lock, flags);
}

static void let_go(void)
{
	unsigned long flags = port_lock(&monitor_lock);

	refuse_set.hold = false;
	refuse_unset.hold = false;
	port_unlock(&monitor_lock, flags);
}

static void refuse_nothing(void)
{
	set_refusal(&refuse_set, 0, 0, false);
	set_refusal(&refuse_unset, 0, 0, false);
}

/* What may follow a refusal: "hold=1", or nothing. */
static bool hold_arg(const char *at, bool *hold)
{
	char arg[8];

	*hold = port_arg(&at, arg, sizeof(arg));
	return !*hold || (!strcmp(arg, "hold=1") && port_line_ends(at));
}

/* "set NTH RET" or "unset NTH RET", and "hold=1" */
static bool command_refuse(const char *at)
{
	struct refusal *refusal = NULL;
	char arg[8];
	bool hold;
	u32 nth;
	s32 ret;

	if (!port_arg(&at, arg, sizeof(arg)))
		return false;
	if (!strcmp(arg, "set"))
		refusal = &refuse_set;
	else if (!strcmp(arg, "unset"))
		refusal = &refuse_unset;
	if (!refusal || !port_arg_number(&at, &nth) || !nth || !port_arg_result(&at, &ret) ||
	    !hold_arg(at, &hold))
		return false;
	set_refusal(refusal, nth, ret, hold);
	return true;
}

static int command(const char *line, char *reply, size_t reply_size)
{
	const char *at = line;
	char arg[8];

	if (!port_arg(&at, arg, sizeof(arg)))
		arg[0] = '\0';
	if (!strcmp(arg, "off") && port_line_ends(at)) {
		refuse_nothing();
		return 0;
	}
	if (!strcmp(arg, "let_go") && port_line_ends(at)) {
		let_go();
		return 0;
	}
	if (!strcmp(arg, "refuse") && command_refuse(at))
		return 0;
	return port_refuse(reply, reply_size,
			   "monitor: \"%.80s\" is not understood; write "
			   "\"refuse set|unset NTH RET [hold=1]\", \"let_go\" or \"off\"",
			   line);
}

static void show_line(struct port_out *out, const struct watched_line *line)
{
	unsigned long flags = port_lock(&monitor_lock);
	u32 count = line->count, suppress_cnt = line->suppress_cnt;
	bool suppressed = line->suppressed;

	port_unlock(&monitor_lock, flags);
	port_printf(out,
		    "virq=%u allow_max=%u suppress_ms=%u policy=%u count=%u suppressed=%u suppress_cnt=%u\n",
		    line->virq, line->allow_max, line->suppress_ms, line->policy, count, suppressed,
		    suppress_cnt);
}

/* Walks without monitor_lock: setup_mutex keeps the lists as they are. */
static void show(struct port_out *out)
{
	struct watched_line *line;
	u32 i;

	port_mutex_lock(&setup_mutex);
	for (i = 0; i < BUCKETS; i++)
		for (line = buckets[i]; line; line = line->next)
			show_line(out, line);
	port_mutex_unlock(&setup_mutex);
}

static struct port_ctl control = { .name = "monitor", .command = command, .show = show };

int monitor_start(void)
{
	refuse_nothing();
	memset(&sampler, 0, sizeof(sampler));
	port_timer_init(&sampler.timer, sample);
	return port_ctl_register(&control);
}

void monitor_stop(void)
{
	u32 i;

	port_ctl_unregister(&control);
	port_mutex_lock(&setup_mutex);
	for (i = 0; i < BUCKETS; i++)
		while (buckets[i])
			release_line(unlink_line(buckets[i]->virq));
	port_mutex_unlock(&setup_mutex);
	port_timer_cancel(&sampler.timer);
}
