// SPDX-License-Identifier: GPL-2.0
//
// How a scan reads its registers: by a plan where the parent line comes back by itself,
// leaf after leaf where it does not.
#include "sources.h"

namespace rig {

namespace {

constexpr u32 LEVEL_HIGH = 4, EDGE_RISING = 1;

struct parent_case {
	const char *name;
	u32 gpio_type; // 0: a line of the interrupt controller, which are level-triggered
	bool planned;
};

class Scan : public Sources, public testing::WithParamInterface<parent_case> {
protected:
	// A combiner of three leaves behind one group.
	combiner make_parent()
	{
		const parent_case &parent = GetParam();
		combiner c = parent.gpio_type ? make_gpio_combiner(0, 2, 3) : make_combiner(0, 3);

		c.irq_type = parent.gpio_type;
		for (leaf &leaf : c.leaves)
			leaf.sync = 1;
		return c;
	}

	void start(const combiner &c)
	{
		configure({c});
		use_sources(DTS | GPIO, GetParam().gpio_type ? 1u << c.id : 0);
		load();
	}
};

std::string field_read(const level &level, u32 reg, u32 shift, u32 mask, u32 value)
{
	char text[128];

	snprintf(text, sizeof(text),
		 "read inst=0xffffffff chip=%u reg=0x%x shift=%u mask=0x%x value=0x%x", level.chip,
		 reg, shift, mask, value);
	return text;
}

// Of one level: its enable and its status.
void add_reads(std::vector<std::string> &lines, const level &level, u32 status)
{
	lines.push_back(field_read(level, level.en, level.shift, level.mask, 1));
	lines.push_back(field_read(level, level.status, level.shift, level.mask, status));
}

void add_clear(std::vector<std::string> &lines, const level &level)
{
	const std::string read =
		"reg_read inst=0xffffffff chip=" + std::to_string(level.chip) + " reg=0x60 value=";

	lines.push_back(read + (lines.back().starts_with("write") ? "0x2" : "0x0"));
	lines.push_back(clear_write(level));
	lines.push_back(read + "0x0");
}

// The middle leaf fires: all accesses, from the first look to the end of the scan.
TEST_P(Scan, reads_the_registers_in_this_order)
{
	const combiner c = make_parent();
	const level &group = c.leaves[0].levels[0], &first = c.leaves[0].levels[1],
		    &middle = c.leaves[1].levels[1];

	start(c);
	for (const leaf &leaf : c.leaves)
		ASSERT_EQ(regist(leaf), 0);
	clear_trace();
	fire(c.leaves[1]);
	std::vector<std::string> expected;
	add_reads(expected, group, 1);
	if (GetParam().planned) {
		expected.push_back(field_read(middle, middle.en, 0, 0x7, 0x7));
		expected.push_back(field_read(middle, middle.status, 0, 0x7, 0x2));
	} else {
		add_reads(expected, first, 0);
		add_reads(expected, group, 1);
		add_reads(expected, middle, 1);
	}
	expected.push_back(enable_write(middle, 0));
	add_clear(expected, middle);
	expected.push_back(handler_mark(c.leaves[1]));
	add_clear(expected, middle);
	expected.push_back(enable_write(middle, 1));
	add_reads(expected, group, 0);
	EXPECT_TRUE(eventually([&] { return trace().size() >= expected.size(); }));
	std::vector<std::string> seen = trace();
	seen.resize(expected.size()); // the line may be taken once more
	EXPECT_EQ(seen, expected);
	record("cpld", seen);
}

// A read fails anywhere in the scan, also in the middle of the group.
TEST_P(Scan, a_failed_read_delays_a_leaf_and_loses_none)
{
	const combiner c = make_parent();

	start(c);
	for (const leaf &leaf : c.leaves)
		ASSERT_EQ(regist(leaf), 0);
	for (u32 nth = 1; nth <= 12; nth++) {
		SCOPED_TRACE(nth);
		command("cpld", "fail read " + std::to_string(nth) + " 1 -5");
		for (const leaf &leaf : c.leaves)
			expect_delivery(leaf);
	}
}

// The scan stands in the middle leaf's callback while another CPU raises the others: one
// has had its turn.
TEST_P(Scan, leaves_raised_during_the_scan_are_served)
{
	combiner c = make_parent();

	c.async = 1;
	start(c);
	for (size_t i = 0; i < c.leaves.size(); i++)
		ASSERT_EQ(regist(c.leaves[i], i == 1 ? "hold=1" : ""), 0);
	fire(c.leaves[1]);
	ASSERT_TRUE(wait_events(1));
	fire(c.leaves[0]);
	fire(c.leaves[2]);
	command("client", "let_go");
	expect_events(3);
	std::vector<u32> order;
	for (const event &event : events())
		order.push_back(event.index);
	EXPECT_EQ(order, (std::vector<u32>{1, 2, 0}));
}

// A source that nobody serves keeps the line up: the others come through.
TEST_P(Scan, a_stuck_line_stops_no_leaf)
{
	combiner c = make_parent();

	c.leaves[0].levels[1] = {
		.chip = 1, .en = 0xffffffff, .status = 0x70, .shift = 0}; // cannot be masked
	start(c);
	for (size_t i = 1; i < c.leaves.size(); i++)
		ASSERT_EQ(regist(c.leaves[i]), 0);
	command("cpld", "assert " + c.leaves[0].name);
	for (u32 times = 0; times < 5; times++) {
		for (size_t i = 1; i < c.leaves.size(); i++)
			expect_delivery(c.leaves[i]);
	}
	EXPECT_EQ(command("cpld", "line " + std::to_string(c.line)), "1");
}

INSTANTIATE_TEST_SUITE_P(Parents, Scan,
			 testing::Values(parent_case{"level", 0, true},
					 parent_case{"gpio_level", LEVEL_HIGH, true},
					 parent_case{"gpio_edge", EDGE_RISING, false}),
			 [](const auto &info) { return info.param.name; });

} // namespace

} // namespace rig
