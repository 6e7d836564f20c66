// SPDX-License-Identifier: GPL-2.0
//
// Parts of the driver that a whole board reaches only by luck or not at all:
// limits, parents without a device, the thread's wake-ups.
#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "control.h"
#include "model_rig.h"
#include "intr/siblings.h"
#include "testbed.h"

// The driver declares the kernel's errno values and string functions for itself.
#undef EINVAL
#undef ENOMEM
#undef EFAULT
#define strstr kernel_strstr
#include "combiner/domain.h"
#include "combiner/lifecycle.h"
#include "combiner/scan_plan.h"
#include "config/combiner_cfg.h"
#include "control/text_out.h"
#include "core/atomic.h"
#include "core/registers.h"
#undef strstr

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr u32 BOARD = DRV_INTR_BOARD_INST_ID;
constexpr u32 TYPE = 3;
constexpr u32 CHIP = 1, EN = 0x40, STATUS = 0x60;
constexpr u32 UNTOUCHED = 0x5eed;

std::atomic<u32> calls[2]; // of the callback, by the leaf's number

void count_call(u32 index_id, u32, void *)
{
	calls[index_id % 2]++;
}

// A leaf with a latched status behind one level; its number is its bit.
cfg::keys leaf_keys(u32 number)
{
	return {{"index_id", number},  {"type", TYPE},	       {"hwirq", number},    {"sync", 1},
		{"level_num", 1},      {"allow_max", 1000000}, {"l0_chip_id", CHIP}, {"l0_en", EN},
		{"l0_status", STATUS}, {"l0_shift", number},   {"l0_wc", 1}};
}

class Driver : public testing::Test {
protected:
	void SetUp() override
	{
		ASSERT_TRUE(testbed::start());
		drv_intr_ctrl_init();
		calls[0] = calls[1] = 0;
	}

	void TearDown() override
	{
		if (loaded_) {
			EXPECT_EQ(testbed::unload(), 0);
		}
		write_control("xml", "drop 0xffffffff");
		write_control("cpld", "reset");
		EXPECT_THAT(testbed::finish(), IsEmpty());
	}

	void install()
	{
		cfg::bytes bytes;
		std::string why;

		ASSERT_TRUE(cfg::write_table(table_, bytes, why)) << why;
		ASSERT_EQ(testbed::write_blob("xml_table", bytes), 0);
	}

	cfg::entries &node(u32 id) { return table_.nodes["irq_combiner@" + std::to_string(id)]; }

	// Combiner 0 on line 0 with leaves 0 and 1, registered and open.
	void load_two_leaves(u32 async)
	{
		node(0)["global_cfg"] = {{"async", async}, {"allow_max", 1000000}};
		for (u32 number : {0u, 1u}) {
			const std::string text = std::to_string(number);

			node(0)["hwirq_cfg" + text] = leaf_keys(number);
			ASSERT_EQ(write_control("cpld", "source s" + text +
								" 0xffffffff 0 1:0x40:0x60:" +
								text + ":1:latched")
					  .code,
				  0);
		}
		load();
		for (u32 number : {0u, 1u})
			ASSERT_EQ(drv_intr_set_regist(number, TYPE, count_call, nullptr), 0);
	}

	void load()
	{
		install();
		ASSERT_EQ(testbed::load(), 0);
		loaded_ = true;
	}

	// Fires an open leaf and waits for its callback. Open first: what comes
	// between a callback and the unmask behind it is cleared by the unmask.
	static bool deliver(u32 number)
	{
		const u32 before = calls[number];
		const auto open = [&] {
			u32 on = 0;
			return drv_cpld_read(BOARD, CHIP, {EN, static_cast<u16>(number)}, 1, &on) ==
				       0 &&
			       on != 0;
		};

		return eventually(open) &&
		       write_control("cpld", "pulse s" + std::to_string(number)).code == 0 &&
		       eventually([&] { return calls[number] > before; });
	}

	cfg::table table_;
	bool loaded_ = false;
	printed_lines unseen_; // the log goes to its ring; not to the terminal too
};

template <typename T> size_t length(list<T> &items)
{
	size_t count = 0;

	for (auto at = items.begin(); at != items.end(); ++at)
		count++;
	return count;
}

// As where somebody enables the parent line while its handler runs on another CPU.
TEST_F(Driver, a_second_scan_leaves_the_plan_to_the_first)
{
	load_two_leaves(0);
	drv_intr_combiner &combiner = *drv_intr_get_combiner(0);
	ASSERT_TRUE(combiner.scan_plan);
	ASSERT_EQ(exchange(combiner.scan_plan->in_use, 1u), 0u);
	const u32 at = combiner.scan_plan->at = UNTOUCHED;
	EXPECT_TRUE(deliver(0) && deliver(1));
	EXPECT_EQ(combiner.scan_plan->at, at);
	EXPECT_EQ(exchange(combiner.scan_plan->in_use, 0u), 1u);
	EXPECT_TRUE(deliver(0) && deliver(1));
	EXPECT_NE(combiner.scan_plan->at, at);
}

TEST_F(Driver, cpu_register_gets_its_field_and_keeps_the_rest)
{
	constexpr u32 reg = 0x90001000;
	struct {
		const char *name;
		u32 before, shift, mask, value, after;
	} const rows[] = {
		{"field cut at bit 31", 0x1, 28, 0xff, 0xff, 0xf0000001},
		{"mask 0 writes the word as it is", 0xa5a5a5a5, 4, 0, 0xff, 0xa5a5a5a5},
	};

	for (const auto &row : rows) {
		SCOPED_TRACE(row.name);
		host_mmio_access log[64];
		const size_t seen = host_mmio_log(nullptr, 0);
		host_mmio_set(reg, row.before);
		EXPECT_EQ(drv_intr_cpu_reg_conf(reg, row.shift, row.mask, row.value), 0);
		EXPECT_EQ(host_mmio_get(reg), row.after);
		ASSERT_EQ(host_mmio_log(log, 64), seen + 2);
		EXPECT_TRUE(!log[seen].write && log[seen + 1].write);
	}
}

TEST_F(Driver, key_table_stops_at_a_missing_required_key)
{
	u32 first = UNTOUCHED, zero = UNTOUCHED, dec = UNTOUCHED, hex = UNTOUCHED, oct = UNTOUCHED;
	u32 copy = UNTOUCHED, both = UNTOUCHED, missing = UNTOUCHED, later = UNTOUCHED;
	const drv_intr_cfg_map_item items[] = {
		{1, "first", &first, nullptr, nullptr}, {0, "zero", &zero, "7", nullptr},
		{0, "dec", &dec, "2500", nullptr},	{0, "hex", &hex, "0x1f", nullptr},
		{0, "oct", &oct, "017", nullptr},	{0, "copy", &copy, nullptr, &first},
		{0, "both", &both, "6", &first},	{1, "missing", &missing, nullptr, nullptr},
		{0, "later", &later, "9", nullptr},
	};

	table_.nodes["n"]["e"] = {{"first", 3}, {"zero", 0}, {"later", 4}};
	install();
	EXPECT_EQ(drv_intr_get_cfg_by_map(BOARD, {"irq_combiner", "n", "e"}, array_size(items),
					  items),
		  -EINVAL);
	// The reference gives what the first row has just read.
	EXPECT_THAT((std::vector{first, zero, dec, hex, oct, copy, both, missing, later}),
		    ElementsAre(3, 0, 2500, 31, 15, 3, 6, UNTOUCHED, UNTOUCHED));
}

TEST_F(Driver, lists_end_at_their_limit_and_at_the_first_gap)
{
	const cfg::keys write = {{"reg_addr", 0x1000}, {"shift", 0}, {"mask", 1}, {"value", 1}};
	list<drv_intr_cpu_cfg> writes;
	list<drv_intr_hwirq_cfg> leaves;

	for (u32 i = 0; i < 20; i++)
		table_.nodes["n"]["full" + std::to_string(i)] =
			table_.nodes["n"]["gap" + std::to_string(i)] = write;
	table_.nodes["n"]["gap3"].erase("mask");
	for (u32 i = 0; i < 130; i++) {
		const std::string entry = "hwirq_cfg" + std::to_string(i);

		table_.nodes["n"][entry] = table_.nodes["slot_isr_0x1a"][entry] = leaf_keys(i);
		table_.nodes["slot_isr_0x1a"][entry]["combiner_id"] = 3;
	}
	install();
	ASSERT_EQ(testbed::load_backplane(), 0);
	write_control("backplane", "type 0x1a");
	writes.init();
	EXPECT_EQ(drv_intr_get_xml_cpu_cfg("n", "full", BOARD, writes), 0);
	EXPECT_EQ(length(writes), 16u);
	drv_intr_free_cpu_cfg_list(writes);
	EXPECT_EQ(drv_intr_get_xml_cpu_cfg("n", "gap", BOARD, writes), 0);
	EXPECT_EQ(length(writes), 3u);
	drv_intr_free_cpu_cfg_list(writes);
	leaves.init();
	EXPECT_EQ(drv_intr_get_xml_hwirq_cfg("n", BOARD, CHIP, leaves), 0);
	EXPECT_EQ(length(leaves), 128u);
	EXPECT_EQ(drv_intr_get_xml_slot_hwirq_cfg(BOARD, CHIP, 3, leaves), 0);
	EXPECT_EQ(length(leaves), 256u);
	drv_intr_free_hwirq_cfg_list(leaves);
	EXPECT_EQ(testbed::unload_backplane(), 0);
}

// Lines of another driver, whose controller cannot move them: many cannot.
class ForeignLines : public Driver {
protected:
	void SetUp() override
	{
		static constexpr auto nothing = [](irq_data *) {};
		static constexpr plat_irq_chip_ops ops = {nothing, nothing, nothing,
							  nothing, nullptr, nullptr};
		static constexpr plat_irq_domain_ops domain_ops = {
			[](irq_domain *, unsigned virq, unsigned long) {
				plat_irq_set_chip_and_handler_name(virq, &chip,
								   plat_handle_level_irq, nullptr);
				plat_irq_modify_status(virq, IRQ_NOREQUEST, 0);
				return 0;
			}};

		Driver::SetUp();
		plat_irq_chip_init(&chip, "fixed", &ops);
		domain_ = plat_irq_domain_create_tree(nullptr, &domain_ops, nullptr);
	}

	void TearDown() override
	{
		{
			const mutex_guard guard(g_drv_intr_lock);
			drv_intr_all_combiner_free(g_drv_intr_ctrl);
		}
		for (const u32 virq : lines_)
			plat_irq_dispose_mapping(virq);
		plat_irq_domain_remove(domain_);
		Driver::TearDown();
	}

	// Combiner `id` on line `id`: up, or null with nothing left.
	drv_intr_combiner *up(u32 id)
	{
		while (lines_.size() <= id)
			lines_.push_back(plat_irq_create_mapping(domain_, lines_.size()));
		const std::string name = "irq_combiner@" + std::to_string(id);
		const mutex_guard guard(g_drv_intr_lock);
		drv_intr_combiner *combiner =
			drv_intr_combiner_init_soft(g_drv_intr_ctrl, id, name.c_str(), BOARD);

		if (combiner && drv_intr_combiner_init(*combiner, nullptr, lines_[id]) != 0) {
			drv_intr_combiner_remove(*combiner);
			return nullptr;
		}
		return combiner;
	}

	static void down(u32 id)
	{
		const mutex_guard guard(g_drv_intr_lock);
		drv_intr_combiner_remove(*drv_intr_get_combiner(id));
	}

	void add_leaf(u32 id, u32 index_id, u32 type, u32 hwirq)
	{
		cfg::entries &entries = node(id);
		const size_t number = entries.size() - entries.count("global_cfg");

		entries["global_cfg"] = {{"direct", 1}};
		entries["hwirq_cfg" + std::to_string(number)] = {
			{"index_id", index_id}, {"type", type}, {"hwirq", hwirq}, {"level_num", 0}};
	}

private:
	static plat_irq_chip chip;
	irq_domain *domain_ = nullptr;
	std::vector<u32> lines_;
};

plat_irq_chip ForeignLines::chip;

TEST_F(ForeignLines, leaf_of_a_parent_that_cannot_move_is_refused)
{
	node(5)["hwirq_cfg0"] = leaf_keys(0);
	install();
	ASSERT_TRUE(up(5));
	ASSERT_EQ(drv_intr_set_regist(0, TYPE, count_call, nullptr), 0);
	EXPECT_EQ(host_irq_set_affinity(drv_find_mapping_irq(0, TYPE), 2), -EINVAL);
	EXPECT_EQ(drv_intr_set_unregist(0, TYPE), 0);
}

// The walk that the tables stand for.
template <typename F> drv_intr_irq_info *first_leaf(F matches)
{
	for (drv_intr_combiner &combiner : g_drv_intr_ctrl.combiner_list)
		for (drv_intr_irq_info &leaf : combiner.irq_info_list)
			if (matches(leaf))
				return &leaf;
	return nullptr;
}

// Combiners come and go, some without the memory for it; leaves are mapped and unmapped.
// Names, hwirqs and with them virqs come from few values, so that many are double.
TEST_F(ForeignLines, lookups_give_the_first_in_list_order)
{
	constexpr u32 COMBINERS = 6, INDEX_IDS = 32, TYPES = 8, HWIRQS = 64, VIRQS = 200;
	std::mt19937 random(20);
	const auto below = [&](u32 limit) { return static_cast<u32>(random() % limit); };
	u32 refused = 0;

	for (u32 id = 0; id < COMBINERS; id++)
		for (u32 i = id == 0 ? 120 : below(70); i > 0; i--)
			add_leaf(id, below(INDEX_IDS), below(TYPES), below(HWIRQS));
	install();
	for (u32 step = 0; step < 300 && !HasFailure(); step++) {
		SCOPED_TRACE(step);
		const u32 id = below(COMBINERS);
		if (drv_intr_get_combiner(id)) {
			down(id);
		} else {
			// A record, one for each leaf's configuration and one for each
			// leaf; then a table, or two, of some combiners.
			const u32 records = 1 + 2 * (static_cast<u32>(node(id).size()) - 1);
			if (below(2))
				host_fault("plat_kzalloc", records + below(3), 0);
			refused += !up(id);
			host_fault_off();
		}
		for (u32 i = 0; i < 10; i++) {
			(void)drv_mapping_irq(below(INDEX_IDS), below(TYPES));
			(void)drv_intr_set_unregist(below(INDEX_IDS), below(TYPES));
		}
		for (u32 index_id = 0; index_id < INDEX_IDS; index_id++)
			for (u32 type = 0; type < TYPES; type++)
				EXPECT_EQ(drv_intr_get_irq_info_by_index_type(index_id, type),
					  first_leaf([&](const drv_intr_irq_info &leaf) {
						  return leaf.hwirq_cfg.index_id == index_id &&
							 leaf.hwirq_cfg.type == type;
					  }));
		for (drv_intr_combiner &combiner : g_drv_intr_ctrl.combiner_list)
			for (u32 hwirq = 0; hwirq < HWIRQS; hwirq++)
				EXPECT_EQ(drv_intr_get_irq_info_by_hwirq(combiner, hwirq),
					  first_leaf([&](const drv_intr_irq_info &leaf) {
						  return leaf.combiner == &combiner &&
							 leaf.hwirq_cfg.hwirq == hwirq;
					  }));
		// 0 is that of leaves without a mapping; some are the parent lines'.
		for (u32 virq = 0; virq < VIRQS; virq++)
			EXPECT_EQ(drv_intr_get_irq_info_by_virq(virq),
				  first_leaf([&](const drv_intr_irq_info &leaf) {
					  return leaf.virq == virq;
				  }));
	}
	EXPECT_GT(refused, 30u);

	// Another driver may have a leaf mapped: the leaf does not know of it.
	const drv_intr_irq_info *leaf = drv_intr_get_irq_info_by_virq(0);
	ASSERT_TRUE(leaf);
	const u32 virq = plat_irq_create_mapping(leaf->combiner->domain, leaf->hwirq_cfg.hwirq);
	ASSERT_NE(virq, 0u);
	EXPECT_EQ(drv_intr_get_irq_info_by_virq(virq), nullptr);
	plat_irq_dispose_mapping(virq);
	EXPECT_EQ(plat_irq_create_mapping(leaf->combiner->domain, HWIRQS), 0u); // nobody's
}

// Two combiners with the same names take turns, so that one of them is always there; a
// large one makes the tables grow, and is gone again.
TEST_F(ForeignLines, lookups_go_on_while_combiners_come_and_go)
{
	constexpr u32 NAMES = 12, LARGE = 100;
	static std::atomic<bool> stop;
	static std::atomic<u32> rounds, wrong;
	static constexpr auto read_all = [](void *) {
		for (u32 name = 0; name < LARGE; name++) {
			const srcu_reader reader;
			const auto *leaf = drv_intr_get_irq_info_by_index_type(name, TYPE);
			const auto *own =
				leaf ? drv_intr_get_irq_info_by_hwirq(*leaf->combiner, name)
				     : nullptr;

			wrong += leaf ? leaf->hwirq_cfg.index_id != name : name < NAMES;
			wrong += own && own != leaf;
		}
		rounds++;
	};

	stop = false;
	rounds = wrong = 0;
	for (u32 name = 0; name < LARGE; name++)
		for (u32 id : {0u, 1u, 2u})
			if (id == 2 || name < NAMES)
				add_leaf(id, name, TYPE, name);
	install();
	ASSERT_TRUE(up(0));
	std::thread reader([] {
		while (!stop)
			read_all(nullptr);
	});
	for (u32 turn = 1; turn <= 60; turn++) {
		host_queue_hardirq_call(read_all, nullptr);
		EXPECT_TRUE(up(turn % 2));
		if (turn % 3 == 0) {
			EXPECT_TRUE(up(2));
		}
		host_queue_hardirq_call(read_all, nullptr);
		down(1 - turn % 2);
		if (turn % 3 == 0)
			down(2);
	}
	stop = true;
	reader.join();
	EXPECT_EQ(host_wait_idle(10000), 0);
	EXPECT_GT(rounds, 120u);
	EXPECT_EQ(wrong, 0u);
}

// A board's own string module may refuse what ours formats.
TEST(ReportText, ends_where_the_formatter_fails)
{
	char buffer[32];
	text_out out{buffer, sizeof(buffer), 0};

	memset(buffer, '#', sizeof(buffer));
	intr_print(out, "virq: %u\n", 5u);
	out.advance(-1);
	EXPECT_TRUE(out.full());
	intr_print(out, "hwirq: %u\n", 6u);
	EXPECT_STREQ(buffer, "virq: 5\n");
	EXPECT_EQ(out.length, 8u);

	text_out none{buffer, 0, 0};
	none.advance(-1);
	EXPECT_EQ(none.length, 0u);
	EXPECT_EQ(buffer[0], 'v');
}

// Each interrupt is pending when the thread opens the parent line again: one that
// the thread forgets, or sleeps over, leaves the line closed for good. The moment
// is some nanoseconds long: many attempts.
TEST_F(Driver, combiner_thread_loses_no_wake_up)
{
	load_two_leaves(1);
	ASSERT_EQ(host_wait_idle(10000), 0); // the board withdraws what it did not raise itself
	const drv_intr_combiner &combiner = *drv_intr_get_combiner(0);
	const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);

	for (u32 i = 1; std::chrono::steady_clock::now() < end; i++) {
		host_line_set_pending(0, 1);
		ASSERT_TRUE(eventually([&] { return read_once(combiner.parent_int_cnt) == i; }))
			<< i;
	}
	EXPECT_EQ(host_wait_idle(10000), 0);
	EXPECT_EQ(host_irq_depth(host_line_virq(0)), 0);
	EXPECT_TRUE(deliver(0));
}

} // namespace
