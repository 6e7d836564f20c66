// SPDX-License-Identifier: GPL-2.0
//
// Interrupts that another driver requested by their numbers, past this one: parent
// lines that are in use, leaves that were mapped for it, lines that a failed
// bring-up leaves to it.
#include "sources.h"

namespace rig {

// No combiner ever has these: a line that was one's parent can be requested no more.
static const std::string FREE_LINE = "line:24", FREE_LINE_RAISE = "raise 24";
static constexpr u32 FREE_PIN = 6;
static const std::string FREE_PIN_LINE = "line:38";

class ForeignRequest : public Sources {
protected:
	// Combiner 0 must work whatever happens to the others.
	combiner witness = make_combiner(0, 1), c = make_combiner(4, 3, 3);

	void start()
	{
		configure({witness, c});
		load();
		ASSERT_EQ(regist(witness.leaves[0]), 0);
	}

	int request(const std::string &irq)
	{
		return static_cast<int>(ask("board", "request " + irq));
	}
	void let_go(const std::string &irq) { command("board", "free " + irq); }

	// What the command causes reaches the other driver's handler. More than once where
	// it must be: the board withdraws an interrupt without a cause when a register
	// changes.
	void expect_taken(const std::string &irq, const std::string &file, const std::string &cause)
	{
		const long before = ask("board", "taken " + irq);
		const auto taken = [&] { return ask("board", "taken " + irq) > before; };
		const auto taken_once_caused = [&] {
			command(file, cause);
			return eventually(taken, 200);
		};

		EXPECT_TRUE(eventually(taken_once_caused, 20)) << irq << " is silent";
	}
};

struct early_failure {
	const char *name;
	const char *file, *command; // how to make it fail
	u32 direct;
};

class FailedBringUp : public ForeignRequest, public testing::WithParamInterface<early_failure> {};

// The flow handler of the line is its controller's, and a combiner that was never
// chained to it must leave it where it is.
TEST_P(FailedBringUp, leaves_the_line_as_it_was)
{
	c.async = 1;
	if (GetParam().direct) {
		c.direct = 1;
		c.leaves = {make_leaf(4, 0, 0)};
	}
	start();
	const int before = depth(FREE_LINE);
	command(GetParam().file, GetParam().command);
	EXPECT_FALSE(add_device("irq_combiner@4", FREE_LINE));
	EXPECT_EQ(depth(FREE_LINE), before);
	command("board", "fault off");
	command("monitor", "off");
	command("cpld", "fail off");
	ASSERT_EQ(request(FREE_LINE), 0);
	expect_taken(FREE_LINE, "board", FREE_LINE_RAISE);
	let_go(FREE_LINE);
}

INSTANTIATE_TEST_SUITE_P(
	Steps, FailedBringUp,
	testing::Values(
		early_failure{"monitor", "monitor", "refuse set 1 -5", 0},
		early_failure{"handler_data", "board", "fault plat_irq_set_handler_data 1 -22", 0},
		early_failure{"thread", "board", "fault plat_kthread_create_on_node 1 -12", 0},
		early_failure{"thread_of_a_direct_one", "board",
			      "fault plat_kthread_create_on_node 1 -12", 1},
		early_failure{"domain", "board", "fault plat_irq_domain_create_tree 1 0", 0},
		early_failure{"register_write", "cpld", "fail write 1 1 -5", 0}),
	[](const auto &info) { return info.param.name; });

// The same of a parent line that is a leaf: it serves a handler of its own again.
TEST_F(ForeignRequest, failed_bring_up_behind_a_leaf_leaves_the_leaf)
{
	combiner inner = make_combiner(9, 1);
	const leaf &parent = c.leaves[1];

	inner.async = 1;
	configure({witness, c, inner});
	load();
	ASSERT_TRUE(add_device("irq_combiner@4", "line:4"));
	command("board", "fault plat_kthread_create_on_node 1 -12");
	EXPECT_FALSE(add_device("irq_combiner@9", "leaf:0x401:3"));
	command("board", "fault off");
	EXPECT_EQ(depth(parent), 1);
	ASSERT_EQ(regist(parent), 0);
	expect_delivery(parent);
}

// A parent line that another driver has: nothing of it is touched.
TEST_F(ForeignRequest, line_in_use_is_not_taken_over)
{
	start();
	ASSERT_EQ(request(FREE_LINE), 0);
	clear_trace();
	EXPECT_FALSE(add_device("irq_combiner@4", FREE_LINE));
	EXPECT_TRUE(logged("1 [intr claim parent]parent line is in use by another driver, virq="));
	EXPECT_TRUE(trace().empty()) << testing::PrintToString(trace());
	EXPECT_EQ(depth(FREE_LINE), 0);
	expect_taken(FREE_LINE, "board", FREE_LINE_RAISE);
	expect_delivery(witness.leaves[0]);
	let_go(FREE_LINE);
	// The other way round the kernel refuses.
	EXPECT_EQ(request("line:0"), -22);
}

// The pin of a card is mistyped: it is another driver's.
TEST_F(ForeignRequest, pin_in_use_is_not_taken_over)
{
	const u32 inst = card_inst(1);
	combiner card = make_card_combiner(1, 0, 1);

	place_at_gpio(card, FREE_PIN);
	configure({witness, card});
	load();
	ASSERT_EQ(regist(witness.leaves[0]), 0);
	ASSERT_EQ(request(FREE_PIN_LINE), 0);
	EXPECT_EQ(card_up(inst), REFUSED);
	EXPECT_TRUE(logged("1 [intr claim parent]parent line is in use by another driver, virq="));
	EXPECT_TRUE(logged("1 [intr init one card combiner]combiner init fail, ret=-14"));
	EXPECT_EQ(cards(), std::vector<u32>{});
	expect_taken(FREE_PIN_LINE, "board", "raise " + std::to_string(card.line));
	let_go(FREE_PIN_LINE);
}

class ForeignLeaf : public ForeignRequest, public testing::WithParamInterface<u32> {
protected:
	const std::string name = "leaf:0x400:3", pulse = "pulse c4.0";
	std::string virq; // as the board names it, whether or not the leaf is there

	// A leaf that is mapped, and requested by another driver.
	void start_with_request()
	{
		c.async = GetParam();
		for (leaf &leaf : c.leaves)
			leaf.sync = 1; // whose requests others may share
		start();
		ASSERT_TRUE(add_device("irq_combiner@4", "line:4"));
		virq = "virq:" + std::to_string(ask("client", "map 0x400 3"));
		ASSERT_EQ(request(virq), 0);
	}
};

TEST_P(ForeignLeaf, cannot_become_a_parent)
{
	start_with_request();
	EXPECT_FALSE(add_device("irq_combiner@9", name));
	EXPECT_TRUE(logged("1 [intr claim parent]parent leaf in use or direct, index_id=0x400"));
	expect_taken(virq, "cpld", pulse);
}

// The last user that the driver knows goes; the mapping stays for the one it does
// not know, with its depth, and goes when that one is through.
TEST_P(ForeignLeaf, keeps_its_mapping_until_it_is_freed)
{
	start_with_request();
	for (const bool shared : {false, true}) {
		SCOPED_TRACE(shared ? "shared with a callback" : "mapped only");
		if (shared) {
			ASSERT_EQ(regist(c.leaves[0]), 0);
		}
		EXPECT_EQ(unregist(c.leaves[0]), 0);
		EXPECT_TRUE(
			logged("1 [intr free irq]" + std::string("virq=") + virq.substr(5) +
			       " is requested by another driver, mapping stays, index_id=0x400, "
			       "type=3"));
		EXPECT_EQ("virq:" + std::to_string(ask("client", "find 0x400 3")), virq);
		EXPECT_EQ(depth(virq), 0);
		expect_taken(virq, "cpld", pulse);
		EXPECT_EQ(ask("client", "disable 0x400 3"), 0);
		EXPECT_EQ(ask("client", "enable 0x400 3"), 0);
	}
	let_go(virq);
	EXPECT_EQ(unregist(c.leaves[0]), 0);
	EXPECT_EQ(ask("client", "find 0x400 3"), 0);
}

// The combiner goes, and the interrupt falls silent; it can be freed at any time
// later. Everything else works, and the leaf gets another virq.
TEST_P(ForeignLeaf, outlives_its_combiner_in_silence)
{
	start_with_request();
	ASSERT_EQ(regist(c.leaves[1]), 0);
	del_device("irq_combiner@4");
	EXPECT_TRUE(logged("1 [intr combiner free]virq=" + virq.substr(5) +
			   " stays with another driver, index_id=0x400, type=3"));
	const long taken = ask("board", "taken " + virq);
	ASSERT_TRUE(add_device("irq_combiner@4", "line:4"));
	ASSERT_EQ(regist(c.leaves[0]), 0);
	EXPECT_NE("virq:" + std::to_string(ask("client", "find 0x400 3")), virq);
	expect_delivery(c.leaves[0]);
	expect_delivery(witness.leaves[0]);
	EXPECT_EQ(ask("board", "taken " + virq), taken);
	let_go(virq);
	expect_delivery(c.leaves[0]);
}

TEST_P(ForeignLeaf, outlives_the_driver)
{
	start_with_request();
	unload();
	EXPECT_TRUE(logged("1 [intr combiner free]virq=" + virq.substr(5) +
			   " stays with another driver, index_id=0x400, type=3"));
	load(); // its code may lie elsewhere now
	ASSERT_EQ(regist(witness.leaves[0]), 0);
	expect_delivery(witness.leaves[0]);
	unload();
	let_go(virq);
}

INSTANTIATE_TEST_SUITE_P(Kinds, ForeignLeaf, testing::Values(0u, 1u),
			 [](const auto &info) { return info.param ? "async" : "sync"; });

} // namespace rig
