// SPDX-License-Identifier: GPL-2.0
//
// A board for scenarios.
#include "rig.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

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
	cfg::entries &node = table.nodes["irq_combiner@" + std::to_string(combiner.node)];

	node["global_cfg"] = {{"async", combiner.async},
			      {"direct", combiner.direct},
			      {"gpio", combiner.gpio},
			      {"irq_type", combiner.irq_type},
			      {"int_type", combiner.int_type},
			      {"allow_max", combiner.allow_max},
			      {"suppress_ms", combiner.suppress_ms}};
	for (size_t i = 0; i < combiner.leaves.size(); i++)
		add_leaf_keys(node["hwirq_cfg" + std::to_string(i)], combiner.leaves[i]);
}

std::string level_word(u32 inst, const level &level)
{
	return hex(inst) + "/" + hex(level.chip) + ":" +
	       (level.en == 0xffffffff ? "-" : hex(level.en)) + ":" + hex(level.status) + ":" +
	       std::to_string(level.shift) + ":" + hex(level.mask) + ":" +
	       (level.latched ? "latched" : "level");
}

std::string source_command(const combiner &combiner, const leaf &leaf)
{
	std::string line = "source " + leaf.name + " " + hex(combiner.inst) + " " +
			   std::to_string(combiner.line);

	for (const level &level : combiner.outer)
		line += " " + level_word(combiner.outer_inst, level);
	for (const level &level : leaf.levels)
		line += " " + level_word(combiner.inst, level);
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

combiner make_card_combiner(u32 card_no, u32 index, u32 leaves, u32 depth)
{
	combiner combiner = make_combiner(card_combiner_id(card_no, index), leaves, depth);

	combiner.inst = card_inst(card_no);
	combiner.node = index;
	for (u32 number = 0; number < leaves; number++) {
		combiner.leaves[number].name = "k" + std::to_string(card_no) + "i" +
					       std::to_string(index) + "." + std::to_string(number);
		combiner.leaves[number].inst = combiner.inst;
		combiner.leaves[number].index = card_no * 0x10000 + index * 0x100 + number;
	}
	return combiner;
}

void place_at_gpio(combiner &combiner, u32 pin)
{
	combiner.int_type = 1;
	combiner.gpio = BOARD_GPIO_BASE + pin;
	combiner.line = BOARD_GPIO_LINE + pin;
}

void place_behind(combiner &combiner, const rig::combiner &outer, const leaf &leaf)
{
	combiner.int_type = 2;
	combiner.line = outer.line;
	combiner.outer_inst = outer.inst;
	combiner.outer = outer.outer;
	combiner.outer.insert(combiner.outer.end(), leaf.levels.begin(), leaf.levels.end());
}

subscriber::subscriber(u32 receive_buffer, u32 protocol)
	: handle_(testbed::netlink_open(protocol, receive_buffer))
{
	EXPECT_GT(handle_, 0) << "no netlink socket of protocol " << protocol;
	if (handle_ > 0)
		port_ = testbed::netlink_port(handle_);
}

void subscriber::close()
{
	if (handle_ > 0)
		testbed::netlink_close(handle_);
	handle_ = -1;
}

std::optional<drv_intr_nl_leaf> subscriber::receive(unsigned timeout_ms)
{
	const std::string bytes = testbed::netlink_receive(handle_, timeout_ms);
	drv_intr_nl_msg message;

	if (bytes.empty())
		return {};
	EXPECT_EQ(bytes.size(), sizeof(message));
	if (bytes.size() != sizeof(message))
		return {};
	memcpy(&message, bytes.data(), sizeof(message));
	EXPECT_EQ(message.nlmsg_len, sizeof(message));
	EXPECT_EQ(message.nlmsg_type, 0);
	EXPECT_EQ(message.nlmsg_flags, 0);
	EXPECT_EQ(message.nlmsg_seq, 0u);
	EXPECT_EQ(message.nlmsg_pid, 0u);
	return message.leaf;
}

bool subscriber::receives(const leaf &leaf, unsigned timeout_ms)
{
	const std::optional<drv_intr_nl_leaf> got = receive(timeout_ms);

	return got && got->index_id == leaf.index && got->type == leaf.type;
}

std::string pair_of(const leaf &leaf)
{
	return std::to_string(leaf.index) + " " + std::to_string(leaf.type);
}

std::string handler_mark(const leaf &leaf)
{
	char text[64];

	snprintf(text, sizeof(text), "mark handler index=0x%x type=%u", leaf.index, leaf.type);
	return text;
}

std::string enable_write(const level &level, u32 value)
{
	char text[128];

	snprintf(text, sizeof(text),
		 "write inst=0xffffffff chip=%u reg=0x%x shift=%u mask=0x%x value=0x%x", level.chip,
		 level.en, level.shift, level.mask, value);
	return text;
}

std::string clear_write(const level &level)
{
	char text[128];

	snprintf(text, sizeof(text), "reg_write inst=0xffffffff chip=%u reg=0x%x value=0x%x",
		 level.chip, level.status, level.mask << level.shift);
	return text;
}

bool eventually(const std::function<bool()> &condition, unsigned deadline_ms)
{
	for (unsigned waited = 0;; waited += 2) {
		if (condition())
			return true;
		if (waited >= deadline_ms)
			return false;
		testbed::sleep_ms(2);
	}
}

void Scenario::SetUp()
{
	ASSERT_TRUE(testbed::start(firmware())) << "this machine was booted with other firmware";
	command("cpld", "reset");
	command("cpld", "trace on");
	clear_log();
	clear_events();
}

void Scenario::TearDown()
{
	if (HasFailure())
		printf("the driver's log:\n%s", testbed::read("log").c_str());
	for (const std::string &name : std::vector(devices_))
		del_device(name);
	if (loaded_)
		unload();
	command("board", "fault off");
	command("monitor", "off");
	command("cpld", "reset");
	command("client", "clear");
	for (const auto &[inst, table] : tables_)
		testbed::control("xml", "drop " + hex(inst));
	for (const std::string &complaint : testbed::finish())
		ADD_FAILURE() << complaint;
}

void Scenario::configure(const std::vector<combiner> &combiners)
{
	for (auto &[inst, table] : tables_)
		table.nodes.clear();
	table(); // the board's, also when it describes nothing
	for (const combiner &combiner : combiners) {
		add_nodes(table(combiner.inst), combiner);
		if (combiner.inst != XML_TABLE_BOARD)
			table(combiner.inst).nodes["global_cfg"]["common"]["combiner_bitmap"] |=
				1u << combiner.node;
		for (const leaf &leaf : combiner.leaves)
			command("cpld", source_command(combiner, leaf));
	}
	for (const auto &[inst, table] : tables_)
		install(inst);
}

cfg::table &Scenario::table(u32 inst)
{
	return tables_.try_emplace(inst, cfg::table{inst, {}}).first->second;
}

void Scenario::install(u32 inst)
{
	cfg::bytes bytes;
	std::string why;

	ASSERT_TRUE(cfg::write_table(table(inst), bytes, why)) << why;
	ASSERT_EQ(testbed::write_blob("xml_table", bytes), 0);
}

void Scenario::drop_table(u32 inst)
{
	command("xml", "drop " + hex(inst));
	tables_.erase(inst);
}

void Scenario::load()
{
	ASSERT_EQ(testbed::load(), 0);
	loaded_ = true;
}

void Scenario::load(const std::vector<combiner> &combiners)
{
	configure(combiners);
	load();
}

void Scenario::unload()
{
	ASSERT_EQ(testbed::unload(), 0);
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
	const testbed::result result = testbed::control(file, line);

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

long Scenario::regist(const leaf &leaf, const std::string &options)
{
	return ask("client", "regist " + pair_of(leaf) + " " + options);
}

long Scenario::unregist(const leaf &leaf)
{
	return ask("client", "unregist " + pair_of(leaf));
}

bool Scenario::field_is_set(const leaf &leaf, u32 reg)
{
	const level &own = leaf.levels.back();
	const std::string value =
		command("cpld", "peek " + hex(leaf.inst) + " " + hex(own.chip) + " " + hex(reg));

	return (strtoul(value.c_str(), nullptr, 0) >> own.shift & own.mask) != 0;
}

void Scenario::fire_open(const leaf &leaf)
{
	EXPECT_TRUE(eventually([&] { return field_is_set(leaf, leaf.levels.back().en); }))
		<< leaf.name << " stays closed";
	fire(leaf);
}

int Scenario::depth(const std::string &line)
{
	return static_cast<int>(ask("board", "depth " + line));
}

int Scenario::depth(const leaf &leaf)
{
	return depth("leaf:" + std::to_string(leaf.index) + ":" + std::to_string(leaf.type));
}

static int leaf_command(u32 cmd, const leaf &leaf, u32 argument)
{
	drv_intr_ioctl_para para{};

	para.index_id = leaf.index;
	para.type = leaf.type;
	para.pid = argument; // shares its place with `enable`
	return testbed::ioctl(cmd, &para);
}

int Scenario::subscribe(const leaf &leaf, u32 port)
{
	return leaf_command(DRV_INTR_IOC_SET_PID, leaf, port);
}

int Scenario::unsubscribe(const leaf &leaf, u32 port)
{
	return leaf_command(DRV_INTR_IOC_UNSET_PID, leaf, port);
}

int Scenario::enable(const leaf &leaf, u32 on)
{
	return leaf_command(DRV_INTR_IOC_SET_INT_EN, leaf, on);
}

static int card_command(u32 cmd, u32 inst)
{
	drv_intr_ioctl_para para{};

	para.inst_id = inst;
	return testbed::ioctl(cmd, &para);
}

int Scenario::card_up(u32 inst)
{
	return card_command(DRV_INTR_IOC_INIT_CARD, inst);
}

int Scenario::card_down(u32 inst)
{
	return card_command(DRV_INTR_IOC_DEINIT_CARD, inst);
}

std::string Scenario::report(u32 cmd, u32 virq)
{
	std::vector<char> buffer(DRV_INTR_REPORT_MAX);
	drv_intr_ioctl_para para{};

	para.buf = reinterpret_cast<uintptr_t>(buffer.data());
	para.buf_len = DRV_INTR_REPORT_MAX;
	para.virq = virq;
	return testbed::ioctl(cmd, &para) == 0 ? buffer.data() : "";
}

size_t Scenario::parent_interrupts(const combiner &combiner)
{
	const std::string text = report(DRV_INTR_IOC_DBG_RUNTIME);
	const size_t head = text.find("combiner" + std::to_string(combiner.id) + "\n");
	const size_t at = text.find("parent int cnt", head);

	if (head == text.npos || at == text.npos) {
		ADD_FAILURE() << "no combiner " << combiner.id << " in: " << text;
		return 0;
	}
	return std::stoul(text.substr(text.find(':', at) + 1));
}

std::string Scenario::proc(const std::string &file)
{
	const int handle = testbed::proc_open(file);
	std::vector<char> part(1 << 16);
	std::string text;

	EXPECT_GT(handle, 0) << file;
	if (handle <= 0)
		return text;
	for (long got; (got = testbed::proc_read(handle, part.data(), part.size())) > 0;)
		text.append(part.data(), static_cast<size_t>(got));
	testbed::proc_close(handle);
	return text;
}

int Scenario::set_proc(const std::string &file, const std::string &text)
{
	const int handle = testbed::proc_open(file, true);

	if (handle <= 0)
		return handle;
	const long done = testbed::proc_write(handle, text.data(), text.size());
	testbed::proc_close(handle);
	return static_cast<int>(done < 0 ? done : 0);
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

	for (const std::string &line : testbed::lines_of(testbed::read("client_events")))
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
	testbed::sleep_ms(10);
	EXPECT_EQ(events().size(), count);
}

void Scenario::expect_delivery(const leaf &leaf)
{
	clear_events();
	fire_open(leaf);
	expect_events(1);
	const std::vector<event> got = events();
	if (!got.empty()) {
		EXPECT_EQ(got.front().index, leaf.index);
		EXPECT_EQ(got.front().type, leaf.type);
	}
}

std::vector<std::string> Scenario::log()
{
	std::vector<std::string> driver_lines;

	for (const std::string &line : testbed::lines_of(testbed::read("log"))) {
		if (line.starts_with("62 "))
			driver_lines.push_back(line.substr(3));
	}
	return driver_lines;
}

size_t Scenario::count_logged(const std::string &text)
{
	const std::vector<std::string> lines = log();

	return static_cast<size_t>(std::ranges::count_if(
		lines, [&](const std::string &line) { return line.find(text) != line.npos; }));
}

void Scenario::clear_log()
{
	command("log_ctl", "clear");
}

void Scenario::await_thread(const combiner &combiner)
{
	EXPECT_TRUE(eventually([&] {
		return logged("[drv_intr_combiner_thread]enter, intr" +
			      std::to_string(combiner.id));
	})) << "the thread of combiner "
	    << combiner.id << " does not run";
}

std::vector<std::string> Scenario::trace()
{
	return testbed::lines_of(testbed::read("cpld_trace"));
}

std::vector<std::string> Scenario::changes()
{
	std::vector<std::string> changes;

	for (const std::string &line : trace()) {
		if (line.starts_with("write") || line.starts_with("reg_write") ||
		    line.starts_with("mark"))
			changes.push_back(line.substr(0, line.find(" ret=")));
	}
	return changes;
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
