// SPDX-License-Identifier: GPL-2.0
//
// Interrupts that another driver requested by their numbers, past this one: parent
// lines that are in use, leaves that were mapped for it, lines that a failed
// bring-up leaves to it.
#include "sources.h"

namespace rig {

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

	// What the command causes reaches the other driver's handler. Again and again:
	// the board withdraws an interrupt without a cause when a register changes.
	void expect_taken(const std::string &irq, const std::string &file, const std::string &cause)
	{
		const long before = ask("board", "taken " + irq);
		const auto taken = [&] {
			command(file, cause);
			return ask("board", "taken " + irq) > before;
		};

		EXPECT_TRUE(eventually(taken)) << irq << " is silent";
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
	const int before = depth("line:4");
	command(GetParam().file, GetParam().command);
	EXPECT_FALSE(add_device("irq_combiner@4", "line:4"));
	EXPECT_EQ(depth("line:4"), before);
	command("board", "fault off");
	command("monitor", "off");
	command("cpld", "fail off");
	del_device("irq_combiner@4");
	ASSERT_EQ(request("line:4"), 0);
	expect_taken("line:4", "board", "raise 4");
	let_go("line:4");
	ASSERT_TRUE(add_device("irq_combiner@4", "line:4"));
	ASSERT_EQ(regist(c.leaves[0], "quiesce=" + c.leaves[0].name), 0);
	EXPECT_TRUE(eventually([&] { return depth("line:4") == 0; }));
	clear_events();
	command("cpld", "assert " + c.leaves[0].name);
	EXPECT_TRUE(wait_events(1));
}

INSTANTIATE_TEST_SUITE_P(
	Steps, FailedBringUp,
	testing::Values(
		early_failure{"monitor", "monitor", "refuse set 1 -5", 0},
		early_failure{"handler_data", "board", "fault plat_irq_set_handler_data 1 -22", 0},
		early_failure{"thread", "board", "fault plat_kthread_create_on_node 1 -12", 0},
		early_failure{"thread_of_a_direct_one", "board",
			      "fault plat_kthread_create_on_node 1 -12", 1},
		early_failure{"domain", "board", "fault plat___irq_domain_add 1 0", 0},
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

} // namespace rig
