// SPDX-License-Identifier: GPL-2.0
//
// What people can get wrong: names, interrupts, tables. One clear line, the
// right error, everything else keeps running.
#include "rig.h"

namespace rig {

class Input : public Scenario {
protected:
	combiner board = make_combiner(0, 1);

	void bring_up()
	{
		configure({board});
		load();
		ASSERT_EQ(regist(board.leaves[0]), 0);
		clear_log();
	}

	void expect_board_works()
	{
		clear_events();
		fire_open(board.leaves[0]);
		EXPECT_TRUE(wait_events(1));
	}
};

struct device_case {
	const char *name;
	const char *device, *irq;
	const char *line;
};

class BadDevice : public Input, public testing::WithParamInterface<device_case> {};

TEST_P(BadDevice, is_refused_and_the_rest_runs)
{
	bring_up();
	EXPECT_FALSE(add_device(GetParam().device, GetParam().irq));
	EXPECT_TRUE(logged(GetParam().line)) << testing::PrintToString(log());
	EXPECT_TRUE(logged("1 [intr dev probe]dev init fail"));
	expect_board_works();
}

INSTANTIATE_TEST_SUITE_P(
	Devices, BadDevice,
	testing::Values(device_case{"no_number", "irq_combiner@", "line:5",
				    "1 [intr dts dev probe]get combiner id fail"},
			device_case{"letters", "irq_combiner@x1", "line:5",
				    "1 [intr dts dev probe]get combiner id fail"},
			device_case{"no_at", "irq_combiner", "line:5",
				    "1 [intr dts dev probe]get combiner id fail"},
			device_case{"other_name", "combiner@5", "line:5",
				    "1 [intr dts dev probe]invalid dev name"},
			device_case{"no_interrupt", "irq_combiner@5", "none",
				    "1 [intr dts dev probe]get virq fail, virq=-6"},
			device_case{"long_name", "irq_combiner@5.with_a_name_that_does_not_fit",
				    "line:5", "1 [intr dts dev probe]combiner init soft fail"}),
	[](const auto &info) { return info.param.name; });

TEST_F(Input, text_around_the_name)
{
	bring_up();
	EXPECT_TRUE(add_device("soc:irq_combiner@12", "line:5"));
	EXPECT_TRUE(logged("combiner_id=12, cfg_combiner_name=irq_combiner@12,"));
	expect_board_works();
}

TEST_F(Input, a_damaged_table_leaves_the_one_in_force)
{
	configure({board});
	cfg::bytes good, bad;
	std::string why;
	ASSERT_TRUE(cfg::write_table(table(), good, why)) << why;
	const std::string before = testbed::read("xml");
	bad = good;
	bad.resize(bad.size() - 1);
	EXPECT_EQ(testbed::write_blob("xml_table", bad), -22) << "truncated";
	bad = good;
	bad[bad.size() / 2] ^= 0x10;
	EXPECT_EQ(testbed::write_blob("xml_table", bad), -22) << "a flipped bit";
	bad = good;
	bad[4] ^= 0xff;
	cfg::reseal(bad);
	EXPECT_EQ(testbed::write_blob("xml_table", bad), -22) << "another version";
	EXPECT_TRUE(testbed::read("xml").starts_with(before));
	EXPECT_NE(testbed::read("xml").find("last table refused: version"), std::string::npos);
	load();
	ASSERT_EQ(regist(board.leaves[0]), 0);
	expect_board_works();
}

TEST_F(Input, a_table_of_another_instance_configures_nothing_here)
{
	configure({board});
	testbed::control("xml", "drop 0xffffffff");
	table().instance = 0x03000000;
	install();
	load();
	EXPECT_EQ(regist(board.leaves[0]), 14);
	EXPECT_TRUE(logged("2 [mapping irq]not support para, index_id=0x0, type=3"));
	command("xml", "drop 0x03000000");
}

// Their one number would be taken from under the second when the first is released.
TEST_F(Input, of_two_leaves_with_one_hwirq_only_the_first_can_be_used)
{
	combiner twins = make_combiner(0, 2);

	twins.leaves[1].hwirq = twins.leaves[0].hwirq;
	configure({twins});
	load();
	ASSERT_EQ(regist(twins.leaves[0]), 0);
	EXPECT_EQ(regist(twins.leaves[1]), 14);
	EXPECT_TRUE(logged("1 [mapping irq]hwirq=0 is another leaf's"));
	EXPECT_EQ(subscribe(twins.leaves[1], 1), REFUSED);
	EXPECT_EQ(unregist(twins.leaves[1]), 0);
	clear_events();
	fire_open(twins.leaves[0]);
	expect_events(1);
	EXPECT_EQ(unregist(twins.leaves[0]), 0);
}

TEST_F(Input, mistyped_commands_say_what_is_wrong)
{
	for (const auto &[file, line] : {std::pair{"cpld", "asert c0.0"},
					 {"cpld", "assert nobody"},
					 {"cpld", "source x"},
					 {"board", "device add"},
					 {"board", "fault nothing_like_it 1 0"},
					 {"client", "regist one 3"},
					 {"client", "subscribe 1 3"},
					 {"monitor", "refuse"},
					 {"xml", "drop"},
					 {"log_ctl", "erase"}}) {
		const testbed::result result = testbed::control(file, line);
		EXPECT_LT(result.code, 0) << file << ": " << line;
		EXPECT_TRUE(result.reply.starts_with(std::string(file) + ": "))
			<< file << ": " << line << ": " << result.reply;
	}
}

} // namespace rig
