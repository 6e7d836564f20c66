// SPDX-License-Identifier: GPL-2.0
//
// The ledger: configures, loads and measures the driver and its peers, case after
// case, in the guest whose clock counts instructions. Each figure is one line,
//
//	B NAME KEY=VALUE...
//
// and bench/report makes the tables of them. With the argument "gate" it measures
// the cases that ./test compares with the recorded ones, and fewer interrupts each.
#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <linux/netlink.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "bench/bench.h"
#include "table/cfg_table.h"
#include "table/config_keys.h"
#include "table/numbering.h"
#include "uapi/intr.h"

namespace {

constexpr u32 GATE_INTERRUPTS = 500;
constexpr u32 INTERRUPTS = 2000;
constexpr u32 BUSY_INTERRUPTS = 100; // of many leaves at once
constexpr u32 WARM_UP = 10;
constexpr u32 WATCHED = 20; // while allocations are counted
constexpr u32 LOOK_UPS = 200;
constexpr u32 ANY_RATE = 0xffffffff;
constexpr u32 CARD = 5;
constexpr char BOARD_MODULES[] = "/modules/";

bool gate_only;
int bench_device = -1;

[[noreturn]] void fail(const std::string &what)
{
	printf("intr-bench: %s: %s\n", what.c_str(), strerror(errno));
	exit(1);
}

std::string format(double value)
{
	char text[32];

	snprintf(text, sizeof(text), value == static_cast<long long>(value) ? "%.0f" : "%.2f",
		 value);
	return text;
}

std::string field(const char *key, double value)
{
	return std::string(" ") + key + "=" + format(value);
}

// Whole instructions: what is behind the point is the clock's grain.
std::string instructions(const char *key, double ticks)
{
	return field(key, static_cast<long long>(ticks * BENCH_TICK_INSTRUCTIONS + 0.5));
}

void record(const std::string &name, const std::string &fields)
{
	printf("B %s%s\n", name.c_str(), fields.c_str());
	fflush(stdout);
}

void command(bench_command number, bench_para &para, const char *what)
{
	if (ioctl(bench_device, number, &para) != 0)
		fail(what);
}

void load_module(const std::string &name)
{
	const int file = open((BOARD_MODULES + name + ".ko").c_str(), O_RDONLY | O_CLOEXEC);

	if (file < 0 || syscall(SYS_finit_module, file, "", 0) != 0)
		fail("loading " + name);
	close(file);
}

void unload_module(const std::string &name)
{
	if (syscall(SYS_delete_module, name.c_str(), O_NONBLOCK) != 0)
		fail("unloading " + name);
}

void write_file(const std::string &path, const void *data, size_t size)
{
	const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);

	if (file < 0 || write(file, data, size) != static_cast<ssize_t>(size))
		fail("writing " + path);
	close(file);
}

unsigned long number_in(const std::string &path, const std::string &key = "")
{
	std::ifstream file(path);
	std::string word;
	unsigned long value = 0;

	while (!key.empty() && file >> word && word != key)
		;
	file >> value;
	return value;
}

// What the kernel has for itself, whoever asked for it.
double kernel_bytes()
{
	return 1024.0 * static_cast<double>(number_in("/proc/meminfo", "Slab:") +
					    number_in("/proc/meminfo", "VmallocUsed:"));
}

struct board {
	u32 combiners = 1;
	u32 leaves = 64; // each
	u32 levels = 2;
	u32 async = 0;
	u32 sync = 1;
	u32 direct = 0;
	u32 first_line = 0; // of a card: that of its first pin
	u32 carries_card = 0; // 1: its last leaf is the parent of the card's first combiner
};

cfg::keys leaf_keys(const board &board, u32 line, u32 leaf)
{
	cfg::keys keys{{"index_id", leaf},
		       {"type", BENCH_TYPE + line},
		       {"hwirq", leaf},
		       {"sync", board.sync},
		       {"level_num", board.direct ? 0 : board.levels}};

	for (u32 level = 0; level < board.levels && !board.direct; level++) {
		const bench_field field = bench_level(line, leaf, board.levels, level);
		const std::string key = "l" + std::to_string(level) + "_";

		keys[key + "en"] = field.en;
		keys[key + "status"] = field.status;
		keys[key + "shift"] = field.shift;
		keys[key + "wc"] = 1;
	}
	// Left out where the table would grow past what is read, and nothing interrupts much.
	if (board.combiners * board.leaves <= 2048)
		keys["allow_max"] = ANY_RATE;
	return keys;
}

// A card has one combiner behind a leaf of the board and the others behind pins. A combiner's
// node has room for 128 leaves; the others are those of its slot.
cfg::table make_table(const board &board)
{
	const bool card = board.first_line != 0;
	cfg::table table;
	char slot[32];

	table.instance = card ? card_instance(CARD) : XML_TABLE_BOARD;
	table.nodes["global_cfg"]["common"] =
		card ? cfg::keys{{"combiner_bitmap", (1u << board.combiners) - 1}}
		     : cfg::keys{{"cfg_type_bitmap", 2}};
	for (u32 id = 0; id < board.combiners; id++) {
		const u32 line = board.first_line + id;
		cfg::entries &own = table.nodes["irq_combiner@" + std::to_string(id)];

		own["global_cfg"] = {{"irq_type", 4},
				     {"allow_max", ANY_RATE},
				     {"async", board.async},
				     {"direct", board.direct}};
		if (card) {
			own["global_cfg"]["int_type"] = id == 0 ? DRV_INTR_COMBINER : DRV_INTR_GPIO;
			own["global_cfg"]["gpio"] = BENCH_GPIO_BASE + line - BENCH_FIRST_PIN;
		}
		snprintf(slot, sizeof(slot), "slot_isr_0x%x", id);
		for (u32 leaf = 0; leaf < board.leaves; leaf++) {
			cfg::keys keys = leaf_keys(board, line, leaf);

			if (board.carries_card && leaf == board.leaves - 1) {
				keys["index_id"] = CARD;
				keys["type"] = CARD_LEAF_TYPE;
			}
			if (leaf >= 128)
				keys["combiner_id"] = line;
			(leaf < 128 ? own
				    : table.nodes[slot])["hwirq_cfg" + std::to_string(leaf % 128)] =
				keys;
		}
	}
	return table;
}

void install(const board &board)
{
	cfg::bytes bytes;
	std::string why;

	if (!cfg::write_table(make_table(board), bytes, why))
		fail(why);
	write_file("/proc/diag/xml_table", bytes.data(), bytes.size());
}

// What this process has computed. The driver waits here and there while it loads, which
// is no cost of anybody's.
u64 process_ns()
{
	timespec time{};

	clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
	return static_cast<u64>(time.tv_sec) * 1000000000 + static_cast<u64>(time.tv_nsec);
}

struct load_cost {
	u64 ns, ticks;
	double allocations, bytes, kernel_bytes;
};

// The driver with a configuration, from here to the end of the scope.
class driver {
public:
	explicit driver(const board &board, bool watch_memory = false) : board_(board)
	{
		bench_para para{};

		install(board);
		para.count = board.combiners;
		command(BENCH_DEVICES, para, "making the devices");
		const double before = kernel_bytes();
		if (watch_memory)
			command(BENCH_ALLOC_START, para, "watching memory");
		const u64 start = bench_clock(), start_ns = process_ns();
		load_module("intr");
		cost.ns = process_ns() - start_ns;
		cost.ticks = bench_clock() - start;
		if (watch_memory)
			command(BENCH_ALLOC_STOP, para, "watching memory");
		cost.allocations = static_cast<double>(para.allocations);
		cost.bytes = static_cast<double>(para.bytes);
		cost.kernel_bytes = kernel_bytes() - before;
		load_module("bench_link");
	}

	~driver()
	{
		unload_module("bench_link");
		const u64 start = bench_clock();
		unload_module("intr");
		if (unload_ticks)
			*unload_ticks = bench_clock() - start;
	}

	driver(const driver &) = delete;
	driver &operator=(const driver &) = delete;

	// A callback for these leaves, `count` from `first` on; 0: for all.
	void regist(u32 line, u32 first = 0, u32 count = 0, bool on = true)
	{
		bench_para para{};

		para.line = line;
		para.leaves = first;
		para.count = count ? count : board_.leaves;
		command(on ? BENCH_REGISTER : BENCH_UNREGISTER, para, "registering the leaves");
	}

	load_cost cost{};
	u64 *unload_ticks = nullptr;

private:
	const board board_;
};

// One peer, from here to the end of the scope.
class peer {
public:
	peer(bench_method method, u32 leaves, bench_wake wake = BENCH_WAKE_RUNNER, int fd = -1,
	     u32 port = 0)
	{
		bench_para para{};

		para.method = method;
		para.leaves = leaves;
		para.levels = 2;
		para.wake = wake;
		para.fd = fd;
		para.count = port;
		command(BENCH_PEER, para, "setting a peer up");
	}
	~peer()
	{
		bench_para para{};

		command(BENCH_PEER_DOWN, para, "taking a peer down");
	}
	peer(const peer &) = delete;
	peer &operator=(const peer &) = delete;
};

const char *active_name(u32 active)
{
	static const char *const names[] = {"first", "middle", "last", "all"};

	return names[active];
}

// Parent interrupts: averages of one, and whether any allocates.
void run(const std::string &name, u32 line, u32 leaves, u32 levels, u32 active = BENCH_LAST)
{
	bench_para para{}, watch{};

	para.line = line;
	para.leaves = leaves;
	para.levels = levels;
	para.active = active;
	para.count = gate_only ? GATE_INTERRUPTS : INTERRUPTS;
	if (active == BENCH_ALL && leaves > 8)
		para.count = BUSY_INTERRUPTS;
	command(BENCH_RUN, para, ("running " + name).c_str());
	const double count = para.count, raised = static_cast<double>(para.ticks[2]);
	std::string fields =
		field("reads", static_cast<double>(para.reads) / count) +
		field("writes", static_cast<double>(para.writes) / count) +
		instructions("instructions", static_cast<double>(para.ticks[0]) /
						     static_cast<double>(para.ticks[1]));
	if (raised != count)
		fields += field("interrupts", raised / count);
	para.count = WATCHED;
	watch.active = 1;
	command(BENCH_ALLOC_START, watch, "watching memory");
	command(BENCH_RUN, para, ("running " + name).c_str());
	command(BENCH_ALLOC_STOP, watch, "watching memory");
	record(name,
	       fields + field("allocations", static_cast<double>(watch.allocations / WATCHED)));
}

std::string case_name(const char *who, u32 leaves, u32 active = BENCH_LAST)
{
	return std::string("parent/") + who + "/" + std::to_string(leaves) + "/" +
	       active_name(active);
}

using numbers = std::vector<u32>;

const numbers &sizes()
{
	static const numbers all{1, 2, 4, 8, 16, 32, 64, 128, 256}, few{8, 64, 256};

	return gate_only ? few : all;
}

void measure_peer(const char *who, bench_method method, const numbers &leaves)
{
	for (const u32 count : leaves) {
		const peer up(method, count);

		run(case_name(who, count), BENCH_PEER_LINE, count, 2);
	}
}

void measure_driver(const char *who, board board, const numbers &leaves,
		    const numbers &active = {BENCH_LAST})
{
	for (const u32 count : leaves) {
		board.leaves = count;
		driver up(board);
		up.regist(0);
		for (const u32 which : active)
			run(case_name(who, count, which), 0, count, board.direct ? 0 : 2, which);
	}
}

void measure_parents()
{
	static const numbers three{8, 64, 256};

	if (!gate_only) {
		measure_peer("runner", BENCH_RUNNER, {1});
		measure_peer("flat", BENCH_FLAT, sizes());
		measure_peer("walk", BENCH_WALK, sizes());
		measure_peer("regmap", BENCH_REGMAP, sizes());
		measure_peer("regmap-main", BENCH_REGMAP_MAIN, {8, 64});
	}
	measure_driver("intr", {}, sizes());
	if (!gate_only)
		measure_driver("intr", {}, three, {BENCH_FIRST, BENCH_MIDDLE, BENCH_ALL});
	measure_driver("intr-async", {.async = 1}, gate_only ? numbers{64} : three);
	measure_driver("intr-threaded", {.sync = 0}, gate_only ? numbers{64} : three);
	measure_driver("intr-direct", {.direct = 1}, {1});
}

void measure_levels()
{
	for (u32 levels = 1; levels <= BENCH_LEVELS; levels++) {
		driver up({.levels = levels});

		up.regist(0);
		run("levels/" + std::to_string(levels), 0, 64, levels);
	}
}

void measure_combiners()
{
	for (const u32 count : {1u, 2u, 4u, 8u, 16u, 32u}) {
		driver up({.combiners = count});

		up.regist(count - 1);
		run("combiners/" + std::to_string(count), count - 1, 64, 2);
	}
}

// Look-ups, load, memory and unload of a system.

void measure_look_ups(const std::string &system, const board &board)
{
	driver up(board);
	bench_para para{};

	para.line = board.combiners - 1;
	para.leaves = board.leaves - 1;
	up.regist(para.line, para.leaves, 1);
	para.count = WARM_UP;
	command(BENCH_GATE, para, "looking up");
	para.count = LOOK_UPS;
	command(BENCH_GATE, para, "looking up");
	record("lookup/" + system,
	       instructions("find", static_cast<double>(para.ticks[0]) / LOOK_UPS) +
		       instructions("disable", static_cast<double>(para.ticks[1]) / LOOK_UPS) +
		       instructions("enable", static_cast<double>(para.ticks[2]) / LOOK_UPS));
}

double milliseconds(u64 ticks)
{
	return static_cast<double>(ticks * BENCH_TICK_INSTRUCTIONS / 10000) / 100;
}

void measure_load(const std::string &system, const board &board)
{
	load_cost load;
	u64 unload;

	{
		driver up(board);
		load = up.cost;
		up.unload_ticks = &unload;
	}
	// One nanosecond is one instruction.
	record("load/" + system, field("instructions", static_cast<double>(load.ns)) +
					 field("ms", milliseconds(load.ticks)));
	record("unload/" + system, field("ms", milliseconds(unload)));
}

// Of several loads the smallest: what the rest of the kernel allocates meanwhile only adds.
load_cost least_load(const board &board)
{
	load_cost least = driver(board, true).cost;

	for (u32 again = 0; again < 4; again++) {
		const load_cost cost = driver(board, true).cost;

		if (cost.bytes < least.bytes)
			least = cost;
	}
	return least;
}

// By the leaf: what a system has beyond one with fewer leaves.
void measure_memory(const std::string &system, const board &many, u32 fewer)
{
	const double leaves = many.combiners * (many.leaves - fewer);
	board few = many;
	load_cost base;

	few.leaves = fewer;
	base = least_load(few);
	const load_cost full = least_load(many);
	const double bytes = full.bytes - base.bytes;
	const double kernel = full.kernel_bytes - base.kernel_bytes;
	record("memory/" + system,
	       field("bytes", static_cast<long long>(bytes / leaves + 0.5)) +
		       field("allocations", (full.allocations - base.allocations) / leaves) +
		       field("kernel_bytes", static_cast<long long>(kernel / leaves + 0.5)));
}

void card_command(u32 number)
{
	const int device = open(DRV_INTR_DEVICE, O_RDWR | O_CLOEXEC);
	drv_intr_ioctl_para para{};

	para.inst_id = card_instance(CARD);
	if (device < 0 || ioctl(device, number, &para) != 0)
		fail("the card");
	close(device);
}

void measure_release()
{
	driver up({.leaves = 8});

	up.regist(0);
	const u64 start = bench_clock();
	up.regist(0, 0, 1, false);
	record("release/1x8", field("ms", milliseconds(bench_clock() - start)));
}

void measure_card()
{
	const board card{.combiners = 4, .leaves = 64, .first_line = BENCH_FIRST_PIN};

	install(card);
	driver up({.leaves = 8, .carries_card = 1});
	card_command(DRV_INTR_IOC_INIT_CARD);
	for (u32 id = 0; id < card.combiners; id++)
		up.regist(BENCH_FIRST_PIN + id, 0, card.leaves);
	const u64 start = bench_clock();
	card_command(DRV_INTR_IOC_DEINIT_CARD);
	record("card/4x64", field("ms", milliseconds(bench_clock() - start)));
}

// To a process.

int netlink_socket(int protocol, u32 &port)
{
	const int handle = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, protocol);
	sockaddr_nl address{};
	socklen_t size = sizeof(address);

	address.nl_family = AF_NETLINK;
	if (handle < 0 || bind(handle, reinterpret_cast<sockaddr *>(&address), size) != 0 ||
	    getsockname(handle, reinterpret_cast<sockaddr *>(&address), &size) != 0)
		fail("opening a netlink socket");
	port = address.nl_pid;
	return handle;
}

void receive(int handle, size_t size)
{
	char buffer[64];

	if (read(handle, buffer, sizeof(buffer)) != static_cast<ssize_t>(size))
		fail("receiving");
}

// What the shorter nine tenths took, on average, as the runner counts.
double average(std::vector<u64> &ticks)
{
	u64 sum = 0;

	std::sort(ticks.begin(), ticks.end());
	ticks.resize(ticks.size() - ticks.size() / 10);
	for (const u64 one : ticks)
		sum += one;
	return static_cast<double>(sum) / static_cast<double>(ticks.size());
}

void deliver(const std::string &name, u32 line, u32 leaves, const std::function<void()> &await,
	     const std::function<void()> &answer)
{
	std::vector<u64> received, answered;
	bench_para para{}, watch{}, raised{};
	const auto deliver_some = [&](u32 count) {
		for (u32 round = 0; round < count; round++) {
			command(BENCH_ARM, para, ("raising for " + name).c_str());
			await();
			const u64 got = bench_clock();
			answer();
			const u64 end = bench_clock();
			command(BENCH_RAISED, raised, ("raising for " + name).c_str());
			received.push_back(got - raised.ticks[0]);
			answered.push_back(end - raised.ticks[0]);
		}
	};

	para.line = line;
	para.leaves = leaves;
	para.levels = 2;
	para.active = BENCH_LAST;
	watch.active = 1;
	command(BENCH_ALLOC_START, watch, "watching memory");
	deliver_some(WATCHED);
	command(BENCH_ALLOC_STOP, watch, "watching memory");
	received.clear();
	answered.clear();
	deliver_some(gate_only ? GATE_INTERRUPTS : INTERRUPTS);
	record("deliver/" + name,
	       instructions("received", average(received)) +
		       instructions("answered", average(answered)) +
		       field("allocations", static_cast<double>(watch.allocations / WATCHED)));
}

void deliver_by_peer(const std::string &name, bench_method method, u32 leaves, bench_wake wake)
{
	const int event = eventfd(0, EFD_CLOEXEC);
	bench_para para{};
	{
		// Its protocol is there only with the peer, which sends to the port that the
		// kernel gives to a process first.
		const peer up(method, leaves, wake, event, static_cast<u32>(getpid()));
		u32 own_port;
		const int messages = netlink_socket(BENCH_NETLINK, own_port);
		const bool reads_netlink = wake == BENCH_WAKE_NETLINK || wake == BENCH_WAKE_BARE;

		if (own_port != static_cast<u32>(getpid()))
			fail("the port of the netlink socket");
		deliver(
			name, BENCH_PEER_LINE, leaves,
			[&] {
				if (reads_netlink)
					receive(messages, sizeof(drv_intr_nl_msg));
				else if (wake == BENCH_WAKE_EVENTFD)
					receive(event, 8);
				else
					receive(bench_device, 4);
			},
			[&] { command(BENCH_ENABLE, para, "enabling a peer's leaf"); });
		close(messages);
	}
	close(event);
}

void deliver_by_driver(u32 leaves)
{
	driver up({.leaves = leaves, .sync = 0});
	const int device = open(DRV_INTR_DEVICE, O_RDWR | O_CLOEXEC);
	drv_intr_ioctl_para para{};
	u32 port;

	if (device < 0 || ioctl(device, DRV_INTR_IOC_GET_NETLINK_ID, &para) != 0)
		fail("the control device");
	const int messages = netlink_socket(static_cast<int>(para.result), port);
	// Every leaf is enabled; only the last one tells the process.
	if (leaves > 1)
		up.regist(0, 0, leaves - 1);
	para = {};
	para.index_id = leaves - 1;
	para.type = BENCH_TYPE;
	para.pid = port;
	if (ioctl(device, DRV_INTR_IOC_SET_PID, &para) != 0)
		fail("subscribing");
	para.enable = 1;
	deliver(
		"intr/" + std::to_string(leaves), 0, leaves,
		[&] { receive(messages, sizeof(drv_intr_nl_msg)); },
		[&] {
			if (ioctl(device, DRV_INTR_IOC_SET_INT_EN, &para) != 0)
				fail("answering");
		});
	close(messages);
	close(device);
}

void measure_deliveries()
{
	if (!gate_only) {
		deliver_by_peer("bare-netlink", BENCH_RUNNER, 1, BENCH_WAKE_BARE);
		deliver_by_peer("flat-netlink/64", BENCH_FLAT, 64, BENCH_WAKE_NETLINK);
		deliver_by_peer("flat-eventfd/64", BENCH_FLAT, 64, BENCH_WAKE_EVENTFD);
		deliver_by_peer("flat-read/64", BENCH_FLAT, 64, BENCH_WAKE_READ);
	}
	deliver_by_driver(8);
	deliver_by_driver(64);
}

// What one access costs through a CPLD module that is loaded now.
void measure_access(const std::string &module)
{
	static const std::string parameters = "/sys/module/bench_access/parameters/";

	load_module("bench_access");
	record("access/" + module,
	       field("read", static_cast<double>(number_in(parameters + "read"))) +
		       field("write", static_cast<double>(number_in(parameters + "write"))));
	unload_module("bench_access");
}

// Eight groups of four leaves, whose registers are those that bench_access touches.
void make_simulated_sources()
{
	char text[160];

	for (u32 group = 0; group < 16; group++)
		for (u32 bit = 0; bit < 4; bit++) {
			const int size =
				snprintf(text, sizeof(text),
					 "source g%u.%u 0xffffffff 0 1:%u:%u:%u:1:latched\n", group,
					 bit, 2 * group, 2 * group + 1, bit);
			write_file("/proc/diag/cpld", text, static_cast<size_t>(size));
		}
}

void load_bench(const char *monitor)
{
	load_module("bench");
	load_module(monitor);
	bench_device = open(BENCH_DEVICE, O_RDWR | O_CLOEXEC);
	if (bench_device < 0)
		fail(BENCH_DEVICE);
}

void unload_bench(const char *monitor)
{
	close(bench_device);
	unload_module(monitor);
	unload_module("bench");
}

// Without a monitor: what the driver itself costs, and what its peers do not have.
void measure_without_monitor()
{
	load_bench("bench_monitor");
	if (!gate_only)
		measure_access("array");
	measure_parents();
	measure_levels();
	if (!gate_only)
		measure_combiners();
	measure_look_ups("1x8", {.leaves = 8});
	measure_look_ups("32x256", {.combiners = 32, .leaves = 256});
	measure_deliveries();
	unload_bench("bench_monitor");
}

void measure_with_monitor()
{
	load_bench("intr_monitor");
	if (!gate_only)
		measure_driver("intr-monitor", {}, {8, 64, 256});
	measure_load("32x256", {.combiners = 32, .leaves = 256});
	measure_memory(gate_only ? "1x128" : "32x256",
		       {.combiners = gate_only ? 1u : 32u, .leaves = gate_only ? 128u : 256u}, 8);
	if (!gate_only) {
		measure_release();
		measure_card();
	}
	unload_bench("intr_monitor");
}

void measure_simulator()
{
	load_module("intr_cpld");
	make_simulated_sources();
	measure_access("simulator");
	unload_module("intr_cpld");
}

} // namespace

int main(int argc, char **argv)
{
	gate_only = argc > 1 && strcmp(argv[1], "gate") == 0;
	measure_without_monitor();
	measure_with_monitor();
	if (!gate_only)
		measure_simulator();
	record("end", "");
	return 0;
}
