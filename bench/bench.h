/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What the bench's kernel module and its program share: the clock, the register
 * file's layout, and the commands of /dev/bench. Both are built together.
 */
#ifndef BENCH_BENCH_H
#define BENCH_BENCH_H

#define BENCH_DEVICE "/dev/bench"

/*
 * On a machine whose counter follows its instructions (boot --instruction-clock) an
 * instruction is 1 ns and a tick 16 of them. The barriers keep others out of the count.
 */
#define BENCH_TICK_INSTRUCTIONS 16u

static inline unsigned long long bench_clock(void)
{
	unsigned long long ticks;

	__asm__ volatile("isb\n\tmrs %0, cntvct_el0\n\tisb" : "=r"(ticks) : : "memory");
	return ticks;
}

/* Parent lines: those of the board's combiners, GPIO pins for a card's, that of the peers. */
#define BENCH_COMBINERS 32u
#define BENCH_PINS 4u
#define BENCH_FIRST_PIN 32u
#define BENCH_GPIO_BASE 400u
#define BENCH_PEER_LINE 36u
#define BENCH_LINES 37u

/*
 * The registers of one line, of 8 bits each: an enable register at an even address,
 * its status, write one to clear, behind it. A register has 8 leaves, and a bit in a
 * register of groups; before these come levels that all leaves share.
 */
#define BENCH_LEAVES 256u
#define BENCH_LEVELS 5u
#define BENCH_LINE_REGS 128u
#define BENCH_GROUPS_AT 64u
#define BENCH_SHARED_AT 72u
#define BENCH_REGS (BENCH_LINES * BENCH_LINE_REGS)

struct bench_field {
	unsigned int en;
	unsigned int status;
	unsigned int shift;
};

/* Level 0 is the outermost. */
static inline struct bench_field bench_level(unsigned int line, unsigned int leaf,
					     unsigned int levels, unsigned int level)
{
	unsigned int below = levels - 1 - level, group = leaf / 8;
	unsigned int at = line * BENCH_LINE_REGS, bit = 0;

	if (below == 0) {
		at += 2 * group;
		bit = leaf % 8;
	} else if (below == 1) {
		at += BENCH_GROUPS_AT + 2 * (group / 8);
		bit = group % 8;
	} else {
		at += BENCH_SHARED_AT + 2 * (below - 2);
	}
	return (struct bench_field){at, at + 1, bit};
}

/* The leaf's name for the driver's users: its number, and this and its line. */
#define BENCH_TYPE 100u

/* Who demultiplexes the line. */
enum bench_method {
	BENCH_RUNNER, /* nobody: a chained handler that reports its leaf at once */
	BENCH_INTR, /* the driver, on a line of the board or a pin */
	BENCH_FLAT, /* a chained handler, group registers, the enable mask in memory */
	BENCH_WALK, /* a chained handler that tests leaf by leaf, all in registers */
	BENCH_REGMAP, /* the kernel's register-map controller, bulk read */
	BENCH_REGMAP_MAIN, /* the same with a main status register */
};

/* What the handler of a peer's last leaf does. */
enum bench_wake {
	BENCH_WAKE_RUNNER, /* of every leaf: reports to BENCH_RUN */
	BENCH_WAKE_NETLINK, /* from a thread, after a disable */
	BENCH_WAKE_EVENTFD, /* the file is in `fd`; after a disable, as the next */
	BENCH_WAKE_READ, /* of /dev/bench, as UIO does it */
	BENCH_WAKE_BARE, /* a netlink message straight from the thread that raises */
};

enum bench_active { BENCH_FIRST, BENCH_MIDDLE, BENCH_LAST, BENCH_ALL };

#define BENCH_NETLINK 29
#define BENCH_RUN_MAX 2000u

struct bench_para {
	unsigned int method;
	unsigned int line;
	unsigned int leaves;
	unsigned int levels;
	unsigned int active;
	unsigned int count;
	unsigned int wake;
	int fd;
	unsigned long long reads;
	unsigned long long writes;
	unsigned long long ticks[3];
	unsigned long long allocations;
	long long bytes;
};

enum bench_command {
	BENCH_DEVICES = 0xb0, /* `count` devices for the driver's combiners, before its load */
	BENCH_PEER, /* sets a peer up: method, leaves, levels, wake, fd, port in count */
	BENCH_PEER_DOWN,
	BENCH_REGISTER, /* a callback for `count` leaves from leaf `leaves` on, of `line` */
	BENCH_UNREGISTER,
	/* `count` interrupts: reads and writes of all; ticks[0] of ticks[1] of them; raised
	   ticks[2] times */
	BENCH_RUN,
	BENCH_GATE, /* ticks of `count` find, disable, enable of leaf `leaves` */
	BENCH_ARM, /* raises once the caller sleeps */
	BENCH_RAISED, /* ticks[0]: the time of that */
	BENCH_ENABLE, /* a peer's last leaf again */
	BENCH_ALLOC_START, /* active not 0: of all contexts, not only of the caller */
	BENCH_ALLOC_STOP, /* allocations; bytes, less what was freed */
};

#endif
