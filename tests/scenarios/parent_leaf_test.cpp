// SPDX-License-Identifier: GPL-2.0
//
// A leaf while it is the parent line of another combiner, and when it no longer is.
#include <algorithm>
#include <tuple>

#include "sources.h"

namespace rig {

class ParentLeaf : public Sources {
protected:
	combiner outer = make_combiner(4, 2), inner = make_combiner(9, 1);
	const leaf &parent = outer.leaves[1];

	ParentLeaf()
	{
		inner.line = outer.id;
		inner.outer = parent.levels;
	}

	void start()
	{
		configure({outer, inner});
		load();
		ASSERT_TRUE(add_device("irq_combiner@4", "line:4"));
	}

	void start_both()
	{
		start();
		ASSERT_TRUE(add_device("irq_combiner@9", "leaf:0x401:3"));
		ASSERT_EQ(regist(inner.leaves[0]), 0);
	}
};

// A storm of the inner combiner has its parent disabled by the monitor. A client that
// enables it would undo that, and the monitor would enable once too often.
TEST_F(ParentLeaf, clients_neither_enable_nor_disable_it)
{
	inner.allow_max = 1;
	inner.suppress_ms = 2000;
	start();
	table().nodes["irq_combiner@9"]["global_cfg"]["policy"] = 1;
	install();
	ASSERT_TRUE(add_device("irq_combiner@9", "leaf:0x401:3"));
	ASSERT_EQ(regist(inner.leaves[0]), 0);
	fire(inner.leaves[0]);
	ASSERT_TRUE(wait_events(1));
	clear_events();
	fire_open(inner.leaves[0]);
	ASSERT_TRUE(wait_events(1));
	ASSERT_EQ(depth(parent), 1) << "the monitor does not suppress";
	EXPECT_EQ(ask("client", "enable 0x401 3"), 22);
	EXPECT_EQ(ask("client", "disable 0x401 3"), 22);
	EXPECT_EQ(enable(parent, 1), REFUSED);
	EXPECT_EQ(enable(parent, 0), REFUSED);
	EXPECT_TRUE(logged("1 [intr enable]leaf is the parent of combiner 9, index_id=0x401, "
			   "type=3"));
	EXPECT_TRUE(logged("1 [intr disable]leaf is the parent of combiner 9, index_id=0x401, "
			   "type=3"));
	EXPECT_EQ(depth(parent), 1);
	EXPECT_TRUE(eventually([&] { return depth(parent) == 0; }));
	expect_delivery(inner.leaves[0]);
}

// A leaf that is a parent is enabled when the combiner behind it has its own leaves
// disabled and its levels open, not before.
TEST_F(ParentLeaf, is_enabled_when_the_inner_set_up_is_through)
{
	start();
	ASSERT_EQ(ask("client", "map 0x401 3") > 0, true);
	clear_trace();
	ASSERT_TRUE(add_device("irq_combiner@9", "leaf:0x401:3"));
	const std::vector<std::string> lines = trace();
	const auto at = [&](const std::string &line) {
		return std::ranges::find(lines, "write inst=0xffffffff " + line) - lines.begin();
	};
	const auto enabled = at("chip=5 reg=0x40 shift=1 mask=0x1 value=0x1");
	const auto inner_disabled = at("chip=10 reg=0x40 shift=0 mask=0x1 value=0x0");
	const auto inner_level = at("chip=10 reg=0x10 shift=0 mask=0x1 value=0x1");
	EXPECT_LT(inner_disabled, inner_level) << testing::PrintToString(lines);
	EXPECT_LT(inner_level, enabled) << testing::PrintToString(lines);
	EXPECT_LT(enabled, static_cast<long>(lines.size())) << testing::PrintToString(lines);
	// It was claimed before that: nobody could request it in between.
	EXPECT_EQ(regist(parent), 14);
	EXPECT_EQ(depth(parent), 0);
}

// The inner combiner goes: the leaf is as its mapping left it, and any way to use it
// is open again.
TEST_F(ParentLeaf, can_be_enabled_and_requested_afterwards)
{
	start_both();
	expect_delivery(inner.leaves[0]);
	del_device("irq_combiner@9");
	EXPECT_EQ(depth(parent), 1);
	EXPECT_FALSE(field_is_set(parent, parent.levels.back().en));
	EXPECT_EQ(ask("client", "enable 0x401 3"), 0);
	EXPECT_EQ(depth(parent), 0);
	EXPECT_TRUE(field_is_set(parent, parent.levels.back().en));
	EXPECT_EQ(ask("client", "disable 0x401 3"), 0);
	ASSERT_EQ(regist(parent), 0);
	expect_delivery(parent);
	EXPECT_EQ(unregist(parent), 0);
	ASSERT_TRUE(add_device("irq_combiner@9", "leaf:0x401:3"));
	ASSERT_EQ(regist(inner.leaves[0]), 0);
	expect_delivery(inner.leaves[0]);
}

// A combiner that was handed its parent leaf does not unmap it, even where its
// configuration speaks of a leaf: only a card's combiner maps one by itself.
TEST_F(ParentLeaf, that_was_handed_over_stays_mapped)
{
	for (const auto &[int_type, index, type] :
	     {std::tuple(2u, 0u, 3u), {0u, 0u, 0u}, {2u, 5u, 0u}}) {
		combiner board = make_combiner(0, 1);
		const leaf &handed_over = board.leaves[0];

		board.leaves[0].index = index;
		board.leaves[0].type = type;
		inner.int_type = int_type;
		inner.line = board.line;
		inner.outer = handed_over.levels;
		configure({board, inner});
		load();
		const long virq = ask("client", "map " + pair_of(handed_over));
		ASSERT_TRUE(add_device("irq_combiner@9", "leaf:" + std::to_string(index) + ":" +
								 std::to_string(type)));
		ASSERT_EQ(regist(inner.leaves[0]), 0);
		expect_delivery(inner.leaves[0]);
		del_device("irq_combiner@9");
		EXPECT_EQ(ask("client", "find " + pair_of(handed_over)), virq);
		ASSERT_EQ(regist(handed_over), 0);
		expect_delivery(handed_over);
		unload();
		command("cpld", "reset");
	}
}

// Three deep, torn down from the outermost: the innermost goes first, each takes
// nothing that it does not have, and all can come again.
TEST_F(ParentLeaf, three_deep_goes_from_the_inside)
{
	for (const u32 async : {0u, 1u}) {
		SCOPED_TRACE(async ? "async outside" : "in the handler");
		combiner third = make_combiner(12, 1), second = make_combiner(9, 2);

		outer.async = async;
		second.line = third.line = outer.line;
		second.outer = parent.levels;
		third.outer = second.outer;
		third.outer.insert(third.outer.end(), second.leaves[1].levels.begin(),
				   second.leaves[1].levels.end());
		configure({outer, second, third});
		if (!loaded())
			load();
		ASSERT_TRUE(add_device("irq_combiner@4", "line:4"));
		ASSERT_TRUE(add_device("irq_combiner@9", "leaf:0x401:3"));
		ASSERT_TRUE(add_device("irq_combiner@12", "leaf:0x901:3"));
		for (const leaf *leaf : {&outer.leaves[0], &second.leaves[0], &third.leaves[0]}) {
			ASSERT_EQ(regist(*leaf), 0);
			expect_delivery(*leaf);
		}
		clear_log();
		del_device("irq_combiner@4");
		std::vector<std::string> lines =
			log_with({"freed first", "combiner free]enter", "combiner free]success",
				  "combiner_thread]exit"});
		if (async) { // before the outermost is through, and after all others
			EXPECT_EQ(lines.at(lines.size() - 2),
				  "2 [drv_intr_combiner_thread]exit, intr4");
			lines.erase(lines.end() - 2);
		}
		EXPECT_EQ(
			lines,
			(std::vector<std::string>{
				"2 [intr combiner free]enter, id=4",
				"1 [intr combiner free]combiner 12 is cascaded to a leaf of "
				"combiner 9, freed first",
				"2 [intr combiner free]enter, id=12",
				"2 [intr combiner free]success",
				"1 [intr combiner free]combiner 9 is cascaded to a leaf of "
				"combiner 4, freed first",
				"2 [intr combiner free]enter, id=9",
				"2 [intr combiner free]success", "2 [intr combiner free]success"}));
		EXPECT_EQ(combiners(), (std::vector<u32>{0, 1, 2, 3}));
		del_device("irq_combiner@12");
		del_device("irq_combiner@9");
		command("cpld", "reset");
	}
}

// What somebody else enabled meanwhile is disabled again.
TEST_F(ParentLeaf, levels_of_a_leaf_are_disabled_at_tear_down)
{
	start_both();
	ASSERT_EQ(unregist(inner.leaves[0]), 0);
	for (const auto &[chip, id] : {std::pair("10", "9"), std::pair("5", "4")}) {
		command("cpld", std::string("poke 0xffffffff ") + chip + " 0x40 0xff");
		del_device(std::string("irq_combiner@") + id);
		// The bits that are no leaf's stay as they are.
		EXPECT_EQ(command("cpld", std::string("peek 0xffffffff ") + chip + " 0x40"),
			  *id == '9' ? "0xfe" : "0xfc");
	}
}

} // namespace rig
