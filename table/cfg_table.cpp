// SPDX-License-Identifier: GPL-2.0
//
// The writer of configuration tables. std::map keeps nodes, entries and keys in
// the byte order that the layout asks for.
#include "cfg_table.h"

#include <algorithm>

namespace cfg {
namespace {

void put(bytes &out, u32 word)
{
	for (int shift = 0; shift < 32; shift += 8)
		out.push_back(static_cast<u8>(word >> shift));
}

void put_at(bytes &out, u32 index, u32 word)
{
	for (int i = 0; i < 4; i++)
		out[index * 4 + i] = static_cast<u8>(word >> (8 * i));
}

bool name_is_good(const std::string &name)
{
	return !name.empty() && name.size() <= XML_TABLE_NAME_MAX &&
	       std::all_of(name.begin(), name.end(), [](char c) { return c >= '!' && c <= '~'; });
}

// The string part; a text that occurs often is stored once.
class strings {
public:
	u32 add(const std::string &name)
	{
		const auto [at, fresh] = offsets.try_emplace(name, static_cast<u32>(text.size()));
		if (fresh)
			text.append(name).push_back('\0');
		if (!name_is_good(name) && bad_name.empty())
			bad_name = '"' + name + '"';
		return at->second;
	}

	std::string text;
	std::string bad_name;

private:
	std::map<std::string, u32> offsets;
};

struct parts {
	bytes nodes, entries, keys;
	u32 entry_count = 0, key_count = 0;
	strings names;
};

void add_entry(parts &parts, const std::string &name, const keys &keys)
{
	put(parts.entries, parts.names.add(name));
	put(parts.entries, parts.key_count);
	put(parts.entries, static_cast<u32>(keys.size()));
	for (const auto &[key, value] : keys) {
		put(parts.keys, parts.names.add(key));
		put(parts.keys, value);
	}
	parts.entry_count++;
	parts.key_count += static_cast<u32>(keys.size());
}

void add_node(parts &parts, const std::string &name, const entries &entries)
{
	put(parts.nodes, parts.names.add(name));
	put(parts.nodes, parts.entry_count);
	put(parts.nodes, static_cast<u32>(entries.size()));
	for (const auto &[entry, keys] : entries)
		add_entry(parts, entry, keys);
}

template <typename content> void append(bytes &out, const content &part)
{
	out.insert(out.end(), part.begin(), part.end());
}

} // namespace

bool write_table(const table &table, bytes &out, std::string &why)
{
	parts parts;

	for (const auto &[name, entries] : table.nodes)
		add_node(parts, name, entries);
	if (!parts.names.bad_name.empty()) {
		why = parts.names.bad_name + " is no name: 1 to " +
		      std::to_string(XML_TABLE_NAME_MAX) + " visible characters are";
		return false;
	}

	out.assign(XML_HDR_WORDS * 4, 0);
	put_at(out, XML_HDR_MAGIC, XML_TABLE_MAGIC);
	put_at(out, XML_HDR_VERSION, XML_TABLE_VERSION);
	put_at(out, XML_HDR_INSTANCE, table.instance);
	put_at(out, XML_HDR_NODES, static_cast<u32>(out.size()));
	put_at(out, XML_HDR_NODE_COUNT, static_cast<u32>(table.nodes.size()));
	append(out, parts.nodes);
	put_at(out, XML_HDR_ENTRIES, static_cast<u32>(out.size()));
	put_at(out, XML_HDR_ENTRY_COUNT, parts.entry_count);
	append(out, parts.entries);
	put_at(out, XML_HDR_KEYS, static_cast<u32>(out.size()));
	put_at(out, XML_HDR_KEY_COUNT, parts.key_count);
	append(out, parts.keys);
	put_at(out, XML_HDR_STRINGS, static_cast<u32>(out.size()));
	put_at(out, XML_HDR_STRING_SIZE, static_cast<u32>(parts.names.text.size()));
	append(out, parts.names.text);
	if (out.size() > XML_TABLE_SIZE_MAX) {
		why = "the table would have " + std::to_string(out.size()) + " bytes; at most " +
		      std::to_string(XML_TABLE_SIZE_MAX) + " are read";
		return false;
	}
	put_at(out, XML_HDR_SIZE, static_cast<u32>(out.size()));
	reseal(out);
	return true;
}

void reseal(bytes &table)
{
	if (table.size() >= XML_HDR_WORDS * 4)
		put_at(table, XML_HDR_CHECKSUM,
		       xml_table_crc32(table.data() + XML_CHECKED_FROM,
				       table.size() - XML_CHECKED_FROM));
}

} // namespace cfg
