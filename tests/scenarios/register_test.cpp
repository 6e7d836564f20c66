// SPDX-License-Identifier: GPL-2.0
//
// What is written to a leaf's enable and status registers.
#include <gmock/gmock.h>

#include "rig.h"

using testing::ElementsAre;

namespace rig {

namespace {

class Registers : public Scenario {
protected:
	combiner board = make_combiner(0, 2);
	leaf &own = board.leaves[0];

	void latch_outer_level()
	{
		for (leaf &leaf : board.leaves)
			leaf.levels.front().latched = true;
	}
};

TEST_F(Registers, enable_is_1_in_a_field_of_any_width)
{
	own.levels.back().mask = 0x7;
	own.levels.back().shift = 4;
	own.levels.front().mask = 0x7;
	own.levels.front().shift = 4;
	load({board});
	EXPECT_EQ(command("cpld", "peek 0xffffffff 1 0x10"), "0x11"); // and its neighbour's
	ASSERT_EQ(regist(own), 0);
	EXPECT_EQ(command("cpld", "peek 0xffffffff 1 0x40"), "0x10");
	clear_trace();
	command("client", "disable " + pair_of(own));
	command("client", "enable " + pair_of(own));
	const level &level = own.levels.back();
	// Disabled, then, as a level, cleared before it is enabled.
	EXPECT_THAT(changes(), ElementsAre(enable_write(level, 0), clear_write(level),
					   clear_write(level), enable_write(level, 1)));
}

// The outer level would latch again what the leaf's own still shows.
TEST_F(Registers, are_cleared_from_the_leaf_outwards)
{
	latch_outer_level();
	board.leaves[1].levels.back().latched = false;
	load({board});
	ASSERT_EQ(regist(own), 0);
	clear_trace();
	command("client", "disable " + pair_of(own));
	const level &outer = own.levels.front(), &inner = own.levels.back();
	EXPECT_THAT(changes(),
		    ElementsAre(enable_write(inner, 0), clear_write(inner), clear_write(outer)));
	record("cpld", changes());
	// A level that only follows is left out, and no more than that.
	const leaf &follows = board.leaves[1];
	ASSERT_EQ(regist(follows), 0);
	clear_trace();
	command("client", "disable " + pair_of(follows));
	EXPECT_THAT(changes(), ElementsAre(enable_write(follows.levels.back(), 0),
					   clear_write(follows.levels.front())));
}

TEST_F(Registers, that_fail_to_be_cleared_leave_the_outer_ones_alone)
{
	latch_outer_level();
	load({board});
	ASSERT_EQ(regist(own), 0);
	clear_trace();
	clear_log();
	command("cpld", "fail reg_write 1 1 -5");
	command("client", "disable " + pair_of(own));
	command("cpld", "fail off");
	const level &inner = own.levels.back();
	EXPECT_THAT(changes(), ElementsAre(enable_write(inner, 0), clear_write(inner)));
	EXPECT_TRUE(logged("1 [intr clear irqinfo]write cpld fail, ret=0xfffffffb"));
	command("client", "enable " + pair_of(own));
	expect_delivery(own);
}

TEST_F(Registers, that_cannot_be_written_leave_the_leaf_as_it_is)
{
	load({board});
	ASSERT_EQ(regist(own), 0);
	clear_log();
	command("cpld", "fail write 1 1 -5");
	clear_trace();
	command("client", "disable " + pair_of(own));
	command("cpld", "fail off");
	// Not even cleared: what came would be lost while the leaf stays enabled.
	EXPECT_THAT(changes(), ElementsAre(enable_write(own.levels.back(), 0)));
	EXPECT_TRUE(logged("1 [intr set irq leaf int en]write cpld fail, ret=0xfffffffb"));
	command("client", "enable " + pair_of(own));
	expect_delivery(own);
}

TEST_F(Registers, of_a_leaf_with_a_wide_type_are_found_by_its_packed_key)
{
	own.index = 0x12;
	own.type = 0x107;
	load({board});
	const long virq = ask("client", "bspmap 0x1070012");
	EXPECT_GT(virq, 0);
	EXPECT_EQ(ask("client", "find 0x12 0x107"), virq);
	EXPECT_EQ(ask("client", "bspfind 0x70012"), 0);
	EXPECT_EQ(unregist(own), 0);
}

} // namespace

} // namespace rig
