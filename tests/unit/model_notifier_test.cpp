// SPDX-License-Identifier: GPL-2.0
//
// The model's netlink notifiers: who is told of which closed socket, and when.
#include <thread>

#include "model_rig.h"
#include "platform/kernel_api.h"

namespace {

constexpr u32 PROTOCOL = 17, OTHER = 18;

journal told;
gate held;

void note(u32 port)
{
	told.add(std::to_string(port));
}

void note_and_wait(u32 port)
{
	note(port);
	held.pass();
}

TEST(Notifier, is_told_of_its_own_protocol_when_the_port_is_free_again)
{
	plat_netlink_notifier notifier = {.protocol = PROTOCOL, .released = note, .storage = {}};

	host_start();
	sock *own = plat_netlink_kernel_create(PROTOCOL),
	     *other = plat_netlink_kernel_create(OTHER);
	EXPECT_EQ(plat_netlink_register_notifier(&notifier), 0);
	EXPECT_EQ(plat_netlink_register_notifier(&notifier), -17);
	const int first = host_netlink_open(PROTOCOL, 0), second = host_netlink_open(OTHER, 0);
	const u32 port = host_netlink_port(first);
	EXPECT_EQ(host_netlink_port(second), port) << "each protocol has ids of its own";
	EXPECT_EQ(host_netlink_close(second), 0);
	EXPECT_TRUE(told.take().empty());

	notifier.released = note_and_wait;
	std::thread closing([&] { EXPECT_EQ(host_netlink_close(first), 0); });
	ASSERT_TRUE(held.reached());
	const int heir = host_netlink_open(PROTOCOL, 0);
	EXPECT_EQ(host_netlink_port(heir), port);
	std::atomic<bool> removed = false;
	std::thread removing([&] {
		plat_netlink_unregister_notifier(&notifier);
		removed = true;
	});
	EXPECT_FALSE(removed);
	held.open();
	closing.join();
	removing.join();
	EXPECT_EQ(host_netlink_close(heir), 0);
	EXPECT_THAT(told.take(), testing::ElementsAre(std::to_string(port)));
	plat_netlink_kernel_release(own);
	plat_netlink_kernel_release(other);
	host_stop();
}

TEST(Notifier, left_behind_or_removed_twice_stops_loudly)
{
	static plat_netlink_notifier notifier = {
		.protocol = PROTOCOL, .released = note, .storage = {}};
	static const misuse rows[] = {
		{"netlink_unregister_notifier: ",
		 [] { plat_netlink_unregister_notifier(&notifier); }},
		{"netlink notifier of protocol 17",
		 [] {
			 EXPECT_EQ(plat_netlink_register_notifier(&notifier), 0);
			 EXPECT_EQ(host_check_leftovers(), 1);
		 }},
	};

	host_start();
	expect_each_stops(rows);
	plat_netlink_unregister_notifier(&notifier);
	host_set_bug_handler(nullptr);
	host_stop();
}

} // namespace
