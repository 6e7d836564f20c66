// SPDX-License-Identifier: GPL-2.0
/*
 * Checking a configuration table and looking names up in it.
 *
 * The bytes come from user space. xml_table_open proves once that every name
 * is a terminated text inside the string part and every range lies inside its
 * part; after that no lookup can leave the table, whatever it is asked for.
 * The layout is described in xml_table.h.
 */
#ifdef __KERNEL__
#include <linux/errno.h>
#include <linux/kernel.h>
#include <linux/stdarg.h>
#include <linux/string.h>
#else
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#endif

#include "xml_table.h"

#define HEADER_SIZE (4u * XML_HDR_WORDS)

static int refuse(char *why, size_t why_size, const char *format, ...)
	__attribute__((format(printf, 3, 4)));

static int refuse(char *why, size_t why_size, const char *format, ...)
{
	va_list args;

	va_start(args, format);
	vsnprintf(why, why_size, format, args);
	va_end(args);
	return -EINVAL;
}

/* Magic, version, size and checksum: is this a whole table of ours? */
static int check_envelope(const struct xml_part *header, const u8 *data, size_t size, char *why,
			  size_t why_size)
{
	u32 word, crc;

	if (size < HEADER_SIZE)
		return refuse(why, why_size, "%zu bytes are too few for a table", size);
	if (size > XML_TABLE_SIZE_MAX)
		return refuse(why, why_size, "%zu bytes are more than the limit of %u", size,
			      XML_TABLE_SIZE_MAX);
	word = xml_part_word(header, 0, XML_HDR_MAGIC);
	if (word != XML_TABLE_MAGIC)
		return refuse(why, why_size, "magic is 0x%08x: not a configuration table", word);
	word = xml_part_word(header, 0, XML_HDR_VERSION);
	if (word != XML_TABLE_VERSION)
		return refuse(why, why_size, "version is %u, only %u is known", word,
			      XML_TABLE_VERSION);
	word = xml_part_word(header, 0, XML_HDR_SIZE);
	if (word != size)
		return refuse(why, why_size, "the table says %u bytes, %zu came", word, size);
	word = xml_part_word(header, 0, XML_HDR_CHECKSUM);
	crc = xml_table_crc32(data + XML_CHECKED_FROM, size - XML_CHECKED_FROM);
	if (word != crc)
		return refuse(why, why_size, "checksum is 0x%08x, the content has 0x%08x", word,
			      crc);
	return 0;
}

/*
 * Place one part of `count` records at *offset, where the header must say it
 * is, and move *offset behind it. Offsets stay below 2^36: no overflow.
 */
static int place_part(struct xml_part *part, const struct xml_part *header, u32 header_word,
		      u32 words, u64 *offset, size_t size, const u8 *data)
{
	if (xml_part_word(header, 0, header_word) != *offset)
		return -EINVAL;
	part->base = data + *offset;
	part->count = xml_part_word(header, 0, header_word + 1);
	part->words = words;
	*offset += (u64)part->count * words * 4;
	return *offset > size ? -EINVAL : 0;
}

static int place_parts(struct xml_table *table, const struct xml_part *header, const u8 *data,
		       size_t size, char *why, size_t why_size)
{
	u64 offset = HEADER_SIZE;
	u32 i;

	if (place_part(&table->nodes, header, XML_HDR_NODES, XML_NODE_WORDS, &offset, size, data))
		return refuse(why, why_size, "the nodes do not fit the table");
	if (place_part(&table->entries, header, XML_HDR_ENTRIES, XML_ENTRY_WORDS, &offset, size,
		       data))
		return refuse(why, why_size, "the entries do not fit the table");
	if (place_part(&table->keys, header, XML_HDR_KEYS, XML_KEY_WORDS, &offset, size, data))
		return refuse(why, why_size, "the keys do not fit the table");
	table->strings = (const char *)data + offset;
	table->string_size = xml_part_word(header, 0, XML_HDR_STRING_SIZE);
	if (xml_part_word(header, 0, XML_HDR_STRINGS) != offset ||
	    table->string_size != size - offset)
		return refuse(why, why_size, "the strings do not fit the table");

	for (i = 0; i < table->string_size; i++)
		if (table->strings[i] && (table->strings[i] < '!' || table->strings[i] > '~'))
			return refuse(why, why_size, "string byte %u is no visible character", i);
	if (table->string_size && table->strings[table->string_size - 1])
		return refuse(why, why_size, "the last string is not terminated");
	return 0;
}

/* A name starts where a text starts, and has 1 to XML_TABLE_NAME_MAX characters. */
static bool name_is_good(const struct xml_table *table, u32 name)
{
	u32 length = 0;

	if (name >= table->string_size || (name && table->strings[name - 1]))
		return false;
	while (length <= XML_TABLE_NAME_MAX && table->strings[name + length])
		length++;
	return length >= 1 && length <= XML_TABLE_NAME_MAX;
}

static int check_names(const struct xml_table *table, const struct xml_part *part, u32 first,
		       u32 count, const char *what, char *why, size_t why_size)
{
	const char *before = NULL, *name;
	u32 i;

	for (i = first; i < first + count; i++) {
		if (!name_is_good(table, xml_part_word(part, i, 0)))
			return refuse(why, why_size, "%s %u: bad name", what, i);
		name = xml_part_name(table, part, i);
		if (before && strcmp(before, name) >= 0)
			return refuse(why, why_size, "%s %u: \"%s\" is out of order", what, i,
				      name);
		before = name;
	}
	return 0;
}

/* The children of all records of `part` must follow each other and be all of `children`. */
static int check_children(const struct xml_table *table, const struct xml_part *part,
			  const struct xml_part *children, const char *what, const char *child_what,
			  char *why, size_t why_size)
{
	u32 i, first, count, next = 0;

	for (i = 0; i < part->count; i++) {
		first = xml_part_word(part, i, 1);
		count = xml_part_word(part, i, 2);
		if (first != next || count > children->count - next)
			return refuse(why, why_size, "%s %u: its range %u+%u is wrong", what, i,
				      first, count);
		if (check_names(table, children, first, count, child_what, why, why_size))
			return -EINVAL;
		next += count;
	}
	if (next != children->count)
		return refuse(why, why_size, "%s %u belongs to no %s", child_what, next, what);
	return 0;
}

int xml_table_open(struct xml_table *table, const void *data, size_t size, char *why,
		   size_t why_size)
{
	const struct xml_part header = { (const u8 *)data, 1, XML_HDR_WORDS };

	if (check_envelope(&header, (const u8 *)data, size, why, why_size))
		return -EINVAL;
	table->instance = xml_part_word(&header, 0, XML_HDR_INSTANCE);
	table->checksum = xml_part_word(&header, 0, XML_HDR_CHECKSUM);
	table->size = (u32)size;
	if (place_parts(table, &header, (const u8 *)data, size, why, why_size) ||
	    check_names(table, &table->nodes, 0, table->nodes.count, "node", why, why_size) ||
	    check_children(table, &table->nodes, &table->entries, "node", "entry", why,
			   why_size) ||
	    check_children(table, &table->entries, &table->keys, "entry", "key", why, why_size))
		return -EINVAL;
	return 0;
}

int xml_table_find(const struct xml_table *table, const struct xml_part *part, u32 first,
		   u32 count, const char *name, u32 *index)
{
	u32 middle;
	int order;

	while (count) {
		middle = first + count / 2;
		order = strcmp(name, xml_part_name(table, part, middle));
		if (!order) {
			*index = middle;
			return 0;
		}
		if (order < 0) {
			count /= 2;
		} else {
			count -= count / 2 + 1;
			first = middle + 1;
		}
	}
	return -ENOENT;
}
