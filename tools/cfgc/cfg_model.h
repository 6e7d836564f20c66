// SPDX-License-Identifier: GPL-2.0
//
// A configuration in memory, in two shapes: the document, as it was written
// (only the keys that stand there, with their lines), and the combiners, as the
// driver will see them (every value present, defaults filled in).
#ifndef TOOLS_CFG_MODEL_H
#define TOOLS_CFG_MODEL_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "cfg_keys.h"
#include "cfg_table.h"
#include "table/numbering.h"

namespace cfg {

struct key_value {
	u32 value;
	unsigned line;
	bool good; // otherwise it could not be read, and value is the default
};

struct document_entry {
	const entry_rule *rule;
	std::string name;
	u32 number; // of a numbered entry
	unsigned line;
	std::string label; // empty: none
	unsigned label_line;
	std::map<std::string, key_value> keys;

	// The value as written, or the default of the entry's rule.
	u32 get(std::string_view key) const;
	// False when an error in the file leaves the value unknown.
	bool is_known(std::string_view key) const;
};

struct document_node {
	node_kind kind;
	std::string name;
	u32 number; // of a combiner; backplane type of a slot
	unsigned line;
	std::vector<document_entry> entries;
};

struct document {
	u32 instance = XML_TABLE_BOARD;
	std::vector<document_node> nodes;

	bool is_board() const { return instance == XML_TABLE_BOARD; }
	u32 card_number() const { return ::card_number(instance); }
	// The id that the driver gives the combiner of node irq_combiner@number.
	u32 combiner_id(u32 number) const;
	table to_table() const;
};

// The entry "common" of the global settings, or null.
const document_entry *find_common(const document &document);
// The same with all defaults where the file has none.
document_entry global_settings(const document &document);

struct level {
	u32 chip_id, en, status, shift, mask, wc;

	u32 bits() const { return mask << shift; }
	bool operator==(const level &) const = default;
};

struct leaf {
	std::string node, entry;
	u32 number; // of the entry
	unsigned line;
	std::string label;
	std::optional<u32> slot; // backplane type; none: the combiner's own leaf
	u32 index_id, type, hwirq, irq_type, sync, allow_max, suppress_ms, policy;
	std::vector<level> levels;
	// False when an error was reported that leaves these unknown.
	bool has_identity, has_hwirq, has_levels;

	// Leaves of two different backplanes are alternatives, never there at once.
	bool coexists(const leaf &other) const
	{
		return !slot || !other.slot || *slot == *other.slot;
	}
};

struct combiner {
	u32 number, id;
	unsigned line; // 0: has no node, only slot leaves name it
	std::string label;
	u32 chip_id, async, direct, gpio, irq_type, int_type, allow_max, suppress_ms, policy;
	std::vector<const document_entry *> cpu_writes;
	std::vector<leaf> leaves; // own ones, then those of the slot nodes

	std::string name() const { return "irq_combiner@" + std::to_string(number); }
};

// In the order of the file. The result points into the document.
std::vector<combiner> resolve(const document &document);

// A name for people and for the CPLD simulation: the label, or one made of numbers.
std::string display_name(const combiner &combiner, const leaf &leaf);

} // namespace cfg

#endif
