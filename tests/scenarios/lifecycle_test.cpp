// SPDX-License-Identifier: GPL-2.0
//
// Set-up and tear-down of combiners: what is said and written, what happens when a
// step fails, and what is left afterwards (nothing).
#include <atomic>
#include <thread>

#include "rig.h"

namespace rig {

namespace {

class Lifecycle : public Scenario {
protected:
	// Combiner 0 is the one that must keep working whatever happens to number 4.
	combiner witness = make_combiner(0, 1);
};

combiner full_combiner()
{
	combiner c = make_combiner(4, 3, 3);

	c.async = 1;
	return c;
}

std::vector<std::string> bring_up_lines(long virq)
{
	return {
		"2 [intr dev probe]enter, irq_combiner@4, cfg_type_bitmap=0x2",
		"2 [intr dts dev probe]enter",
		"2 [intr combiner init soft]enter, combiner_id=4, "
		"cfg_combiner_name=irq_combiner@4, inst_id=0xffffffff",
		"2 [intr get xml slot hwirq cfg]not support backplane cfg",
		"2 [intr combiner init soft]success",
		"2 [intr combiner init]enter, combienr_id=4, virq=" + std::to_string(virq),
		"2 [intr combiner init virq]enter",
		"2 [intr combiner init virq]success",
		"2 [intr domain alloc]enter",
		"2 [intr domain alloc]success",
		"2 [intr combiner init hw]enter",
		"2 [intr combiner init hw]not direct int.",
		"2 [intr disable leaf int]enter",
		"2 [intr disable leaf int]success",
		"2 [intr enable not leaf int]enter",
		"2 [intr enable not leaf int]success",
		"2 [intr combiner init hw]success",
		"2 [intr combiner init]success",
		"2 [intr dts dev probe]success",
		"2 [intr dev probe]success",
	};
}

const std::vector<std::string> bring_up_trace = {
	"write inst=0xffffffff chip=5 reg=0x40 shift=0 mask=0x1 value=0x0",
	"write inst=0xffffffff chip=5 reg=0x40 shift=1 mask=0x1 value=0x0",
	"reg_read inst=0xffffffff chip=5 reg=0x60 value=0x0",
	"reg_write inst=0xffffffff chip=5 reg=0x60 value=0x1",
	"reg_read inst=0xffffffff chip=5 reg=0x60 value=0x0",
	"reg_read inst=0xffffffff chip=5 reg=0x60 value=0x0",
	"reg_write inst=0xffffffff chip=5 reg=0x60 value=0x2",
	"reg_read inst=0xffffffff chip=5 reg=0x60 value=0x0",
	"write inst=0xffffffff chip=5 reg=0x10 shift=0 mask=0x1 value=0x1",
	"write inst=0xffffffff chip=5 reg=0x11 shift=1 mask=0x1 value=0x1",
	"write inst=0xffffffff chip=5 reg=0x10 shift=0 mask=0x1 value=0x1",
	"write inst=0xffffffff chip=5 reg=0x11 shift=1 mask=0x1 value=0x1",
};

TEST_F(Lifecycle, bring_up_logs_and_writes_exactly_this)
{
	combiner c = make_combiner(4, 2, 3);

	c.async = 1;
	load({c});
	clear_log();
	clear_trace();
	ASSERT_TRUE(add_device("irq_combiner@4", "line:4"));
	await_thread(c);
	std::vector<std::string> lines = log();
	std::erase(lines, "2 [drv_intr_combiner_thread]enter, intr4"); // comes when it runs
	EXPECT_EQ(lines, bring_up_lines(ask("board", "virq line:4")));
	EXPECT_EQ(trace(), bring_up_trace);
}

TEST_F(Lifecycle, load_and_unload_log_no_error)
{
	combiner direct{.id = 1, .direct = 1, .leaves = {make_leaf(1, 0, 0)}};

	load({make_combiner(0, 1), direct});
	unload();
	EXPECT_EQ(log().front(), "2 [intr module init]enter");
	EXPECT_TRUE(logged("2 [intr get cfg]netlink_id=30"));
	EXPECT_EQ(log().back(), "2 [intr module exit]success");
	EXPECT_FALSE(logged("1 [")) << "an error line in a clean run";
	record();
}

TEST_F(Lifecycle, devices_without_configuration_get_combiners_without_leaves)
{
	load();
	EXPECT_TRUE(logged("2 [intr get cfg]cfg_type_bitmap=0x2"));
	EXPECT_TRUE(logged("2 [intr dts dev probe]success"));
	EXPECT_EQ(depth("line:0"), 0);
}

struct failing_step {
	const char *name;
	const char *file, *command; // how to make it fail
	const char *line; // what must be said
};

class BringUpStep : public Lifecycle, public testing::WithParamInterface<failing_step> {};

TEST_P(BringUpStep, fails_alone_and_leaves_nothing)
{
	load({witness, full_combiner()});
	ASSERT_EQ(regist(witness.leaves[0]), 0);
	clear_log();
	command(GetParam().file, GetParam().command);
	EXPECT_FALSE(add_device("irq_combiner@4", "line:4"));
	EXPECT_TRUE(logged(GetParam().line)) << testing::PrintToString(log());
	EXPECT_TRUE(logged("1 [intr dev probe]dev init fail"));
	EXPECT_FALSE(testbed::thread_exists("intr4-handler"));
	record();
	command("board", "fault off");
	command("monitor", "off");
	command("cpld", "fail off");
	expect_delivery(witness.leaves[0]);
	// The same line serves the next try.
	del_device("irq_combiner@4");
	ASSERT_TRUE(add_device("irq_combiner@4", "line:4"));
	ASSERT_EQ(ask("client", "regist 0x402 3"), 0);
	expect_delivery(full_combiner().leaves[2]);
}

INSTANTIATE_TEST_SUITE_P(
	Steps, BringUpStep,
	testing::Values(
		failing_step{"monitor_refuses", "monitor", "refuse set 1 -5",
			     "1 [intr combiner init virq]set irq supress para fail, ret=-5"},
		failing_step{"handler_data", "board", "fault plat_irq_set_handler_data 1 -22",
			     "1 [intr combiner init virq]set irq handler data fail, ret=-22"},
		failing_step{"thread", "board", "fault plat_kthread_create_on_node 1 -12",
			     "1 [intr create thread]create combiner thread fail"},
		failing_step{"domain", "board", "fault plat_irq_domain_create_tree 1 0",
			     "1 [intr domain alloc]alloc domain fail"},
		failing_step{"register_write", "cpld", "fail write 1 1 -5",
			     "1 [intr combiner init hw]disable combiner leaf int fail, ret=-14"}),
	[](const auto &info) { return info.param.name; });

// Every CPLD write of bring-up fails in turn; each time the device is refused
// with nothing left, until there is no further write to fail.
TEST_F(Lifecycle, every_register_write_of_bring_up_fails_in_turn)
{
	load({witness, full_combiner()});
	ASSERT_EQ(regist(witness.leaves[0]), 0);
	int nth = 1;
	for (; nth < 50; nth++) {
		command("cpld", "fail write " + std::to_string(nth) + " 1 -5");
		const bool up = add_device("irq_combiner@4", "line:4");
		command("cpld", "fail off");
		del_device("irq_combiner@4");
		if (up)
			break;
	}
	EXPECT_EQ(nth, 1 + 3 + 3 * 2); // leaf levels, then two outer ones a leaf
	expect_delivery(witness.leaves[0]);
}

// Allocation after allocation fails. Those of the configuration cost only what
// was being read, the others the combiner; never more, and nothing is left.
TEST_F(Lifecycle, every_allocation_of_bring_up_fails_in_turn)
{
	load({witness, full_combiner()});
	ASSERT_EQ(regist(witness.leaves[0]), 0);
	int nth = 1, refused = 0;
	for (; nth < 50; nth++) {
		command("board", "fault plat_kzalloc " + std::to_string(nth) + " 0");
		const bool up = add_device("irq_combiner@4", "line:4");
		const bool hit = command("board", "fault count").find("hit=1") != std::string::npos;
		command("board", "fault off");
		refused += !up;
		del_device("irq_combiner@4");
		expect_delivery(witness.leaves[0]);
		if (!hit)
			break;
	}
	EXPECT_EQ(nth, 1 + 1 + 3 + 3 + 2); // record, leaf configurations, leaf records, scan plan
	EXPECT_EQ(refused, 1 + 3 + 2);
}

TEST_F(Lifecycle, a_missing_key_keeps_the_leaves_before_it)
{
	const combiner c = full_combiner();

	configure({witness, c});
	table().nodes["irq_combiner@4"]["hwirq_cfg2"].erase("hwirq");
	install();
	load();
	ASSERT_EQ(regist(witness.leaves[0]), 0);
	clear_log();
	EXPECT_TRUE(add_device("irq_combiner@4", "line:4"));
	EXPECT_TRUE(logged("1 [intr get xml one hwirq cfg]get hwirq cfg fail"));
	EXPECT_TRUE(logged("1 [intr combiner init cfg]get hwirq cfg fail"));
	EXPECT_TRUE(logged("1 [intr combiner init soft]get cfg from xml fail, ret=-22"));
	record();
	ASSERT_EQ(regist(c.leaves[1]), 0);
	EXPECT_EQ(ask("client", "find 0x402 3"), 0);
	expect_delivery(c.leaves[1]);
	expect_delivery(witness.leaves[0]);
}

TEST_F(Lifecycle, a_leaf_without_levels_is_refused_before_a_register_is_touched)
{
	combiner c = full_combiner();

	c.leaves[1].levels.clear();
	load({witness, c});
	ASSERT_EQ(regist(witness.leaves[0]), 0);
	clear_trace();
	EXPECT_FALSE(add_device("irq_combiner@4", "line:4"));
	EXPECT_TRUE(logged("1 [intr combiner init]leaf without levels, index_id=0x401, type=3"));
	EXPECT_TRUE(trace().empty());
	expect_delivery(witness.leaves[0]);
}

TEST_F(Lifecycle, too_many_levels_are_refused)
{
	const combiner c = full_combiner();

	configure({c});
	table().nodes["irq_combiner@4"]["hwirq_cfg1"]["level_num"] = 6;
	install();
	load();
	EXPECT_TRUE(add_device("irq_combiner@4", "line:4"));
	EXPECT_TRUE(logged("too many levels, index_id=0x401, type=3, level_num=6"));
	EXPECT_EQ(ask("client", "find 0x401 3"), 0);
	EXPECT_EQ(ask("client", "regist 0x400 3"), 0);
}

TEST_F(Lifecycle, request_failures_release_the_leaf)
{
	load({witness});
	command("monitor", "refuse set 1 -5");
	EXPECT_EQ(regist(witness.leaves[0]), 14);
	EXPECT_TRUE(logged("1 [intr request irq]set interrupt suppress info fail, ret=-5"));
	EXPECT_EQ(ask("client", "find 0 3"), 0);
	command("monitor", "off");
	command("board", "fault plat_request_threaded_irq 1 -16");
	EXPECT_EQ(regist(witness.leaves[0]), 14);
	EXPECT_TRUE(logged("1 [intr request irq]request irq fail, ret=-16"));
	EXPECT_TRUE(logged("1 [intr set regist]request irq fail, ret=-14"));
	command("board", "fault plat_irq_create_mapping 1 0");
	EXPECT_EQ(regist(witness.leaves[0]), 14);
	EXPECT_TRUE(logged("1 [mapping irq]map hwirq fail"));
	command("board", "fault off");
	ASSERT_EQ(regist(witness.leaves[0]), 0);
	expect_delivery(witness.leaves[0]);
	command("monitor", "refuse unset 1 -5");
	EXPECT_EQ(unregist(witness.leaves[0]), 0);
	EXPECT_TRUE(logged("1 [intr free irq]unset interrupt suppress info fail, ret=-5"));
	EXPECT_EQ(ask("client", "find 0 3"), 0);
	command("monitor", "off");
}

TEST_F(Lifecycle, a_line_that_a_combiner_has_is_not_taken_from_it)
{
	load({witness, full_combiner()});
	ASSERT_EQ(regist(witness.leaves[0]), 0);
	EXPECT_FALSE(add_device("irq_combiner@4", "line:0"));
	EXPECT_TRUE(logged("1 [intr claim parent]parent line is another combiner's, virq="));
	EXPECT_EQ(depth("line:0"), 0);
	expect_delivery(witness.leaves[0]);
}

// A leaf that was enabled without ever being requested is closed when its
// mapping goes: nothing would be there to mask it.
TEST_F(Lifecycle, unmapping_turns_the_enable_field_off)
{
	const level &own = witness.leaves[0].levels.back();

	load({witness});
	EXPECT_GT(ask("client", "map 0 3"), 0);
	EXPECT_EQ(ask("client", "enable 0 3"), 0);
	EXPECT_EQ(ask("client", "unregist 0 3"), 0);
	EXPECT_EQ(command("cpld", "peek 0xffffffff " + std::to_string(own.chip) + " " +
					  std::to_string(own.en)),
		  "0x0");
}

// The module goes while a client of another module still holds leaves of every
// kind, and sources keep firing. The parts of the client are cut off.
TEST_F(Lifecycle, unload_under_fire_leaves_nothing)
{
	combiner sync = make_combiner(0, 2), async = make_combiner(1, 2);
	combiner direct{.id = 2, .direct = 1, .leaves = {make_leaf(2, 0, 0)}};
	std::atomic<bool> stop = false;

	async.async = 1;
	sync.leaves[0].sync = 1;
	async.leaves[0].sync = 1;
	configure({sync, async, direct});
	std::thread storm([&] {
		while (!stop) {
			for (const combiner &c : {sync, async, direct}) {
				for (const leaf &leaf : c.leaves)
					testbed::control("cpld", "pulse " + leaf.name);
			}
		}
	});
	for (int round = 0; round < 5; round++) {
		load();
		for (const combiner &c : {sync, async, direct}) {
			for (const leaf &leaf : c.leaves)
				EXPECT_EQ(regist(leaf,
						 "sleep_ms=" + std::to_string(leaf.sync && !c.async
										      ? 0
										      : 3)),
					  0);
		}
		wait_events(4);
		unload();
		EXPECT_TRUE(logged("leaf still in use, released, index_id=0x1, type=3"));
		clear_events();
		clear_log();
		EXPECT_EQ(testbed::interrupts().find("drv_irq_"), std::string::npos);
	}
	stop = true;
	storm.join();
}

} // namespace

} // namespace rig
