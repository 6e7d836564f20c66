// SPDX-License-Identifier: GPL-2.0
//
// The kernel model itself, where the driver relies on it and a wrong model
// would hide a wrong driver. What is expected here was seen on a real kernel.
#include <algorithm>
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "model_rig.h"
#include "platform/kernel_api.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

// The kernel's values.
constexpr unsigned long IRQF_SHARED = 0x80, IRQF_ONESHOT = 0x2000;
constexpr unsigned long IRQ_LEVEL = 1ul << 8, IRQ_NOPROBE = 1ul << 10, IRQ_NOREQUEST = 1ul << 11;
constexpr unsigned long IRQ_DISABLE_UNLAZY = 1ul << 19;
constexpr int IRQ_HANDLED = 1;

constexpr u32 line = 5;
constexpr u32 leaf_hwirq = 7;

journal seen;
std::function<void()> in_handler; // runs inside the leaf's handler
std::function<void()> in_chained; // runs inside the parent's handler
bool ops_move_parent;
u32 parent;
u32 leaf;

std::string context_name()
{
	char text[32];

	host_context(text, sizeof(text));
	return text;
}

// A chip with the five operations; as a direct combiner it moves the parent line.
void op(const char *name, void (*on_parent)(u32))
{
	seen.add(name);
	if (ops_move_parent)
		on_parent(parent);
}
void op_enable(irq_data *)
{
	op("enable", host_enable_irq);
}
void op_disable(irq_data *)
{
	op("disable", plat_disable_irq_nosync);
}
void op_mask(irq_data *)
{
	op("mask", plat_disable_irq_nosync);
}
void op_unmask(irq_data *)
{
	seen.add("unmask");
}
int op_affinity(irq_data *data, const cpumask *mask, bool force)
{
	irq_data *above = plat_irq_get_irq_data(parent);
	const int ret = plat_irq_chip_set_affinity(above, mask, force);

	seen.add("affinity");
	plat_irq_data_copy_effective_affinity(data, above);
	return ret;
}
constexpr plat_irq_chip_ops ops = {op_enable, op_disable, op_mask, op_unmask, op_affinity};

plat_irq_chip chip;
unsigned long leaf_status;

int map(irq_domain *, unsigned int virq, unsigned long)
{
	plat_irq_set_chip_and_handler_name(virq, &chip, plat_handle_level_irq, nullptr);
	plat_irq_modify_status(virq, IRQ_NOREQUEST | IRQ_NOPROBE, leaf_status);
	return 0;
}
constexpr plat_irq_domain_ops domain_ops = {map};

void on_parent(irq_desc *desc)
{
	irq_chip *above =
		plat_irq_data_get_irq_chip(plat_irq_get_irq_data(plat_irq_desc_get_irq(desc)));

	plat_chained_irq_enter(above, desc);
	seen.add("parent in " + context_name());
	if (in_chained)
		in_chained();
	plat_chained_irq_exit(above, desc);
}

int on_leaf(int, void *)
{
	seen.add("leaf in " + context_name());
	if (in_handler)
		in_handler();
	return IRQ_HANDLED;
}

irq_domain *domain;
bool chained;
bool requested;

void install()
{
	plat_irq_modify_status(parent, 0, IRQ_DISABLE_UNLAZY);
	plat___irq_set_handler(parent, on_parent, 1, nullptr);
	chained = true;
}

void map_leaf(unsigned long status = 0)
{
	leaf_status = status;
	leaf = plat_irq_create_mapping(domain, leaf_hwirq);
	ASSERT_GE(leaf, 16u);
}

int request(bool threaded)
{
	const int ret = threaded ? plat_request_threaded_irq(leaf, nullptr, on_leaf,
							     IRQF_SHARED | IRQF_ONESHOT,
							     "drv_irq_async_handler", &leaf)
				 : plat_request_threaded_irq(leaf, on_leaf, nullptr, IRQF_SHARED,
							     "drv_irq_sync_handler", &leaf);
	requested = ret == 0;
	return ret;
}

void release()
{
	plat_free_irq(leaf, &leaf);
	requested = false;
}

void idle()
{
	ASSERT_EQ(host_wait_idle(10000), 0);
}

class Model : public testing::Test {
protected:
	void SetUp() override
	{
		host_start();
		seen.take();
		stops.take();
		in_handler = nullptr;
		in_chained = nullptr;
		ops_move_parent = false;
		leaf_status = 0;
		chained = requested = false;
		parent = host_line_virq(line);
		plat_irq_chip_init(&chip, "chip", &ops);
		domain = plat___irq_domain_add(nullptr, 0, ~0ul, 0, &domain_ops, nullptr);
	}

	void TearDown() override
	{
		host_set_bug_handler(nullptr);
		in_chained = nullptr;
		in_handler = nullptr;
		if (chained)
			plat___irq_set_handler(parent, nullptr, 1, nullptr);
		if (requested)
			plat_free_irq(leaf, &leaf);
		plat_irq_dispose_mapping(leaf);
		plat_irq_domain_remove(domain);
		leaf = 0;
		host_stop();
	}
};

TEST_F(Model, pending_is_a_latch_that_masking_keeps_and_withdrawing_clears)
{
	struct {
		const char *name;
		int raises;
		bool withdraw;
		size_t delivered;
	} const cases[] = {{"twice", 2, false, 1}, {"withdrawn", 1, true, 0}};

	install();
	for (const auto &row : cases) {
		SCOPED_TRACE(row.name);
		plat_disable_irq_nosync(parent);
		for (int i = 0; i < row.raises; i++)
			host_line_set_pending(line, 1);
		if (row.withdraw)
			host_line_set_pending(line, 0);
		idle();
		EXPECT_THAT(seen.take(), IsEmpty());
		plat_enable_irq(parent);
		idle();
		EXPECT_EQ(seen.take().size(), row.delivered);
	}
}

TEST_F(Model, line_raised_inside_its_handler_comes_again_and_never_beside_itself)
{
	std::atomic<int> inside{0}, most{0}, count{0};

	in_chained = [&] {
		most = std::max<int>(most, ++inside);
		if (++count < 200)
			host_line_set_pending(line, 1);
		std::this_thread::yield();
		inside--;
	};
	install();
	host_line_set_pending(line, 1);
	EXPECT_TRUE(eventually([&] { return count == 200; }));
	idle();
	EXPECT_EQ(count, 200);
	EXPECT_EQ(most, 1);
}

TEST_F(Model, two_lines_are_handled_at_the_same_time)
{
	gate held;

	in_chained = [&] { held.pass(); };
	install();
	host_line_set_pending(line, 1);
	ASSERT_TRUE(held.reached());
	in_chained = nullptr;

	const u32 other = host_line_virq(line + 1);
	static std::atomic<bool> ran;
	ran = false;
	plat___irq_set_handler(
		other,
		[](irq_desc *desc) {
			ran = true;
			plat_chained_irq_exit(plat_irq_data_get_irq_chip(plat_irq_get_irq_data(
						      plat_irq_desc_get_irq(desc))),
					      desc);
		},
		1, nullptr);
	host_line_set_pending(line + 1, 1);
	EXPECT_TRUE(eventually([&] { return ran.load(); }));
	held.open();
	plat___irq_set_handler(other, nullptr, 1, nullptr);
	idle();
}

TEST_F(Model, chained_install_resets_depth_and_refuses_requests)
{
	EXPECT_EQ(host_irq_depth(parent), 1);
	plat_disable_irq_nosync(parent);
	EXPECT_EQ(host_irq_depth(parent), 2);
	install();
	EXPECT_EQ(host_irq_depth(parent), 0);
	plat_enable_irq(parent); // at depth 0: nothing, and no complaint
	EXPECT_EQ(host_irq_depth(parent), 0);
	EXPECT_FALSE(host_line_masked(line));
	EXPECT_EQ(plat_request_threaded_irq(parent, on_leaf, nullptr, 0, "late", &leaf), -22);
}

TEST_F(Model, disable_of_a_chained_line_holds_it_only_when_unlazy)
{
	plat___irq_set_handler(parent, on_parent, 1, nullptr);
	chained = true;
	plat_disable_irq_nosync(parent);
	EXPECT_FALSE(host_line_masked(line));
	host_line_set_pending(line, 1);
	EXPECT_TRUE(eventually([] { return !host_line_pending(line); }));
	idle();
	EXPECT_THAT(seen.take(), ElementsAre("parent in hardirq"));

	plat_enable_irq(parent);
	plat_irq_modify_status(parent, 0, IRQ_DISABLE_UNLAZY);
	plat_disable_irq_nosync(parent);
	EXPECT_TRUE(host_line_masked(line));
	host_line_set_pending(line, 1);
	idle();
	EXPECT_THAT(seen.take(), IsEmpty());
}

TEST_F(Model, chip_unmask_leaves_a_disabled_line_closed)
{
	install();
	plat_disable_irq_nosync(parent);
	EXPECT_TRUE(host_line_masked(line));
	plat_irq_chip_unmask(plat_irq_get_irq_data(parent));
	EXPECT_EQ(host_irq_depth(parent), 1);
	EXPECT_TRUE(host_line_masked(line));
}

TEST_F(Model, uninstalled_line_keeps_its_interrupt_for_the_next_handler)
{
	install();
	plat___irq_set_handler(parent, nullptr, 1, nullptr);
	EXPECT_EQ(host_irq_depth(parent), 1);
	EXPECT_TRUE(host_line_masked(line));
	host_line_set_pending(line, 1);
	idle();
	EXPECT_THAT(seen.take(), IsEmpty());
	install();
	idle();
	EXPECT_THAT(seen.take(), ElementsAre("parent in hardirq"));
}

TEST_F(Model, enabled_line_without_handler_stops_when_it_fires)
{
	host_set_bug_handler(note_stop);
	install();
	plat___irq_set_handler(parent, nullptr, 1, nullptr);
	chained = false;
	plat_enable_irq(parent);
	host_line_set_pending(line, 1);
	idle();
	EXPECT_THAT(stops.take(), ElementsAre(HasSubstr("take no further interrupt")));
}

TEST_F(Model, root_line_takes_two_types_and_a_leaf_any)
{
	map_leaf();
	for (u32 type = 0; type < 16; type++) {
		EXPECT_EQ(plat_irq_set_irq_type(parent, type), type == 1 || type == 4 ? 0 : -22)
			<< type;
		EXPECT_EQ(plat_irq_set_irq_type(leaf, type), 0) << type;
	}
	EXPECT_EQ(plat_irq_set_irq_type(0, 4), -22);
}

TEST_F(Model, requests_are_refused_as_the_kernel_refuses_them)
{
	map_leaf();
	struct {
		const char *name;
		u32 virq;
		plat_irq_handler primary, thread;
		unsigned long flags;
		void *cookie;
		int ret;
	} const cases[] = {
		{"no descriptor", 4000, on_leaf, nullptr, 0, &leaf, -22},
		{"no handler", leaf, nullptr, nullptr, 0, &leaf, -22},
		{"shared without cookie", leaf, on_leaf, nullptr, IRQF_SHARED, nullptr, -22},
		{"thread only, not one-shot", leaf, nullptr, on_leaf, IRQF_SHARED, &leaf, -22},
	};
	for (const auto &row : cases)
		EXPECT_EQ(plat_request_threaded_irq(row.virq, row.primary, row.thread, row.flags,
						    "test", row.cookie),
			  row.ret)
			<< row.name;

	ASSERT_EQ(request(false), 0);
	int other;
	EXPECT_EQ(plat_request_threaded_irq(leaf, nullptr, on_leaf, IRQF_SHARED | IRQF_ONESHOT,
					    "test", &other),
		  -16);
	EXPECT_EQ(plat_request_threaded_irq(leaf, on_leaf, nullptr, 0, "test", &other), -16);
	EXPECT_FALSE(host_thread_exists(("irq/" + std::to_string(leaf) + "-test").c_str()));
}

TEST_F(Model, leaf_is_started_handled_and_shut_down_through_its_chip)
{
	map_leaf();
	install();
	in_chained = [] { plat_generic_handle_irq(leaf); };
	for (int round = 0; round < 2; round++) { // every request moves the parent
		ASSERT_EQ(request(false), 0);
		EXPECT_THAT(seen.take(), ElementsAre("enable", "affinity"));
		release();
		EXPECT_THAT(seen.take(), ElementsAre("disable"));
	}
	ASSERT_EQ(request(false), 0);
	seen.take();
	host_line_set_pending(line, 1);
	idle();
	EXPECT_THAT(seen.take(),
		    ElementsAre("parent in hardirq", "mask", "leaf in hardirq", "unmask"));
	char *text = host_interrupts_text();
	EXPECT_THAT(text, HasSubstr("drv_irq_sync_handler"));
	free(text);
}

TEST_F(Model, one_shot_leaf_stays_masked_until_its_thread_is_through)
{
	gate held;

	map_leaf();
	ASSERT_EQ(request(true), 0);
	const std::string thread = "irq/" + std::to_string(leaf) + "-drv_irq_"; // cut to 15
	EXPECT_TRUE(host_thread_exists(thread.c_str()));
	seen.take();

	in_handler = [&] { held.pass(); };
	plat_generic_handle_irq(leaf);
	ASSERT_TRUE(held.reached());
	EXPECT_THAT(seen.take(), ElementsAre("mask", "leaf in thread:" + thread));
	held.open();
	idle();
	EXPECT_THAT(seen.take(), ElementsAre("unmask"));
	release();
	EXPECT_FALSE(host_thread_exists(thread.c_str()));
}

TEST_F(Model, enabling_a_leaf_opens_it_while_its_thread_still_runs)
{
	gate held;

	map_leaf();
	ASSERT_EQ(request(true), 0);
	in_handler = [&] { held.pass(); };
	plat_generic_handle_irq(leaf);
	ASSERT_TRUE(held.reached());
	seen.take();
	plat_disable_irq_nosync(leaf);
	plat_enable_irq(leaf);
	EXPECT_THAT(seen.take(), ElementsAre("disable", "enable"));
	held.open();
	idle();
	EXPECT_THAT(seen.take(), IsEmpty()); // no later unmask
}

TEST_F(Model, leaf_dispatched_while_its_handler_runs_is_dropped_masked_once)
{
	gate held;

	map_leaf();
	ASSERT_EQ(request(false), 0);
	seen.take();
	in_handler = [&] { held.pass(); };
	std::thread first([] { plat_generic_handle_irq(leaf); });
	ASSERT_TRUE(held.reached());
	EXPECT_THAT(seen.take(), ElementsAre("mask", HasSubstr("leaf in")));
	plat_generic_handle_irq(leaf);
	EXPECT_THAT(seen.take(), IsEmpty());
	held.open();
	first.join();
	EXPECT_THAT(seen.take(), ElementsAre("unmask"));
}

TEST_F(Model, leaf_disabled_by_its_own_handler_is_not_unmasked)
{
	map_leaf();
	ASSERT_EQ(request(false), 0);
	seen.take();
	in_handler = [] { plat_disable_irq_nosync(leaf); };
	plat_generic_handle_irq(leaf);
	EXPECT_THAT(seen.take(), ElementsAre("mask", HasSubstr("leaf in"), "disable"));
	EXPECT_EQ(host_irq_depth(leaf), 1);
}

TEST_F(Model, only_an_edge_leaf_is_replayed_and_from_a_softirq)
{
	map_leaf();
	ASSERT_EQ(request(false), 0);
	for (const unsigned long status : {0ul, IRQ_LEVEL}) {
		plat_irq_modify_status(leaf, IRQ_LEVEL, status);
		plat_disable_irq_nosync(leaf);
		plat_generic_handle_irq(leaf);
		seen.take();
		plat_enable_irq(leaf);
		idle();
		const std::vector<std::string> replayed = {"enable", "mask", "leaf in softirq",
							   "unmask"};
		EXPECT_EQ(seen.take(), status ? std::vector<std::string>{"enable"} : replayed);
	}
}

TEST_F(Model, dispatch_from_a_thread_has_interrupts_off_and_refuses_root_lines)
{
	map_leaf();
	install();
	ASSERT_EQ(request(false), 0);
	bool off = false, task = false;
	in_handler = [&] {
		off = plat_irqs_disabled();
		task = plat_in_task();
	};
	EXPECT_EQ(plat_generic_handle_irq(leaf), 0);
	EXPECT_TRUE(off);
	EXPECT_TRUE(task);
	EXPECT_FALSE(plat_irqs_disabled());
	EXPECT_EQ(plat_generic_handle_irq(parent), -1);
	EXPECT_EQ(plat_generic_handle_irq(0), -22);
	EXPECT_EQ(plat_generic_handle_irq(~0u), -22);
}

TEST_F(Model, chained_exit_leaves_a_disabled_nested_parent_closed)
{
	map_leaf();
	plat_irq_modify_status(leaf, 0, IRQ_DISABLE_UNLAZY);
	plat___irq_set_handler(leaf, on_parent, 1, nullptr);
	seen.take();
	in_chained = [] { plat_disable_irq_nosync(leaf); };
	plat_generic_handle_irq(leaf);
	EXPECT_THAT(seen.take(), ElementsAre("mask", HasSubstr("parent in"), "disable"));
	in_chained = nullptr;
	plat_enable_irq(leaf);
	seen.take();
	plat_generic_handle_irq(leaf);
	EXPECT_THAT(seen.take(), ElementsAre("mask", HasSubstr("parent in"), "unmask"));
	plat___irq_set_handler(leaf, nullptr, 1, nullptr);
}

TEST_F(Model, direct_leaf_needs_a_lock_class_of_its_own)
{
	host_set_bug_handler(note_stop);
	ops_move_parent = true;
	install();
	plat_disable_irq_nosync(parent);
	map_leaf();
	ASSERT_EQ(request(false), 0); // the chip's enable takes the parent's lock under the leaf's
	EXPECT_EQ(host_irq_depth(parent), 0);
	EXPECT_THAT(stops.take(), ElementsAre(HasSubstr("irq_desc lock taken under another")));
	release();
	stops.take();
	plat_irq_dispose_mapping(leaf);
	map_leaf();
	plat_irq_set_lockdep_class(leaf, 0);
	ASSERT_EQ(request(false), 0);
	EXPECT_THAT(stops.take(), IsEmpty());
	ops_move_parent = false;
}

TEST_F(Model, a_free_waits_for_the_handler_that_runs)
{
	for (const bool threaded : {false, true}) {
		gate held;
		std::atomic<bool> freed{false};

		map_leaf();
		ASSERT_EQ(request(threaded), 0);
		in_handler = [&] { held.pass(); };
		std::thread dispatcher([] { plat_generic_handle_irq(leaf); });
		ASSERT_TRUE(held.reached());
		std::thread releaser([&] {
			plat_free_irq(leaf, &leaf);
			freed = true;
		});
		plat_msleep(20);
		EXPECT_FALSE(freed) << threaded;
		held.open();
		releaser.join();
		dispatcher.join();
		EXPECT_TRUE(freed);
		requested = false;
		plat_irq_dispose_mapping(leaf);
	}
}

std::thread read_in_chained_handler(gate &held, int &word)
{
	in_chained = [&] {
		held.pass();
		word = 1;
	};
	host_line_set_pending(line, 1);
	return std::thread([] {});
}

std::thread read_in_dispatch(gate &held, int &word)
{
	in_handler = [&] {
		held.pass();
		word = 1;
	};
	return std::thread([] { plat_generic_handle_irq(leaf); });
}

std::thread read_in_section(gate &held, int &word)
{
	return std::thread([&] {
		const int outer = plat_srcu_read_lock();
		plat_srcu_read_unlock(plat_srcu_read_lock());
		held.pass();
		word = 1;
		plat_srcu_read_unlock(outer);
	});
}

// Plain words on purpose: the thread checker proves that waiting also orders.
TEST_F(Model, synchronize_waits_for_what_was_running)
{
	struct {
		std::thread (*reader)(gate &, int &);
		void (*wait)();
	} const cases[] = {{read_in_chained_handler, plat_synchronize_rcu},
			   {read_in_dispatch, plat_synchronize_rcu},
			   {read_in_section, plat_synchronize_srcu}};

	install();
	map_leaf();
	ASSERT_EQ(request(false), 0);
	for (const auto &row : cases) {
		SCOPED_TRACE(&row - cases);
		gate held;
		int word = 0;
		std::atomic<bool> over{false};
		std::thread reader = row.reader(held, word);
		ASSERT_TRUE(held.reached());
		std::thread waiter([&] {
			row.wait();
			EXPECT_EQ(word, 1);
			over = true;
		});
		plat_msleep(20);
		EXPECT_FALSE(over);
		held.open();
		waiter.join();
		reader.join();
		in_chained = nullptr;
		in_handler = nullptr;
	}
}

TEST_F(Model, thread_runs_when_woken_keeps_a_wake_up_and_stops)
{
	static std::atomic<int> rounds, wanted;
	rounds = wanted = 0;
	const auto body = [](void *) {
		for (;;) {
			plat_set_current_state_interruptible();
			if (plat_kthread_should_stop())
				break;
			if (rounds == wanted) {
				plat_schedule();
				continue;
			}
			plat_set_current_state_running();
			rounds++;
		}
		plat_set_current_state_running();
		return 5;
	};
	task_struct *task = plat_kthread_create_on_node(body, nullptr, -1, "intr0123456789-x");
	EXPECT_TRUE(host_thread_exists("intr0123456789-"));
	EXPECT_EQ(plat_kthread_stop(task), -4); // never woken, never run

	task = plat_kthread_create_on_node(body, nullptr, -1, "intr3-handler");
	plat_wake_up_process(task);
	for (int i = 1; i <= 500; i++) {
		wanted = i;
		plat_wake_up_process(task);
		if (i % 2) {
			ASSERT_TRUE(eventually([&] { return rounds == i; }));
		}
	}
	EXPECT_TRUE(eventually([] { return rounds == 500; }));
	EXPECT_EQ(plat_kthread_stop(task), 5);
}

TEST_F(Model, registers_are_words_behind_a_mapping)
{
	host_mmio_set(0x1004, 7);
	host_mmio_fail(0x2000, 1);
	EXPECT_EQ(plat_ioremap(0x1ff0, 0x20), nullptr);
	void *base = plat_ioremap(0x1000, 8);
	ASSERT_NE(base, nullptr);
	EXPECT_EQ(plat_readl(static_cast<char *>(base) + 4), 7u);
	plat_writel(9, base);
	host_mmio_access log[2];
	ASSERT_EQ(host_mmio_log(log, 2), 2u);
	EXPECT_TRUE(!log[0].write && log[0].physical == 0x1004);
	EXPECT_TRUE(log[1].write && log[1].physical == 0x1000 && host_mmio_get(0x1000) == 9);
	plat_iounmap(base);
	host_set_bug_handler(note_stop);
	(void)plat_readl(base);
	EXPECT_THAT(stops.take(), ElementsAre(HasSubstr("readl")));
}

TEST_F(Model, injected_fault_skips_exactly_the_nth_call)
{
	u32 calls = 0;
	int hit = 0;

	map_leaf();
	ASSERT_EQ(host_fault("plat_kzalloc", 2, 0), 0);
	void *first = plat_kzalloc(8), *second = plat_kzalloc(8), *third = plat_kzalloc(8);
	host_fault_count(&calls, &hit);
	EXPECT_TRUE(first && !second && third);
	EXPECT_EQ(calls, 3u);
	EXPECT_EQ(hit, 1);
	plat_kfree(first);
	plat_kfree(third);
	EXPECT_EQ(host_calls("plat_kzalloc"), 3ul);

	host_fault("plat_request_threaded_irq", 1, -12);
	EXPECT_EQ(request(false), -12);
	host_fault("plat_kthread_create_on_node", 1, -11);
	EXPECT_EQ(reinterpret_cast<long>(plat_kthread_create_on_node(nullptr, nullptr, 0, "x")),
		  -11);
	host_fault("plat_irq_create_mapping", 1, 0);
	EXPECT_EQ(plat_irq_create_mapping(domain, 99), 0u);
	EXPECT_EQ(host_fault("plat_no_such", 1, 0), -22);
	host_fault_off();
	EXPECT_EQ(request(false), 0);
}

plat_mutex mutex, other_mutex;
plat_raw_spinlock spin;

const misuse harmful[] = {
	{"Unbalanced enable", [] { host_enable_irq(leaf); }},
	{"still requested", [] { plat_irq_dispose_mapping(leaf); }},
	{"already-free", [] { plat_free_irq(leaf, &parent); }},
	{"has 1 mappings", [] { plat_irq_domain_remove(domain); }},
	{"kzalloc",
	 [] {
		 plat_local_irq_disable();
		 EXPECT_EQ(plat_kzalloc(8), nullptr);
		 plat_local_irq_enable();
	 }},
	{"kzalloc: sleeping function",
	 [] {
		 in_handler = [] { EXPECT_EQ(plat_kzalloc(8), nullptr); };
		 plat_generic_handle_irq(leaf);
		 in_handler = nullptr;
	 }},
	{"enabled interrupts",
	 [] {
		 in_handler = [] { plat_local_irq_enable(); };
		 plat_generic_handle_irq(leaf);
		 in_handler = nullptr;
	 }},
	{"local_irq_enable in a hard interrupt",
	 [] {
		 in_chained = [] { plat_local_irq_enable(); };
		 host_line_set_pending(line, 1);
		 idle();
		 in_chained = nullptr;
	 }},
	{"locked again by its owner",
	 [] {
		 plat_mutex_lock(&mutex);
		 plat_mutex_lock(&mutex);
		 plat_mutex_unlock(&mutex);
	 }},
	{"does not hold it", [] { plat_mutex_unlock(&mutex); }},
	{"never initialised",
	 [] {
		 plat_mutex raw = {};
		 plat_mutex_lock(&raw);
	 }},
	{"mutex_lock: sleeping function",
	 [] {
		 const unsigned long flags = plat_raw_spin_lock_irqsave(&spin);
		 plat_mutex_lock(&mutex);
		 plat_raw_spin_unlock_irqrestore(&spin, flags);
	 }},
	{"lock order",
	 [] {
		 static plat_mutex again, other_again; // classes count, not locks
		 plat_mutex_init(&again, PLAT_MUTEX_DRIVER);
		 plat_mutex_init(&other_again, PLAT_MUTEX_LEAF);
		 for (auto [outer, inner] :
		      {std::pair(&mutex, &other_mutex), std::pair(&other_again, &again)}) {
			 plat_mutex_lock(outer);
			 plat_mutex_lock(inner);
			 plat_mutex_unlock(inner);
			 plat_mutex_unlock(outer);
		 }
	 }},
	{"wait for itself",
	 [] {
		 const int token = plat_srcu_read_lock();
		 plat_synchronize_srcu();
		 plat_srcu_read_unlock(token);
	 }},
	{"symbol_put", [] { plat_symbol_put("nothing"); }},
	{"1 left behind: memory of 24 bytes",
	 [] {
		 plat___irq_set_handler(parent, nullptr, 1, nullptr);
		 release();
		 plat_irq_dispose_mapping(leaf);
		 plat_irq_domain_remove(domain);
		 void *object = plat_kzalloc(24);
		 host_check_leftovers();
		 plat_kfree(object);
		 domain = plat___irq_domain_add(nullptr, 0, ~0ul, 0, &domain_ops, nullptr);
		 map_leaf();
		 ASSERT_EQ(request(false), 0);
		 install();
	 }},
};

TEST_F(Model, what_would_harm_a_kernel_stops_loudly)
{
	plat_mutex_init(&mutex, PLAT_MUTEX_DRIVER);
	plat_mutex_init(&other_mutex, PLAT_MUTEX_LEAF);
	plat_raw_spin_lock_init(&spin, PLAT_SPIN_LEAF_ENABLE, 0);
	install();
	map_leaf();
	ASSERT_EQ(request(false), 0);
	expect_each_stops(harmful);
}

} // namespace
