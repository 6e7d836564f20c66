// SPDX-License-Identifier: GPL-2.0
//
// Bugs, the kernel log, and what must not be left behind by a test.
#include "internal.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace model {

static std::atomic<host_bug_handler> bug_handler{nullptr};
static std::mutex log_lock;
static std::string log_text;

static std::string format_text(const char *format, va_list arguments)
{
	char text[1024];

	vsnprintf(text, sizeof(text), format, arguments);
	return text;
}

std::string caller_name()
{
	char name[64];

	host_context(name, sizeof(name));
	return name;
}

void bug(const char *format, ...)
{
	va_list arguments;

	va_start(arguments, format);
	const std::string text = format_text(format, arguments) + " (" + caller_name() + ")";
	va_end(arguments);

	if (host_bug_handler handler = bug_handler.load()) {
		handler(text.c_str());
		return;
	}
	fprintf(stderr, "kernel model: %s\n", text.c_str());
	abort();
}

void kernel_log(const char *format, ...)
{
	va_list arguments;

	va_start(arguments, format);
	const std::string text = format_text(format, arguments);
	va_end(arguments);

	const std::lock_guard guard(log_lock);
	log_text += text;
	if (text.empty() || text.back() != '\n')
		log_text += '\n';
}

void kernel_log_reset()
{
	const std::lock_guard guard(log_lock);
	log_text.clear();
}

} // namespace model

using namespace model;

host_bug_handler host_set_bug_handler(host_bug_handler handler)
{
	return bug_handler.exchange(handler);
}

char *host_kernel_log(void)
{
	const std::lock_guard guard(log_lock);
	return strdup(log_text.c_str());
}

void plat_printk(const char *text)
{
	count_call(service::printk);
	kernel_log("%s", text);
}

int host_check_leftovers(void)
{
	std::string text;
	const u32 left = files_left(text) + misc_left(text) + proc_left(text) + netlink_left(text) +
			 drivers_left(text) + tasks_left(text) + descs_left(text) +
			 domains_left(text) + memory_left(text);

	if (left)
		bug("%u left behind:%s", left, text.c_str());
	return static_cast<int>(left);
}

void host_start(void)
{
	services_reset();
	requests_reset();
	kernel_log_reset();
	lines_start();
	cpus_start();
}

void host_stop(void)
{
	host_check_leftovers();
	cpus_stop();
	files_reset();
	misc_reset();
	proc_reset();
	netlink_reset();
	module_reset();
	drivers_reset();
	descs_reset();
	domains_reset();
	gpios_reset();
	memory_reset();
	services_reset();
}
