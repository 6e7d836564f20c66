// SPDX-License-Identifier: GPL-2.0
//
// What lies beside the CPLD: CPU-side registers, the CPUs that take the
// interrupts, the backplane slot.
#include "rig.h"

namespace rig {

namespace {

constexpr u32 REGISTERS = 0x5ff00000; // the board's CPU-side registers

class Hardware : public Scenario {
protected:
	static cfg::keys cpu_write(u32 offset, u32 shift, u32 mask, u32 value)
	{
		return {{"reg_addr", REGISTERS + offset},
			{"shift", shift},
			{"mask", mask},
			{"value", value}};
	}

	void poke(u32 offset, u32 value)
	{
		command("board", "mmio poke " + std::to_string(REGISTERS + offset) + " " +
					 std::to_string(value));
	}

	u32 peek(u32 offset)
	{
		return static_cast<u32>(
			ask("board", "mmio peek " + std::to_string(REGISTERS + offset)));
	}
};

TEST_F(Hardware, cpu_registers_are_written_field_by_field)
{
	configure({make_combiner(4, 1)});
	cfg::entries &node = table().nodes["irq_combiner@4"];
	node["cpu_default_cfg0"] = cpu_write(0x10, 8, 0xff, 0x1ab);
	node["cpu_cfg0"] = cpu_write(0x10, 16, 0xf, 0x5);
	node["cpu_cfg1"] = cpu_write(0x20, 32, 1, 1);
	node["cpu_cfg3"] = cpu_write(0x30, 0, 0xff, 0xff); // behind a gap
	install();
	for (const u32 offset : {0x10u, 0x20u, 0x30u})
		poke(offset, 0xffff0000);
	load();
	clear_log();
	ASSERT_TRUE(add_device("irq_combiner@4", "line:4"));
	EXPECT_EQ(peek(0x10), 0xfff5ab00u);
	EXPECT_EQ(peek(0x20), 0xffff0001u);
	EXPECT_EQ(peek(0x30), 0xffff0000u);
	std::vector<std::string> lines;
	for (const std::string &line : log()) {
		if (line.find("[intr init cpu") != std::string::npos)
			lines.push_back(line);
	}
	const std::vector<std::string> expected = {
		"2 [intr init cpu to default]enter",
		"2 [intr init cpu to default]addr=0x5ff00010, shift=8, mask=0xff, value=0x1ab, "
		"read_value=0xffff0000",
		"2 [intr init cpu to default]success",
		"2 [intr init cpu int]enter",
		"2 [intr init cpu int]addr=0x5ff00010, shift=16, mask=0xf, value=0x5, "
		"read_value=0xffffab00",
		"2 [intr init cpu int]addr=0x5ff00020, shift=32, mask=0x1, value=0x1, "
		"read_value=0xffff0000",
		"2 [intr init cpu int]success",
	};
	EXPECT_EQ(lines, expected);
}

// The second mapping is that of the write itself: the first only shows the value.
TEST_F(Hardware, a_cpu_register_that_cannot_be_mapped_refuses_the_combiner)
{
	configure({make_combiner(4, 1)});
	table().nodes["irq_combiner@4"]["cpu_cfg0"] = cpu_write(0x10, 0, 0xff, 0x12);
	install();
	poke(0x10, 0);
	load();
	command("board", "fault plat_ioremap 2 0");
	EXPECT_FALSE(add_device("irq_combiner@4", "line:4"));
	EXPECT_TRUE(logged("1 [intr init cpu int]cfg cpu register fail, ret=0xffffffff"));
	EXPECT_TRUE(logged("1 [intr combiner init hw]init cpu int fail, ret=-14"));
	EXPECT_TRUE(logged("1 [intr combiner init]combiner init hardware fail"));
	EXPECT_EQ(peek(0x10), 0u);
}

TEST_F(Hardware, leaves_of_the_backplane_slot_join_the_combiner_they_name)
{
	combiner c = make_combiner(4, 3);
	const leaf slot = c.leaves[2];

	configure({c});
	cfg::entries &node = table().nodes["irq_combiner@4"];
	cfg::entries &slot_node = table().nodes["slot_isr_0x1a"];
	for (const char *entry : {"hwirq_cfg0", "hwirq_cfg1", "hwirq_cfg3"})
		slot_node[entry] = node["hwirq_cfg1"]; // the second names nobody
	slot_node["hwirq_cfg0"]["combiner_id"] = slot_node["hwirq_cfg3"]["combiner_id"] = 5;
	slot_node["hwirq_cfg2"] = node["hwirq_cfg2"];
	slot_node["hwirq_cfg2"]["combiner_id"] = 4;
	node.erase("hwirq_cfg1");
	node.erase("hwirq_cfg2");
	install();
	load();
	ASSERT_EQ(testbed::load_backplane(), 0);
	command("backplane", "type 0x1a");
	ASSERT_TRUE(add_device("irq_combiner@4", "line:4"));
	EXPECT_EQ(ask("client", "find 0x401 3"), 0);
	EXPECT_TRUE(logged("not support para, index_id=0x401, type=3"));
	ASSERT_EQ(regist(slot), 0);
	fire(slot);
	expect_events(1);
	// The driver keeps no hold on the module between look-ups.
	EXPECT_EQ(testbed::unload_backplane(), 0);
	expect_delivery(slot);
}

TEST_F(Hardware, a_failing_backplane_costs_only_the_slot_leaves)
{
	const combiner c = make_combiner(4, 1);

	load({c});
	ASSERT_EQ(testbed::load_backplane(), 0);
	command("backplane", "fail -5");
	clear_log();
	EXPECT_TRUE(add_device("irq_combiner@4", "line:4"));
	EXPECT_TRUE(logged("2 [intr get xml slot hwirq cfg]not support backplane cfg"));
	EXPECT_EQ(regist(c.leaves[0]), 0);
	EXPECT_EQ(testbed::unload_backplane(), 0);
}

} // namespace

} // namespace rig
