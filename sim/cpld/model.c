// SPDX-License-Identifier: GPL-2.0
/*
 * The simulated CPLDs: registers, and the interrupt wiring between them.
 *
 * A level is one interrupt stage: a status field and, mostly, an enable field
 * of the same place in another register. Its output is status AND enable, an
 * input of the level outside it, or of a parent line. Its own input is active
 * while one of its sources or inner levels is. A "level" status follows the
 * input; a latched one is set by it and stays until 1 is written to its bits,
 * after which an input that is still active sets it again.
 *
 * So every level has one outlet, the wiring is a forest, and a change runs
 * along one path to a line. What becomes of all other register bits is up to
 * whoever writes them: they are storage, made at the first write.
 */
#include "port.h"
#include "cpld_model.h"

#define NAME_BUCKETS 1024u
#define REGISTERS_FULL (CPLD_REGISTERS / 4 * 3)	/* keeps the look-up short */

struct line {
	u32 number;
	u32 inputs;	/* active outermost levels */
};

struct cpld_level {
	struct cpld_level *outer;		/* NULL: the line is next */
	struct line *line;
	struct cpld_register *status, *enable;	/* enable NULL: always enabled */
	struct cpld_level *next_status, *next_enable;
	u32 shift, mask;
	u32 bits;			/* of both: the field in its registers */
	bool latched;
	bool active;			/* output */
	u32 inputs;			/* asserted sources and active inner levels */
};

struct source {
	char name[CPLD_NAME_MAX];
	struct source *next;
	struct cpld_level *level;
	bool asserted;
};

struct model {
	struct cpld_register registers[CPLD_REGISTERS];
	struct cpld_level levels[CPLD_LEVELS];
	struct source sources[CPLD_SOURCES];
	struct source *names[NAME_BUCKETS];
	struct line lines[CPLD_LINES];
	u32 register_count, level_count, source_count, line_count;
};

static struct model *model;

/* The whole model is exchanged: clearing it would keep interrupts off for long. */
static struct model *exchange_model(struct model *fresh)
{
	unsigned long flags = cpld_lock();
	struct model *old = model;
	u32 i;

	model = fresh;
	cpld_state.registers = fresh ? fresh->registers : NULL;
	for (i = 0; old && i < old->line_count; i++)
		cpld_touch_line(old->lines[i].number, 0);
	cpld_unlock(flags);
	return old;
}

int cpld_model_reset(void)
{
	struct model *fresh = port_alloc(sizeof(*fresh));

	if (!fresh)
		return -ENOMEM;
	port_free(exchange_model(fresh));
	return 0;
}

void cpld_model_free(void)
{
	port_free(exchange_model(NULL));
}

/* Registers */

struct cpld_register *cpld_probe(u32 at, u64 chip, u32 address)
{
	struct cpld_register *reg = &model->registers[at];

	while (reg->used && (reg->chip != chip || reg->address != address)) {
		at = (at + 1) % CPLD_REGISTERS;
		reg = &model->registers[at];
	}
	return reg;
}

/* NULL: too many registers. */
static struct cpld_register *make_register(u64 chip, u32 address)
{
	struct cpld_register *reg = cpld_find_register(chip, address);

	if (reg->used)
		return reg;
	if (model->register_count >= REGISTERS_FULL)
		return NULL;
	model->register_count++;
	reg->used = true;
	reg->chip = chip;
	reg->address = address;
	return reg;
}

/* Levels */

/* Bring a level up to date with its registers and input, then those outside it it changes. */
static void settle(struct cpld_level *level)
{
	struct line *line = level->line;
	struct cpld_register *status;
	u32 *outlet;
	bool active;

	for (; level; level = level->outer) {
		status = level->status;
		if (level->inputs)
			status->value |= level->bits;
		else if (!level->latched)
			status->value &= ~level->bits;
		active = (status->value & level->bits) &&
			 (!level->enable || (level->enable->value & level->bits));
		if (active == level->active)
			break;
		level->active = active;
		outlet = level->outer ? &level->outer->inputs : &line->inputs;
		*outlet = active ? *outlet + 1 : *outlet - 1;
	}
	cpld_touch_line(line->number, line->inputs != 0);
}

/* The levels that have one of these bits in their status or enable field. */
void cpld_model_settle(struct cpld_register *reg, u32 bits)
{
	struct cpld_level *level;

	for (level = reg->status_levels; level; level = level->next_status)
		if (level->bits & bits)
			settle(level);
	for (level = reg->enable_levels; level; level = level->next_enable)
		if (level->bits & bits)
			settle(level);
}

int cpld_model_first_write(u64 chip, u32 address, u32 bits, u32 value)
{
	if (!model || !make_register(chip, address))
		return -ENOSPC;
	return cpld_model_write(chip, address, bits, value);
}

int cpld_model_poke(u64 chip, u32 address, u32 value)
{
	struct cpld_register *reg = model ? make_register(chip, address) : NULL;

	if (!reg)
		return -ENOSPC;
	reg->value = value;
	cpld_model_settle(reg, 0xffffffffu);
	return 0;
}

/* Lines and sources */

static struct line *find_line(u32 number)
{
	u32 i;

	for (i = 0; model && i < model->line_count; i++)
		if (model->lines[i].number == number)
			return &model->lines[i];
	return NULL;
}

/* NULL: too many lines. One without levels does no harm. */
static struct line *make_line(u32 number)
{
	struct line *line = find_line(number);

	if (line || model->line_count == CPLD_LINES)
		return line;
	line = &model->lines[model->line_count++];
	line->number = number;
	return line;
}

int cpld_model_line_level(u32 number)
{
	struct line *line = find_line(number);

	return line && line->inputs ? 1 : 0;
}

static u32 hash_name(const char *name)
{
	u32 hash = 5381;

	while (*name)
		hash = hash * 33u + (u8)*name++;
	return hash % NAME_BUCKETS;
}

static struct source *find_source(const char *name)
{
	struct source *source = model ? model->names[hash_name(name)] : NULL;

	while (source && strcmp(source->name, name))
		source = source->next;
	return source;
}

int cpld_model_set_source(const char *name, bool asserted)
{
	struct source *source = find_source(name);

	if (!source)
		return -ENOENT;
	if (source->asserted != asserted) {
		source->asserted = asserted;
		source->level->inputs += asserted ? 1 : -1;
	}
	settle(source->level);
	return 0;
}

/* Wiring a new source */

/* What the next inner level is connected to. */
struct place {
	struct line *line;
	struct cpld_level *outer;
};

static struct cpld_level *find_level(const struct cpld_register *status, const struct cpld_level_spec *spec)
{
	struct cpld_level *level = status->status_levels;

	while (level && (level->shift != spec->shift || level->mask != spec->mask))
		level = level->next_status;
	return level;
}

static bool same_wiring(const struct cpld_level *level, const struct place *place,
			const struct cpld_level_spec *spec, const struct cpld_register *enable)
{
	return level->line == place->line && level->outer == place->outer &&
	       level->enable == enable && level->latched == spec->latched;
}

static void link_level(struct cpld_level *level)
{
	u32 bits = level->bits;

	level->next_status = level->status->status_levels;
	level->status->status_levels = level;
	level->status->status_bits |= bits;
	if (level->latched)
		level->status->latched_bits |= bits;
	if (level->enable) {
		level->next_enable = level->enable->enable_levels;
		level->enable->enable_levels = level;
		level->enable->enable_bits |= bits;
	}
}

/* Takes back the newest level; its neighbours' enable bits may be its own, too. */
static void drop_newest_level(void)
{
	struct cpld_level *level = &model->levels[--model->level_count], *at;

	level->status->status_levels = level->next_status;
	level->status->latched_bits &= ~level->bits;
	level->status->status_bits &= ~level->bits;
	if (level->enable) {
		level->enable->enable_levels = level->next_enable;
		level->enable->enable_bits = 0;
		for (at = level->enable->enable_levels; at; at = at->next_enable)
			level->enable->enable_bits |= at->bits;
	}
	memset(level, 0, sizeof(*level));
}

static const char *check_new_level(const struct cpld_level_spec *spec, const struct cpld_register *status,
				   const struct cpld_register *enable)
{
	u32 bits = spec->mask << spec->shift;

	if (bits & status->status_bits)
		return "a status field overlaps that of another level";
	if ((bits & status->enable_bits) || status == enable)
		return "a status field overlaps an enable field";
	if (enable && (bits & enable->status_bits))
		return "an enable field overlaps a status field";
	if (model->level_count == CPLD_LEVELS)
		return "there are too many levels";
	return NULL;
}

/* Return: NULL and place->outer is the level, found or made; or why not. */
static const char *place_level(struct place *place, const struct cpld_level_spec *spec)
{
	u64 chip = cpld_chip(spec->inst, spec->chip);
	struct cpld_register *status = make_register(chip, spec->status), *enable = NULL;
	struct cpld_level *level;
	const char *why;

	if (spec->enable != CPLD_NO_REGISTER)
		enable = make_register(chip, spec->enable);
	if (!status || (!enable && spec->enable != CPLD_NO_REGISTER))
		return "there are too many registers";
	level = find_level(status, spec);
	if (level) {
		if (!same_wiring(level, place, spec, enable))
			return "a level of another source has the same status field, but another enable register, kind, outer level or line";
		place->outer = level;
		return NULL;
	}
	why = check_new_level(spec, status, enable);
	if (why)
		return why;
	level = &model->levels[model->level_count++];
	level->outer = place->outer;
	level->line = place->line;
	level->status = status;
	level->enable = enable;
	level->shift = spec->shift;
	level->mask = spec->mask;
	level->bits = spec->mask << spec->shift;
	level->latched = spec->latched;
	link_level(level);
	place->outer = level;
	return NULL;
}

static void add_name(const char *name, struct cpld_level *level)
{
	struct source *source = &model->sources[model->source_count++];
	struct source **head = &model->names[hash_name(name)];

	snprintf(source->name, sizeof(source->name), "%s", name);
	source->level = level;
	source->next = *head;
	*head = source;
}

int cpld_model_add_source(const char *name, u32 line, const struct cpld_level_spec *levels,
			  u32 count, const char **why)
{
	struct place place = { 0 };
	u32 first, i;

	*why = NULL;
	if (find_source(name))
		*why = "the name is in use";
	else if (model->source_count == CPLD_SOURCES)
		*why = "there are too many sources";
	else
		place.line = make_line(line);
	if (!place.line) {
		*why = *why ? *why : "there are too many lines";
		return -EINVAL;
	}
	first = model->level_count;
	for (i = 0; i < count && !*why; i++)
		*why = place_level(&place, &levels[i]);
	if (*why) {
		while (model->level_count > first)
			drop_newest_level();
		return -EINVAL;
	}
	add_name(name, place.outer);
	/* The registers may hold something already: innermost first. */
	for (i = model->level_count; i > first; i--)
		settle(&model->levels[i - 1]);
	return 0;
}

/* Text */

static void show_lines(struct port_out *out)
{
	u32 i, count, number;
	unsigned long flags;
	int level;

	for (i = 0, count = 1; i < count; i++) {
		flags = cpld_lock();
		count = model->line_count;
		number = i < count ? model->lines[i].number : 0;
		level = i < count && model->lines[i].inputs;
		cpld_unlock(flags);
		if (i < count)
			port_printf(out, "line %u level=%d\n", number, level);
	}
}

static void show_sources(struct port_out *out)
{
	struct source source;
	unsigned long flags;
	u32 i, count, line;

	for (i = 0, count = 1; i < count; i++) {
		flags = cpld_lock();
		count = model->source_count;
		source = model->sources[i];
		line = i < count ? source.level->line->number : 0;
		cpld_unlock(flags);
		if (i < count)
			port_printf(out, "source %s line=%u asserted=%d\n", source.name, line,
				    source.asserted);
	}
}

static void show_level(struct port_out *out, const struct cpld_level *level, const struct cpld_register *status,
		       const struct cpld_register *enable)
{
	char enable_text[16] = "-";

	if (enable->used)
		snprintf(enable_text, sizeof(enable_text), "0x%x", enable->address);
	port_printf(out,
		    "level inst=0x%x chip=%u en=%s status=0x%x shift=%u mask=0x%x kind=%s input=%d set=%d enabled=%d active=%d\n",
		    (u32)(status->chip >> 32), (u32)status->chip, enable_text, status->address, level->shift,
		    level->mask, level->latched ? "latched" : "level", level->inputs != 0,
		    (status->value & level->bits) != 0,
		    !enable->used || (enable->value & level->bits), level->active);
}

static void show_levels(struct port_out *out)
{
	struct cpld_register status, enable;
	struct cpld_level level;
	unsigned long flags;
	u32 i, count;

	for (i = 0, count = 1; i < count; i++) {
		memset(&enable, 0, sizeof(enable));
		flags = cpld_lock();
		count = model->level_count;
		level = model->levels[i];
		if (i < count)
			status = *level.status;
		if (i < count && level.enable)
			enable = *level.enable;
		cpld_unlock(flags);
		if (i < count)
			show_level(out, &level, &status, &enable);
	}
}

static void show_registers(struct port_out *out)
{
	unsigned long flags;
	struct cpld_register reg;
	u32 i;

	for (i = 0; i < CPLD_REGISTERS; i++) {
		flags = cpld_lock();
		reg = model->registers[i];
		cpld_unlock(flags);
		if (reg.used)
			port_printf(out, "register inst=0x%x chip=%u reg=0x%x value=0x%x\n",
				    (u32)(reg.chip >> 32), (u32)reg.chip, reg.address, reg.value);
	}
}

void cpld_model_show(struct port_out *out)
{
	show_lines(out);
	show_sources(out);
	show_levels(out);
	show_registers(out);
}

void cpld_model_show_counts(struct port_out *out)
{
	unsigned long flags = cpld_lock();
	u32 sources = model->source_count, levels = model->level_count;
	u32 registers = model->register_count, lines = model->line_count;

	cpld_unlock(flags);
	port_printf(out, "sources=%u levels=%u registers=%u lines=%u\n", sources, levels, registers,
		    lines);
}
