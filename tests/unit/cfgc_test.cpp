// SPDX-License-Identifier: GPL-2.0
//
// The configuration compiler: what it says about each mistake, what it prints,
// and how the programs behave towards files. The build defines INTR_CFGC and
// INTR_SIM_SOURCES (the programs) and BOARD_XML (the example board).
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "cfg_show.h"
#include "cfg_sources.h"
#include "cfg_table.h"
#include "cfg_xml.h"

namespace {

using texts = std::vector<std::string>;

// "LINE: error|warning: TEXT" of everything that is found, in the order printed.
texts check(const std::string &xml)
{
	cfg::diagnostics found;
	texts result;

	cfg::read_xml(xml, found);
	for (const cfg::diagnostic &item : found.sorted())
		result.push_back(std::to_string(item.line) + ": " +
				 (item.is_error ? "error: " : "warning: ") + item.text);
	return result;
}

// As many findings as expected, in order, each with the fragments ("2: error|fragment|...").
void expect_findings(const std::string &label, const std::string &xml, const texts &expected)
{
	const texts found = check(xml);
	std::string all;

	for (const std::string &text : found)
		all += "  " + text + "\n";
	ASSERT_EQ(expected.size(), found.size()) << label << "\n" << all;
	for (size_t i = 0; i < found.size(); i++) {
		std::stringstream fragments(expected[i]);
		std::string fragment;
		while (std::getline(fragments, fragment, '|'))
			EXPECT_NE(std::string::npos, found[i].find(fragment))
				<< label << ": no '" << fragment << "' in\n  " << found[i];
	}
}

std::string board(const std::string &nodes)
{
	return "<irq_combiner instance='board'>\n" + nodes + "\n</irq_combiner>\n";
}

// One combiner on chip 2; the entries start in line 3.
std::string combiner(const std::string &entries, const std::string &common = "chip_id='2'")
{
	return board("<node name='irq_combiner@3'><entry name='global_cfg' " + common + "/>\n" +
		     entries + "\n</node>");
}

// The settings of a whole instance.
std::string common(const std::string &keys)
{
	return "<node name='global_cfg'><entry name='common' " + keys + "/></node>";
}

std::string card(const std::string &nodes)
{
	return "<irq_combiner instance='0x05000000'>\n" + nodes + "\n</irq_combiner>\n";
}

// A leaf that has nothing wrong, except for what is added.
std::string leaf(int n, const std::string &more = "", int level_num = 1)
{
	const std::string number = std::to_string(n);

	return "<entry name='hwirq_cfg" + number + "' index_id='" + number + "' type='3' hwirq='" +
	       number + "' level_num='" + std::to_string(level_num) +
	       "' l0_en='0x10' l0_status='0x11' l0_shift='" + number + "' " + more + "/>\n";
}

struct mistake {
	const char *label;
	std::string xml;
	texts expected;
};

void expect_all(const std::vector<mistake> &mistakes)
{
	for (const mistake &mistake : mistakes)
		expect_findings(mistake.label, mistake.xml, mistake.expected);
}

TEST(cfgc, good_configurations_have_no_findings)
{
	expect_all({
		{"empty board", board(""), {}},
		{"leaf", combiner(leaf(0) + leaf(1)), {}},
		{"words",
		 combiner(leaf(0, "irq_type='rising'"),
			  "chip_id='2' irq_type='high' int_type='gpio'"),
		 {}},
		{"direct without levels",
		 combiner("<entry name='hwirq_cfg0' type='1' hwirq='0'/>", "direct='1'"),
		 {}},
		{"cpu write",
		 combiner("<entry name='cpu_cfg0' reg_addr='0x1000' shift='31' "
			  "mask='1' value='1'/>"),
		 {}},
		{"comments, and tags inside them", board("<!-- <entry a='1' a='2'/> -->"), {}},
		{"alternative backplanes with the same leaf",
		 board("<node name='irq_combiner@0'/>"
		       "<node name='slot_isr_0x1'>" +
		       leaf(0, "combiner_id='0' l0_chip_id='1'") +
		       "</node>"
		       "<node name='slot_isr_0x2'>" +
		       leaf(0, "combiner_id='0' l0_chip_id='1'") + "</node>"),
		 {}},
		{"alternative backplanes of a direct combiner",
		 board("<node name='irq_combiner@0'><entry name='global_cfg' direct='1'/></node>"
		       "<node name='slot_isr_0x1'>" +
		       leaf(0, "combiner_id='0'") + "</node><node name='slot_isr_0x2'>" +
		       leaf(0, "combiner_id='0'") + "</node>"),
		 {}},
		{"bitmaps of sources that are not in use",
		 board(common("cfg_type_bitmap='2' acpi_bitmap='1' gpio_bitmap='1'")),
		 {}},
		{"one id in the bitmap of a source that is not in use",
		 board("<node name='irq_combiner@0'/>" +
		       common("cfg_type_bitmap='1' acpi_bitmap='1' gpio_bitmap='1'")),
		 {}},
		{"the device tree beside, with which no combiner comes from ACPI",
		 board("<node name='irq_combiner@0'/>" +
		       common("cfg_type_bitmap='7' acpi_bitmap='1' gpio_bitmap='1'")),
		 {}},
		{"slot leaf of a card",
		 card(common("combiner_bitmap='2'") +
		      "<node name='irq_combiner@1'><entry name='global_cfg' int_type='gpio'/>"
		      "</node><node name='slot_isr_0x1'>" +
		      leaf(0, "combiner_id='53' l0_chip_id='1'") + "</node>"),
		 {}},
		{"an outer level that is always enabled",
		 combiner("<entry name='hwirq_cfg0' type='1' hwirq='0' level_num='2' "
			  "l0_status='1' l0_shift='0' l1_en='2' l1_status='3' l1_shift='0'/>"),
		 {}},
	});
}

TEST(cfgc, names_unknown_things_and_what_was_meant)
{
	expect_all({
		{"key",
		 combiner(leaf(0, "l0_statsu='1'")),
		 {"3: error: irq_combiner@3 hwirq_cfg0: unknown key \"l0_statsu\"; did you mean "
		  "\"l0_status\"?"}},
		{"capitals", combiner("", "Chip_ID='2'"), {"2: error|did you mean \"chip_id\"?"}},
		{"nothing near",
		 combiner("", "colour='2'"),
		 {"2: error|known are chip_id, |async and label"}},
		{"entry",
		 combiner("<entry name='hwirq_cgf0'/>"),
		 {"3: error|did you mean \"hwirq_cfg0\"?"}},
		{"entry without number",
		 combiner("<entry name='hwirq_cfg'/>"),
		 {"3: error|known are|hwirq_cfgN"}},
		{"leading zero",
		 combiner("<entry name='hwirq_cfg00'/>"),
		 {"3: error|without leading zeros"}},
		{"entry of another node",
		 board("<node name='global_cfg'>\n<entry name='global_cfg'/></node>"),
		 {"3: error|known are common"}},
		{"node",
		 board("<node name='irq_combner@0'/>"),
		 {"2: error|did you mean \"irq_combiner@0\"?"}},
		{"combiner beyond the board",
		 board("<node name='irq_combiner@32'/>"),
		 {"2: error|irq_combiner@31"}},
		{"slot in capitals",
		 board("<node name='slot_isr_0x1A'/>"),
		 {"2: error|lower-case"}},
		{"element", board("<nodes name='global_cfg'/>"), {"2: error|<nodes>|only <node>"}},
		{"attribute of a node",
		 board("<node name='global_cfg' label='x'/>"),
		 {"2: error|\"label\"|only name"}},
		{"no instance", "<irq_combiner/>", {"1: error|instance is missing"}},
		{"card without a number",
		 "<irq_combiner instance='0xff00ffff'/>",
		 {"1: error|names no card"}},
		{"text", board("hello"), {"2: error|text"}},
	});
}

TEST(cfgc, refuses_values_that_cannot_be_meant)
{
	expect_all({
		{"word",
		 combiner(leaf(0, "sync='yes'")),
		 {"3: error|sync=\"yes\" is not a number; write 0 or 1"}},
		{"trigger", combiner("", "irq_type='3'"), {"2: error|out of range|rising (1)"}},
		{"33 bits",
		 combiner("", "gpio='0x100000000'"),
		 {"2: error|out of range|0xffffffff"}},
		{"negative", combiner("", "gpio='-1'"), {"2: error|not a number"}},
		{"octal", combiner("", "gpio='010'"), {"2: error|not a number"}},
		{"empty", combiner("", "gpio=''"), {"2: error|not a number"}},
		{"shift",
		 combiner("<entry name='cpu_cfg0' reg_addr='0' shift='32' mask='1' "
			  "value='0'/>"),
		 {"3: error|shift=\"32\"|0 to 31"}},
		{"field beyond 32 bits",
		 combiner(leaf(31, "l0_mask='3'")),
		 {"3: error|l0_mask 0x3 shifted by 31", "3: error|never read"}},
		{"unaligned register",
		 combiner("<entry name='cpu_cfg0' reg_addr='2' shift='0' mask='1' "
			  "value='0'/>"),
		 {"3: error|multiple of 4"}},
		{"value wider than mask",
		 combiner("<entry name='cpu_cfg0' reg_addr='4' shift='0' mask='1' "
			  "value='2'/>"),
		 {"3: warning|outside the mask"}},
		{"label", combiner(leaf(0, "label='Fan 1'")), {"3: error|\"Fan 1\" is no label"}},
		{"netlink", board(common("\nnetlink_id='32'")), {"3: warning|netlink_id 32"}},
		{"two sources for one id",
		 board("<node name='irq_combiner@0'/>" +
		       common("cfg_type_bitmap='5' acpi_bitmap='1' gpio_bitmap='1'")),
		 {"2: error|0x1; give each"}},
	});
}

TEST(cfgc, finds_what_would_never_be_read)
{
	const std::string cpu = "reg_addr='0' shift='0' mask='1' value='0'/>\n";

	expect_all({
		{"gap",
		 combiner(leaf(0) + leaf(2) + leaf(3)),
		 {"4: error|hwirq_cfg2: never read, since hwirq_cfg1"}},
		{"two gaps",
		 combiner(leaf(0) + leaf(2) + leaf(4)),
		 {"4: error|since hwirq_cfg1", "5: error|since hwirq_cfg1"}},
		{"not from 0",
		 combiner("<entry name='cpu_default_cfg1' " + cpu),
		 {"3: error|cpu_default_cfg0 is missing"}},
		{"own numbering for each list",
		 combiner("<entry name='cpu_cfg0' " + cpu + "<entry name='cpu_default_cfg0' " +
			  cpu),
		 {}},
		{"leaf 128",
		 combiner("<entry name='hwirq_cfg128'/>"),
		 {"3: error|hwirq_cfg0 to hwirq_cfg127"}},
		{"cpu write 16",
		 combiner("<entry name='cpu_cfg16' " + cpu),
		 {"3: error|cpu_cfg0 to cpu_cfg15"}},
		{"level beyond level_num",
		 combiner(leaf(0, "l1_wc='1'")),
		 {"3: error|l1_wc is never read|level_num is 1"}},
		{"sixth level", combiner(leaf(0, "l5_status='1'")), {"3: error|at most 5 levels"}},
		{"level keys without level_num",
		 combiner("<entry name='hwirq_cfg0' type='3' hwirq='0' l0_status='1' "
			  "l0_shift='0'/>"),
		 {"3: error|level_num is missing"}},
		{"slot leaf of nobody",
		 board("<node name='slot_isr_0x1'>" + leaf(0) + "</node>"),
		 {"2: warning|combiner_id"}},
		{"slot leaf of a combiner that cannot be",
		 board("<node name='slot_isr_0x1'>" + leaf(0, "combiner_id='32' l0_chip_id='1'") +
		       "</node>"),
		 {"2: error|0 to 31"}},
		{"card combiner that is not in the bitmap",
		 card("<node name='irq_combiner@1'>"
		      "<entry name='global_cfg' int_type='gpio'/></node>"),
		 {"2: warning|bit 1 of combiner_bitmap"}},
		{"card combiner without a parent line",
		 card(common("combiner_bitmap='1'") + "\n<node name='irq_combiner@0'/>"),
		 {"3: warning|without a parent line"}},
		{"slot leaf of a card combiner without a node",
		 card("<node name='slot_isr_0x1'>" + leaf(0, "combiner_id='52' l0_chip_id='1'") +
		      "</node>"),
		 {"2: warning|combiner_id 52 has no node"}},
		{"bitmap bits that no card has, and keys of the board",
		 card(common("\ncombiner_bitmap='0x30'\nnetlink_id='5'")),
		 {"3: warning|only bits 0 to 3", "4: warning|for the board only"}},
		{"bitmaps that name combiners without a node",
		 board(common("cfg_type_bitmap='5'\nacpi_bitmap='0x40'\ngpio_bitmap='0x20'"
			      "\ncombiner_bitmap='1'")),
		 {"3: warning|acpi_bitmap names combiner 6",
		  "4: warning|gpio_bitmap names combiner 5", "5: warning|read for a card only"}},
	});
}

TEST(cfgc, finds_missing_things)
{
	expect_all({
		{"required leaf keys",
		 combiner("<entry name='hwirq_cfg0'/>", "direct='1'"),
		 {"3: error|\"type\" is missing", "3: error|\"hwirq\" is missing"}},
		{"required level keys",
		 combiner(leaf(0, "l1_en='1'", 2)),
		 {"3: error|\"l1_status\"", "3: error|\"l1_shift\""}},
		{"required cpu key",
		 combiner("<entry name='cpu_cfg0' reg_addr='0' shift='0' value='0'/>"),
		 {"3: error|\"mask\" is missing"}},
		{"level_num out of range is one mistake",
		 combiner(leaf(0, "", 6)),
		 {"3: error|level_num=\"6\"|0 to 5"}},
		{"no levels",
		 combiner("<entry name='hwirq_cfg0' type='1' hwirq='0'/>"),
		 {"3: error|level_num is 0"}},
		{"no chip, no enable register",
		 combiner("<entry name='hwirq_cfg0' type='1' hwirq='0' level_num='1' "
			  "l0_status='1' l0_shift='0'/>",
			  ""),
		 {"3: warning|on no chip", "3: warning|cannot be masked"}},
	});
}

TEST(cfgc, finds_repeated_things)
{
	expect_all({
		{"key twice, and the rest is still checked",
		 combiner(leaf(0, "\nsync='1'\nsync='0'\nbad='1'")),
		 {"5: error|\"sync\" stands twice", "6: error|\"bad\""}},
		{"entry twice",
		 combiner(leaf(0) + leaf(0)),
		 {"4: error|stands twice, first in line 3"}},
		{"node twice",
		 board("<node name='global_cfg'/>\n<node name='global_cfg'/>"),
		 {"3: error|first in line 2"}},
		{"hwirq twice",
		 combiner(leaf(0) + "<entry name='hwirq_cfg1' type='9' hwirq='0' level_num='1' "
				    "l0_en='1' l0_status='2' l0_shift='0'/>"),
		 {"4: error|hwirq 0 of irq_combiner@3 is hwirq_cfg0 (line 3)"}},
		{"identity twice across combiners",
		 board("<node name='irq_combiner@0'>" + leaf(0, "l0_chip_id='1'") +
		       "</node>"
		       "<node name='irq_combiner@1'>" +
		       leaf(0, "l0_chip_id='2'") + "</node>"),
		 {"3: error|irq_combiner@1 hwirq_cfg0: index_id 0x0 type 3 is irq_combiner@0 "
		  "hwirq_cfg0 (line 2)"}},
		{"a wrong hwirq is no second hwirq 0",
		 combiner(leaf(0) + "<entry name='hwirq_cfg1' type='9' "
				    "hwirq='x' level_num='1' l0_en='1' l0_status='2' "
				    "l0_shift='0'/>"),
		 {"4: error|hwirq=\"x\""}},
		{"label twice",
		 combiner(leaf(0, "label='a'") + leaf(1, "label='a'")),
		 {"4: error|\"a\" is taken (line 3)"}},
		{"label like the name of a leaf without one",
		 combiner(leaf(0) + leaf(1, "label='combiner3.leaf0'")),
		 {"4: error|taken (line 3)"}},
		{"status bits twice",
		 combiner(leaf(0) + leaf(1, "l0_mask='1'") + leaf(2) +
			  "<entry name='hwirq_cfg3' type='9' hwirq='3' level_num='1' "
			  "l0_en='0x20' l0_status='0x11' l0_shift='1' l0_mask='3'/>"),
		 {"6: warning|status register 0x11 with irq_combiner@3 hwirq_cfg1 (line 4)"}},
		{"second direct leaf",
		 combiner(leaf(0) + leaf(1), "direct='1'"),
		 {"4: warning|second leaf of a direct"}},
	});
}

TEST(cfgc, says_where_xml_is_malformed)
{
	expect_all({
		{"empty", "", {"1: error|empty"}},
		{"wrong root", "\n<config/>", {"2: error|<config>; it must be <irq_combiner"}},
		{"not closed",
		 "<irq_combiner instance='board'>\n<node name='x'>\n",
		 {"error|not closed"}},
		{"no quotes", "<irq_combiner\ninstance=board/>", {"error|malformed"}},
		{"zero byte", std::string("<irq_combiner\n\0/>", 17), {"2: error|zero byte"}},
		{"second root", board("") + "<irq_combiner/>", {"4: error|behind the end"}},
		{"too deep", std::string(2000, '<'), {"error|"}},
	});
}

std::string read_file(const std::string &path)
{
	std::ifstream file(path, std::ios::binary);
	std::stringstream content;

	content << file.rdbuf();
	return content.str();
}

cfg::document parse(const std::string &xml)
{
	cfg::diagnostics found;
	cfg::document document = cfg::read_xml(xml, found);

	EXPECT_FALSE(found.has_errors());
	return document;
}

// The commands, or the errors where there are any.
std::string sources(const std::string &xml)
{
	cfg::diagnostics found;
	const std::string commands = cfg::sources(parse(xml), found);
	std::string errors;

	for (const cfg::diagnostic &item : found.sorted())
		errors += std::to_string(item.line) + ": " + item.text + "\n";
	return found.has_errors() ? errors : commands;
}

// Combiner 3 of the board on this pin.
std::string combiner_on_pin(u32 gpio)
{
	return board("<node name='global_cfg'><entry name='common' "
		     "cfg_type_bitmap='4' gpio_bitmap='8'/></node>\n"
		     "<node name='irq_combiner@3'><entry name='global_cfg' chip_id='2' gpio='" +
		     std::to_string(gpio) + "'/>" + leaf(0) + "</node>");
}

// Combiner 1 of card 5, with these keys.
std::string card_combiner(const std::string &common)
{
	return "<irq_combiner instance='0x05000000'>\n"
	       "<node name='irq_combiner@1'><entry name='global_cfg' chip_id='2' " +
	       common + "/>" + leaf(0) + "</node></irq_combiner>";
}

TEST(cfgc, sources_give_each_leaf_its_chain)
{
	const std::string chain = leaf(0,
				       "label='psu0' l0_wc='0' l1_chip_id='5' l1_status='0x21' "
				       "l1_shift='4' l1_mask='3' l1_wc='1'",
				       2);

	EXPECT_EQ("source psu0 0xffffffff 3 0x2:0x10:0x11:0:0x1:level 0x5:-:0x21:4:0x3:latched\n"
		  "source combiner3.leaf1 0xffffffff 3 0x2:0x10:0x11:1:0x1:level\n",
		  sources(combiner(chain + leaf(1))));
	EXPECT_EQ("source combiner3.leaf0 0xffffffff 3 0xfffffffe:-:0x1003:0:0x1:level\n",
		  sources(combiner(leaf(0), "direct='1'")));
	EXPECT_EQ("source combiner0.slot0x1a.leaf0 0xffffffff 0 0x7:0x10:0x11:0:0x1:level\n",
		  sources(board("<node name='slot_isr_0x1a'>" + leaf(0, "combiner_id='0'") +
				"</node><node name='irq_combiner@0'><entry name='global_cfg' "
				"chip_id='7'/></node>")));
}

TEST(cfgc, sources_drive_the_line_of_their_pin)
{
	const std::string chain = " 0x2:0x10:0x11:0:0x1:level\n";

	EXPECT_EQ("source combiner3.leaf0 0xffffffff 34" + chain, sources(combiner_on_pin(402)));
	EXPECT_EQ("source combiner53.leaf0 0x5000000 39" + chain,
		  sources(card_combiner("int_type='gpio' gpio='407'")));
}

// Nothing else on the board would ever raise the line that they would get.
TEST(cfgc, sources_need_a_line_of_the_virtual_board)
{
	EXPECT_EQ("3: irq_combiner@3: gpio 408 is no pin of the virtual board; use 400 to 407\n",
		  sources(combiner_on_pin(408)));
	EXPECT_EQ("2: irq_combiner@1: gpio 399 is no pin of the virtual board; use 400 to 407\n",
		  sources(card_combiner("int_type='gpio' gpio='399'")));
	EXPECT_EQ(0u,
		  sources(card_combiner("int_type='combiner'"))
			  .find("2: irq_combiner@1: is cascaded to leaf 0x5/7 of another file"));
	EXPECT_EQ("2: irq_combiner@1: has no parent line; set int_type to gpio\n",
		  sources(card_combiner("")));
}

TEST(cfgc, picture_joins_leaves_that_share_a_level)
{
	const std::string shared = "l1_en='2' l1_status='3' l1_wc='1' l1_shift=";
	std::string second = leaf(1, shared + "'1'", 2);
	second.replace(second.find("l0_shift='1'"), 12, "l0_shift='0'");
	const std::string picture = cfg::show(parse(combiner(leaf(0, shared + "'0'", 2) + second)));

	EXPECT_NE(std::string::npos,
		  picture.find("└─ 0x11 bit 0 (enable 0x10)\n"
			       "   ├─ 0x3 bit 0 (enable 0x2, W1C) ── combiner3.leaf0: 0x0/3, hwirq "
			       "0, low, threaded\n"
			       "   └─ 0x3 bit 1 (enable 0x2, W1C) ── combiner3.leaf1: 0x1/3, hwirq "
			       "1, low, threaded\n"))
		<< picture;
}

TEST(cfgc, dumped_table_compiles_to_the_same_table)
{
	const cfg::document document = parse(read_file(BOARD_XML));
	cfg::bytes first, second;
	std::string text, why;

	ASSERT_TRUE(cfg::write_table(document.to_table(), first, why)) << why;
	ASSERT_TRUE(cfg::dump(first, text)) << text;
	ASSERT_TRUE(cfg::write_table(parse(text).to_table(), second, why)) << why;
	EXPECT_EQ(first, second);
	EXPECT_EQ(std::string::npos, text.find("label"));
	first.back() = 1;
	EXPECT_FALSE(cfg::dump(first, text));
}

TEST(cfgc, example_board_has_no_findings)
{
	EXPECT_EQ(texts(), check(read_file(BOARD_XML)));
}

class cfgc_program : public testing::Test {
protected:
	void SetUp() override
	{
		std::string name =
			(std::filesystem::temp_directory_path() / "cfgc.XXXXXX").string();
		ASSERT_NE(nullptr, mkdtemp(name.data()));
		directory = name;
	}

	void TearDown() override { std::filesystem::remove_all(directory); }

	std::string path(const char *name) const { return (directory / name).string(); }

	void write(const char *name, const std::string &content) const
	{
		std::ofstream(path(name), std::ios::binary) << content;
	}

	// The exit code; both outputs go to the file "out".
	int run(const std::string &arguments, const std::string &program = INTR_CFGC) const
	{
		const std::string command = "cd '" + directory.string() + "' && '" + program +
					    "' " + arguments + " > out 2>&1";
		const int status = std::system(command.c_str());
		return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
	}

	std::filesystem::path directory;
};

TEST_F(cfgc_program, compiles_what_dump_reads)
{
	write("a.xml", combiner(leaf(0)));
	ASSERT_EQ(0, run("a.xml -o a.tbl")) << read_file(path("out"));
	EXPECT_EQ(0, run("--dump a.tbl"));
	EXPECT_NE(std::string::npos, read_file(path("out")).find("<node name=\"irq_combiner@3\">"));
	EXPECT_EQ(1, run("--dump a.xml")) << "XML is no table";
	EXPECT_EQ(0, run("--check a.xml"));
}

TEST_F(cfgc_program, mistakes_leave_the_old_table)
{
	write("a.xml", combiner(leaf(0, "bad='1'")));
	write("a.tbl", "old");
	EXPECT_EQ(1, run("a.xml -o a.tbl"));
	EXPECT_EQ("old", read_file(path("a.tbl")));
	EXPECT_EQ(0u, read_file(path("out"))
			      .find("a.xml:3: error: irq_combiner@3 hwirq_cfg0: unknown key"));
	for (const char *job : {"--check", "--show"})
		EXPECT_EQ(1, run(std::string(job) + " a.xml")) << job;
	EXPECT_EQ(1, run("a.xml", INTR_SIM_SOURCES));
}

TEST_F(cfgc_program, prints_sources_only_when_all_have_a_line)
{
	write("a.xml", board("<node name='irq_combiner@1'>" + leaf(0, "l0_chip_id='1'") +
			     "</node><node name='global_cfg'><entry name='common' "
			     "cfg_type_bitmap='6' gpio_bitmap='8'/></node>\n"
			     "<node name='irq_combiner@3'><entry name='hwirq_cfg0' type='4' "
			     "hwirq='0' level_num='1' l0_chip_id='1' l0_en='0x20' "
			     "l0_status='0x21' l0_shift='0'/></node>"));
	EXPECT_EQ(0, run("--check a.xml")) << read_file(path("out"));
	EXPECT_EQ(1, run("a.xml", INTR_SIM_SOURCES));
	EXPECT_EQ("a.xml:4: error: irq_combiner@3: gpio 0 is no pin of the virtual board; use 400 "
		  "to 407\n",
		  read_file(path("out")));
}

TEST_F(cfgc_program, tells_wrong_usage_and_unusable_files_apart)
{
	write("a.xml", combiner(leaf(0)));
	for (const char *arguments :
	     {"", "a.xml", "--check --show a.xml", "--check none.xml", "--check .",
	      "a.xml -o none/a.tbl", "a.xml -o a.xml", "--check /dev/zero"}) {
		EXPECT_EQ(2, run(arguments)) << arguments;
		EXPECT_NE("", read_file(path("out"))) << arguments;
	}
	for (const char *arguments : {"", "a.xml a.xml", "none.xml"}) {
		EXPECT_EQ(2, run(arguments, INTR_SIM_SOURCES)) << arguments;
		EXPECT_NE("", read_file(path("out"))) << arguments;
	}
	EXPECT_EQ(combiner(leaf(0)), read_file(path("a.xml")));
	EXPECT_EQ(0, run("--help"));
}

} // namespace
