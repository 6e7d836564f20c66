/* SPDX-License-Identifier: GPL-2.0 */
#ifndef INTR_KERNEL_NAME_DRIVER_H
#define INTR_KERNEL_NAME_DRIVER_H

#include <linux/platform_device.h>
#include <linux/string.h>

/* The device is for the driver of that name, whatever its own is. 0 or a negative code; may sleep. */
static inline int name_driver(struct platform_device *device, const char *driver)
{
#ifdef OVERRIDE_IN_DEVICE
	return device_set_driver_override(&device->dev, driver);
#else
	return driver_set_override(&device->dev, &device->driver_override, driver, strlen(driver));
#endif
}

#endif
