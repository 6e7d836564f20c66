// SPDX-License-Identifier: GPL-2.0
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "control.h"
#include "log/log.h"

namespace {

class log : public testing::Test {
protected:
	void SetUp() override { ASSERT_EQ(log_start(), 0); }
	void TearDown() override { log_stop(); }

	printed_lines printed;
};

TEST_F(log, record_goes_to_the_kernel_log_under_its_name_and_to_the_ring)
{
	drv_log_record(0, 1, 0, "too early %d", -5);
	ASSERT_EQ(drv_log_register(62, "intr", 0x20000), 0);
	drv_log_record(62, 1, 0, "[%s]fail, ret=0x%x\n", "intr combiner init", 0x13);
	drv_log_record(62, 2, 0, "two\nlines\n\n");
	EXPECT_EQ(printed.take(), (std::vector<std::string>{
					  "1 log module 0: too early -5",
					  "1 intr: [intr combiner init]fail, ret=0x13",
					  "2 intr: two lines",
				  }));
	EXPECT_EQ(read_control("log"), (std::vector<std::string>{
					       "0 1 too early -5",
					       "62 1 [intr combiner init]fail, ret=0x13",
					       "62 2 two lines",
				       }));
	EXPECT_EQ(write_control("log_ctl", "clear").code, 0);
	EXPECT_TRUE(read_control("log").empty());
}

TEST_F(log, line_too_long_for_a_record_is_cut)
{
	const std::string text(5000, 'x');

	drv_log_record(62, 2, 0, "%s", text.c_str());
	const std::vector<std::string> lines = read_control("log");
	ASSERT_EQ(lines.size(), 1u);
	EXPECT_GT(lines[0].size(), 200u);
	EXPECT_EQ(("62 2 " + text).rfind(lines[0], 0), 0u);
}

TEST_F(log, full_ring_drops_the_oldest_and_says_how_many)
{
	for (int i = 0; i < 4096 + 7; i++)
		drv_log_record(62, 2, 0, "line %d", i);
	const std::vector<std::string> lines = read_control("log");
	ASSERT_EQ(lines.size(), 4097u);
	EXPECT_EQ(lines[0], "0 2 log: 7 older lines were dropped");
	EXPECT_EQ(lines[1], "62 2 line 7");
	EXPECT_EQ(lines.back(), "62 2 line 4102");
}

TEST_F(log, errors_flood_the_ring_and_not_the_console)
{
	using clock = std::chrono::steady_clock;
	const std::string held = "1 log: ";
	const auto begin = clock::now();
	u32 logged = 0, passed = 0, withheld = 0;
	const auto take = [&] {
		for (const std::string &line : printed.take()) {
			if (line.starts_with(held))
				withheld += std::stoul(line.substr(held.size()));
			else
				passed++;
		}
	};

	ASSERT_EQ(drv_log_register(62, "intr", 0), 0);
	for (; logged < 1000; logged++)
		drv_log_record(62, 1, 0, "error %u", logged);
	const auto seconds =
		std::chrono::duration_cast<std::chrono::seconds>(clock::now() - begin).count();
	take();
	EXPECT_LE(passed, 20 * (seconds + 2));
	EXPECT_EQ(read_control("log").size(), 1000u);
	drv_log_record(62, 2, 0, "information passes");
	EXPECT_EQ(printed.take(), std::vector<std::string>{"2 intr: information passes"});

	// The first error of a later period says how many did not pass.
	while (withheld == 0 && clock::now() - begin < std::chrono::seconds(20)) {
		std::this_thread::sleep_for(std::chrono::milliseconds(20));
		drv_log_record(62, 1, 0, "error %u", logged++);
		take();
	}
	EXPECT_EQ(passed + withheld, logged);
}

TEST_F(log, more_modules_than_there_is_room_for_are_refused_and_still_logged)
{
	u32 id = 0;

	while (drv_log_register(id, "module", 0) == 0)
		ASSERT_LT(++id, 1000u);
	drv_log_record(id, 1, 0, "homeless");
	EXPECT_EQ(read_control("log").back(), std::to_string(id) + " 1 homeless");
}

TEST_F(log, reading_while_others_write_and_clear_gives_whole_lines_only)
{
	std::vector<std::thread> writers;

	for (u32 id = 1; id <= 3; id++)
		writers.emplace_back([id] {
			for (int i = 0; i < 3000; i++)
				drv_log_record(id, 2, 0, "same text of module %u", id);
		});
	for (int i = 0; i < 20; i++) {
		for (const std::string &line : read_control("log")) {
			const std::string id = line.substr(0, 1);
			EXPECT_TRUE(line == id + " 2 same text of module " + id || id == "0")
				<< line;
		}
		if (i == 10)
			write_control("log_ctl", "clear");
	}
	for (std::thread &writer : writers)
		writer.join();
}

} // namespace
