/* SPDX-License-Identifier: GPL-2.0 */
/* Inside the bench's module: registers, parent lines, peers. */
#ifndef BENCH_REGS_H
#define BENCH_REGS_H

#include <linux/compiler.h>
#include <linux/types.h>

#include "bench.h"
#include "intr/drv_intr.h"

struct device;
struct file;

struct regs {
	u32 word[BENCH_REGS];
	u64 reads;
	u64 writes;
};
extern struct regs regs;

static inline u32 regs_read(u32 reg)
{
	regs.reads++;
	return READ_ONCE(regs.word[reg]);
}

/* Of these bits of a gathering level's status, those of which an input is up. */
u32 regs_inputs(u32 reg, u32 bits);

static inline void regs_write(u32 reg, u32 value)
{
	regs.writes++;
	if (reg & 1)
		value = (regs.word[reg] & ~value) |
			(reg % BENCH_LINE_REGS < BENCH_GROUPS_AT ? 0 : regs_inputs(reg, value));
	WRITE_ONCE(regs.word[reg], value);
}

void regs_restart_slots(void);

/* Lines: interrupts of a controller of the bench's own, whose level the registers are. */
int lines_start(void);
void lines_stop(void);
u32 line_virq(u32 line);
/* As its controller starts a line, for whoever had it before left it somehow. */
void line_reset(u32 line);
int devices_set(u32 count);

/* With the line's descriptor lock held. */
void run_line_masked(u32 line, bool masked);
/*
 * A run is over when each leaf that was asserted has had its handler. Until then its
 * line interrupts again whenever it is up and unmasked.
 */
void run_leaf_served(void);
int run_interrupts(struct bench_para *para);
/* Asserts one leaf and interrupts: in the caller's place, with interrupts off. -EBUSY: masked. */
int run_raise(const struct bench_para *para, u64 *raised);

/* Peers. `dev` is whose regmap it is. */
int peer_start(const struct bench_para *para, struct device *dev);
void peer_stop(void);
void peer_enable_last(void);
bool peer_is_bare(void);
void peer_send(void);
/* Waits for an interrupt of BENCH_WAKE_READ. */
int peer_wait(void);

/* Allocations. */
int allocs_start(bool all);
void allocs_stop(struct bench_para *para);

/* The driver's functions, from bench_link.ko, which comes after the driver. Null: it goes. */
struct bench_intr {
	int (*enable)(u32 index_id, u32 type);
	int (*disable)(u32 index_id, u32 type);
	u32 (*find)(u32 index_id, u32 type);
	int (*regist)(u32 index_id, u32 type, drv_intr_handler handler, void *data);
	int (*unregist)(u32 index_id, u32 type);
};
void bench_set_intr(const struct bench_intr *intr);

#endif
