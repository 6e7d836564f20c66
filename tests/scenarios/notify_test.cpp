// SPDX-License-Identifier: GPL-2.0
//
// Processes that subscribe to leaves: who is told, in which order, and what a
// message does to the leaf; receivers that vanish or do not read; what is left
// when a step fails or the driver goes.
#include <algorithm>
#include <cstring>
#include <thread>

#include "rig.h"

namespace rig {

namespace {

constexpr char TOO_DEEP[] = "1 [drv intr notify all pid]not in task contex, just return";

class Notify : public Scenario {
protected:
	// The leaf must be mapped. The handler may be in the middle of a delivery whose
	// message is here already.
	void expect_depth(const leaf &leaf, int wanted)
	{
		EXPECT_TRUE(eventually([&] { return depth(leaf) == wanted; }))
			<< leaf.name << ": depth " << depth(leaf) << ", not " << wanted;
	}

	bool mapped(const leaf &leaf) { return ask("client", "find " + pair_of(leaf)) != 0; }

	// As many answers as there were messages.
	void answer(const leaf &leaf, int times = 1)
	{
		for (int i = 0; i < times; i++)
			EXPECT_EQ(enable(leaf), 0);
	}

	// The ports that were told, in order, while tracing is on.
	std::vector<u32> told()
	{
		std::vector<u32> ports;

		for (const std::string &line : log()) {
			const size_t at = line.find("pid=");
			if (line.find("[intr notify pid]notify pid success") != std::string::npos)
				ports.push_back(static_cast<u32>(std::stoul(line.substr(at + 4))));
		}
		return ports;
	}

	// One occurrence reaches these, once each, and they answer.
	void expect_served(const leaf &leaf, const std::vector<subscriber *> &processes)
	{
		fire_open(leaf);
		for (subscriber *process : processes)
			EXPECT_TRUE(process->receives(leaf)) << leaf.name;
		expect_depth(leaf, static_cast<int>(processes.size()));
		answer(leaf, static_cast<int>(processes.size()));
		expect_depth(leaf, 0);
		for (subscriber *process : processes)
			EXPECT_TRUE(process->silent()) << leaf.name;
	}
};

TEST_F(Notify, message_is_these_24_bytes)
{
	static constexpr unsigned char expected[] = {0x18, 0, 0, 0, 0,	  0, 0, 0, 0, 0, 0, 0,
						     0,	   0, 0, 0, 0x12, 0, 0, 0, 3, 0, 0, 0};
	combiner c = make_combiner(0, 1);

	c.leaves[0].index = 0x12;
	load({c});
	const int socket = testbed::netlink_open(30);
	ASSERT_GT(socket, 0);
	EXPECT_EQ(subscribe(c.leaves[0], testbed::netlink_port(socket)), 0);
	fire(c.leaves[0]);
	const std::string bytes = testbed::netlink_receive(socket, 5000);
	ASSERT_EQ(bytes.size(), sizeof(expected));
	EXPECT_EQ(memcmp(bytes.data(), expected, sizeof(expected)), 0);
	EXPECT_EQ(testbed::netlink_receive(socket, 30), "");
	testbed::netlink_close(socket);
}

TEST_F(Notify, receivers_are_told_in_order_and_leaf_is_silent_until_all_have_answered)
{
	const combiner c = make_combiner(0, 1);
	const leaf &leaf = c.leaves[0];

	load({c});
	subscriber a, b, third;
	const std::vector<u32> order = {b.port(), third.port(), a.port()};
	for (const u32 port : order)
		ASSERT_EQ(subscribe(leaf, port), 0);
	EXPECT_EQ(set_proc("int_debug_switch", "1"), 0);
	fire(leaf);
	for (subscriber *process : {&a, &b, &third})
		EXPECT_TRUE(process->receives(leaf));
	EXPECT_TRUE(eventually([&] { return told() == order; })) << testing::PrintToString(told());
	EXPECT_EQ(set_proc("int_debug_switch", "0"), 0);
	for (int waiting = 3; waiting > 0; waiting--) {
		expect_depth(leaf, waiting);
		fire(leaf);
		EXPECT_TRUE(a.silent());
		answer(leaf);
	}
	expect_depth(leaf, 0);
	expect_served(leaf, {&a, &b, &third});
}

TEST_F(Notify, subscribing_twice_is_one_message_and_answering_twice_one_answer)
{
	const combiner c = make_combiner(0, 1);

	load({c});
	subscriber process;
	for (int i = 0; i < 2; i++)
		ASSERT_EQ(subscribe(c.leaves[0], process.port()), 0);
	answer(c.leaves[0], 3); // to nothing
	for (int round = 0; round < 3; round++) {
		expect_served(c.leaves[0], {&process});
		answer(c.leaves[0], 2); // too many
		expect_depth(c.leaves[0], 0);
	}
}

TEST_F(Notify, a_receiver_that_has_gone_is_forgotten_and_the_others_are_served)
{
	const combiner c = make_combiner(0, 1);
	const leaf &leaf = c.leaves[0];

	load({c});
	subscriber a, gone, b;
	for (const subscriber *process : {&a, &gone, &b})
		ASSERT_EQ(subscribe(leaf, process->port()), 0);
	expect_served(leaf, {&a, &gone, &b});
	const u32 old_port = gone.port();
	clear_log();
	gone.close();
	expect_served(leaf, {&a, &b});
	EXPECT_TRUE(logged("1 [intr notify pid]nlmsg_unicast fail, ret=-111"));
	EXPECT_TRUE(logged("1 [drv intr notify all pid]notify pid fail, ret=-111, del pid"));
	EXPECT_EQ(unsubscribe(leaf, old_port), REFUSED);
	clear_log();
	expect_served(leaf, {&a, &b});
	EXPECT_TRUE(log().empty()) << testing::PrintToString(log());
}

// A port that no socket ever had: the leaf stays requested, open and silent until
// somebody leaves it.
TEST_F(Notify, leaf_stays_requested_when_its_only_receiver_was_never_there)
{
	const combiner c = make_combiner(0, 1);
	const leaf &leaf = c.leaves[0];

	load({c});
	subscriber process;
	ASSERT_EQ(subscribe(leaf, 4242), 0);
	fire(leaf);
	EXPECT_TRUE(eventually([&] { return logged("notify pid fail, ret=-111, del pid"); }));
	EXPECT_TRUE(eventually([&] { return depth(leaf) == 0; }));
	EXPECT_TRUE(mapped(leaf));
	ASSERT_EQ(subscribe(leaf, process.port()), 0);
	expect_served(leaf, {&process});
	EXPECT_EQ(unsubscribe(leaf, process.port()), 0);
	EXPECT_FALSE(mapped(leaf));
}

TEST_F(Notify, a_receiver_that_does_not_read_is_given_up_when_its_buffer_is_full)
{
	const combiner c = make_combiner(0, 2);
	static constexpr char given_up[] =
		"1 [drv intr notify all pid]notify pid fail, ret=-11, del pid";

	load({c});
	subscriber lazy(1), busy;
	for (const leaf &leaf : c.leaves)
		for (const subscriber *process : {&lazy, &busy})
			ASSERT_EQ(subscribe(leaf, process->port()), 0);
	// Both leaves fill the one buffer; each finds out for itself that it is full.
	std::vector<const leaf *> kept;
	for (size_t round = 0; count_logged(given_up) < 2; round++) {
		ASSERT_LT(round, 100u);
		const leaf &leaf = c.leaves[round % 2];
		const size_t before = count_logged(given_up);
		fire_open(leaf);
		ASSERT_TRUE(busy.receives(leaf));
		// The lazy one comes first, so the driver is through with it.
		const bool told = count_logged(given_up) == before;
		expect_depth(leaf, told ? 2 : 1);
		answer(leaf, told ? 2 : 1);
		if (told)
			kept.push_back(&leaf);
	}
	EXPECT_GE(kept.size(), 2u);
	for (const leaf &leaf : c.leaves) {
		EXPECT_EQ(unsubscribe(leaf, lazy.port()), REFUSED);
		expect_served(leaf, {&busy});
	}
	// What it was told before is still there, and with room again it can come back.
	for (const leaf *leaf : kept)
		EXPECT_TRUE(lazy.receives(*leaf));
	EXPECT_TRUE(lazy.silent());
	ASSERT_EQ(subscribe(c.leaves[0], lazy.port()), 0);
	expect_served(c.leaves[0], {&busy, &lazy});
}

struct way {
	const char *name;
	u32 async, sync;
	bool told;
};

class NotifyWay : public Notify, public testing::WithParamInterface<way> {};

// Subscribers first, then the callback, wherever a handler can be told to wait.
TEST_P(NotifyWay, receivers_are_told_before_the_callback_or_not_at_all)
{
	static constexpr size_t ROUNDS = 3;
	combiner c = make_combiner(1, 1);
	const leaf &leaf = c.leaves[0];

	c.async = GetParam().async;
	c.leaves[0].sync = GetParam().sync;
	load({c});
	subscriber process;
	ASSERT_EQ(subscribe(leaf, process.port()), 0);
	ASSERT_EQ(regist(leaf), 0);
	EXPECT_TRUE(logged("2 [intr request irq]already requested"));
	for (size_t round = 1; round <= ROUNDS; round++) {
		fire_open(leaf);
		EXPECT_TRUE(wait_events(round));
		EXPECT_EQ(process.receives(leaf, GetParam().told ? 5000 : 30), GetParam().told);
		expect_depth(leaf, GetParam().told ? 1 : 0);
		if (GetParam().told)
			answer(leaf);
	}
	expect_events(ROUNDS);
	EXPECT_EQ(count_logged(TOO_DEEP), GetParam().told ? 0 : ROUNDS);

	EXPECT_EQ(set_proc("int_debug_switch", "1"), 0);
	fire_open(leaf);
	EXPECT_TRUE(eventually([&] { return logged("[intr irq handler]end callback"); }));
	const std::vector<std::string> lines = log();
	const auto at = [&](const char *text) {
		return std::find_if(lines.begin(), lines.end(),
				    [&](const std::string &line) {
					    return line.find(text) != std::string::npos;
				    }) -
		       lines.begin();
	};
	if (GetParam().told) {
		EXPECT_LT(at("[intr notify pid]notify pid success"), at("]begin callback"));
		EXPECT_TRUE(process.receives(leaf));
	} else {
		EXPECT_EQ(told(), std::vector<u32>{});
	}
}

INSTANTIATE_TEST_SUITE_P(Ways, NotifyWay,
			 testing::Values(way{"sync_on_sync", 0, 1, false},
					 way{"thread_on_sync", 0, 0, true},
					 way{"sync_on_async", 1, 1, true},
					 way{"thread_on_async", 1, 0, true}),
			 [](const auto &info) { return info.param.name; });

TEST_F(Notify, direct_parent_is_disabled_until_all_have_answered)
{
	const combiner c{.id = 2, .direct = 1, .leaves = {make_leaf(2, 0, 0)}};
	const leaf &leaf = c.leaves[0];

	load({c});
	subscriber a, b;
	ASSERT_EQ(subscribe(leaf, a.port()), 0);
	ASSERT_EQ(subscribe(leaf, b.port()), 0);
	for (int round = 0; round < 3; round++) {
		EXPECT_EQ(depth("line:2"), 0);
		command("cpld", "assert " + leaf.name);
		EXPECT_TRUE(a.receives(leaf));
		EXPECT_TRUE(b.receives(leaf));
		expect_depth(leaf, 2);
		// The handler undoes the mask's disable, the disabled leaf stays.
		EXPECT_TRUE(eventually([&] { return depth("line:2") == 1; }));
		EXPECT_TRUE(a.silent());
		command("cpld", "deassert " + leaf.name);
		answer(leaf);
		EXPECT_EQ(depth("line:2"), 1);
		answer(leaf, 2); // one too many
		expect_depth(leaf, 0);
	}
	EXPECT_EQ(depth("line:2"), 0);
	EXPECT_EQ(unsubscribe(leaf, a.port()), 0);
	EXPECT_EQ(depth("line:2"), 0);
	EXPECT_EQ(unsubscribe(leaf, b.port()), 0);
	EXPECT_FALSE(mapped(leaf));
	EXPECT_EQ(depth("line:2"), 2); // as after every release: shut down, and released
}

TEST_F(Notify, leaves_of_nested_combiners_reach_their_receiver)
{
	combiner outer = make_combiner(4, 2), inner = make_combiner(9, 2);

	outer.async = 1;
	inner.leaves[1].sync = 1; // runs in the outer one's thread
	inner.line = outer.id;
	inner.outer = outer.leaves[1].levels;
	load({outer, inner});
	ASSERT_TRUE(add_device("irq_combiner@4", "line:4"));
	ASSERT_TRUE(add_device("irq_combiner@9", "leaf:0x401:3"));
	subscriber process;
	// The leaf between the two is no one else's.
	const std::string before = report(DRV_INTR_IOC_DBG_RUNTIME);
	EXPECT_EQ(subscribe(outer.leaves[1], process.port()), REFUSED);
	EXPECT_TRUE(logged(
		"1 [intr request irq]leaf is the parent of combiner 9, index_id=0x401, type=3"));
	EXPECT_EQ(unsubscribe(outer.leaves[1], process.port()), REFUSED);
	EXPECT_EQ(report(DRV_INTR_IOC_DBG_RUNTIME), before);
	const std::vector<leaf> leaves = {outer.leaves[0], inner.leaves[0], inner.leaves[1]};
	for (const leaf &leaf : leaves)
		ASSERT_EQ(subscribe(leaf, process.port()), 0);
	for (int round = 0; round < 3; round++)
		for (const leaf &leaf : leaves)
			expect_served(leaf, {&process});
	EXPECT_TRUE(eventually([&] { return depth("line:4") == 0; }));
}

TEST_F(Notify, a_client_and_a_process_share_the_leaf_until_the_last_has_left)
{
	const combiner c = make_combiner(0, 1);
	const leaf &leaf = c.leaves[0];

	load({c});
	subscriber process;
	for (const bool client_first : {true, false}) {
		ASSERT_EQ(regist(leaf), 0);
		ASSERT_EQ(subscribe(leaf, process.port()), 0);
		clear_events();
		fire_open(leaf);
		EXPECT_TRUE(process.receives(leaf));
		EXPECT_TRUE(wait_events(1));
		// Left without an answer: the next one opens the leaf.
		EXPECT_EQ(client_first ? unregist(leaf) : unsubscribe(leaf, process.port()), 0);
		EXPECT_TRUE(mapped(leaf));
		expect_depth(leaf, 1);
		answer(leaf);
		fire_open(leaf);
		if (client_first) {
			EXPECT_TRUE(process.receives(leaf));
		} else {
			EXPECT_TRUE(wait_events(2));
			EXPECT_TRUE(process.silent());
		}
		expect_events(client_first ? 1 : 2);
		EXPECT_EQ(client_first ? unsubscribe(leaf, process.port()) : unregist(leaf), 0);
		EXPECT_FALSE(mapped(leaf));
	}
	// A leaf that was left disabled starts enabled.
	ASSERT_EQ(subscribe(leaf, process.port()), 0);
	expect_served(leaf, {&process});
}

// A client that leaves may unload at once, whoever stays. What others hold needs no wait.
TEST_F(Notify, last_user_to_leave_waits_for_the_callback)
{
	const combiner c = make_combiner(0, 1);
	const leaf &leaf = c.leaves[0];

	load({c});
	subscriber process;
	ASSERT_EQ(regist(leaf, "hold=1"), 0);
	ASSERT_EQ(subscribe(leaf, process.port()), 0);
	fire(leaf);
	ASSERT_TRUE(process.receives(leaf));
	ASSERT_TRUE(wait_events(1));
	// The client keeps the leaf: nothing to wait for. It can come back, too.
	EXPECT_EQ(unsubscribe(leaf, process.port()), 0);
	EXPECT_EQ(subscribe(leaf, process.port()), 0);
	clear_log();
	clear_trace();
	std::thread client([&] {
		EXPECT_EQ(unregist(leaf), 0);
		command("cpld", "mark gone");
	});
	EXPECT_TRUE(eventually([&] { return logged("[intr set unregist]enter"); }));
	testbed::sleep_ms(20);
	std::thread leaving([&] { EXPECT_EQ(unsubscribe(leaf, process.port()), 0); });
	EXPECT_TRUE(eventually([&] { return logged("[intr ioctl unset pid]enter"); }));
	command("client", "let_go");
	client.join();
	leaving.join();
	EXPECT_FALSE(mapped(leaf));
	expect_events(1);
	std::vector<std::string> marks = trace();
	std::erase_if(marks, [](const std::string &line) { return !line.starts_with("mark"); });
	EXPECT_EQ(marks, (std::vector<std::string>{"mark done index=0x0 type=3", "mark gone"}));
}

struct no_socket {
	const char *name;
	u32 netlink_id;
};

class NotifyWithoutSocket : public Notify, public testing::WithParamInterface<no_socket> {};

TEST_P(NotifyWithoutSocket, the_rest_runs_and_subscribers_are_forgotten)
{
	const combiner c = make_combiner(0, 1);
	const leaf &leaf = c.leaves[0];
	drv_intr_ioctl_para para{};

	configure({c});
	table().nodes["global_cfg"]["common"]["netlink_id"] = GetParam().netlink_id;
	install();
	load();
	EXPECT_TRUE(logged("1 [intr init netlink ker]create netlink socket fail"));
	EXPECT_EQ(testbed::ioctl(DRV_INTR_IOC_GET_NETLINK_ID, &para), 0);
	EXPECT_EQ(para.result, GetParam().netlink_id);
	ASSERT_EQ(regist(leaf), 0);
	ASSERT_EQ(subscribe(leaf, 4242), 0);
	clear_trace();
	fire(leaf);
	expect_events(1);
	EXPECT_EQ(count_logged("1 [drv intr notify all pid]notify pid fail, ret=-14, del pid"), 1u);
	expect_depth(leaf, 0);
	// Closed once, by the mask: nothing was disabled for a message that nobody can get.
	size_t closed = 0;
	for (const std::string &line : trace())
		closed += line.starts_with("write ") && line.ends_with(" value=0x0");
	EXPECT_EQ(closed, 1u);
	EXPECT_EQ(unsubscribe(leaf, 4242), REFUSED);
	fire_open(leaf);
	expect_events(2);
	EXPECT_EQ(count_logged("notify pid fail"), 1u);
}

INSTANTIATE_TEST_SUITE_P(Ids, NotifyWithoutSocket,
			 testing::Values(no_socket{"too_large", 33}, no_socket{"in_use", 0}),
			 [](const auto &info) { return info.param.name; });

struct failing_message {
	const char *name;
	const char *fault;
	const char *lines;
};

class NotifyFault : public Notify, public testing::WithParamInterface<failing_message> {};

TEST_P(NotifyFault, costs_one_subscription_and_no_disable)
{
	const combiner c = make_combiner(0, 1);
	const leaf &leaf = c.leaves[0];

	load({c});
	subscriber a, b, third;
	for (const subscriber *process : {&a, &b, &third})
		ASSERT_EQ(subscribe(leaf, process->port()), 0);
	command("board", GetParam().fault);
	expect_served(leaf, {&a, &third});
	EXPECT_TRUE(command("board", "fault count").ends_with("hit=1"));
	command("board", "fault off");
	for (const std::string &line : testbed::lines_of(GetParam().lines))
		EXPECT_EQ(count_logged(line), 1u) << line;
	EXPECT_TRUE(b.silent());
	EXPECT_EQ(unsubscribe(leaf, b.port()), REFUSED);
	ASSERT_EQ(subscribe(leaf, b.port()), 0);
	expect_served(leaf, {&a, &b, &third});
}

const failing_message failing_messages[] = {
	{"memory", "fault plat_nlmsg_new 2 0",
	 "1 [intr notify pid]nlmsg_new fail\n"
	 "1 [drv intr notify all pid]notify pid fail, ret=-12, del pid"},
	{"header", "fault plat_nlmsg_put 2 0",
	 "1 [intr notify pid]nlmsg put fail, type=0, payload_len=8, flags=0.\n"
	 "1 [drv intr notify all pid]notify pid fail, ret=-14, del pid"},
};

INSTANTIATE_TEST_SUITE_P(Steps, NotifyFault, testing::ValuesIn(failing_messages),
			 [](const auto &info) { return info.param.name; });

// Every way of a leaf at once, each fired again the moment its receivers have
// answered; nothing may be lost, doubled, or given to another leaf's receiver.
TEST_F(Notify, a_storm_of_occurrences_is_told_one_by_one)
{
	static constexpr int ROUNDS = 60;
	combiner plain = make_combiner(0, 3), threaded = make_combiner(1, 2);

	threaded.async = 1;
	threaded.leaves[1].sync = 1;
	plain.leaves[2].irq_type = 1;
	load({plain, threaded});
	std::vector<leaf> leaves = plain.leaves;
	leaves.insert(leaves.end(), threaded.leaves.begin(), threaded.leaves.end());
	std::vector<std::thread> threads;
	for (const leaf &leaf : leaves) {
		threads.emplace_back([&] {
			subscriber a, b;
			ASSERT_EQ(subscribe(leaf, a.port()), 0);
			ASSERT_EQ(subscribe(leaf, b.port()), 0);
			for (int round = 0; round < ROUNDS; round++) {
				fire_open(leaf);
				ASSERT_TRUE(a.receives(leaf)) << leaf.name << " " << round;
				ASSERT_TRUE(b.receives(leaf)) << leaf.name << " " << round;
				answer(leaf, 2);
			}
			EXPECT_TRUE(a.silent()) << leaf.name;
			EXPECT_TRUE(b.silent()) << leaf.name;
			expect_depth(leaf, 0);
			EXPECT_EQ(unsubscribe(leaf, a.port()), 0);
			EXPECT_EQ(unsubscribe(leaf, b.port()), 0);
		});
	}
	for (std::thread &thread : threads)
		thread.join();
	for (const leaf &leaf : leaves)
		EXPECT_FALSE(mapped(leaf));
}

} // namespace

} // namespace rig
