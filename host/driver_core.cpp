// SPDX-License-Identifier: GPL-2.0
//
// Platform bus, and symbols found by name. A device's own lock is held over its
// probe and remove; the bus lock only over the lists, so that two devices are
// probed at the same time. Unregistering a driver waits for those who found it on
// the bus.
#include "internal.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <set>
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

// A driver under the name that it has on the bus.
struct bus_driver {
	plat_platform_driver *driver;
	std::string name;
	std::atomic<u32> users{0};
};

// Holds off the driver's end.
class driver_ref {
public:
	explicit driver_ref(std::shared_ptr<bus_driver> found) : found_(std::move(found))
	{
		found_->users.fetch_add(1, std::memory_order_relaxed);
	}
	driver_ref(driver_ref &&) = default;
	~driver_ref()
	{
		if (found_)
			found_->users.fetch_sub(1, std::memory_order_release);
	}

	const bus_driver &operator*() const { return *found_; }
	const bus_driver *operator->() const { return found_.get(); }

private:
	std::shared_ptr<bus_driver> found_;
};

struct symbol {
	void *address;
	u32 references;
};

static std::mutex bus_lock;
static std::vector<device_ref> devices;
static std::vector<std::shared_ptr<bus_driver>> drivers;

static std::mutex symbols_lock;
static std::map<std::string, symbol, std::less<>> symbols;

static bool matches(const platform_device &device, const bus_driver &on_bus)
{
	const plat_platform_driver &driver = *on_bus.driver;
	const std::string_view compatible = device.compatible;

	if (compatible.empty())
		return on_bus.name == override_name;
	if (compatible.starts_with(acpi_prefix))
		return driver.acpi_id && compatible.substr(acpi_prefix.size()) == driver.acpi_id;
	return driver.of_compatible && compatible == driver.of_compatible;
}

static int probe(platform_device &device, const bus_driver &on_bus)
{
	const std::lock_guard guard(device.lock);

	if (device.removed || !matches(device, on_bus))
		return -enodev;
	if (device.driver)
		return -ebusy;
	const int ret = on_bus.driver->probe(&device);
	if (ret == 0)
		device.driver = on_bus.driver;
	else if (ret != -enodev && ret != -enxio)
		kernel_log("%s: probe of %s failed with error %d", on_bus.name.c_str(),
			   device.name.c_str(), ret);
	return ret;
}

// wanted null: whatever it is bound to.
static int unbind(platform_device &device, const plat_platform_driver *wanted)
{
	const std::lock_guard guard(device.lock);

	if (!device.driver || (wanted && device.driver != wanted))
		return -enodev;
	if (device.driver->remove)
		device.driver->remove(&device);
	device.driver = nullptr;
	return 0;
}

static device_ref find_device(std::string_view name)
{
	const std::lock_guard guard(bus_lock);
	const auto found = std::find_if(devices.begin(), devices.end(),
					[&](const device_ref &at) { return at->name == name; });

	return found == devices.end() ? nullptr : *found;
}

static std::vector<driver_ref> find_drivers(std::string_view name)
{
	const std::lock_guard guard(bus_lock);
	std::vector<driver_ref> found;

	for (const std::shared_ptr<bus_driver> &at : drivers)
		if (at->name == name)
			found.emplace_back(at);
	return found;
}

// With bus_lock held.
static bool name_taken(const char *name)
{
	return std::any_of(drivers.begin(), drivers.end(),
			   [&](const auto &at) { return at->name == name; });
}

// With bus_lock held. Null: neither of its names is free.
static const char *free_name(const plat_platform_driver &driver)
{
	const char *name = driver.name;

	if (driver.second_name && name_taken(name))
		name = driver.second_name;
	if (!name_taken(name))
		return name;
	kernel_log("Error: Driver '%s' is already registered, aborting...", name);
	return nullptr;
}

u32 drivers_left(std::string &text)
{
	const std::scoped_lock guard(bus_lock, symbols_lock);
	u32 left = 0;

	for (const std::shared_ptr<bus_driver> &driver : drivers) {
		text += " driver \"" + driver->name + "\"";
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
	std::vector<driver_ref> candidates;
	{
		const std::lock_guard guard(bus_lock);

		for (const device_ref &other : devices)
			if (other->name == name)
				return -eexist;
		devices.push_back(device);
		for (const std::shared_ptr<bus_driver> &driver : drivers)
			candidates.emplace_back(driver);
	}
	for (const driver_ref &driver : candidates)
		(void)probe(*device, *driver);
	return 0;
}

int host_device_del(const char *name)
{
	const device_ref device = find_device(name);

	if (!device)
		return -enodev;
	(void)unbind(*device, nullptr);
	{
		const std::lock_guard guard(device->lock);
		device->removed = true;
	}
	if (fwnode_in_use(&device->fwnode))
		bug("device %s goes while a domain uses its firmware node", name);
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

int host_device_unbind(const char *driver, const char *name)
{
	const std::vector<driver_ref> found = find_drivers(driver);
	const device_ref device = find_device(name);

	if (found.empty())
		return -enoent;
	return device ? unbind(*device, found.front()->driver) : -enodev;
}

int host_device_bind(const char *driver, const char *name)
{
	const std::vector<driver_ref> found = find_drivers(driver);
	const device_ref device = find_device(name);

	if (found.empty())
		return -enoent;
	return device ? probe(*device, *found.front()) : -enodev;
}

char *host_driver_names(void)
{
	std::set<std::string> names;
	std::string text;
	{
		const std::lock_guard guard(bus_lock);

		for (const std::shared_ptr<bus_driver> &driver : drivers)
			names.insert(driver->name);
	}
	for (const std::string &name : names)
		text += name + "\n";
	return strdup(text.c_str());
}

int plat_platform_driver_register(struct plat_platform_driver *driver)
{
	long injected;

	if (fails(service::platform_driver_register, injected))
		return static_cast<int>(injected);
	if (!might_sleep("platform_driver_register"))
		return -einval;

	auto on_bus = std::make_shared<bus_driver>();
	std::vector<device_ref> present;
	{
		const std::lock_guard guard(bus_lock);
		const char *name = free_name(*driver);

		if (!name)
			return -ebusy;
		on_bus->driver = driver;
		on_bus->name = name;
		drivers.push_back(on_bus);
		present = devices;
	}
	for (const device_ref &device : present)
		(void)probe(*device, *on_bus);
	return 0;
}

void plat_platform_driver_unregister(struct plat_platform_driver *driver)
{
	count_call(service::platform_driver_unregister);
	if (!might_sleep("platform_driver_unregister"))
		return;

	std::shared_ptr<bus_driver> on_bus;
	std::vector<device_ref> present;
	{
		const std::lock_guard guard(bus_lock);
		const auto found =
			std::find_if(drivers.begin(), drivers.end(),
				     [&](const auto &at) { return at->driver == driver; });

		if (found == drivers.end()) {
			bug("Unexpected driver unregister!");
			return;
		}
		on_bus = *found;
		drivers.erase(found);
		present = devices;
	}
	wait_until([&] { return on_bus->users.load(std::memory_order_acquire) == 0; },
		   "platform_driver_unregister");
	// The driver core unbinds the device that was bound last first.
	for (auto device = present.rbegin(); device != present.rend(); ++device)
		(void)unbind(**device, driver);
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
		bug("symbol_put: no reference on %s", name);
		return;
	}
	found->second.references--;
}
