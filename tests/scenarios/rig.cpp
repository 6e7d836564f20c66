// SPDX-License-Identifier: GPL-2.0
//
// A board for scenarios.
#include "rig.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace rig {

namespace {

std::string hex(u32 value)
{
	char text[16];

	snprintf(text, sizeof(text), "0x%x", value);
	return text;
}

void add_leaf_keys(cfg::keys &keys, const leaf &leaf)
{
	keys = {{"index_id", leaf.index},
		{"type", leaf.type},
		{"hwirq", leaf.hwirq},
		{"irq_type", leaf.irq_type},
		{"allow_max", leaf.allow_max},
		{"sync", leaf.sync},
		{"level_num", static_cast<u32>(leaf.levels.size())}};
	for (size_t n = 0; n < leaf.levels.size(); n++) {
		const level &level = leaf.levels[n];
		const std::string l = "l" + std::to_string(n) + "_";

		keys[l + "chip_id"] = level.chip;
		keys[l + "en"] = level.en;
		keys[l + "status"] = level.status;
		keys[l + "shift"] = level.shift;
		keys[l + "mask"] = level.mask;
		keys[l + "wc"] = level.latched;
	}
}

void add_nodes(cfg::table &table, const combiner &combiner)
{
	cfg::entries &node = table.nodes["irq_combiner@" + std::to_string(combiner.id)];

	node["global_cfg"] = {{"async", combiner.async},
			      {"direct", combiner.direct},
			      {"allow_max", combiner.allow_max},
			      {"suppress_ms", combiner.suppress_ms}};
	for (size_t i = 0; i < combiner.leaves.size(); i++)
		add_leaf_keys(node["hwirq_cfg" + std::to_string(i)], combiner.leaves[i]);
}

std::string level_word(const level &level)
{
	return hex(level.chip) + ":" + (level.en == 0xffffffff ? "-" : hex(level.en)) + ":" +
	       hex(level.status) + ":" + std::to_string(level.shift) + ":" + hex(level.mask) + ":" +
	       (level.latched ? "latched" : "level");
}

std::string source_command(const combiner &combiner, const leaf &leaf)
{
	std::string line = "source " + leaf.name + " 0xffffffff " + std::to_string(combiner.line);

	for (const level &level : combiner.outer)
		line += " " + level_word(level);
	for (const level &level : leaf.levels)
		line += " " + level_word(level);
	// The hardware of a direct combiner has no registers that the driver knows.
	if (leaf.levels.empty())
		line += " 0xfffffffe:-:" + hex(0x1000 + combiner.id) + ":0:0x1:level";
	return line;
}

} // namespace

leaf make_leaf(u32 id, u32 number, u32 depth)
{
	leaf leaf;

	leaf.name = "c" + std::to_string(id) + "." + std::to_string(number);
	leaf.index = id * 0x100 + number;
	leaf.hwirq = number;
	for (u32 n = 0; n + 1 < depth; n++)
		leaf.levels.push_back(
			{.chip = id + 1, .en = 0x10 + n, .status = 0x20 + n, .shift = n});
	if (depth > 0)
		leaf.levels.push_back({.chip = id + 1,
				       .en = 0x40 + number / 32,
				       .status = 0x60 + number / 32,
				       .shift = number % 32,
				       .latched = true});
	return leaf;
}

combiner make_combiner(u32 id, u32 leaves, u32 depth)
{
	combiner combiner{.id = id, .leaves = {}};

	for (u32 number = 0; number < leaves; number++)
		combiner.leaves.push_back(make_leaf(id, number, depth));
	return combiner;
}

bool eventually(const std::function<bool()> &condition, unsigned deadline_ms)
{
	for (unsigned waited = 0;; waited += 2) {
		if (condition())
			return true;
		if (waited >= deadline_ms)
			return false;
		world::sleep_ms(2);
	}
}

void Scenario::SetUp()
{
	world::start();
	command("cpld", "reset");
	command("cpld", "trace on");
	clear_log();
	clear_events();
}

void Scenario::TearDown()
{
	if (HasFailure())
		printf("the driver's log:\n%s", world::read("log").c_str());
	for (const std::string &name : std::vector(devices_))
		del_device(name);
	if (loaded_)
		unload();
	command("board", "fault off");
	command("monitor", "off");
	command("cpld", "reset");
	command("client", "clear");
	world::control("xml", "drop 0xffffffff");
	for (const std::string &complaint : world::finish())
		ADD_FAILURE() << complaint;
}

void Scenario::configure(const std::vector<combiner> &combiners)
{
	table_ = {};
	for (const combiner &combiner : combiners) {
		add_nodes(table_, combiner);
		for (const leaf &leaf : combiner.leaves)
			command("cpld", source_command(combiner, leaf));
	}
	install();
}

void Scenario::install()
{
	cfg::bytes bytes;
	std::string why;

	ASSERT_TRUE(cfg::write_table(table_, bytes, why)) << why;
	ASSERT_EQ(world::write_blob("xml_table", bytes), 0);
}

void Scenario::load()
{
	ASSERT_EQ(world::load(), 0);
	loaded_ = true;
}

void Scenario::unload()
{
	ASSERT_EQ(world::unload(), 0);
	loaded_ = false;
}

bool Scenario::add_device(const std::string &name, const std::string &irq)
{
	devices_.push_back(name);
	return ask("board", "device add " + name + " irq=" + irq) == 1;
}

void Scenario::del_device(const std::string &name)
{
	command("board", "device del " + name);
	std::erase(devices_, name);
}

std::string Scenario::command(const std::string &file, const std::string &line)
{
	const world::result result = world::control(file, line);

	EXPECT_EQ(result.code, 0) << file << ": " << line << ": " << result.reply;
	return result.reply;
}

long Scenario::ask(const std::string &file, const std::string &line)
{
	const std::string reply = command(file, line);
	const size_t equals = reply.find('=');

	if (equals == std::string::npos) {
		ADD_FAILURE() << file << ": " << line << ": no number in reply: " << reply;
		return -1;
	}
	return strtol(reply.c_str() + equals + 1, nullptr, 0);
}

static std::string pair_of(const leaf &leaf)
{
	return " " + std::to_string(leaf.index) + " " + std::to_string(leaf.type);
}

long Scenario::regist(const leaf &leaf, const std::string &options)
{
	return ask("client", "regist" + pair_of(leaf) + " " + options);
}

long Scenario::unregist(const leaf &leaf)
{
	return ask("client", "unregist" + pair_of(leaf));
}

void Scenario::fire_open(const leaf &leaf)
{
	const level &own = leaf.levels.back();
	const std::string peek = "peek 0xffffffff " + hex(own.chip) + " " + hex(own.en);
	const auto open = [&] {
		const u32 reg =
			static_cast<u32>(strtoul(command("cpld", peek).c_str(), nullptr, 0));
		return (reg & own.mask << own.shift) != 0;
	};

	EXPECT_TRUE(eventually(open)) << leaf.name << " stays closed";
	fire(leaf);
}

int Scenario::depth(const std::string &line)
{
	return static_cast<int>(ask("board", "depth " + line));
}

// The text of one field of "a=... b=... c=..."; fields may hold blanks or nothing.
static std::string field(const std::string &line, const std::string &key, const std::string &next)
{
	const size_t start = line.find(key + "=");
	const size_t end = next.empty() ? line.size() : line.find(" " + next + "=");

	if (start == std::string::npos || end == std::string::npos) {
		ADD_FAILURE() << "no field " << key << " in: " << line;
		return "0";
	}
	const size_t from = start + key.size() + 1;
	return line.substr(from, end - from);
}

std::vector<event> Scenario::events()
{
	std::vector<event> events;

	for (const std::string &line : world::lines_of(world::read("client_events")))
		events.push_back(
			{static_cast<u32>(std::stoul(field(line, "index", "type"), nullptr, 0)),
			 static_cast<u32>(std::stoul(field(line, "type", "tag"), nullptr, 0)),
			 field(line, "tag", "context"), field(line, "context", "count"),
			 field(line, "irqs", "")});
	return events;
}

void Scenario::clear_events()
{
	command("client", "clear");
}

bool Scenario::wait_events(size_t count)
{
	return eventually([&] { return events().size() >= count; });
}

void Scenario::expect_events(size_t count)
{
	wait_events(count);
	world::sleep_ms(10);
	EXPECT_EQ(events().size(), count);
}

std::vector<std::string> Scenario::log()
{
	std::vector<std::string> driver_lines;

	for (const std::string &line : world::lines_of(world::read("log"))) {
		if (line.starts_with("62 "))
			driver_lines.push_back(line.substr(3));
	}
	return driver_lines;
}

bool Scenario::logged(const std::string &text)
{
	for (const std::string &line : log()) {
		if (line.find(text) != std::string::npos)
			return true;
	}
	return false;
}

void Scenario::clear_log()
{
	command("log_ctl", "clear");
}

std::vector<std::string> Scenario::trace()
{
	return world::lines_of(world::read("cpld_trace"));
}

void Scenario::clear_trace()
{
	command("cpld", "trace clear");
}

// Interrupt numbers are the home's own.
static std::string without_virq(std::string line)
{
	size_t at = 0;

	while ((at = line.find("virq=", at)) != std::string::npos) {
		at += 5;
		const size_t end = line.find_first_not_of("0123456789", at);
		line.replace(at, std::min(end, line.size()) - at, "N");
	}
	return line;
}

void Scenario::record(const char *kind, const std::vector<std::string> &lines)
{
	const std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();

	for (const std::string &line : lines) {
		// A thread says when it runs, which is no fixed moment.
		if (line.find("[drv_intr_combiner_thread]") == std::string::npos)
			printf("T| %s %s %s\n", name.c_str(), kind, without_virq(line).c_str());
	}
}

void Scenario::record()
{
	record("log", log());
	record("cpld", trace());
}

} // namespace rig
