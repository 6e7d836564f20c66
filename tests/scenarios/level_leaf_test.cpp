// SPDX-License-Identifier: GPL-2.0
//
// Level-triggered leaves that are disabled while their source is up: enabled again,
// they deliver what is up then, and nothing of what came and went.
#include <algorithm>

#include "rig.h"

namespace rig {

class LevelLeaf : public Scenario {
protected:
	static constexpr u32 KINDS = 8, FIRST_WITHOUT_ENABLE = 4;

	combiner c = make_combiner(0, KINDS + 1);
	const leaf &witness = c.leaves[KINDS];

	// All kinds of them: active high and low, with a status that follows the source or
	// is latched, with an enable register and without.
	void bring_up()
	{
		for (u32 kind = 0; kind < KINDS; kind++) {
			leaf &leaf = c.leaves[kind];

			leaf.irq_type = kind & 1 ? 8 : 4;
			leaf.levels.back().latched = (kind & 2) != 0;
			if (kind >= FIRST_WITHOUT_ENABLE) {
				leaf.levels.back().en = 0xffffffff;
				// Nothing masks it: a thread would be woken on and on.
				leaf.sync = 1;
			}
		}
		configure({c});
		load();
		for (const leaf &leaf : c.leaves)
			ASSERT_EQ(regist(leaf, "quiesce=" + leaf.name), 0);
	}

	// In every scan all leaves are tested: after the witness, each has had its turn.
	void scan()
	{
		const size_t before = count(witness);

		fire_open(witness);
		EXPECT_TRUE(eventually([&] { return count(witness) > before; }));
	}

	size_t count(const leaf &leaf)
	{
		const std::vector<event> seen = events();

		return static_cast<size_t>(std::ranges::count_if(
			seen, [&](const event &event) { return event.index == leaf.index; }));
	}

	void each(const std::string &file, const std::string &line, bool by_name)
	{
		for (u32 kind = 0; kind < KINDS; kind++) {
			const leaf &leaf = c.leaves[kind];

			command(file, line + " " + (by_name ? leaf.name : pair_of(leaf)));
		}
	}

	void set_outer_enable(u32 on)
	{
		const level &outer = witness.levels[0];

		command("cpld", "poke " + std::to_string(witness.inst) + " " +
					std::to_string(outer.chip) + " " +
					std::to_string(outer.en) + " " + std::to_string(on));
	}

	void hold_back_parent()
	{
		set_outer_enable(0);
		// No mark of the line is left, and no invocation of its handler is running.
		EXPECT_TRUE(eventually([&] {
			const size_t before = parent_interrupts(c);

			testbed::sleep_ms(2);
			return parent_interrupts(c) == before;
		}));
	}

	void let_parent_through() { set_outer_enable(1); }

	void expect_none()
	{
		for (u32 kind = 0; kind < KINDS; kind++)
			EXPECT_EQ(count(c.leaves[kind]), 0u) << c.leaves[kind].name;
	}

	bool all_come()
	{
		return eventually([&] {
			return std::ranges::all_of(
				c.leaves, [&](const leaf &leaf) { return count(leaf) > 0; });
		});
	}
};

TEST_F(LevelLeaf, what_came_and_went_while_disabled_is_not_delivered)
{
	bring_up();
	for (int round = 0; round < 2; round++) {
		each("client", "disable", false);
		each("cpld", "assert", true);
		scan();
		each("cpld", "deassert", true);
		scan();
		// A latched status without enable register keeps the parent up until its
		// leaf is enabled, which may come between a scan's look and its dispatch.
		hold_back_parent();
		each("client", "enable", false);
		let_parent_through();
		scan();
		expect_none();
	}
	each("cpld", "assert", true);
	EXPECT_TRUE(all_come());
}

TEST_F(LevelLeaf, what_is_up_when_it_is_enabled_is_delivered)
{
	bring_up();
	each("client", "disable", false);
	each("cpld", "assert", true);
	scan();
	expect_none();
	each("client", "enable", false);
	EXPECT_TRUE(all_come());
	scan();
	for (u32 kind = 0; kind < KINDS; kind++)
		EXPECT_EQ(count(c.leaves[kind]), 1u) << c.leaves[kind].name;
}

} // namespace rig
