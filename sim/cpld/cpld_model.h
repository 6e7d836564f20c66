/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The parts of the CPLD simulation, each calling only those above it here: the
 * lock, the model, the trace, the control files. Every function of this file is
 * called with the lock of cpld_lock()/cpld_unlock() held, except where it says
 * otherwise.
 */
#ifndef CPLD_CPLD_MODEL_H
#define CPLD_CPLD_MODEL_H

#define CPLD_NO_REGISTER 0xffffffffu	/* enable register of a level that has none */
#define CPLD_NAME_MAX 32
#define CPLD_LINES 64u
#define CPLD_CHAIN_MAX 12u
#define CPLD_LEVELS 16384u
#define CPLD_SOURCES 8192u
#define CPLD_REGISTER_BITS 14
#define CPLD_REGISTERS (1u << CPLD_REGISTER_BITS)

/* --- lock.c: the lock over the state of all parts, and the line hook --- */

struct cpld_register;

/* What every access looks at, side by side. */
struct cpld_state {
	struct port_lock lock;
	u32 touched;	/* lines, since the lock was taken */
	bool observed;	/* the trace is on or a failure is due: else an access is only made */
	struct cpld_register *registers;	/* of the model; NULL: there is none */
};
extern struct cpld_state cpld_state;

static inline unsigned long cpld_lock(void)
{
	return port_lock(&cpld_state.lock);
}

void cpld_unlock_touched(unsigned long flags);
/* Unlocks, then calls the line hook for each line that was touched. */
static inline void cpld_unlock(unsigned long flags)
{
	if (cpld_state.touched)
		cpld_unlock_touched(flags);
	else
		port_unlock(&cpld_state.lock, flags);
}

/* A change reached this line, which has this level now; of several calls the last one counts. */
void cpld_touch_line(u32 line, int level);

/* --- model.c: registers, levels, sources, lines --- */

/* One level of a source's chain, as a command gives it. enable may be CPLD_NO_REGISTER. */
struct cpld_level_spec {
	u32 inst;
	u32 chip;
	u32 enable;
	u32 status;
	u32 shift;	/* below 32 */
	u32 mask;	/* not 0, within the register */
	bool latched;	/* write-one-to-clear; else status follows the input */
};

/* Process context, without the lock. Return: 0 or -ENOMEM, and nothing is changed. */
int cpld_model_reset(void);
void cpld_model_free(void);

struct cpld_level;

/* A slot of a hash table with open addressing; its size is a power of 2. */
struct cpld_register {
	u64 chip;	/* as cpld_chip gives it */
	u32 address;
	bool used;
	u32 value;
	u32 status_bits, latched_bits;	/* status fields of levels, those latched among them */
	u32 enable_bits;
	struct cpld_level *status_levels;	/* levels with their status here */
	struct cpld_level *enable_levels;
	u64 spare[2];
};

/* A chip of an instance: what registers are found by, beside their address. */
static inline u64 cpld_chip(u32 inst, u32 chip)
{
	return (u64)inst << 32 | chip;
}

/* The register's slot from this one on, or the free one where it would lie: of value 0. */
struct cpld_register *cpld_probe(u32 at, u64 chip, u32 address);

/* Chip and instance go to the upper half, out of the way of all usual addresses. */
static inline u32 cpld_hash_register(u64 chip, u32 address)
{
	u32 high = (u32)(chip ^ chip >> 32);

	return ((high << 23 | high >> 9) ^ address) * 0x9e3779b1u >> (32 - CPLD_REGISTER_BITS);
}

/* There is a model. */
static inline struct cpld_register *cpld_find_register(u64 chip, u32 address)
{
	u32 at = cpld_hash_register(chip, address);
	struct cpld_register *reg = &cpld_state.registers[at];

	if (reg->chip == chip && reg->address == address)
		return reg;
	return cpld_probe(at, chip, address);
}

static inline u32 cpld_model_read(u64 chip, u32 reg)
{
	return cpld_state.registers ? cpld_find_register(chip, reg)->value : 0;
}

/* What depends on these bits of a register that has changed. */
void cpld_model_settle(struct cpld_register *reg, u32 bits);
/* The first write of a register. -ENOSPC: too many. */
int cpld_model_first_write(u64 chip, u32 reg, u32 bits, u32 value);

/* A bus write of the given bits: status bits have their own rule. -ENOSPC: too many registers. */
static inline int cpld_model_write(u64 chip, u32 address, u32 bits, u32 value)
{
	struct cpld_register *reg;
	u32 before, plain, clear, changed;

	reg = cpld_state.registers ? cpld_find_register(chip, address) : NULL;
	if (!reg || !reg->used)
		return cpld_model_first_write(chip, address, bits, value);
	before = reg->value;
	plain = bits & ~reg->status_bits;
	clear = bits & value & reg->latched_bits;
	reg->value = (before & ~plain & ~clear) | (value & plain);
	changed = (before ^ reg->value) & (reg->status_bits | reg->enable_bits);
	if (changed)
		cpld_model_settle(reg, changed);
	return 0;
}

/* Changes the register itself; a status whose input is active is set again. */
int cpld_model_poke(u64 chip, u32 reg, u32 value);

/* Outermost level first. Return: 0, or -EINVAL/-ENOSPC, *why says why and nothing is changed. */
int cpld_model_add_source(const char *name, u32 line,
			  const struct cpld_level_spec *levels, u32 count, const char **why);
int cpld_model_set_source(const char *name, bool asserted);	/* 0 or -ENOENT */
int cpld_model_line_level(u32 line);

/* Text of all parts. Process context, without the lock: takes it for one record at a time. */
void cpld_model_show(struct port_out *out);
void cpld_model_show_counts(struct port_out *out);

/* --- trace.c: record of accesses, failures to order --- */

enum cpld_op { CPLD_READ, CPLD_WRITE, CPLD_REG_READ, CPLD_REG_WRITE, CPLD_ANY, CPLD_MARK };
#define CPLD_FAIL_RULES (CPLD_ANY + 1)

struct cpld_access {
	enum cpld_op op;
	u32 inst, chip, reg;
	u32 shift, mask;	/* of a field access */
	u32 value;
	s32 ret;
};

/* Process context, without the lock. */
int cpld_trace_start(void);
void cpld_trace_stop(void);
void cpld_trace_show(struct port_out *out);
void cpld_trace_show_counts(struct port_out *out);

void cpld_trace_add(const struct cpld_access *access);
void cpld_trace_mark(const char *text);
void cpld_trace_switch(bool on);
void cpld_trace_clear(void);

/* Accesses number nth to nth + count - 1 from now, of this kind, give ret. */
void cpld_fail_set(enum cpld_op op, u32 nth, u32 count, s32 ret);
void cpld_fail_clear(void);
/* Counts the access. Return: the result it has to fail with, or 0. */
s32 cpld_fail_check(enum cpld_op op);

/* --- ctl.c: the control files --- */

int cpld_ctl_register(void);
void cpld_ctl_unregister(void);

#endif
