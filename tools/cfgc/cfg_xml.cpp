// SPDX-License-Identifier: GPL-2.0
//
// From XML to the document:
//
//	<irq_combiner instance="board">
//	  <node name="irq_combiner@3">
//	    <entry name="hwirq_cfg0" label="psu0_fault" type="3" hwirq="0" .../>
//
// Each entry is checked by itself as it is read. The XML library stops at the
// first key that stands twice in an entry, so those are found, reported and
// blanked out before it sees the text.
#include "cfg_xml.h"

#include <algorithm>
#include <set>
#include <tuple>

#include <tinyxml2.h>

namespace cfg {
namespace {

constexpr std::string_view blanks = " \t\r\n";
constexpr std::string_view label_letters = "abcdefghijklmnopqrstuvwxyz0123456789_.-";
constexpr size_t label_max = 31;

std::string quoted(std::string_view text)
{
	// Long or unprintable input is shown cut, so that one error stays one line.
	std::string result = "\"";
	for (const char c : text.substr(0, 60))
		result += static_cast<unsigned char>(c) < ' ' ? '?' : c;
	return result + (text.size() > 60 ? "...\"" : "\"");
}

// "did you mean X", or the list of what is known.
std::string advice(std::string_view name, const std::vector<std::string> &known)
{
	const std::string near = nearest(name, known);

	if (!near.empty())
		return "did you mean " + quoted(near) + "?";
	return "known are " + join(known);
}

// A number, though perhaps one of more than 32 bits.
bool is_digits(std::string_view text)
{
	const bool is_hex = text.starts_with("0x");

	text.remove_prefix(is_hex ? 2 : 0);
	return !text.empty() && (is_hex || text[0] != '0') &&
	       text.find_first_not_of(is_hex ? "0123456789abcdefABCDEF" : "0123456789") ==
		       text.npos;
}

/* Keys that stand twice */

size_t skip_past(const std::string &text, size_t from, std::string_view end)
{
	const size_t at = text.find(end, from);
	return at == text.npos ? text.size() : at + end.size();
}

// From behind "<" to behind ">": blank out the attributes that repeat a name.
size_t scan_tag(std::string &text, size_t at, diagnostics &found)
{
	std::set<std::string> seen;

	at = text.find_first_of(std::string(blanks) + "/>", at);
	while (true) {
		at = text.find_first_not_of(blanks, at);
		if (at == text.npos || text[at] == '>' || text[at] == '/')
			return at;
		const size_t name_end = text.find_first_of(std::string(blanks) + "=/>", at);
		const size_t quote = text.find_first_of("\"'>", at);
		if (name_end == text.npos || quote == text.npos || text[quote] == '>')
			return quote;
		const size_t end = skip_past(text, quote + 1, text.substr(quote, 1));
		const std::string name = text.substr(at, name_end - at);
		if (!seen.insert(name).second) {
			const auto line = std::count(text.begin(), text.begin() + at, '\n') + 1;
			found.error(static_cast<unsigned>(line),
				    "key " + quoted(name) +
					    " stands twice in one element; keep one");
			std::replace_if(
				text.begin() + at, text.begin() + end,
				[](char c) { return c != '\n'; }, ' ');
		}
		at = end;
	}
}

void drop_duplicate_keys(std::string &text, diagnostics &found)
{
	size_t at = 0;

	while ((at = text.find('<', at)) != text.npos) {
		const std::string_view rest = std::string_view(text).substr(at);
		if (rest.starts_with("<!--"))
			at = skip_past(text, at + 4, "-->");
		else if (rest.starts_with("<![CDATA["))
			at = skip_past(text, at, "]]>");
		else if (rest.starts_with("<?") || rest.starts_with("<!"))
			at = skip_past(text, at, ">");
		else
			at = scan_tag(text, at + 1, found);
	}
}

/* One entry */

class entry_reader {
public:
	entry_reader(const document_node &node, document_entry &entry, diagnostics &found)
		: entry(entry), found(found), where(node.name + " " + entry.name + ": ")
	{
	}

	void read(const tinyxml2::XMLElement &element)
	{
		for (auto *at = element.FirstAttribute(); at; at = at->Next()) {
			const std::string_view name = at->Name();
			if (name == "label" && entry.rule->has_label)
				read_label(*at);
			else if (name != "name")
				read_key(*at);
		}
		require_keys(element.GetLineNum());
		if (entry.rule->is_leaf)
			check_levels();
		else if (entry.keys.contains("mask"))
			check_cpu_write();
	}

private:
	void read_label(const tinyxml2::XMLAttribute &attribute)
	{
		const std::string_view label = attribute.Value();

		entry.label_line = attribute.GetLineNum();
		if (label.empty() || label.size() > label_max ||
		    label.find_first_not_of(label_letters) != label.npos) {
			found.error(entry.label_line,
				    where + "label " + quoted(label) + " is no label; use 1 to " +
					    std::to_string(label_max) + " of a-z 0-9 _ . -");
			return;
		}
		entry.label = label;
	}

	void read_key(const tinyxml2::XMLAttribute &attribute)
	{
		const std::string name = attribute.Name();
		const unsigned line = attribute.GetLineNum();
		const key_rule *rule = find_rule(name, line);

		if (!rule)
			return;
		const std::optional<u32> value = parse_value(*rule, attribute.Value());
		const bool good = value && in_range(*rule, *value);
		if (!good)
			found.error(line, where + name + "=" + quoted(attribute.Value()) +
						  (value || is_digits(attribute.Value())
							   ? " is out of range; write "
							   : " is not a number; write ") +
						  describe_values(*rule));
		// A wrong value still counts as given: its absence is no second error.
		entry.keys[name] = {good ? *value : rule->default_value(), line, good};
	}

	const key_rule *find_rule(const std::string &name, unsigned line)
	{
		u32 level = 0;
		const key_rule *rule = find_key(entry.rule->keys, name);
		const bool is_slot = entry.rule->node == node_kind::slot;

		if (rule && rule->slot_only && !is_slot) {
			found.error(line, where + name +
						  " belongs to the leaves of slot_isr_0xN "
						  "nodes only; remove it here");
			return nullptr;
		}
		if (rule)
			return rule;
		if (entry.rule->is_leaf)
			rule = find_level_key(name, level);
		if (rule && level >= config::MAX_LEVELS) {
			found.error(line, where + name + ": a leaf has at most " +
						  std::to_string(config::MAX_LEVELS) +
						  " levels; l0_ to l4_ are read");
			return nullptr;
		}
		if (!rule)
			found.error(line, where + "unknown key " + quoted(name) + "; " +
						  advice(name, known_keys(is_slot)));
		return rule;
	}

	std::vector<std::string> known_keys(bool is_slot) const
	{
		std::vector<std::string> known;

		for (const key_rule &rule : entry.rule->keys)
			if (is_slot || !rule.slot_only)
				known.emplace_back(rule.name);
		for (u32 level = 0; entry.rule->is_leaf && level < config::MAX_LEVELS; level++)
			for (const key_rule &rule : level_keys)
				known.push_back("l" + std::to_string(level) + "_" +
						std::string(rule.name));
		if (entry.rule->has_label)
			known.emplace_back("label");
		return known;
	}

	void require_keys(unsigned line)
	{
		for (const key_rule &rule : entry.rule->keys)
			if (rule.is_required() && !entry.keys.contains(std::string(rule.name)))
				found.error(line, where + "key " + quoted(rule.name) +
							  " is missing; it has no default");
	}

	void check_levels()
	{
		const u32 count = entry.get("level_num");
		u32 level = 0;

		if (!entry.keys.contains("level_num"))
			check_no_levels();
		if (!entry.keys.contains("level_num") || !entry.is_known("level_num"))
			return;
		for (const auto &[name, value] : entry.keys)
			if (find_level_key(name, level) && level >= count)
				found.error(value.line, where + name +
								" is never read, since "
								"level_num is " +
								std::to_string(count) +
								"; raise level_num or remove it");
		for (level = 0; level < count; level++)
			check_level("l" + std::to_string(level) + "_");
	}

	void check_no_levels()
	{
		u32 level;

		for (const auto &[name, value] : entry.keys)
			if (find_level_key(name, level)) {
				found.error(value.line, where + "level_num is missing, so " + name +
								" is never read; add level_num");
				return;
			}
	}

	void check_level(const std::string &prefix)
	{
		for (const key_rule &rule : level_keys)
			if (rule.is_required() &&
			    !entry.keys.contains(prefix + std::string(rule.name)))
				found.error(entry.line,
					    where + "key " +
						    quoted(prefix + std::string(rule.name)) +
						    " is missing; every level below level_num "
						    "needs it");
		check_field(prefix + "shift", prefix + "mask");
	}

	void check_field(const std::string &shift, const std::string &mask)
	{
		const auto at = entry.keys.find(entry.keys.contains(mask) ? mask : shift);

		if (at == entry.keys.end() || entry.get(mask) <= (0xffffffffu >> entry.get(shift)))
			return;
		found.error(at->second.line,
			    where + mask + " " + hex(entry.get(mask)) + " shifted by " +
				    std::to_string(entry.get(shift)) +
				    " does not fit 32 bits; correct " + mask + " or " + shift);
	}

	void check_cpu_write()
	{
		const u32 address = entry.get("reg_addr"), value = entry.get("value");

		check_field("shift", "mask");
		if (address % 4)
			found.error(
				entry.keys.at("reg_addr").line,
				where + "reg_addr " + hex(address) +
					" is no address of a 32-bit register; use a multiple of 4");
		if (value & ~entry.get("mask"))
			found.warning(entry.keys.at("value").line,
				      where + "value " + hex(value) +
					      " has bits outside the mask; they are not written");
	}

	document_entry &entry;
	diagnostics &found;
	const std::string where;
};

/* The tree of elements */

// The attribute, which must be there; reports every other one except skipped ones.
const char *only_attribute(const tinyxml2::XMLElement &element, const char *name,
			   const std::string &where, const std::string &example, diagnostics &found)
{
	for (auto *at = element.FirstAttribute(); at; at = at->Next())
		if (std::string_view(at->Name()) != name)
			found.error(at->GetLineNum(), where + "unknown attribute " +
							      quoted(at->Name()) + "; only " +
							      name + " is known here");
	if (!element.Attribute(name))
		found.error(element.GetLineNum(),
			    where + name + " is missing; write " + name + "=" + example);
	return element.Attribute(name);
}

// The child elements that are called as they must be.
std::vector<const tinyxml2::XMLElement *> children(const tinyxml2::XMLElement &parent,
						   const char *wanted, diagnostics &found)
{
	std::vector<const tinyxml2::XMLElement *> result;

	for (auto *at = parent.FirstChild(); at; at = at->NextSibling()) {
		const tinyxml2::XMLElement *element = at->ToElement();
		const unsigned line = at->GetLineNum();
		if (element && std::string_view(wanted) == element->Name())
			result.push_back(element);
		else if (element)
			found.error(line, "unknown element <" + std::string(element->Name()) +
						  "> inside <" + parent.Name() + ">; " +
						  (*wanted ? std::string("only <") + wanted +
								     "> can stand there"
							   : "nothing can stand there"));
		else if (at->ToText())
			found.error(line, std::string("text inside <") + parent.Name() +
						  "> is not read; remove it or make it a comment");
	}
	return result;
}

std::vector<std::string> known_entries(node_kind kind)
{
	std::vector<std::string> names;

	for (const entry_rule &rule : entry_rules)
		if (rule.node == kind)
			names.push_back(std::string(rule.name) +
					(rule.last == not_numbered ? "" : "N"));
	return names;
}

// A misspelled stem is compared without its number, and proposed with it.
std::string stem_advice(std::string_view name, size_t stem_size,
			const std::vector<std::string> &known)
{
	const std::string near = nearest(std::string(name.substr(0, stem_size)) + "N", known);
	const std::string full = nearest(name, known);

	if (!full.empty() && full.back() != 'N')
		return "did you mean " + quoted(full) + "?";
	if (near.empty() || near.back() != 'N' || stem_size == name.size())
		return "known are " + join(known);
	const std::string meant =
		near.substr(0, near.size() - 1) + std::string(name.substr(stem_size));
	if (meant == name)
		return "write the number of " + near + " without leading zeros";
	return "did you mean " + quoted(meant) + "?";
}

const entry_rule *find_entry_rule(node_kind kind, const numbered_name &name)
{
	for (const entry_rule &rule : entry_rules)
		if (rule.node == kind && rule.name == name.stem &&
		    (rule.last != not_numbered) == name.number.has_value())
			return &rule;
	return nullptr;
}

bool start_entry(const document_node &node, std::string_view name, document_entry &entry,
		 diagnostics &found)
{
	const numbered_name split = split_number(name);

	entry.name = name;
	entry.rule = find_entry_rule(node.kind, split);
	if (!entry.rule) {
		found.error(entry.line,
			    node.name + ": unknown entry " + quoted(name) + "; " +
				    stem_advice(name, split.stem.size(), known_entries(node.kind)));
		return false;
	}
	entry.number = split.number.value_or(0);
	if (split.number && entry.number > entry.rule->last) {
		found.error(entry.line, node.name + ": " + entry.name + " is never read; " +
						std::string(entry.rule->name) + "0 to " +
						std::string(entry.rule->name) +
						std::to_string(entry.rule->last) + " are");
		return false;
	}
	for (const document_entry &other : node.entries)
		if (other.name == name) {
			found.error(entry.line, node.name + ": entry " + entry.name +
							" stands twice, first in line " +
							std::to_string(other.line) + "; keep one");
			return false;
		}
	return true;
}

void read_entry(const tinyxml2::XMLElement &element, document_node &node, diagnostics &found)
{
	const char *name = element.Attribute("name");
	document_entry entry{};

	entry.line = element.GetLineNum();
	children(element, "", found);
	if (!name) {
		found.error(entry.line, node.name + ": an entry without a name; write "
						    "<entry name=\"...\" .../>");
		return;
	}
	if (!start_entry(node, name, entry, found))
		return;
	entry_reader(node, entry, found).read(element);
	node.entries.push_back(std::move(entry));
}

constexpr std::string_view slot_stem = "slot_isr_0x";

// slot_isr_0x1a: the driver makes the name in lower-case hex without leading zeros.
std::optional<u32> slot_number(std::string_view name)
{
	if (!name.starts_with(slot_stem))
		return std::nullopt;
	const std::optional<u32> type = parse_number(name.substr(slot_stem.size() - 2));
	if (!type || "slot_isr_" + hex(*type) != name)
		return std::nullopt;
	return type;
}

void report_unknown_node(std::string_view name, unsigned line, diagnostics &found)
{
	const std::vector<std::string> known = {"global_cfg", "irq_combiner@N", "slot_isr_0xN"};
	const size_t hex_digits = name.find("0x");
	const size_t stem =
		hex_digits == name.npos ? split_number(name).stem.size() : hex_digits + 2;

	if (name.starts_with(slot_stem))
		found.error(line, "unknown node " + quoted(name) +
					  "; write the backplane type in lower-case hex without "
					  "leading zeros, as in slot_isr_0x1a");
	else
		found.error(line,
			    "unknown node " + quoted(name) + "; " + stem_advice(name, stem, known));
}

bool start_node(const document &document, std::string_view name, document_node &node,
		diagnostics &found)
{
	const numbered_name split = split_number(name);
	const u32 limit = document.is_board() ? BOARD_COMBINERS : CARD_COMBINERS;

	node.name = name;
	if (name == "global_cfg") {
		node.kind = node_kind::global;
	} else if (split.stem == "irq_combiner@" && split.number) {
		node.kind = node_kind::combiner;
		node.number = *split.number;
	} else if (slot_number(name)) {
		node.kind = node_kind::slot;
		node.number = *slot_number(name);
	} else {
		report_unknown_node(name, node.line, found);
		return false;
	}
	if (node.kind == node_kind::combiner && node.number >= limit) {
		found.error(node.line, node.name + " is never read; " +
					       (document.is_board() ? "a board" : "a card") +
					       " has irq_combiner@0 to irq_combiner@" +
					       std::to_string(limit - 1));
		return false;
	}
	for (const document_node &other : document.nodes)
		if (other.name == name) {
			found.error(node.line, "node " + node.name +
						       " stands twice, first in line " +
						       std::to_string(other.line) +
						       "; move its entries there");
			return false;
		}
	return true;
}

void read_node(const tinyxml2::XMLElement &element, document &document, diagnostics &found)
{
	const char *name = only_attribute(element, "name", "node: ", "\"irq_combiner@0\"", found);
	document_node node{};

	node.line = element.GetLineNum();
	if (!name || !start_node(document, name, node, found))
		return;
	for (const tinyxml2::XMLElement *entry : children(element, "entry", found))
		read_entry(*entry, node, found);
	document.nodes.push_back(std::move(node));
}

void read_instance(const tinyxml2::XMLElement &root, document &document, diagnostics &found)
{
	const char *text = only_attribute(root, "instance",
					  "irq_combiner: ", "\"board\" or a card's id", found);
	const std::string_view written = text ? text : "board";
	const std::optional<u32> number =
		written == "board" ? XML_TABLE_BOARD : parse_number(written);

	if (!number)
		found.error(root.GetLineNum(), "instance=" + quoted(written) +
						       " is not a number; write board, or a "
						       "card's id, decimal or 0x hex");
	document.instance = number.value_or(XML_TABLE_BOARD);
	if (!document.is_board() && document.card_number() == NO_CARD)
		found.error(root.GetLineNum(), "instance=" + quoted(written) +
						       " names no card; its low 16 bits must "
						       "not be 0xffff");
}

void report_malformed(const tinyxml2::XMLDocument &xml, diagnostics &found)
{
	std::string what;

	switch (xml.ErrorID()) {
	case tinyxml2::XML_ERROR_EMPTY_DOCUMENT:
		what = "the file is empty; write <irq_combiner instance=\"board\">";
		break;
	case tinyxml2::XML_ERROR_PARSING_ATTRIBUTE:
		what = "an attribute is malformed here; write key=\"value\"";
		break;
	case tinyxml2::XML_ERROR_MISMATCHED_ELEMENT:
	case tinyxml2::XML_ERROR_PARSING_ELEMENT:
	case tinyxml2::XML_ERROR_PARSING:
		what = "an element is malformed or not closed here; close it with /> or its "
		       "own end tag";
		break;
	case tinyxml2::XML_ERROR_PARSING_COMMENT:
		what = "a comment is not closed; end it with -->";
		break;
	default:
		what = std::string("not well-formed XML here (") + xml.ErrorName() +
		       "); correct it";
		break;
	}
	found.error(static_cast<unsigned>(std::max(xml.ErrorLineNum(), 1)), what);
}

// The one root element, or null after a report.
const tinyxml2::XMLElement *find_root(const tinyxml2::XMLDocument &xml, diagnostics &found)
{
	const tinyxml2::XMLElement *root = xml.RootElement();

	if (!root || std::string_view(root->Name()) != XML_TABLE_ROOT) {
		found.error(root ? root->GetLineNum() : 1,
			    std::string("the root element is ") +
				    (root ? "<" + std::string(root->Name()) + ">" : "missing") +
				    "; it must be <irq_combiner instance=\"...\">");
		return nullptr;
	}
	for (auto *at = root->NextSibling(); at; at = at->NextSibling())
		if (at->ToElement() || at->ToText())
			found.error(at->GetLineNum(), "nothing is read behind the end of "
						      "<irq_combiner>; move it inside");
	return root;
}

} // namespace

void diagnostics::error(unsigned line, std::string text)
{
	list.push_back({line, true, std::move(text)});
}

void diagnostics::warning(unsigned line, std::string text)
{
	list.push_back({line, false, std::move(text)});
}

bool diagnostics::has_errors() const
{
	return std::any_of(list.begin(), list.end(), [](auto &found) { return found.is_error; });
}

const std::vector<diagnostic> &diagnostics::sorted()
{
	const auto same = [](const diagnostic &a, const diagnostic &b) {
		return std::tie(a.line, a.text) == std::tie(b.line, b.text);
	};

	std::stable_sort(list.begin(), list.end(),
			 [](const diagnostic &a, const diagnostic &b) { return a.line < b.line; });
	list.erase(std::unique(list.begin(), list.end(), same), list.end());
	return list;
}

document read_xml(std::string_view text, diagnostics &found)
{
	std::string copy(text);
	tinyxml2::XMLDocument xml;
	document document;

	if (const size_t at = copy.find('\0'); at != copy.npos) {
		found.error(
			static_cast<unsigned>(std::count(copy.begin(), copy.begin() + at, '\n')) +
				1,
			"a zero byte: this is no XML text; save it as UTF-8");
		return document;
	}
	drop_duplicate_keys(copy, found);
	if (xml.Parse(copy.data(), copy.size()) != tinyxml2::XML_SUCCESS) {
		report_malformed(xml, found);
		return document;
	}
	const tinyxml2::XMLElement *root = find_root(xml, found);
	if (!root)
		return document;
	read_instance(*root, document, found);
	for (const tinyxml2::XMLElement *node : children(*root, "node", found))
		read_node(*node, document, found);
	check_document(document, found);
	return document;
}

} // namespace cfg
