// SPDX-License-Identifier: GPL-2.0
//
// Checks across entries: what the driver would silently never read, or read as
// something else than was meant.
#include "cfg_xml.h"

#include <algorithm>
#include <set>
#include <utility>

namespace cfg {
namespace {

constexpr u32 netlink_protocols = 32;

std::string place(const leaf &leaf)
{
	return leaf.node + " " + leaf.entry + ": ";
}

std::string in_line(unsigned line)
{
	return " (line " + std::to_string(line) + ")";
}

/* Numbering: the driver stops at the first number that is missing. */

void check_numbering(const document_node &node, const entry_rule &rule, diagnostics &found)
{
	std::map<u32, const document_entry *> by_number;
	u32 expected = 0;
	std::optional<u32> missing;

	for (const document_entry &entry : node.entries)
		if (entry.rule == &rule)
			by_number[entry.number] = &entry;
	for (const auto &[number, entry] : by_number) {
		if (number != expected && !missing)
			missing = expected;
		if (number != expected)
			found.error(entry->line,
				    node.name + " " + entry->name + ": never read, since " +
					    std::string(rule.name) + std::to_string(*missing) +
					    " is missing; number the entries from 0 "
					    "without a gap");
		expected = number + 1;
	}
}

void check_numberings(const document &document, diagnostics &found)
{
	for (const document_node &node : document.nodes)
		for (const entry_rule &rule : entry_rules)
			if (rule.node == node.kind && rule.last != not_numbered)
				check_numbering(node, rule, found);
}

/* The global entry */

unsigned line_of(const document_entry &entry, const std::string &key)
{
	const auto at = entry.keys.find(key);
	return at == entry.keys.end() ? entry.line : at->second.line;
}

bool has_combiner(const document &document, u32 number)
{
	return std::any_of(document.nodes.begin(), document.nodes.end(), [&](auto &node) {
		return node.kind == node_kind::combiner && node.number == number;
	});
}

// Every combiner that a bitmap brings up should be configured.
void check_bitmap(const document &document, const document_entry &common, const std::string &key,
		  diagnostics &found)
{
	const u32 count = document.is_board() ? BOARD_COMBINERS : CARD_COMBINERS;

	for (u32 n = 0; n < count; n++)
		if (common.get(key) >> n & 1 && !has_combiner(document, n))
			found.warning(line_of(common, key),
				      "global_cfg common: " + key + " names combiner " +
					      std::to_string(n) +
					      ", which has no leaves; add a node irq_combiner@" +
					      std::to_string(n));
}

void check_board_common(const document &document, const document_entry &common, diagnostics &found)
{
	const u32 sources = common.get("cfg_type_bitmap");
	const u32 both = common.get("acpi_bitmap") & common.get("gpio_bitmap");

	if (common.get("netlink_id") >= netlink_protocols)
		found.warning(line_of(common, "netlink_id"),
			      "global_cfg common: netlink_id " +
				      std::to_string(common.get("netlink_id")) +
				      " is no netlink protocol, so no process can subscribe; "
				      "use a free one below 32");
	if (common.keys.contains("combiner_bitmap"))
		found.warning(line_of(common, "combiner_bitmap"),
			      "global_cfg common: combiner_bitmap is read for a card only; "
			      "remove it");
	if (sources & DRV_INTR_CFG_ACPI)
		check_bitmap(document, common, "acpi_bitmap", found);
	if (sources & DRV_INTR_CFG_GPIO)
		check_bitmap(document, common, "gpio_bitmap", found);
	if ((sources & DRV_INTR_CFG_ACPI) && (sources & DRV_INTR_CFG_GPIO) &&
	    !(sources & DRV_INTR_CFG_DTS) && both)
		found.error(line_of(common, "gpio_bitmap"),
			    "global_cfg common: acpi_bitmap and gpio_bitmap both name combiners " +
				    hex(both) + "; give each combiner one source");
}

void check_card_common(const document &document, const document_entry *common, diagnostics &found)
{
	for (const document_node &node : document.nodes)
		if (node.kind == node_kind::combiner &&
		    !(common && common->get("combiner_bitmap") >> node.number & 1))
			found.warning(node.line,
				      node.name + ": never brought up; set bit " +
					      std::to_string(node.number) +
					      " of combiner_bitmap in global_cfg common");
	if (!common)
		return;
	if (common->get("combiner_bitmap") >> CARD_COMBINERS)
		found.warning(line_of(*common, "combiner_bitmap"),
			      "global_cfg common: only bits 0 to 3 of combiner_bitmap are read; "
			      "clear the others");
	check_bitmap(document, *common, "combiner_bitmap", found);
	for (const auto &[key, value] : common->keys)
		if (key != "combiner_bitmap")
			found.warning(value.line, "global_cfg common: " + key +
							  " is read for the board only; remove it");
}

void check_common(const document &document, diagnostics &found)
{
	const document_entry *common = find_common(document);

	if (!document.is_board())
		check_card_common(document, common, found);
	else if (common)
		check_board_common(document, *common, found);
}

/* Slot leaves */

void check_slot_owner(const document &document, const document_node &node,
		      const document_entry &entry, diagnostics &found)
{
	const std::string where = node.name + " " + entry.name + ": ";
	const u32 count = document.is_board() ? BOARD_COMBINERS : CARD_COMBINERS;
	const u32 first = document.combiner_id(0);

	if (!entry.keys.contains("combiner_id")) {
		found.warning(entry.line, where + "belongs to no combiner; add combiner_id");
		return;
	}
	const u32 id = entry.get("combiner_id");
	const unsigned line = line_of(entry, "combiner_id");
	if (id - first >= count)
		found.error(line, where + "combiner_id " + std::to_string(id) +
					  " is no combiner of this instance; its ids are " +
					  std::to_string(first) + " to " +
					  std::to_string(first + count - 1));
	else if (!has_combiner(document, id - first))
		found.warning(line, where + "combiner_id " + std::to_string(id) +
					    " has no node here; all its settings are defaults");
}

void check_slots(const document &document, diagnostics &found)
{
	for (const document_node &node : document.nodes)
		if (node.kind == node_kind::slot)
			for (const document_entry &entry : node.entries)
				check_slot_owner(document, node, entry, found);
}

/* One combiner */

void check_chain(const combiner &combiner, const leaf &leaf, diagnostics &found)
{
	if (combiner.direct || !leaf.has_levels)
		return;
	if (leaf.levels.empty()) {
		found.error(leaf.line, place(leaf) + "level_num is 0 on a combiner that is not "
						     "direct; describe its levels, or set direct");
		return;
	}
	for (const level &level : leaf.levels)
		if (level.chip_id == no_chip) {
			found.warning(leaf.line, place(leaf) + "a level is on no chip; set chip_id "
							       "of the combiner or l0_chip_id");
			break;
		}
	if (leaf.levels.back().en == config::NO_REGISTER)
		found.warning(leaf.line, place(leaf) +
						 "its own level has no enable register, so it "
						 "cannot be masked; set l" +
						 std::to_string(leaf.levels.size() - 1) + "_en");
}

void check_hwirqs(const combiner &combiner, diagnostics &found)
{
	std::map<u32, std::vector<const leaf *>> seen;

	for (const leaf &leaf : combiner.leaves) {
		if (!leaf.has_hwirq)
			continue;
		for (const cfg::leaf *other : seen[leaf.hwirq])
			if (leaf.coexists(*other)) {
				found.error(leaf.line, place(leaf) + "hwirq " +
							       std::to_string(leaf.hwirq) + " of " +
							       combiner.name() + " is " +
							       other->entry + in_line(other->line) +
							       " already; use another");
				break;
			}
		seen[leaf.hwirq].push_back(&leaf);
	}
}

void check_direct(const combiner &combiner, diagnostics &found)
{
	const leaf *first = nullptr;

	for (const leaf &leaf : combiner.leaves) {
		if (first && leaf.coexists(*first))
			found.warning(leaf.line,
				      place(leaf) + "a second leaf of a direct combiner; masking "
						    "or releasing one closes the line for all");
		if (!first)
			first = &leaf;
	}
}

void check_combiner(const document &document, const combiner &combiner, diagnostics &found)
{
	for (const leaf &leaf : combiner.leaves)
		check_chain(combiner, leaf, found);
	check_hwirqs(combiner, found);
	if (combiner.direct)
		check_direct(combiner, found);
	if (!document.is_board() && combiner.int_type == DRV_INTR_EXTERNAL && combiner.line)
		found.warning(combiner.line,
			      combiner.name() + ": a card combiner without a parent line cannot "
						"be brought up; set int_type to gpio or combiner");
}

/* Between combiners */

void check_identities(const std::vector<combiner> &combiners, diagnostics &found)
{
	std::map<std::pair<u32, u32>, std::vector<const leaf *>> seen;

	for (const combiner &combiner : combiners)
		for (const leaf &leaf : combiner.leaves) {
			if (!leaf.has_identity)
				continue;
			auto &same = seen[{leaf.index_id, leaf.type}];
			for (const cfg::leaf *other : same)
				if (leaf.coexists(*other)) {
					found.error(
						leaf.line,
						place(leaf) + "index_id " + hex(leaf.index_id) +
							" type " + std::to_string(leaf.type) +
							" is " + other->node + " " + other->entry +
							in_line(other->line) +
							" already; only the first would be found");
					break;
				}
			same.push_back(&leaf);
		}
}

// One status bit belongs to one leaf; sharing it makes both fire.
void check_overlaps(const std::vector<combiner> &combiners, diagnostics &found)
{
	std::map<std::pair<u32, u32>, std::vector<const leaf *>> seen;

	for (const combiner &combiner : combiners)
		for (const leaf &leaf : combiner.leaves) {
			if (combiner.direct || leaf.levels.empty())
				continue;
			const level &own = leaf.levels.back();
			auto &same = seen[{own.chip_id, own.status}];
			for (const cfg::leaf *other : same)
				if (leaf.coexists(*other) &&
				    own.bits() & other->levels.back().bits()) {
					found.warning(
						leaf.line,
						place(leaf) + "shares bits of status register " +
							hex(own.status) + " with " + other->node +
							" " + other->entry + in_line(other->line) +
							"; each leaf needs its own");
					break;
				}
			same.push_back(&leaf);
		}
}

void check_labels(const document &document, const std::vector<combiner> &combiners,
		  diagnostics &found)
{
	std::map<std::string, unsigned> lines;
	const auto add = [&](const std::string &name, unsigned line) {
		const auto [at, fresh] = lines.try_emplace(name, line);
		if (!fresh)
			found.error(line, "label \"" + name + "\" is taken" + in_line(at->second) +
						  "; use another");
	};

	// A label must not look like the name of a leaf without one, either.
	for (const combiner &combiner : combiners)
		for (const leaf &leaf : combiner.leaves)
			if (leaf.label.empty())
				lines[display_name(combiner, leaf)] = leaf.line;
	for (const document_node &node : document.nodes)
		for (const document_entry &entry : node.entries)
			if (!entry.label.empty())
				add(entry.label, entry.label_line);
}

} // namespace

void check_document(const document &document, diagnostics &found)
{
	const std::vector<combiner> combiners = resolve(document);

	check_numberings(document, found);
	check_common(document, found);
	check_slots(document, found);
	for (const combiner &combiner : combiners)
		check_combiner(document, combiner, found);
	check_identities(combiners, found);
	check_overlaps(combiners, found);
	check_labels(document, combiners, found);
}

} // namespace cfg
