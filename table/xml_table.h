/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The configuration table: what intr-cfgc writes and the xml module reads.
 *
 * A table holds the configuration of one instance (the board or one card) as
 * names -> u32. All words are u32, little-endian. Five parts lie one behind
 * the other without gaps:
 *
 *	header		13 words, below
 *	nodes		3 words each: name, first entry, number of entries
 *	entries		3 words each: name, first key, number of keys
 *	keys		2 words each: name, value
 *	strings		texts, each ended by a NUL
 *
 * A name is the offset of a text's first byte inside the string part. A text
 * has 1 to 39 characters, all of them visible ASCII. Nodes are sorted by name,
 * entries within their node and keys within their entry, in byte order and
 * without duplicates, so that a lookup is three binary searches. The ranges of
 * entries (keys) that the nodes (entries) name follow each other and cover
 * the part exactly once.
 *
 * Header words, in order:
 *
 *	 0 magic	"ICFT"
 *	 1 version	1; every change of this layout raises it
 *	 2 size		of the whole table in bytes
 *	 3 checksum	CRC-32 (IEEE 802.3: reflected 0xedb88320, start and
 *			final xor 0xffffffff) of everything behind this word
 *	 4 instance	0xffffffff = board, otherwise a card's instance id
 *	 5 nodes	byte offset, 6: count
 *	 7 entries	byte offset, 8: count
 *	 9 keys		byte offset, 10: count
 *	11 strings	byte offset, 12: size in bytes
 */
#ifndef TABLE_XML_TABLE_H
#define TABLE_XML_TABLE_H

#include "intr/types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define XML_TABLE_MAGIC 0x54464349u
#define XML_TABLE_VERSION 1u
#define XML_TABLE_SIZE_MAX (1024u * 1024u)
#define XML_TABLE_NAME_MAX 39u
#define XML_TABLE_BOARD 0xffffffffu
/* The first of the three names of a lookup; every table is about this one. */
#define XML_TABLE_ROOT "irq_combiner"

enum xml_header_word {
	XML_HDR_MAGIC,
	XML_HDR_VERSION,
	XML_HDR_SIZE,
	XML_HDR_CHECKSUM,
	XML_HDR_INSTANCE,
	XML_HDR_NODES,
	XML_HDR_NODE_COUNT,
	XML_HDR_ENTRIES,
	XML_HDR_ENTRY_COUNT,
	XML_HDR_KEYS,
	XML_HDR_KEY_COUNT,
	XML_HDR_STRINGS,
	XML_HDR_STRING_SIZE,
	XML_HDR_WORDS,
};

/* Words of one record of each part. Word 0 is the name. */
#define XML_NODE_WORDS 3u
#define XML_ENTRY_WORDS 3u
#define XML_KEY_WORDS 2u

/* The first byte that the checksum covers. */
#define XML_CHECKED_FROM (4u * XML_HDR_INSTANCE)

/* CRC-32 as described above, four bits at a time. */
static inline u32 xml_table_crc32(const void *data, size_t size)
{
	static const u32 step[16] = {
		0x00000000, 0x1db71064, 0x3b6e20c8, 0x26d930ac, 0x76dc4190, 0x6b6b51f4,
		0x4db26158, 0x5005713c, 0xedb88320, 0xf00f9344, 0xd6d6a3e8, 0xcb61b38c,
		0x9b64c2b0, 0x86d3d2d4, 0xa00ae278, 0xbdbdf21c,
	};
	const u8 *byte = (const u8 *)data;
	u32 crc = 0xffffffffu;
	size_t i;

	for (i = 0; i < size; i++) {
		crc ^= byte[i];
		crc = (crc >> 4) ^ step[crc & 15];
		crc = (crc >> 4) ^ step[crc & 15];
	}
	return ~crc;
}

/* One part of an opened table: `count` records of `words` words. */
struct xml_part {
	const u8 *base;
	u32 count;
	u32 words;
};

/* A table that passed xml_table_open; points into the caller's bytes. */
struct xml_table {
	struct xml_part nodes;
	struct xml_part entries;
	struct xml_part keys;
	const char *strings;
	u32 string_size;
	u32 instance;
	u32 checksum;
	u32 size;
};

/* Word `word` of record `index`; both must be inside the part. */
static inline u32 xml_part_word(const struct xml_part *part, u32 index, u32 word)
{
	const u8 *at = part->base + ((size_t)index * part->words + word) * 4;

	return at[0] | (u32)at[1] << 8 | (u32)at[2] << 16 | (u32)at[3] << 24;
}

static inline const char *xml_part_name(const struct xml_table *table, const struct xml_part *part,
					u32 index)
{
	return table->strings + xml_part_word(part, index, 0);
}

/*
 * Check every word of data[0..size) that a later lookup follows, and open it.
 * The bytes must stay unchanged while the table is used.
 *
 * Return: 0; -EINVAL with one line of text in why, *table meaningless.
 */
int xml_table_open(struct xml_table *table, const void *data, size_t size, char *why,
		   size_t why_size);

/*
 * Binary search by name in records [first, first + count) of one part, which are
 * sorted: all nodes, or what one node or entry names.
 *
 * Return: 0 with *index the record, or -ENOENT with *index untouched.
 */
int xml_table_find(const struct xml_table *table, const struct xml_part *part, u32 first, u32 count,
		   const char *name, u32 *index);

#ifdef __cplusplus
}
#endif

#endif
