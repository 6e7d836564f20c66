// SPDX-License-Identifier: GPL-2.0
//
// The sources of the board's own combiners, as the global configuration chooses
// them: device-tree devices, GPIO pins, the ACPI device. Suites Acpi* are for a
// machine that boots with ACPI.
#include <atomic>
#include <thread>

#include "sources.h"

namespace rig {

namespace {

using names = std::vector<std::string>;
using ids = std::vector<u32>;

// The device tree describes combiners 0 to 3. Combiner 8 is behind a pin.
class Source : public Sources {
protected:
	combiner board = make_combiner(0, 2), pin = make_gpio_combiner(8, 0, 2);
	combiner card = make_card_combiner(1, 0, 1);

	Source() { make_card_leaf(board.leaves[1], 1); }

	void expect_works(const leaf &leaf)
	{
		ASSERT_EQ(regist(leaf), 0) << leaf.name;
		expect_delivery(leaf);
		EXPECT_EQ(unregist(leaf), 0);
	}
};

struct choice {
	const char *name;
	u32 cfg_type;
	names drivers;
	ids up;
};

class SourceChoice : public Source, public testing::WithParamInterface<choice> {};

TEST_P(SourceChoice, takes_what_it_names_and_leaves_the_rest)
{
	const choice &choice = GetParam();

	place_at_gpio(card, 3);
	configure({board, pin, card});
	use_sources(choice.cfg_type, 1u << 8, 1u << 4);
	load();
	EXPECT_EQ(testbed::platform_drivers(), choice.drivers);
	EXPECT_EQ(combiners(), choice.up);
	if (choice.cfg_type & DTS)
		expect_works(board.leaves[0]);
	else
		EXPECT_EQ(regist(board.leaves[0]), 14);
	if (choice.cfg_type & GPIO)
		expect_works(pin.leaves[0]);
	else
		EXPECT_EQ(regist(pin.leaves[0]), 14);
	// Cards come whatever the board's own sources are.
	ASSERT_EQ(card_up(card_inst(1)), 0);
	expect_works(card.leaves[0]);
	EXPECT_FALSE(logged("1 [intr init"));
	unload();
	EXPECT_EQ(testbed::platform_drivers(), names{});
}

INSTANTIATE_TEST_SUITE_P(Bits, SourceChoice,
			 testing::Values(choice{"none", 0, {}, {}},
					 choice{"device_tree", DTS, {"irq_combiner"}, {0, 1, 2, 3}},
					 choice{"gpio", GPIO, {}, {8}},
					 choice{"device_tree_and_gpio",
						DTS | GPIO,
						{"irq_combiner"},
						{8, 0, 1, 2, 3}},
					 choice{"acpi", ACPI, {"irq_combiner"}, {}},
					 choice{"acpi_and_device_tree",
						ACPI | DTS,
						{"irq_combiner", "irq_combiner-acpi"},
						{0, 1, 2, 3}},
					 choice{"all",
						ACPI | DTS | GPIO,
						{"irq_combiner", "irq_combiner-acpi"},
						{8, 0, 1, 2, 3}}),
			 [](const auto &info) { return info.param.name; });

struct broken_pin {
	const char *name;
	const char *file, *command; // a fault; empty: the pin's number is wrong
	const char *line;
};

class SourcePin : public Source, public testing::WithParamInterface<broken_pin> {};

// Combiner 1 cannot come up, and combiner 0, which could, goes again.
TEST_P(SourcePin, that_fails_takes_the_driver_along)
{
	const broken_pin &broken = GetParam();
	combiner good = make_gpio_combiner(0, 0, 1), bad = make_gpio_combiner(1, 1, 1);
	const u32 gpio = bad.gpio;

	configure({good, bad});
	if (!*broken.file)
		table().nodes["irq_combiner@1"]["global_cfg"]["gpio"] = 4000;
	use_sources(DTS | GPIO, 0x3);
	if (*broken.file)
		command(broken.file, broken.command);
	EXPECT_EQ(testbed::load(), REFUSED);
	EXPECT_EQ(log_with({"1 [intr init", "1 [intr module", "combiner free]enter"}),
		  (names{broken.line, "2 [intr combiner free]enter, id=0",
			 "2 [intr combiner free]enter, id=1",
			 "1 [intr init combiner]init gpio combiner fail, ret=-14",
			 "1 [intr module init]init combiner fail, ret=-14"}));
	record();
	command("board", "fault off");
	command("monitor", "off");
	table().nodes["irq_combiner@1"]["global_cfg"]["gpio"] = gpio;
	install();
	load();
	EXPECT_TRUE(logged("2 [intr init gpio combiner]enter, gpio_bitmap=0x3"));
	EXPECT_TRUE(logged("2 [intr init gpio combiner]combiner_id=1, gpio=401"));
	EXPECT_EQ(combiners(), (ids{0, 1, 2, 3})); // 0 and 1 are the pins'
	expect_works(good.leaves[0]);
	expect_works(bad.leaves[0]);
}

const broken_pin broken_pins[] = {
	{"no_such_pin", "", "", "1 [intr init gpio combiner]gpio to virq fail, virq=-22"},
	{"no_interrupt", "board", "fault plat_gpiod_to_irq 2 -6",
	 "1 [intr init gpio combiner]gpio to virq fail, virq=-6"},
	{"interrupt_0", "board", "fault plat_gpiod_to_irq 2 0",
	 "1 [intr init gpio combiner]gpio to virq fail, virq=0"},
	{"trigger", "board", "fault plat_irq_set_irq_type 2 -22",
	 "1 [intr init gpio combiner]combiner init fail, ret=-14"},
	{"bring_up", "monitor", "refuse set 2 -5",
	 "1 [intr init gpio combiner]combiner init fail, ret=-14"},
};

INSTANTIATE_TEST_SUITE_P(Steps, SourcePin, testing::ValuesIn(broken_pins),
			 [](const auto &info) { return info.param.name; });

TEST_F(Source, pin_without_memory_for_its_record_fails_the_load)
{
	configure({pin});
	use_sources(GPIO, 1u << 8);
	command("board", "fault plat_kzalloc 1 0");
	EXPECT_EQ(testbed::load(), REFUSED);
	EXPECT_TRUE(logged("1 [intr init gpio combiner]combiner init soft fail"));
	EXPECT_FALSE(logged("combiner free]enter"));
	command("board", "fault off");
	load();
	expect_works(pin.leaves[0]);
}

TEST_F(Source, ids_that_pins_and_acpi_both_claim_are_refused)
{
	configure({pin});
	use_sources(ACPI | GPIO, 0x102, 0x10a);
	EXPECT_EQ(testbed::load(), -22);
	EXPECT_EQ(log_with({"1 ["}),
		  (names{"1 [intr init combiner]combiner_id=1 is in gpio_bitmap and in acpi_bitmap",
			 "1 [intr init combiner]combiner_id=8 is in gpio_bitmap and in acpi_bitmap",
			 "1 [intr module init]init combiner fail, ret=-22"}));
	EXPECT_FALSE(logged("combiner init soft"));
	// A bitmap of a source that is not in use says nothing.
	use_sources(GPIO, 0x100, 0x10a);
	load();
	expect_works(pin.leaves[0]);
}

// The device is taken, and its removal takes nothing from the pin's combiner.
TEST_F(Source, device_with_the_number_of_a_pin_takes_nothing_from_it)
{
	combiner c = make_gpio_combiner(0, 4, 1);

	configure({c});
	use_sources(DTS | GPIO, 0x1);
	load();
	EXPECT_TRUE(logged("2 [intr dts dev probe]combiner_id=0, combiner already exist"));
	EXPECT_EQ(combiners(), (ids{0, 1, 2, 3}));
	ASSERT_EQ(regist(c.leaves[0]), 0);
	EXPECT_EQ(testbed::unbind("irq_combiner", "soc:irq_combiner@0"), 0);
	EXPECT_TRUE(logged("2 [intr dts dev remove]combiner ptr is NULL"));
	expect_delivery(c.leaves[0]);
	EXPECT_EQ(testbed::bind("irq_combiner", "soc:irq_combiner@0"), 0);
	expect_delivery(c.leaves[0]);
}

struct trigger {
	u32 irq_type;
	bool known;
};

class SourceTrigger : public Source, public testing::WithParamInterface<trigger> {};

TEST_P(SourceTrigger, of_a_pin_is_set_or_fails_the_load)
{
	const auto &[irq_type, known] = GetParam();
	combiner last = make_combiner(BOARD_COMBINERS - 1, 1);

	place_at_gpio(last, 0);
	last.irq_type = irq_type;
	configure({last});
	use_sources(GPIO, 1u << last.id);
	if (known) {
		load();
		expect_works(last.leaves[0]);
		return;
	}
	EXPECT_EQ(testbed::load(), REFUSED);
	EXPECT_TRUE(logged("1 [intr set irq type]set irq type fail, ret=-22, irq_type=" +
			   std::to_string(irq_type)));
}

INSTANTIATE_TEST_SUITE_P(Types, SourceTrigger,
			 testing::Values(trigger{1, true}, trigger{2, true}, trigger{4, true},
					 trigger{8, true}, trigger{12, false}),
			 [](const auto &info) { return std::to_string(info.param.irq_type); });

struct name_case {
	const char *name;
	const char *device;
	const char *node; // of its configuration; empty: the device is refused
	const char *line;
};

class SourceName : public Source, public testing::WithParamInterface<name_case> {};

TEST_P(SourceName, says_which_combiner_it_is)
{
	const name_case &named = GetParam();
	combiner c = make_combiner(5, 1);

	configure({board, c});
	auto &nodes = table().nodes;
	if (*named.node) {
		const cfg::entries node = nodes["irq_combiner@5"];
		nodes.erase("irq_combiner@5");
		nodes[named.node] = node;
		install();
	}
	load();
	clear_log();
	EXPECT_EQ(add_device(named.device, "line:5"), *named.node != 0);
	EXPECT_TRUE(logged(named.line)) << testing::PrintToString(log());
	record();
	if (*named.node) {
		EXPECT_EQ(combiners().back(), 5u);
		expect_works(c.leaves[0]);
	} else {
		EXPECT_TRUE(logged("1 [intr dev probe]dev init fail"));
	}
	expect_works(board.leaves[0]);
}

INSTANTIATE_TEST_SUITE_P(
	Forms, SourceName,
	testing::Values(name_case{"plain", "irq_combiner@5", "irq_combiner@5",
				  "cfg_combiner_name=irq_combiner@5, inst_id=0xffffffff"},
			name_case{"text_in_front", "rack7.irq_combiner@5", "irq_combiner@5",
				  "cfg_combiner_name=irq_combiner@5, inst_id=0xffffffff"},
			name_case{"the_first_word_counts", "irq_combiner@5.irq_combiner@6",
				  "irq_combiner@5.irq_combiner@6",
				  "cfg_combiner_name=irq_combiner@5.irq_combiner@6"},
			name_case{"text_behind", "irq_combiner@5.0", "irq_combiner@5.0",
				  "cfg_combiner_name=irq_combiner@5.0,"},
			name_case{"31_characters", "irq_combiner@000000000000000005",
				  "irq_combiner@000000000000000005",
				  "cfg_combiner_name=irq_combiner@000000000000000005"},
			name_case{"32_characters", "irq_combiner@0000000000000000005", "",
				  "1 [intr dts dev probe]combiner init soft fail"},
			name_case{"nothing_behind_the_at", "irq_combiner@", "",
				  "1 [intr dts dev probe]get combiner id fail"},
			name_case{"no_number", "irq_combiner@five", "",
				  "1 [intr dts dev probe]get combiner id fail"},
			name_case{"no_at", "irq_combiner5", "",
				  "1 [intr dts dev probe]get combiner id fail"},
			name_case{"another_word", "combiner@5", "",
				  "1 [intr dts dev probe]invalid dev name"}),
	[](const auto &info) { return info.param.name; });

TEST_F(Source, device_without_interrupt_is_refused)
{
	load({make_combiner(5, 1)});
	EXPECT_FALSE(add_device("irq_combiner@5", "none"));
	EXPECT_TRUE(logged("1 [intr dts dev probe]get virq fail, virq=-6"));
	del_device("irq_combiner@5");
	command("board", "fault plat_platform_get_irq 1 0");
	EXPECT_FALSE(add_device("irq_combiner@5", "line:5"));
	EXPECT_TRUE(logged("1 [intr dts dev probe]get virq fail, virq=0"));
	EXPECT_EQ(combiners(), (ids{0, 1, 2, 3}));
}

TEST_F(Source, device_is_bound_once)
{
	load({board});
	EXPECT_EQ(testbed::bind("irq_combiner", "soc:irq_combiner@0"), -16);
	EXPECT_EQ(testbed::bind("irq_combiner", "soc:irq_combiner@9"), -19);
	expect_works(board.leaves[0]);
	EXPECT_EQ(testbed::unbind("irq_combiner", "soc:irq_combiner@0"), 0);
	EXPECT_EQ(combiners(), (ids{1, 2, 3}));
	EXPECT_EQ(testbed::unbind("irq_combiner", "soc:irq_combiner@0"), -19);
	EXPECT_EQ(regist(board.leaves[0]), 14);
	// A probe that fails tells the user so, and the next one works.
	command("monitor", "refuse set 1 -5");
	EXPECT_EQ(testbed::bind("irq_combiner", "soc:irq_combiner@0"), REFUSED);
	command("monitor", "off");
	EXPECT_EQ(testbed::bind("irq_combiner", "soc:irq_combiner@0"), 0);
	EXPECT_EQ(combiners(), (ids{1, 2, 3, 0}));
	expect_works(board.leaves[0]);
}

// What a source's device goes through at the hands of a user, while it and another
// combiner take interrupts: none is lost at the other one.
class SourceUnderFire : public Source {
protected:
	void rebind_under_fire(const std::string &device, const leaf &own, const leaf &other,
			       int rounds)
	{
		static constexpr size_t MOST = CLIENT_EVENTS / 2; // two leaves are heard
		std::atomic<bool> stop = false;
		size_t fired = 0;

		ASSERT_EQ(regist(other), 0);
		clear_events();
		std::thread storm([&] {
			for (; !stop && fired < MOST; fired++) {
				fire_next(other);
				testbed::control("cpld", "pulse " + own.name);
			}
		});
		for (int round = 0; round < rounds; round++) {
			EXPECT_EQ(regist(own), 0) << round;
			EXPECT_EQ(testbed::unbind("irq_combiner", device), 0) << round;
			EXPECT_EQ(testbed::bind("irq_combiner", device), 0) << round;
		}
		stop = true;
		storm.join();
		EXPECT_GT(fired, 0u);
		expect_delivered(other, fired);
		ASSERT_EQ(regist(own), 0);
		expect_delivery(own);
	}
};

TEST_F(SourceUnderFire, rebinding_loses_no_interrupt_of_others)
{
	const combiner other = make_combiner(1, 1);

	board.async = 1;
	load({board, other});
	rebind_under_fire("soc:irq_combiner@0", board.leaves[0], other.leaves[0], 20);
}

// On ACPI one device carries the lines of combiners 0, 1 and 2.
class Acpi : public SourceUnderFire {
protected:
	static constexpr char DEVICE[] = "NETB0009:00";

	combiner zero = make_combiner(0, 2), one = make_combiner(1, 1), two = make_combiner(2, 2);

	testbed::firmware firmware() const override { return testbed::firmware::acpi; }

	void start(u32 cfg_type, u32 acpi_bitmap, u32 gpio_bitmap = 0)
	{
		configure({zero, one, two, pin});
		use_sources(cfg_type, gpio_bitmap, acpi_bitmap);
		load();
	}
};

TEST_F(Acpi, device_carries_three_combiners)
{
	one.async = 1;
	start(ACPI, 0x7);
	EXPECT_EQ(testbed::platform_drivers(), names{"irq_combiner"});
	EXPECT_EQ(
		log_with({"dev probe]"}),
		(names{std::string("2 [intr dev probe]enter, ") + DEVICE + ", cfg_type_bitmap=0x1",
		       "2 [intr acpi dev probe]enter, acpi_bitmap=0x7",
		       "2 [intr acpi dev probe]success", "2 [intr dev probe]success"}));
	EXPECT_EQ(combiners(), (ids{0, 1, 2}));
	for (const combiner &c : {zero, one, two})
		ASSERT_EQ(regist(c.leaves[0]), 0);
	unload();
	EXPECT_EQ(log_with({"dev remove]", "combiner free]enter", "still in use"}).front(),
		  std::string("2 [intr dev remove]enter, ") + DEVICE + ", cfg_type_bitmap=0x1");
	EXPECT_TRUE(logged(std::string("2 [intr acpi dev remove]enter, platform_device.name=") +
			   DEVICE));
	EXPECT_TRUE(logged("2 [intr acpi dev remove]success"));
	record();
	load();
	for (const combiner &c : {zero, one, two})
		ASSERT_EQ(regist(c.leaves[0]), 0);
	for (const combiner &c : {zero, one, two})
		expect_delivery(c.leaves[0]);
}

TEST_F(Acpi, bitmap_says_which_lines_are_used)
{
	start(ACPI, 0x5);
	EXPECT_EQ(combiners(), (ids{0, 2}));
	expect_works(zero.leaves[0]);
	expect_works(two.leaves[0]);
	EXPECT_EQ(regist(one.leaves[0]), 14);
	unload();
	use_sources(ACPI, 0, 0);
	clear_log();
	load();
	EXPECT_TRUE(logged("2 [intr acpi dev probe]success"));
	EXPECT_EQ(combiners(), ids{});
}

struct acpi_step {
	const char *name;
	u32 bitmap;
	const char *file, *command; // how the step of the second combiner fails; may be empty
	const char *line;
	int code;
};

class AcpiStep : public Acpi, public testing::WithParamInterface<acpi_step> {};

// All or nothing: the driver stays, without a combiner, and the device can come later.
TEST_P(AcpiStep, fails_and_the_device_is_refused)
{
	const acpi_step &step = GetParam();

	configure({zero, one, two});
	use_sources(ACPI, 0, step.bitmap);
	if (*step.file)
		command(step.file, step.command);
	load();
	EXPECT_TRUE(logged(step.line)) << testing::PrintToString(log());
	EXPECT_TRUE(logged("2 [intr combiner free]enter, id=0"));
	EXPECT_TRUE(logged("1 [intr dev probe]dev init fail"));
	EXPECT_TRUE(logged("2 [intr module init]success"));
	EXPECT_EQ(combiners(), ids{});
	record();
	if (!*step.file) {
		EXPECT_EQ(testbed::bind("irq_combiner", DEVICE), step.code);
		return;
	}
	command(step.file, step.command);
	EXPECT_EQ(testbed::bind("irq_combiner", DEVICE), step.code);
	command("board", "fault off");
	command("monitor", "off");
	EXPECT_EQ(testbed::bind("irq_combiner", DEVICE), 0);
	expect_works(zero.leaves[0]);
	expect_works(two.leaves[0]);
}

INSTANTIATE_TEST_SUITE_P(
	Steps, AcpiStep,
	testing::Values(acpi_step{"no_such_interrupt", 0x9, "", "",
				  "1 [intr acpi dev probe]get virq fail, virq=-6, combiner_id=3",
				  REFUSED},
			acpi_step{"interrupt", 0x5, "board", "fault plat_platform_get_irq 2 -22",
				  "1 [intr acpi dev probe]get virq fail, virq=-22, combiner_id=2",
				  REFUSED},
			acpi_step{"record", 0x5, "board", "fault plat_kzalloc 8 0",
				  "1 [intr acpi dev probe]combiner init soft fail", REFUSED},
			acpi_step{"domain", 0x5, "board", "fault plat_irq_domain_create_tree 2 0",
				  "1 [intr acpi dev probe]combiner init fail", -12},
			acpi_step{"monitor_refuses", 0x5, "monitor", "refuse set 2 -5",
				  "1 [intr acpi dev probe]combiner init fail", REFUSED}),
	[](const auto &info) { return info.param.name; });

// With the device tree in use too, the device is taken as a device-tree one.
TEST_F(Acpi, device_is_refused_where_the_device_tree_is_in_use_too)
{
	start(ACPI | DTS | GPIO, 0x7, 1u << 8);
	EXPECT_EQ(testbed::platform_drivers(), (names{"irq_combiner", "irq_combiner-acpi"}));
	EXPECT_TRUE(logged("1 [intr dts dev probe]invalid dev name"));
	EXPECT_TRUE(logged("2 [intr module init]success"));
	EXPECT_EQ(combiners(), ids{8});
	expect_works(pin.leaves[0]);
	ASSERT_TRUE(add_device("irq_combiner@1", "line:1"));
	expect_works(one.leaves[0]);
}

TEST_F(Acpi, second_device_takes_nothing_from_the_first)
{
	start(ACPI, 0x3);
	ASSERT_EQ(regist(zero.leaves[0]), 0);
	EXPECT_FALSE(add_device("irq_combiner@9", "line:9"));
	EXPECT_TRUE(logged("1 [intr acpi dev probe]combiner_id=0, combiner already exist"));
	expect_delivery(zero.leaves[0]);
	del_device("irq_combiner@9");
	expect_delivery(zero.leaves[0]);
	// Without the first one it is as good as that, as far as its lines go.
	EXPECT_EQ(testbed::unbind("irq_combiner", DEVICE), 0);
	EXPECT_FALSE(add_device("irq_combiner@9", "line:9"));
	EXPECT_TRUE(logged("1 [intr acpi dev probe]get virq fail, virq=-6, combiner_id=1"));
	EXPECT_EQ(combiners(), ids{});
	EXPECT_EQ(testbed::bind("irq_combiner", DEVICE), 0);
	expect_works(zero.leaves[0]);
	expect_works(one.leaves[0]);
}

// A card behind a leaf of the ACPI device, and a combiner behind a pin.
TEST_F(Acpi, card_behind_it_goes_with_it_and_pin_stays)
{
	make_card_leaf(zero.leaves[1], 1);
	place_behind(card, zero, zero.leaves[1]);
	configure({zero, one, two, pin, card});
	use_sources(ACPI | GPIO, 1u << 8, 0x7);
	load();
	ASSERT_EQ(card_up(card_inst(1)), 0);
	EXPECT_EQ(combiners(), (ids{8, 0, 1, 2, 36}));
	expect_works(card.leaves[0]);
	expect_works(pin.leaves[0]);
	EXPECT_EQ(testbed::unbind("irq_combiner", DEVICE), 0);
	EXPECT_TRUE(logged("combiner 36 is cascaded to a leaf of combiner 0, freed first"));
	EXPECT_EQ(combiners(), ids{8});
	EXPECT_EQ(testbed::bind("irq_combiner", DEVICE), 0);
	ASSERT_EQ(card_up(card_inst(1)), 0);
	expect_works(card.leaves[0]);
}

TEST_F(Acpi, rebinding_loses_no_interrupt_of_others)
{
	start(ACPI | GPIO, 0x7, 1u << 8);
	rebind_under_fire(DEVICE, two.leaves[0], pin.leaves[0], 15);
	EXPECT_EQ(combiners(), (ids{8, 0, 1, 2}));
}

} // namespace

} // namespace rig
