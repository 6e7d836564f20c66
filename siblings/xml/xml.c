// SPDX-License-Identifier: GPL-2.0
/*
 * The XML configuration module: holds one configuration table per instance and
 * answers lookups by (instance, names, key).
 *
 * No XML is parsed here. User space compiles it (intr-cfgc) and writes the
 * table to the control file "xml_table"; a table replaces the one of the same
 * instance. The control file "xml" lists the active tables and drops one.
 * A new table is copied, checked and only then exchanged, so a lookup sees the old
 * one or the new one, and a refused one changes nothing.
 *
 * Who reads configuration asks for all keys of an entry, one after the other. The
 * cursor keeps the place of the last answer: as long as the names are the same, a
 * lookup compares them once, word by word, and searches the keys of that entry only.
 */
#include "port.h"
#include "args.h"
#include "intr/siblings.h"
#include "xml.h"
#include "xml_table.h"

#define INSTANCE_MAX 64

/* A free slot has no data. */
struct xml_slot {
	void *data;
	struct xml_table table;
	u64 *key_heads;	/* of each key of the table */
};

#define NAME_WORDS (XML_TABLE_NAME_MAX / 8 + 1)
#define GUESSES 64u

/* A name as a lookup compares it: whole words, and of the last one the part up to the end. */
struct known_name {
	u64 words[NAME_WORDS];
	u64 masks[NAME_WORDS];
	u32 last;
};

struct place {
	struct xml_slot *slot;	/* NULL: none */
	bool in_entry;		/* not only in the node */
	struct known_name node, entry;
	u32 first_entry, entry_count;
	u32 first_key, key_count;
	u32 asked;	/* keys of this entry */
	/* Where the key that was asked for in this turn was found in the entry before. */
	u8 guesses[GUESSES];
};

/* Whoever writes slots or works on a table for long; process context. */
PORT_MUTEX(tables_lock);
/* Inside it: a lookup, and the exchange of a slot. */
PORT_LOCK(lookup_lock);
static struct xml_slot slots[INSTANCE_MAX];	/* written under both */
static struct place cursor;			/* under lookup_lock */
static struct known_name root;
static char refusal[160];	/* why the last write was refused; under tables_lock */

/* Called with one of the locks held, as the next. NULL: no table of this instance. */
static struct xml_slot *find_slot(u32 inst_id)
{
	u32 i;

	for (i = 0; i < INSTANCE_MAX; i++)
		if (slots[i].data && slots[i].table.instance == inst_id)
			return &slots[i];
	return NULL;
}

/* NULL: every slot is in use. */
static struct xml_slot *find_free_slot(void)
{
	u32 i;

	for (i = 0; i < INSTANCE_MAX; i++)
		if (!slots[i].data)
			return &slots[i];
	return NULL;
}

/* Names */

/* What stands behind the end of the text is made 0. */
static u64 clean_word(u64 word)
{
	u64 zeros = (word - 0x0101010101010101ull) & ~word & 0x8080808080808080ull;

	return zeros ? word & (((zeros - 1) & ~zeros) >> 7) : word;
}

/* name has at most XML_TABLE_NAME_MAX characters. */
static void know_name(struct known_name *known, const char *name)
{
	u32 length = (u32)strlen(name), i;

	known->last = length / 8;
	for (i = 0; i <= known->last; i++) {
		known->words[i] = clean_word(port_text_word(name + 8 * i));
		known->masks[i] = 0xffffffffffffffffull;
	}
	known->masks[known->last] >>= 56 - length % 8 * 8;
}

static inline bool is_word(const char *text, const struct known_name *known, u32 i)
{
	return !((port_text_word(text + 8 * i) ^ known->words[i]) & known->masks[i]);
}

/* A whole word that is equal has no end in it: the next may be read. Most names have two. */
static inline bool is_name(const char *text, const struct known_name *known)
{
	u32 i;

	if (!is_word(text, known, 0))
		return false;
	if (!known->last)
		return true;
	if (!is_word(text, known, 1))
		return false;
	for (i = 2; i <= known->last; i++)
		if (!is_word(text, known, i))
			return false;
	return true;
}

/* The first eight characters as a number that sorts as the text does. */
static inline u64 head_of(const char *text)
{
	return __builtin_bswap64(clean_word(port_text_word(text)));
}

/* Look-ups; called with lookup_lock held */

static __attribute__((__noinline__)) bool seek_node(u32 inst_id, const char *name)
{
	struct xml_slot *slot = find_slot(inst_id);
	const struct xml_table *table;
	u32 node;

	if (!slot)
		return false;
	table = &slot->table;
	if (xml_table_find(table, &table->nodes, 0, table->nodes.count, name, &node))
		return false;
	cursor.slot = slot;
	cursor.in_entry = false;
	know_name(&cursor.node, name);
	cursor.first_entry = xml_part_word(&table->nodes, node, 1);
	cursor.entry_count = xml_part_word(&table->nodes, node, 2);
	return true;
}

static __attribute__((__noinline__)) bool seek_entry(const char *name)
{
	const struct xml_table *table = &cursor.slot->table;
	u32 entry;

	if (xml_table_find(table, &table->entries, cursor.first_entry, cursor.entry_count, name,
			   &entry))
		return false;
	cursor.in_entry = true;
	know_name(&cursor.entry, name);
	cursor.first_key = xml_part_word(&table->entries, entry, 1);
	cursor.key_count = xml_part_word(&table->entries, entry, 2);
	cursor.asked = 0;
	return true;
}

/* Return: the cursor is in that entry. Where it is else does not matter. */
static inline bool seek(u32 inst_id, const char *node, const char *entry)
{
	if (!cursor.slot || cursor.slot->table.instance != inst_id || !is_name(node, &cursor.node))
		return seek_node(inst_id, node) && seek_entry(entry);
	return (cursor.in_entry && is_name(entry, &cursor.entry)) || seek_entry(entry);
}

/* Binary search. Return: the first of the entry's keys whose head is not smaller, or their end. */
static __attribute__((__noinline__)) u32 search_head(const u64 *heads, u32 count, u64 head)
{
	u32 first = 0, half;

	while (count) {
		half = count / 2;
		if (heads[first + half] < head) {
			first += half + 1;
			count -= half + 1;
		} else {
			count = half;
		}
	}
	return first;
}

static inline bool is_place(const u64 *heads, u32 count, u64 head, u32 at)
{
	return at <= count && (at == count || heads[at] >= head) && (!at || heads[at - 1] < head);
}

/*
 * Return: as search_head. The keys of an entry are asked for in the same order as those
 * of the entry before, which mostly has the same keys.
 */
static inline u32 find_head(const u64 *heads, u32 count, u64 head)
{
	u8 *guess = &cursor.guesses[cursor.asked++ % GUESSES];
	u32 at = *guess;

	if (!is_place(heads, count, head, at)) {
		at = search_head(heads, count, head);
		*guess = (u8)at;
	}
	return at;
}

/* Keys of eight characters or more may share a head. */
static inline int find_value(const char *key, u32 *value)
{
	const struct xml_table *table = &cursor.slot->table;
	const u64 *heads = cursor.slot->key_heads + cursor.first_key;
	u64 head = head_of(key);
	u32 at = find_head(heads, cursor.key_count, head);

	for (; at < cursor.key_count && heads[at] == head; at++) {
		if ((head & 0xff) && strcmp(xml_part_name(table, &table->keys,
							  cursor.first_key + at) + 8, key + 8))
			continue;
		*value = xml_part_word(&table->keys, cursor.first_key + at, 1);
		return 0;
	}
	return -ENOENT;
}

/* In one piece: this is what the set-up of a combiner consists of. */
__attribute__((__flatten__))
int xml_get_element_value_u32(u32 inst_id, const char *name1, const char *name2, const char *name3,
			      const char *key, u32 *value)
{
	unsigned long flags;
	int ret = -ENOENT;

	if (!name1 || !name2 || !name3 || !key || !value)
		return -EINVAL;
	if (!is_name(name1, &root))
		return -ENOENT;
	flags = port_lock(&lookup_lock);
	if (seek(inst_id, name2, name3))
		ret = find_value(key, value);
	port_unlock(&lookup_lock, flags);
	return ret;
}

int xml_is_entry_exist(u32 inst_id, const char *name1, const char *name2, const char *name3,
		       u32 *exists)
{
	unsigned long flags;

	if (!name1 || !name2 || !name3 || !exists)
		return -EINVAL;
	*exists = 0;
	if (!is_name(name1, &root))
		return 0;
	flags = port_lock(&lookup_lock);
	if (seek(inst_id, name2, name3))
		*exists = 1;
	port_unlock(&lookup_lock, flags);
	return 0;
}

/* Changing tables */

/* Called with tables_lock held. Return: what the slot held. */
static struct xml_slot exchange(struct xml_slot *slot, const struct xml_slot *fresh)
{
	unsigned long flags = port_lock(&lookup_lock);
	struct xml_slot old = *slot;

	*slot = *fresh;
	cursor.slot = NULL;
	port_unlock(&lookup_lock, flags);
	return old;
}

static void free_slot(const struct xml_slot *slot)
{
	port_free(slot->key_heads);
	port_free(slot->data);
}

/* Exchange the table of fresh's instance. *old: what is to be freed. */
static int activate(const struct xml_slot *fresh, struct xml_slot *old)
{
	struct xml_slot *slot;
	int ret = 0;

	port_mutex_lock(&tables_lock);
	slot = find_slot(fresh->table.instance);
	if (!slot)
		slot = find_free_slot();
	if (slot) {
		*old = exchange(slot, fresh);
		refusal[0] = '\0';
	} else {
		ret = -ENOSPC;
	}
	port_mutex_unlock(&tables_lock);
	return ret;
}

static int refuse(int ret, const char *why)
{
	char text[sizeof(refusal) + 80];

	port_mutex_lock(&tables_lock);
	snprintf(refusal, sizeof(refusal), "%s", why);
	port_mutex_unlock(&tables_lock);
	snprintf(text, sizeof(text), "xml: table refused: %s; the active one stays", why);
	port_printk(1, text);
	return ret;
}

static bool make_key_heads(struct xml_slot *slot)
{
	const struct xml_table *table = &slot->table;
	u32 i;

	slot->key_heads = port_alloc((table->keys.count + (size_t)1) * sizeof(u64));
	if (!slot->key_heads)
		return false;
	for (i = 0; i < table->keys.count; i++)
		slot->key_heads[i] = head_of(xml_part_name(table, &table->keys, i));
	return true;
}

/* Check a private copy: what was checked can no longer change. */
static int install(const void *data, size_t size)
{
	struct xml_slot fresh = { 0 }, old = { 0 };
	char why[sizeof(refusal)];

	if (size > XML_TABLE_SIZE_MAX) {
		snprintf(why, sizeof(why), "%zu bytes are more than the limit of %u", size,
			 XML_TABLE_SIZE_MAX);
		return refuse(-EINVAL, why);
	}
	fresh.data = port_alloc(size ? size : 1);
	if (!fresh.data)
		return refuse(-ENOMEM, "out of memory");
	if (size)
		memcpy(fresh.data, data, size);
	if (xml_table_open(&fresh.table, fresh.data, size, why, sizeof(why))) {
		port_free(fresh.data);
		return refuse(-EINVAL, why);
	}
	if (!make_key_heads(&fresh)) {
		port_free(fresh.data);
		return refuse(-ENOMEM, "out of memory");
	}
	if (activate(&fresh, &old)) {
		free_slot(&fresh);
		snprintf(why, sizeof(why), "%u instances are active already; drop one first",
			 INSTANCE_MAX);
		return refuse(-ENOSPC, why);
	}
	free_slot(&old);
	snprintf(why, sizeof(why), "xml: instance 0x%x: table active, %u nodes, checksum 0x%08x",
		 fresh.table.instance, fresh.table.nodes.count, fresh.table.checksum);
	port_printk(2, why);
	return 0;
}

static int drop(u32 inst_id, char *reply, size_t reply_size)
{
	const struct xml_slot none = { 0 };
	struct xml_slot *slot, old = { 0 };

	port_mutex_lock(&tables_lock);
	slot = find_slot(inst_id);
	if (slot)
		old = exchange(slot, &none);
	port_mutex_unlock(&tables_lock);
	if (!old.data) {
		snprintf(reply, reply_size,
			 "xml: instance 0x%x has no table; read this file for those that have",
			 inst_id);
		return -ENOENT;
	}
	free_slot(&old);
	return 0;
}

static int command(const char *line, char *reply, size_t reply_size)
{
	char arg[16] = "";
	u32 inst_id;

	if (!port_arg(&line, arg, sizeof(arg)) || strcmp(arg, "drop"))
		return port_refuse(reply, reply_size,
				   "xml: unknown command \"%s\"; write \"drop INST\"", arg);
	if (!port_arg_number(&line, &inst_id) || !port_line_ends(line))
		return port_refuse(reply, reply_size,
				   "xml: drop needs one instance id; write \"drop INST\"");
	return drop(inst_id, reply, reply_size);
}

/* "INSTANCE NODE ENTRY KEY=VALUE ...", so that one line shows a whole entry. */
static void show_entry(struct port_out *out, const struct xml_table *table, u32 node, u32 entry)
{
	u32 first = xml_part_word(&table->entries, entry, 1);
	u32 count = xml_part_word(&table->entries, entry, 2);
	u32 i;

	port_printf(out, "0x%x %s %s", table->instance, xml_part_name(table, &table->nodes, node),
		    xml_part_name(table, &table->entries, entry));
	for (i = first; i < first + count; i++)
		port_printf(out, " %s=0x%x", xml_part_name(table, &table->keys, i),
			    xml_part_word(&table->keys, i, 1));
	port_printf(out, "\n");
}

static void show_table(struct port_out *out, const struct xml_table *table)
{
	u32 node, i, first;

	port_printf(out, "instance=0x%x checksum=0x%08x bytes=%u nodes=%u entries=%u keys=%u\n",
		    table->instance, table->checksum, table->size, table->nodes.count,
		    table->entries.count, table->keys.count);
	for (node = 0; node < table->nodes.count; node++) {
		first = xml_part_word(&table->nodes, node, 1);
		for (i = 0; i < xml_part_word(&table->nodes, node, 2); i++)
			show_entry(out, table, node, first + i);
	}
}

static void show(struct port_out *out)
{
	u32 i;

	port_mutex_lock(&tables_lock);
	for (i = 0; i < INSTANCE_MAX; i++)
		if (slots[i].data)
			show_table(out, &slots[i].table);
	if (refusal[0])
		port_printf(out, "xml: last table refused: %s\n", refusal);
	port_mutex_unlock(&tables_lock);
}

static struct port_ctl control = { .name = "xml", .command = command, .show = show };
static struct port_ctl table_control = { .name = "xml_table", .blob = install };

int xml_start(void)
{
	int ret;

	know_name(&root, XML_TABLE_ROOT);
	ret = port_ctl_register(&control);
	if (ret)
		return ret;
	ret = port_ctl_register(&table_control);
	if (ret)
		port_ctl_unregister(&control);
	return ret;
}

void xml_stop(void)
{
	const struct xml_slot none = { 0 };
	struct xml_slot old;
	u32 i;

	port_ctl_unregister(&table_control);
	port_ctl_unregister(&control);
	for (i = 0; i < INSTANCE_MAX; i++) {
		old = exchange(&slots[i], &none);
		free_slot(&old);
	}
	refusal[0] = '\0';
}
