// SPDX-License-Identifier: GPL-2.0
//
// One leaf that storms, and those beside it.
#include <algorithm>
#include <chrono>

#include "rig.h"

namespace rig {

namespace {

constexpr u32 ROUNDS = 60;

class Storm : public Scenario {
protected:
	combiner board = make_combiner(0, 3);
	leaf &stuck = board.leaves[0], &neighbour = board.leaves[1];

	void SetUp() override
	{
		Scenario::SetUp();
		// The leaf's bound as a board has it, and the defaults of its parent.
		stuck.allow_max = 250;
		stuck.sync = 1;
		board.allow_max = 2500;
		board.suppress_ms = 1000;
		load({board});
	}

	long suppressions(const std::string &line)
	{
		const std::string virq = "virq=" + std::to_string(ask("board", "virq " + line));
		const std::string count = "suppress_cnt=";

		for (const std::string &text : testbed::lines_of(testbed::read("monitor"))) {
			if (text.starts_with(virq + " "))
				return std::stol(text.substr(text.find(count) + count.size()));
		}
		ADD_FAILURE() << virq << " is not watched";
		return -1;
	}
	std::string line_of(const leaf &leaf)
	{
		return "leaf:" + std::to_string(leaf.index) + ":" + std::to_string(leaf.type);
	}

	bool is_reported(const std::string &text)
	{
		const u32 virq = static_cast<u32>(ask("board", "virq " + line_of(stuck)));

		return report(DRV_INTR_IOC_DBG_VIRQ, virq).find(text) != std::string::npos;
	}

	// Fires the neighbour again and again and prints how long its process waited.
	void expect_neighbour_served(const char *beside)
	{
		subscriber process;
		double mean = 0, longest = 0;

		ASSERT_EQ(subscribe(neighbour, process.port()), 0);
		for (u32 round = 0; round < ROUNDS; round++) {
			ASSERT_TRUE(eventually([&] {
				return depth(neighbour) == 0 &&
				       field_is_set(neighbour, neighbour.levels.back().en);
			}));
			const auto begin = std::chrono::steady_clock::now();
			fire(neighbour);
			ASSERT_TRUE(process.receives(neighbour)) << beside << ", " << round;
			const std::chrono::duration<double, std::micro> took =
				std::chrono::steady_clock::now() - begin;
			mean += took.count() / ROUNDS;
			longest = std::max(longest, took.count());
			ASSERT_EQ(enable(neighbour), 0);
			testbed::sleep_ms(5);
		}
		EXPECT_TRUE(process.silent());
		EXPECT_EQ(unsubscribe(neighbour, process.port()), 0);
		printf("neighbour of %s: %u of %u served, mean %.0f us, longest %.0f us\n", beside,
		       ROUNDS, ROUNDS, mean, longest);
	}
};

TEST_F(Storm, of_one_leaf_disables_that_leaf_and_spares_its_neighbours)
{
	ASSERT_EQ(regist(stuck), 0);
	expect_neighbour_served("a quiet leaf");
	EXPECT_EQ(suppressions(line_of(stuck)), 0);
	for (const char *bound : {" allow_max=250 suppress_ms=1000 policy=1 ",
				  " allow_max=2500 suppress_ms=1000 policy=1 "})
		EXPECT_NE(testbed::read("monitor").find(bound), std::string::npos) << bound;

	command("cpld", "assert " + stuck.name); // and nobody takes it away
	expect_neighbour_served("a stuck leaf");
	EXPECT_GE(suppressions(line_of(stuck)), 1);
	EXPECT_EQ(suppressions("line:0"), 0);
	EXPECT_TRUE(eventually([&] { return is_reported("Suppress state    : 1(0=normal, "); }));
	EXPECT_FALSE(is_reported("Suppress count    : 0"));

	// Its period over and its cause gone, it is back.
	command("cpld", "deassert " + stuck.name);
	EXPECT_TRUE(eventually([&] { return depth(stuck) == 0; }));
	EXPECT_TRUE(is_reported("Suppress state    : 0(0=normal, "));
	EXPECT_EQ(depth("line:0"), 0);
	clear_events();
	fire_open(stuck);
	EXPECT_TRUE(wait_events(1));
}

TEST_F(Storm, that_is_none_disables_nobody)
{
	ASSERT_EQ(regist(stuck), 0);
	ASSERT_EQ(regist(neighbour), 0);
	for (u32 round = 1; round <= 200; round++) { // below the bound of 250
		fire_open(stuck);
		fire_open(neighbour);
		ASSERT_TRUE(wait_events(2 * round));
	}
	EXPECT_EQ(suppressions(line_of(stuck)), 0);
	EXPECT_EQ(suppressions(line_of(neighbour)), 0);
	EXPECT_EQ(suppressions("line:0"), 0);
}

} // namespace

} // namespace rig
