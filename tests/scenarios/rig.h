// SPDX-License-Identifier: GPL-2.0
//
// A board for scenarios: describes combiners and their leaves once, and makes
// from it the configuration that the driver reads and the CPLD sources that
// people can fire.
#ifndef TESTS_SCENARIOS_RIG_H
#define TESTS_SCENARIOS_RIG_H

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "board/lines.h"
#include "table/numbering.h"
#include "uapi/intr.h"
#include "testbed.h"

namespace rig {

// What the driver answers to a process, and to a load or a bind, that it refuses
// for whatever reason.
inline constexpr int REFUSED = -14;

// The client remembers so many callbacks; it loses those that come after.
inline constexpr size_t CLIENT_EVENTS = 8192;

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
	u32 inst = XML_TABLE_BOARD; // of its registers
};

struct combiner {
	u32 id = 0; // number of the device, of its node and, at the top, of its parent line
	u32 async = 0;
	u32 direct = 0;
	std::vector<leaf> leaves;
	u32 allow_max = 1000000;
	u32 suppress_ms = 1000;
	u32 line = id;
	std::vector<level> outer{}; // of a cascaded combiner: the levels of its parent leaf
	u32 inst = XML_TABLE_BOARD; // whose configuration and registers
	u32 outer_inst = XML_TABLE_BOARD; // of the outer levels' registers
	u32 node = id; // number of the node; of a card's combiner its index there
	u32 int_type = 0; // 1: behind GPIO pin `gpio`, 2: behind a leaf
	u32 gpio = 0;
	u32 irq_type = 8;
};

// A leaf of combiner `id` behind `depth` levels; the outer ones are shared by all
// its leaves. Named "c<id>.<number>", index_id 0x<id>00 + number. Latched leaf level.
leaf make_leaf(u32 id, u32 number, u32 depth = 2);
combiner make_combiner(u32 id, u32 leaves, u32 depth = 2);

// The combiner that is number `index` of card `card_no`, with instance id
// card_no << 24, names "k<card>i<index>.<number>" and index_ids from
// 0x<card>0<index>00 on; its registers are those of the card's instance.
combiner make_card_combiner(u32 card_no, u32 index, u32 leaves, u32 depth = 2);
// Behind a GPIO pin of the board, counted from 0.
void place_at_gpio(combiner &combiner, u32 pin);
// Behind a leaf of another combiner, as a card's combiner has it: (card number, 7).
void place_behind(combiner &combiner, const rig::combiner &outer, const leaf &leaf);
inline u32 card_inst(u32 card_no)
{
	return card_instance(card_no);
}

// A process with a bound netlink socket of the driver's protocol.
class subscriber {
public:
	explicit subscriber(u32 receive_buffer = 0, u32 protocol = 30);
	~subscriber() { close(); }
	subscriber(const subscriber &) = delete;
	subscriber &operator=(const subscriber &) = delete;

	u32 port() const { return port_; }
	void close();
	// The next message, checked to be one of the driver; nothing when none came.
	std::optional<drv_intr_nl_leaf> receive(unsigned timeout_ms = 5000);
	bool receives(const leaf &leaf, unsigned timeout_ms = 5000);
	bool silent() { return !receive(30); }

private:
	int handle_;
	u32 port_ = 0;
};

struct event {
	u32 index, type;
	std::string tag, context, irqs;

	bool operator==(const event &) const = default;
};

// "INDEX TYPE", as the client's commands name the leaf.
std::string pair_of(const leaf &leaf);
// Lines of Scenario::changes(): a field of the board's enable register written, its
// status bits cleared, the leaf's callback.
std::string enable_write(const level &level, u32 value);
std::string clear_write(const level &level);
std::string handler_mark(const leaf &leaf);
bool eventually(const std::function<bool()> &condition, unsigned deadline_ms = 5000);

class Scenario : public testing::Test {
protected:
	void SetUp() override;
	void TearDown() override;

	// Configuration and sources of these combiners, before load(): a table for
	// each instance, a card's with the bitmap of its combiners.
	void configure(const std::vector<combiner> &combiners);
	cfg::table &table(u32 inst = XML_TABLE_BOARD);
	// Writes an instance's table again after it was changed by hand.
	void install(u32 inst = XML_TABLE_BOARD);
	void drop_table(u32 inst);

	void load();
	void load(const std::vector<combiner> &combiners); // which it configures first
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
	// Whether the leaf's bits are set in this register of its own level's chip.
	bool field_is_set(const leaf &leaf, u32 reg);
	int depth(const std::string &line);
	int depth(const leaf &leaf);

	// Commands of the control device: 0 or a negative errno.
	int subscribe(const leaf &leaf, u32 port);
	int unsubscribe(const leaf &leaf, u32 port);
	int enable(const leaf &leaf, u32 on = 1);
	int card_up(u32 inst);
	int card_down(u32 inst);
	// A report's text; empty when it is refused.
	std::string report(u32 cmd, u32 virq = 0);
	// How often the combiner's parent line has interrupted, as the report says.
	size_t parent_interrupts(const combiner &combiner);
	// The driver's proc file, read as cat does.
	std::string proc(const std::string &file);
	int set_proc(const std::string &file, const std::string &text);

	std::vector<event> events();
	void clear_events();
	bool wait_events(size_t count);
	// Waits until the count is reached, then a moment longer for one too many.
	void expect_events(size_t count);
	// Firing the leaf once makes one callback, its own.
	void expect_delivery(const leaf &leaf);

	std::vector<std::string> log();
	size_t count_logged(const std::string &text);
	bool logged(const std::string &text) { return count_logged(text) != 0; }
	void clear_log();
	// A combiner's thread logs a line when it first runs, which on a busy machine
	// can be long after the load. Waits for that line: not after clear_log().
	void await_thread(const combiner &combiner);
	std::vector<std::string> trace();
	void clear_trace();
	// Of the trace, the accesses that change something, and the client's marks.
	std::vector<std::string> changes();

	// Prints log and trace so far, with interrupt numbers taken out, for the
	// comparison between the two homes. Only where their order is fixed: all that
	// one thread did, or one interrupt; not a delivery, whose scan goes on beside
	// the leaf's thread and beside the scenario.
	void record();
	void record(const char *kind, const std::vector<std::string> &lines);

	bool loaded() const { return loaded_; }
	// The firmware that this suite's machine was booted with.
	virtual testbed::firmware firmware() const { return testbed::firmware::device_tree; }

private:
	std::map<u32, cfg::table> tables_;
	std::vector<std::string> devices_;
	bool loaded_ = false;
};

} // namespace rig

#endif
