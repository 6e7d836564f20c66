// SPDX-License-Identifier: GPL-2.0
//
// What a scenario or the demo can see and do, the same in both homes: control files of the
// sibling modules, the board and the test client; loading and unloading intr;
// what the kernel shows of interrupts and threads. testbed_kernel.cpp works on
// the real files of the guest, testbed_host.cpp on the model in this process.
#ifndef TESTBED_TESTBED_H
#define TESTBED_TESTBED_H

#include <chrono>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "cfg_table.h"

namespace testbed {

// Which home this is, for people.
std::string home();

struct result {
	int code; // 0 or a negative errno
	std::string reply;
};

// What describes the board's devices to the kernel.
enum class firmware { device_tree, acpi };

// Around every scenario. finish names whatever is left or was complained about
// since start, one line each; empty when all is well. False: this machine was
// booted with the other firmware.
[[nodiscard]] bool start(firmware wanted = firmware::device_tree);
std::vector<std::string> finish();

// The driver module, loaded once, never retried. 0 or a negative errno.
int load();
int unload();

// Unbinds a device from its driver and binds it again, as a user does through the
// driver core; a driver is the one that carries this name on the bus. 0 or a
// negative errno.
int unbind(const std::string &driver, const std::string &device);
int bind(const std::string &driver, const std::string &device);
// The names of the platform drivers of the loaded driver module, sorted.
std::vector<std::string> platform_drivers();

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

// The driver's control device, kept open as a daemon has it. A handle above 0, or
// a negative errno; para goes to the driver as it is, null or unreadable too.
int device_open();
int device_ioctl(int handle, u32 cmd, void *para);
void device_close(int handle);
// One open, one ioctl, one close. 0 or a negative errno.
inline int ioctl(u32 cmd, void *para)
{
	const int handle = device_open();

	if (handle < 0)
		return handle;
	const int code = device_ioctl(handle, cmd, para);
	device_close(handle);
	return code;
}

// A netlink socket of a process, bound; receive_buffer in bytes, 0 for the usual
// size. A handle above 0, or a negative errno. Closed by the caller.
int netlink_open(u32 protocol, u32 receive_buffer = 0);
u32 netlink_port(int handle);
// The bytes of the next message, empty when none came in time.
std::string netlink_receive(int handle, unsigned timeout_ms);
void netlink_close(int handle);

// The driver's own proc files. A handle above 0, or a negative errno; read and
// write give the bytes done or a negative errno, seek the position. A buffer is
// user memory: it may be unreadable.
int proc_open(const std::string &file, bool writing = false);
long proc_read(int handle, void *buffer, size_t size);
long proc_write(int handle, const void *buffer, size_t size);
long proc_seek(int handle, long position);
void proc_close(int handle);
// One page that can be read and written, and behind it one that cannot.
char *page_before_hole();

// As /proc/interrupts shows them.
std::string interrupts();
bool thread_exists(const std::string &name);
// Whether it has the scheduling of an interrupt thread; false also without such a thread.
bool thread_is_realtime(const std::string &name);

inline void sleep_ms(unsigned milliseconds)
{
	std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

// Expedited, the kernel's waits for readers (RCU) take a moment instead of tens of
// milliseconds, at the price of disturbing every CPU.
void expedite_rcu(bool expedited);

// The lines of a text, without their ends.
inline std::vector<std::string> lines_of(const std::string &text)
{
	std::vector<std::string> lines;
	std::istringstream stream(text);

	for (std::string line; std::getline(stream, line);)
		lines.push_back(line);
	return lines;
}

} // namespace testbed

#endif
