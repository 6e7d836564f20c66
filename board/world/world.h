// SPDX-License-Identifier: GPL-2.0
//
// What a scenario or the demo can see and do, the same in both homes: control files of the
// sibling modules, the board and the test client; loading and unloading intr;
// what the kernel shows of interrupts and threads. world_kernel.cpp works on
// the real files of the guest, world_host.cpp on the model in this process.
#ifndef BOARD_WORLD_WORLD_H
#define BOARD_WORLD_WORLD_H

#include <sstream>
#include <string>
#include <vector>

#include "cfg_table.h"

namespace world {

// Which home this is, for people.
std::string home();

struct result {
	int code; // 0 or a negative errno
	std::string reply;
};

// Around every scenario. finish names whatever is left or was complained about
// since start, one line each; empty when all is well.
void start();
std::vector<std::string> finish();

// The driver module. 0 or a negative errno.
int load();
int unload();

// The optional module that says what stands in the backplane slot.
int load_backplane();
int unload_backplane();

// The CPUs that an interrupt may run on, a bit mask, as a user sets them.
int set_affinity(long virq, unsigned long cpus);

// One command line to a control file, and what it replied.
result control(const std::string &file, const std::string &line);
// One binary write to a control file.
int write_blob(const std::string &file, const cfg::bytes &data);
std::string read(const std::string &file);

// As /proc/interrupts shows them.
std::string interrupts();
bool thread_exists(const std::string &name);

void sleep_ms(unsigned milliseconds);

// The lines of a text, without their ends.
inline std::vector<std::string> lines_of(const std::string &text)
{
	std::vector<std::string> lines;
	std::istringstream stream(text);

	for (std::string line; std::getline(stream, line);)
		lines.push_back(line);
	return lines;
}

} // namespace world

#endif
