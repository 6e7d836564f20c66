// SPDX-License-Identifier: GPL-2.0
//
// A leaf while it is the parent line of another combiner, and when it no longer is.
#include "sources.h"

namespace rig {

class ParentLeaf : public Sources {
protected:
	combiner outer = make_combiner(4, 2), inner = make_combiner(9, 1);
	const leaf &parent = outer.leaves[1];

	ParentLeaf()
	{
		inner.line = outer.id;
		inner.outer = parent.levels;
	}

	void start()
	{
		configure({outer, inner});
		load();
		ASSERT_TRUE(add_device("irq_combiner@4", "line:4"));
	}

	void start_both()
	{
		start();
		ASSERT_TRUE(add_device("irq_combiner@9", "leaf:0x401:3"));
		ASSERT_EQ(regist(inner.leaves[0]), 0);
	}
};

// A storm of the inner combiner has its parent disabled by the monitor. A client that
// enables it would undo that, and the monitor would enable once too often.
TEST_F(ParentLeaf, clients_neither_enable_nor_disable_it)
{
	inner.allow_max = 1;
	inner.suppress_ms = 2000;
	start();
	table().nodes["irq_combiner@9"]["global_cfg"]["policy"] = 1;
	install();
	ASSERT_TRUE(add_device("irq_combiner@9", "leaf:0x401:3"));
	ASSERT_EQ(regist(inner.leaves[0]), 0);
	fire(inner.leaves[0]);
	ASSERT_TRUE(wait_events(1));
	clear_events();
	fire_open(inner.leaves[0]);
	ASSERT_TRUE(wait_events(1));
	ASSERT_EQ(depth(parent), 1) << "the monitor does not suppress";
	EXPECT_EQ(ask("client", "enable 0x401 3"), 22);
	EXPECT_EQ(ask("client", "disable 0x401 3"), 22);
	EXPECT_EQ(enable(parent, 1), REFUSED);
	EXPECT_EQ(enable(parent, 0), REFUSED);
	EXPECT_TRUE(logged("1 [intr enable]leaf is the parent of combiner 9, index_id=0x401, "
			   "type=3"));
	EXPECT_TRUE(logged("1 [intr disable]leaf is the parent of combiner 9, index_id=0x401, "
			   "type=3"));
	EXPECT_EQ(depth(parent), 1);
	EXPECT_TRUE(eventually([&] { return depth(parent) == 0; }));
	expect_delivery(inner.leaves[0]);
}

} // namespace rig
