// SPDX-License-Identifier: GPL-2.0
/*
 * The runner: asserts leaves, lets their parent line interrupt, and waits until each
 * of them has had its handler.
 *
 * The interrupt is raised by a call into the interrupt core from a task, with
 * interrupts off and the task marked as in a hard interrupt: all of it but the CPU's
 * exception entry, which is the same for everybody. A line is a level: while
 * registers say that it is up, it interrupts again, at once or when it is unmasked.
 */
#include <linux/completion.h>
#include <linux/errno.h>
#include <linux/irq.h>
#include <linux/irq_work.h>
#include <linux/irqdesc.h>
#include <linux/preempt.h>
#include <linux/sort.h>
#include <linux/timer.h>

#include "regs.h"

#define WARM_UP 10u
#define TIME_LIMIT (60 * HZ)

static bool masked[BENCH_LINES];
static u32 pending; /* leaves that were asserted and not served */
static u32 pending_line;
static u32 served, raised; /* of the whole run */
static bool late;
static DECLARE_COMPLETION(all_served);
static u32 took[BENCH_RUN_MAX]; /* ticks of each round */

static void on_late(struct timer_list *timer)
{
	late = true;
	complete(&all_served);
}

static DEFINE_TIMER(time_limit, on_late);

void run_leaf_served(void)
{
	served++;
	if (--pending == 0)
		complete(&all_served);
}

/* Not counted: the outer levels of a leaf that is up are up with it. */
static bool line_is_up(u32 line)
{
	const u32 *reg = &regs.word[line * BENCH_LINE_REGS];
	u32 group;

	for (group = 0; group < BENCH_LEAVES / 8; group++)
		if (reg[2 * group] & reg[2 * group + 1])
			return true;
	return false;
}

static void interrupt(u32 line)
{
	preempt_count_add(HARDIRQ_OFFSET);
	do {
		raised++;
		generic_handle_irq(line_virq(line));
	} while (pending && !masked[line] && line_is_up(line));
	preempt_count_sub(HARDIRQ_OFFSET);
}

static void on_unmasked_up(struct irq_work *work)
{
	if (pending && !masked[pending_line] && line_is_up(pending_line))
		interrupt(pending_line);
}

static DEFINE_IRQ_WORK(unmasked_up, on_unmasked_up);

void run_line_masked(u32 line, bool is_masked)
{
	masked[line] = is_masked;
	if (!is_masked && pending && line == pending_line && line_is_up(line))
		irq_work_queue(&unmasked_up);
}

/* A bit of each level's status; a direct combiner has no registers. */
static void assert_leaf(const struct bench_para *para, u32 leaf)
{
	u32 level;

	for (level = 0; level < para->levels; level++) {
		struct bench_field field = bench_level(para->line, leaf, para->levels, level);

		regs.word[field.status] |= 1u << field.shift;
	}
	pending++;
}

static void assert_leaves(const struct bench_para *para)
{
	const u32 one[] = {0, para->leaves / 2, para->leaves - 1};
	u32 leaf;

	pending_line = para->line;
	if (para->active != BENCH_ALL)
		assert_leaf(para, one[para->active]);
	for (leaf = 0; para->active == BENCH_ALL && leaf < para->leaves; leaf++)
		assert_leaf(para, leaf);
}

/* What a candidate that looks at leaves only has not cleared. */
static void withdraw(u32 line)
{
	u32 reg;

	for (reg = 1; reg < BENCH_LINE_REGS; reg += 2)
		regs.word[line * BENCH_LINE_REGS + reg] = 0;
}

static int run_once(const struct bench_para *para, u32 *ticks)
{
	unsigned long flags;
	u64 start;

	assert_leaves(para);
	if (masked[para->line])
		return -EBUSY;
	start = bench_clock();
	local_irq_save(flags);
	interrupt(para->line);
	local_irq_restore(flags);
	wait_for_completion(&all_served);
	*ticks = bench_clock() - start;
	if (late)
		return -ETIME;
	withdraw(para->line);
	return 0;
}

static int compare_ticks(const void *a, const void *b)
{
	return *(const u32 *)a < *(const u32 *)b ? -1 : 1;
}

/* What the shorter nine tenths took: in the others the machine's timer came, or may have. */
static void add_up(struct bench_para *para)
{
	u32 kept = para->count - para->count / 10, i;

	sort(took, para->count, sizeof(took[0]), compare_ticks, NULL);
	para->ticks[0] = 0;
	for (i = 0; i < kept; i++)
		para->ticks[0] += took[i];
	para->ticks[1] = kept;
}

int run_interrupts(struct bench_para *para)
{
	u32 active = para->active == BENCH_ALL ? para->leaves : 1, round, before = 0, unused;
	int ret = 0;

	if (para->line >= BENCH_LINES || !para->leaves || para->leaves > BENCH_LEAVES ||
	    para->levels > BENCH_LEVELS || para->active > BENCH_ALL || para->count > BENCH_RUN_MAX)
		return -EINVAL;
	pending = served = 0;
	late = false;
	reinit_completion(&all_served);
	mod_timer(&time_limit, jiffies + TIME_LIMIT);
	for (round = 0; round < WARM_UP && !ret; round++)
		ret = run_once(para, &unused);
	regs.reads = regs.writes = 0;
	before = raised;
	for (round = 0; round < para->count && !ret; round++)
		ret = run_once(para, &took[round]);
	del_timer_sync(&time_limit);
	para->reads = regs.reads;
	para->writes = regs.writes;
	para->ticks[2] = raised - before;
	add_up(para);
	pending = 0;
	withdraw(para->line);
	if (!ret && served != active * (WARM_UP + para->count))
		ret = -EPROTO;
	return ret;
}

int run_raise(const struct bench_para *para, u64 *when)
{
	unsigned long flags;

	pending = 0;
	withdraw(para->line);
	assert_leaves(para);
	pending = 0; /* nobody reports: it interrupts once */
	if (masked[para->line])
		return -EBUSY;
	*when = bench_clock();
	local_irq_save(flags);
	interrupt(para->line);
	local_irq_restore(flags);
	return 0;
}
