// SPDX-License-Identifier: GPL-2.0
//
// The main job, shown: a configured board comes up, its sources fire one by
// one, a kernel client is called back, and after unloading nothing is left.
//
// Usage: intr-demo DIR, where DIR holds what intr-cfgc made of the board's XML:
// board.txt (the picture), board.tbl (the table), board.sources (the sources).
// Exit code: 0 when every source reached the client and nothing was left.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "world/world.h"

namespace {

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

std::string word_after(const std::string &line, const std::string &key)
{
	const size_t at = (" " + line).find(" " + key + "=");
	const size_t from = at == std::string::npos ? line.size() : at + key.size() + 1;

	return line.substr(from, line.find(' ', from) - from);
}

std::string control(const std::string &file, const std::string &line)
{
	const world::result result = world::control(file, line);

	if (result.code != 0)
		problem(file + ": " + line + ": " + std::to_string(result.code) + " " +
			result.reply);
	return result.reply;
}

// Every leaf of the table gets a callback. Returns how many leaves there are.
size_t register_all()
{
	size_t leaves = 0;

	for (const std::string &line : world::lines_of(world::read("xml"))) {
		if (line.find(" hwirq_cfg") == std::string::npos)
			continue;
		const std::string reply =
			control("client", "regist " + word_after(line, "index_id") + " " +
						  word_after(line, "type"));
		if (reply == "ret=0")
			leaves++;
		else
			problem("a leaf cannot be registered: " + line + ": " + reply);
	}
	return leaves;
}

bool wait_for_event()
{
	for (int waited = 0; waited < 2000; waited += 2) {
		if (!world::read("client_events").empty())
			return true;
		world::sleep_ms(2);
	}
	return false;
}

// A latched status remembers a short pulse; any other follows its source, which
// stays up until somebody has seen to the device.
void fire(const std::string &name, bool latched)
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
	const std::string event = world::lines_of(world::read("client_events")).front();
	const size_t context = event.find("context=") + 8;
	printf("  %-18s %8s/%-4s %s", name.c_str(), word_after(event, "index").c_str(),
	       word_after(event, "type").c_str(),
	       event.substr(context, event.find(" count=") - context).c_str());
	const size_t times = world::lines_of(world::read("client_events")).size();
	if (times > 1)
		printf(", %zu times until the source was quiet", times);
	printf("\n");
	fflush(stdout);
}

void fire_all(const std::string &sources)
{
	printf("  %-18s %8s/%-4s %s\n", "source fired", "index_id", "type",
	       "where the client's callback ran");
	for (const std::string &line : world::lines_of(sources)) {
		const size_t name = line.find(' ') + 1;

		fire(line.substr(name, line.find(' ', name) - name), line.ends_with("latched"));
	}
}

void show_interrupts()
{
	for (const std::string &line : world::lines_of(world::interrupts())) {
		if (line.find("CPU0") != std::string::npos ||
		    line.find(" intr") != std::string::npos)
			printf("%s\n", line.c_str());
	}
}

void set_up_board(const std::string &directory, const std::string &sources)
{
	const std::string table = file_text(directory + "/board.tbl");

	control("cpld", "reset");
	for (const std::string &line : world::lines_of(sources))
		control("cpld", line);
	const int ret = world::write_blob("xml_table", cfg::bytes(table.begin(), table.end()));
	if (ret != 0)
		problem("the configuration table is refused: " + std::to_string(ret));
}

void unload()
{
	const int ret = world::unload();

	if (ret != 0)
		problem("intr cannot be unloaded: " + std::to_string(ret));
	control("cpld", "reset");
	control("client", "clear");
	world::control("xml", "drop 0xffffffff");
	for (const std::string &left : world::finish())
		problem(left);
}

} // namespace

int main(int argc, char **argv)
{
	if (argc != 2) {
		fprintf(stderr, "usage: intr-demo DIR\n");
		return 2;
	}
	const std::string directory = argv[1];
	const std::string sources = file_text(directory + "/board.sources");

	title("The board: combiners, and the leaves behind each parent line");
	fputs(file_text(directory + "/board.txt").c_str(), stdout);
	world::start();
	set_up_board(directory, sources);

	title("Loading intr");
	const int ret = world::load();
	if (ret != 0) {
		problem("intr does not load: " + std::to_string(ret));
		return 1;
	}
	printf("  %s\n", world::home().c_str());
	printf("  %zu leaves registered by a kernel client\n", register_all());

	title("Interrupts, fired by name");
	fire_all(sources);

	title("/proc/interrupts, the lines of the leaves");
	show_interrupts();

	title("Unloading, while the client still holds every leaf");
	unload();
	printf("  %s\n", problems == 0 ? "nothing left: no interrupt, no thread, no complaint"
				       : "see the problems above");
	return problems == 0 ? 0 : 1;
}
