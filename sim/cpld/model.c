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

struct level;

struct reg {
	bool used;
	u32 inst, chip, address;
	u32 value;
	u32 latched_bits, follow_bits;	/* status fields of levels, by kind */
	u32 enable_bits;
	struct level *status_levels;	/* levels with their status here */
	struct level *enable_levels;
};

struct line {
	u32 number;
	u32 inputs;	/* active outermost levels */
};

struct level {
	struct level *outer;		/* NULL: the line is next */
	struct line *line;
	struct reg *status, *enable;	/* enable NULL: always enabled */
	struct level *next_status, *next_enable;
	u32 shift, mask;
	bool latched;
	bool active;			/* output */
	u32 inputs;			/* asserted sources and active inner levels */
};

struct source {
	char name[CPLD_NAME_MAX];
	struct source *next;
	struct level *level;
	bool asserted;
};

struct model {
	struct reg registers[CPLD_REGISTERS];
	struct level levels[CPLD_LEVELS];
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

static u32 hash_register(u32 inst, u32 chip, u32 address)
{
	u32 hash = ((inst * 31u + chip) * 0x9e3779b1u) ^ (address * 0x85ebca6bu);

	return (hash ^ (hash >> 15)) % CPLD_REGISTERS;
}

/* The register's slot, or the free one where it would lie. */
static struct reg *find_slot(u32 inst, u32 chip, u32 address)
{
	u32 at = hash_register(inst, chip, address);
	struct reg *reg;

	for (;; at = (at + 1) % CPLD_REGISTERS) {
		reg = &model->registers[at];
		if (!reg->used ||
		    (reg->address == address && reg->chip == chip && reg->inst == inst))
			return reg;
	}
}

/* NULL: too many registers. */
static struct reg *make_register(u32 inst, u32 chip, u32 address)
{
	struct reg *reg = find_slot(inst, chip, address);

	if (reg->used)
		return reg;
	if (model->register_count >= REGISTERS_FULL)
		return NULL;
	model->register_count++;
	reg->used = true;
	reg->inst = inst;
	reg->chip = chip;
	reg->address = address;
	return reg;
}

/* Levels */

static u32 field_bits(const struct level *level)
{
	return level->mask << level->shift;
}

/* Bring a level up to date with its registers and input, then those outside it it changes. */
static void settle(struct level *level)
{
	struct line *line = level->line;
	struct reg *status;
	u32 *outlet;
	bool active;

	for (; level; level = level->outer) {
		status = level->status;
		if (level->inputs)
			status->value |= field_bits(level);
		else if (!level->latched)
			status->value &= ~field_bits(level);
		active = (status->value & field_bits(level)) &&
			 (!level->enable || (level->enable->value & field_bits(level)));
		if (active == level->active)
			break;
		level->active = active;
		outlet = level->outer ? &level->outer->inputs : &line->inputs;
		*outlet = active ? *outlet + 1 : *outlet - 1;
	}
	cpld_touch_line(line->number, line->inputs != 0);
}

static void settle_register(struct reg *reg)
{
	struct level *level;

	for (level = reg->status_levels; level; level = level->next_status)
		settle(level);
	for (level = reg->enable_levels; level; level = level->next_enable)
		settle(level);
}

u32 cpld_model_read(u32 inst, u32 chip, u32 reg)
{
	return model ? find_slot(inst, chip, reg)->value : 0;
}

int cpld_model_write(u32 inst, u32 chip, u32 address, u32 bits, u32 value)
{
	struct reg *reg = model ? make_register(inst, chip, address) : NULL;
	u32 plain, clear;

	if (!reg)
		return -ENOSPC;
	plain = bits & ~(reg->latched_bits | reg->follow_bits);
	clear = bits & value & reg->latched_bits;
	reg->value = (reg->value & ~plain & ~clear) | (value & plain);
	settle_register(reg);
	return 0;
}

int cpld_model_poke(u32 inst, u32 chip, u32 address, u32 value)
{
	struct reg *reg = model ? make_register(inst, chip, address) : NULL;

	if (!reg)
		return -ENOSPC;
	reg->value = value;
	settle_register(reg);
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
	struct level *outer;
};

static struct level *find_level(const struct reg *status, const struct cpld_level_spec *spec)
{
	struct level *level = status->status_levels;

	while (level && (level->shift != spec->shift || level->mask != spec->mask))
		level = level->next_status;
	return level;
}

static bool same_wiring(const struct level *level, const struct place *place,
			const struct cpld_level_spec *spec, const struct reg *enable)
{
	return level->line == place->line && level->outer == place->outer &&
	       level->enable == enable && level->latched == spec->latched;
}

static void link_level(struct level *level)
{
	u32 bits = field_bits(level);

	level->next_status = level->status->status_levels;
	level->status->status_levels = level;
	if (level->latched)
		level->status->latched_bits |= bits;
	else
		level->status->follow_bits |= bits;
	if (level->enable) {
		level->next_enable = level->enable->enable_levels;
		level->enable->enable_levels = level;
		level->enable->enable_bits |= bits;
	}
}

/* Takes back the newest level; its neighbours' enable bits may be its own, too. */
static void drop_newest_level(void)
{
	struct level *level = &model->levels[--model->level_count], *at;

	level->status->status_levels = level->next_status;
	level->status->latched_bits &= ~field_bits(level);
	level->status->follow_bits &= ~field_bits(level);
	if (level->enable) {
		level->enable->enable_levels = level->next_enable;
		level->enable->enable_bits = 0;
		for (at = level->enable->enable_levels; at; at = at->next_enable)
			level->enable->enable_bits |= field_bits(at);
	}
	memset(level, 0, sizeof(*level));
}

static const char *check_new_level(const struct cpld_level_spec *spec, const struct reg *status,
				   const struct reg *enable)
{
	u32 bits = spec->mask << spec->shift;

	if (bits & (status->latched_bits | status->follow_bits))
		return "a status field overlaps that of another level";
	if ((bits & status->enable_bits) || status == enable)
		return "a status field overlaps an enable field";
	if (enable && (bits & (enable->latched_bits | enable->follow_bits)))
		return "an enable field overlaps a status field";
	if (model->level_count == CPLD_LEVELS)
		return "there are too many levels";
	return NULL;
}

/* Return: NULL and place->outer is the level, found or made; or why not. */
static const char *place_level(struct place *place, const struct cpld_level_spec *spec)
{
	struct reg *status = make_register(spec->inst, spec->chip, spec->status), *enable = NULL;
	struct level *level;
	const char *why;

	if (spec->enable != CPLD_NO_REGISTER)
		enable = make_register(spec->inst, spec->chip, spec->enable);
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
	level->latched = spec->latched;
	link_level(level);
	place->outer = level;
	return NULL;
}

static void add_name(const char *name, struct level *level)
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

static void show_level(struct port_out *out, const struct level *level, const struct reg *status,
		       const struct reg *enable)
{
	char enable_text[16] = "-";

	if (enable->used)
		snprintf(enable_text, sizeof(enable_text), "0x%x", enable->address);
	port_printf(out,
		    "level inst=0x%x chip=%u en=%s status=0x%x shift=%u mask=0x%x kind=%s input=%d set=%d enabled=%d active=%d\n",
		    status->inst, status->chip, enable_text, status->address, level->shift,
		    level->mask, level->latched ? "latched" : "level", level->inputs != 0,
		    (status->value & field_bits(level)) != 0,
		    !enable->used || (enable->value & field_bits(level)), level->active);
}

static void show_levels(struct port_out *out)
{
	struct reg status, enable;
	struct level level;
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
	struct reg reg;
	u32 i;

	for (i = 0; i < CPLD_REGISTERS; i++) {
		flags = cpld_lock();
		reg = model->registers[i];
		cpld_unlock(flags);
		if (reg.used)
			port_printf(out, "register inst=0x%x chip=%u reg=0x%x value=0x%x\n",
				    reg.inst, reg.chip, reg.address, reg.value);
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
