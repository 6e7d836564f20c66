// SPDX-License-Identifier: GPL-2.0
//
// A board for scenarios: describes combiners and their leaves once, and makes
// from it the configuration that the driver reads and the CPLD sources that
// people can fire.
#ifndef TESTS_SCENARIOS_RIG_H
#define TESTS_SCENARIOS_RIG_H

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "world/world.h"

namespace rig {

struct level {
	u32 chip = 2;
	u32 en = 0;
	u32 status = 0;
	u32 shift = 0;
	u32 mask = 1;
	bool latched = false; // write-to-clear status
};

struct leaf {
	std::string name;
	u32 index = 0;
	u32 type = 3;
	u32 hwirq = 0;
	u32 sync = 0;
	u32 irq_type = 8;
	std::vector<level> levels; // outermost first
	u32 allow_max = 100000;
};

struct combiner {
	u32 id = 0; // number of the device, of its node and, at the top, of its parent line
	u32 async = 0;
	u32 direct = 0;
	std::vector<leaf> leaves;
	u32 allow_max = 1000000;
	u32 suppress_ms = 1000;
	u32 line = id;
	std::vector<level> outer{}; // of a nested combiner: the levels of the leaf it stands behind
};

// A leaf of combiner `id` behind `depth` levels; the outer ones are shared by all
// its leaves. Named "c<id>.<number>", index_id 0x<id>00 + number. Latched leaf level.
leaf make_leaf(u32 id, u32 number, u32 depth = 2);
combiner make_combiner(u32 id, u32 leaves, u32 depth = 2);

struct event {
	u32 index, type;
	std::string tag, context, irqs;

	bool operator==(const event &) const = default;
};

bool eventually(const std::function<bool()> &condition, unsigned deadline_ms = 5000);

class Scenario : public testing::Test {
protected:
	void SetUp() override;
	void TearDown() override;

	// Configuration and sources of these combiners, before load().
	void configure(const std::vector<combiner> &combiners);
	cfg::table &table() { return table_; }
	// Writes the table again after it was changed by hand.
	void install();

	void load();
	void unload();
	// A device besides the board's four; `irq` is line:N, leaf:INDEX:TYPE or none.
	// True when the driver took it.
	bool add_device(const std::string &name, const std::string &irq);
	void del_device(const std::string &name);

	// A command that must succeed, and its reply.
	std::string command(const std::string &file, const std::string &line);
	// The number in a reply "key=N" of a client or board command.
	long ask(const std::string &file, const std::string &line);

	long regist(const leaf &leaf, const std::string &options = "");
	long unregist(const leaf &leaf);
	void fire(const leaf &leaf) { command("cpld", "pulse " + leaf.name); }
	// Fires once the leaf's enable field is on: what comes between a handler and
	// its unmask is cleared by the unmask.
	void fire_open(const leaf &leaf);
	int depth(const std::string &line);

	std::vector<event> events();
	void clear_events();
	bool wait_events(size_t count);
	// Waits until the count is reached, then a moment longer for one too many.
	void expect_events(size_t count);

	std::vector<std::string> log();
	bool logged(const std::string &text);
	void clear_log();
	std::vector<std::string> trace();
	void clear_trace();

	// Prints log and trace so far, with interrupt numbers taken out, for the
	// comparison between the two homes; only where their order is fixed.
	void record();
	void record(const char *kind, const std::vector<std::string> &lines);

	bool loaded() const { return loaded_; }

private:
	cfg::table table_;
	std::vector<std::string> devices_;
	bool loaded_ = false;
};

} // namespace rig

#endif
