// SPDX-License-Identifier: GPL-2.0
//
// Everybody at once: readers of reports, processes that subscribe and enable,
// clients that call the driver from their hard interrupts, while cards and
// devices come and go and interrupts fire. Nothing is complained about, nothing
// is lost where nobody meddles, and afterwards everything works.
#include <atomic>
#include <chrono>
#include <thread>

#include "sources.h"

namespace rig {

namespace {

class Stress : public Sources {
protected:
	static constexpr u32 INST = 1u << 24;

	// Leaves of the board: the witness, one that processes fight for, and the one
	// that is the parent of a combiner of the card.
	combiner board = make_combiner(0, 3), callbacks = make_combiner(1, 3);
	combiner pin = make_card_combiner(1, 0, 2), behind = make_card_combiner(1, 1, 1);
	combiner device = make_combiner(4, 30); // more than look-up tables hold without growing
	const leaf &witness = board.leaves[0];
	const leaf &contested = board.leaves[1];

	std::atomic<bool> stop = false;
	std::atomic<u32> reports = 0, refused = 0, served = 0;
	std::atomic<int> changes = 0;
	size_t fired = 0;

	Stress()
	{
		make_card_leaf(board.leaves[2], 1);
		place_at_gpio(pin, 0);
		place_behind(behind, board, board.leaves[2]);
		board.async = pin.async = 1;
		for (leaf &leaf : callbacks.leaves)
			leaf.sync = 1;
		device.leaves[0].sync = 1;
	}

	void start()
	{
		load({board, callbacks, pin, behind, device});
		ASSERT_EQ(regist(witness), 0);
		ASSERT_EQ(regist(callbacks.leaves[0], "then=find"), 0);
		ASSERT_EQ(regist(callbacks.leaves[1], "then=enable"), 0);
		ASSERT_EQ(regist(callbacks.leaves[2], "then=disable"), 0);
		// The trace is turned on and off, for an interrupt that there is not.
		ASSERT_EQ(set_proc("debug_irq", "99999"), 0);
	}

	std::vector<leaf> meddled_with() const
	{
		return {contested, pin.leaves[0], pin.leaves[1], behind.leaves[0],
			device.leaves[0]};
	}

	// Everything that shows something; each text is whole, whatever changes meanwhile.
	void read_all()
	{
		u32 virq = 0;

		while (!stop) {
			EXPECT_TRUE(report(DRV_INTR_IOC_DBG_RUNTIME).starts_with("intr ctrl\n"));
			EXPECT_TRUE(report(DRV_INTR_IOC_DBG_CFG).starts_with("global cfg\n"));
			EXPECT_TRUE(proc("runtime").starts_with("intr ctrl\n"));
			EXPECT_TRUE(proc("cfg").ends_with("\n"));
			(void)report(DRV_INTR_IOC_DBG_VIRQ, virq++ % 128); // some are leaves
			EXPECT_EQ(set_proc("int_debug_switch", virq % 2 ? "1" : "0"), 0);
			reports++;
		}
	}

	void count(int code)
	{
		EXPECT_TRUE(code == 0 || code == REFUSED) << code;
		(code == 0 ? served : refused)++;
	}

	// As several badly written processes do. The ports are nobody's, so a message
	// ends the subscription.
	void use_leaves()
	{
		const leaf none = make_leaf(77, 0);
		u32 port = 1u << 30;

		for (int loops = 0; !stop; loops++) {
			// Not faster than the combiners change, or the log overflows.
			if (!eventually([&] { return stop || loops <= 2 * changes; }, 60000))
				return;
			for (const leaf &leaf : meddled_with()) {
				count(subscribe(leaf, port));
				count(enable(leaf, 0));
				count(enable(leaf, 1));
				count(unsubscribe(leaf, port));
				count(unsubscribe(leaf, port + 1));
			}
			count(subscribe(none, port));
			count(enable(none));
			count(enable(callbacks.leaves[2]));
			port++;
		}
	}

	void fire_all()
	{
		static constexpr size_t MOST = CLIENT_EVENTS / 7; // seven leaves are heard

		for (; !stop && fired < MOST; fired++) {
			fire_next(witness);
			for (const leaf &leaf : meddled_with())
				testbed::control("cpld", "pulse " + leaf.name);
			for (const leaf &leaf : callbacks.leaves)
				testbed::control("cpld", "pulse " + leaf.name);
		}
	}

	void come_and_go(int rounds, std::chrono::seconds limit)
	{
		const auto end = std::chrono::steady_clock::now() + limit;

		for (int round = 0; round < rounds; round++, changes++) {
			EXPECT_EQ(card_up(INST), 0) << round;
			EXPECT_TRUE(add_device("irq_combiner@4", "line:4")) << round;
			for (const leaf &leaf : {pin.leaves[0], behind.leaves[0], device.leaves[0]})
				EXPECT_EQ(regist(leaf), 0) << round;
			if (round % 2) {
				EXPECT_EQ(unregist(behind.leaves[0]), 0) << round;
			}
			EXPECT_EQ(card_down(INST), 0) << round;
			del_device("irq_combiner@4");
			clear_log();
			clear_trace();
			if (round >= 10 && std::chrono::steady_clock::now() > end)
				break;
		}
	}

	// What others left disabled is taken back; then each fires once and is heard.
	void expect_all_works()
	{
		ASSERT_EQ(card_up(INST), 0);
		ASSERT_TRUE(add_device("irq_combiner@4", "line:4"));
		for (const leaf &leaf : meddled_with())
			ASSERT_EQ(regist(leaf), 0);
		std::vector<leaf> all = meddled_with();
		all.insert(all.end(), callbacks.leaves.begin(), callbacks.leaves.end());
		for (const leaf &leaf : all) {
			EXPECT_TRUE(eventually([&] {
				(void)enable(leaf);
				return depth(leaf) == 0;
			})) << leaf.name;
			expect_delivery(leaf);
		}
	}
};

TEST_F(Stress, meddling_from_all_sides_loses_no_interrupt_of_others)
{
	start();
	clear_events();
	std::vector<std::thread> threads;
	threads.emplace_back([&] { read_all(); });
	threads.emplace_back([&] { use_leaves(); });
	threads.emplace_back([&] { use_leaves(); });
	threads.emplace_back([&] { fire_all(); });
	come_and_go(40, std::chrono::seconds(10));
	stop = true;
	for (std::thread &thread : threads)
		thread.join();
	EXPECT_GT(reports, 0u);
	EXPECT_GT(served, 0u);
	EXPECT_GT(refused, 0u);
	EXPECT_GT(fired, 0u);
	expect_delivered(witness, fired);
	for (const leaf &leaf : callbacks.leaves)
		EXPECT_GT(delivered(leaf), 0u) << leaf.name;
	expect_all_works();
}

} // namespace

} // namespace rig
