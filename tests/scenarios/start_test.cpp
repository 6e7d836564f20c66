// SPDX-License-Identifier: GPL-2.0
//
// Start and stop of the module with everything that it can have: what is said,
// what a step that fails leaves (nothing), and who may hold it meanwhile.
#include <atomic>
#include <thread>

#include "sources.h"

namespace rig {

namespace {

using names = std::vector<std::string>;
using ids = std::vector<u32>;

// Combiners 0 to 3 of the device tree, 8 and 9 behind pins, and card 1 behind
// combiner 0.
class Start : public Sources {
protected:
	combiner board = make_combiner(0, 2), card = make_card_combiner(1, 0, 1);
	combiner pin8 = make_gpio_combiner(8, 0, 2), pin9 = make_gpio_combiner(9, 1, 1);

	void describe(u32 cfg_type = DTS | GPIO)
	{
		make_card_leaf(board.leaves[1], 1);
		place_behind(card, board, board.leaves[1]);
		pin9.async = 1;
		configure({board, pin8, pin9, card});
		use_sources(cfg_type, 0x300);
	}

	void expect_nothing_left()
	{
		EXPECT_EQ(testbed::device_open(), -2);
		EXPECT_EQ(testbed::proc_open("cfg"), -2);
		EXPECT_EQ(testbed::netlink_open(30), -93);
		EXPECT_EQ(testbed::platform_drivers(), names{});
		EXPECT_EQ(testbed::interrupts().find(" intr"), std::string::npos);
	}

	void expect_all_works()
	{
		ASSERT_EQ(card_up(card_inst(1)), 0);
		EXPECT_EQ(combiners(), (ids{8, 9, 0, 1, 2, 3, 36}));
		for (const combiner &c : {board, pin8, pin9, card})
			ASSERT_EQ(regist(c.leaves[0]), 0);
		for (const combiner &c : {board, pin8, pin9, card})
			expect_delivery(c.leaves[0]);
		EXPECT_NE(proc("runtime"), "");
	}
};

struct fatal_step {
	const char *name;
	const char *file, *command; // how it is made to fail
	int code;
	const char *lines; // errors, and the combiners that go again
};

class StartStep : public Start, public testing::WithParamInterface<fatal_step> {};

TEST_P(StartStep, fails_and_leaves_nothing)
{
	const fatal_step &step = GetParam();

	describe(ACPI | DTS | GPIO);
	command(step.file, step.command);
	EXPECT_EQ(testbed::load(), step.code);
	EXPECT_EQ(log_with({"1 [", "combiner free]enter"}), testbed::lines_of(step.lines));
	record();
	expect_nothing_left();
	command("board", "fault off");
	load();
	EXPECT_EQ(testbed::platform_drivers(), (names{"irq_combiner", "irq_combiner-acpi"}));
	expect_all_works();
}

const fatal_step fatal_steps[] = {
	{"control_device", "board", "fault plat_misc_register 1 -16", -16,
	 "1 [intr module init]misc_register fail, ret=-16"},
	{"pin", "board", "fault plat_gpiod_to_irq 2 -6", REFUSED,
	 "1 [intr init gpio combiner]gpio to virq fail, virq=-6\n"
	 "2 [intr combiner free]enter, id=8\n2 [intr combiner free]enter, id=9\n"
	 "1 [intr init combiner]init gpio combiner fail, ret=-14\n"
	 "1 [intr module init]init combiner fail, ret=-14"},
	{"first_driver", "board", "fault plat_platform_driver_register 1 -12", -12,
	 "1 [intr init combiner]register dts platform driver fail, ret=-12\n"
	 "1 [intr module init]init combiner fail, ret=-12\n"
	 "2 [intr combiner free]enter, id=8\n2 [intr combiner free]enter, id=9"},
	{"second_driver", "board", "fault plat_platform_driver_register 2 -16", -16,
	 "1 [intr init combiner]register acpi platform driver fail, ret=-16\n"
	 "1 [intr module init]init combiner fail, ret=-16\n"
	 "2 [intr combiner free]enter, id=3\n2 [intr combiner free]enter, id=2\n"
	 "2 [intr combiner free]enter, id=1\n2 [intr combiner free]enter, id=0\n"
	 "2 [intr combiner free]enter, id=8\n2 [intr combiner free]enter, id=9"},
};

INSTANTIATE_TEST_SUITE_P(Steps, StartStep, testing::ValuesIn(fatal_steps),
			 [](const auto &info) { return info.param.name; });

// The logging module has given no id yet, so its lines are nobody's.
TEST_F(Start, is_refused_without_logging)
{
	describe();
	command("log_ctl", "fail_register -5");
	EXPECT_EQ(testbed::load(), -22);
	EXPECT_EQ(testbed::read("log"), "0 1 [intr module init]log register fail, module-id=62, "
					"ret=0xfffffffb\n");
	expect_nothing_left();
	load();
	expect_all_works();
}

// The driver works without its proc directory, or with some of its files.
TEST_F(Start, works_without_some_or_all_proc_files)
{
	const names files = {"int_debug_switch", "debug_irq", "runtime", "cfg"};

	describe();
	for (size_t missing = 0; missing <= files.size(); missing++) {
		const bool directory = missing < files.size();

		clear_log();
		command("board", directory ? "fault plat_proc_create_data " +
						     std::to_string(missing + 1) + " 0"
					   : "fault plat_proc_mkdir 1 0");
		load();
		EXPECT_EQ(log_with({"1 ["}),
			  names{directory ? "1 [intr init proc]create " + files[missing] +
						    " proc fail"
					  : "1 [intr init proc]create intr proc fail"});
		for (size_t i = 0; i < files.size(); i++) {
			const int handle = testbed::proc_open(files[i]);

			if (directory && i < missing)
				EXPECT_GT(handle, 0) << files[i];
			else
				EXPECT_EQ(handle, -2) << files[i];
			if (handle > 0)
				testbed::proc_close(handle);
		}
		ASSERT_EQ(regist(board.leaves[0]), 0);
		expect_delivery(board.leaves[0]);
		unload();
		expect_nothing_left();
	}
	command("board", "fault off");
	load();
	expect_all_works();
}

TEST_F(Start, works_without_notification)
{
	describe();
	command("board", "fault plat_netlink_kernel_create 1 0");
	load();
	EXPECT_EQ(log_with({"1 ["}), names{"1 [intr init netlink ker]create netlink socket fail"});
	EXPECT_EQ(testbed::netlink_open(30), -93);
	expect_all_works();
	unload();
	expect_nothing_left();
	load();
	subscriber daemon;
	ASSERT_EQ(subscribe(board.leaves[0], daemon.port()), 0);
	fire_open(board.leaves[0]);
	EXPECT_TRUE(daemon.receives(board.leaves[0]));
}

const names start_lines = {
	"2 [intr module init]enter",
	"2 [intr get cfg]cfg_type_bitmap=0x6",
	"2 [intr get cfg]acpi_bitmap=0x0",
	"2 [intr get cfg]gpio_bitmap=0x300",
	"2 [intr get cfg]netlink_id=30",
	"2 [intr init gpio combiner]enter, gpio_bitmap=0x300",
	"2 [intr init gpio combiner]combiner_id=8, gpio=400",
	"2 [intr init gpio combiner]combiner_id=9, gpio=401",
	"2 [intr init gpio combiner]success",
	"2 [intr dev probe]enter, soc:irq_combiner@0, cfg_type_bitmap=0x6",
	"2 [intr dev probe]enter, soc:irq_combiner@1, cfg_type_bitmap=0x6",
	"2 [intr dev probe]enter, soc:irq_combiner@2, cfg_type_bitmap=0x6",
	"2 [intr dev probe]enter, soc:irq_combiner@3, cfg_type_bitmap=0x6",
	"2 [intr init proc]enter",
	"2 [intr init proc]success",
	"2 [intr init netlink ker]enter, netlink_id=30",
	"2 [intr init netlink ker]success",
	"2 [intr module init]success",
};

const names stop_lines = {
	"2 [intr module exit]enter",
	"2 [intr uninit netlink ker]enter",
	"2 [intr uninit netlink ker]success",
	"2 [intr del proc]enter",
	"2 [intr del proc]success",
	"2 [intr dev remove]enter, soc:irq_combiner@3, cfg_type_bitmap=0x6",
	"2 [intr combiner free]enter, id=3",
	"2 [intr dev remove]enter, soc:irq_combiner@2, cfg_type_bitmap=0x6",
	"2 [intr combiner free]enter, id=2",
	"2 [intr dev remove]enter, soc:irq_combiner@1, cfg_type_bitmap=0x6",
	"2 [intr combiner free]enter, id=1",
	"2 [intr dev remove]enter, soc:irq_combiner@0, cfg_type_bitmap=0x6",
	"2 [intr combiner free]enter, id=0",
	"1 [intr combiner free]combiner 36 is cascaded to a leaf of combiner 0, freed first",
	"2 [intr combiner free]enter, id=36",
	"2 [intr combiner free]enter, id=8",
	"2 [intr combiner free]enter, id=9",
	"2 [intr module exit]success",
};

TEST_F(Start, and_stop_log_exactly_these_lines)
{
	describe();
	load();
	EXPECT_EQ(log_with({"[intr module", "[intr get cfg]", "gpio combiner]",
			    "[intr dev probe]enter", "init proc]", "netlink ker]"}),
		  start_lines);

	expect_all_works();
	{
		subscriber daemon;
		ASSERT_EQ(subscribe(pin8.leaves[1], daemon.port()), 0);
		EXPECT_EQ(testbed::unload(), -11) << "the socket holds the driver";
	}
	ASSERT_EQ(subscribe(pin8.leaves[1], 4242), 0); // a port that no socket has
	clear_log();
	unload();
	EXPECT_EQ(log_with({"[intr module", "netlink ker]", "del proc]", "[intr dev remove]enter",
			    "combiner free]enter", "freed first"}),
		  stop_lines);
	for (const char *leaf :
	     {"0x10000, type=3", "0x0, type=3", "0x800, type=3", "0x801, type=3", "0x900, type=3"})
		EXPECT_TRUE(logged(std::string("leaf still in use, released, index_id=") + leaf))
			<< leaf;
	record("log", log());
	expect_nothing_left();
}

// A process opens the device whenever it is there, also while it goes again with
// a start that fails.
TEST_F(Start, serves_or_refuses_a_process_that_opens_all_the_time)
{
	std::atomic<bool> stop = false;
	std::atomic<int> served = 0, wrong = 0;

	describe();
	std::thread process([&] {
		while (!stop) {
			drv_intr_ioctl_para para{};
			const int code = testbed::ioctl(DRV_INTR_IOC_GET_NETLINK_ID, &para);

			// Not there (yet or any more), or served.
			if (code == 0)
				served += para.result == 30;
			wrong += code != 0 && code != -2 && code != -6 && code != -19;
			std::this_thread::yield();
		}
	});
	for (int round = 0; round < 8; round++) {
		command("board", "fault plat_platform_driver_register 1 -12");
		EXPECT_EQ(testbed::load(), -12) << round;
		command("board", "fault off");
		EXPECT_EQ(testbed::load(), 0) << round;
		const int before = served;
		EXPECT_TRUE(eventually([&] { return served > before; })) << round;
		EXPECT_TRUE(eventually([&] { return testbed::unload() == 0; })) << round;
		clear_log();
	}
	stop = true;
	process.join();
	EXPECT_EQ(wrong, 0);
	expect_nothing_left();
}

// A process that got in before the failure keeps a device that answers, and the
// load ends when it lets go.
TEST_F(Start, that_fails_waits_for_a_process_inside)
{
	describe();
	for (int round = 0; round < 100; round++) {
		std::atomic<bool> over = false;
		int code = 0, handle = -2;

		command("board", "fault plat_platform_driver_register 1 -12");
		std::thread loader([&] {
			code = testbed::load();
			over = true;
		});
		while (handle < 0 && !over)
			handle = testbed::device_open();
		if (handle > 0) {
			// By now the failure has been told to the log, or soon is.
			EXPECT_TRUE(eventually(
				[&] { return logged("1 [intr module init]init combiner fail"); }));
			drv_intr_ioctl_para para{};
			EXPECT_TRUE(eventually([&] {
				return testbed::ioctl(DRV_INTR_IOC_GET_NETLINK_ID, &para) == -2;
			}));
			EXPECT_EQ(testbed::device_ioctl(handle, DRV_INTR_IOC_GET_NETLINK_ID, &para),
				  0);
			EXPECT_EQ(para.result, 30u);
			para.inst_id = card_inst(1);
			EXPECT_EQ(testbed::device_ioctl(handle, DRV_INTR_IOC_INIT_CARD, &para),
				  REFUSED);
			EXPECT_TRUE(logged("]the driver is stopping, card_no=1"));
			EXPECT_FALSE(over);
			testbed::device_close(handle);
		}
		loader.join();
		EXPECT_EQ(code, -12);
		command("board", "fault off");
		clear_log();
		if (handle > 0) {
			load();
			expect_all_works();
			return;
		}
	}
	FAIL() << "no open came in time in 100 loads";
}

// Each time with all kinds of users of all kinds of combiners.
TEST_F(Start, and_stop_50_times_serve_all_users)
{
	describe();
	testbed::expedite_rcu(true);
	for (int round = 0; round < 50 && !HasFailure(); round++) {
		load();
		ASSERT_EQ(card_up(card_inst(1)), 0);
		for (const combiner &c : {board, pin9, card})
			ASSERT_EQ(regist(c.leaves[0]), 0);
		{
			subscriber daemon;
			ASSERT_EQ(subscribe(pin8.leaves[0], daemon.port()), 0);
			ASSERT_EQ(subscribe(card.leaves[0], daemon.port()), 0);
			clear_events();
			for (const combiner &c : {board, pin8, pin9})
				fire_open(c.leaves[0]);
			EXPECT_TRUE(daemon.receives(pin8.leaves[0])) << round;
			EXPECT_TRUE(wait_events(2)) << round;
			fire_open(card.leaves[0]);
			EXPECT_TRUE(daemon.receives(card.leaves[0])) << round;
		}
		unload();
		clear_log();
		clear_trace();
	}
	testbed::expedite_rcu(false);
}

} // namespace

} // namespace rig
