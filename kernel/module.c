// SPDX-License-Identifier: GPL-2.0
/* Load and unload. */
#define pr_fmt(fmt) "intr: " fmt

#include <linux/delay.h>
#include <linux/init.h>
#include <linux/mod_devicetable.h>
#include <linux/module.h>
#include <linux/printk.h>
#include <linux/types.h>

#include "discovery/acpi_id.h"
#include "control/module.h"

#define RETRY_MS 10

/* Only for the module's alias; the driver's own match table is made when it registers. */
static const struct acpi_device_id acpi_ids[] __maybe_unused = {
	{ .id = DRV_INTR_ACPI_ID },
	{ }
};
MODULE_DEVICE_TABLE(acpi, acpi_ids);

/*
 * A module whose start fails is freed at once, whoever holds it. The control
 * device is there before the last step that can fail, and a process that opened
 * it meanwhile still calls into the module, so the failure is returned only when
 * the last such file is closed. One reference is the loader's own.
 */
static void wait_for_open_files(int ret)
{
	int open = module_refcount(THIS_MODULE) - 1;

	if (open > 0)
		pr_info("the start failed (%d) and waits until %d open file%s of the driver closed\n",
			ret, open, open == 1 ? " is" : "s are");
	while (module_refcount(THIS_MODULE) > 1)
		msleep(RETRY_MS);
}

static int __init intr_init(void)
{
	int ret = drv_intr_module_init();

	if (ret)
		wait_for_open_files(ret);
	return ret;
}

static void __exit intr_exit(void)
{
	drv_intr_module_exit();
}

module_init(intr_init);
module_exit(intr_exit);

MODULE_LICENSE("GPL");
MODULE_AUTHOR("intr maintainers");
MODULE_DESCRIPTION("Interrupt combiner: CPLD interrupt sources behind a few parent lines");
