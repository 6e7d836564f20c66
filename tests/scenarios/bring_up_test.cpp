// SPDX-License-Identifier: GPL-2.0
//
// A combiner that comes up while its sources are up already: firmware, or the kernel
// before a restart, left them asserted and everything enabled.
#include <algorithm>

#include "sources.h"

namespace rig {

struct kind {
	const char *name;
	u32 async, depth, gpio;
};

class BringUpAsserted : public Sources, public testing::WithParamInterface<kind> {
protected:
	combiner witness = make_combiner(0, 1), c = make_combiner(4, 2, GetParam().depth);

	BringUpAsserted()
	{
		c.async = GetParam().async;
		if (GetParam().gpio)
			place_at_gpio(c, 4);
	}

	std::string line() const { return "line:" + std::to_string(c.line); }

	// Every enable field on, every source up.
	void assert_all()
	{
		for (const leaf &leaf : c.leaves) {
			for (const level &level : leaf.levels)
				command("cpld", "poke 0xffffffff " + std::to_string(level.chip) +
							" " + std::to_string(level.en) + " 0xff");
			command("cpld", "assert " + leaf.name);
		}
		EXPECT_EQ(command("cpld", "line " + std::to_string(c.line)), "1");
	}
};

// Nobody looks for active leaves before all of them are disabled.
TEST_P(BringUpAsserted, is_not_interrupted_before_its_leaves_are_disabled)
{
	configure({witness, c});
	load();
	ASSERT_EQ(regist(witness.leaves[0]), 0);
	for (int round = 0; round < 20; round++) {
		assert_all();
		clear_trace();
		ASSERT_TRUE(add_device("irq_combiner@4", line()));
		const std::vector<std::string> lines = trace();
		const auto scan = std::ranges::find_if(
			lines, [](const std::string &line) { return line.starts_with("read "); });
		const std::string last = "write inst=0xffffffff chip=5 reg=0x40 shift=1 mask=0x1 "
					 "value=0x0";
		const auto disabled = std::ranges::find(lines, last);
		EXPECT_NE(disabled, lines.end());
		EXPECT_LT(disabled - lines.begin(), scan - lines.begin())
			<< testing::PrintToString(lines);
		EXPECT_TRUE(eventually([&] { return depth(line()) == 0; }));
		expect_delivery(witness.leaves[0]);
		for (const leaf &leaf : c.leaves)
			command("cpld", "deassert " + leaf.name);
		ASSERT_EQ(regist(c.leaves[1]), 0);
		expect_delivery(c.leaves[1]);
		ASSERT_EQ(unregist(c.leaves[1]), 0);
		del_device("irq_combiner@4");
	}
}

INSTANTIATE_TEST_SUITE_P(Kinds, BringUpAsserted,
			 testing::Values(kind{"sync", 0, 1, 0}, kind{"async", 1, 1, 0},
					 kind{"three_levels", 0, 3, 0}, kind{"on_a_pin", 0, 1, 1},
					 kind{"async_on_a_pin", 1, 1, 1}),
			 [](const auto &info) { return info.param.name; });

// A direct combiner has nothing to disable but its parent line.
TEST_F(Sources, direct_combiner_comes_up_under_an_asserted_line)
{
	for (const u32 async : {0u, 1u}) {
		const combiner c{
			.id = 4, .async = async, .direct = 1, .leaves = {make_leaf(4, 0, 0)}};
		const leaf &leaf = c.leaves[0];

		configure({c});
		if (!loaded())
			load();
		command("cpld", "assert " + leaf.name);
		ASSERT_TRUE(add_device("irq_combiner@4", "line:4"));
		EXPECT_EQ(depth("line:4"), 1);
		clear_events();
		ASSERT_EQ(regist(leaf, "quiesce=" + leaf.name), 0);
		EXPECT_TRUE(wait_events(1));
		EXPECT_TRUE(eventually([&] { return depth("line:4") == 0; }));
		del_device("irq_combiner@4");
		command("cpld", "reset");
	}
}

} // namespace rig
