// SPDX-License-Identifier: GPL-2.0
//
// Configuration tables end to end: written by the tool's library, loaded
// through the xml module's control file, read through its lookups. Tables come
// from user space, so most of this is about tables that are wrong.
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "cfg_table.h"
#include "port.h"
#include "xml/xml.h"
#include "xml_table.h"

namespace {

constexpr u32 card = 0x05000000;

std::string last_message;

void listen(int level, const char *text)
{
	last_message = std::to_string(level) + " " + text;
}

cfg::table example(u32 instance = XML_TABLE_BOARD)
{
	cfg::table table{instance, {}};

	table.nodes["global_cfg"]["common"] = {{"netlink_id", 30}};
	table.nodes["irq_combiner@0"]["global_cfg"] = {{"async", 0}, {"chip_id", 2}};
	table.nodes["irq_combiner@0"]["hwirq_cfg0"] = {{"hwirq", 7}, {"type", 3}};
	table.nodes["irq_combiner@0"]["hwirq_cfg1"] = {};
	table.nodes["irq_combiner@10"]["global_cfg"] = {{"chip_id", 0xffffffff}};
	return table;
}

cfg::bytes write(const cfg::table &table)
{
	cfg::bytes bytes;
	std::string why;

	EXPECT_TRUE(cfg::write_table(table, bytes, why)) << why;
	return bytes;
}

int install(const cfg::bytes &bytes)
{
	return port_ctl_write("xml_table", bytes.data(), bytes.size(), nullptr, 0);
}

std::string listing()
{
	char *text = port_ctl_read("xml");
	std::string result = text ? text : "";

	free(text);
	return result;
}

// "none" or the value in decimal.
std::string lookup(u32 instance, const char *node, const char *entry, const char *key)
{
	u32 value = 0;

	if (xml_get_element_value_u32(instance, "irq_combiner", node, entry, key, &value))
		return "none";
	return std::to_string(value);
}

bool exists(u32 instance, const char *node, const char *entry)
{
	u32 found = 2;

	EXPECT_EQ(0, xml_is_entry_exist(instance, "irq_combiner", node, entry, &found));
	return found;
}

u32 word(const cfg::bytes &bytes, size_t offset)
{
	return bytes[offset] | bytes[offset + 1] << 8 | bytes[offset + 2] << 16 |
	       static_cast<u32>(bytes[offset + 3]) << 24;
}

void set_word(cfg::bytes &bytes, size_t offset, u32 value)
{
	for (int i = 0; i < 4; i++)
		bytes[offset + i] = static_cast<u8>(value >> 8 * i);
}

class xml_table_test : public testing::Test {
protected:
	void SetUp() override
	{
		last_message.clear();
		port_host_set_printk(listen);
		ASSERT_EQ(0, xml_start());
	}

	void TearDown() override
	{
		xml_stop();
		port_host_set_printk(nullptr);
	}
};

TEST_F(xml_table_test, finds_nothing_that_was_not_written)
{
	u32 value = 77;

	ASSERT_EQ(0, install(write(example())));
	EXPECT_EQ("none", lookup(card, "global_cfg", "common", "netlink_id"));
	EXPECT_EQ("none", lookup(XML_TABLE_BOARD, "irq_combiner@1", "global_cfg", "chip_id"));
	EXPECT_EQ("none", lookup(XML_TABLE_BOARD, "irq_combiner@0", "hwirq_cfg1", "hwirq"));
	EXPECT_EQ("none", lookup(XML_TABLE_BOARD, "irq_combiner@0", "hwirq_cfg0", "hwir"));
	EXPECT_EQ("none", lookup(XML_TABLE_BOARD, "", "", ""));
	EXPECT_FALSE(exists(XML_TABLE_BOARD, "irq_combiner@0", "hwirq_cfg2"));
	EXPECT_FALSE(exists(XML_TABLE_BOARD, "irq_combiner@", "hwirq_cfg0"));
	EXPECT_FALSE(exists(card, "irq_combiner@0", "hwirq_cfg0"));
	EXPECT_NE(0, xml_get_element_value_u32(XML_TABLE_BOARD, "other", "global_cfg", "common",
					       "netlink_id", &value));
	EXPECT_EQ(77u, value);
}

// Names that are the beginning of others, and an entry that lacks a key which the one
// before it has; asked for in another order than they lie in.
TEST_F(xml_table_test, finds_every_name_of_a_big_table)
{
	static constexpr const char *keys[] = {"l0_shift",   "hwirq",	"type", "l0_status",
					       "l0_status2", "l0_stat", "l0_s", "l0_statu"};
	const std::string longest(XML_TABLE_NAME_MAX, 'n'), shorter(XML_TABLE_NAME_MAX - 1, 'n'),
		longer(XML_TABLE_NAME_MAX + 1, 'n');
	cfg::table table;
	u32 expected = 0;

	for (u32 node = 0; node < 32; node++)
		for (u32 entry = 0; entry < 128; entry++)
			for (const char *key : keys)
				table.nodes["irq_combiner@" + std::to_string(node)]
					   ["hwirq_cfg" + std::to_string(entry)][key] = expected++;
	table.nodes["irq_combiner@31"]["hwirq_cfg127"].erase("l0_statu");
	table.nodes[longest][shorter][longest] = 1;
	table.nodes[shorter][longest][shorter] = 2;
	ASSERT_EQ(0, install(write(table)));
	for (const auto &[node, entries] : table.nodes)
		for (const auto &[entry, values] : entries)
			for (const char *key :
			     {keys[0], keys[1], keys[2], keys[3], keys[4], keys[5], keys[6],
			      keys[7], longest.c_str(), shorter.c_str(), longer.c_str(), "z", ""})
				ASSERT_EQ(values.count(key) ? std::to_string(values.at(key))
							    : "none",
					  lookup(XML_TABLE_BOARD, node.c_str(), entry.c_str(), key))
					<< node << ' ' << entry << ' ' << key;
	EXPECT_FALSE(exists(XML_TABLE_BOARD, longer.c_str(), shorter.c_str()));
	EXPECT_FALSE(exists(XML_TABLE_BOARD, longest.c_str(), longest.c_str()));
}

TEST_F(xml_table_test, instances_replace_and_drop_independently)
{
	char reply[128] = "";
	cfg::table newer = example();

	newer.nodes.erase("irq_combiner@0");
	newer.nodes["global_cfg"]["common"]["netlink_id"] = 25;
	ASSERT_EQ(0, install(write(example())));
	ASSERT_EQ(0, install(write(example(card))));
	ASSERT_EQ(0, install(write(newer)));
	EXPECT_EQ("25", lookup(XML_TABLE_BOARD, "global_cfg", "common", "netlink_id"));
	EXPECT_FALSE(exists(XML_TABLE_BOARD, "irq_combiner@0", "hwirq_cfg0"));
	EXPECT_EQ("30", lookup(card, "global_cfg", "common", "netlink_id"));
	EXPECT_NE(std::string::npos,
		  listing().find("0x5000000 irq_combiner@0 hwirq_cfg0 hwirq=0x7 type=0x3\n"));

	EXPECT_EQ(0, port_ctl_write("xml", "drop 0xffffffff", 15, reply, sizeof(reply)));
	EXPECT_EQ("none", lookup(XML_TABLE_BOARD, "global_cfg", "common", "netlink_id"));
	EXPECT_EQ("30", lookup(card, "global_cfg", "common", "netlink_id"));
	EXPECT_EQ(-ENOENT, port_ctl_write("xml", "drop 4294967295", 15, reply, sizeof(reply)));
	EXPECT_STRNE("", reply);
}

TEST_F(xml_table_test, wrong_commands_are_answered)
{
	for (const std::string line :
	     {"", "drop", "drop 1 2", "drop x", "drop 0x100000000", "dorp 1"}) {
		char reply[128] = "";
		EXPECT_EQ(-EINVAL,
			  port_ctl_write("xml", line.data(), line.size(), reply, sizeof(reply)))
			<< line;
		EXPECT_EQ(0, strncmp(reply, "xml: ", 5)) << line;
	}
}

// After any refusal the first table answers as before.
void expect_refused(const cfg::bytes &bytes, const std::string &label)
{
	ASSERT_EQ(-EINVAL, install(bytes)) << label;
	ASSERT_EQ("30", lookup(XML_TABLE_BOARD, "global_cfg", "common", "netlink_id")) << label;
}

TEST_F(xml_table_test, every_truncation_is_refused)
{
	const cfg::bytes good = write(example());

	ASSERT_EQ(0, install(good));
	for (size_t size = 0; size < good.size(); size++)
		expect_refused(cfg::bytes(good.begin(), good.begin() + size),
			       "cut to " + std::to_string(size));
	cfg::bytes longer = good;
	longer.push_back(0);
	expect_refused(longer, "one byte more");
}

TEST_F(xml_table_test, every_bit_flip_is_refused)
{
	const cfg::bytes good = write(example());

	ASSERT_EQ(0, install(good));
	for (size_t bit = 0; bit < good.size() * 8; bit++) {
		cfg::bytes bad = good;
		bad[bit / 8] ^= 1 << bit % 8;
		expect_refused(bad, "bit " + std::to_string(bit));
	}
}

struct wrong_word {
	const char *label;
	u32 offset, value;
	const char *why;
};

// Each makes the example wrong in one place.
std::vector<wrong_word> wrong_words(const cfg::bytes &good)
{
	const auto at = [&](int part, u32 record, u32 words, u32 field) {
		return word(good, part * 4) + 4 * (record * words + field);
	};
	const auto node = [&](u32 record, u32 field) {
		return at(XML_HDR_NODES, record, 3, field);
	};
	const auto entry = [&](u32 record, u32 field) {
		return at(XML_HDR_ENTRIES, record, 3, field);
	};
	const auto key = [&](u32 record) { return at(XML_HDR_KEYS, record, 2, 0); };
	const u32 last_string = static_cast<u32>(good.size()) - 4;
	const u32 string_size = word(good, XML_HDR_STRING_SIZE * 4);

	return {
		{"other kind of file", 0, 0x464c457f, "magic"},
		{"newer layout", XML_HDR_VERSION * 4, 2, "version is 2"},
		{"count times size overflows", XML_HDR_NODE_COUNT * 4, 0x55555556, "nodes"},
		{"all counts huge", XML_HDR_KEY_COUNT * 4, 0xffffffff, "keys"},
		{"nodes inside the header", XML_HDR_NODES * 4, 0, "nodes"},
		{"entries moved", XML_HDR_ENTRIES * 4, word(good, XML_HDR_ENTRIES * 4) + 4,
		 "entries"},
		{"keys behind the end", XML_HDR_KEYS * 4, 0xfffffff0, "keys"},
		{"strings too short", XML_HDR_STRING_SIZE * 4, string_size - 1, "strings"},
		{"strings too long", XML_HDR_STRING_SIZE * 4, string_size + 1, "strings"},
		{"last string unterminated", last_string, 0x41414141, "not terminated"},
		{"control character", last_string, 0x0041410a, "visible"},
		{"name behind the strings", node(0, 0), string_size, "node 0: bad name"},
		{"name inside a text", entry(0, 0), word(good, entry(0, 0)) + 1,
		 "entry 0: bad name"},
		{"name at the end of a text", key(0), word(good, key(0)) + 10, "key 0: bad name"},
		{"nodes out of order", node(0, 0), word(good, node(2, 0)), "node 1: "},
		{"node twice", node(1, 0), word(good, node(0, 0)), "node 1: "},
		{"key twice", key(2), word(good, key(1)), "key 2: "},
		{"range starts late", node(0, 1), 1, "node 0: its range"},
		{"range too long", node(2, 2), 2, "node 2: its range"},
		{"range wraps", node(1, 2), 0xffffffff, "node 1: its range"},
		{"record of nobody", node(2, 2), 0, "belongs to no node"},
		{"key range too long", entry(4, 2), 0xfffffffe, "entry 4: its range"},
	};
}

// Wrong content under a checksum that fits.
TEST_F(xml_table_test, inconsistent_content_is_refused_and_named)
{
	const cfg::bytes good = write(example());

	ASSERT_EQ(0, install(good));
	for (const wrong_word &wrong : wrong_words(good)) {
		cfg::bytes bad = good;
		set_word(bad, wrong.offset, wrong.value);
		cfg::reseal(bad);
		expect_refused(bad, wrong.label);
		EXPECT_NE(std::string::npos, last_message.find(wrong.why))
			<< wrong.label << ": " << last_message;
		EXPECT_NE(std::string::npos, listing().find("last table refused: ")) << wrong.label;
	}
	ASSERT_EQ(0, install(good));
	EXPECT_EQ(std::string::npos, listing().find("refused"))
		<< "a good table ends the complaint";
}

// Everything a reader can reach in an opened table, so that the sanitizer sees it.
void read_all(const xml_table &table)
{
	const auto find = [&](const xml_part &parent, const xml_part &part, u32 record) {
		u32 found;

		for (u32 i = 0; i < part.count; i++)
			(void)xml_table_find(&table, &part, xml_part_word(&parent, record, 1),
					     xml_part_word(&parent, record, 2),
					     xml_part_name(&table, &part, i), &found);
	};

	for (u32 node = 0; node < table.nodes.count; node++)
		find(table.nodes, table.entries, node);
	for (u32 entry = 0; entry < table.entries.count; entry++)
		find(table.entries, table.keys, entry);
}

TEST(xml_table_open, random_damage_never_leads_outside)
{
	const cfg::bytes good = write(example());
	std::mt19937 random(20240229);
	int opened = 0;

	for (int round = 0; round < 40000; round++) {
		cfg::bytes bad = good;
		for (u32 change = random() % 3 + 1; change; change--) {
			const size_t offset = random() % (bad.size() / 4) * 4;
			const u32 near = word(bad, offset) + random() % 9 - 4;
			set_word(bad, offset, random() % 4 ? near : static_cast<u32>(random()));
		}
		if (random() % 8 == 0)
			bad.resize(bad.size() - random() % 16);
		set_word(bad, XML_HDR_MAGIC * 4, XML_TABLE_MAGIC);
		set_word(bad, XML_HDR_VERSION * 4, XML_TABLE_VERSION);
		set_word(bad, XML_HDR_SIZE * 4, static_cast<u32>(bad.size()));
		cfg::reseal(bad);
		// A block of exactly this size, with the sanitizer's fence behind it.
		const auto block = std::make_unique<u8[]>(bad.size());
		std::copy(bad.begin(), bad.end(), block.get());
		xml_table table;
		char why[160];
		if (xml_table_open(&table, block.get(), bad.size(), why, sizeof(why)))
			continue;
		opened++;
		read_all(table);
	}
	EXPECT_GT(opened, 0) << "the damage never got past the checks: it tests nothing";
}

TEST_F(xml_table_test, size_and_number_of_tables_are_limited)
{
	cfg::table big;
	std::string why;
	cfg::bytes bytes;

	for (u32 i = 0; i < 62; i++)
		for (u32 n = 0; n < 2000; n++)
			big.nodes["node" + std::to_string(i)]["entry"]["k" + std::to_string(n)] = n;
	ASSERT_GT(write(big).size(), XML_TABLE_SIZE_MAX - 50000);
	EXPECT_EQ(0, install(write(big)));
	for (u32 n = 0; n < 6000; n++)
		big.nodes["last"]["entry"]["k" + std::to_string(n)] = n;
	EXPECT_FALSE(cfg::write_table(big, bytes, why));
	EXPECT_EQ(-EINVAL, install(cfg::bytes(XML_TABLE_SIZE_MAX + 1)));

	for (u32 i = 1; i < 64; i++)
		ASSERT_EQ(0, install(write(example(i))));
	EXPECT_EQ(-ENOSPC, install(write(example(64))));
	EXPECT_EQ(0, install(write(example(63)))) << "a replacement needs no new place";
}

TEST(cfg_table, refuses_names_that_no_table_can_hold)
{
	for (const std::string &name : {std::string(), std::string("a b"), std::string(40, 'a')}) {
		cfg::table table;
		cfg::bytes bytes;
		std::string why;
		table.nodes["node"]["entry"][name] = 1;
		EXPECT_FALSE(cfg::write_table(table, bytes, why)) << name;
	}
}

TEST_F(xml_table_test, lookups_during_replacement_see_one_table_or_the_other)
{
	std::atomic<bool> stop = false;
	cfg::table other = example();
	other.nodes["global_cfg"]["common"]["netlink_id"] = 25;
	const cfg::bytes tables[] = {write(example()), write(other)};

	ASSERT_EQ(0, install(tables[0]));
	std::thread reader([&] {
		while (!stop) {
			const std::string value =
				lookup(XML_TABLE_BOARD, "global_cfg", "common", "netlink_id");
			if (value != "30" && value != "25") {
				ADD_FAILURE() << value;
				return;
			}
		}
	});
	for (int i = 0; i < 2000; i++)
		EXPECT_EQ(0, install(tables[i % 2]));
	stop = true;
	reader.join();
}

} // namespace
