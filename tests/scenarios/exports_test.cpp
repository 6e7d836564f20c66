// SPDX-License-Identifier: GPL-2.0
//
// The interface for other kernel modules, and what its users may do to each
// other.

#include <gmock/gmock.h>

#include "rig.h"

namespace rig {

namespace {

class Exports : public Scenario {};

TEST_F(Exports, mapping_lasts_from_first_demand_to_last_user)
{
	const combiner c = make_combiner(0, 2);

	load({c});
	clear_log();
	EXPECT_EQ(ask("client", "find 0 3"), 0);
	EXPECT_TRUE(log().empty());
	clear_trace();
	const long virq = ask("client", "map 0 3");
	ASSERT_GT(virq, 0);
	// What was latched before is nobody's.
	EXPECT_EQ(changes(), std::vector<std::string>{clear_write(c.leaves[0].levels.back())});
	const std::vector<std::string> expected = {
		"2 [mapping irq]index_id=0x0, type=3",
		"2 [mapping irq]clear irq int state, virq=" + std::to_string(virq),
		"2 [mapping irq]success, virq=" + std::to_string(virq),
	};
	EXPECT_EQ(log(), expected);
	clear_log();
	clear_trace();
	EXPECT_EQ(ask("client", "map 0 3"), virq);
	EXPECT_EQ(ask("client", "find 0 3"), virq);
	EXPECT_TRUE(log().empty());
	EXPECT_TRUE(trace().empty());
	// Nobody registered: unregistering disposes of the mapping.
	EXPECT_EQ(ask("client", "unregist 0 3"), 0);
	EXPECT_EQ(ask("client", "find 0 3"), 0);
	record();
}

TEST_F(Exports, packed_key_names_index_and_type)
{
	combiner c = make_combiner(0, 2);

	c.leaves[0].index = 0xffffffff;
	c.leaves[0].type = 7;
	c.leaves[1].index = 0x12;
	c.leaves[1].type = 7;
	load({c});
	EXPECT_EQ(ask("client", "bspfind 0x7ffff"), 0);
	const long virq = ask("client", "bspmap 0x7ffff");
	EXPECT_GT(virq, 0);
	EXPECT_EQ(ask("client", "find 0xffffffff 7"), virq);
	EXPECT_EQ(ask("client", "bspfind 0x7ffff"), virq);
	EXPECT_GT(ask("client", "bspmap 0x70012"), 0);
	EXPECT_EQ(ask("client", "bspmap 0x80012"), 0);
}

TEST_F(Exports, unknown_and_unmapped_leaves_are_refused)
{
	load({make_combiner(0, 1)});
	clear_log();
	EXPECT_EQ(ask("client", "map 0x99 3"), 0);
	EXPECT_EQ(ask("client", "find 0x99 3"), 0);
	EXPECT_EQ(ask("client", "regist 0x99 3"), 14);
	EXPECT_EQ(ask("client", "unregist 0x99 3"), 22);
	EXPECT_EQ(ask("client", "enable 0x99 3"), 22);
	EXPECT_EQ(ask("client", "disable 0x99 3"), 22);
	EXPECT_EQ(ask("client", "enable 0 3"), 22);
	EXPECT_EQ(ask("client", "disable 0 3"), 22);
	const std::vector<std::string> expected = {
		"2 [mapping irq]not support para, index_id=0x99, type=3",
		"2 [find mapping irq]not support para, index_id=0x99, type=3",
		"2 [mapping irq]not support para, index_id=0x99, type=3",
		"2 [intr set unregist]not support para, index_id=0x99, type=3",
		"2 [intr enable]not support para, index_id=0x99, type=3",
		"2 [intr disable]not support para, index_id=0x99, type=3",
		"1 [intr enable]virq invalid, index_id=0x0, type=3",
		"1 [intr disable]virq invalid, index_id=0x0, type=3",
	};
	EXPECT_EQ(log(), expected);
	record();
}

TEST_F(Exports, the_first_callback_stays)
{
	const combiner c = make_combiner(0, 1);

	load({c});
	ASSERT_EQ(regist(c.leaves[0], "tag=first"), 0);
	EXPECT_EQ(regist(c.leaves[0], "tag=second"), 0);
	EXPECT_TRUE(logged("2 [intr set regist]success, handler already exist"));
	fire(c.leaves[0]);
	expect_events(1);
	EXPECT_EQ(events().front().tag, "first");
	EXPECT_EQ(unregist(c.leaves[0]), 0);
	clear_events();
	fire(c.leaves[0]);
	ASSERT_EQ(regist(c.leaves[0], "tag=second"), 0);
	fire(c.leaves[0]);
	expect_events(1); // what came without a client was cleared by the mapping
	EXPECT_EQ(events().front().tag, "second");
}

TEST_F(Exports, registration_and_release_log_exactly_these_lines)
{
	const combiner c = make_combiner(0, 1);

	load({c});
	const std::string virq = std::to_string(ask("client", "map 0 3"));
	clear_log();
	clear_trace();
	ASSERT_EQ(regist(c.leaves[0]), 0);
	ASSERT_EQ(unregist(c.leaves[0]), 0);
	EXPECT_EQ(log(), (std::vector<std::string>{
				 "2 [intr set regist]enter, index_id=0x0, type=3",
				 "2 [intr request irq]enter, index_id=0x0, type=3",
				 "2 [intr set unregist]enter, index_id=0x0, type=3",
				 "2 [intr free irq]enter, virq=" + virq + ", hwirq=0",
				 "2 [intr free irq]success", "2 [intr set unregist]success"}));
	record();
}

TEST_F(Exports, callback_may_enable_and_disable_its_own_leaf)
{
	combiner c = make_combiner(0, 2);

	c.leaves[0].sync = 1;
	load({c});
	for (const leaf &leaf : c.leaves) {
		clear_events();
		ASSERT_EQ(regist(leaf, "then=disable"), 0);
		fire(leaf);
		ASSERT_TRUE(wait_events(1));
		const std::string name = "leaf:" + std::to_string(leaf.index) + ":3";
		EXPECT_TRUE(eventually([&] { return depth(name) == 1; })) << leaf.name;
		fire(leaf);
		testbed::sleep_ms(10);
		EXPECT_EQ(events().size(), 1u) << leaf.name;
		EXPECT_EQ(ask("client", "enable " + std::to_string(leaf.index) + " 3"), 0);
		fire_open(leaf);
		EXPECT_TRUE(wait_events(2)) << leaf.name;
		EXPECT_EQ(unregist(leaf), 0);
		ASSERT_EQ(regist(leaf, "then=enable"), 0);
		expect_delivery(leaf);
	}
}

// The handler of a synchronous leaf sleeps in the combiner's thread; releasing
// the leaf meanwhile waits for it without spinning.
TEST_F(Exports, unregister_waits_for_a_running_callback)
{
	combiner c = make_combiner(1, 3);

	c.async = 1;
	c.leaves[0].sync = 1;
	load({c});
	for (size_t i = 0; i < 2; i++) {
		const leaf &leaf = c.leaves[i];
		clear_trace();
		clear_events();
		ASSERT_EQ(regist(leaf, "sleep_ms=80 quiesce=" + leaf.name), 0);
		fire(leaf);
		ASSERT_TRUE(wait_events(1));
		EXPECT_EQ(unregist(leaf), 0);
		char done[64];
		snprintf(done, sizeof(done), "mark done index=0x%x type=%u", leaf.index, leaf.type);
		EXPECT_THAT(trace(), testing::Contains(done));
		fire(leaf);
		testbed::sleep_ms(20);
		EXPECT_EQ(events().size(), 1u) << leaf.name;
		EXPECT_EQ(ask("client", "find " + std::to_string(leaf.index) + " 3"), 0);
	}
	// The thread is alive and the line open.
	clear_events();
	ASSERT_EQ(regist(c.leaves[2]), 0);
	fire(c.leaves[2]);
	expect_events(1);
}

} // namespace

} // namespace rig
