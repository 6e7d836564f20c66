// SPDX-License-Identifier: GPL-2.0
//
// Platform bus, and symbols found by name. A device's own lock is held over its
// probe and remove; the bus lock only over the lists, so that two devices are
// probed at the same time.
#include "internal.h"

#include <algorithm>
#include <map>
#include <string_view>
#include <vector>

struct platform_device {
	std::string name;
	std::string compatible; // empty: added at run time, for override_name
	std::vector<u32> virqs;
	fwnode_handle fwnode;
	std::mutex lock;
	plat_platform_driver *driver = nullptr; // bound to; under the lock
	bool removed = false;
};

namespace model {

constexpr std::string_view override_name = "irq_combiner";
constexpr std::string_view acpi_prefix = "acpi:";

using device_ref = std::shared_ptr<platform_device>;

struct symbol {
	void *address;
	u32 references;
};

static std::mutex bus_lock;
static std::vector<device_ref> devices;
static std::vector<plat_platform_driver *> drivers;

static std::mutex symbols_lock;
static std::map<std::string, symbol, std::less<>> symbols;

static bool matches(const platform_device &device, const plat_platform_driver &driver)
{
	if (device.compatible.empty())
		return driver.name == override_name;
	if (device.compatible.starts_with(acpi_prefix))
		return !driver.of_compatible;
	return driver.of_compatible && device.compatible == driver.of_compatible;
}

static void probe(platform_device &device, plat_platform_driver &driver)
{
	const std::lock_guard guard(device.lock);

	if (device.driver || device.removed || !matches(device, driver))
		return;
	const int ret = driver.probe(&device);
	if (ret == 0)
		device.driver = &driver;
	else if (ret != -enodev && ret != -enxio)
		kernel_log("%s: probe of %s failed with error %d", driver.name, device.name.c_str(),
			   ret);
}

// wanted null: whatever it is bound to.
static void unbind(platform_device &device, const plat_platform_driver *wanted)
{
	const std::lock_guard guard(device.lock);

	if (!device.driver || (wanted && device.driver != wanted))
		return;
	if (device.driver->remove)
		device.driver->remove(&device);
	device.driver = nullptr;
}

static device_ref find_device(std::string_view name)
{
	const std::lock_guard guard(bus_lock);
	const auto found = std::find_if(devices.begin(), devices.end(),
					[&](const device_ref &at) { return at->name == name; });

	return found == devices.end() ? nullptr : *found;
}

u32 drivers_left(std::string &text)
{
	const std::scoped_lock guard(bus_lock, symbols_lock);
	u32 left = 0;

	for (const plat_platform_driver *driver : drivers) {
		text += std::string(" driver \"") + driver->name + "\"";
		left++;
	}
	for (const auto &[name, symbol] : symbols) {
		if (!symbol.references)
			continue;
		text += " reference on " + name;
		left++;
	}
	return left;
}

void drivers_reset()
{
	drivers.clear();
	devices.clear();
	symbols.clear();
}

} // namespace model

using namespace model;

int host_device_add(const char *name, const char *compatible, const uint32_t *virqs, size_t count)
{
	auto device = std::make_shared<platform_device>();

	device->name = name;
	device->compatible = compatible ? compatible : "";
	device->virqs.assign(virqs, virqs + count);
	device->fwnode = {name, false};
	std::vector<plat_platform_driver *> candidates;
	{
		const std::lock_guard guard(bus_lock);

		for (const device_ref &other : devices)
			if (other->name == name)
				return -eexist;
		devices.push_back(device);
		candidates = drivers;
	}
	for (plat_platform_driver *driver : candidates)
		probe(*device, *driver);
	return 0;
}

int host_device_del(const char *name)
{
	const device_ref device = find_device(name);

	if (!device)
		return -enodev;
	unbind(*device, nullptr);
	{
		const std::lock_guard guard(device->lock);
		device->removed = true;
	}
	if (fwnode_in_use(&device->fwnode))
		stop("device %s goes while a domain uses its firmware node", name);
	const std::lock_guard guard(bus_lock);
	std::erase(devices, device);
	return 0;
}

int host_device_bound(const char *name)
{
	const device_ref device = find_device(name);

	if (!device)
		return -enodev;
	const std::lock_guard guard(device->lock);
	return device->driver != nullptr;
}

int plat_platform_driver_register(struct plat_platform_driver *driver)
{
	long injected;

	if (fails(service::platform_driver_register, injected))
		return static_cast<int>(injected);
	if (!might_sleep("platform_driver_register"))
		return -einval;

	std::vector<device_ref> present;
	{
		const std::lock_guard guard(bus_lock);

		for (const plat_platform_driver *other : drivers) {
			if (std::string_view(other->name) != driver->name)
				continue;
			kernel_log("Error: Driver '%s' is already registered, aborting...",
				   driver->name);
			return -ebusy;
		}
		drivers.push_back(driver);
		present = devices;
	}
	for (const device_ref &device : present)
		probe(*device, *driver);
	return 0;
}

void plat_platform_driver_unregister(struct plat_platform_driver *driver)
{
	count_call(service::platform_driver_unregister);
	if (!might_sleep("platform_driver_unregister"))
		return;

	std::vector<device_ref> present;
	{
		const std::lock_guard guard(bus_lock);

		if (!std::erase(drivers, driver)) {
			stop("Unexpected driver unregister!");
			return;
		}
		present = devices;
	}
	// The driver core unbinds the device that was bound last first.
	for (auto device = present.rbegin(); device != present.rend(); ++device)
		unbind(**device, driver);
}

const char *plat_platform_device_name(const struct platform_device *device)
{
	count_call(service::platform_device_name);
	return device->name.c_str();
}

int plat_platform_get_irq(struct platform_device *device, u32 index)
{
	long injected;

	if (fails(service::platform_get_irq, injected))
		return static_cast<int>(injected);
	if (index < device->virqs.size() && device->virqs[index])
		return static_cast<int>(device->virqs[index]);
	kernel_log("%s: error -ENXIO: IRQ index %u not found", device->name.c_str(), index);
	return -enxio;
}

struct fwnode_handle *plat_dev_fwnode(struct platform_device *device)
{
	long injected;

	if (fails(service::dev_fwnode, injected))
		return nullptr;
	return device->compatible.empty() ? nullptr : &device->fwnode;
}

int host_symbol_add(const char *name, void *address)
{
	const std::lock_guard guard(symbols_lock);

	return symbols.try_emplace(name, symbol{address, 0}).second ? 0 : -eexist;
}

int host_symbol_del(const char *name)
{
	constexpr int enoent = 2;
	const std::lock_guard guard(symbols_lock);
	const auto found = symbols.find(std::string_view(name));

	if (found == symbols.end())
		return -enoent;
	if (found->second.references)
		return -ebusy;
	symbols.erase(found);
	return 0;
}

void *plat_symbol_get(const char *name)
{
	long injected;

	if (fails(service::symbol_get, injected))
		return nullptr;
	const std::lock_guard guard(symbols_lock);
	const auto found = symbols.find(std::string_view(name));
	if (found == symbols.end())
		return nullptr;
	found->second.references++;
	return found->second.address;
}

void plat_symbol_put(const char *name)
{
	count_call(service::symbol_put);
	const std::lock_guard guard(symbols_lock);
	const auto found = symbols.find(std::string_view(name));

	if (found == symbols.end() || !found->second.references) {
		stop("symbol_put: no reference on %s", name);
		return;
	}
	found->second.references--;
}
