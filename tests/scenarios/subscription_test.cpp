// SPDX-License-Identifier: GPL-2.0
//
// The life of a process's subscription beside the messages: a request that fails
// under it, a port that changes hands, and how many there may be.
#include <atomic>
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

// The next owner of the port id must get nothing of it, and the leaf must not wait for
// an answer that nobody owes. What others use goes on; the last one takes the leaf along.
TEST_F(Subscription, ends_with_its_socket)
{
	combiner c = make_combiner(0, 4);
	const leaf &own = c.leaves[0], &client = c.leaves[1], &untold = c.leaves[2],
		   &shared = c.leaves[3];

	c.leaves[2].sync = 1; // handled in hard interrupt: its subscribers are never told
	configure({c});
	load();
	subscriber leaving, staying;
	for (const leaf &leaf : c.leaves)
		ASSERT_EQ(subscribe(leaf, leaving.port()), 0);
	ASSERT_EQ(regist(client), 0);
	ASSERT_EQ(subscribe(shared, staying.port()), 0);
	const u32 port = leaving.port();
	clear_log();
	leaving.close();
	EXPECT_EQ(count_logged("1 [intr notify pid]nlmsg_unicast fail, ret=-111"), 4u);
	EXPECT_EQ(count_logged("1 [drv intr notify all pid]notify pid fail, ret=-111, del pid"),
		  4u);
	EXPECT_FALSE(mapped(own));
	EXPECT_TRUE(mapped(client));
	EXPECT_FALSE(mapped(untold));
	EXPECT_TRUE(mapped(shared));

	subscriber heir;
	ASSERT_EQ(heir.port(), port);
	clear_log();
	fire(own);
	fire(untold);
	fire_open(client);
	expect_events(1);
	EXPECT_EQ(depth(client), 0);
	expect_served(shared, staying);
	EXPECT_TRUE(heir.silent());
	EXPECT_FALSE(logged("del pid"));
	for (const leaf &leaf : c.leaves)
		EXPECT_EQ(unsubscribe(leaf, port), REFUSED) << leaf.name;
	for (const leaf &leaf : {own, client, shared}) {
		EXPECT_EQ(enable(leaf), leaf.name == own.name ? REFUSED : 0) << leaf.name;
		ASSERT_EQ(subscribe(leaf, port), 0);
	}
	expect_served(own, heir);
}

// A message that met the closed port first has ended the subscription already: the close
// still takes along the leaf, which nobody else would release.
TEST_F(Subscription, refused_before_its_socket_is_closed_leaves_no_leaf_behind)
{
	const combiner c = make_combiner(0, 1);
	const leaf &leaf = c.leaves[0];

	configure({c});
	load();
	subscriber early;
	const u32 port = early.port();
	early.close();
	ASSERT_EQ(subscribe(leaf, port), 0);
	fire_open(leaf);
	EXPECT_TRUE(eventually([&] { return logged("]notify pid fail, ret=-111, del pid"); }));
	EXPECT_TRUE(mapped(leaf));
	subscriber late;
	ASSERT_EQ(late.port(), port);
	late.close();
	EXPECT_FALSE(mapped(leaf));
}

// What was not answered keeps a leaf disabled that others use, and only that.
TEST_F(Subscription, ends_with_its_socket_and_a_message_unanswered)
{
	const combiner c = make_combiner(0, 2);
	const leaf &own = c.leaves[0], &client = c.leaves[1];

	configure({c});
	load();
	ASSERT_EQ(regist(client), 0);
	subscriber leaving;
	for (const leaf &leaf : c.leaves) {
		ASSERT_EQ(subscribe(leaf, leaving.port()), 0);
		fire_open(leaf);
		ASSERT_TRUE(leaving.receives(leaf));
	}
	leaving.close();
	EXPECT_FALSE(mapped(own));
	EXPECT_EQ(depth(client), 1);
	EXPECT_EQ(enable(client), 0);

	subscriber next;
	ASSERT_EQ(subscribe(own, next.port()), 0);
	EXPECT_EQ(depth(own), 0);
	expect_served(own, next);
}

// A socket of another protocol has port ids of its own.
TEST_F(Subscription, outlives_sockets_of_other_protocols)
{
	static constexpr u32 ROUTE = 0;
	const combiner c = make_combiner(0, 1);

	configure({c});
	load();
	subscriber process;
	ASSERT_EQ(subscribe(c.leaves[0], process.port()), 0);
	if (const int other = testbed::netlink_open(ROUTE); other > 0) {
		EXPECT_EQ(testbed::netlink_port(other), process.port());
		testbed::netlink_close(other);
	}
	expect_served(c.leaves[0], process);
}

// Each costs memory, and each is one more message of an occurrence.
TEST_F(Subscription, only_so_many_have_a_leaf)
{
	const combiner c = make_combiner(0, 2);
	const leaf &full = c.leaves[0];
	static constexpr u32 FIRST = 0x40000000, END = FIRST + DRV_INTR_SUBSCRIBERS_MAX;

	configure({c});
	load();
	for (u32 port = FIRST; port < END; port++)
		ASSERT_EQ(subscribe(full, port), 0);
	clear_log();
	EXPECT_EQ(subscribe(full, END), REFUSED);
	EXPECT_EQ(count_logged("1 ["), 2u) << "the reason, and the command";
	EXPECT_TRUE(logged("1 [intr ioctl set pid]too many subscribers, max=64"));
	EXPECT_EQ(subscribe(full, FIRST), 0) << "it has one";
	EXPECT_EQ(subscribe(c.leaves[1], END), 0);
	EXPECT_EQ(unsubscribe(full, FIRST), 0);
	EXPECT_EQ(subscribe(full, END), 0);
	EXPECT_EQ(subscribe(full, FIRST), REFUSED);
	// Nobody is there: one occurrence ends them all.
	fire_open(full);
	EXPECT_TRUE(eventually([&] {
		return count_logged("]notify pid fail, ret=-111, del pid") ==
		       DRV_INTR_SUBSCRIBERS_MAX;
	}));
	EXPECT_EQ(subscribe(full, FIRST), 0);
	EXPECT_EQ(unsubscribe(full, FIRST), 0);
	EXPECT_FALSE(mapped(full));
}

// Without the notifier a port could change hands unnoticed: then there are no sockets.
TEST_F(Subscription, needs_to_hear_of_closed_sockets)
{
	const combiner c = make_combiner(0, 1);

	configure({c});
	command("board", "fault plat_netlink_register_notifier 1 -17");
	load();
	EXPECT_TRUE(logged("1 [intr init netlink ker]register netlink notifier fail, ret=-17"));
	EXPECT_LT(testbed::netlink_open(30), 0);
	ASSERT_EQ(regist(c.leaves[0]), 0);
	fire(c.leaves[0]);
	expect_events(1);
}

TEST_F(Subscription, sockets_are_closed_while_their_leaves_fire)
{
	static constexpr int THREADS = 3, ROUNDS = 15;
	const combiner c = make_combiner(0, 2);
	std::atomic<int> running = THREADS;
	std::vector<std::thread> threads;

	configure({c});
	load();
	testbed::expedite_rcu(true);
	for (int t = 0; t < THREADS; t++) {
		threads.emplace_back([&] {
			for (int round = 0; round < ROUNDS; round++) {
				subscriber process;
				for (const leaf &leaf : c.leaves)
					EXPECT_EQ(subscribe(leaf, process.port()), 0);
			}
			running--;
		});
	}
	while (running > 0)
		for (const leaf &leaf : c.leaves)
			fire(leaf);
	for (std::thread &thread : threads)
		thread.join();
	testbed::expedite_rcu(false);
	for (const leaf &leaf : c.leaves)
		EXPECT_FALSE(mapped(leaf)) << leaf.name;
	subscriber process;
	ASSERT_EQ(subscribe(c.leaves[0], process.port()), 0);
	expect_served(c.leaves[0], process);
}

} // namespace rig
