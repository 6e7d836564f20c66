// SPDX-License-Identifier: GPL-2.0
/* Platform drivers and devices. */
#include <linux/build_bug.h>
#include <linux/device.h>
#include <linux/mod_devicetable.h>
#include <linux/module.h>
#include <linux/platform_device.h>
#include <linux/property.h>
#include <linux/string.h>

#include "kernel/compat.h"
#include "platform/kernel_api.h"

/* Kept by the kernel while the driver is registered; an empty entry ends each table. */
struct driver_storage {
	struct platform_driver driver;
	struct of_device_id of_match[2];
	struct acpi_device_id acpi_match[2];
};

static_assert(sizeof(struct driver_storage) <= sizeof_field(struct plat_platform_driver, storage));
static_assert(__alignof__(struct driver_storage) <= __alignof__(struct plat_platform_driver));

static struct driver_storage *storage_of(struct plat_platform_driver *driver)
{
	return (struct driver_storage *)driver->storage;
}

static void set_of_match(struct driver_storage *storage, const char *compatible)
{
	strscpy(storage->of_match[0].compatible, compatible,
		sizeof(storage->of_match[0].compatible));
	storage->driver.driver.of_match_table = storage->of_match;
}

static void set_acpi_match(struct driver_storage *storage, const char *id)
{
	strscpy((char *)storage->acpi_match[0].id, id, sizeof(storage->acpi_match[0].id));
	storage->driver.driver.acpi_match_table = storage->acpi_match;
}

/* Asked before registering: the bus logs an error line for each name that is taken. */
static const char *free_name(const struct plat_platform_driver *driver)
{
	if (driver->second_name && driver_find(driver->name, &platform_bus_type))
		return driver->second_name;
	return driver->name;
}

noinline int plat_platform_driver_register(struct plat_platform_driver *driver)
{
	struct driver_storage *storage = storage_of(driver);

	*storage = (struct driver_storage){
		.driver =
			{
				.probe = driver->probe,
				.PLATFORM_DRIVER_REMOVE = driver->remove,
				.driver.name = free_name(driver),
			},
	};
	if (driver->of_compatible)
		set_of_match(storage, driver->of_compatible);
	if (driver->acpi_id)
		set_acpi_match(storage, driver->acpi_id);
	return platform_driver_register(&storage->driver);
}

noinline void plat_platform_driver_unregister(struct plat_platform_driver *driver)
{
	platform_driver_unregister(&storage_of(driver)->driver);
}

noinline const char *plat_platform_device_name(const struct platform_device *device)
{
	return dev_name(&device->dev);
}

noinline int plat_platform_get_irq(struct platform_device *device, u32 index)
{
	return platform_get_irq(device, index);
}

noinline struct fwnode_handle *plat_dev_fwnode(struct platform_device *device)
{
	return dev_fwnode(&device->dev);
}
