// SPDX-License-Identifier: GPL-2.0
/*
 * The XML configuration module: holds one configuration table per instance and
 * answers lookups by (instance, names, key).
 *
 * No XML is parsed here. User space compiles it (intr-cfgc) and writes the
 * table to the control file "xml_table"; a table replaces the one of the same
 * instance. The control file "xml" lists the active tables and drops one.
 * A new table is copied, checked and only then exchanged under tables_lock, so
 * a lookup sees the old one or the new one, and a refused one changes nothing.
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
};

PORT_MUTEX(tables_lock);
/* Under tables_lock, as is why the last write was refused. */
static struct xml_slot slots[INSTANCE_MAX];
static char refusal[160];

/* Called with tables_lock held. NULL: no table of this instance. */
static struct xml_slot *find_slot(u32 inst_id)
{
	u32 i;

	for (i = 0; i < INSTANCE_MAX; i++)
		if (slots[i].data && slots[i].table.instance == inst_id)
			return &slots[i];
	return NULL;
}

/* Called with tables_lock held. NULL: every slot is in use. */
static struct xml_slot *find_free_slot(void)
{
	u32 i;

	for (i = 0; i < INSTANCE_MAX; i++)
		if (!slots[i].data)
			return &slots[i];
	return NULL;
}

int xml_get_element_value_u32(u32 inst_id, const char *name1, const char *name2, const char *name3,
			      const char *key, u32 *value)
{
	struct xml_slot *slot;
	int ret = -ENOENT;

	if (!name1 || !name2 || !name3 || !key || !value)
		return -EINVAL;
	if (strcmp(name1, XML_TABLE_ROOT))
		return -ENOENT;
	port_mutex_lock(&tables_lock);
	slot = find_slot(inst_id);
	if (slot)
		ret = xml_table_find_value(&slot->table, name2, name3, key, value);
	port_mutex_unlock(&tables_lock);
	return ret;
}

int xml_is_entry_exist(u32 inst_id, const char *name1, const char *name2, const char *name3,
		       u32 *exists)
{
	struct xml_slot *slot;
	u32 index;

	if (!name1 || !name2 || !name3 || !exists)
		return -EINVAL;
	*exists = 0;
	if (strcmp(name1, XML_TABLE_ROOT))
		return 0;
	port_mutex_lock(&tables_lock);
	slot = find_slot(inst_id);
	if (slot && !xml_table_find_entry(&slot->table, name2, name3, &index))
		*exists = 1;
	port_mutex_unlock(&tables_lock);
	return 0;
}

/* Exchange the table of fresh's instance. Return: the old bytes (or NULL) in *old. */
static int activate(const struct xml_slot *fresh, void **old)
{
	struct xml_slot *slot;
	int ret = 0;

	port_mutex_lock(&tables_lock);
	slot = find_slot(fresh->table.instance);
	if (!slot)
		slot = find_free_slot();
	if (slot) {
		*old = slot->data;
		*slot = *fresh;
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

/* Check a private copy: what was checked can no longer change. */
static int install(const void *data, size_t size)
{
	struct xml_slot fresh;
	char why[sizeof(refusal)];
	void *old = NULL;

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
	if (activate(&fresh, &old)) {
		port_free(fresh.data);
		snprintf(why, sizeof(why), "%u instances are active already; drop one first",
			 INSTANCE_MAX);
		return refuse(-ENOSPC, why);
	}
	if (old)
		port_free(old);
	snprintf(why, sizeof(why), "xml: instance 0x%x: table active, %u nodes, checksum 0x%08x",
		 fresh.table.instance, fresh.table.nodes.count, fresh.table.checksum);
	port_printk(2, why);
	return 0;
}

static int drop(u32 inst_id, char *reply, size_t reply_size)
{
	struct xml_slot *slot;
	void *old = NULL;

	port_mutex_lock(&tables_lock);
	slot = find_slot(inst_id);
	if (slot) {
		old = slot->data;
		slot->data = NULL;
	}
	port_mutex_unlock(&tables_lock);
	if (!old) {
		snprintf(reply, reply_size,
			 "xml: instance 0x%x has no table; read this file for those that have",
			 inst_id);
		return -ENOENT;
	}
	port_free(old);
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
	int ret = port_ctl_register(&control);

	if (ret)
		return ret;
	ret = port_ctl_register(&table_control);
	if (ret)
		port_ctl_unregister(&control);
	return ret;
}

void xml_stop(void)
{
	u32 i;

	port_ctl_unregister(&table_control);
	port_ctl_unregister(&control);
	for (i = 0; i < INSTANCE_MAX; i++) {
		port_free(slots[i].data);
		slots[i].data = NULL;
	}
	refusal[0] = '\0';
}
