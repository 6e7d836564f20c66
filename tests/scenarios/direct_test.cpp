// SPDX-License-Identifier: GPL-2.0
//
// A direct combiner, whose parent line is all that can be masked: a source that
// stays up, and a monitor that disables the line as well.
#include "rig.h"

namespace rig {

class Direct : public Scenario {
protected:
	combiner c{.id = 2, .direct = 1, .leaves = {make_leaf(2, 0, 0)}};
	const leaf &source = c.leaves[0];

	void bring_up()
	{
		configure({c});
		load();
	}

	bool masked() { return ask("board", "masked 2") != 0; }

	size_t parent_interrupts()
	{
		const std::string text = report(DRV_INTR_IOC_DBG_RUNTIME);
		const size_t head = text.find("combiner2");
		const size_t at = text.find("parent int cnt", head);

		if (head == std::string::npos || at == std::string::npos) {
			ADD_FAILURE() << "no combiner 2 in: " << text;
			return 0;
		}
		return std::stoul(text.substr(text.find(':', at) + 1));
	}
};

// The leaf is masked until its thread is through. A parent that is enabled before
// interrupts for a leaf that is masked already, and nobody disables it again.
TEST_F(Direct, a_source_that_stays_up_waits_for_the_unmask_of_its_leaf)
{
	bring_up();
	ASSERT_EQ(regist(source, "hold=1"), 0);
	// The thread runs where the parent interrupts.
	ASSERT_EQ(testbed::set_affinity(ask("client", "find " + pair_of(source)), 2), 0);
	command("cpld", "assert " + source.name);
	for (size_t round = 1; round <= 20; round++) {
		ASSERT_TRUE(wait_events(round));
		EXPECT_EQ(depth("line:2"), 1);
		EXPECT_TRUE(masked());
		EXPECT_EQ(parent_interrupts(), round);
		if (round == 20)
			command("cpld", "deassert " + source.name);
		command("client", "let_go");
	}
	EXPECT_TRUE(eventually([&] { return depth("line:2") == 0 && !masked(); }));
	// Released while its source is up, and requested again.
	for (int round = 0; round < 3; round++) {
		clear_events();
		command("cpld", "assert " + source.name);
		ASSERT_TRUE(wait_events(1));
		command("client", "let_go");
		EXPECT_EQ(unregist(source), 0);
		EXPECT_EQ(depth("line:2"), 2);
		command("cpld", "deassert " + source.name);
		ASSERT_EQ(regist(source, "hold=1"), 0);
		EXPECT_EQ(depth("line:2"), 0);
	}
	command("client", "let_go");
}

} // namespace rig
