// SPDX-License-Identifier: GPL-2.0
//
// An edge that came while nobody could take it is kept by the kernel and replayed when
// the leaf is enabled or requested. Where a handler may sleep, it may in a replay too.
//
// While it is disabled its enable field is off, and nothing is dispatched: the test sets
// the field itself, in place of a disable that comes between a scan and its dispatch.
#include <atomic>
#include <thread>

#include "rig.h"

namespace rig {

class Replay : public Scenario {
protected:
	static void make_edge(leaf &leaf)
	{
		leaf.irq_type = 1;
		leaf.sync = 1;
	}

	void poke(const leaf &leaf, u32 reg, bool on)
	{
		const level &own = leaf.levels.back();

		command("cpld", "poke " + std::to_string(leaf.inst) + " " +
					std::to_string(own.chip) + " " + std::to_string(reg) + " " +
					std::to_string(on ? 1u << own.shift : 0u));
	}

	// The leaf is disabled. What is still active comes again, so the second
	// interrupt says that the first is through.
	void dispatch_disabled(const combiner &combiner, const leaf &leaf)
	{
		const level &own = leaf.levels.back();
		const size_t before = parent_interrupts(combiner);

		poke(leaf, own.en, true);
		fire(leaf);
		EXPECT_TRUE(eventually([&] { return parent_interrupts(combiner) >= before + 2; }))
			<< leaf.name << " is not dispatched";
		poke(leaf, own.en, false);
		poke(leaf, own.status, false);
	}

	// An occurrence before the registration, and some while a subscriber has the leaf
	// disabled: each is kept, and replayed where the leaf's handler belongs.
	void expect_replays(const combiner &combiner, const leaf &leaf, const std::string &context)
	{
		ASSERT_NE(ask("client", "map " + pair_of(leaf)), 0);
		EXPECT_EQ(ask("client", "enable " + pair_of(leaf)), 0);
		fire_open(leaf);
		EXPECT_TRUE(eventually([&] { return !field_is_set(leaf, leaf.levels.back().en); }));
		clear_events();
		ASSERT_EQ(regist(leaf), 0);
		ASSERT_TRUE(wait_events(1));
		EXPECT_EQ(events()[0].irqs, "on");

		subscriber process;
		ASSERT_EQ(subscribe(leaf, process.port()), 0);
		for (size_t round = 0; round < 3; round++) {
			fire_open(leaf);
			ASSERT_TRUE(process.receives(leaf)) << round;
			ASSERT_TRUE(wait_events(2 * round + 2));
			dispatch_disabled(combiner, leaf);
			EXPECT_EQ(enable(leaf), 0);
			EXPECT_TRUE(process.receives(leaf)) << round;
			EXPECT_EQ(enable(leaf), 0);
			EXPECT_TRUE(process.silent()) << round;
		}
		expect_events(1 + 2 * 3);
		for (const event &event : events())
			EXPECT_EQ(event.context, context);
		EXPECT_FALSE(logged("not in task contex"));
		EXPECT_EQ(depth(leaf), 0);
		EXPECT_EQ(unregist(leaf), 0);
	}
};

TEST_F(Replay, in_the_combiners_thread)
{
	combiner c = make_combiner(1, 2);

	c.async = 1;
	make_edge(c.leaves[0]);
	configure({c});
	load();
	expect_replays(c, c.leaves[0], "thread:intr1-handler");
	EXPECT_EQ(depth("line:1"), 0);
	// The thread scans as before.
	clear_events();
	ASSERT_EQ(regist(c.leaves[1]), 0);
	fire(c.leaves[1]);
	expect_events(1);
}

TEST_F(Replay, in_the_thread_of_the_combiner_further_out)
{
	combiner outer = make_combiner(4, 2), inner = make_combiner(9, 2);

	outer.async = 1;
	make_edge(inner.leaves[1]);
	inner.line = outer.id;
	inner.outer = outer.leaves[1].levels;
	configure({outer, inner});
	load();
	ASSERT_TRUE(add_device("irq_combiner@4", "line:4"));
	ASSERT_TRUE(add_device("irq_combiner@9", "leaf:0x401:3"));
	expect_replays(inner, inner.leaves[1], "thread:intr4-handler");
	EXPECT_EQ(depth("line:4"), 0);
	EXPECT_EQ(depth("leaf:0x401:3"), 0);
}

// A replay that is due belongs to one mapping, and the line is in order after it.
TEST_F(Replay, while_leaves_are_disabled_released_and_requested)
{
	static constexpr int ROUNDS = 60;
	combiner c = make_combiner(1, 2);
	const leaf &leaf = c.leaves[0];
	std::atomic<bool> done = false;

	c.async = 1;
	for (rig::leaf &edge : c.leaves)
		make_edge(edge);
	configure({c});
	load();
	testbed::expedite_rcu(true);
	ASSERT_EQ(regist(c.leaves[1]), 0);
	// Also the leaf that comes and goes: its start makes it enabled, and an enable
	// that has looked before would be one too many.
	std::thread gating([&] {
		while (!done)
			for (const rig::leaf &edge : c.leaves) {
				(void)enable(edge, 0);
				(void)enable(edge);
			}
	});
	std::thread firing([&] {
		while (!done)
			for (const rig::leaf &edge : c.leaves)
				fire(edge);
	});
	for (int round = 0; round < ROUNDS; round++) {
		EXPECT_EQ(regist(leaf), 0);
		EXPECT_EQ(unregist(leaf), 0);
	}
	done = true;
	gating.join();
	firing.join();
	testbed::expedite_rcu(false);
	EXPECT_TRUE(eventually([&] { return depth("line:1") == 0; }));
	EXPECT_EQ(unregist(c.leaves[1]), 0);
	clear_events();
	ASSERT_EQ(regist(leaf), 0);
	fire_open(leaf);
	expect_events(1);
	EXPECT_EQ(events()[0].context, "thread:intr1-handler");
}

} // namespace rig
