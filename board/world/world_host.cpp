// SPDX-License-Identifier: GPL-2.0
//
// The host home: the driver over the kernel model, siblings, board and client
// in this process. Everything is started and stopped around every scenario, so
// that the model's check of leftovers covers all of it.
#include "world/world.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "backplane.h"
#include "board.h"
#include "cpld.h"
#include "diag.h"
#include "discovery/module.h"
#include "host_board.h"
#include "log.h"
#include "model.h"
#include "monitor.h"
#include "xml.h"

namespace world {

namespace {

bool driver_loaded;

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

void start()
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
	host_firmware_board();
	driver_loaded = false;
}

std::vector<std::string> finish()
{
	for (size_t i = std::size(parts); i-- > 0;)
		parts[i].stop();
	port_host_stop();
	host_stop(); // stops loudly over anything left
	return {};
}

int load()
{
	const int ret = drv_intr_module_init();

	driver_loaded = ret == 0;
	return ret;
}

int unload()
{
	if (!driver_loaded)
		return -ENOENT;
	drv_intr_module_exit();
	client_forget_all(); // the driver let go of every leaf
	driver_loaded = false;
	return 0;
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

std::string interrupts()
{
	return owned_text(host_interrupts_text());
}

bool thread_exists(const std::string &name)
{
	return host_thread_exists(name.c_str());
}

void sleep_ms(unsigned milliseconds)
{
	std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

} // namespace world
