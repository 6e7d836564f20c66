// SPDX-License-Identifier: GPL-2.0
//
// The kernel model itself, where a wrong model would hide a wrong driver and the
// scenarios, which run on the kernel too, cannot tell: real concurrency, waits that
// order, refusals, and that it stops over what would harm a kernel. What is
// expected here was seen on a real kernel.
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
constexpr unsigned long IRQ_NOPROBE = 1ul << 10, IRQ_NOREQUEST = 1ul << 11;
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

// A chip; as a direct combiner it moves the parent line.
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
constexpr plat_irq_chip_ops ops = {op_enable, op_disable, op_mask, op_unmask, nullptr, nullptr};

plat_irq_chip chip;

int map(irq_domain *, unsigned int virq, unsigned long)
{
	plat_irq_set_chip_and_handler_name(virq, &chip, plat_handle_level_irq, nullptr);
	plat_irq_modify_status(virq, IRQ_NOREQUEST | IRQ_NOPROBE, 0);
	return 0;
}
constexpr plat_irq_domain_ops domain_ops = {map};

void on_parent(irq_desc *desc)
{
	irq_chip *above = plat_irq_desc_get_chip(desc);

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

void map_leaf()
{
	leaf = plat_irq_create_mapping(domain, leaf_hwirq);
	ASSERT_GE(leaf, 16u);
}

int request()
{
	const int ret = plat_request_threaded_irq(leaf, on_leaf, nullptr, IRQF_SHARED,
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
		chained = requested = false;
		parent = host_line_virq(line);
		plat_irq_chip_init(&chip, "chip", &ops);
		domain = plat_irq_domain_create_tree(nullptr, &domain_ops, nullptr);
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

TEST_F(Model, line_raised_inside_its_handler_comes_again_and_never_beside_itself)
{
	std::atomic<int> inside{0}, most{0}, count{0};

	in_chained = [&] {
		most = std::max<int>(most, ++inside);
		if (++count < 20)
			host_line_set_pending(line, 1);
		std::this_thread::yield();
		inside--;
	};
	install();
	host_line_set_pending(line, 1);
	EXPECT_TRUE(eventually([&] { return count == 20; }));
	idle();
	EXPECT_EQ(count, 20);
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
			plat_chained_irq_exit(plat_irq_desc_get_chip(desc), desc);
		},
		1, nullptr);
	host_line_set_pending(line + 1, 1);
	EXPECT_TRUE(eventually([&] { return ran.load(); }));
	held.open();
	plat___irq_set_handler(other, nullptr, 1, nullptr);
	idle();
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

TEST_F(Model, requests_are_refused_as_the_kernel_refuses_them)
{
	map_leaf();
	install();
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
		{"chained", parent, on_leaf, nullptr, 0, &leaf, -22},
	};
	for (const auto &row : cases)
		EXPECT_EQ(plat_request_threaded_irq(row.virq, row.primary, row.thread, row.flags,
						    "test", row.cookie),
			  row.ret)
			<< row.name;

	ASSERT_EQ(request(), 0);
	int other;
	EXPECT_EQ(plat_request_threaded_irq(leaf, nullptr, on_leaf, IRQF_SHARED | IRQF_ONESHOT,
					    "test", &other),
		  -16);
	EXPECT_EQ(plat_request_threaded_irq(leaf, on_leaf, nullptr, 0, "test", &other), -16);
	EXPECT_FALSE(host_thread_exists(("irq/" + std::to_string(leaf) + "-test").c_str()));
}

TEST_F(Model, leaf_dispatched_while_its_handler_runs_is_dropped_masked_once)
{
	gate held;

	map_leaf();
	ASSERT_EQ(request(), 0);
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

TEST_F(Model, direct_leaf_needs_a_lock_class_of_its_own)
{
	host_set_bug_handler(note_stop);
	ops_move_parent = true;
	install();
	plat_disable_irq_nosync(parent);
	map_leaf();
	ASSERT_EQ(request(), 0); // the chip's enable takes the parent's lock under the leaf's
	EXPECT_EQ(host_irq_depth(parent), 0);
	EXPECT_THAT(stops.take(), ElementsAre(HasSubstr("irq_desc lock taken under another")));
	release();
	stops.take();
	plat_irq_dispose_mapping(leaf);
	map_leaf();
	plat_irq_set_lockdep_class(leaf, 0);
	ASSERT_EQ(request(), 0);
	EXPECT_THAT(stops.take(), IsEmpty());
	ops_move_parent = false;
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
	ASSERT_EQ(request(), 0);
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
	{"readl",
	 [] {
		 void *base = plat_ioremap(0x1000, 8);
		 plat_iounmap(base);
		 (void)plat_readl(base);
	 }},
	{"1 left behind: memory of 24 bytes",
	 [] {
		 plat___irq_set_handler(parent, nullptr, 1, nullptr);
		 release();
		 plat_irq_dispose_mapping(leaf);
		 plat_irq_domain_remove(domain);
		 void *object = plat_kzalloc(24);
		 host_check_leftovers();
		 plat_kfree(object);
		 domain = plat_irq_domain_create_tree(nullptr, &domain_ops, nullptr);
		 map_leaf();
		 ASSERT_EQ(request(), 0);
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
	ASSERT_EQ(request(), 0);
	expect_each_stops(harmful);
}

} // namespace
