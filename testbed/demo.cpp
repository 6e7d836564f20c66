// SPDX-License-Identifier: GPL-2.0
//
// The main job, shown: a configured board comes up, its sources fire one by
// one, a kernel client is called back and a process gets its netlink messages, a
// card is plugged and pulled, and after unloading nothing is left.
//
// Usage: intr-demo DIR, where DIR holds what intr-cfgc made of the board's XML:
// board.txt (the picture), board.tbl (the table), board.sources (the sources), and
// card.txt, card.tbl and card.sources of a card.
// Exit code: 0 when every source reached client and process and nothing was left.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "uapi/intr.h"
#include "testbed.h"

namespace {

constexpr u32 card_instance = 0x03000000;

int problems;

void problem(const std::string &text)
{
	printf("PROBLEM: %s\n", text.c_str());
	problems++;
}

void title(const char *text)
{
	printf("\n== %s ==\n\n", text);
	fflush(stdout);
}

// What intr-cfgc made of one XML, read before anything is started.
struct compiled {
	std::string picture, table, sources;
};

std::string file_text(const std::string &path)
{
	std::ifstream file(path, std::ios::binary);

	if (!file) {
		fprintf(stderr,
			"intr-demo: cannot read %s; name the directory that holds what "
			"intr-cfgc made of the board's XML\n",
			path.c_str());
		exit(2);
	}
	return {std::istreambuf_iterator<char>(file), {}};
}

compiled read_compiled(const std::string &directory, const std::string &name)
{
	const std::string path = directory + "/" + name;

	return {file_text(path + ".txt"), file_text(path + ".tbl"), file_text(path + ".sources")};
}

// An instance as the xml module shows and takes it.
std::string instance_text(u32 instance)
{
	char text[16];

	snprintf(text, sizeof(text), "0x%x", instance);
	return text;
}

std::string word_after(const std::string &line, const std::string &key)
{
	const size_t at = (" " + line).find(" " + key + "=");
	const size_t from = at == std::string::npos ? line.size() : at + key.size() + 1;

	return line.substr(from, line.find(' ', from) - from);
}

std::string control(const std::string &file, const std::string &line)
{
	const testbed::result result = testbed::control(file, line);

	if (result.code != 0)
		problem(file + ": " + line + ": " + std::to_string(result.code) + " " +
			result.reply);
	return result.reply;
}

struct leaf {
	std::string index, type; // as the table shows them
	bool notified; // a process can subscribe to it
};

u32 number(const std::string &text)
{
	return static_cast<u32>(strtoul(text.c_str(), nullptr, 0));
}

// A process is notified of an occurrence unless it is handled in hard-interrupt
// context: a sync leaf on a combiner without async.
std::vector<leaf> leaves_of(u32 instance)
{
	const std::string start = instance_text(instance) + " ";
	std::vector<leaf> leaves;
	bool async = false;

	for (const std::string &line : testbed::lines_of(testbed::read("xml"))) {
		if (!line.starts_with(start))
			continue;
		if (line.find(" global_cfg ") != std::string::npos)
			async = word_after(line, "async") == "0x1";
		if (line.find(" hwirq_cfg") != std::string::npos)
			leaves.push_back({word_after(line, "index_id"), word_after(line, "type"),
					  async || word_after(line, "sync") != "0x1"});
	}
	return leaves;
}

void register_client(const std::vector<leaf> &leaves)
{
	for (const leaf &leaf : leaves) {
		const std::string reply =
			control("client", "regist " + leaf.index + " " + leaf.type);
		if (reply != "ret=0")
			problem("leaf " + leaf.index + "/" + leaf.type +
				" cannot be registered: " + reply);
	}
}

// What a process does to receive leaves: a netlink socket, and its port
// subscribed to each leaf.
class process {
public:
	bool open()
	{
		drv_intr_ioctl_para para{};

		if (testbed::ioctl(DRV_INTR_IOC_GET_NETLINK_ID, &para) != 0)
			return false;
		protocol = para.result;
		socket_ = testbed::netlink_open(protocol);
		return socket_ > 0;
	}
	void close() { testbed::netlink_close(socket_); }

	size_t subscribe(const std::vector<leaf> &leaves)
	{
		size_t done = 0;

		for (const leaf &leaf : leaves) {
			if (leaf.notified)
				done += command(DRV_INTR_IOC_SET_PID, number(leaf.index),
						number(leaf.type), testbed::netlink_port(socket_));
		}
		return done;
	}

	// Answers every message that is there, the first one within timeout_ms.
	// Returns how many named this leaf.
	size_t serve(u32 index_id, u32 type, unsigned timeout_ms)
	{
		size_t own = 0;
		std::string bytes;

		for (; !(bytes = testbed::netlink_receive(socket_, timeout_ms)).empty();
		     timeout_ms = 0) {
			drv_intr_nl_msg message{};
			if (bytes.size() != sizeof(message)) {
				problem("a message of " + std::to_string(bytes.size()) + " bytes");
				continue;
			}
			memcpy(&message, bytes.data(), sizeof(message));
			own += message.leaf.index_id == index_id && message.leaf.type == type;
			(void)command(DRV_INTR_IOC_SET_INT_EN, message.leaf.index_id,
				      message.leaf.type, 1);
		}
		return own;
	}

	u32 protocol = 0;

private:
	// third: the port, or whether to enable; they share their place.
	static bool command(u32 cmd, u32 index_id, u32 type, u32 third)
	{
		drv_intr_ioctl_para para{};

		para.index_id = index_id;
		para.type = type;
		para.pid = third;
		if (testbed::ioctl(cmd, &para) == 0)
			return true;
		problem("the control device refuses leaf " + std::to_string(index_id) + "/" +
			std::to_string(type));
		return false;
	}

	int socket_ = -1;
};

bool wait_for_event()
{
	for (int waited = 0; waited < 2000; waited += 2) {
		if (!testbed::read("client_events").empty())
			return true;
		testbed::sleep_ms(2);
	}
	return false;
}

// A latched status remembers a short pulse; any other follows its source, which
// stays up until somebody has seen to the device.
void fire(const std::string &name, bool latched, process &process)
{
	control("client", "clear");
	control("cpld", (latched ? "pulse " : "assert ") + name);
	const bool arrived = wait_for_event();
	if (!latched)
		control("cpld", "deassert " + name);
	if (!arrived) {
		problem(name + " did not reach the client");
		return;
	}
	const std::string event = testbed::lines_of(testbed::read("client_events")).front();
	const std::string index = word_after(event, "index"), type = word_after(event, "type");
	const size_t context = event.find("context=") + 8;
	const std::string where = event.substr(context, event.find(" count=") - context);
	const bool notified = where != "hardirq";
	const size_t messages = process.serve(number(index), number(type), notified ? 2000 : 0);
	if (notified != (messages > 0))
		problem(name + (notified ? " did not reach the process" : " reached the process"));
	const size_t times = testbed::lines_of(testbed::read("client_events")).size();
	printf("  %-18s %8s/%-4s %-24s %s", name.c_str(), index.c_str(), type.c_str(),
	       where.c_str(), notified ? "24 bytes, leaf enabled again" : "-");
	if (times > 1)
		printf(", %zu times until the source was quiet", times);
	printf("\n");
	fflush(stdout);
}

void fire_all(const std::string &sources, process &process)
{
	printf("  %-18s %8s/%-4s %-24s %s\n", "source fired", "index_id", "type",
	       "kernel client called in", "process gets by netlink");
	for (const std::string &line : testbed::lines_of(sources)) {
		const size_t name = line.find(' ') + 1;

		fire(line.substr(name, line.find(' ', name) - name), line.ends_with("latched"),
		     process);
	}
}

void show_interrupts()
{
	for (const std::string &line : testbed::lines_of(testbed::interrupts())) {
		if (line.find("CPU0") != std::string::npos ||
		    line.find(" intr") != std::string::npos)
			printf("%s\n", line.c_str());
	}
}

// A report of the driver; as many of its first lines as asked for.
void show_report(u32 cmd, u32 virq, size_t lines)
{
	std::vector<char> text(DRV_INTR_REPORT_MAX);
	drv_intr_ioctl_para para{};

	para.buf = reinterpret_cast<uintptr_t>(text.data());
	para.buf_len = DRV_INTR_REPORT_MAX;
	para.virq = virq;
	if (testbed::ioctl(cmd, &para) != 0) {
		problem("a report is refused");
		return;
	}
	const std::vector<std::string> all = testbed::lines_of(text.data());
	for (size_t i = 0; i < all.size() && i < lines; i++)
		printf("  | %s\n", all[i].c_str());
	if (all.size() > lines)
		printf("  | ... %zu lines more\n", all.size() - lines);
}

void show_reports(const leaf &leaf)
{
	const std::string virq = control("client", "find " + leaf.index + " " + leaf.type);

	printf("  runtime (/proc/diag/intr/runtime, or intrctl report runtime):\n");
	show_report(DRV_INTR_IOC_DBG_RUNTIME, 0, 16);
	printf("\n  one leaf, %s/%u (intrctl report virq %s):\n", leaf.index.c_str(),
	       number(leaf.type), virq.substr(4).c_str());
	show_report(DRV_INTR_IOC_DBG_VIRQ, number(virq.substr(4)), 8);
	printf("\n  configuration (/proc/diag/intr/cfg, or intrctl report cfg):\n");
	show_report(DRV_INTR_IOC_DBG_CFG, 0, 14);
}

void set_up(const compiled &compiled)
{
	const std::string &table = compiled.table;

	for (const std::string &line : testbed::lines_of(compiled.sources))
		control("cpld", line);
	const int ret = testbed::write_blob("xml_table", cfg::bytes(table.begin(), table.end()));
	if (ret != 0)
		problem("the configuration table is refused: " + std::to_string(ret));
}

void card_command(u32 cmd)
{
	drv_intr_ioctl_para para{};

	para.inst_id = card_instance;
	if (testbed::ioctl(cmd, &para) != 0)
		problem("the card's combiners cannot be brought up or taken away");
}

void show_card(const compiled &card, process &process)
{
	set_up(card);
	fputs(card.picture.c_str(), stdout);
	card_command(DRV_INTR_IOC_INIT_CARD);
	const std::vector<leaf> leaves = leaves_of(card_instance);
	register_client(leaves);
	(void)process.subscribe(leaves);
	printf("\n");
	fire_all(card.sources, process);
	card_command(DRV_INTR_IOC_DEINIT_CARD);
	const std::string gone =
		control("client", "find " + leaves.front().index + " " + leaves.front().type);
	if (gone != "ret=0")
		problem("the card's leaves outlive it: " + gone);
	printf("  card pulled, its %zu leaves are gone\n", leaves.size());
}

void unload()
{
	const int ret = testbed::unload();

	if (ret != 0)
		problem("intr cannot be unloaded: " + std::to_string(ret));
	control("cpld", "reset");
	control("client", "clear");
	for (const u32 instance : {XML_TABLE_BOARD, card_instance})
		testbed::control("xml", "drop " + instance_text(instance));
	for (const std::string &left : testbed::finish())
		problem(left);
}

// A kernel client and a process take every leaf of the board.
std::vector<leaf> take_leaves(process &process)
{
	const std::vector<leaf> leaves = leaves_of(XML_TABLE_BOARD);

	register_client(leaves);
	printf("  %zu leaves registered by a kernel client\n", leaves.size());
	if (process.open())
		printf("  %zu of them subscribed by a process, netlink protocol %u; the others are "
		       "handled where no process can be notified\n",
		       process.subscribe(leaves), process.protocol);
	else
		problem("no netlink socket");
	return leaves;
}

void show_board(const compiled &board, process &process)
{
	const std::vector<leaf> leaves = take_leaves(process);

	title("Interrupts, fired by name");
	fire_all(board.sources, process);

	title("/proc/interrupts, the lines of the leaves");
	show_interrupts();

	title("The driver's own reports");
	show_reports(leaves.front());
}

bool load_driver()
{
	title("Loading intr");
	const int ret = testbed::load();
	if (ret != 0)
		problem("intr does not load: " + std::to_string(ret));
	else
		printf("  %s\n", testbed::home().c_str());
	return ret == 0;
}

// The exit code.
int demonstrate(const compiled &board, const compiled &card)
{
	process process;

	control("cpld", "reset");
	set_up(board);
	if (!load_driver())
		return 1;
	show_board(board, process);

	title("A card is plugged, fires, and is pulled");
	show_card(card, process);

	title("Unloading, while the client still holds every leaf");
	process.close();
	unload();
	printf("  %s\n", problems == 0 ? "nothing left: no interrupt, no thread, no complaint"
				       : "see the problems above");
	return problems == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
	if (argc != 2) {
		fprintf(stderr, "usage: intr-demo DIR\n");
		return 2;
	}
	const compiled board = read_compiled(argv[1], "board"),
		       card = read_compiled(argv[1], "card");

	title("The board: combiners, and the leaves behind each parent line");
	fputs(board.picture.c_str(), stdout);
	if (!testbed::start()) {
		fprintf(stderr,
			"intr-demo: the board is described by a device tree; boot with it\n");
		return 2;
	}
	return demonstrate(board, card);
}
