// SPDX-License-Identifier: GPL-2.0
//
// Registrations that a client must not make: without a callback, and from where the
// driver would wait for the caller itself.
#include <algorithm>
#include <thread>

#include "rig.h"

namespace rig {

class Registration : public Scenario {
protected:
	bool mapped(const leaf &leaf) { return ask("client", "find " + pair_of(leaf)) != 0; }
};

// Nothing would be registered: the leaf is not even mapped, or goes on as it is.
TEST_F(Registration, without_a_callback_is_refused_and_changes_nothing)
{
	const combiner c = make_combiner(0, 1);
	const leaf &leaf = c.leaves[0];
	static constexpr int NOT_USABLE = 22;

	configure({c});
	load();
	clear_log();
	clear_trace();
	EXPECT_EQ(regist(leaf, "null=1"), NOT_USABLE);
	EXPECT_EQ(ask("client", "regist 0x99 3 null=1"), NOT_USABLE) << "whatever the leaf";
	EXPECT_EQ(log(), (std::vector<std::string>{
				 "1 [intr set regist]null handler, index_id=0x0, type=3",
				 "1 [intr set regist]null handler, index_id=0x99, type=3"}));
	EXPECT_TRUE(trace().empty());
	EXPECT_FALSE(mapped(leaf));

	ASSERT_EQ(regist(leaf), 0);
	EXPECT_EQ(regist(leaf, "null=1"), NOT_USABLE);
	fire(leaf);
	expect_events(1);
	EXPECT_EQ(unregist(leaf), 0);
	EXPECT_FALSE(mapped(leaf));
}

struct own_way {
	const char *name;
	u32 async, sync;
	const char *refused; // where the driver says it was called
};

class OwnCallback : public Registration, public testing::WithParamInterface<own_way> {};

// The release waits for the callback, which would wait for the release.
TEST_P(OwnCallback, can_neither_register_nor_unregister)
{
	combiner c = make_combiner(1, 2);
	const leaf &leaf = c.leaves[0];
	const std::string refused =
		std::string("]refused in ") + GetParam().refused + ", index_id=0x100, type=3";

	c.async = GetParam().async;
	c.leaves[0].sync = GetParam().sync;
	configure({c});
	load();
	for (const std::string call : {"unregist", "regist"}) {
		clear_log();
		clear_trace();
		clear_events();
		ASSERT_EQ(regist(leaf, "then=" + call), 0);
		for (size_t round = 1; round <= 2; round++) {
			fire_open(leaf);
			ASSERT_TRUE(wait_events(round));
			EXPECT_TRUE(eventually([&] { return count_logged(refused) == round; }));
		}
		EXPECT_TRUE(logged("1 [intr set " + call + refused));
		EXPECT_TRUE(eventually([&] {
			const std::vector<std::string> lines = trace();
			return std::count(lines.begin(), lines.end(), "mark then ret=22") == 2;
		}));
		EXPECT_EQ(unregist(leaf), 0);
		EXPECT_FALSE(mapped(leaf));
	}
	// The combiner is as it was.
	clear_events();
	ASSERT_EQ(regist(c.leaves[1]), 0);
	fire(c.leaves[1]);
	expect_events(1);
}

INSTANTIATE_TEST_SUITE_P(Ways, OwnCallback,
			 testing::Values(own_way{"hard_interrupt", 0, 1, "an interrupt"},
					 own_way{"combiner_thread", 1, 1,
						 "the leaf's own callback"},
					 own_way{"leaf_thread", 0, 0, "the leaf's own callback"}),
			 [](const auto &info) { return info.param.name; });

// Somebody else waits for the callback with the leaf's lock: the callback must not
// wait for that lock either.
TEST_F(Registration, in_the_own_callback_while_another_releases_the_leaf)
{
	const combiner c = make_combiner(0, 1);
	const leaf &leaf = c.leaves[0];

	configure({c});
	load();
	for (const char *call : {"unregist", "regist"}) {
		clear_log();
		clear_events();
		ASSERT_EQ(regist(leaf, std::string("hold=1 then=") + call), 0);
		fire(leaf);
		ASSERT_TRUE(wait_events(1));
		std::thread releasing([&] { EXPECT_EQ(unregist(leaf), 0); });
		EXPECT_TRUE(eventually([&] { return logged("[intr set unregist]enter"); }));
		command("client", "let_go");
		releasing.join();
		EXPECT_TRUE(logged("]refused in the leaf's own callback"));
		EXPECT_FALSE(mapped(leaf));
	}
}

} // namespace rig
