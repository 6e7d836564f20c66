// SPDX-License-Identifier: GPL-2.0
//
// The plan of a scan finds what a walk from leaf to leaf finds, with no more reads.
#include <deque>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "intr/siblings.h"
#include "testbed.h"

// The driver declares the kernel's errno values and string functions for itself.
#undef EINVAL
#undef ENOMEM
#undef EFAULT
#define strstr kernel_strstr
#include "combiner/level.h"
#include "combiner/scan_plan.h"
#undef strstr

namespace {

using cpld_register = std::pair<u32, u32>; // chip and address

// A register file of the test's own; drv_cpld_read reads it while there is one.
struct register_file {
	std::map<cpld_register, u32> values;
	std::set<cpld_register> failing;
	std::function<void(cpld_register)> before_read;
	std::vector<cpld_register> reads; // since they were last cleared

	int read(u32 chip, drv_intr_reg_desc field, u32 mask, u32 *value)
	{
		const cpld_register reg = {chip, field.address};
		const u32 word = values[reg];

		reads.push_back(reg);
		if (before_read)
			before_read(reg);
		if (failing.contains(reg))
			return -5;
		// What lies beyond the register is this module's business.
		*value = (field.bit_offset < 32 ? values[reg] >> field.bit_offset
						: ~word >> (field.bit_offset % 32)) &
			 mask;
		return 0;
	}
};

register_file *registers;

} // namespace

extern "C" {
int __real_drv_cpld_read(u32 inst_id, u32 chip_id, drv_intr_reg_desc desc, u32 mask, u32 *value);
int __wrap_drv_cpld_read(u32 inst_id, u32 chip_id, drv_intr_reg_desc desc, u32 mask, u32 *value);

int __wrap_drv_cpld_read(u32 inst_id, u32 chip_id, drv_intr_reg_desc desc, u32 mask, u32 *value)
{
	return registers ? registers->read(chip_id, desc, mask, value)
			 : __real_drv_cpld_read(inst_id, chip_id, desc, mask, value);
}
}

namespace {

using random_source = std::mt19937;

u32 below(random_source &random, u32 limit)
{
	return static_cast<u32>(random() % limit);
}

// A level in one of a few registers, so that leaves share registers and levels by
// chance; now and then an odd one.
drv_intr_level_cfg random_level(random_source &random)
{
	static constexpr u32 shifts[] = {0, 1, 2, 3, 4, 5, 6, 7, 16, 30, 33, 0x10003};
	static constexpr u32 masks[] = {1, 1, 1, 1, 3, 0xff, 0xffffffff, 0};

	return {.chip_id = below(random, 2),
		.en_reg = below(random, 6) ? below(random, 4) : config::NO_REGISTER,
		.status_reg = below(random, 16) ? 4 + below(random, 4) : below(random, 4),
		.shift = shifts[below(random, std::size(shifts))],
		.mask = masks[below(random, std::size(masks))],
		.status_wc = 1};
}

void append(drv_intr_hwirq_cfg &cfg, const drv_intr_level_cfg &level)
{
	cfg.level[cfg.level_num++] = level;
}

class ScanPlan : public testing::Test {
protected:
	void SetUp() override
	{
		ASSERT_TRUE(testbed::start());
		drv_intr_ctrl_init();
		combiner_.irq_info_list.init();
		registers = &file_;
	}

	void TearDown() override
	{
		registers = nullptr;
		kfree(combiner_.scan_plan);
		EXPECT_THAT(testbed::finish(), testing::IsEmpty());
	}

	// A mapped leaf behind no level yet.
	drv_intr_hwirq_cfg &add_leaf()
	{
		drv_intr_irq_info &leaf = leaves_.emplace_back();

		leaf.virq = static_cast<u32>(leaves_.size());
		leaf.combiner = &combiner_;
		combiner_.irq_info_list.append(leaf);
		return leaf.hwirq_cfg;
	}

	// Leaves behind bits 0, 1, ... of one pair of registers, behind a group's bit 0.
	void add_group(u32 leaves)
	{
		for (u32 bit = 0; bit < leaves; bit++) {
			drv_intr_hwirq_cfg &cfg = add_leaf();

			append(cfg, {0, GROUP_EN, GROUP_STATUS, 0, 1, 0});
			append(cfg, {0, LEAF_EN, LEAF_STATUS, bit, 1, 0});
		}
	}

	void make_random_tree(random_source &random)
	{
		const u32 count = 1 + below(random, 24);

		for (u32 n = 0; n < count; n++) {
			const drv_intr_hwirq_cfg *previous =
				n ? &leaves_.back().hwirq_cfg : nullptr;
			drv_intr_hwirq_cfg &cfg = add_leaf();
			const u32 levels = 1 + below(random, config::MAX_LEVELS);
			u32 shared = previous ? below(random, previous->level_num + 1) : 0;

			for (u32 i = 0; i < levels; i++)
				append(cfg, i < shared ? previous->level[i] : random_level(random));
			if (below(random, 6) == 0)
				leaves_.back().virq = 0;
		}
	}

	// Mostly set, so that whole chains are active; the same after the same start.
	void change_registers(random_source &random)
	{
		const u32 failing = below(random, 4);

		file_.failing.clear();
		for (u32 chip = 0; chip < 2; chip++) {
			for (u32 address = 0; address < 8; address++) {
				file_.values[{chip, address}] =
					static_cast<u32>(random() | random() | random());
				if (failing == 0 && below(random, 4) == 0)
					file_.failing.insert({chip, address});
			}
		}
	}

	// What a scan dispatched, and the reads before each dispatch and at the end.
	struct result {
		std::vector<drv_intr_irq_info *> dispatched;
		std::vector<std::vector<cpld_register>> reads;
	};

	void dispatch(result &result, drv_intr_irq_info *leaf, random_source &random)
	{
		if (leaf)
			result.dispatched.push_back(leaf);
		result.reads.push_back(std::move(file_.reads));
		file_.reads.clear();
		change_registers(random);
	}

	result walk(u32 seed)
	{
		random_source random(seed);
		result result;

		change_registers(random);
		for (drv_intr_irq_info &leaf : leaves_) {
			if (drv_combiner_is_virq_active(leaf) &&
			    (leaf.virq != 0 || drv_intr_get_ctrl()->int_debug_switch))
				dispatch(result, &leaf, random);
		}
		dispatch(result, nullptr, random);
		return result;
	}

	result scan(u32 seed)
	{
		random_source random(seed);
		result result;

		change_registers(random);
		drv_intr_start_scan(*combiner_.scan_plan);
		while (drv_intr_irq_info *leaf = drv_intr_next_active(*combiner_.scan_plan, 1))
			dispatch(result, leaf, random);
		dispatch(result, nullptr, random);
		return result;
	}

	void compile() { ASSERT_EQ(drv_intr_compile_scan_plan(combiner_), 0); }

	// The numbers of the leaves that one scan finds.
	std::vector<u32> found()
	{
		std::vector<u32> numbers;

		file_.reads.clear();
		drv_intr_start_scan(*combiner_.scan_plan);
		while (drv_intr_irq_info *leaf = drv_intr_next_active(*combiner_.scan_plan, 1))
			numbers.push_back(leaf->virq - 1);
		return numbers;
	}

	void clear()
	{
		kfree(combiner_.scan_plan);
		combiner_.scan_plan = nullptr;
		combiner_.irq_info_list.init();
		leaves_.clear();
	}

	static constexpr u32 GROUP_EN = 0, GROUP_STATUS = 4, LEAF_EN = 1, LEAF_STATUS = 5;

	drv_intr_combiner combiner_{};
	std::deque<drv_intr_irq_info> leaves_;
	register_file file_;
};

// In each stretch up to a dispatch: a failing register fails for both.
TEST_F(ScanPlan, finds_what_the_walk_finds_with_no_more_reads)
{
	size_t dispatched = 0, walk_reads = 0, scan_reads = 0;

	for (u32 seed = 0; seed < 1000; seed++) {
		SCOPED_TRACE(seed);
		random_source random(seed);

		make_random_tree(random);
		compile();
		for (u32 contents = 0; contents < 5; contents++) {
			drv_intr_get_ctrl()->int_debug_switch = contents == 4;
			const result walked = walk(seed * 5 + contents);
			const result scanned = scan(seed * 5 + contents);

			ASSERT_EQ(scanned.dispatched, walked.dispatched);
			for (size_t i = 0; i < walked.reads.size(); i++) {
				ASSERT_LE(scanned.reads[i].size(), walked.reads[i].size());
				walk_reads += walked.reads[i].size();
				scan_reads += scanned.reads[i].size();
			}
			dispatched += walked.dispatched.size();
		}
		clear();
	}
	// The trees are such that there is something to find and to save.
	EXPECT_GT(dispatched, 10000u);
	EXPECT_LT(scan_reads * 3, walk_reads * 2);
}

// Each register once up to a dispatch, and again after it.
TEST_F(ScanPlan, reads_a_register_once_until_it_may_have_changed)
{
	add_group(8);
	compile();
	file_.values = {{{0, GROUP_EN}, 1}, {{0, LEAF_EN}, 0xff}, {{0, LEAF_STATUS}, 0x81}};
	EXPECT_EQ(found(), std::vector<u32>{});
	EXPECT_EQ(file_.reads.size(), 2u); // and jumps over the group
	file_.values[{0, GROUP_STATUS}] = 1;
	EXPECT_EQ(found(), (std::vector<u32>{0, 7}));
	EXPECT_EQ(file_.reads.size(), 2 * 4u);
	for (drv_intr_irq_info &leaf : leaves_)
		leaf.virq = 0;
	EXPECT_EQ(found(), std::vector<u32>{});
	EXPECT_EQ(file_.reads.size(), 0u);
}

// A read that fails once, wherever: for the leaf it was made for, and no other.
TEST_F(ScanPlan, a_failed_read_makes_one_leaf_quiet)
{
	add_group(4);
	compile();
	for (const u32 reg : {GROUP_EN, GROUP_STATUS, LEAF_EN, LEAF_STATUS})
		file_.values[{0, reg}] = 0xf;
	for (u32 nth = 1; nth <= 4 * 4; nth++) {
		SCOPED_TRACE(nth);
		u32 reads = 0;
		std::vector<u32> others = {0, 1, 2, 3};

		others.erase(others.begin() + (nth - 1) / 4);
		file_.before_read = [&](cpld_register reg) {
			file_.failing.clear();
			if (++reads == nth)
				file_.failing.insert(reg);
		};
		EXPECT_EQ(found(), others);
	}
}

// Another CPU's thread clears the status of its leaf and then enables it. With the
// status from before and the enable from after that, the leaf would look active.
TEST_F(ScanPlan, a_status_is_not_older_than_its_enable)
{
	constexpr u32 OTHER_EN = 2;

	append(add_leaf(), {0, LEAF_EN, LEAF_STATUS, 0, 1, 1});
	append(add_leaf(), {0, OTHER_EN, LEAF_STATUS, 1, 1, 1});
	compile();
	file_.values = {{{0, LEAF_EN}, 1}, {{0, LEAF_STATUS}, 2}};
	file_.before_read = [&](cpld_register reg) {
		if (reg.second == OTHER_EN)
			file_.values = {{{0, OTHER_EN}, 2}, {{0, LEAF_STATUS}, 0}};
	};
	EXPECT_EQ(found(), std::vector<u32>{});
}

} // namespace
