// SPDX-License-Identifier: GPL-2.0
//
// A combiner whose parent line is a leaf of another combiner.
#include <gmock/gmock.h>

#include "rig.h"

namespace rig {

namespace {

struct nested_case {
	const char *name;
	u32 outer_async, inner_async, outer_irq_type;
};

class Nested : public Scenario, public testing::WithParamInterface<nested_case> {
protected:
	combiner outer = make_combiner(4, 2), inner = make_combiner(9, 3);

	void bring_up()
	{
		outer.async = GetParam().outer_async;
		outer.leaves[1].irq_type = GetParam().outer_irq_type;
		inner.async = GetParam().inner_async;
		inner.leaves[0].sync = 1;
		inner.line = outer.id;
		inner.outer = outer.leaves[1].levels;
		load({outer, inner});
		ASSERT_TRUE(add_device("irq_combiner@4", "line:4"));
		ASSERT_EQ(regist(outer.leaves[0]), 0);
		ASSERT_TRUE(add_device("irq_combiner@9", "leaf:0x401:3"));
		// Where the dispatch runs in a thread the handler may sleep.
		const bool threaded = outer.async || inner.async;
		ASSERT_EQ(regist(inner.leaves[0], threaded ? "sleep_ms=30" : ""), 0);
		ASSERT_EQ(regist(inner.leaves[1]), 0);
		ASSERT_EQ(regist(inner.leaves[2]), 0);
	}
};

TEST_P(Nested, every_occurrence_is_delivered_and_no_line_stays_disabled)
{
	bring_up();
	for (u32 shot = 0; shot < 40; shot++) {
		const leaf &leaf = inner.leaves[shot % inner.leaves.size()];
		clear_events();
		fire_open(leaf);
		ASSERT_TRUE(wait_events(1)) << "shot " << shot;
		EXPECT_EQ(events().front().index, leaf.index);
	}
	// Through with everything: nothing is left disabled, inside or outside.
	EXPECT_TRUE(eventually([&] { return depth("leaf:0x401:3") == 0 && depth("line:4") == 0; }));
	expect_delivery(outer.leaves[0]);
}

TEST_P(Nested, parent_leaf_is_the_inner_combiners_alone)
{
	bring_up();
	EXPECT_EQ(ask("client", "regist 0x401 3"), 14);
	EXPECT_EQ(ask("client", "unregist 0x401 3"), 0);
	EXPECT_FALSE(logged("requested by another driver"));
	EXPECT_GT(ask("client", "find 0x401 3"), 0);
	// A second combiner behind the same leaf is refused, and the first lives on.
	EXPECT_FALSE(add_device("irq_combiner@10", "leaf:0x401:3"));
	EXPECT_TRUE(logged("parent leaf in use or direct, index_id=0x401, type=3"));
	expect_delivery(inner.leaves[1]);
}

// Its leaf can be used like any other once the combiner behind it has gone.
TEST_P(Nested, parent_leaf_is_free_once_the_inner_one_has_gone)
{
	bring_up();
	fire(inner.leaves[1]);
	ASSERT_TRUE(wait_events(1));
	del_device("irq_combiner@9");
	ASSERT_EQ(regist(outer.leaves[1]), 0);
	expect_delivery(outer.leaves[1]);
	EXPECT_EQ(unregist(outer.leaves[1]), 0);
}

// It may sleep wherever a thread further out dispatches it, and is waited for.
TEST_P(Nested, a_leaf_is_released_during_its_callback)
{
	bring_up();
	for (const leaf &leaf : {inner.leaves[0], inner.leaves[1]}) {
		clear_events();
		ASSERT_EQ(unregist(leaf), 0);
		const bool sleeps = GetParam().outer_async || GetParam().inner_async || !leaf.sync;
		ASSERT_EQ(regist(leaf, sleeps ? "sleep_ms=30" : ""), 0);
		clear_trace();
		fire(leaf);
		ASSERT_TRUE(wait_events(1));
		EXPECT_EQ(unregist(leaf), 0);
		if (sleeps) {
			EXPECT_THAT(trace(), testing::Contains(testing::StartsWith("mark done")));
		}
	}
	expect_delivery(inner.leaves[2]);
}

// The inner one goes while a handler of its own keeps a pass of it open.
TEST_P(Nested, removing_the_inner_one_during_a_callback_spares_the_outer_one)
{
	bring_up();
	fire(inner.leaves[0]);
	ASSERT_TRUE(wait_events(1));
	fire(inner.leaves[1]);
	del_device("irq_combiner@9");
	expect_delivery(outer.leaves[0]);
}

TEST_P(Nested, removing_the_outer_one_frees_the_inner_one_first)
{
	bring_up();
	fire(inner.leaves[0]);
	ASSERT_TRUE(wait_events(1));
	del_device("irq_combiner@4");
	EXPECT_TRUE(logged("combiner 9 is cascaded to a leaf of combiner 4, freed first"));
	// Its device is still there, and has no combiner any more.
	clear_log();
	del_device("irq_combiner@9");
	EXPECT_TRUE(logged("2 [intr dts dev remove]combiner ptr is NULL"));
}

INSTANTIATE_TEST_SUITE_P(Kinds, Nested,
			 testing::Values(nested_case{"sync_in_sync", 0, 0, 8},
					 nested_case{"async_in_sync", 0, 1, 8},
					 nested_case{"sync_in_async", 1, 0, 8},
					 nested_case{"async_in_async", 1, 1, 8},
					 nested_case{"async_in_sync_edge", 0, 1, 1}),
			 [](const auto &info) { return info.param.name; });

} // namespace

} // namespace rig
