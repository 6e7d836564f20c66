// SPDX-License-Identifier: GPL-2.0
//
// The host home: the driver over the kernel model, siblings, board and client
// in this process. Everything is started and stopped around every scenario, so
// that the model's check of leftovers covers all of it.
#include "testbed.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <sys/mman.h>
#include <unistd.h>

#include "backplane/backplane.h"
#include "board/board.h"
#include "cpld/cpld.h"
#include "diag/diag.h"
#include "control/module.h"
#include "board/host_board.h"
#include "log/log.h"
#include "model.h"
#include "monitor/monitor.h"
#include "xml/xml.h"

namespace testbed {

namespace {

std::string owned_text(char *text)
{
	const std::string copy = text ? text : "";

	free(text);
	return copy;
}

struct part {
	const char *name;
	int (*start)();
	void (*stop)();
};

// In the order in which the modules are loaded.
constexpr part parts[] = {
	{"diag", diag_start, diag_stop},	  {"log", log_start, log_stop},
	{"cpld", cpld_start, cpld_stop},	  {"xml", xml_start, xml_stop},
	{"monitor", monitor_start, monitor_stop}, {"board", board_start, board_stop},
	{"client", client_start, client_stop},
};

} // namespace

std::string home()
{
	return "the driver runs in this process, over a model of the kernel";
}

bool start(firmware wanted)
{
	// What the kernel log would hold also stands in the readable ring.
	port_host_set_printk([](int, const char *) {});
	host_start();
	for (const part &part : parts) {
		const int ret = part.start();

		if (ret != 0) {
			fprintf(stderr, "%s does not start: %d\n", part.name, ret);
			abort();
		}
	}
	if (wanted == firmware::acpi)
		host_firmware_board_acpi();
	else
		host_firmware_board();
	return true;
}

std::vector<std::string> finish()
{
	for (size_t i = std::size(parts); i-- > 0;)
		parts[i].stop();
	port_host_stop();
	host_stop(); // a bug for anything left
	return {};
}

int load()
{
	return host_module_load(drv_intr_module_init);
}

int unload()
{
	const int ret = host_module_unload(drv_intr_module_exit);

	if (ret == 0)
		client_forget_all(); // the driver let go of every leaf
	return ret;
}

int unbind(const std::string &driver, const std::string &device)
{
	return host_device_unbind(driver.c_str(), device.c_str());
}

int bind(const std::string &driver, const std::string &device)
{
	return host_device_bind(driver.c_str(), device.c_str());
}

std::vector<std::string> platform_drivers()
{
	return lines_of(owned_text(host_driver_names()));
}

int load_backplane()
{
	const int ret = backplane_start();

	if (ret != 0)
		return ret;
	return host_symbol_add("drv_backplane_get_type",
			       reinterpret_cast<void *>(drv_backplane_get_type));
}

int unload_backplane()
{
	const int ret = host_symbol_del("drv_backplane_get_type");

	if (ret == 0)
		backplane_stop();
	return ret;
}

int set_affinity(long virq, unsigned long cpus)
{
	return host_irq_set_affinity(static_cast<u32>(virq), cpus);
}

result control(const std::string &file, const std::string &line)
{
	char reply[PORT_REPLY_MAX] = "";
	result result{};

	result.code = port_ctl_write(file.c_str(), line.data(), line.size(), reply, sizeof(reply));
	result.reply = reply;
	return result;
}

int write_blob(const std::string &file, const cfg::bytes &data)
{
	return port_ctl_write(file.c_str(), data.data(), data.size(), nullptr, 0);
}

std::string read(const std::string &file)
{
	return owned_text(port_ctl_read(file.c_str()));
}

int device_open()
{
	return host_misc_open("intr");
}

int device_ioctl(int handle, u32 cmd, void *para)
{
	return static_cast<int>(host_misc_ioctl(handle, cmd, para));
}

void device_close(int handle)
{
	host_misc_close(handle);
}

int netlink_open(u32 protocol, u32 receive_buffer)
{
	return host_netlink_open(protocol, receive_buffer);
}

u32 netlink_port(int handle)
{
	return host_netlink_port(handle);
}

std::string netlink_receive(int handle, unsigned timeout_ms)
{
	char message[4096];
	const long size = host_netlink_receive(handle, message, sizeof(message), timeout_ms);

	return size > 0 ? std::string(message, static_cast<size_t>(size)) : "";
}

void netlink_close(int handle)
{
	host_netlink_close(handle);
}

int proc_open(const std::string &file, bool writing)
{
	return host_proc_open(("intr/" + file).c_str(), writing);
}

long proc_read(int handle, void *buffer, size_t size)
{
	return host_proc_read(handle, buffer, size);
}

long proc_write(int handle, const void *buffer, size_t size)
{
	return host_proc_write(handle, buffer, size);
}

long proc_seek(int handle, long position)
{
	return host_proc_seek(handle, position);
}

void proc_close(int handle)
{
	host_proc_close(handle);
}

char *page_before_hole()
{
	static char *const pages = [] {
		const auto size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
		void *area = mmap(nullptr, 2 * size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);

		if (area == MAP_FAILED || mprotect(area, size, PROT_READ | PROT_WRITE)) {
			perror("a page before a hole");
			abort();
		}
		return static_cast<char *>(area);
	}();

	return pages;
}

std::string interrupts()
{
	return owned_text(host_interrupts_text());
}

bool thread_exists(const std::string &name)
{
	return host_thread_exists(name.c_str());
}

bool thread_is_realtime(const std::string &name)
{
	return host_thread_is_realtime(name.c_str());
}

// The model's readers are waited for at once.
void expedite_rcu(bool) {}

} // namespace testbed
