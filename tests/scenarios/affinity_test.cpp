// SPDX-License-Identifier: GPL-2.0
//
// The CPUs that take a combiner's interrupts: its leaves share the parent line, so
// one leaf's affinity is that of all.
#include <atomic>
#include <thread>

#include "rig.h"

namespace rig {

class Affinity : public Scenario {
protected:
	static constexpr int BUSY = -16;

	long virq(const leaf &leaf) { return ask("client", "find " + pair_of(leaf)); }
	long cpus(const std::string &irq) { return ask("board", "cpus " + irq); }
	bool masked(u32 line) { return ask("board", "masked " + std::to_string(line)) != 0; }

	// Another change of the parent may be under way.
	int pin(const leaf &leaf, unsigned long cpu_mask)
	{
		const long number = virq(leaf);
		int code = BUSY;

		eventually(
			[&] { return (code = testbed::set_affinity(number, cpu_mask)) != BUSY; });
		return code;
	}
};

TEST_F(Affinity, requesting_another_leaf_leaves_the_parent_where_it_was_pinned)
{
	combiner board = make_combiner(0, 3);
	combiner outer = make_combiner(4, 2), inner = make_combiner(9, 2);

	board.leaves[2].sync = 1;
	inner.line = outer.id;
	inner.outer = outer.leaves[1].levels;
	configure({board, outer, inner});
	load();
	ASSERT_TRUE(add_device("irq_combiner@4", "line:4"));
	ASSERT_EQ(regist(board.leaves[0]), 0);
	ASSERT_EQ(regist(outer.leaves[0]), 0);
	for (const unsigned long cpu : {2ul, 1ul}) {
		const long pinned = static_cast<long>(cpu);

		ASSERT_EQ(pin(board.leaves[0], cpu), 0);
		for (const leaf &other : {board.leaves[1], board.leaves[2]}) {
			ASSERT_EQ(regist(other), 0);
			EXPECT_EQ(cpus("line:0"), pinned);
			EXPECT_EQ(cpus("virq:" + std::to_string(virq(other))), pinned);
			EXPECT_EQ(unregist(other), 0);
			EXPECT_EQ(cpus("line:0"), pinned);
		}
		// Nor does a combiner that comes on a leaf, or one of its own leaves.
		ASSERT_EQ(pin(outer.leaves[0], cpu), 0);
		ASSERT_TRUE(add_device("irq_combiner@9", "leaf:0x401:3"));
		ASSERT_EQ(regist(inner.leaves[0]), 0);
		EXPECT_EQ(cpus("line:4"), pinned);
		EXPECT_EQ(cpus("leaf:0x900:3"), pinned);
		del_device("irq_combiner@9");
	}
}

TEST_F(Affinity, a_leaf_of_a_nested_combiner_moves_the_outermost_line)
{
	combiner outer = make_combiner(4, 1), inner = make_combiner(9, 1);

	inner.line = outer.id;
	inner.outer = outer.leaves[0].levels;
	configure({outer, inner});
	load();
	ASSERT_TRUE(add_device("irq_combiner@4", "line:4"));
	ASSERT_TRUE(add_device("irq_combiner@9", "leaf:0x400:3"));
	ASSERT_EQ(regist(inner.leaves[0]), 0);
	for (const unsigned long cpu : {2ul, 1ul}) {
		ASSERT_EQ(pin(inner.leaves[0], cpu), 0);
		for (const char *irq : {"line:4", "leaf:0x400:3", "leaf:0x900:3"})
			EXPECT_EQ(cpus(irq), static_cast<long>(cpu)) << irq;
		clear_events();
		fire_open(inner.leaves[0]);
		expect_events(1);
	}
}

// The controller masks a line while it moves it. What disables the line on another
// CPU must not be undone by that: nobody masks a disabled line once more.
TEST_F(Affinity, a_parent_disabled_while_it_is_moved_stays_masked)
{
	const combiner c{.id = 2, .direct = 1, .leaves = {make_leaf(2, 0, 0), make_leaf(2, 1, 0)}};
	std::atomic<bool> stop = false;
	std::atomic<u32> moves = 0;
	u32 unmasked = 0;

	configure({c});
	load();
	for (const leaf &leaf : c.leaves)
		ASSERT_EQ(regist(leaf), 0);
	const long moved = virq(c.leaves[0]);
	std::thread mover([&] {
		while (!stop) {
			const int code = testbed::set_affinity(moved, 1 + moves % 2);

			EXPECT_TRUE(code == 0 || code == BUSY) << code;
			moves++;
		}
	});
	for (u32 round = 0; round < 1000; round++) {
		ASSERT_EQ(enable(c.leaves[1], 0), 0);
		EXPECT_EQ(depth("line:2"), 1);
		const u32 before = moves;
		EXPECT_TRUE(eventually([&] { return moves >= before + 2; }));
		unmasked += !masked(2);
		ASSERT_EQ(enable(c.leaves[1]), 0);
	}
	stop = true;
	mover.join();
	EXPECT_EQ(unmasked, 0u) << "times unmasked in hardware with a disable depth of 1";
	EXPECT_EQ(depth("line:2"), 0);
	EXPECT_FALSE(masked(2));
}

// Moved while every interrupt disables the parent and every scan enables it: the
// source stays up all the time.
TEST_F(Affinity, a_storm_is_moved_about_and_ends)
{
	combiner c = make_combiner(1, 2);

	c.async = 1;
	configure({c});
	load();
	// Its thread sleeps between two interrupts, or the combiner's would leave no CPU
	// to the one that moves.
	ASSERT_EQ(regist(c.leaves[0], "sleep_ms=2"), 0);
	ASSERT_EQ(regist(c.leaves[1]), 0);
	command("cpld", "assert " + c.leaves[0].name);
	for (u32 round = 0; round < 200; round++)
		ASSERT_EQ(pin(c.leaves[1], 1 + round % 2), 0);
	EXPECT_TRUE(wait_events(10));
	command("cpld", "deassert " + c.leaves[0].name);
	EXPECT_TRUE(eventually([&] { return depth("line:1") == 0 && !masked(1); }));
	clear_events();
	fire_open(c.leaves[1]);
	EXPECT_TRUE(eventually([&] {
		for (const event &event : events())
			if (event.index == c.leaves[1].index)
				return true;
		return false;
	}));
}

} // namespace rig
