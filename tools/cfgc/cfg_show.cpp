// SPDX-License-Identifier: GPL-2.0
//
// Text output: the tree for people, and a table turned back into XML.
#include "cfg_show.h"

#include <algorithm>
#include <memory>
#include <tuple>

namespace cfg {
namespace {

/* The tree */

// One register level that some leaves share, or the own level of one leaf.
struct branch {
	cfg::level level{};
	const cfg::leaf *leaf = nullptr;
	std::vector<std::unique_ptr<branch>> below;
};

branch &shared_branch(branch &parent, const level &level)
{
	for (const auto &child : parent.below)
		if (!child->leaf && child->level == level)
			return *child;
	parent.below.push_back(std::make_unique<branch>());
	parent.below.back()->level = level;
	return *parent.below.back();
}

void add_leaf(branch &root, const leaf &leaf)
{
	branch *at = &root;

	for (size_t n = 0; n + 1 < leaf.levels.size(); n++)
		at = &shared_branch(*at, leaf.levels[n]);
	at->below.push_back(std::make_unique<branch>());
	at->below.back()->leaf = &leaf;
	if (!leaf.levels.empty())
		at->below.back()->level = leaf.levels.back();
}

std::string field_text(const level &level)
{
	if (level.mask == 1)
		return "bit " + std::to_string(level.shift);
	if (((level.mask + 1) & level.mask) == 0) {
		u32 last = level.shift;
		while (last < 31 && level.bits() >> (last + 1) & 1)
			last++;
		return "bits " + std::to_string(level.shift) + "-" + std::to_string(last);
	}
	return "bits " + hex(level.bits());
}

std::string chip_text(u32 chip_id)
{
	return chip_id == no_chip ? "no chip" : "chip " + std::to_string(chip_id);
}

std::string level_text(const combiner &combiner, const level &level)
{
	std::string text;

	if (level.chip_id != combiner.chip_id)
		text = chip_text(level.chip_id) + " ";
	text += hex(level.status) + " " + field_text(level);
	text += level.en == config::NO_REGISTER ? " (always enabled" : " (enable " + hex(level.en);
	return text + (level.wc ? ", W1C)" : ")");
}

std::string storm_text(u32 allow_max, u32 suppress_ms, u32 policy)
{
	return "storm limit " + std::to_string(allow_max) + " in " + std::to_string(suppress_ms) +
	       " ms, policy " + std::to_string(policy);
}

bool has_default_storm(const leaf &leaf)
{
	const auto fallback = [](std::string_view key) {
		return find_key(leaf_keys, key)->default_value();
	};

	return leaf.allow_max == fallback("allow_max") &&
	       leaf.suppress_ms == fallback("suppress_ms") && leaf.policy == fallback("policy");
}

std::string leaf_text(const combiner &combiner, const leaf &leaf)
{
	std::string text = display_name(combiner, leaf) + ": " + hex(leaf.index_id) + "/" +
			   std::to_string(leaf.type) + ", hwirq " + std::to_string(leaf.hwirq) +
			   ", " + std::string(trigger_word(leaf.irq_type));

	text += !leaf.sync	 ? ", threaded"
		: combiner.async ? ", combiner thread"
				 : ", hard interrupt";
	if (leaf.slot)
		text += ", backplane " + hex(*leaf.slot);
	if (!has_default_storm(leaf))
		text += ", " + storm_text(leaf.allow_max, leaf.suppress_ms, leaf.policy);
	return text;
}

void draw(const combiner &combiner, const branch &parent, const std::string &indent,
	  std::string &out)
{
	for (const auto &child : parent.below) {
		const bool last = child == parent.below.back();
		const leaf *leaf = child->leaf;

		out += indent + (last ? "└─ " : "├─ ");
		if (!leaf || !leaf->levels.empty())
			out += level_text(combiner, child->level);
		else
			out += "the line itself";
		out += leaf ? " ── " + leaf_text(combiner, *leaf) + "\n" : "\n";
		draw(combiner, *child, indent + (last ? "   " : "│  "), out);
	}
}

std::string parent_text(const document &document, const combiner &combiner)
{
	std::string text = "parent line " + std::string(trigger_word(combiner.irq_type));

	if (!document.is_board())
		text += " from " + std::string(origin_word(combiner.int_type));
	if (combiner.gpio)
		text += " (gpio " + std::to_string(combiner.gpio) + ")";
	return text;
}

void show_combiner(const document &document, const combiner &combiner, std::string &out)
{
	branch root;

	out += "\n" + combiner.name();
	if (!combiner.label.empty())
		out += " \"" + combiner.label + "\"";
	if (combiner.id != combiner.number)
		out += " (combiner " + std::to_string(combiner.id) + ")";
	out += ": " + std::to_string(combiner.leaves.size()) +
	       (combiner.leaves.size() == 1 ? " leaf, " : " leaves, ");
	out += combiner.direct ? "direct, " : chip_text(combiner.chip_id) + ", ";
	out += combiner.async ? "scanned by its thread, " : "scanned in the parent's interrupt, ";
	out += parent_text(document, combiner) + ", " +
	       storm_text(combiner.allow_max, combiner.suppress_ms, combiner.policy) + "\n";
	for (const document_entry *write : combiner.cpu_writes)
		out += "   " + write->name + ": register " + hex(write->get("reg_addr")) + " " +
		       field_text({0, 0, 0, write->get("shift"), write->get("mask"), 0}) + " = " +
		       hex(write->get("value")) + "\n";
	for (const leaf &leaf : combiner.leaves)
		add_leaf(root, leaf);
	draw(combiner, root, "", out);
}

std::string bitmap_text(u32 bitmap)
{
	std::vector<std::string> names;

	for (u32 n = 0; n < 32; n++)
		if (bitmap >> n & 1)
			names.push_back(std::to_string(n));
	return names.empty() ? "none" : join(names);
}

std::string header(const document &document)
{
	const document_entry common = global_settings(document);

	if (!document.is_board())
		return "card " + std::to_string(document.card_number()) + " (instance " +
		       hex(document.instance) + "), combiners " +
		       bitmap_text(common.get("combiner_bitmap")) + "\n";

	const u32 sources = common.get("cfg_type_bitmap");
	std::vector<std::string> names;
	if (sources & DRV_INTR_CFG_ACPI)
		names.push_back("ACPI (" + bitmap_text(common.get("acpi_bitmap")) + ")");
	if (sources & DRV_INTR_CFG_DTS)
		names.push_back("device tree");
	if (sources & DRV_INTR_CFG_GPIO)
		names.push_back("GPIO pins (" + bitmap_text(common.get("gpio_bitmap")) + ")");
	return "board, combiners from " + (names.empty() ? "nowhere" : join(names)) +
	       ", netlink protocol " + std::to_string(common.get("netlink_id")) + "\n";
}

/* A table back to XML */

// Numbers in names count as numbers: hwirq_cfg2 stands before hwirq_cfg10.
bool natural_less(const std::string &a, const std::string &b)
{
	const numbered_name left = split_number(a), right = split_number(b);

	return std::tie(left.stem, left.number, a) < std::tie(right.stem, right.number, b);
}

std::string escaped(const char *name)
{
	std::string text;

	for (; *name; name++) {
		switch (*name) {
		case '<':
			text += "&lt;";
			break;
		case '>':
			text += "&gt;";
			break;
		case '&':
			text += "&amp;";
			break;
		case '"':
			text += "&quot;";
			break;
		default:
			text += *name;
			break;
		}
	}
	return text;
}

// The records first .. first + count of one part, sorted for people.
std::vector<u32> in_order(const xml_table &table, const xml_part &part, u32 first, u32 count)
{
	std::vector<u32> order;

	for (u32 i = first; i < first + count; i++)
		order.push_back(i);
	std::sort(order.begin(), order.end(), [&](u32 a, u32 b) {
		return natural_less(xml_part_name(&table, &part, a),
				    xml_part_name(&table, &part, b));
	});
	return order;
}

void dump_entry(const xml_table &table, u32 entry, std::string &text)
{
	const u32 first = xml_part_word(&table.entries, entry, 1);
	const u32 count = xml_part_word(&table.entries, entry, 2);

	text += "    <entry name=\"" + escaped(xml_part_name(&table, &table.entries, entry)) + "\"";
	for (const u32 key : in_order(table, table.keys, first, count)) {
		const u32 value = xml_part_word(&table.keys, key, 1);
		text += std::string(" ") + xml_part_name(&table, &table.keys, key) + "=\"" +
			(value < 10 ? std::to_string(value) : hex(value)) + "\"";
	}
	text += "/>\n";
}

} // namespace

std::string show(const document &document)
{
	std::string out =
		header(document) +
		"level: status register and bit (enable register, W1C = write 1 to clear); "
		"leaf: index_id/type, hwirq, trigger, handler\n";

	for (const combiner &combiner : resolve(document))
		show_combiner(document, combiner, out);
	return out;
}

bool dump(const bytes &bytes, std::string &text)
{
	xml_table table;
	char why[160];

	if (xml_table_open(&table, bytes.data(), bytes.size(), why, sizeof(why))) {
		text = why;
		return false;
	}
	text = "<!-- version " + std::to_string(XML_TABLE_VERSION) + ", " +
	       std::to_string(table.size) + " bytes, checksum " + hex(table.checksum) + ", " +
	       std::to_string(table.nodes.count) + " nodes, " +
	       std::to_string(table.entries.count) + " entries, " +
	       std::to_string(table.keys.count) + " keys -->\n<irq_combiner instance=\"" +
	       (table.instance == XML_TABLE_BOARD ? "board" : hex(table.instance)) + "\">\n";
	for (const u32 node : in_order(table, table.nodes, 0, table.nodes.count)) {
		const u32 first = xml_part_word(&table.nodes, node, 1);
		const u32 count = xml_part_word(&table.nodes, node, 2);
		text += "  <node name=\"" + escaped(xml_part_name(&table, &table.nodes, node)) +
			"\">\n";
		for (const u32 entry : in_order(table, table.entries, first, count))
			dump_entry(table, entry, text);
		text += "  </node>\n";
	}
	text += "</irq_combiner>\n";
	return true;
}

} // namespace cfg
