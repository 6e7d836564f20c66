// SPDX-License-Identifier: GPL-2.0
//
// Keys that a configuration leaves out.
#include "sources.h"

namespace rig {

class Defaults : public Sources {
protected:
	combiner c = make_combiner(4, 3);

	// The leaf's entry without the chip of any of its levels.
	static cfg::keys without_chips(cfg::keys keys)
	{
		std::erase_if(keys, [](const auto &key) {
			return key.first.find("chip_id") != std::string::npos;
		});
		return keys;
	}
};

// All levels of such a leaf are in the combiner's chip, also of one from the slot.
TEST_F(Defaults, leaves_inherit_the_chip_of_their_combiner)
{
	configure({c});
	cfg::entries &node = table().nodes["irq_combiner@4"];
	cfg::entries &slot = table().nodes["slot_isr_0x1a"];
	node["global_cfg"]["chip_id"] = c.leaves[0].levels[0].chip;
	node["global_cfg"]["policy"] = 0;
	slot["hwirq_cfg0"] = without_chips(node["hwirq_cfg2"]);
	slot["hwirq_cfg0"]["combiner_id"] = 4;
	node["hwirq_cfg1"] = without_chips(node["hwirq_cfg1"]);
	node.erase("hwirq_cfg2");
	install();
	load();
	ASSERT_EQ(testbed::load_backplane(), 0);
	command("backplane", "type 0x1a");
	ASSERT_TRUE(add_device("irq_combiner@4", "line:4"));
	EXPECT_NE(testbed::read("monitor").find(" allow_max=1000000 suppress_ms=1000 policy=0 "),
		  std::string::npos);
	for (const leaf &leaf : c.leaves) {
		ASSERT_EQ(regist(leaf), 0);
		expect_delivery(leaf);
	}
	del_device("irq_combiner@4");
	EXPECT_EQ(testbed::unload_backplane(), 0);
}

// The list of writes ends before it, as at a gap; the combiner comes up.
TEST_F(Defaults, cpu_register_without_a_value_ends_the_list)
{
	static constexpr u32 REGISTERS = 0x5ff00000; // the board's CPU-side registers

	configure({c});
	cfg::entries &node = table().nodes["irq_combiner@4"];
	for (const u32 i : {0u, 1u, 2u}) {
		node["cpu_cfg" + std::to_string(i)] = {{"reg_addr", REGISTERS + 0x10 * i},
						       {"shift", 0},
						       {"mask", 0xff},
						       {"value", 0x21 + i}};
		command("board", "mmio poke " + std::to_string(REGISTERS + 0x10 * i) + " 0");
	}
	node["cpu_cfg1"].erase("value");
	install();
	load();
	ASSERT_TRUE(add_device("irq_combiner@4", "line:4"));
	for (const u32 i : {0u, 1u, 2u})
		EXPECT_EQ(ask("board", "mmio peek " + std::to_string(REGISTERS + 0x10 * i)),
			  i == 0 ? 0x21 : 0);
	ASSERT_EQ(regist(c.leaves[0]), 0);
	expect_delivery(c.leaves[0]);
}

} // namespace rig
