// SPDX-License-Identifier: GPL-2.0
//
// A parent line at the worst moments of its combiner: a CPU has taken it, or a
// scan is about to dispatch it, and has not looked for its handler yet. The model
// holds whoever is there, until the tear-down has come to its wait for readers. And
// changes that meet: one is held where it must have its lock, another must wait for it.
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "control.h"
#include "intr/drv_intr.h"
#include "model_rig.h"
#include "testbed.h"
#include "uapi/intr.h"

// The driver declares the kernel's errno values and string functions for itself.
#undef EINVAL
#undef ENOMEM
#undef EFAULT
#define strstr kernel_strstr
#include "core/records.h"
#undef strstr

namespace {

constexpr u32 TYPE = 3;

class Teardown : public testing::Test {
protected:
	void SetUp() override { ASSERT_TRUE(testbed::start()); }

	void TearDown() override
	{
		EXPECT_EQ(testbed::unload(), 0);
		must("xml", "drop 0xffffffff");
		must("cpld", "reset");
		EXPECT_THAT(testbed::finish(), testing::IsEmpty());
	}

	static std::string must(const char *file, const std::string &line)
	{
		const control_result result = write_control(file, line);

		EXPECT_EQ(result.code, 0) << file << ": " << line << ": " << result.reply;
		return result.reply;
	}

	// Combiner `id` with leaf `id` * 0x100, bit 0 of register 0x40 of chip `id`.
	void describe(u32 id, u32 async)
	{
		cfg::entries &node = table_.nodes["irq_combiner@" + std::to_string(id)];

		node["global_cfg"] = {{"async", async}, {"allow_max", 1000000}};
		node["hwirq_cfg0"] = {{"index_id", id * 0x100},
				      {"type", TYPE},
				      {"hwirq", 0},
				      {"sync", 1},
				      {"level_num", 1},
				      {"irq_type", 8},
				      {"allow_max", 1000000},
				      {"l0_chip_id", id},
				      {"l0_en", 0x40},
				      {"l0_status", 0x60},
				      {"l0_shift", 0},
				      {"l0_wc", 1}};
	}

	static void install(const cfg::table &table)
	{
		cfg::bytes bytes;
		std::string why;

		ASSERT_TRUE(cfg::write_table(table, bytes, why)) << why;
		ASSERT_EQ(testbed::write_blob("xml_table", bytes), 0);
	}

	void load()
	{
		install(table_);
		ASSERT_EQ(testbed::load(), 0);
	}

	void add(u32 id, const std::string &irq)
	{
		EXPECT_EQ(must("board",
			       "device add irq_combiner@" + std::to_string(id) + " irq=" + irq),
			  "probed=1");
	}

	static void remove(u32 id)
	{
		must("board", "device del irq_combiner@" + std::to_string(id));
	}

	// Removes the combiner's device and calls let_go once that waits for readers.
	template <typename Function> void remove_until_it_waits(u32 id, Function let_go)
	{
		const unsigned long waits = host_calls("plat_synchronize_rcu");
		std::thread removal([&] { remove(id); });

		EXPECT_TRUE(eventually([&] { return host_calls("plat_synchronize_rcu") > waits; }));
		let_go();
		removal.join();
	}

	static std::string kernel_log()
	{
		char *text = host_kernel_log();
		const std::string copy = text;

		free(text);
		return copy;
	}

	cfg::table table_;
	printed_lines unseen_;
};

} // namespace

// Whatever the flow handler is when the CPU looks for it, it must end the interrupt:
// the CPU would never take another one.
TEST_F(Teardown, a_cpu_that_has_taken_the_line_still_finds_its_handler)
{
	describe(4, 0);
	describe(5, 1);
	load();
	for (const u32 id : {4u, 5u}) {
		SCOPED_TRACE(id);
		add(id, "line:" + std::to_string(id));
		host_line_hold(id, 1);
		host_line_set_pending(id, 1);
		ASSERT_TRUE(eventually([&] { return host_line_taken(id) != 0; }));
		remove_until_it_waits(id, [&] { host_line_hold(id, 0); });
		EXPECT_EQ(host_wait_idle(10000), 0);
		EXPECT_EQ(host_line_masked(id), 1);
	}
}

// The outer combiner's thread has found the parent leaf active and is about to
// dispatch it, with interrupts still on: no wait for readers covers that.
TEST_F(Teardown, a_scan_about_to_dispatch_the_parent_leaf_meets_no_bad_handler)
{
	describe(4, 1);
	describe(9, 0);
	load();
	must("cpld", "source inner 0xffffffff 4 4:0x40:0x60:0:1:latched 9:0x40:0x60:0:1:latched");
	add(4, "line:4");
	add(9, "leaf:0x400:3");
	ASSERT_EQ(must("client", "regist 0x900 3"), "ret=0");
	ASSERT_EQ(host_wait_idle(10000), 0);
	held_place dispatch("plat_irqs_disabled");
	must("cpld", "pulse inner");
	ASSERT_TRUE(dispatch.reached());
	// The handler data goes right after the handler.
	held_place detached("plat_irq_set_handler_data");
	std::thread removal([] { remove(9); });
	EXPECT_TRUE(detached.reached());
	dispatch.open();
	EXPECT_TRUE(eventually([] { return host_irq_depth(host_line_virq(4)) == 0; }));
	detached.open();
	removal.join();
	EXPECT_EQ(host_wait_idle(10000), 0);
	EXPECT_THAT(kernel_log(), testing::Not(testing::HasSubstr("unexpected IRQ")));
	EXPECT_EQ(host_irq_depth(host_line_virq(4)), 0);
	// The leaf serves a handler of its own now.
	ASSERT_EQ(must("client", "regist 0x400 3 tag=own"), "ret=0");
	must("cpld", "source own 0xffffffff 4 4:0x40:0x60:0:1:latched");
	must("client", "clear");
	must("cpld", "pulse own");
	EXPECT_TRUE(eventually([] { return read_control("client_events").size() == 1; }));
}

// A leaf handler that sleeps in the outer combiner's thread holds up the scan, but no wait
// for readers: the rest of the scan must leave alone what is released meanwhile. The
// other leaf has no enable register, so that it stays active.
TEST_F(Teardown, a_scan_that_goes_on_after_the_wait_dispatches_no_leaf)
{
	describe(4, 1);
	describe(9, 0);
	cfg::keys &second = table_.nodes["irq_combiner@9"]["hwirq_cfg1"];
	second = table_.nodes["irq_combiner@9"]["hwirq_cfg0"];
	second["index_id"] = 0x901;
	second["hwirq"] = second["l0_shift"] = 1;
	second["l0_en"] = config::NO_REGISTER;
	load();
	must("cpld", "source a 0xffffffff 4 4:0x40:0x60:0:1:level 9:0x40:0x60:0:1:latched");
	must("cpld", "source b 0xffffffff 4 4:0x40:0x60:0:1:level 9:-:0x60:1:1:latched");
	add(4, "line:4");
	add(9, "leaf:0x400:3");
	ASSERT_EQ(must("client", "regist 0x900 3 tag=first hold=1"), "ret=0");
	ASSERT_EQ(must("client", "regist 0x901 3 tag=second"), "ret=0");
	must("cpld", "pulse a");
	ASSERT_TRUE(eventually([] { return read_control("client_events").size() == 1; }));
	must("cpld", "pulse b");
	const unsigned long sleeps = host_calls("plat_msleep");
	std::thread removal([] { remove(9); });
	EXPECT_TRUE(eventually([&] { return host_calls("plat_msleep") > sleeps; }));
	must("client", "let_go");
	removal.join();
	EXPECT_EQ(host_wait_idle(10000), 0);
	EXPECT_EQ(read_control("client_events").size(), 1u);
}

// However many go: a wait takes as long for one as for all.
TEST_F(Teardown, combiners_that_go_together_are_waited_for_together)
{
	for (const u32 id : {4u, 5u, 6u})
		describe(id, id == 5);
	load();
	for (const u32 id : {4u, 5u, 6u}) {
		add(id, "line:" + std::to_string(id));
		EXPECT_EQ(must("client", "regist " + std::to_string(id * 0x100) + " 3"), "ret=0");
	}
	const unsigned long waits = host_calls("plat_synchronize_rcu");
	EXPECT_EQ(testbed::unload(), 0);
	EXPECT_EQ(host_calls("plat_synchronize_rcu"), waits + 1);
	ASSERT_EQ(testbed::load(), 0);
}

// Bring-up, seen from the parent line: it is up, and must stay masked until the
// handler that is installed finds every leaf disabled.
TEST_F(Teardown, an_asserted_line_stays_masked_until_set_up_is_through)
{
	describe(4, 0);
	load();
	held_place domain("plat_irq_domain_create_tree");
	std::thread set_up([&] { add(4, "line:4"); });
	EXPECT_TRUE(domain.reached());
	host_line_set_pending(4, 1);
	EXPECT_EQ(host_line_masked(4), 1);
	EXPECT_EQ(host_irq_depth(host_line_virq(4)), 2);
	// Nor does it interrupt this CPU before all is done that comes with the handler.
	bool irqs_off = false;
	const auto note = [](void *off) { *static_cast<bool *>(off) = host_irqs_disabled(); };
	host_at("plat_irq_chip_unmask", note, &irqs_off);
	held_place handler("plat___irq_set_handler");
	domain.open();
	ASSERT_TRUE(handler.reached());
	EXPECT_EQ(drv_mapping_irq(0x400, TYPE), 0u) << "its leaf is still being set up";
	for (const u32 cmd : {DRV_INTR_IOC_DBG_RUNTIME, DRV_INTR_IOC_DBG_CFG}) {
		char text[8192];
		drv_intr_ioctl_para para{};

		para.buf = reinterpret_cast<unsigned long long>(text);
		para.buf_len = sizeof(text);
		EXPECT_EQ(testbed::ioctl(cmd, &para), 0);
		EXPECT_THAT(text, testing::Not(testing::AnyOf(testing::HasSubstr("combiner4"),
							      testing::HasSubstr("intr4"))));
	}
	handler.open();
	set_up.join();
	host_at("plat_irq_chip_unmask", nullptr, nullptr);
	EXPECT_TRUE(irqs_off);
	EXPECT_EQ(host_wait_idle(10000), 0);
	EXPECT_EQ(host_irq_depth(host_line_virq(4)), 0);
	EXPECT_EQ(host_line_masked(4), 0);
}

// The stop has freed all combiners and goes on: a card would stay for good. Its pin is
// as good as ever, so that nothing else refuses it.
TEST_F(Teardown, a_card_behind_a_pin_is_refused_while_the_driver_stops)
{
	cfg::table card{card_instance(1), {}};
	drv_intr_ioctl_para para{};

	card.nodes["global_cfg"]["common"] = {{"combiner_bitmap", 1}};
	card.nodes["irq_combiner@0"]["global_cfg"] = {{"int_type", 1}, {"gpio", 400}};
	install(card);
	load();
	para.inst_id = card_instance(1);
	for (const u32 stopping : {1u, 0u}) {
		{
			const mutex_guard guard(g_drv_intr_lock);
			g_drv_intr_ctrl.stopping = stopping;
		}
		const int depth = host_irq_depth(host_line_virq(32));
		EXPECT_EQ(testbed::ioctl(DRV_INTR_IOC_INIT_CARD, &para), stopping ? -14 : 0);
		EXPECT_EQ(host_irq_depth(host_line_virq(32)), stopping ? depth : 0);
	}
	EXPECT_THAT(read_control("log"),
		    testing::Contains("62 1 [intr init card combiner]the driver is stopping, "
				      "card_no=1"));
	EXPECT_EQ(testbed::ioctl(DRV_INTR_IOC_DEINIT_CARD, &para), 0);
	must("xml", "drop 0x1000000");
}

class Meeting : public Teardown {
protected:
	using change = std::function<void()>;

	static constexpr u32 LEAF = 0x400;

	void SetUp() override
	{
		cfg::table card{card_instance(1), {}};

		Teardown::SetUp();
		card.nodes["global_cfg"]["common"] = {{"combiner_bitmap", 1}};
		card.nodes["irq_combiner@0"]["global_cfg"] = {{"int_type", 1}, {"gpio", 400}};
		install(card);
		describe(4, 0);
		describe(5, 1);
		describe(9, 0);
		load();
	}

	void TearDown() override
	{
		must("xml", "drop 0x1000000");
		Teardown::TearDown();
	}

	static change command(u32 cmd, u32 object, u32 type = TYPE, u32 pid = 0)
	{
		return [=] {
			drv_intr_ioctl_para para{};

			para.index_id = object;
			para.type = type;
			para.pid = pid;
			EXPECT_EQ(testbed::ioctl(cmd, &para), 0) << cmd;
		};
	}

	// The first is at `place`; the second begins then, and ends after it.
	static void expect_waits(
		const char *place, const change &first, const change &second,
		const change &meanwhile = [] {})
	{
		SCOPED_TRACE(place);
		std::atomic<bool> through = false;
		held_place here(place);
		std::thread holder(first);
		EXPECT_TRUE(here.reached());
		std::thread waiting([&] {
			second();
			through = true;
		});
		std::this_thread::sleep_for(std::chrono::milliseconds(20));
		EXPECT_FALSE(through);
		meanwhile();
		here.open();
		holder.join();
		waiting.join();
	}

	// The combiner is alive, and its parent line untouched, while anybody uses a leaf of it.
	void expect_kept(const char *place, const change &user)
	{
		expect_waits(
			place, user, [] { remove(4); },
			[] { EXPECT_EQ(host_irq_depth(host_line_virq(4)), 0); });
		add(4, "line:4");
	}

	const change another_card = command(DRV_INTR_IOC_DEINIT_CARD, card_instance(9));
	const change add_outer = [this] { add(4, "line:4"); };
	const change map = [] { EXPECT_NE(drv_mapping_irq(LEAF, TYPE), 0u); };
	const change regist = [] {
		EXPECT_EQ(drv_intr_set_regist(
				  LEAF, TYPE, [](u32, u32, void *) {}, nullptr),
			  0);
	};
	const change unregist = [] { EXPECT_EQ(drv_intr_set_unregist(LEAF, TYPE), 0); };
};

TEST_F(Meeting, changes_of_combiners_wait_for_each_other)
{
	expect_waits("plat_irq_domain_create_tree", add_outer, another_card);
	expect_waits(
		"plat_irq_domain_remove", [] { remove(4); }, another_card);
	expect_waits("plat_gpiod_to_irq", command(DRV_INTR_IOC_INIT_CARD, card_instance(1)),
		     another_card);
	expect_waits("plat_irq_domain_remove", command(DRV_INTR_IOC_DEINIT_CARD, card_instance(1)),
		     another_card);
}

TEST_F(Meeting, cards_wait_for_the_pins_of_the_board)
{
	ASSERT_EQ(testbed::unload(), 0);
	table_.nodes["global_cfg"]["common"] = {{"cfg_type_bitmap", 4}, {"gpio_bitmap", 1}};
	table_.nodes["irq_combiner@0"]["global_cfg"] = {{"gpio", 401}};
	expect_waits(
		"plat_gpiod_to_irq", [this] { load(); }, another_card);
}

TEST_F(Meeting, users_of_a_leaf_wait_for_each_other)
{
	static constexpr u32 PORT = 77;
	const change subscribe = command(DRV_INTR_IOC_SET_PID, LEAF, TYPE, PORT);
	const change unsubscribe = command(DRV_INTR_IOC_UNSET_PID, LEAF, TYPE, PORT);

	add_outer();
	expect_waits("plat_irq_create_mapping", map, map);
	expect_waits("plat_request_threaded_irq", regist, subscribe);
	unregist();
	expect_waits("plat_free_irq", unsubscribe, regist);
	unregist();
	expect_waits("plat_irq_create_mapping", subscribe, subscribe);
	unsubscribe(); // the one that there is
	EXPECT_EQ(drv_find_mapping_irq(LEAF, TYPE), 0u);
	expect_waits("plat_irq_create_mapping", subscribe, regist);
	unsubscribe();
	expect_waits("plat_free_irq", unregist, regist);
	// A scan has read the virq: it must not become another leaf's before the dispatch.
	must("cpld", "source t 0xffffffff 4 4:0x40:0x60:0:1:latched");
	expect_waits(
		"plat_generic_handle_irq", [] { must("cpld", "pulse t"); }, unregist);
	map();
	// A leaf that becomes a parent line is enabled by nobody else from there on.
	expect_waits(
		"plat_disable_irq_nosync", [] { EXPECT_EQ(drv_intr_disable(LEAF, TYPE), 0); },
		[this] { add(9, "leaf:0x400:3"); });
}

// Its process has gone: the message fails, and the disable before it is undone.
TEST_F(Meeting, subscribers_wait_for_a_message_under_way)
{
	static constexpr u32 THREADED = 0x500;
	const auto port = [](u32 cmd, u32 pid) { return command(cmd, THREADED, TYPE, pid); };

	must("cpld", "source s 0xffffffff 5 5:0x40:0x60:0:1:latched");
	add(5, "line:5");
	const change fire = [] { must("cpld", "pulse s"); };
	port(DRV_INTR_IOC_SET_PID, 1)();
	expect_waits("plat_netlink_unicast", fire, port(DRV_INTR_IOC_SET_PID, 2));
	ASSERT_EQ(host_wait_idle(10000), 0);
	expect_waits("plat_netlink_unicast", fire, [] {
		drv_intr_ioctl_para para{};

		para.index_id = THREADED;
		para.type = TYPE;
		para.pid = 3;
		EXPECT_NE(testbed::ioctl(DRV_INTR_IOC_UNSET_PID, &para), 0);
	});
	ASSERT_EQ(host_wait_idle(10000), 0);
	port(DRV_INTR_IOC_SET_PID, 4)();
	expect_waits("plat_enable_irq", fire,
		     [] { EXPECT_EQ(drv_intr_enable(THREADED, TYPE), 0); });
}

// The second would be told of a leaf that is enabled already.
TEST_F(Meeting, an_answer_between_two_messages_does_not_enable_the_leaf)
{
	static constexpr u32 THREADED = 0x500;
	struct walk {
		u32 messages = 0;
		int depth = -1;
	} walk;
	const auto answer = [](void *arg) {
		auto &seen = *static_cast<struct walk *>(arg);

		if (++seen.messages != 2)
			return;
		EXPECT_EQ(drv_intr_enable(THREADED, TYPE), 0);
		seen.depth = host_irq_depth(drv_find_mapping_irq(THREADED, TYPE));
	};

	must("cpld", "source s 0xffffffff 5 5:0x40:0x60:0:1:latched");
	add(5, "line:5");
	const int sockets[] = {testbed::netlink_open(30), testbed::netlink_open(30)};
	for (const int socket : sockets)
		command(DRV_INTR_IOC_SET_PID, THREADED, TYPE, testbed::netlink_port(socket))();
	host_at("plat_nlmsg_new", answer, &walk);
	must("cpld", "pulse s");
	EXPECT_TRUE(eventually([&] { return host_calls("plat_netlink_unicast") == 2; }));
	EXPECT_EQ(host_wait_idle(10000), 0);
	host_at("plat_nlmsg_new", nullptr, nullptr);
	EXPECT_EQ(walk.depth, 1);
	for (const int socket : sockets)
		testbed::netlink_close(socket);
}

TEST_F(Meeting, a_combiner_stays_while_its_leaf_is_in_use)
{
	char text[4096];
	drv_intr_ioctl_para para{};

	para.buf = reinterpret_cast<unsigned long long>(text);
	para.buf_len = sizeof(text);
	const auto report = [&](u32 cmd) {
		return [&para, cmd] { EXPECT_EQ(testbed::ioctl(cmd, &para), 0); };
	};
	add_outer();
	// The leaf is no longer found by then, and gets none.
	expect_kept("plat_irq_create_mapping", [] { (void)drv_mapping_irq(LEAF, TYPE); });
	expect_kept("plat_request_threaded_irq", regist);
	regist();
	expect_kept("plat_free_irq", unregist);
	map();
	expect_kept("plat_disable_irq_nosync", [] { EXPECT_EQ(drv_intr_disable(LEAF, TYPE), 0); });
	map();
	expect_kept("plat_irq_get_depth", report(DRV_INTR_IOC_DBG_RUNTIME));
	regist();
	para.virq = drv_find_mapping_irq(LEAF, TYPE);
	expect_kept("plat_irq_get_depth", report(DRV_INTR_IOC_DBG_VIRQ));
}
