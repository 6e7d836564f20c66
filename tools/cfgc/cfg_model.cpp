// SPDX-License-Identifier: GPL-2.0
//
// From the document to what the driver sees: defaults, ids, slot leaves.
#include "cfg_model.h"

#include <algorithm>

namespace cfg {
namespace {

std::string level_key(u32 level, std::string_view name)
{
	return "l" + std::to_string(level) + "_" + std::string(name);
}

level make_level(const document_entry &entry, u32 n, u32 default_chip)
{
	const bool has_chip = entry.keys.contains(level_key(n, "chip_id"));

	return {.chip_id = has_chip ? entry.get(level_key(n, "chip_id")) : default_chip,
		.en = entry.get(level_key(n, "en")),
		.status = entry.get(level_key(n, "status")),
		.shift = entry.get(level_key(n, "shift")),
		.mask = entry.get(level_key(n, "mask")),
		.wc = entry.get(level_key(n, "wc"))};
}

// Level keys without a level_num do not tell how many levels were meant.
bool has_known_levels(const document_entry &entry)
{
	u32 level;

	if (entry.keys.contains("level_num"))
		return entry.is_known("level_num");
	return std::none_of(entry.keys.begin(), entry.keys.end(),
			    [&](auto &key) { return find_level_key(key.first, level); });
}

leaf make_leaf(const document_node &node, const document_entry &entry, const combiner &combiner)
{
	leaf leaf{.node = node.name,
		  .entry = entry.name,
		  .number = entry.number,
		  .line = entry.line,
		  .label = entry.label,
		  .slot = std::nullopt,
		  .index_id = entry.get("index_id"),
		  .type = entry.get("type"),
		  .hwirq = entry.get("hwirq"),
		  .irq_type = entry.get("irq_type"),
		  .sync = entry.get("sync"),
		  .allow_max = entry.get("allow_max"),
		  .suppress_ms = entry.get("suppress_ms"),
		  .policy = entry.get("policy"),
		  .levels = {},
		  .has_identity = entry.is_known("index_id") && entry.is_known("type"),
		  .has_hwirq = entry.is_known("hwirq"),
		  .has_levels = has_known_levels(entry)};

	if (node.kind == node_kind::slot)
		leaf.slot = node.number;
	for (u32 n = 0; n < entry.get("level_num"); n++)
		leaf.levels.push_back(make_level(entry, n, combiner.chip_id));
	return leaf;
}

combiner make_combiner(const document_entry &common, u32 number, u32 id, unsigned line)
{
	return {.number = number,
		.id = id,
		.line = line,
		.label = common.label,
		.chip_id = common.get("chip_id"),
		.async = common.get("async"),
		.direct = common.get("direct"),
		.gpio = common.get("gpio"),
		.irq_type = common.get("irq_type"),
		.int_type = common.get("int_type"),
		.allow_max = common.get("allow_max"),
		.suppress_ms = common.get("suppress_ms"),
		.policy = common.get("policy"),
		.cpu_writes = {},
		.leaves = {}};
}

const entry_rule *combiner_rule()
{
	for (const entry_rule &rule : entry_rules)
		if (rule.name == "global_cfg")
			return &rule;
	return nullptr;
}

// A combiner's common settings when the file says nothing about them.
document_entry default_common()
{
	return {combiner_rule(), "global_cfg", 0, 0, "", 0, {}};
}

combiner resolve_combiner(const document &document, const document_node &node)
{
	document_entry common = default_common();

	for (const document_entry &entry : node.entries)
		if (entry.name == "global_cfg")
			common = entry;
	combiner result =
		make_combiner(common, node.number, document.combiner_id(node.number), node.line);
	for (const document_entry &entry : node.entries) {
		if (entry.rule->is_leaf)
			result.leaves.push_back(make_leaf(node, entry, result));
		else if (entry.name != "global_cfg")
			result.cpu_writes.push_back(&entry);
	}
	return result;
}

combiner &find_or_add(std::vector<combiner> &combiners, const document &document, u32 id)
{
	for (combiner &combiner : combiners)
		if (combiner.id == id)
			return combiner;
	const u32 first = document.combiner_id(0);
	combiners.push_back(make_combiner(default_common(), id - first, id, 0));
	return combiners.back();
}

} // namespace

u32 document_entry::get(std::string_view key) const
{
	u32 level;

	if (const auto at = keys.find(std::string(key)); at != keys.end())
		return at->second.value;
	if (const key_rule *known = find_key(rule->keys, key))
		return known->default_value();
	const key_rule *known = find_level_key(key, level);
	return known ? known->default_value() : 0;
}

bool document_entry::is_known(std::string_view key) const
{
	if (const auto at = keys.find(std::string(key)); at != keys.end())
		return at->second.good;
	const key_rule *known = find_key(rule->keys, key);
	return known && !known->is_required();
}

u32 document::combiner_id(u32 number) const
{
	return is_board() ? number : card_combiner_id(card_number(), number);
}

table document::to_table() const
{
	table result{instance, {}};

	for (const document_node &node : nodes) {
		entries &entries = result.nodes[node.name];
		for (const document_entry &entry : node.entries) {
			keys &keys = entries[entry.name];
			for (const auto &[key, value] : entry.keys)
				keys[key] = value.value;
		}
	}
	return result;
}

const document_entry *find_common(const document &document)
{
	for (const document_node &node : document.nodes)
		if (node.kind == node_kind::global && !node.entries.empty())
			return &node.entries.front();
	return nullptr;
}

document_entry global_settings(const document &document)
{
	const document_entry *common = find_common(document);

	return common ? *common : document_entry{&entry_rules[0], "common", 0, 0, "", 0, {}};
}

std::vector<combiner> resolve(const document &document)
{
	std::vector<combiner> combiners;

	for (const document_node &node : document.nodes)
		if (node.kind == node_kind::combiner)
			combiners.push_back(resolve_combiner(document, node));
	for (const document_node &node : document.nodes) {
		if (node.kind != node_kind::slot)
			continue;
		for (const document_entry &entry : node.entries) {
			if (!entry.keys.contains("combiner_id"))
				continue;
			combiner &owner =
				find_or_add(combiners, document, entry.get("combiner_id"));
			owner.leaves.push_back(make_leaf(node, entry, owner));
		}
	}
	return combiners;
}

std::string display_name(const combiner &combiner, const leaf &leaf)
{
	if (!leaf.label.empty())
		return leaf.label;
	const std::string owner = "combiner" + std::to_string(combiner.id);
	const std::string place = leaf.slot ? ".slot" + hex(*leaf.slot) : "";
	return owner + place + ".leaf" + std::to_string(leaf.number);
}

} // namespace cfg
