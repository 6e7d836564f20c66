// SPDX-License-Identifier: GPL-2.0
//
// The life of a process's subscription beside the messages: a request that fails
// under it, a port that changes hands, and how many there may be.
#include <thread>

#include "rig.h"

namespace rig {

class Subscription : public Scenario {
protected:
	bool mapped(const leaf &leaf) { return ask("client", "find " + pair_of(leaf)) != 0; }

	void expect_served(const leaf &leaf, subscriber &process)
	{
		fire_open(leaf);
		EXPECT_TRUE(process.receives(leaf)) << leaf.name;
		EXPECT_EQ(enable(leaf), 0);
		EXPECT_TRUE(process.silent()) << leaf.name;
	}
};

// The leaf is live before the monitor has agreed: what fires then finds no receiver
// and ends the subscription, and the failure that follows must not end it again.
TEST_F(Subscription, ended_by_a_message_before_the_monitor_refuses)
{
	const combiner c = make_combiner(0, 1);
	const leaf &leaf = c.leaves[0];

	configure({c});
	load();
	command("monitor", "refuse set 1 -5 hold=1");
	std::thread process([&] { EXPECT_EQ(subscribe(leaf, 4242), REFUSED); });
	fire_open(leaf);
	EXPECT_TRUE(eventually([&] { return logged("]notify pid fail, ret=-111, del pid"); }));
	command("monitor", "let_go");
	process.join();
	EXPECT_TRUE(logged("1 [intr request irq]set interrupt suppress info fail, ret=-5"));
	EXPECT_TRUE(logged("1 [intr ioctl set pid]request irq fail, ret=-14"));
	EXPECT_EQ(unsubscribe(leaf, 4242), REFUSED);
	EXPECT_FALSE(mapped(leaf));

	subscriber next;
	ASSERT_EQ(subscribe(leaf, next.port()), 0);
	expect_served(leaf, next);
}

} // namespace rig
