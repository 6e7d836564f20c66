// SPDX-License-Identifier: GPL-2.0
//
// Plug-in cards: combiners that come with a card's own configuration, behind a
// GPIO pin or behind a leaf of another combiner, and go with it.
#include <atomic>
#include <thread>

#include "sources.h"

namespace rig {

namespace {

// Card 1 has combiner 36 behind a GPIO pin and combiner 37 behind the leaf (1, 7)
// of the board's combiner 0, whose other leaf must work whatever happens to cards.
class Card : public Sources {
protected:
	static constexpr u32 INST = 1u << 24;

	combiner board = make_combiner(0, 2);
	combiner first = make_card_combiner(1, 0, 2), second = make_card_combiner(1, 1, 2);
	const leaf &witness = board.leaves[0];
	const leaf &parent = board.leaves[1];

	Card()
	{
		make_card_leaf(board.leaves[1], 1);
		place_at_gpio(first, 0);
		place_behind(second, board, board.leaves[1]);
	}

	void start()
	{
		load({board, first, second});
		ASSERT_EQ(regist(witness), 0);
	}

	void start_with_card()
	{
		start();
		ASSERT_EQ(card_up(INST), 0);
		ASSERT_EQ(regist(first.leaves[0]), 0);
		ASSERT_EQ(regist(second.leaves[0]), 0);
	}

	// The common settings of one of the card's combiners.
	cfg::keys &settings(u32 index)
	{
		return table(INST).nodes["irq_combiner@" + std::to_string(index)]["global_cfg"];
	}

	void set_bitmap(u32 bitmap)
	{
		table(INST).nodes["global_cfg"]["common"]["combiner_bitmap"] = bitmap;
		install(INST);
	}

	void expect_card_works()
	{
		expect_delivery(first.leaves[0]);
		expect_delivery(second.leaves[0]);
	}

	// Nothing of the card is left, the board is unharmed, and the card can come.
	void expect_card_gone_and_able_to_come()
	{
		EXPECT_EQ(cards(), std::vector<u32>{});
		EXPECT_EQ(ask("client", "find 1 7"), 0) << "the parent leaf is still mapped";
		EXPECT_EQ(regist(first.leaves[0]), 14);
		expect_delivery(witness);
		ASSERT_EQ(regist(parent), 0);
		expect_delivery(parent);
		ASSERT_EQ(unregist(parent), 0);
		ASSERT_EQ(card_up(INST), 0);
		ASSERT_EQ(regist(first.leaves[0]), 0);
		ASSERT_EQ(regist(second.leaves[0]), 0);
		expect_card_works();
		expect_delivery(witness);
	}
};

TEST_F(Card, coming_and_going_log_exactly_these_lines)
{
	start();
	clear_log();
	ASSERT_EQ(card_up(INST), 0);
	EXPECT_EQ(log_with({"card combiner]", "combiner init soft]enter"}),
		  (std::vector<std::string>{
			  "2 [intr ioctl init card combiner]enter, inst_id=0x1000000",
			  "2 [intr init card combiner]enter, inst_id=0x1000000",
			  "2 [intr init card combiner]enter, bitmap=0x3",
			  "2 [intr combiner init soft]enter, combiner_id=36, "
			  "cfg_combiner_name=irq_combiner@0, inst_id=0x1000000",
			  "2 [intr init one card combiner]enter, int_type=1(gpio)",
			  "2 [intr init one card combiner]enter, gpio=400",
			  "2 [intr combiner init soft]enter, combiner_id=37, "
			  "cfg_combiner_name=irq_combiner@1, inst_id=0x1000000",
			  "2 [intr init one card combiner]enter, int_type=2(combiner)",
			  "2 [intr init card combiner]success",
			  "2 [intr ioctl init card combiner]success"}));
	EXPECT_EQ(cards(), (std::vector<u32>{36, 37}));
	EXPECT_FALSE(logged("1 [")) << "an error line in a clean bring-up";
	record();
	EXPECT_NE(report(DRV_INTR_IOC_DBG_RUNTIME)
			  .find("  index_id              : 1\n  type                  : 7\n"),
		  std::string::npos);
	ASSERT_EQ(regist(first.leaves[0]), 0);
	ASSERT_EQ(regist(second.leaves[0]), 0);
	EXPECT_EQ(unregist(first.leaves[0]), 0);
	EXPECT_EQ(unregist(second.leaves[0]), 0);
	clear_log();
	clear_trace();
	ASSERT_EQ(card_down(INST), 0);
	EXPECT_EQ(log_with({"deinit card"}),
		  (std::vector<std::string>{
			  "2 [intr ioctl deinit card combiner]enter, inst_id=0x1000000",
			  "2 [intr ioctl deinit card combiner]success"}));
	record();
	expect_card_gone_and_able_to_come();
	EXPECT_EQ(unregist(first.leaves[0]), 0);
	EXPECT_EQ(unregist(second.leaves[0]), 0);
	clear_log();
	ASSERT_EQ(card_down(INST), 0);
	EXPECT_FALSE(logged("1 [")) << "an error line in a clean tear-down";
}

struct id_case {
	const char *name;
	u32 inst, card_no;
};

class CardId : public Sources, public testing::WithParamInterface<id_case> {};

// The configuration is that of the whole instance id, the ids are the card's.
TEST_P(CardId, names_a_card_and_its_configuration)
{
	const auto &[name, inst, card_no] = GetParam();
	combiner c = make_card_combiner(card_no, 2, 1);

	c.inst = c.leaves[0].inst = inst;
	place_at_gpio(c, 5);
	load({c});
	ASSERT_EQ(card_up(inst), 0);
	EXPECT_EQ(cards(), std::vector<u32>{32 + 4 * card_no + 2});
	ASSERT_EQ(regist(c.leaves[0]), 0);
	expect_delivery(c.leaves[0]);
	ASSERT_EQ(card_down(inst), 0);
	EXPECT_EQ(cards(), std::vector<u32>{});
}

INSTANTIATE_TEST_SUITE_P(Forms, CardId,
			 testing::Values(id_case{"high_byte", 0x03000000, 3},
					 id_case{"high_byte_decides", 0x00000005, 0},
					 id_case{"other_bits_ignored", 0x07ab1234, 7},
					 id_case{"low_half", 0xff000005, 5},
					 id_case{"low_half_alone", 0xffab0005, 5},
					 id_case{"largest", 0xff00fffe, 65534}),
			 [](const auto &info) { return info.param.name; });

// Each has a configuration that would bring a combiner up.
TEST_F(Card, whose_id_is_none_reads_nothing)
{
	std::vector<combiner> all;
	u32 pin = 0;

	for (const u32 inst : {0xff00ffffu, 0xff12ffffu}) {
		combiner c = make_card_combiner(9, pin, 1);
		c.inst = c.leaves[0].inst = inst;
		place_at_gpio(c, pin++);
		all.push_back(c);
	}
	configure(all);
	table().nodes["global_cfg"]["common"]["combiner_bitmap"] = 1;
	install();
	load();
	const std::vector<u32> before = combiners();
	for (const u32 inst : {0xff00ffffu, 0xff12ffffu, 0xffffffffu}) {
		clear_log();
		EXPECT_EQ(card_up(inst), REFUSED);
		EXPECT_TRUE(logged("1 [intr init card combiner]invalid inst id"));
		EXPECT_TRUE(logged(
			"1 [intr ioctl init card combiner]card combiner init fail, ret=-22"));
		EXPECT_FALSE(logged("bitmap="));
		EXPECT_EQ(card_down(inst), REFUSED);
		EXPECT_TRUE(logged("1 [intr ioctl deinit card combiner]invalid inst id"));
		EXPECT_EQ(combiners(), before);
	}
}

TEST_F(Card, combiners_are_those_of_the_bitmap)
{
	combiner last = make_card_combiner(2, 3, 1);

	place_at_gpio(last, 1);
	load({board, first, second, last});
	ASSERT_EQ(card_up(last.inst), 0);
	EXPECT_EQ(card_up(last.inst), REFUSED);
	EXPECT_EQ(cards(), std::vector<u32>{43});
	ASSERT_EQ(card_down(last.inst), 0);
	EXPECT_EQ(cards(), std::vector<u32>{});
	set_bitmap(0x12);
	ASSERT_EQ(card_up(INST), 0);
	EXPECT_TRUE(logged("2 [intr init card combiner]enter, bitmap=0x12"));
	EXPECT_EQ(cards(), std::vector<u32>{37});
	ASSERT_EQ(card_down(INST), 0);
	table(INST).nodes["global_cfg"]["common"].erase("combiner_bitmap");
	install(INST);
	ASSERT_EQ(card_up(INST), 0);
	EXPECT_TRUE(logged("2 [intr init card combiner]enter, bitmap=0x0"));
	EXPECT_EQ(cards(), std::vector<u32>{});
	// A card without any configuration at all.
	ASSERT_EQ(card_up(card_inst(6)), 0);
	EXPECT_EQ(cards(), std::vector<u32>{});
}

struct no_parent_case {
	const char *name;
	u32 int_type, gpio;
};

class CardWithoutParent : public Card, public testing::WithParamInterface<no_parent_case> {};

TEST_P(CardWithoutParent, is_refused_as_a_whole)
{
	start();
	settings(1)["int_type"] = GetParam().int_type;
	settings(1)["gpio"] = GetParam().gpio;
	install(INST);
	clear_log();
	EXPECT_EQ(card_up(INST), REFUSED);
	EXPECT_TRUE(logged("1 [intr init one card combiner]map irq fail, card_no=1"));
	EXPECT_TRUE(logged("1 [intr ioctl init card combiner]card combiner init fail, ret=-14"));
	EXPECT_TRUE(logged("2 [intr combiner free]enter, id=36"));
	record();
	settings(1)["int_type"] = 2;
	install(INST);
	expect_card_gone_and_able_to_come();
}

INSTANTIATE_TEST_SUITE_P(Kinds, CardWithoutParent,
			 testing::Values(no_parent_case{"external", 0, BOARD_GPIO_BASE + 1},
					 no_parent_case{"unknown", 5, BOARD_GPIO_BASE + 1},
					 no_parent_case{"no_such_pin", 1, 4000}),
			 [](const auto &info) { return info.param.name; });

TEST_F(Card, does_not_come_behind_a_leaf_that_is_missing)
{
	board.leaves[1].index = 2; // of card 2
	start();
	EXPECT_EQ(card_up(INST), REFUSED);
	EXPECT_TRUE(logged("2 [mapping irq]not support para, index_id=0x1, type=7"));
	EXPECT_TRUE(logged("1 [intr init one card combiner]map irq fail, card_no=1"));
	EXPECT_EQ(cards(), std::vector<u32>{});
	expect_delivery(witness);
}

// The leaf was mapped for the card, and is unmapped with it.
TEST_F(Card, does_not_come_behind_a_direct_leaf)
{
	combiner direct{.id = 2, .direct = 1, .leaves = {make_leaf(2, 0, 0)}};

	make_card_leaf(direct.leaves[0], 1);
	board.leaves[1].index = 0x77;
	configure({board, first, direct});
	settings(1) = {{"int_type", 2}};
	set_bitmap(3);
	load();
	EXPECT_EQ(card_up(INST), REFUSED);
	EXPECT_TRUE(logged("parent leaf in use or direct, index_id=0x1, type=7"));
	EXPECT_EQ(cards(), std::vector<u32>{});
	EXPECT_EQ(ask("client", "find 1 7"), 0);
	ASSERT_EQ(regist(direct.leaves[0], "quiesce=" + direct.leaves[0].name), 0);
	clear_events();
	command("cpld", "assert " + direct.leaves[0].name);
	expect_events(1);
}

// Whoever has the leaf keeps it, undisturbed by the card that wants it.
TEST_F(Card, does_not_take_a_leaf_in_use)
{
	start();
	subscriber daemon;
	ASSERT_EQ(regist(parent), 0);
	EXPECT_EQ(card_up(INST), REFUSED);
	EXPECT_TRUE(
		logged("1 [intr claim parent]parent leaf in use or direct, index_id=0x1, type=7"));
	EXPECT_EQ(cards(), std::vector<u32>{});
	expect_delivery(parent);
	ASSERT_EQ(unregist(parent), 0);

	ASSERT_EQ(subscribe(parent, daemon.port()), 0);
	EXPECT_EQ(card_up(INST), REFUSED);
	EXPECT_EQ(cards(), std::vector<u32>{});
	fire_open(parent);
	EXPECT_TRUE(daemon.receives(parent));
	EXPECT_EQ(enable(parent), 0);
	EXPECT_EQ(depth("leaf:1:7"), 0);
	ASSERT_EQ(unsubscribe(parent, daemon.port()), 0);
	expect_card_gone_and_able_to_come();

	// Now it is the card's.
	EXPECT_EQ(regist(parent), 14);
	EXPECT_EQ(subscribe(parent, daemon.port()), REFUSED);
	EXPECT_TRUE(logged(
		"1 [intr request irq]leaf is the parent of combiner 37, index_id=0x1, type=7"));
	EXPECT_EQ(ask("client", "unregist 1 7"), 0);
	expect_card_works();
}

// Also under another instance id that gives the same number.
TEST_F(Card, that_is_there_is_not_brought_up_again)
{
	start_with_card();
	table(0xff000001).nodes = table(INST).nodes;
	install(0xff000001);
	for (const u32 inst : {INST, 0xff000001u}) {
		clear_log();
		EXPECT_EQ(card_up(inst), REFUSED);
		EXPECT_TRUE(logged("1 [intr init card combiner]combiner_id=36, combiner already "
				   "exist, card_no=1"));
		EXPECT_EQ(cards(), (std::vector<u32>{36, 37}));
		expect_card_works();
	}
	EXPECT_EQ(card_down(0xff000001), 0);
	EXPECT_EQ(cards(), std::vector<u32>{});
}

// A device of the board with a number that is a card's is none of the card's.
TEST_F(Card, leaves_a_device_of_its_number_alone)
{
	combiner device = make_combiner(36, 1);

	device.line = 4;
	load({board, first, second, device});
	ASSERT_TRUE(add_device("irq_combiner@36", "line:4"));
	ASSERT_EQ(regist(device.leaves[0]), 0);
	EXPECT_EQ(card_up(INST), REFUSED);
	EXPECT_TRUE(logged("combiner_id=36, combiner already exist, card_no=1"));
	EXPECT_EQ(card_down(INST), 0);
	EXPECT_EQ(cards(), std::vector<u32>{36});
	expect_delivery(device.leaves[0]);
}

// Tear-down takes what the configuration names then.
TEST_F(Card, stays_where_its_configuration_changed_meanwhile)
{
	start_with_card();
	set_bitmap(1);
	EXPECT_EQ(card_down(INST), 0);
	EXPECT_TRUE(logged("1 combiner_id=37 stays, combiner_bitmap=0x1 does not name it"));
	EXPECT_EQ(cards(), std::vector<u32>{37});
	expect_delivery(second.leaves[0]);
	EXPECT_EQ(card_up(INST), REFUSED);
	EXPECT_TRUE(logged("combiner_id=37, combiner already exist, card_no=1"));

	const cfg::table kept = table(INST);
	drop_table(INST);
	EXPECT_EQ(card_down(INST), 0);
	EXPECT_TRUE(logged("1 combiner_id=37 stays, combiner_bitmap=0x0 does not name it"));
	expect_delivery(second.leaves[0]);

	table(INST) = kept;
	set_bitmap(3);
	EXPECT_EQ(card_down(INST), 0);
	expect_card_gone_and_able_to_come();
}

TEST_F(Card, going_releases_leaves_that_are_in_use)
{
	start_with_card();
	subscriber daemon;

	ASSERT_EQ(subscribe(first.leaves[1], daemon.port()), 0);
	ASSERT_EQ(subscribe(second.leaves[0], daemon.port()), 0);
	fire_open(first.leaves[1]);
	ASSERT_TRUE(daemon.receives(first.leaves[1])); // and leaves it disabled
	clear_log();
	ASSERT_EQ(card_down(INST), 0);
	for (const char *leaf : {"0x10000", "0x10001", "0x10100"})
		EXPECT_TRUE(logged(std::string("leaf still in use, released, index_id=") + leaf))
			<< leaf;
	EXPECT_EQ(subscribe(first.leaves[1], daemon.port()), REFUSED);
	EXPECT_EQ(unregist(first.leaves[0]), 22);
	EXPECT_EQ(unregist(second.leaves[0]), 22);
	clear_events();
	for (const leaf &leaf : {first.leaves[0], first.leaves[1], second.leaves[0]})
		fire(leaf);
	EXPECT_TRUE(daemon.silent());
	EXPECT_TRUE(events().empty());
	expect_card_gone_and_able_to_come();
}

// The callback is through before the card's tear-down returns: its module may go then.
TEST_F(Card, waits_for_a_callback_that_runs)
{
	start();
	ASSERT_EQ(card_up(INST), 0);
	ASSERT_EQ(regist(first.leaves[0], "hold=1"), 0);
	fire(first.leaves[0]);
	ASSERT_TRUE(wait_events(1));
	clear_log();
	std::thread pull([&] {
		EXPECT_EQ(card_down(INST), 0);
		command("cpld", "mark gone");
	});
	EXPECT_TRUE(eventually([&] { return logged("leaf still in use, released"); }));
	command("client", "let_go");
	pull.join();
	std::vector<std::string> marks = trace();
	std::erase_if(marks, [](const std::string &line) { return !line.starts_with("mark"); });
	EXPECT_EQ(marks, (std::vector<std::string>{"mark handler index=0x10000 type=3",
						   "mark done index=0x10000 type=3", "mark gone"}));
}

// The parent leaf's flow handler is gone while the card's leaves are still being
// released: an interrupt that got there would never end.
TEST_F(Card, parent_leaf_cannot_be_enabled_while_the_card_goes)
{
	start_with_card();
	ASSERT_EQ(unregist(second.leaves[0]), 0);
	ASSERT_EQ(regist(second.leaves[0], "hold=1"), 0);
	expect_delivery(second.leaves[0]);
	std::thread pull([&] { EXPECT_EQ(card_down(INST), 0); });
	EXPECT_TRUE(eventually([&] { return logged("[intr combiner free]enter, id=37"); }));
	for (int i = 0; i < 20; i++)
		EXPECT_NE(enable(parent), 0);
	fire(second.leaves[1]);
	command("client", "let_go");
	pull.join();
	expect_card_gone_and_able_to_come();
}

TEST_F(Card, that_is_not_there_goes_in_silence)
{
	start();
	clear_log();
	EXPECT_EQ(card_down(INST), 0);
	EXPECT_EQ(card_down(card_inst(200)), 0);
	EXPECT_FALSE(logged("1 ["));
	EXPECT_FALSE(logged("combiner free"));
	expect_card_gone_and_able_to_come();
}

TEST_F(Card, goes_with_the_driver)
{
	start_with_card();
	unload();
	EXPECT_TRUE(logged("2 [intr combiner free]enter, id=36"));
	EXPECT_TRUE(logged("2 [intr combiner free]enter, id=37"));
	EXPECT_TRUE(logged("leaf still in use, released, index_id=0x10100, type=3"));
	EXPECT_FALSE(logged("leaf still in use, released, index_id=0x1, type=7"))
		<< "the parent leaf is the driver's own";
	load();
	ASSERT_EQ(regist(witness), 0);
	expect_card_gone_and_able_to_come();
}

struct failing_step {
	const char *name;
	const char *file, *command; // how the second combiner's step fails
	const char *line; // what must be said
};

class CardStep : public Card, public testing::WithParamInterface<failing_step> {};

TEST_P(CardStep, fails_and_the_whole_card_is_gone)
{
	first.async = second.async = 1;
	start();
	clear_log();
	command(GetParam().file, GetParam().command);
	EXPECT_EQ(card_up(INST), REFUSED);
	EXPECT_TRUE(logged(GetParam().line)) << testing::PrintToString(log());
	EXPECT_TRUE(logged("2 [intr combiner free]enter, id=36"));
	EXPECT_TRUE(logged("1 [intr ioctl init card combiner]card combiner init fail, ret=-14"));
	EXPECT_FALSE(testbed::thread_exists("intr36-handler"));
	EXPECT_FALSE(testbed::thread_exists("intr37-handler"));
	EXPECT_FALSE(logged("skip free irq")) << "the parent leaf is given back once";
	record();
	command("board", "fault off");
	command("monitor", "off");
	command("cpld", "fail off");
	expect_card_gone_and_able_to_come();
}

// A record, two leaves' configurations and two leaves make five allocations, two
// leaves behind two levels four register writes.
INSTANTIATE_TEST_SUITE_P(
	Steps, CardStep,
	testing::Values(failing_step{"record", "board", "fault plat_kzalloc 6 0",
				     "1 [intr combiner init soft]malloc combiner mem fail"},
			failing_step{"leaf_records", "board", "fault plat_kzalloc 10 0",
				     "1 [intr combiner init]init irq info fail, ret=-12"},
			failing_step{"mapping", "board", "fault plat_irq_create_mapping 1 0",
				     "1 [intr init one card combiner]map irq fail, card_no=1"},
			failing_step{"node", "board",
				     "fault plat_irq_domain_alloc_named_fwnode 2 0",
				     "1 [intr domain alloc]intr alloc fwnode fail"},
			failing_step{"register_write", "cpld", "fail write 7 1 -5",
				     "1 [intr init one card combiner]combiner init fail, ret=-14"}),
	[](const auto &info) { return info.param.name; });

// Both behind pins: the second pin has no interrupt, or cannot say so.
TEST_F(Card, failing_pin_of_one_combiner_refuses_the_whole_card)
{
	second = make_card_combiner(1, 1, 2);
	place_at_gpio(second, 1);
	start();
	for (const char *fault :
	     {"plat_gpiod_to_irq 2 -6", "plat_gpiod_to_irq 2 0", "plat_gpio_to_desc 2 0"}) {
		clear_log();
		command("board", std::string("fault ") + fault);
		EXPECT_EQ(card_up(INST), REFUSED) << fault;
		EXPECT_TRUE(logged("1 [intr init one card combiner]map irq fail, card_no=1"));
		EXPECT_EQ(cards(), std::vector<u32>{}) << fault;
	}
	// A pin that is wired as input may refuse to become one.
	command("board", "fault plat_gpiod_direction_input 2 -5");
	EXPECT_EQ(card_up(INST), 0);
	EXPECT_NE(command("board", "fault count").find("hit=1"), std::string::npos);
	ASSERT_EQ(regist(first.leaves[0]), 0);
	ASSERT_EQ(regist(second.leaves[0]), 0);
	expect_card_works();
	expect_delivery(witness);
}

struct kind_case {
	const char *name;
	u32 at_gpio, async, sync, outer_async, outer_irq_type;
	const char *context; // how its name begins
};

class CardKind : public Card, public testing::WithParamInterface<kind_case> {};

TEST_P(CardKind, delivers_in_its_context)
{
	const kind_case &kind = GetParam();
	combiner &c = kind.at_gpio ? first : second;

	board.async = kind.outer_async;
	board.leaves[1].irq_type = kind.outer_irq_type;
	c.async = kind.async;
	for (leaf &leaf : c.leaves)
		leaf.sync = kind.sync;
	start();
	ASSERT_EQ(card_up(INST), 0);
	for (const leaf &leaf : c.leaves)
		ASSERT_EQ(regist(leaf), 0);
	clear_events();
	for (u32 shot = 0; shot < 20; shot++)
		fire_next(c.leaves[shot % 2]);
	expect_delivered(c.leaves[0], 10);
	expect_delivered(c.leaves[1], 10);
	for (const event &event : events())
		EXPECT_TRUE(event.context.starts_with(kind.context)) << event.context;
	EXPECT_EQ(depth("line:" + std::to_string(c.line)), 0);
}

INSTANTIATE_TEST_SUITE_P(
	Kinds, CardKind,
	testing::Values(kind_case{"gpio_sync", 1, 0, 1, 0, 8, "hardirq"},
			kind_case{"gpio_threaded", 1, 0, 0, 0, 8, "thread:irq/"},
			kind_case{"gpio_async", 1, 1, 1, 0, 8, "thread:intr36-handler"},
			kind_case{"leaf_sync", 0, 0, 1, 0, 8, "hardirq"},
			kind_case{"leaf_sync_edge", 0, 0, 1, 0, 1, "hardirq"},
			kind_case{"leaf_threaded", 0, 0, 0, 0, 8, "thread:irq/"},
			kind_case{"leaf_async", 0, 1, 1, 0, 8, "thread:intr37-handler"},
			kind_case{"leaf_async_edge", 0, 1, 0, 0, 1, "thread:irq/"},
			kind_case{"leaf_in_async", 0, 0, 1, 1, 8, "thread:intr0-handler"}),
	[](const auto &info) { return info.param.name; });

// While another card and the board take interrupts: none is lost there. In an
// emulated machine each wait for the kernel's readers takes tens of milliseconds,
// unless RCU is expedited.
TEST_F(Card, plugging_500_times_loses_no_interrupt_of_others)
{
	static constexpr int ROUNDS = 500;
	static constexpr size_t MOST = CLIENT_EVENTS / 3; // three leaves are heard
	combiner other = make_card_combiner(2, 0, 1);
	std::atomic<bool> stop = false;
	size_t fired = 0;

	place_at_gpio(other, 7);
	first.async = 1;
	load({board, first, second, other});
	ASSERT_EQ(card_up(card_inst(2)), 0);
	ASSERT_EQ(regist(witness), 0);
	ASSERT_EQ(regist(other.leaves[0]), 0);
	clear_events();
	std::thread fire_all([&] {
		for (; !stop && fired < MOST; fired++) {
			fire_next(witness);
			fire_next(other.leaves[0]);
			testbed::control("cpld", "pulse " + first.leaves[0].name);
			testbed::control("cpld", "pulse " + second.leaves[0].name);
		}
	});
	testbed::expedite_rcu(true);
	for (int round = 0; round < ROUNDS && !HasFailure(); round++) {
		EXPECT_EQ(card_up(INST), 0) << round;
		if (round % 4 == 0) {
			EXPECT_EQ(regist(first.leaves[0], "tag=gone"), 0) << round;
		}
		EXPECT_EQ(card_down(INST), 0) << round;
		clear_log();
		clear_trace();
	}
	testbed::expedite_rcu(false);
	stop = true;
	fire_all.join();
	printf("%d times, %zu interrupts at each of two leaves meanwhile\n", ROUNDS, fired);
	EXPECT_GT(fired, 10u);
	expect_delivered(witness, fired);
	expect_delivered(other.leaves[0], fired);
}

} // namespace

} // namespace rig
