// SPDX-License-Identifier: GPL-2.0
//
// The guest: real modules, real files. Runs as root in the initramfs, with the
// modules in /modules and the sibling modules, the board and the client loaded.
#include "world/world.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace world {

namespace {

constexpr char CONTROL_DIR[] = "/proc/diag/";

// What the kernel writes when something is wrong. A log that holds one of these
// fails the scenario in which it appeared.
constexpr const char *complaints[] = {
	"WARNING",
	"INFO: task",
	"INFO: rcu",
	"INFO: trying",
	"possible irq",
	"BUG",
	"Oops",
	"Call trace",
	"Unbalanced",
	"Kernel panic",
	"Internal error",
	"Unable to handle",
	"possible recursive",
	"possible circular",
	"inconsistent lock",
	"suspicious RCU",
	"sleeping function",
	"still has locks held",
	"UBSAN",
	"ODEBUG",
	"unreferenced object",
	"leaking at least",
	"nobody cared",
	"soft lockup",
	"stall",
	"refcount_t",
	"corruption",
	"enabled interrupts",
	"did not update eff. affinity",
};

int kernel_log = -1;

// The lines that came since the last call. Each read gives one record.
std::vector<std::string> new_kernel_lines()
{
	std::vector<std::string> lines;
	char record[8192];

	for (;;) {
		const ssize_t size = ::read(kernel_log, record, sizeof(record) - 1);

		if (size < 0 && errno == EPIPE) {
			lines.push_back("WARNING: kernel log overran, lines are lost");
			continue;
		}
		if (size <= 0)
			return lines;
		record[size] = 0;
		const char *text = strchr(record, ';');
		lines.emplace_back(text ? text + 1 : record);
	}
}

std::string whole_file(const std::string &path)
{
	std::ifstream file(path);
	std::ostringstream text;

	text << file.rdbuf();
	return text.str();
}

// What belongs to the driver in /proc/interrupts: chips of leaves, and their actions.
std::vector<std::string> driver_interrupts()
{
	std::vector<std::string> lines;

	for (const std::string &line : lines_of(interrupts())) {
		if (line.find(" intr") != std::string::npos ||
		    line.find("drv_irq_") != std::string::npos)
			lines.push_back(line);
	}
	return lines;
}

int insert_module(const std::string &name)
{
	const int file = open(("/modules/" + name + ".ko").c_str(), O_RDONLY | O_CLOEXEC);

	if (file < 0)
		return -errno;
	const int code = syscall(SYS_finit_module, file, "", 0) < 0 ? -errno : 0;
	close(file);
	return code;
}

int remove_module(const std::string &name)
{
	return syscall(SYS_delete_module, name.c_str(), O_NONBLOCK) < 0 ? -errno : 0;
}

} // namespace

std::string home()
{
	std::string text = "Linux " + whole_file("/proc/sys/kernel/osrelease");

	text.back() = ':';
	for (const std::string &line : lines_of(whole_file("/proc/modules"))) {
		if (line.starts_with("intr"))
			text += " " + line.substr(0, line.find(' '));
	}
	return text;
}

void start()
{
	if (kernel_log < 0) {
		kernel_log = open("/dev/kmsg", O_RDONLY | O_NONBLOCK);
		lseek(kernel_log, 0, SEEK_END);
	}
}

std::vector<std::string> finish()
{
	std::vector<std::string> found;

	for (const std::string &line : new_kernel_lines()) {
		for (const char *complaint : complaints) {
			if (line.find(complaint) != std::string::npos) {
				found.push_back("kernel log: " + line);
				break;
			}
		}
	}
	for (const std::string &line : driver_interrupts())
		found.push_back("left in /proc/interrupts: " + line);
	for (const auto &task : std::filesystem::directory_iterator("/proc")) {
		const std::string name = whole_file(task.path() / "comm");

		if (name.starts_with("intr") && name.find("-handler") != std::string::npos)
			found.push_back("thread left: " + name);
		if (name.find("-drv_irq_") != std::string::npos)
			found.push_back("interrupt thread left: " + name);
	}
	return found;
}

// The client reaches the driver through intr_link.ko, which holds the driver
// while it is loaded; leaves stay registered when it goes.
int load()
{
	const int ret = insert_module("intr");

	return ret != 0 ? ret : insert_module("intr_link");
}

int unload()
{
	const int ret = remove_module("intr_link");

	return ret != 0 ? ret : remove_module("intr");
}

int load_backplane()
{
	return insert_module("intr_backplane");
}

int unload_backplane()
{
	return remove_module("intr_backplane");
}

int set_affinity(long virq, unsigned long cpus)
{
	const int fd = open(("/proc/irq/" + std::to_string(virq) + "/smp_affinity").c_str(),
			    O_WRONLY | O_CLOEXEC);
	char text[32];

	if (fd < 0)
		return -errno;
	const int size = snprintf(text, sizeof(text), "%lx", cpus);
	const int code = ::write(fd, text, static_cast<size_t>(size)) < 0 ? -errno : 0;
	close(fd);
	return code;
}

result control(const std::string &file, const std::string &line)
{
	const int fd = open((CONTROL_DIR + file).c_str(), O_RDWR | O_CLOEXEC);
	result result{};
	char reply[512];

	if (fd < 0)
		return {-errno, "cannot open " + file};
	if (::write(fd, line.data(), line.size()) < 0)
		result.code = -errno;
	const ssize_t size = ::read(fd, reply, sizeof(reply));
	if (size > 0)
		result.reply.assign(reply, static_cast<size_t>(size));
	close(fd);
	return result;
}

int write_blob(const std::string &file, const cfg::bytes &data)
{
	const int fd = open((CONTROL_DIR + file).c_str(), O_WRONLY | O_CLOEXEC);

	if (fd < 0)
		return -errno;
	const int code = ::write(fd, data.data(), data.size()) < 0 ? -errno : 0;
	close(fd);
	return code;
}

std::string read(const std::string &file)
{
	return whole_file(CONTROL_DIR + file);
}

std::string interrupts()
{
	return whole_file("/proc/interrupts");
}

bool thread_exists(const std::string &name)
{
	for (const auto &task : std::filesystem::directory_iterator("/proc")) {
		if (whole_file(task.path() / "comm") == name + "\n")
			return true;
	}
	return false;
}

void sleep_ms(unsigned milliseconds)
{
	const timespec time = {milliseconds / 1000, (milliseconds % 1000) * 1000000L};

	nanosleep(&time, nullptr);
}

} // namespace world
