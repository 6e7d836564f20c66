// SPDX-License-Identifier: GPL-2.0
//
// What people can get wrong: tables, hwirqs, commands. One clear line, the right
// error, everything else keeps running. Wrong names of devices: source_test.cpp.
#include "rig.h"

namespace rig {

namespace {

class Input : public Scenario {
protected:
	combiner board = make_combiner(0, 1);
};

TEST_F(Input, a_damaged_table_leaves_the_active_one)
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
	expect_delivery(board.leaves[0]);
}

// Their one number would be taken from under the second when the first is released.
TEST_F(Input, of_two_leaves_with_one_hwirq_only_the_first_can_be_used)
{
	combiner twins = make_combiner(0, 2);

	twins.leaves[1].hwirq = twins.leaves[0].hwirq;
	load({twins});
	ASSERT_EQ(regist(twins.leaves[0]), 0);
	EXPECT_EQ(regist(twins.leaves[1]), 14);
	EXPECT_TRUE(logged("1 [mapping irq]hwirq=0 is another leaf's"));
	EXPECT_EQ(subscribe(twins.leaves[1], 1), REFUSED);
	EXPECT_EQ(unregist(twins.leaves[1]), 0);
	expect_delivery(twins.leaves[0]);
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

} // namespace

} // namespace rig
