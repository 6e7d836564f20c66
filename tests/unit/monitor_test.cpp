// SPDX-License-Identifier: GPL-2.0
//
// The interrupt monitor over the lines of the kernel model. A line's disable
// depth tells whether the monitor holds it.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "control.h"
#include "model.h"
#include "monitor/monitor.h"

namespace {

constexpr u32 never_ms = 600000; // a period that no test waits for

class monitor : public testing::Test {
protected:
	void SetUp() override
	{
		host_start();
		ASSERT_EQ(monitor_start(), 0);
		virq = host_line_virq(5);
		open_depth = host_irq_depth(virq);
	}
	void TearDown() override
	{
		if (running)
			monitor_stop();
		port_host_stop();
		host_stop();
	}
	void stop()
	{
		monitor_stop();
		running = false;
	}
	int set(u32 allow_max, u32 suppress_ms, u32 policy = 1)
	{
		return drv_intr_monitor_set_param(virq, virq, allow_max, suppress_ms, policy,
						  nullptr);
	}
	int unset() { return drv_intr_monitor_unset_param(virq, virq); }
	void occur(u32 times)
	{
		while (times--)
			EXPECT_EQ(drv_intr_monitor_do_check(virq, nullptr, virq), 0);
	}
	int held() const { return host_irq_depth(virq) - open_depth; }
	s32 state() const
	{
		s32 value = -1;

		EXPECT_EQ(drv_intr_mng_get_irq_state(virq, &value), 0);
		return value;
	}
	u32 suppressions() const
	{
		u32 count = 99;

		EXPECT_EQ(drv_intr_mng_get_suppress_cnt(virq, &count), 0);
		return count;
	}
	bool wait_until_open() const
	{
		const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);

		while (held() != 0 || state() != 0) {
			if (std::chrono::steady_clock::now() > deadline)
				return false;
			std::this_thread::sleep_for(std::chrono::milliseconds(1));
		}
		return true;
	}

	printed_lines printed;
	bool running = true;
	u32 virq = 0;
	int open_depth = 0;
};

TEST_F(monitor, line_is_held_from_the_occurrence_after_allow_max_and_only_once)
{
	ASSERT_EQ(set(3, never_ms), 0);
	occur(3);
	EXPECT_EQ(held(), 0);
	EXPECT_EQ(state(), 0);
	occur(1);
	EXPECT_EQ(held(), 1);
	EXPECT_EQ(state(), 1);
	occur(10); // those on their way already
	EXPECT_EQ(held(), 1);
	EXPECT_EQ(suppressions(), 1u);
	EXPECT_EQ(printed.take().size(), 1u);
	EXPECT_EQ(read_control("monitor"),
		  (std::vector<std::string>{"virq=" + std::to_string(virq) +
					    " allow_max=3 suppress_ms=600000 policy=1 count=14 "
					    "suppressed=1 suppress_cnt=1"}));
	EXPECT_EQ(unset(), 0);
}

TEST_F(monitor, line_comes_back_at_the_end_of_the_period_and_the_next_storm_counts_anew)
{
	ASSERT_EQ(set(2, 30), 0);
	for (u32 storm = 1; storm <= 3; storm++) {
		while (state() == 0)
			occur(1);
		EXPECT_EQ(suppressions(), storm);
		ASSERT_TRUE(wait_until_open());
		occur(2); // a full allowance again
		EXPECT_EQ(state(), 0);
	}
	EXPECT_EQ(printed.take().size(), 6u); // held, back; three times
	EXPECT_EQ(unset(), 0);
	EXPECT_EQ(held(), 0);
}

TEST_F(monitor, slow_occurrences_never_suppress)
{
	ASSERT_EQ(set(2, 1), 0);
	for (int i = 0; i < 20; i++) {
		occur(1);
		std::this_thread::sleep_for(std::chrono::milliseconds(2));
	}
	EXPECT_EQ(suppressions(), 0u);
	EXPECT_EQ(unset(), 0);
}

TEST_F(monitor, lines_without_a_bound_are_counted_only)
{
	const struct {
		const char *label;
		u32 allow_max, suppress_ms, policy;
	} cases[] = {
		{"policy 0", 1, never_ms, 0},
		{"no limit", 0, never_ms, 1},
		{"no period", 1, 0, 1},
	};

	for (const auto &test : cases) {
		ASSERT_EQ(set(test.allow_max, test.suppress_ms, test.policy), 0) << test.label;
		occur(100);
		EXPECT_EQ(held(), 0) << test.label;
		EXPECT_EQ(suppressions(), 0u) << test.label;
		EXPECT_NE(read_control("monitor")[0].find("count=100"), std::string::npos);
		EXPECT_EQ(unset(), 0) << test.label;
	}
}

TEST_F(monitor, unset_while_suppressed_gives_the_line_back_exactly_once)
{
	ASSERT_EQ(set(1, 100), 0);
	occur(2);
	EXPECT_EQ(held(), 1);
	EXPECT_EQ(unset(), 0);
	EXPECT_EQ(held(), 0);
	std::this_thread::sleep_for(std::chrono::milliseconds(150)); // where its timer would strike
	EXPECT_EQ(held(), 0);
	EXPECT_EQ(drv_intr_monitor_do_check(virq, nullptr, virq), -ENOENT);
}

// The period is counted from its first occurrence to its whole length.
TEST_F(monitor, occurrences_far_apart_in_one_period_add_up)
{
	using clock = std::chrono::steady_clock;
	constexpr std::chrono::milliseconds period(300);
	bool in_time = false;

	while (!in_time) { // not where the machine let it sleep too long
		ASSERT_EQ(set(2, period.count()), 0);
		const auto begin = clock::now();
		occur(2);
		std::this_thread::sleep_for(period * 2 / 3);
		occur(1);
		in_time = clock::now() - begin < period;
		if (in_time) {
			EXPECT_EQ(suppressions(), 1u);
			EXPECT_TRUE(wait_until_open());
		}
		EXPECT_EQ(unset(), 0);
	}
}

// A leaf beside the parent: nobody reports it, the kernel counts it.
class monitor_samples : public monitor {
protected:
	static constexpr u32 LEAF_LINE = 6, SAMPLES_MS = 40;

	void SetUp() override
	{
		monitor::SetUp();
		leaf = host_line_virq(LEAF_LINE);
		ASSERT_EQ(host_irq_request(
				  leaf, [](int, void *) { return 1; }, "leaf", this),
			  0);
	}
	void TearDown() override
	{
		drv_intr_monitor_unset_param(leaf, leaf);
		unset();
		host_irq_free(leaf, this);
		monitor::TearDown();
	}
	int watch_leaf(u32 allow_max, u32 suppress_ms)
	{
		return drv_intr_monitor_set_param(leaf, leaf, allow_max, suppress_ms, 1, nullptr);
	}
	void fire_leaf(u32 times)
	{
		while (times--) {
			const u32 before = host_irq_count(leaf);

			host_line_set_pending(LEAF_LINE, 1);
			while (host_irq_count(leaf) == before)
				std::this_thread::yield();
		}
	}
	bool leaf_held() const { return host_irq_depth(leaf) == 1; }
	std::string leaf_line() const
	{
		for (const std::string &line : read_control("monitor"))
			if (line.starts_with("virq=" + std::to_string(leaf) + " "))
				return line;
		return "";
	}
	static void wait_for_samples()
	{
		std::this_thread::sleep_for(std::chrono::milliseconds(SAMPLES_MS));
	}
	static bool soon(const std::function<bool()> &condition)
	{
		for (int turn = 0; turn < 5000; turn++) {
			if (condition())
				return true;
			std::this_thread::sleep_for(std::chrono::milliseconds(1));
		}
		return false;
	}

	u32 leaf = 0;
};

// What the leaf did before the parent was busy enough to look is not held against it.
TEST_F(monitor_samples, a_leaf_is_judged_by_what_it_does_while_its_parent_is_busy)
{
	ASSERT_EQ(set(100, never_ms), 0);
	ASSERT_EQ(watch_leaf(3, never_ms), 0);
	fire_leaf(10);
	occur(3);
	wait_for_samples();
	EXPECT_NE(leaf_line().find(" count=0 "), std::string::npos) << leaf_line();
	occur(1); // one more than the leaf may: sampling begins
	fire_leaf(3);
	EXPECT_TRUE(soon([&] { return leaf_line().find(" count=3 ") != std::string::npos; }))
		<< leaf_line();
	EXPECT_FALSE(leaf_held());
	fire_leaf(1);
	EXPECT_TRUE(soon([&] { return leaf_held(); }));
	EXPECT_NE(leaf_line().find(" count=4 suppressed=1 suppress_cnt=1"), std::string::npos);
	EXPECT_EQ(held(), 0);
	EXPECT_EQ(suppressions(), 0u);
}

// The leaf is disabled instead of the parent, once: a parent that storms by itself
// afterwards is disabled as any other.
TEST_F(monitor_samples, a_parent_at_its_bound_is_spared_where_a_leaf_storms)
{
	ASSERT_EQ(set(20, never_ms), 0);
	ASSERT_EQ(watch_leaf(3, never_ms), 0);
	occur(4);
	fire_leaf(4);
	occur(17);
	EXPECT_TRUE(leaf_held());
	EXPECT_EQ(held(), 0);
	occur(20);
	EXPECT_EQ(held(), 0);
	occur(1);
	EXPECT_EQ(held(), 1);
	EXPECT_EQ(suppressions(), 1u);
}

TEST_F(monitor_samples, quiet_parents_end_the_sampling)
{
	const auto fires_unseen = [this] {
		const std::string before = leaf_line();

		fire_leaf(1);
		wait_for_samples();
		return leaf_line() == before;
	};

	ASSERT_EQ(watch_leaf(1000, 30), 0);
	ASSERT_EQ(set(100000, 1), 0);
	for (int round = 0; round < 2; round++) {
		EXPECT_TRUE(soon([&] {
			occur(1001);
			return !fires_unseen();
		}));
		EXPECT_TRUE(soon(fires_unseen));
	}
}

// Which line was set first, and which went, does not matter.
TEST_F(monitor_samples, begin_at_the_smallest_bound_of_those_that_have_one)
{
	constexpr u32 OTHER = 0x7000; // a number without an interrupt

	ASSERT_EQ(drv_intr_monitor_set_param(OTHER, OTHER, 1, 1, 1, nullptr), 0);
	ASSERT_EQ(drv_intr_monitor_unset_param(OTHER, OTHER), 0);
	ASSERT_EQ(set(5, never_ms, 0), 0); // no bound: not one to go by
	ASSERT_EQ(watch_leaf(7, never_ms), 0);
	ASSERT_EQ(drv_intr_monitor_set_param(OTHER, OTHER, 9, 1, 1, nullptr), 0);
	occur(7);
	fire_leaf(1);
	wait_for_samples();
	EXPECT_NE(leaf_line().find(" count=0 "), std::string::npos) << leaf_line();
	occur(1);
	fire_leaf(1);
	EXPECT_TRUE(soon([&] { return leaf_line().find(" count=1 ") != std::string::npos; }))
		<< leaf_line();
	EXPECT_EQ(drv_intr_monitor_unset_param(OTHER, OTHER), 0);
	EXPECT_EQ(held(), 0);
}

std::atomic<bool> print_entered, print_may_end;

void slow_print(int, const char *)
{
	print_entered = true;
	while (!print_may_end)
		std::this_thread::yield();
}

TEST_F(monitor, unset_waits_for_a_check_that_is_about_to_start_the_timer)
{
	std::atomic<bool> gone = false;

	print_entered = print_may_end = false;
	ASSERT_EQ(set(1, never_ms), 0);
	port_host_set_printk(slow_print); // the check prints after its disable, before the timer
	std::thread storm([this] { occur(2); });
	while (!print_entered)
		std::this_thread::yield();
	std::thread owner([this, &gone] {
		EXPECT_EQ(unset(), 0);
		gone = true;
	});
	std::this_thread::sleep_for(std::chrono::milliseconds(30));
	EXPECT_FALSE(gone);
	EXPECT_EQ(held(), 1); // nor has it enabled the line under the check's feet
	print_may_end = true;
	storm.join();
	owner.join();
	EXPECT_EQ(held(), 0);
}

TEST_F(monitor, stop_while_suppressed_gives_the_line_back)
{
	ASSERT_EQ(set(1, never_ms), 0);
	occur(2);
	stop();
	EXPECT_EQ(held(), 0);
}

TEST_F(monitor, set_twice_and_unset_of_an_unknown_line_are_refused)
{
	s32 value = 0;
	u32 count = 0;

	ASSERT_EQ(set(5, 1000), 0);
	EXPECT_EQ(set(6, 1000), -EEXIST);
	EXPECT_EQ(unset(), 0);
	EXPECT_EQ(unset(), -ENOENT);
	EXPECT_EQ(drv_intr_mng_get_irq_state(virq, &value), -ENOENT);
	EXPECT_EQ(drv_intr_mng_get_suppress_cnt(virq, &count), -ENOENT);
	// Two numbers of one hash bucket are two lines.
	ASSERT_EQ(set(5, 1000), 0);
	EXPECT_EQ(drv_intr_monitor_set_param(virq + 256, virq + 256, 1, 1, 1, nullptr), 0);
	EXPECT_EQ(drv_intr_monitor_unset_param(virq + 256, virq + 256), 0);
	EXPECT_EQ(state(), 0);
}

TEST_F(monitor, storms_on_two_threads_against_set_and_unset_leave_the_line_balanced)
{
	std::atomic<bool> end = false;
	std::vector<std::thread> storms;

	for (int i = 0; i < 2; i++)
		storms.emplace_back([this, &end] {
			while (!end)
				(void)drv_intr_monitor_do_check(virq, nullptr, virq);
		});
	for (int i = 0; i < 100; i++) {
		ASSERT_EQ(set(2, 2), 0);
		std::this_thread::sleep_for(std::chrono::microseconds(i * 40));
		ASSERT_EQ(unset(), 0);
		ASSERT_EQ(held(), 0);
	}
	end = true;
	for (std::thread &storm : storms)
		storm.join();
}

} // namespace
