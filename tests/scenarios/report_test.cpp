// SPDX-License-Identifier: GPL-2.0
//
// What people read: the text reports to the byte, and what the debug switches
// let into the log.
#include <algorithm>

#include <gmock/gmock.h>

#include "rig.h"

namespace rig {

namespace {

constexpr u32 REGISTERS = 0x5ff00000; // the board's CPU-side registers

// A text with the numbers that only the running system knows.
std::string fill(std::string text, const std::map<std::string, long> &numbers)
{
	for (const auto &[name, value] : numbers) {
		for (size_t at; (at = text.find(name)) != std::string::npos;)
			text.replace(at, name.size(), std::to_string(value));
	}
	return text;
}

class Report : public Scenario {
protected:
	// A combiner of every kind, and one of which nothing is said.
	void bring_up()
	{
		combiner c0 = make_combiner(0, 2, 2);

		c0.async = 1;
		c0.irq_type = 1;
		c0.leaves[0].levels[0].en = 0xffffffff;
		c0.leaves[0].sync = 1;
		c0.leaves[1].irq_type = 4;
		c0.leaves[1].levels[0].shift = 8;
		c0.leaves[1].levels[0].mask = 0x3;
		configure({c0});
		cfg::nodes &nodes = table().nodes;
		nodes["global_cfg"]["common"] = {
			{"cfg_type_bitmap", 7}, {"acpi_bitmap", 0xf00}, {"netlink_id", 31}};
		cfg::entries &first = nodes["irq_combiner@0"];
		first["global_cfg"]["chip_id"] = 2;
		first["cpu_default_cfg0"] = cpu_write(0x10, 8, 0xff, 0xab);
		first["cpu_cfg0"] = cpu_write(0x10, 16, 0xf, 0x5);
		first["cpu_cfg1"] = cpu_write(0x20, 0, 1, 1);
		nodes["irq_combiner@1"]["global_cfg"] = {{"int_type", 2}, {"irq_type", 2}};
		nodes["irq_combiner@2"]["global_cfg"] = {
			{"int_type", 1}, {"irq_type", 4}, {"gpio", 401}, {"direct", 1}};
		nodes["irq_combiner@2"]["hwirq_cfg0"] = {{"type", 7}, {"hwirq", 5}};
		nodes["irq_combiner@3"]["global_cfg"] = {{"int_type", 9}, {"irq_type", 3}};
		install();
		load();
		ASSERT_TRUE(add_device("irq_combiner@4", "line:4"));
		leaf_ = c0.leaves[0];
	}

	static cfg::keys cpu_write(u32 offset, u32 shift, u32 mask, u32 value)
	{
		return {{"reg_addr", REGISTERS + offset},
			{"shift", shift},
			{"mask", mask},
			{"value", value}};
	}

	long line_virq(u32 line) { return ask("board", "virq line:" + std::to_string(line)); }
	std::map<std::string, long> numbers()
	{
		std::map<std::string, long> numbers;

		for (u32 line = 0; line < 5; line++)
			numbers["$P" + std::to_string(line)] = line_virq(line);
		numbers["$L"] = ask("client", "find 0 3");
		numbers["$D"] = ask("client", "find 0xffffffff 7");
		return numbers;
	}

	leaf leaf_;
};

constexpr char CFG_TEXT[] = R"(global cfg
  cfg_type_bitmap       : 0x7(bit0=acpi, bit1=dts, bit2=gpio)
  acpi_bitmap           : 0xf00
  gpio_bitmap           : 0x0
  netlink_id            : 31

intr0
common cfg
  chip id               : 2
  allow_max             : 1000000
  suppress_ms           : 1000
  policy                : 1
  direct                : 0
  irq_type              : 1(rising)
  int_type              : 0(external, only valid for card combiner)
  gpio                  : 0
cpu default cfg
  cfg0
    reg_addr            : 0x5ff00010
    shift               : 8
    mask                : 0xff
    value               : 0xab
cpu cfg
  cfg0
    reg_addr            : 0x5ff00010
    shift               : 16
    mask                : 0xf
    value               : 0x5
  cfg1
    reg_addr            : 0x5ff00020
    shift               : 0
    mask                : 0x1
    value               : 0x1
hwirq cfg
  cfg0
    index_id            : 0x0
    type                : 3
    hwirq               : 0
    irq_type            : 8
    allow_max           : 100000
    suppress_ms         : 1000
    policy              : 1
    level_num           : 2
    sync                : 1
    level_reg_info
      level0
        chip_id         : 0x1
        en_reg          : 0xffffffff
        status_reg      : 0x20
        shift           : 0
        mask            : 0x1
        statuc_wc       : 0
      level1
        chip_id         : 0x1
        en_reg          : 0x40
        status_reg      : 0x60
        shift           : 0
        mask            : 0x1
        statuc_wc       : 1
  cfg1
    index_id            : 0x1
    type                : 3
    hwirq               : 1
    irq_type            : 4
    allow_max           : 100000
    suppress_ms         : 1000
    policy              : 1
    level_num           : 2
    sync                : 0
    level_reg_info
      level0
        chip_id         : 0x1
        en_reg          : 0x10
        status_reg      : 0x20
        shift           : 8
        mask            : 0x3
        statuc_wc       : 0
      level1
        chip_id         : 0x1
        en_reg          : 0x40
        status_reg      : 0x60
        shift           : 1
        mask            : 0x1
        statuc_wc       : 1

intr1
common cfg
  chip id               : 4294967295
  allow_max             : 2500
  suppress_ms           : 1000
  policy                : 1
  direct                : 0
  irq_type              : 2(falling)
  int_type              : 2(combiner, only valid for card combiner)
  gpio                  : 0

intr2
common cfg
  chip id               : 4294967295
  allow_max             : 2500
  suppress_ms           : 1000
  policy                : 1
  direct                : 1
  irq_type              : 4(high)
  int_type              : 1(gpio, only valid for card combiner)
  gpio                  : 401
hwirq cfg
  cfg0
    index_id            : 0xffffffff
    type                : 7
    hwirq               : 5
    irq_type            : 8
    allow_max           : 250
    suppress_ms         : 1000
    policy              : 1
    level_num           : 0
    sync                : 0

intr3
common cfg
  chip id               : 4294967295
  allow_max             : 2500
  suppress_ms           : 1000
  policy                : 1
  direct                : 0
  irq_type              : 3(unknown)
  int_type              : 9(unknown, only valid for card combiner)
  gpio                  : 0

intr4
common cfg
  chip id               : 4294967295
  allow_max             : 2500
  suppress_ms           : 1000
  policy                : 1
  direct                : 0
  irq_type              : 8(low)
  int_type              : 0(external, only valid for card combiner)
  gpio                  : 0
)";

constexpr char RUNTIME_TEXT[] = R"(intr ctrl
  debug_irq             : 0
  int_debug_switch      : 0

combiner0
  inst_id               : 0xffffffff
  virq                  : $P0
  hwirq                 : 132
  parent int cnt        : 0
  virq depth            : 0
  irq info
    irq info0
      index_id          : 0x0
      type              : 3
      hwirq             : 0
      virq              : $L
      virq depth        : 2
    irq info1
      index_id          : 0x1
      type              : 3
      hwirq             : 1
      virq              : 0

combiner1
  inst_id               : 0xffffffff
  virq                  : $P1
  hwirq                 : 133
  parent int cnt        : 0
  index_id              : 0
  type                  : 0
  virq depth            : 0
  irq info
    no irq info

combiner2
  inst_id               : 0xffffffff
  virq                  : $P2
  hwirq                 : 134
  parent int cnt        : 0
  virq depth            : 1
  irq info
    irq info0
      index_id          : 0xffffffff
      type              : 7
      hwirq             : 5
      virq              : $D
      virq depth        : 1

combiner3
  inst_id               : 0xffffffff
  virq                  : $P3
  hwirq                 : 135
  parent int cnt        : 0
  virq depth            : 0
  irq info
    no irq info

combiner4
  inst_id               : 0xffffffff
  virq                  : $P4
  hwirq                 : 136
  parent int cnt        : 0
  virq depth            : 0
  irq info
    no irq info

)";

constexpr char LEAF_TEXT[] = R"(    runtime info
      Suppress count    : 0
      Suppress state    : 0(0=normal, 1=suppressed)
      index_id          : 0x0
      type              : 3
      hwirq             : 0
      virq              : $L
      virq depth        : 2

    cfg info
)";

// Its lines, as they stand in the whole configuration, too.
std::string first_leaf_of(const std::string &cfg)
{
	const size_t start = cfg.find("    index_id"), end = cfg.find("  cfg1\n    index_id");

	return cfg.substr(start, end - start);
}

TEST_F(Report, texts_for_every_kind_of_combiner_and_leaf_are_exact)
{
	bring_up();
	ASSERT_EQ(regist(leaf_), 0);
	EXPECT_EQ(ask("client", "disable 0 3"), 0);
	EXPECT_EQ(ask("client", "disable 0 3"), 0);
	EXPECT_GT(ask("client", "map 0xffffffff 7"), 0); // and not requested
	EXPECT_EQ(report(DRV_INTR_IOC_DBG_CFG), CFG_TEXT);
	EXPECT_EQ(proc("cfg"), CFG_TEXT);
	EXPECT_EQ(report(DRV_INTR_IOC_DBG_RUNTIME), fill(RUNTIME_TEXT, numbers()));
	EXPECT_EQ(proc("runtime"), fill(RUNTIME_TEXT, numbers()));
	const auto virq = static_cast<u32>(numbers()["$L"]);
	EXPECT_EQ(report(DRV_INTR_IOC_DBG_VIRQ, virq),
		  fill(LEAF_TEXT, numbers()) + first_leaf_of(CFG_TEXT));
	// Without a descriptor there is no depth to show.
	std::string text = fill(LEAF_TEXT, numbers()) + first_leaf_of(CFG_TEXT);
	text.erase(text.find("      virq depth"),
		   text.find("\n    cfg info") - text.find("      virq depth"));
	command("board", "fault plat_irq_get_depth 1 -22");
	EXPECT_EQ(report(DRV_INTR_IOC_DBG_VIRQ, virq), text);
}

TEST_F(Report, shows_only_the_bitmaps_in_use)
{
	static constexpr char netlink[] = "  netlink_id            : 30\n";

	for (const auto &[bitmap, lines] :
	     {std::pair{2u, ""}, {3u, "  acpi_bitmap           : 0x100\n"}}) {
		configure({});
		table().nodes["global_cfg"]["common"] = {{"cfg_type_bitmap", bitmap},
							 {"acpi_bitmap", 0x100},
							 {"gpio_bitmap", 0x20f}};
		install();
		load();
		EXPECT_FALSE(logged("set irq type fail")) << "of a line that is no pin's";
		const std::string head = "global cfg\n  cfg_type_bitmap       : 0x" +
					 std::to_string(bitmap) +
					 "(bit0=acpi, bit1=dts, bit2=gpio)\n" + lines + netlink;
		EXPECT_EQ(report(DRV_INTR_IOC_DBG_CFG).substr(0, head.size()), head);
		unload();
	}
	// A board of GPIO combiners only, and none of them.
	configure({});
	table().nodes["global_cfg"]["common"] = {{"cfg_type_bitmap", 4}};
	install();
	load();
	EXPECT_EQ(report(DRV_INTR_IOC_DBG_CFG),
		  std::string("global cfg\n  cfg_type_bitmap       : 0x4(bit0=acpi, bit1=dts, "
			      "bit2=gpio)\n  gpio_bitmap           : 0x0\n") +
			  netlink);
	EXPECT_EQ(report(DRV_INTR_IOC_DBG_RUNTIME), "intr ctrl\n"
						    "  debug_irq             : 0\n"
						    "  int_debug_switch      : 0\n\n");
}

TEST_F(Report, is_cut_at_the_size_of_the_largest_buffer)
{
	combiner c = make_combiner(0, 60, 5);

	load({c});
	const std::string text = report(DRV_INTR_IOC_DBG_CFG);
	EXPECT_EQ(text.size(), DRV_INTR_REPORT_MAX - 1);
	EXPECT_EQ(proc("cfg"), text);
	size_t leaves = 0;
	for (size_t at = 0;
	     (at = text.find("\n  cfg" + std::to_string(leaves) + "\n", at)) != std::string::npos;)
		leaves++;
	EXPECT_GT(leaves, 40u); // one after the other, up to the cut
}

class ReportTrace : public Report {
protected:
	void trace_only(long virq)
	{
		EXPECT_EQ(set_proc("int_debug_switch", "1"), 0);
		EXPECT_EQ(set_proc("debug_irq", std::to_string(virq)), 0);
		clear_log();
	}

	// The functions that wrote into the log: what stands in brackets.
	std::vector<std::string> writers()
	{
		std::vector<std::string> names;

		for (const std::string &line : log()) {
			const std::string name = line.substr(3, line.find(']') - 3);
			if (std::find(names.begin(), names.end(), name) == names.end())
				names.push_back(name);
		}
		return names;
	}
};

TEST_F(ReportTrace, switched_off_an_occurrence_writes_nothing)
{
	combiner sync = make_combiner(0, 1), async = make_combiner(1, 1),
		 direct{.id = 2, .direct = 1, .leaves = {make_leaf(2, 0, 0)}};

	async.async = 1;
	sync.leaves[0].sync = 1;
	load({sync, async, direct});
	await_thread(async);
	EXPECT_EQ(set_proc("debug_irq", std::to_string(line_virq(0))), 0);
	for (const combiner &c : {sync, async, direct})
		ASSERT_EQ(regist(c.leaves[0], "quiesce=" + c.leaves[0].name), 0);
	clear_log();
	for (const combiner &c : {sync, async, direct})
		command("cpld", "assert " + c.leaves[0].name);
	expect_events(3);
	EXPECT_TRUE(log().empty()) << testing::PrintToString(log());
}

// One leaf's lines are all there, in order, and nobody else's among them.
TEST_F(ReportTrace, of_one_leaf_is_exactly_these_lines)
{
	combiner c = make_combiner(0, 2, 1);

	c.leaves[0].sync = 1;
	load({c});
	for (const leaf &leaf : c.leaves)
		ASSERT_EQ(regist(leaf), 0);
	const long virq = ask("client", "find 0 3");
	trace_only(virq);
	fire(c.leaves[0]);
	EXPECT_TRUE(eventually([&] { return count_logged("[intr irq unmask]success") != 0; }));
	const std::string clear = R"(2 [intr irq clear]enter, virq=$V
2 [intr clear irqinfo]enter, virq=$V
2 [intr clear irqinfo]virq=$V, chip_id=1, en_reg=0x40, status_reg=0x60, shift=0, mask=1, status_wc=1
2 [intr clear irqinfo]virq=$V, before clr, status(0x60)=0x$B, wr-value=0x1
2 [intr clear irqinfo]virq=$V, after clr, status(0x60)=0x0
2 [intr clear irqinfo]success, virq=$V
2 [intr irq clear]success, virq=$V
)";
	const std::string expected = R"(2 [intr irq mask]enter, virq=$V
2 [intr set irq leaf int en]enter, index_id=0x0, type=3, en=0
2 [intr set irq leaf int en]success, index_id=0x0, type=3
)" + fill(clear, {{"$B", 1}}) + R"(2 [intr irq mask]success, virq=$V
2 [intr irq handler]enter, virq=$V, index_id=0x0, type=3
2 [intr irq handler]begin callback
2 [intr irq handler]end callback
2 [intr irq handler]success, virq=$V, index_id=0x0, type=3
2 [intr irq unmask]enter, virq=$V
)" + fill(clear, {{"$B", 0}}) + R"(2 [intr set irq leaf int en]enter, index_id=0x0, type=3, en=1
2 [intr set irq leaf int en]success, index_id=0x0, type=3
2 [intr irq unmask]success, virq=$V
)";
	EXPECT_EQ(log(), testbed::lines_of(fill(expected, {{"$V", virq}})));
	record("log", log());
	clear_log();
	fire(c.leaves[1]);
	ASSERT_TRUE(wait_events(2));
	EXPECT_TRUE(log().empty()) << testing::PrintToString(log());
}

TEST_F(ReportTrace, of_a_parent_virq_is_that_of_its_combiner_alone)
{
	combiner c = make_combiner(1, 1), other = make_combiner(0, 1);

	c.async = 1;
	load({other, c});
	await_thread(c);
	ASSERT_EQ(regist(c.leaves[0]), 0);
	ASSERT_EQ(regist(other.leaves[0]), 0);
	const long virq = line_virq(1);
	trace_only(virq);
	fire(other.leaves[0]);
	ASSERT_TRUE(wait_events(1));
	EXPECT_TRUE(log().empty()) << testing::PrintToString(log());
	fire(c.leaves[0]);
	ASSERT_TRUE(wait_events(2));
	const std::string of_line = "virq=" + std::to_string(virq) + ", hwirq=133";
	for (const auto &[begin, end] :
	     {std::pair{"[combiner handler]enter, " + of_line,
			"[combiner handler]success, " + of_line},
	      {std::string("]begin scan, intr1"), std::string("]end scan, intr1")}}) {
		EXPECT_TRUE(eventually([&] {
			return count_logged(end) != 0 && count_logged(begin) == count_logged(end);
		})) << testing::PrintToString(log());
	}
	EXPECT_EQ(writers(),
		  (std::vector<std::string>{"combiner handler", "drv_intr_combiner_thread"}));
	EXPECT_EQ(count_logged("[drv_intr_combiner_thread]chained irq valid, virq=" +
			       std::to_string(ask("client", "find 0x100 3"))),
		  1u);
}

TEST_F(ReportTrace, of_virq_0_comes_from_every_function_on_the_way)
{
	combiner c = make_combiner(1, 2);
	combiner direct{.id = 2, .direct = 1, .leaves = {make_leaf(2, 0, 0)}};

	c.async = 1;
	load({c, direct});
	subscriber process;
	ASSERT_EQ(subscribe(c.leaves[0], process.port()), 0);
	ASSERT_EQ(regist(c.leaves[1]), 0);
	ASSERT_EQ(regist(direct.leaves[0], "quiesce=" + direct.leaves[0].name), 0);
	trace_only(0);
	clear_log();
	fire(c.leaves[0]);
	EXPECT_TRUE(process.receives(c.leaves[0]));
	EXPECT_EQ(enable(c.leaves[0]), 0);
	EXPECT_EQ(enable(c.leaves[0], 0), 0);
	EXPECT_EQ(enable(c.leaves[0]), 0);
	fire(c.leaves[1]);
	ASSERT_TRUE(wait_events(1));
	// The last of the lines that these two occurrences write.
	EXPECT_TRUE(eventually([&] {
		const std::vector<std::string> names = writers();
		return std::find(names.begin(), names.end(), "intr irq unmask") != names.end() &&
		       count_logged("]end scan, intr1") >= 1;
	}));
	EXPECT_THAT(writers(),
		    testing::UnorderedElementsAre(
			    "combiner handler", "drv_intr_combiner_thread", "intr irq handler",
			    "intr notify pid", "intr set irq leaf int en", "intr clear irqinfo",
			    "intr irq clear", "intr irq mask", "intr irq unmask",
			    "intr irq disable", "intr irq enable", "intr enable", "intr disable"));
	EXPECT_EQ(count_logged("[intr notify pid]notify pid success, index_id=0x100, type=3, pid=" +
			       std::to_string(process.port())),
		  1u);
	// A direct leaf passes everything on to the parent.
	clear_log();
	const std::string parent = std::to_string(line_virq(2));
	command("cpld", "assert " + direct.leaves[0].name);
	ASSERT_TRUE(wait_events(2));
	EXPECT_TRUE(eventually([&] { return count_logged("[intr irq unmask]success") == 1; }));
	EXPECT_EQ(ask("client", "disable 0x200 3"), 0);
	EXPECT_EQ(ask("client", "enable 0x200 3"), 0);
	for (const char *line : {"[intr irq mask]disable parent irq, virq=",
				 "[intr irq handler]enable parent irq, virq=",
				 "[intr irq disable]disable parent irq, virq=",
				 "[intr irq enable]enable parent irq, virq="})
		EXPECT_EQ(count_logged(line + parent), 1u) << line;
	EXPECT_EQ(set_proc("int_debug_switch", "0"), 0);
}

} // namespace

} // namespace rig
