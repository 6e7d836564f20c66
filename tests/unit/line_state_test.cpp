// SPDX-License-Identifier: GPL-2.0
//
// A leaf and its parent line where two CPUs meet, at moments that only the model can hold,
// and in a kernel that was started with another option.
#include <string>
#include <thread>

#include "control.h"
#include "model_rig.h"
#include "intr/drv_intr.h"
#include "intr/siblings.h"
#include "testbed.h"

using testing::IsEmpty;

namespace {

constexpr u32 LINE = 2;
constexpr u32 TYPE = 3;

std::atomic<u32> calls;

class LineState : public testing::Test {
protected:
	void SetUp() override
	{
		ASSERT_TRUE(testbed::start());
		calls = 0;
		parent = host_line_virq(LINE);
	}

	void TearDown() override
	{
		EXPECT_EQ(testbed::unload(), 0);
		write_control("xml", "drop 0xffffffff");
		EXPECT_THAT(testbed::finish(), IsEmpty());
	}

	// A direct combiner on line 2 with a registered leaf.
	void load(u32 async = 0, u32 sync = 0, u32 irq_type = 8)
	{
		cfg::table table{XML_TABLE_BOARD, {}};
		cfg::entries &node = table.nodes["irq_combiner@2"];
		cfg::bytes bytes;
		std::string why;

		node["global_cfg"] = {{"direct", 1}, {"async", async}, {"allow_max", 1000000}};
		node["hwirq_cfg0"] = {{"index_id", 0},	      {"type", TYPE},
				      {"hwirq", 0},	      {"sync", sync},
				      {"irq_type", irq_type}, {"allow_max", 1000000}};
		ASSERT_TRUE(cfg::write_table(table, bytes, why)) << why;
		ASSERT_EQ(testbed::write_blob("xml_table", bytes), 0);
		ASSERT_EQ(testbed::load(), 0);
		regist();
	}

	static void regist()
	{
		ASSERT_EQ(drv_intr_set_regist(
				  0, TYPE, [](u32, u32, void *) { calls++; }, nullptr),
			  0);
	}

	void enable_without_client()
	{
		EXPECT_EQ(drv_intr_set_unregist(0, TYPE), 0);
		ASSERT_NE(drv_mapping_irq(0, TYPE), 0u);
		EXPECT_EQ(drv_intr_enable(0, TYPE), 0);
		host_enable_irq(parent); // the release had disabled it once more
	}

	u32 parent = 0;
};

struct disabler {
	u32 virq;
	std::atomic<bool> done{false};
	std::thread thread{};

	// Gives the other CPU the time that it needs, where nothing keeps it out.
	static void on_move(void *arg)
	{
		auto &self = *static_cast<disabler *>(arg);

		self.thread = std::thread([&self] {
			host_disable_irq_nosync(self.virq);
			self.done = true;
		});
		for (int turn = 0; turn < 200 && !self.done; turn++)
			std::this_thread::sleep_for(std::chrono::microseconds(100));
	}
};

TEST_F(LineState, a_disable_while_the_line_is_moved_lasts)
{
	load();
	host_fault("plat_irq_get_irq_data", 1, 0); // a parent that has gone cannot be moved
	EXPECT_EQ(host_irq_set_affinity(drv_find_mapping_irq(0, TYPE), 2), -EINVAL);
	host_fault_off();
	disabler other{parent};
	host_at("line_moves", disabler::on_move, &other);
	EXPECT_EQ(host_irq_set_affinity(drv_find_mapping_irq(0, TYPE), 2), 0);
	host_at("line_moves", nullptr, nullptr);
	other.thread.join();
	EXPECT_EQ(host_irq_affinity(parent), 2u);
	EXPECT_EQ(host_irq_depth(parent), 1);
	EXPECT_TRUE(host_line_masked(LINE));
	host_enable_irq(parent);
	EXPECT_FALSE(host_line_masked(LINE));
}

// A move of the parent itself takes the parent's descriptor lock before the core's
// own, a move of its leaf comes to them the other way round.
TEST_F(LineState, parent_and_leaf_are_moved_at_the_same_time)
{
	static constexpr int BUSY = -16;

	load();
	const u32 leaf = drv_find_mapping_irq(0, TYPE);
	std::thread other([&] {
		for (u32 turn = 0; turn < 2000; turn++)
			EXPECT_EQ(host_irq_set_affinity(parent, 1 + turn % 2), 0);
	});
	for (u32 turn = 0; turn < 2000; turn++) {
		const int code = host_irq_set_affinity(leaf, 1 + turn % 2);

		EXPECT_TRUE(code == 0 || code == BUSY) << code;
	}
	other.join();
	EXPECT_FALSE(host_line_masked(LINE));
}

struct starter {
	u32 virq;
	std::atomic<bool> seen{false};

	// The first time. Gives the other thread the time that it needs, where nothing
	// keeps it out.
	static void on_depth_seen(void *arg)
	{
		auto &self = *static_cast<starter *>(arg);

		if (self.seen.exchange(true))
			return;
		for (int turn = 0; turn < 2000 && host_irq_depth(self.virq) != 0; turn++)
			std::this_thread::sleep_for(std::chrono::microseconds(100));
	}
};

// A request starts its leaf, which enables it: an enable that has looked at the depth
// before is then one too many.
TEST_F(LineState, an_enable_never_meets_a_start_half_way)
{
	load();
	EXPECT_EQ(drv_intr_set_unregist(0, TYPE), 0);
	starter start{drv_mapping_irq(0, TYPE)};
	host_at("depth_seen", starter::on_depth_seen, &start);
	std::thread enabler([] { EXPECT_EQ(drv_intr_enable(0, TYPE), 0); });
	EXPECT_TRUE(eventually([&] { return start.seen.load(); }));
	EXPECT_EQ(drv_intr_set_regist(
			  0, TYPE, [](u32, u32, void *) { calls++; }, nullptr),
		  0);
	enabler.join();
	host_at("depth_seen", nullptr, nullptr);
	EXPECT_EQ(host_irq_depth(start.virq), 0);
}

// What came while the request was under way is made good after it.
TEST_F(LineState, an_enable_while_a_request_starts_the_leaf_is_kept)
{
	load();
	EXPECT_EQ(drv_intr_set_unregist(0, TYPE), 0);
	const u32 virq = drv_mapping_irq(0, TYPE);
	held_place request("plat_request_threaded_irq");
	std::thread requester([] {
		EXPECT_EQ(drv_intr_set_regist(
				  0, TYPE, [](u32, u32, void *) { calls++; }, nullptr),
			  0);
	});
	EXPECT_TRUE(request.reached());
	EXPECT_EQ(drv_intr_enable(0, TYPE), 0);
	EXPECT_EQ(host_irq_depth(virq), 1); // not before the start
	request.open();
	requester.join();
	EXPECT_EQ(host_irq_depth(virq), 0);
	EXPECT_EQ(drv_intr_disable(0, TYPE), 0);
	EXPECT_EQ(host_irq_depth(virq), 1);
	EXPECT_EQ(drv_intr_enable(0, TYPE), 0);
	EXPECT_EQ(host_irq_depth(virq), 0);
}

// A source that is up again interrupts the moment its parent is enabled. The leaf must
// be masked anew for that, and disable the parent for its second invocation too.
TEST_F(LineState, a_threaded_leaf_is_unmasked_when_its_parent_is_enabled)
{
	std::atomic<int> depths[2] = {-1, -1};

	load();
	EXPECT_EQ(drv_intr_set_unregist(0, TYPE), 0);
	auto callback = [](u32, u32, void *data) {
		const u32 call = calls++;

		if (call < 2)
			static_cast<std::atomic<int> *>(data)[call] =
				host_irq_depth(host_line_virq(LINE));
		if (call == 0)
			host_line_set_pending(LINE, 1);
	};
	ASSERT_EQ(drv_intr_set_regist(0, TYPE, callback, depths), 0);
	const auto until_taken = [](void *) {
		eventually([] { return !host_line_pending(LINE); });
	};
	host_at("irq_enabled", until_taken, nullptr);
	host_line_set_pending(LINE, 1);
	EXPECT_TRUE(eventually([] { return calls == 2; }));
	EXPECT_EQ(host_wait_idle(5000), 0);
	host_at("irq_enabled", nullptr, nullptr);
	EXPECT_EQ(depths[0], 1);
	EXPECT_EQ(depths[1], 1);
	EXPECT_EQ(host_irq_depth(parent), 0);
	EXPECT_FALSE(host_line_masked(LINE));
}

// Wherever the leaf's handler belongs.
TEST_F(LineState, an_edge_that_nobody_could_take_is_replayed_once)
{
	for (const u32 async : {0u, 1u}) {
		for (const u32 sync : {0u, 1u}) {
			load(async, sync, 1);
			enable_without_client();
			host_line_set_pending(LINE, 1);
			EXPECT_EQ(host_wait_idle(5000), 0);
			calls = 0;
			regist();
			EXPECT_TRUE(eventually([] { return calls > 0; }));
			EXPECT_EQ(host_wait_idle(5000), 0);
			EXPECT_EQ(calls, 1u) << async << sync;
			EXPECT_EQ(testbed::unload(), 0);
		}
	}
	load();
}

// It belongs to the mapping whose edge it is: the next user of the leaf knows nothing of it.
TEST_F(LineState, a_replay_that_is_due_goes_with_its_mapping)
{
	load(1, 1, 1);
	enable_without_client();
	held_place scanned("plat_cond_resched");
	host_line_set_pending(LINE, 1); // and nobody is registered
	ASSERT_TRUE(scanned.reached());
	regist(); // the replay is the thread's, which has not come to it
	EXPECT_EQ(drv_intr_set_unregist(0, TYPE), 0);
	regist();
	scanned.open();
	EXPECT_EQ(host_wait_idle(5000), 0);
	EXPECT_EQ(calls, 0u);
}

// The release resets the depth: what a client enabled or disabled meanwhile would meet
// a line that is shut down already, or the next user's.
TEST_F(LineState, a_leaf_is_left_alone_while_its_interrupt_is_released)
{
	constexpr int NOT_USABLE = 22;

	load(1, 1);
	const u32 leaf = drv_find_mapping_irq(0, TYPE);
	held_place release("plat_free_irq");
	std::thread owner([] { EXPECT_EQ(drv_intr_set_unregist(0, TYPE), 0); });
	ASSERT_TRUE(release.reached());
	EXPECT_EQ(drv_intr_disable(0, TYPE), NOT_USABLE);
	EXPECT_EQ(drv_intr_enable(0, TYPE), NOT_USABLE);
	// Its handler may sleep: free_irq must find it idle, and nothing may start it.
	EXPECT_EQ(host_irq_depth(leaf), 1);
	release.open();
	owner.join();
	// A new mapping can be used at once.
	ASSERT_NE(drv_mapping_irq(0, TYPE), 0u);
	EXPECT_EQ(drv_intr_enable(0, TYPE), 0);
}

// Forced, a handler would run in a thread with bottom halves off, where it sees a task
// and may not sleep.
TEST_F(LineState, a_kernel_that_threads_handlers_leaves_synchronous_leaves_where_they_are)
{
	std::string context;
	const auto callback = [](u32, u32, void *data) {
		char text[32];

		host_context(text, sizeof(text));
		*static_cast<std::string *>(data) = text;
		if (std::string(text) != "hardirq")
			host_might_sleep("callback");
		calls++;
	};

	host_force_irq_threads(1);
	for (const u32 async : {0u, 1u}) {
		load(async, 1);
		EXPECT_EQ(drv_intr_set_unregist(0, TYPE), 0);
		ASSERT_EQ(drv_intr_set_regist(0, TYPE, callback, &context), 0);
		host_line_set_pending(LINE, 1);
		EXPECT_TRUE(eventually([&] { return calls == async + 1; }));
		EXPECT_EQ(host_wait_idle(5000), 0);
		EXPECT_EQ(context, async ? "thread:intr2-handler" : "hardirq");
		EXPECT_EQ(host_irq_depth(parent), 0);
		if (!async) {
			EXPECT_EQ(testbed::unload(), 0);
		}
	}
}

} // namespace
