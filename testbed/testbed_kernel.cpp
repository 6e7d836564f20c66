// SPDX-License-Identifier: GPL-2.0
//
// The guest: real modules, real files. Runs as root in the initramfs, with the
// modules in /modules and the sibling modules, the board and the client loaded.
#include "testbed.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <linux/netlink.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace testbed {

namespace {

constexpr char CONTROL_DIR[] = "/proc/diag/";
constexpr char DRIVER_PROC_DIR[] = "/proc/diag/intr/";
constexpr char DEVICE[] = "/dev/intr";
constexpr char DRIVER_MODULE_DIR[] = "/sys/module/intr";
constexpr char BUS_DRIVERS_DIR[] = "/sys/bus/platform/drivers/";
constexpr char DRIVER_NAME[] = "irq_combiner";

constexpr char COMPLAINTS[] = "/complaints"; // one a line, and comments

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

// What the kernel writes when something is wrong. A log that holds one of these
// fails the scenario in which it appeared.
std::vector<std::string> complaints()
{
	std::vector<std::string> texts = lines_of(whole_file(COMPLAINTS));

	std::erase_if(texts, [](const std::string &line) { return line.starts_with('#'); });
	return texts;
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

// What a driver that is not loaded must not have left.
std::vector<std::string> leftover_names()
{
	std::vector<std::string> names;

	if (std::filesystem::exists(DRIVER_MODULE_DIR))
		return names;
	for (const char *path : {DEVICE, DRIVER_PROC_DIR}) {
		if (std::filesystem::exists(path))
			names.push_back(path);
	}
	for (const auto &driver : std::filesystem::directory_iterator(BUS_DRIVERS_DIR)) {
		if (driver.path().filename().string().starts_with(DRIVER_NAME))
			names.push_back(driver.path());
	}
	return names;
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

// The result of a system call, or what it failed with.
template <typename T> T code_of(T result)
{
	return result < 0 ? -errno : result;
}

int write_whole(const std::string &path, const void *data, size_t size)
{
	const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);

	if (file < 0)
		return -errno;
	const int code = ::write(file, data, size) < 0 ? -errno : 0;
	close(file);
	return code;
}

int write_text(const std::string &path, const std::string &text)
{
	return write_whole(path, text.data(), text.size());
}

// The kernel chooses the port. 0 or a negative errno.
int set_up_netlink(int socket, u32 receive_buffer)
{
	const int size = static_cast<int>(receive_buffer);
	sockaddr_nl address{};

	address.nl_family = AF_NETLINK;
	if (size > 0 && setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size)) < 0)
		return -errno;
	return code_of(
		::bind(socket, reinterpret_cast<const sockaddr *>(&address), sizeof(address)));
}

bool wait_readable(int file, std::chrono::steady_clock::time_point end)
{
	const auto left = std::chrono::ceil<std::chrono::milliseconds>(
		end - std::chrono::steady_clock::now());
	pollfd readable{file, POLLIN, 0};

	return left.count() > 0 && poll(&readable, 1, static_cast<int>(left.count())) > 0;
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

bool start(firmware wanted)
{
	const bool acpi = std::filesystem::exists("/sys/firmware/acpi/tables");

	if (kernel_log < 0) {
		kernel_log = open("/dev/kmsg", O_RDONLY | O_NONBLOCK);
		lseek(kernel_log, 0, SEEK_END);
	}
	return acpi == (wanted == firmware::acpi);
}

std::vector<std::string> finish()
{
	static const std::vector<std::string> bad = complaints();
	std::vector<std::string> found;

	if (bad.empty())
		found.push_back(std::string("no list of complaints in ") + COMPLAINTS);
	for (const std::string &line : new_kernel_lines()) {
		if (std::any_of(bad.begin(), bad.end(), [&](const std::string &text) {
			    return line.find(text) != line.npos;
		    }))
			found.push_back("kernel log: " + line);
	}
	for (const std::string &line : driver_interrupts())
		found.push_back("left in /proc/interrupts: " + line);
	for (const std::string &name : leftover_names())
		found.push_back("left without the driver: " + name);
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

// A driver that stays, since somebody has its device or a socket open, stays linked.
int unload()
{
	int ret = remove_module("intr_link");

	if (ret != 0)
		return ret;
	ret = remove_module("intr");
	if (ret == 0)
		return 0;
	const int again = insert_module("intr_link");
	return again != 0 ? again : ret;
}

int bind(const std::string &driver, const std::string &device)
{
	return write_text(BUS_DRIVERS_DIR + driver + "/bind", device);
}

int unbind(const std::string &driver, const std::string &device)
{
	return write_text(BUS_DRIVERS_DIR + driver + "/unbind", device);
}

std::vector<std::string> platform_drivers()
{
	static constexpr char bus[] = "platform:";
	std::vector<std::string> names;
	std::error_code none;

	for (const auto &driver : std::filesystem::directory_iterator(
		     std::string(DRIVER_MODULE_DIR) + "/drivers", none)) {
		const std::string name = driver.path().filename();

		if (name.starts_with(bus))
			names.push_back(name.substr(strlen(bus)));
	}
	std::sort(names.begin(), names.end());
	return names;
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
	char text[32];

	snprintf(text, sizeof(text), "%lx", cpus);
	return write_text("/proc/irq/" + std::to_string(virq) + "/smp_affinity", text);
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
	return write_whole(CONTROL_DIR + file, data.data(), data.size());
}

std::string read(const std::string &file)
{
	return whole_file(CONTROL_DIR + file);
}

int device_open()
{
	return code_of(open(DEVICE, O_RDWR | O_CLOEXEC));
}

int device_ioctl(int handle, u32 cmd, void *para)
{
	return code_of(::ioctl(handle, cmd, para));
}

void device_close(int handle)
{
	close(handle);
}

int netlink_open(u32 protocol, u32 receive_buffer)
{
	const int socket =
		::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, static_cast<int>(protocol));

	if (socket < 0)
		return -errno;
	const int code = set_up_netlink(socket, receive_buffer);
	if (code == 0)
		return socket;
	close(socket);
	return code;
}

u32 netlink_port(int handle)
{
	sockaddr_nl address{};
	socklen_t size = sizeof(address);

	getsockname(handle, reinterpret_cast<sockaddr *>(&address), &size);
	return address.nl_pid;
}

// A message that found the buffer full makes one receive fail, and is no end.
std::string netlink_receive(int handle, unsigned timeout_ms)
{
	const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
	char message[4096];

	for (;;) {
		const ssize_t size = recv(handle, message, sizeof(message), MSG_DONTWAIT);

		if (size >= 0)
			return std::string(message, static_cast<size_t>(size));
		if (errno == ENOBUFS || errno == EINTR)
			continue;
		if (errno != EAGAIN || !wait_readable(handle, end))
			return "";
	}
}

void netlink_close(int handle)
{
	close(handle);
}

int proc_open(const std::string &file, bool writing)
{
	return code_of(
		open((DRIVER_PROC_DIR + file).c_str(), (writing ? O_RDWR : O_RDONLY) | O_CLOEXEC));
}

long proc_read(int handle, void *buffer, size_t size)
{
	return code_of(::read(handle, buffer, size));
}

long proc_write(int handle, const void *buffer, size_t size)
{
	return code_of(::write(handle, buffer, size));
}

long proc_seek(int handle, long position)
{
	return code_of(lseek(handle, position, SEEK_SET));
}

void proc_close(int handle)
{
	close(handle);
}

// Made once, and kept: the second page stays in place so that nothing else gets there.
char *page_before_hole()
{
	static const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
	static void *const pages =
		mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);

	mprotect(static_cast<char *>(pages) + page, page, PROT_NONE);
	return static_cast<char *>(pages);
}

std::string interrupts()
{
	return whole_file("/proc/interrupts");
}

// The process id of a thread of this name, 0 without one.
static pid_t thread_id(const std::string &name)
{
	for (const auto &task : std::filesystem::directory_iterator("/proc")) {
		if (whole_file(task.path() / "comm") == name + "\n")
			return std::stoi(task.path().filename());
	}
	return 0;
}

bool thread_exists(const std::string &name)
{
	return thread_id(name) != 0;
}

bool thread_is_realtime(const std::string &name)
{
	const pid_t id = thread_id(name);

	return id != 0 && sched_getscheduler(id) == SCHED_FIFO;
}

void expedite_rcu(bool expedited)
{
	std::ofstream("/sys/kernel/rcu_expedited") << (expedited ? "1" : "0");
}

} // namespace testbed
