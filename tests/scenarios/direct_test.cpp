// SPDX-License-Identifier: GPL-2.0
//
// A direct combiner, whose parent line is all that can be masked: a source that
// stays up, and a monitor that disables the line as well.
#include <atomic>
#include <thread>

#include "rig.h"

namespace rig {

class Direct : public Scenario {
protected:
	combiner c{.id = 2, .direct = 1, .leaves = {make_leaf(2, 0, 0)}};
	const leaf &source = c.leaves[0];

	void bring_up()
	{
		configure({c});
		load();
	}

	bool masked(u32 line) { return ask("board", "masked " + std::to_string(line)) != 0; }
};

// The leaf is masked until its thread is through. A parent that is enabled before
// interrupts for a leaf that is masked already, and nobody disables it again.
TEST_F(Direct, a_source_that_stays_up_waits_for_the_unmask_of_its_leaf)
{
	bring_up();
	ASSERT_EQ(regist(source, "hold=1"), 0);
	// The thread runs where the parent interrupts.
	ASSERT_EQ(testbed::set_affinity(ask("client", "find " + pair_of(source)), 2), 0);
	command("cpld", "assert " + source.name);
	for (size_t round = 1; round <= 20; round++) {
		ASSERT_TRUE(wait_events(round));
		EXPECT_EQ(depth("line:2"), 1);
		EXPECT_TRUE(masked(2));
		EXPECT_EQ(parent_interrupts(c), round);
		if (round == 20)
			command("cpld", "deassert " + source.name);
		command("client", "let_go");
	}
	EXPECT_TRUE(eventually([&] { return depth("line:2") == 0 && !masked(2); }));
	// Released while its source is up, and requested again.
	for (int round = 0; round < 3; round++) {
		clear_events();
		command("cpld", "assert " + source.name);
		ASSERT_TRUE(wait_events(1));
		// The callback that is let go may be followed by one more, which the
		// release waits for.
		std::atomic<bool> released = false;
		std::thread owner([&] {
			EXPECT_EQ(unregist(source), 0);
			released = true;
		});
		while (!released) {
			command("client", "let_go");
			testbed::sleep_ms(1);
		}
		owner.join();
		EXPECT_EQ(depth("line:2"), 2);
		command("cpld", "deassert " + source.name);
		ASSERT_EQ(regist(source, "hold=1"), 0);
		EXPECT_EQ(depth("line:2"), 0);
	}
	command("client", "let_go");
}

// The monitor's disable stands beside that of the leaf's mask: neither the handler nor
// the unmask may take it back, nor a client.
TEST_F(Direct, a_suppressed_parent_stays_disabled_over_the_unmask_of_its_leaf)
{
	combiner sync{.id = 3, .direct = 1, .leaves = {make_leaf(3, 0, 0)}};

	sync.leaves[0].sync = 1;
	for (combiner *storm : {&c, &sync}) {
		storm->allow_max = 3;
		storm->suppress_ms = 4000;
	}
	configure({c, sync});
	load();
	const auto is_suppressed = [&](const combiner &storm) {
		return depth("line:" + std::to_string(storm.id)) == 1 && masked(storm.id);
	};
	for (const combiner &storm : {c, sync}) {
		const leaf &up = storm.leaves[0];

		clear_events();
		ASSERT_EQ(regist(up), 0);
		command("cpld", "assert " + up.name);
		ASSERT_TRUE(wait_events(4));
		EXPECT_TRUE(eventually([&] { return is_suppressed(storm); })) << up.name;
		ASSERT_EQ(enable(up, 0), 0);
		EXPECT_EQ(depth("line:" + std::to_string(storm.id)), 2);
		ASSERT_EQ(enable(up), 0);
		ASSERT_EQ(enable(up), 0); // one too many
		EXPECT_TRUE(is_suppressed(storm)) << up.name;
		// A release disables the line once more, and its request enables it so often.
		for (int round = 0; round < 2; round++) {
			ASSERT_EQ(unregist(up), 0);
			ASSERT_EQ(regist(up), 0);
			EXPECT_TRUE(is_suppressed(storm)) << up.name;
		}
		expect_events(4); // the source is still up
		EXPECT_TRUE(is_suppressed(storm)) << up.name;
		command("cpld", "deassert " + up.name);
	}
	for (const combiner &storm : {c, sync}) {
		const std::string line = "line:" + std::to_string(storm.id);

		EXPECT_TRUE(eventually([&] { return depth(line) == 0 && !masked(storm.id); }));
		clear_events();
		command("cpld", "assert " + storm.leaves[0].name);
		EXPECT_TRUE(wait_events(1));
		command("cpld", "deassert " + storm.leaves[0].name);
	}
}

} // namespace rig
