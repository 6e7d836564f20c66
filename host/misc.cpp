// SPDX-License-Identifier: GPL-2.0
//
// Misc character devices. Opening, registering and deregistering exclude each
// other; an open file holds the module and is served whatever became of the
// device, so the device must not go while files are open, except in a start that
// fails.
#include "internal.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace model {

static std::mutex misc_lock;
static std::vector<plat_misc_device *> devices;
static std::map<const plat_misc_device *, u32> open_files;

static plat_misc_device *find(std::string_view name)
{
	const auto found = std::find_if(devices.begin(), devices.end(),
					[&](const auto *at) { return name == at->name; });

	return found == devices.end() ? nullptr : *found;
}

static int open_device(plat_misc_device &device, file &opened)
{
	const process_call call("open of a device");
	inode node;

	return device.open ? device.open(&node, &opened) : 0;
}

u32 misc_left(std::string &text)
{
	const std::lock_guard guard(misc_lock);

	for (const plat_misc_device *device : devices)
		text += std::string(" misc device \"") + device->name + "\"";
	return static_cast<u32>(devices.size());
}

void misc_reset()
{
	devices.clear();
	open_files.clear();
}

} // namespace model

using namespace model;

int plat_misc_register(struct plat_misc_device *device)
{
	long injected;

	if (fails(service::misc_register, injected))
		return static_cast<int>(injected);
	if (!might_sleep("misc_register"))
		return -einval;
	const std::lock_guard guard(misc_lock);
	if (find(device->name)) {
		kernel_log("sysfs: cannot create duplicate filename '/class/misc/%s'",
			   device->name);
		return -eexist;
	}
	devices.push_back(device);
	return 0;
}

void plat_misc_deregister(struct plat_misc_device *device)
{
	count_call(service::misc_deregister);
	if (!might_sleep("misc_deregister"))
		return;
	const std::lock_guard guard(misc_lock);
	if (!std::erase(devices, device)) {
		bug("misc_deregister: %s is not registered", device->name);
		return;
	}
	if (open_files[device] && !module_survives_open_files())
		bug("misc_deregister: %s goes with %u open files", device->name,
		    open_files[device]);
}

int host_misc_open(const char *name)
{
	const std::lock_guard guard(misc_lock);
	plat_misc_device *device = find(name);

	if (!device)
		return -enoent;
	if (!module_get())
		return -enodev;
	auto opened = std::make_shared<file>();
	opened->name = name;
	opened->device = device;
	const int ret = open_device(*device, *opened);
	if (ret) {
		module_put();
		return ret;
	}
	open_files[device]++;
	return file_install(opened);
}

long host_misc_ioctl(int handle, unsigned int cmd, void *argument)
{
	const std::shared_ptr<file> opened = file_of(handle);

	if (!opened || !opened->device)
		return -ebadf;
	if (!opened->device->ioctl)
		return -enotty;
	const process_call call("ioctl");
	return opened->device->ioctl(opened.get(), cmd, reinterpret_cast<unsigned long>(argument));
}

int host_misc_close(int handle)
{
	const std::shared_ptr<file> opened = file_take(handle);

	if (!opened || !opened->device)
		return -ebadf;
	if (opened->device->release) {
		const process_call call("release of a device");
		inode node;

		(void)opened->device->release(&node, opened.get());
	}
	{
		const std::lock_guard guard(misc_lock);
		open_files[opened->device]--;
	}
	module_put();
	return 0;
}
