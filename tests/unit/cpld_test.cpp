// SPDX-License-Identifier: GPL-2.0
//
// The simulated CPLDs. The board of most tests is one aggregate ("level",
// status 0x11, enable 0x10, bit 4) over two latched sources (status 0x21,
// enable 0x20, bits 0 and 1), on line 3.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "control.h"
#include "cpld/cpld.h"
#include "cpld/cpld_sim.h"

namespace {

constexpr u32 board = 0xffffffff;
constexpr u32 chip = 2;

std::vector<std::pair<u32, int>> hook_calls;

void record_line(u32 line, int level)
{
	hook_calls.emplace_back(line, level);
}

class cpld : public testing::Test {
protected:
	void SetUp() override
	{
		ASSERT_EQ(cpld_start(), 0);
		hook_calls.clear();
	}
	void TearDown() override { cpld_stop(); }

	static void run(const std::string &line)
	{
		const control_result result = write_control("cpld", line);
		EXPECT_EQ(result.code, 0) << line << ": " << result.reply;
	}
	static void two_sources()
	{
		run("source a 0xffffffff 3 2:0x10:0x11:4:1:level 2:0x20:0x21:0:1:latched");
		run("source b 0xffffffff 3 2:0x10:0x11:4:1:level 2:0x20:0x21:1:1:latched");
	}
	static void enable_all()
	{
		write_field(0x10, 4, 1);
		write_field(0x20, 0, 1);
		write_field(0x20, 1, 1);
	}
	static int write_field(u32 reg, u16 shift, u32 value, u32 mask = 1)
	{
		return drv_cpld_write(board, chip, {reg, shift}, mask, value);
	}
	static u32 read_field(u32 reg, u16 shift, u32 mask = 1)
	{
		u32 value = 0xbad;

		EXPECT_EQ(drv_cpld_read(board, chip, {reg, shift}, mask, &value), 0);
		return value;
	}
	static u32 read_register(u32 reg)
	{
		u32 value = 0xbad;

		EXPECT_EQ(drv_cpld_reg_read(board, chip, reg, &value), 0);
		return value;
	}
	static int clear(u32 reg, u32 bits) { return drv_cpld_reg_write(board, chip, reg, bits); }
};

TEST_F(cpld, line_follows_status_and_enable_of_the_whole_chain)
{
	two_sources();
	run("assert a");
	EXPECT_EQ(read_field(0x21, 0), 1u); // latched, though nothing is enabled
	EXPECT_EQ(read_field(0x11, 4), 0u);
	EXPECT_EQ(cpld_sim_line_level(3), 0);
	write_field(0x20, 0, 1);
	EXPECT_EQ(read_field(0x11, 4), 1u); // the aggregate sees its enabled child
	EXPECT_EQ(cpld_sim_line_level(3), 0);
	write_field(0x10, 4, 1);
	EXPECT_EQ(cpld_sim_line_level(3), 1);
	write_field(0x20, 0, 0);
	EXPECT_EQ(read_register(0x11), 0u);
	EXPECT_EQ(cpld_sim_line_level(3), 0);
}

TEST_F(cpld, source_takes_over_what_its_registers_hold_already)
{
	run("poke 0xffffffff 2 0x10 0x10");
	run("poke 0xffffffff 2 0x20 1");
	run("poke 0xffffffff 2 0x21 1");
	two_sources();
	EXPECT_EQ(read_register(0x11), 0x10u);
	EXPECT_EQ(cpld_sim_line_level(3), 1);
}

TEST_F(cpld, aggregate_stays_while_one_of_its_children_is_active)
{
	two_sources();
	enable_all();
	run("pulse a");
	run("pulse b");
	EXPECT_EQ(read_register(0x21), 3u);
	clear(0x21, 1);
	EXPECT_EQ(read_register(0x21), 2u);
	EXPECT_EQ(read_register(0x11), 0x10u);
	EXPECT_EQ(cpld_sim_line_level(3), 1);
	clear(0x21, 2);
	EXPECT_EQ(read_register(0x11), 0u);
	EXPECT_EQ(cpld_sim_line_level(3), 0);
}

TEST_F(cpld, latched_status_is_set_again_while_its_source_stays_asserted)
{
	two_sources();
	enable_all();
	run("assert a");
	clear(0x21, 1);
	EXPECT_EQ(read_register(0x21), 1u);
	EXPECT_EQ(cpld_sim_line_level(3), 1);
	run("deassert a");
	EXPECT_EQ(read_register(0x21), 1u); // latched: deasserting does not clear it
	clear(0x21, 2); // nor does writing its neighbour's bit
	EXPECT_EQ(read_register(0x21), 1u);
	clear(0x21, 1);
	EXPECT_EQ(cpld_sim_line_level(3), 0);
}

TEST_F(cpld, latched_aggregate_outlives_its_children_until_it_is_cleared)
{
	run("source a 0xffffffff 3 2:-:0x31:0:1:latched 2:-:0x41:0:1:level");
	run("assert a");
	clear(0x31, 1);
	EXPECT_EQ(read_register(0x31), 1u); // its child is still active
	run("deassert a");
	EXPECT_EQ(read_register(0x31), 1u);
	EXPECT_EQ(cpld_sim_line_level(3), 1);
	clear(0x31, 1);
	EXPECT_EQ(cpld_sim_line_level(3), 0);
	run("pulse a"); // a pulse leaves its mark on the latch only
	EXPECT_EQ(read_register(0x31), 1u);
	EXPECT_EQ(read_register(0x41), 0u);
}

TEST_F(cpld, writes_to_a_following_status_change_nothing)
{
	two_sources();
	enable_all();
	run("assert a");
	clear(0x11, 0xffffffff);
	EXPECT_EQ(read_field(0x11, 4), 1u);
	run("deassert a");
	clear(0x21, 1);
	write_field(0x11, 4, 1);
	EXPECT_EQ(read_field(0x11, 4), 0u);
	EXPECT_EQ(cpld_sim_line_level(3), 0);
}

TEST_F(cpld, field_write_keeps_the_neighbours_and_cuts_the_value)
{
	EXPECT_EQ(clear(0x50, 0xa5a5a5a5), 0); // plain storage
	EXPECT_EQ(write_field(0x50, 4, 0xffff, 0xf), 0);
	EXPECT_EQ(read_register(0x50), 0xa5a5a5f5u);
	EXPECT_EQ(write_field(0x50, 28, 0, 0xff), 0); // a mask that sticks out at the top
	EXPECT_EQ(read_register(0x50), 0x05a5a5f5u);
	EXPECT_EQ(read_field(0x50, 4, 0xf), 0xfu);
	EXPECT_NE(write_field(0x50, 32, 1), 0);
	EXPECT_EQ(read_register(0x50), 0x05a5a5f5u);
}

TEST_F(cpld, same_register_number_of_another_instance_or_chip_is_another_register)
{
	u32 value = 1;

	clear(0x50, 7);
	EXPECT_EQ(drv_cpld_reg_read(5, chip, 0x50, &value), 0);
	EXPECT_EQ(value, 0u);
	value = 1;
	EXPECT_EQ(drv_cpld_reg_read(board, chip + 1, 0x50, &value), 0);
	EXPECT_EQ(value, 0u);
}

TEST_F(cpld, hook_hears_of_every_change_on_the_way_to_a_line)
{
	two_sources();
	run("source c 7 4 0:-:1:0:1:level");
	cpld_sim_set_line_hook(record_line);
	run("assert a");
	EXPECT_EQ(hook_calls.back(), std::make_pair(3u, 0));
	enable_all();
	EXPECT_EQ(hook_calls.back(), std::make_pair(3u, 1));
	hook_calls.clear();
	clear(0x21, 1); // set again at once: the board has to raise the line again
	EXPECT_EQ(hook_calls, (std::vector<std::pair<u32, int>>{{3, 1}}));
	hook_calls.clear();
	read_register(0x21);
	clear(0x50, 1);
	EXPECT_TRUE(hook_calls.empty());
	run("assert c");
	EXPECT_EQ(hook_calls, (std::vector<std::pair<u32, int>>{{4, 1}}));
	hook_calls.clear();
	run("reset");
	EXPECT_EQ(hook_calls, (std::vector<std::pair<u32, int>>{{3, 0}, {4, 0}}));
}

std::atomic<bool> hook_entered, hook_may_end;

void slow_hook(u32, int)
{
	hook_entered = true;
	while (!hook_may_end)
		std::this_thread::yield();
}

TEST_F(cpld, taking_the_hook_back_waits_until_it_is_no_longer_running)
{
	std::atomic<bool> taken = false;

	hook_entered = hook_may_end = false;
	two_sources();
	cpld_sim_set_line_hook(slow_hook);
	std::thread user([] { run("assert a"); });
	while (!hook_entered)
		std::this_thread::yield();
	std::thread owner([&taken] {
		cpld_sim_set_line_hook(nullptr);
		taken = true;
	});
	std::this_thread::sleep_for(std::chrono::milliseconds(30));
	EXPECT_FALSE(taken);
	hook_may_end = true;
	user.join();
	owner.join();
}

TEST_F(cpld, levels_of_two_instances_make_one_chain)
{
	constexpr u32 card = 0x3000000;
	u32 status = 0;

	run("source card 0x3000000 3 0xffffffff/2:0x10:0x11:4:1:level 2:0x10:0x11:0:1:latched");
	write_field(0x10, 4, 1);
	EXPECT_EQ(drv_cpld_reg_write(card, 2, 0x10, 1), 0);
	run("assert card");
	EXPECT_EQ(drv_cpld_reg_read(card, 2, 0x11, &status), 0);
	EXPECT_EQ(status, 1u);
	EXPECT_EQ(read_register(0x11), 0x10u);
	EXPECT_EQ(cpld_sim_line_level(3), 1);
}

TEST_F(cpld, source_that_contradicts_the_wiring_is_refused_and_leaves_nothing)
{
	two_sources();
	enable_all();
	const std::vector<std::string> before = read_control("cpld_state");
	const char *wrong[] = {
		"source a 0xffffffff 3 2:-:0x61:0:1:level", // name in use
		"source c 0xffffffff 4 2:0x10:0x11:4:1:level 2:-:0x21:2:1:level", // other line
		"source c 0xffffffff 3 2:0x10:0x11:4:1:latched", // other kind
		"source c 0xffffffff 3 2:0x12:0x11:4:1:level", // other enable
		"source c 0xffffffff 3 2:0x20:0x21:0:1:latched", // other outer level
		"source c 0xffffffff 3 2:0x10:0x11:4:3:level", // overlapping field
		"source c 0xffffffff 3 2:-:0x61:0:1:level 2:-:0x61:0:1:level", // its own outer
									       // level
		"source c 0xffffffff 3 2:-:0x20:1:1:level", // status over an enable
		"source c 0xffffffff 3",
		"source c 0xffffffff 3 2:-:0x61:32:1:level",
		"source c 0xffffffff 3 2:-:0x61:31:3:level",
		"source c 0xffffffff 3 2:-:0x61:0:0:level",
		"source c 0xffffffff 3 2:-:0x61:0:1:edge",
		"source c 0xffffffff 3 2:-:0x61:0:1",
		"source c 0xffffffff 3 2:-:0x61:0:1:level:",
		"source c 0x1ffffffff 3 2:-:0x61:0:1:level",
	};

	for (const char *line : wrong) {
		const control_result result = write_control("cpld", line);
		EXPECT_EQ(result.code, -EINVAL) << line;
		EXPECT_EQ(result.reply.rfind("cpld: ", 0), 0u) << line << " -> " << result.reply;
		EXPECT_NE(result.reply.find("; "), std::string::npos) << result.reply;
	}
	// Storage made on the way may remain; wiring may not.
	std::vector<std::string> after = read_control("cpld_state");
	std::erase_if(after, [](const std::string &line) {
		return line.rfind("register", 0) == 0 &&
		       line.find("value=0x0") != std::string::npos;
	});
	std::vector<std::string> expected = before;
	std::erase_if(expected, [](const std::string &line) {
		return line.rfind("register", 0) == 0 &&
		       line.find("value=0x0") != std::string::npos;
	});
	std::erase(after, "line 4 level=0");
	EXPECT_EQ(after, expected);
	run("source c 0xffffffff 3 2:0x10:0x11:4:1:level 2:0x20:0x21:2:1:latched");
}

TEST_F(cpld, failure_strikes_the_nth_access_of_its_kind_and_has_no_effect_there)
{
	run("fail write 2 2 -5");
	run("fail reg_write 1 1 7");
	EXPECT_EQ(write_field(0x50, 0, 1), 0);
	EXPECT_EQ(clear(0x51, 1), 7);
	EXPECT_EQ(read_register(0x51), 0u);
	EXPECT_EQ(write_field(0x50, 1, 1), -5);
	EXPECT_EQ(write_field(0x50, 2, 1), -5);
	EXPECT_EQ(write_field(0x50, 3, 1), 0);
	EXPECT_EQ(read_register(0x50), 0x9u);
	run("fail any 2 1 -6");
	EXPECT_EQ(read_register(0x50), 0x9u);
	EXPECT_EQ(write_field(0x50, 0, 0), -6);
	run("fail any 1 100 -6");
	run("fail off");
	EXPECT_EQ(write_field(0x50, 0, 0), 0);
	for (const char *line : {"fail read 0 1 -5", "fail read 1 0 -5", "fail read 1 1 0",
				 "fail some 1 1 -5", "fail read 1 1 -5 x", "fail"})
		EXPECT_EQ(write_control("cpld", line).code, -EINVAL) << line;
}

} // namespace
