// SPDX-License-Identifier: GPL-2.0
//
// The control device: every command with good and bad arguments, how much of a
// process's memory it reads and writes, and that what fails leaves nothing.
#include <cstring>

#include <unistd.h>

#include "rig.h"

namespace rig {

namespace {

using para = drv_intr_ioctl_para;

constexpr u32 PORT = 4242; // nobody's; a subscription does not look at it
constexpr unsigned char MARK = 0xa5;
constexpr u32 READ_DIRECTION = 0x80000000;

constexpr u32 commands[] = {
	DRV_INTR_IOC_SET_PID,	     DRV_INTR_IOC_UNSET_PID,	    DRV_INTR_IOC_SET_INT_EN,
	DRV_INTR_IOC_GET_NETLINK_ID, DRV_INTR_IOC_GET_INT_DEBUG_EN, DRV_INTR_IOC_INIT_CARD,
	DRV_INTR_IOC_DEINIT_CARD,    DRV_INTR_IOC_DBG_RUNTIME,	    DRV_INTR_IOC_DBG_SWITCH,
	DRV_INTR_IOC_DBG_CFG,	     DRV_INTR_IOC_DBG_VIRQ,	    DRV_INTR_IOC_SET_DEBUG_SWITCH,
};

std::string number(u32 cmd)
{
	return std::to_string(cmd & 0xff);
}

struct bad_place {
	const char *name;
	char *at;
};

// Where an object of this size cannot be read or written as a whole.
std::vector<bad_place> bad_places(size_t size)
{
	char *hole = testbed::page_before_hole() + sysconf(_SC_PAGESIZE);

	return {{"null", nullptr},
		{"in the first page", reinterpret_cast<char *>(8)},
		{"with its second half in a hole", hole - size / 2},
		{"in a hole", hole},
		{"up to the end of all addresses", reinterpret_cast<char *>(~uintptr_t{15})}};
}

class Control : public Scenario {
protected:
	void SetUp() override
	{
		Scenario::SetUp();
		if (HasFatalFailure())
			return;
		load({board});
		clear_log();
	}

	// What a command that fails must leave as it was.
	std::string state()
	{
		return report(DRV_INTR_IOC_DBG_RUNTIME) + report(DRV_INTR_IOC_DBG_CFG) +
		       testbed::read("monitor");
	}

	// A record with which this command succeeds, after a subscription of PORT.
	para good_record(u32 cmd)
	{
		para record{};

		switch (cmd) {
		case DRV_INTR_IOC_DBG_VIRQ:
			record.virq = static_cast<u32>(ask("client", "find 0 3"));
			[[fallthrough]];
		case DRV_INTR_IOC_DBG_RUNTIME:
		case DRV_INTR_IOC_DBG_SWITCH:
		case DRV_INTR_IOC_DBG_CFG:
			record.buf = reinterpret_cast<uintptr_t>(text_.data());
			record.buf_len = static_cast<u32>(text_.size());
			break;
		case DRV_INTR_IOC_INIT_CARD:
		case DRV_INTR_IOC_DEINIT_CARD:
			record.inst_id = card_inst(5); // without a configuration: no combiners
			break;
		default:
			record.index_id = 0;
			record.type = 3;
			record.pid = PORT;
		}
		return record;
	}

	int issue(u32 cmd)
	{
		para record = good_record(cmd);

		return testbed::ioctl(cmd, &record);
	}

	void expect_refused(u32 cmd, para record, const std::string &line)
	{
		clear_log();
		EXPECT_EQ(testbed::ioctl(cmd, &record), REFUSED) << line;
		EXPECT_TRUE(logged(line)) << line << " is not in " << testing::PrintToString(log());
		EXPECT_TRUE(logged("1 [intr dev ioctl]cmd fail, cmd=" + number(cmd)));
	}

	combiner board = make_combiner(0, 2);
	const leaf &first = board.leaves[0];
	std::vector<char> text_ = std::vector<char>(4096);
};

TEST_F(Control, every_command_reads_the_whole_record_first)
{
	const std::string before = state();

	for (const bad_place &place : bad_places(sizeof(para))) {
		for (const u32 cmd : commands) {
			clear_log();
			EXPECT_EQ(testbed::ioctl(cmd, place.at), REFUSED)
				<< "record " << place.name << ", command " << number(cmd);
			EXPECT_EQ(log(), std::vector<std::string>{
						 "1 [intr dev ioctl]copy_from_user fail"});
		}
	}
	EXPECT_EQ(state(), before);
}

// Only commands of read direction write, and they write all of the record.
TEST_F(Control, read_commands_give_the_record_back_and_no_other_writes_it)
{
	static const para read_only{};

	ASSERT_EQ(subscribe(first, PORT), 0);
	for (const u32 cmd : commands) {
		const bool reading = cmd & READ_DIRECTION;
		para record = good_record(cmd);
		para expected = record;
		record.switch_on = expected.switch_on = MARK; // of the last command only
		ASSERT_EQ(testbed::ioctl(cmd, &record), 0) << number(cmd);
		if (cmd == DRV_INTR_IOC_GET_NETLINK_ID)
			expected.result = 30;
		if (cmd == DRV_INTR_IOC_GET_INT_DEBUG_EN)
			expected.result = 0;
		EXPECT_EQ(memcmp(&record, &expected, sizeof(record)), 0) << number(cmd);
		if (cmd == DRV_INTR_IOC_UNSET_PID) {
			ASSERT_EQ(subscribe(first, PORT), 0);
		}
		// Reports need their buffer's address in it, and leaves their type.
		if (!reading || cmd >= DRV_INTR_IOC_DBG_RUNTIME)
			continue;
		clear_log();
		EXPECT_EQ(testbed::ioctl(cmd, const_cast<para *>(&read_only)), REFUSED);
		EXPECT_EQ(log(),
			  std::vector<std::string>{"1 [intr dev ioctl]copy_to_user fail, ret=20"});
	}
	EXPECT_EQ(testbed::ioctl(DRV_INTR_IOC_SET_DEBUG_SWITCH, const_cast<para *>(&read_only)), 0);
	EXPECT_EQ(testbed::ioctl(DRV_INTR_IOC_DEINIT_CARD, const_cast<para *>(&read_only)), 0);
	EXPECT_EQ(unsubscribe(first, PORT), 0);
}

TEST_F(Control, a_number_must_match_in_all_its_bits)
{
	const std::string before = state();

	for (const u32 cmd :
	     {0u, 0x40044915u, 0x4004490du, 0x8004490du, 0x40044900u, // sequence numbers
	      0x40144901u, 0x40004901u, 0x80144904u, // sizes
	      0x40044a01u, 0x40040001u, 0x80046904u, // type letters
	      0x00044901u, 0x80044901u, 0xc0044901u, 0x40044904u, 0xc0044904u}) {
		para record{};
		record.type = 3;
		record.pid = PORT;
		const para sent = record;
		clear_log();
		EXPECT_EQ(testbed::ioctl(cmd, &record), REFUSED) << std::hex << cmd;
		EXPECT_EQ(log(), std::vector<std::string>{"1 [intr dev ioctl]invalid cmd, cmd=" +
							  number(cmd)});
		EXPECT_EQ(memcmp(&record, &sent, sizeof(record)), 0) << std::hex << cmd;
	}
	EXPECT_EQ(state(), before);
}

TEST_F(Control, subscription_and_its_end_log_exactly_these_lines)
{
	const std::string before = state();

	EXPECT_EQ(subscribe(first, PORT), 0);
	const std::string virq = std::to_string(ask("client", "find 0 3"));
	EXPECT_EQ(subscribe(first, PORT), 0);
	EXPECT_EQ(unsubscribe(first, PORT), 0); // of both
	EXPECT_EQ(unsubscribe(first, PORT), REFUSED);
	const std::vector<std::string> expected = {
		"2 [intr ioctl set pid]enter, index_id=0x0, type=3, pid=4242",
		"2 [mapping irq]index_id=0x0, type=3",
		"2 [mapping irq]clear irq int state, virq=" + virq,
		"2 [mapping irq]success, virq=" + virq,
		"2 [intr request irq]enter, index_id=0x0, type=3",
		"2 [intr ioctl set pid]success, index_id=0x0, type=3, pid=4242",
		"2 [intr ioctl set pid]enter, index_id=0x0, type=3, pid=4242",
		"2 [intr ioctl set pid]success, pid already exist",
		"2 [intr ioctl unset pid]enter, index_id=0x0, type=3, pid=4242",
		"2 [intr free irq]enter, virq=" + virq + ", hwirq=0",
		"2 [intr free irq]success",
		"2 [intr ioctl unset pid]success, index_id=0x0, type=3, pid=4242",
		"2 [intr ioctl unset pid]enter, index_id=0x0, type=3, pid=4242",
		"1 [intr ioctl unset pid]pid not exist",
		"1 [intr dev ioctl]cmd fail, cmd=2",
	};
	EXPECT_EQ(log(), expected);
	record("log", log());
	EXPECT_EQ(state(), before);
}

TEST_F(Control, commands_for_unknown_or_unmapped_leaves_are_refused)
{
	const std::string before = state();
	leaf other_index = first, other_type = first;

	other_index.index = 0x99;
	other_type.type = 4;
	for (const leaf &leaf : {other_index, other_type}) {
		para record{};
		record.index_id = leaf.index;
		record.type = leaf.type;
		record.pid = PORT;
		expect_refused(DRV_INTR_IOC_SET_PID, record, "1 [intr ioctl set pid]map virq fail");
		expect_refused(DRV_INTR_IOC_UNSET_PID, record,
			       "1 [intr ioctl unset pid]get irq info fail");
		expect_refused(DRV_INTR_IOC_SET_INT_EN, record,
			       "2 [intr enable]not support para, index_id=");
		record.enable = 0;
		expect_refused(DRV_INTR_IOC_SET_INT_EN, record,
			       "2 [intr disable]not support para, index_id=");
	}
	para record{};
	record.type = 3;
	expect_refused(DRV_INTR_IOC_SET_INT_EN, record,
		       "1 [intr disable]virq invalid, index_id=0x0, type=3");
	record.enable = 1;
	expect_refused(DRV_INTR_IOC_SET_INT_EN, record,
		       "1 [intr enable]virq invalid, index_id=0x0, type=3");
	EXPECT_EQ(state(), before);
}

TEST_F(Control, enable_and_disable_are_counted_and_never_below_zero)
{
	ASSERT_EQ(subscribe(first, PORT), 0);
	EXPECT_EQ(enable(first, 0), 0);
	EXPECT_EQ(enable(first, 0), 0);
	EXPECT_EQ(depth("leaf:0:3"), 2);
	for (const u32 on : {1u, 0x80000000u, 0x100u}) // the last one is one too many
		EXPECT_EQ(enable(first, on), 0);
	EXPECT_EQ(depth("leaf:0:3"), 0);
	EXPECT_EQ(unsubscribe(first, PORT), 0);
}

TEST_F(Control, netlink_id_is_that_of_the_load_and_switches_read_back)
{
	table().nodes["global_cfg"]["common"]["netlink_id"] = 29;
	install();
	para record{};
	ASSERT_EQ(testbed::ioctl(DRV_INTR_IOC_GET_NETLINK_ID, &record), 0);
	EXPECT_EQ(record.result, 30u); // active since start
	unload();
	load();
	ASSERT_EQ(testbed::ioctl(DRV_INTR_IOC_GET_NETLINK_ID, &record), 0);
	EXPECT_EQ(record.result, 29u);

	for (const u32 value : {0xfffffff0u, 5u, 0u}) {
		record = {};
		record.switch_on = value;
		record.virq = 0x12;
		clear_log();
		ASSERT_EQ(testbed::ioctl(DRV_INTR_IOC_SET_DEBUG_SWITCH, &record), 0);
		EXPECT_EQ(log(),
			  std::vector<std::string>{"2 [intr ioctl set debug switch]switch_on=" +
						   std::to_string(value) + ", virq=18"});
		ASSERT_EQ(testbed::ioctl(DRV_INTR_IOC_GET_INT_DEBUG_EN, &record), 0);
		EXPECT_EQ(record.result, value);
		EXPECT_EQ(report(DRV_INTR_IOC_DBG_SWITCH),
			  "interrupt debug switch: " + std::to_string(static_cast<int>(value)) +
				  (value ? "(on)" : "(off)") + "\ndebug irq: 18\n");
	}
}

// How a report came out: all bytes of a marked area with room before and behind.
class ReportBuffer : public Control {
protected:
	static constexpr size_t ROOM = 64;

	int fetch(u32 cmd, u32 buf_len, u32 virq = 0)
	{
		para record{};

		area_.assign(ROOM + buf_len + ROOM, static_cast<char>(MARK));
		record.buf = reinterpret_cast<uintptr_t>(area_.data() + ROOM);
		record.buf_len = buf_len;
		record.virq = virq;
		return testbed::ioctl(cmd, &record);
	}

	// The area as it must be when this was written into the buffer.
	std::string area_with(const std::string &written, u32 buf_len)
	{
		std::string area(ROOM + buf_len + ROOM, static_cast<char>(MARK));

		return area.replace(ROOM, written.size(), written);
	}

	std::string area() const { return std::string(area_.begin(), area_.end()); }

	std::vector<char> area_;
};

TEST_F(ReportBuffer, all_of_it_is_written_and_not_one_byte_more)
{
	static constexpr u32 MOST = DRV_INTR_REPORT_MAX;

	ASSERT_EQ(subscribe(first, PORT), 0);
	const auto virq = static_cast<u32>(ask("client", "find 0 3"));
	for (const u32 cmd : {DRV_INTR_IOC_DBG_RUNTIME, DRV_INTR_IOC_DBG_SWITCH,
			      DRV_INTR_IOC_DBG_CFG, DRV_INTR_IOC_DBG_VIRQ}) {
		const std::string text = report(cmd, virq);
		ASSERT_FALSE(text.empty()) << number(cmd);
		const auto length = static_cast<u32>(text.size());
		for (const u32 size :
		     {2u, 10u, length, length + 1, length + 2, MOST, MOST + 1, 200000u}) {
			const u32 due = std::min(size, MOST);
			std::string written = text.substr(0, due - 1);
			written.resize(due); // the NUL, and zeros up to the end
			ASSERT_EQ(fetch(cmd, size, virq), 0) << number(cmd) << " size " << size;
			EXPECT_TRUE(area() == area_with(written, size))
				<< number(cmd) << " size " << size;
		}
		// No room for a single character: nothing to report.
		for (const u32 size : {0u, 1u}) {
			EXPECT_EQ(fetch(cmd, size, virq), REFUSED) << number(cmd);
			EXPECT_TRUE(area() == area_with("", size)) << number(cmd);
			EXPECT_TRUE(logged("1 [intr dev ioctl]cmd fail, cmd=" + number(cmd)));
		}
	}
	ASSERT_EQ(fetch(DRV_INTR_IOC_DBG_SWITCH, 10), 0);
	EXPECT_STREQ(area_.data() + ROOM, "interrupt");
	EXPECT_EQ(unsubscribe(first, PORT), 0);
}

TEST_F(ReportBuffer, that_cannot_be_written_fails_the_command)
{
	const std::string before = state();
	para record{};

	record.buf_len = 100;
	for (const bad_place &place : bad_places(record.buf_len)) {
		SCOPED_TRACE(place.name);
		record.buf = reinterpret_cast<uintptr_t>(place.at);
		expect_refused(DRV_INTR_IOC_DBG_RUNTIME, record, "1 [intr dev ioctl]cmd fail");
		expect_refused(DRV_INTR_IOC_DBG_CFG, record, "1 [intr dev ioctl]cmd fail");
	}
	EXPECT_EQ(state(), before);
}

TEST_F(ReportBuffer, of_one_leaf_is_for_leaves_in_use_only)
{
	const std::string runtime = "    runtime info\n";

	ASSERT_EQ(subscribe(first, PORT), 0);
	const auto used = static_cast<u32>(ask("client", "find 0 3"));
	const auto mapped = static_cast<u32>(ask("client", "map 1 3"));
	const auto parent = static_cast<u32>(ask("board", "virq line:0"));
	ASSERT_EQ(fetch(DRV_INTR_IOC_DBG_VIRQ, 1000, used), 0);
	EXPECT_EQ(area().substr(ROOM, runtime.size()), runtime);
	// Not watched by the monitor; no leaf's; nobody's; that of leaves not mapped.
	for (const u32 virq : {mapped, parent, 0x7fffffffu, 0u}) {
		EXPECT_EQ(fetch(DRV_INTR_IOC_DBG_VIRQ, 1000, virq), REFUSED) << virq;
		EXPECT_TRUE(area() == area_with("", 1000)) << virq;
	}
	EXPECT_EQ(unsubscribe(first, PORT), 0);
	EXPECT_EQ(fetch(DRV_INTR_IOC_DBG_VIRQ, 1000, used), REFUSED);
}

struct failing_command {
	const char *name;
	const char *file, *fault;
	u32 cmd;
	const char *lines;
};

class ControlFault : public Control, public testing::WithParamInterface<failing_command> {};

TEST_P(ControlFault, leaves_nothing_and_the_next_try_succeeds)
{
	const failing_command &step = GetParam();
	const std::string before = state();
	const para sent = good_record(step.cmd);
	para record = sent;

	clear_log();
	command(step.file, step.fault);
	EXPECT_EQ(testbed::ioctl(step.cmd, &record), REFUSED);
	if (strcmp(step.file, "board") == 0) {
		EXPECT_TRUE(command("board", "fault count").ends_with("hit=1"));
		command("board", "fault off");
	}
	for (const std::string &line : testbed::lines_of(step.lines))
		EXPECT_TRUE(logged(line)) << line << " is not in " << testing::PrintToString(log());
	EXPECT_EQ(memcmp(&record, &sent, sizeof(record)), 0);
	EXPECT_EQ(state(), before);
	EXPECT_EQ(depth("line:0"), 0);
	EXPECT_EQ(issue(step.cmd), 0);
	if (step.cmd == DRV_INTR_IOC_SET_PID) {
		EXPECT_EQ(unsubscribe(first, PORT), 0);
	}
}

const failing_command failing_commands[] = {
	{"subscriber_record", "board", "fault plat_kzalloc 1 0", DRV_INTR_IOC_SET_PID,
	 "1 [drv intr add pid]kzalloc fail\n1 [intr dev ioctl]cmd fail, cmd=1"},
	{"mapping", "board", "fault plat_irq_create_mapping 1 0", DRV_INTR_IOC_SET_PID,
	 "1 [mapping irq]map hwirq fail\n1 [intr ioctl set pid]map virq fail\n"
	 "1 [intr dev ioctl]cmd fail, cmd=1"},
	{"request", "board", "fault plat_request_threaded_irq 1 -16", DRV_INTR_IOC_SET_PID,
	 "1 [intr request irq]request irq fail, ret=-16\n"
	 "1 [intr ioctl set pid]request irq fail, ret=-14\n1 [intr dev ioctl]cmd fail, cmd=1"},
	{"monitor", "monitor", "refuse set 1 -5", DRV_INTR_IOC_SET_PID,
	 "1 [intr request irq]set interrupt suppress info fail, ret=-5\n"
	 "1 [intr ioctl set pid]request irq fail, ret=-14\n1 [intr dev ioctl]cmd fail, cmd=1"},
	{"record_in", "board", "fault plat_copy_from_user 1 20", DRV_INTR_IOC_SET_PID,
	 "1 [intr dev ioctl]copy_from_user fail"},
	{"record_out", "board", "fault plat_copy_to_user 1 7", DRV_INTR_IOC_GET_NETLINK_ID,
	 "1 [intr dev ioctl]copy_to_user fail, ret=7"},
	{"report_memory", "board", "fault plat_kzalloc 1 0", DRV_INTR_IOC_DBG_RUNTIME,
	 "1 [intr dev ioctl]cmd fail, cmd=8"},
	{"report_out", "board", "fault plat_copy_to_user 1 1", DRV_INTR_IOC_DBG_SWITCH,
	 "1 [intr dev ioctl]cmd fail, cmd=9"},
	{"record_behind_report", "board", "fault plat_copy_to_user 2 20", DRV_INTR_IOC_DBG_CFG,
	 "1 [intr dev ioctl]copy_to_user fail, ret=20"},
};

INSTANTIATE_TEST_SUITE_P(Steps, ControlFault, testing::ValuesIn(failing_commands),
			 [](const auto &info) { return info.param.name; });

TEST_F(Control, a_failed_subscription_takes_nothing_from_others)
{
	ASSERT_EQ(regist(first), 0);
	const std::string before = state();
	command("board", "fault plat_kzalloc 1 0");
	EXPECT_EQ(subscribe(first, PORT), REFUSED);
	command("board", "fault off");
	EXPECT_EQ(state(), before);
	EXPECT_EQ(unsubscribe(first, PORT), REFUSED);
	fire(first);
	expect_events(1);
}

TEST_F(Control, an_open_device_keeps_the_driver)
{
	const int one = testbed::device_open(), other = testbed::device_open();

	ASSERT_GT(one, 0);
	ASSERT_GT(other, 0);
	EXPECT_EQ(testbed::unload(), -11);
	testbed::device_close(one);
	EXPECT_EQ(testbed::unload(), -11);
	para record{};
	EXPECT_EQ(testbed::device_ioctl(other, DRV_INTR_IOC_GET_NETLINK_ID, &record), 0);
	EXPECT_EQ(record.result, 30u);
	testbed::device_close(other);
	unload();
	EXPECT_LT(testbed::device_open(), 0);
}

} // namespace

} // namespace rig
