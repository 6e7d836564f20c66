// SPDX-License-Identifier: GPL-2.0
//
// A parent line at the worst moments of its combiner: a CPU has taken it, or a
// scan is about to dispatch it, and has not looked for its handler yet. The model
// holds whoever is there, until the tear-down has come to its wait for readers.
#include <atomic>
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
	host_pause("plat_irqs_disabled", 1);
	must("cpld", "pulse inner");
	ASSERT_TRUE(eventually([] { return host_paused("plat_irqs_disabled") != 0; }));
	// The handler data goes right after the handler.
	host_pause("plat_irq_set_handler_data", 1);
	std::thread removal([] { remove(9); });
	EXPECT_TRUE(eventually([] { return host_paused("plat_irq_set_handler_data") != 0; }));
	host_pause_off("plat_irqs_disabled");
	EXPECT_TRUE(eventually([] { return host_irq_depth(host_line_virq(4)) == 0; }));
	host_pause_off("plat_irq_set_handler_data");
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

// Bring-up, seen from the parent line: it is up, and must stay masked until the
// handler that is installed finds every leaf disabled.
TEST_F(Teardown, an_asserted_line_stays_masked_until_set_up_is_through)
{
	describe(4, 0);
	load();
	host_pause("plat___irq_domain_add", 1);
	std::thread set_up([&] { add(4, "line:4"); });
	EXPECT_TRUE(eventually([] { return host_paused("plat___irq_domain_add") != 0; }));
	host_line_set_pending(4, 1);
	EXPECT_EQ(host_line_masked(4), 1);
	EXPECT_EQ(host_irq_depth(host_line_virq(4)), 2);
	host_pause_off("plat___irq_domain_add");
	set_up.join();
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
