// SPDX-License-Identifier: GPL-2.0
//
// A parent interrupt reaches the right clients, in order, once, in the right
// context, with the registers touched in the right order.
#include <algorithm>

#include "rig.h"

namespace rig {

namespace {

class Delivery : public Scenario {
protected:
	// Both sources rise behind a closed outer level, which then opens: one
	// parent interrupt finds both.
	void fire_together(const std::vector<leaf> &leaves)
	{
		const level &outer = leaves.front().levels.front();
		const std::string reg = "poke 0xffffffff " + std::to_string(outer.chip) + " " +
					std::to_string(outer.en) + " ";

		command("cpld", reg + "0");
		for (const leaf &leaf : leaves)
			fire(leaf);
		command("cpld", reg + "0xffffffff");
	}
};

TEST_F(Delivery, active_leaves_are_called_once_each_in_configuration_order)
{
	combiner c = make_combiner(0, 4);

	for (leaf &leaf : c.leaves)
		leaf.sync = 1;
	// Configuration order is not the order of numbers or registers.
	std::swap(c.leaves[0], c.leaves[3]);
	load({c});
	for (const leaf &leaf : c.leaves)
		ASSERT_EQ(regist(leaf), 0);
	fire_together({c.leaves[0], c.leaves[2], c.leaves[3]});
	expect_events(3);
	const std::vector<event> seen = events();
	ASSERT_EQ(seen.size(), 3u);
	EXPECT_EQ(seen[0].index, c.leaves[0].index);
	EXPECT_EQ(seen[1].index, c.leaves[2].index);
	EXPECT_EQ(seen[2].index, c.leaves[3].index);
}

struct trace_case {
	const char *name;
	u32 async, sync;
};

class LeafTrace : public Delivery, public testing::WithParamInterface<trace_case> {};

// Enable off, status cleared, handler, status cleared, enable on: whatever the
// way of the leaf, and for a threaded one only after its thread function.
TEST_P(LeafTrace, mask_clear_handler_clear_unmask)
{
	combiner c = make_combiner(1, 1, 3);

	c.async = GetParam().async;
	c.leaves[0].sync = GetParam().sync;
	load({c});
	const leaf &leaf = c.leaves[0];
	ASSERT_EQ(regist(leaf), 0);
	clear_trace();
	fire(leaf);
	const std::vector<std::string> expected = {
		enable_write(leaf.levels.back(), 0), clear_write(leaf.levels.back()),
		handler_mark(leaf), clear_write(leaf.levels.back()),
		enable_write(leaf.levels.back(), 1)};
	EXPECT_TRUE(eventually([&] { return changes().size() >= expected.size(); }));
	EXPECT_EQ(changes(), expected);
	record("cpld", changes());
	// Released it is disabled, and at no moment enabled again.
	clear_trace();
	EXPECT_EQ(unregist(leaf), 0);
	EXPECT_EQ(changes(), (std::vector<std::string>{enable_write(leaf.levels.back(), 0),
						       clear_write(leaf.levels.back())}));
}

INSTANTIATE_TEST_SUITE_P(Ways, LeafTrace,
			 testing::Values(trace_case{"sync_on_sync", 0, 1},
					 trace_case{"thread_on_sync", 0, 0},
					 trace_case{"sync_on_async", 1, 1},
					 trace_case{"thread_on_async", 1, 0}),
			 [](const auto &info) { return info.param.name; });

TEST_F(Delivery, context_follows_async_and_sync)
{
	combiner hard = make_combiner(0, 2), threaded = make_combiner(1, 2);

	threaded.async = 1;
	hard.leaves[0].sync = 1;
	threaded.leaves[0].sync = 1;
	load({hard, threaded});
	EXPECT_FALSE(testbed::thread_exists("intr0-handler"));
	EXPECT_TRUE(testbed::thread_is_realtime("intr1-handler"));
	for (const combiner &c : {hard, threaded}) {
		for (const leaf &leaf : c.leaves) {
			clear_events();
			ASSERT_EQ(regist(leaf), 0);
			fire(leaf);
			expect_events(1);
			const std::vector<event> seen = events();
			ASSERT_EQ(seen.size(), 1u) << leaf.name;
			const std::string &context = seen[0].context;
			if (leaf.sync == 0) {
				EXPECT_TRUE(context.starts_with("thread:irq/")) << context;
				EXPECT_NE(context.find("-drv_irq_"), std::string::npos) << context;
			} else {
				EXPECT_EQ(context, c.async ? "thread:intr1-handler" : "hardirq");
			}
			EXPECT_EQ(seen[0].irqs, context == "hardirq" ? "off" : "on") << leaf.name;
		}
	}
	const std::string interrupts = testbed::interrupts();
	EXPECT_NE(interrupts.find("drv_irq_sync_handler"), std::string::npos) << interrupts;
	EXPECT_NE(interrupts.find("drv_irq_async_handler"), std::string::npos) << interrupts;
	EXPECT_NE(interrupts.find("intr0"), std::string::npos) << interrupts;
	EXPECT_NE(interrupts.find("intr1"), std::string::npos) << interrupts;
}

// A client that clears its device in the callback, below a status that simply
// follows the source: nothing else takes the interrupt away.
TEST_F(Delivery, chains_of_one_to_five_levels_are_served)
{
	combiner c{.id = 0, .leaves = {}};

	for (u32 depth = 1; depth <= 5; depth++) {
		leaf leaf = make_leaf(0, depth, depth);
		for (level &level : leaf.levels) {
			level.shift = depth + 8 * (depth % 3); // a branch of its own at every level
			level.mask = 1 + 2 * (depth % 2);
		}
		leaf.levels.back().latched = depth % 2;
		leaf.sync = depth % 2;
		c.leaves.push_back(leaf);
	}
	load({c});
	for (const leaf &leaf : c.leaves) {
		ASSERT_EQ(regist(leaf, "quiesce=" + leaf.name), 0);
		clear_events();
		command("cpld", "assert " + leaf.name);
		ASSERT_TRUE(wait_events(1)) << leaf.name;
		EXPECT_EQ(events().front().index, leaf.index);
		EXPECT_TRUE(eventually([&] { return command("cpld", "line 0") == "0"; }));
	}
}

TEST_F(Delivery, a_full_combiner_loses_and_doubles_nothing)
{
	combiner c = make_combiner(0, 128, 3);

	for (leaf &leaf : c.leaves)
		leaf.sync = leaf.index % 2;
	load({c});
	for (const leaf &leaf : c.leaves)
		ASSERT_EQ(regist(leaf), 0);
	fire_together(c.leaves);
	expect_events(128);
	std::vector<u32> seen;
	for (const event &event : events())
		seen.push_back(event.index);
	std::sort(seen.begin(), seen.end());
	EXPECT_EQ(std::adjacent_find(seen.begin(), seen.end()), seen.end());
	EXPECT_EQ(seen.size(), 128u);
	// The synchronous ones ran inside the one scan, so in order.
	std::vector<u32> sync;
	for (const event &event : events()) {
		if (event.context == "hardirq")
			sync.push_back(event.index);
	}
	EXPECT_TRUE(std::is_sorted(sync.begin(), sync.end()));
	EXPECT_EQ(sync.size(), 64u);
}

TEST_F(Delivery, a_level_without_enable_register_counts_as_enabled)
{
	combiner c = make_combiner(0, 1, 2);

	c.leaves[0].levels[0].en = 0xffffffff;
	load({c});
	ASSERT_EQ(regist(c.leaves[0]), 0);
	clear_trace();
	fire(c.leaves[0]);
	expect_events(1);
	for (const std::string &line : trace())
		EXPECT_EQ(line.find("reg=0xffffffff"), std::string::npos) << line;
}

TEST_F(Delivery, parent_is_disabled_only_during_an_async_scan)
{
	combiner sync = make_combiner(0, 1), async = make_combiner(1, 1);

	async.async = 1;
	async.leaves[0].sync = 1;
	load({sync, async});
	EXPECT_EQ(depth("line:0"), 0);
	EXPECT_EQ(depth("line:1"), 0);
	ASSERT_EQ(regist(sync.leaves[0], "hold=1"), 0);
	ASSERT_EQ(regist(async.leaves[0], "hold=1"), 0);
	fire(sync.leaves[0]);
	fire(async.leaves[0]);
	ASSERT_TRUE(wait_events(2));
	EXPECT_EQ(depth("line:0"), 0); // only the leaf is masked
	EXPECT_EQ(depth("line:1"), 1); // until the scan ends
	command("client", "let_go");
	EXPECT_TRUE(eventually([&] { return depth("line:1") == 0; }));
	EXPECT_EQ(unregist(sync.leaves[0]), 0);
	EXPECT_EQ(unregist(async.leaves[0]), 0);
	EXPECT_EQ(depth("line:0"), 0);
	EXPECT_EQ(depth("line:1"), 0);
}

TEST_F(Delivery, direct_parent_is_disabled_with_its_leaf)
{
	combiner c{.id = 2, .direct = 1, .leaves = {make_leaf(2, 0, 0)}};
	const leaf &leaf = c.leaves[0];

	load({c});
	EXPECT_EQ(depth("line:2"), 1);
	// Closed at its chip too: an asserted line reaches nobody yet.
	command("cpld", "assert " + leaf.name);
	testbed::sleep_ms(10);
	command("cpld", "deassert " + leaf.name);
	clear_trace();
	for (int round = 0; round < 2; round++) {
		clear_events();
		ASSERT_EQ(regist(leaf, "hold=1 quiesce=" + leaf.name), 0);
		EXPECT_EQ(depth("line:2"), 0);
		command("cpld", "assert " + leaf.name);
		ASSERT_TRUE(wait_events(1));
		EXPECT_EQ(depth("line:2"), 1); // masked until the handler gives it back
		command("client", "let_go");
		EXPECT_TRUE(eventually([&] { return depth("line:2") == 0; }));
		EXPECT_EQ(ask("client", "disable 0x200 3"), 0);
		EXPECT_EQ(depth("line:2"), 1);
		EXPECT_EQ(ask("client", "enable 0x200 3"), 0);
		EXPECT_EQ(ask("client", "enable 0x200 3"), 0); // one too many
		EXPECT_EQ(depth("line:2"), 0);
		EXPECT_EQ(unregist(leaf), 0);
		// One from shutting the leaf down, one from its release.
		EXPECT_EQ(depth("line:2"), 2);
		EXPECT_EQ(events().size(), 1u);
	}
	for (const std::string &line : trace())
		EXPECT_TRUE(line.starts_with("mark")) << line; // no register is touched
}

// The line is up when the first client comes: its occurrence is under way before
// the request is through, and what masks the parent for it must stay.
TEST_F(Delivery, direct_leaf_asserted_at_its_request_is_delivered_once)
{
	combiner c{.id = 2, .direct = 1, .leaves = {make_leaf(2, 0, 0)}};
	const leaf &leaf = c.leaves[0];

	load({c});
	for (int round = 0; round < 2; round++) {
		clear_events();
		command("cpld", "assert " + leaf.name);
		ASSERT_EQ(regist(leaf, "hold=1 quiesce=" + leaf.name), 0);
		ASSERT_TRUE(wait_events(1));
		EXPECT_EQ(depth("line:2"), 1);
		command("client", "let_go");
		EXPECT_TRUE(eventually([&] { return depth("line:2") == 0; }));
		EXPECT_EQ(unregist(leaf), 0);
		// Mapped and unmapped without a request: one more disable to undo.
		EXPECT_GT(ask("client", "map 0x200 3"), 0);
		EXPECT_EQ(unregist(leaf), 0);
		EXPECT_EQ(depth("line:2"), 3);
	}
}

// A client enables the leaf before anybody registers for it; what comes then has no
// handler that would open the parent again.
TEST_F(Delivery, direct_leaf_that_fired_before_its_request_is_delivered_after_it)
{
	combiner c{.id = 2, .direct = 1, .leaves = {make_leaf(2, 0, 0)}};
	const leaf &leaf = c.leaves[0];

	configure({c});
	for (const bool given_back : {false, true}) {
		load();
		EXPECT_GT(ask("client", "map 0x200 3"), 0);
		ASSERT_EQ(ask("client", "enable 0x200 3"), 0);
		EXPECT_EQ(depth("line:2"), 0);
		command("cpld", "assert " + leaf.name);
		EXPECT_TRUE(eventually([&] { return depth("line:2") == 1; }));
		command("cpld", "deassert " + leaf.name);
		if (given_back) {
			EXPECT_EQ(unregist(leaf), 0);
			EXPECT_EQ(depth("line:2"), 2);
		}
		clear_events();
		ASSERT_EQ(regist(leaf, "quiesce=" + leaf.name), 0);
		EXPECT_EQ(depth("line:2"), 0);
		command("cpld", "assert " + leaf.name);
		EXPECT_TRUE(wait_events(1));
		EXPECT_EQ(unregist(leaf), 0);
		unload();
	}
}

// An edge leaf that fires while it is disabled is not lost, and a level leaf's
// stale status is not delivered: enabling clears it.
TEST_F(Delivery, enable_replays_an_edge_and_clears_a_level)
{
	combiner c = make_combiner(0, 2);

	c.leaves[0].irq_type = 1;
	load({c});
	for (const leaf &leaf : c.leaves)
		ASSERT_EQ(regist(leaf), 0);
	for (const char *pair : {"0 3", "1 3"})
		ASSERT_EQ(ask("client", std::string("disable ") + pair), 0);
	fire(c.leaves[0]);
	fire(c.leaves[1]);
	testbed::sleep_ms(10);
	EXPECT_TRUE(events().empty());
	for (const char *pair : {"0 3", "1 3"})
		ASSERT_EQ(ask("client", std::string("enable ") + pair), 0);
	expect_events(1);
	EXPECT_EQ(events().front().index, c.leaves[0].index);
}

} // namespace

} // namespace rig
