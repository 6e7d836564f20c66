/* SPDX-License-Identifier: GPL-2.0 */
// Control files of the sibling modules, and what they print, for unit tests.
#ifndef TESTS_UNIT_CONTROL_H
#define TESTS_UNIT_CONTROL_H

#include <cstdlib>
#include <mutex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "port.h"

struct control_result {
	int code;
	std::string reply;
};

inline control_result write_control(const char *name, const std::string &line)
{
	char reply[PORT_REPLY_MAX] = "";
	const int code = port_ctl_write(name, line.data(), line.size(), reply, sizeof(reply));

	return {code, reply};
}

inline std::vector<std::string> read_control(const char *name)
{
	char *text = port_ctl_read(name);
	std::istringstream stream(text ? text : "no such control file");
	std::vector<std::string> lines;

	for (std::string line; std::getline(stream, line);)
		lines.push_back(line);
	free(text);
	return lines;
}

// Collects what is printed to the kernel log while it lives. One at a time.
class printed_lines {
public:
	printed_lines()
	{
		lines().clear();
		port_host_set_printk(collect);
	}
	~printed_lines() { port_host_set_printk(nullptr); }
	printed_lines(const printed_lines &) = delete;
	printed_lines &operator=(const printed_lines &) = delete;

	std::vector<std::string> take()
	{
		const std::lock_guard guard(lock());
		return std::exchange(lines(), {});
	}

private:
	static std::mutex &lock()
	{
		static std::mutex mutex;
		return mutex;
	}
	static std::vector<std::string> &lines()
	{
		static std::vector<std::string> all;
		return all;
	}
	static void collect(int level, const char *text)
	{
		const std::lock_guard guard(lock());
		lines().push_back(std::to_string(level) + " " + text);
	}
};

#endif
