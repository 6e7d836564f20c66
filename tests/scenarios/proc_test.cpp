// SPDX-License-Identifier: GPL-2.0
//
// The driver's proc files: reads in whatever pieces, numbers written, a file that
// is open while the driver goes.
#include <algorithm>
#include <cstring>

#include <unistd.h>

#include "rig.h"

namespace rig {

namespace {

constexpr const char *proc_files[] = {"int_debug_switch", "debug_irq", "runtime", "cfg"};

class Proc : public Scenario {
protected:
	void SetUp() override
	{
		Scenario::SetUp();
		if (HasFatalFailure())
			return;
		load({make_combiner(0, 20, 3), make_combiner(1, 1)});
		clear_log();
	}

	static long write_to(const std::string &file, const void *data, size_t size)
	{
		const int handle = testbed::proc_open(file, true);

		if (handle <= 0)
			return handle;
		const long done = testbed::proc_write(handle, data, size);
		testbed::proc_close(handle);
		return done;
	}

	u32 switch_value()
	{
		drv_intr_ioctl_para para{};

		EXPECT_EQ(testbed::ioctl(DRV_INTR_IOC_GET_INT_DEBUG_EN, &para), 0);
		return para.result;
	}

	// The number behind "debug irq: ".
	u32 debug_irq()
	{
		const std::string text = proc("debug_irq");

		return static_cast<u32>(std::stoul(text.substr(text.find("debug irq: ") + 11)));
	}
};

TEST_F(Proc, reads_the_same_in_whatever_pieces)
{
	for (const char *file : proc_files) {
		const std::string text = proc(file);
		const auto size = static_cast<long>(text.size());
		char one, rest[512];
		std::string pieces;

		ASSERT_FALSE(text.empty()) << file;
		const int handle = testbed::proc_open(file);
		ASSERT_GT(handle, 0) << file;
		while (pieces.size() <= text.size() && testbed::proc_read(handle, &one, 1) == 1)
			pieces += one;
		EXPECT_EQ(pieces, text) << file;
		for (const long position : {size / 2, 1l, size - 1, 0l, size}) {
			EXPECT_EQ(testbed::proc_seek(handle, position), position) << file;
			const long due = std::min<long>(size - position, sizeof(rest));
			ASSERT_EQ(testbed::proc_read(handle, rest, sizeof(rest)), due) << file;
			EXPECT_EQ(std::string(rest, static_cast<size_t>(due)),
				  text.substr(static_cast<size_t>(position),
					      static_cast<size_t>(due)))
				<< file;
		}
		EXPECT_EQ(testbed::proc_seek(handle, 0), 0) << file;
		EXPECT_EQ(testbed::proc_read(handle, nullptr, 1), -14) << file;
		testbed::proc_close(handle);
	}
	EXPECT_GT(proc("cfg").size(), 8192u); // more than a page or two
	EXPECT_EQ(proc("debug_irq"), proc("int_debug_switch"));
	EXPECT_EQ(proc("debug_irq"), "interrupt debug switch: 0(off)\ndebug irq: 0\n");
}

struct written_number {
	const char *text;
	u32 value;
};

// Both files, by the same rules; each starts from a value that must be replaced.
TEST_F(Proc, writes_store_a_number)
{
	for (const written_number &c : {written_number{"1\n", 1},
					{"0x2a", 42},
					{"0X2A\n", 42},
					{"010", 8},
					{"18 and more", 18},
					{"abc", 0},
					{"-1", 0},
					{" 7", 0},
					{"\n", 0},
					{"", 0},
					{"4294967295", 0xffffffff},
					{"4294967297", 1},
					{"00000000017", 15},
					{"000000000001", 0},
					{"1234567890123456789\n", 3755744309u}}) {
		const std::string now = std::to_string(c.value);
		const size_t size = strlen(c.text);
		ASSERT_EQ(set_proc("int_debug_switch", "7"), 0);
		ASSERT_EQ(set_proc("debug_irq", "9"), 0);
		clear_log();
		EXPECT_EQ(write_to("debug_irq", c.text, size), static_cast<long>(size)) << c.text;
		EXPECT_EQ(write_to("int_debug_switch", c.text, size), static_cast<long>(size));
		EXPECT_EQ(debug_irq(), c.value) << c.text;
		EXPECT_EQ(switch_value(), c.value) << c.text;
		const std::vector<std::string> expected = {
			"2 [irq combiner debug irq write]debug irq is set, old:9, new:" + now,
			"2 [irq combiner int debug switch write]interrupt debug switch is set, "
			"old:7(on), new:" +
				now + (c.value ? "(on)" : "(off)"),
		};
		EXPECT_EQ(log(), expected) << c.text;
	}
	ASSERT_EQ(set_proc("int_debug_switch", "0"), 0);
	clear_log();
	ASSERT_EQ(set_proc("int_debug_switch", "1\n"), 0);
	EXPECT_TRUE(logged("old:0(off), new:1(on)"));
	// A write neither uses nor moves the place where reading goes on.
	const int handle = testbed::proc_open("debug_irq", true);
	ASSERT_GT(handle, 0);
	EXPECT_EQ(testbed::proc_seek(handle, 5), 5);
	EXPECT_EQ(testbed::proc_write(handle, "3", 1), 1);
	char text[6] = "";
	EXPECT_EQ(testbed::proc_read(handle, text, 5), 5);
	EXPECT_STREQ(text, "rupt ");
	EXPECT_EQ(debug_irq(), 3u);
	testbed::proc_close(handle);
}

TEST_F(Proc, refused_writes_change_nothing)
{
	char *hole = testbed::page_before_hole() + sysconf(_SC_PAGESIZE);

	ASSERT_EQ(set_proc("int_debug_switch", "5"), 0);
	ASSERT_EQ(set_proc("debug_irq", "6"), 0);
	hole[-1] = '1';
	clear_log();
	for (const char *file : {"int_debug_switch", "debug_irq"}) {
		EXPECT_EQ(write_to(file, nullptr, 1), -14) << file;
		EXPECT_EQ(write_to(file, hole - 1, 2), -14) << file;
	}
	for (const char *file : {"runtime", "cfg"})
		EXPECT_EQ(write_to(file, "1", 1), -5) << file;
	EXPECT_TRUE(log().empty()) << testing::PrintToString(log());
	EXPECT_EQ(proc("debug_irq"), "interrupt debug switch: 5(on)\ndebug irq: 6\n");
	// Only what is looked at must be readable.
	std::copy_n("12345678901", 11, hole - 11);
	EXPECT_EQ(write_to("debug_irq", hole - 11, 20), 20);
	EXPECT_EQ(debug_irq(), 3755744309u);
}

TEST_F(Proc, without_memory_a_file_is_empty)
{
	for (const char *file : proc_files) {
		command("board", "fault plat_kzalloc 1 0");
		EXPECT_EQ(proc(file), "") << file;
		command("board", "fault off");
		EXPECT_NE(proc(file), "") << file;
	}
}

TEST_F(Proc, open_file_fails_with_5_once_the_driver_has_gone)
{
	char text[16];
	std::vector<int> handles;

	for (const char *file : proc_files) {
		handles.push_back(testbed::proc_open(file, true));
		ASSERT_GT(handles.back(), 0) << file;
	}
	EXPECT_EQ(testbed::proc_read(handles[2], text, sizeof(text)), 16); // in the middle
	unload();
	for (const bool loaded_again : {false, true}) {
		for (const int handle : handles) {
			EXPECT_EQ(testbed::proc_read(handle, text, sizeof(text)), -5);
			EXPECT_EQ(testbed::proc_write(handle, "1", 1), -5);
		}
		if (!loaded_again)
			load();
	}
	EXPECT_EQ(switch_value(), 0u);
	for (const int handle : handles)
		testbed::proc_close(handle);
}

} // namespace

} // namespace rig
