// SPDX-License-Identifier: GPL-2.0
//
// Combiners from platform devices. On device-tree systems every combiner is a
// device of its own: "irq_combiner@3", whatever stands before it in the name,
// is combiner 3 with the configuration node of that name and the device's
// first interrupt as parent line. On ACPI systems one device carries the parent
// lines of several: bit n of acpi_bitmap is combiner n, behind interrupt n.
#include "discovery/platform.h"

#include "combiner/lifecycle.h"
#include "core/log.h"
#include "discovery/acpi_id.h"
#include "discovery/gpio.h"

// After a failure of the last step the record stays in the list, for the caller to free.
static int create_combiner(const char *desc, platform_device *device, u32 combiner_id,
			   const char *name, int virq)
{
	drv_intr_combiner *combiner = drv_intr_combiner_init_soft(*drv_intr_get_ctrl(), combiner_id,
								  name, DRV_INTR_BOARD_INST_ID);
	if (!combiner) {
		intr_err("[%s]combiner init soft fail", desc);
		return -EFAULT;
	}
	const int ret = drv_intr_combiner_init(*combiner, device, static_cast<u32>(virq));
	if (ret != 0)
		intr_err("[%s]combiner init fail", desc);
	return ret;
}

// The configuration name and the id in a device's name. 0, or a negative code after a line.
static int parse_device_name(const char *desc, platform_device *device, const char **name,
			     u32 *combiner_id)
{
	*name = strstr(platform_device_name(device), DRV_INTR_COMBINER_NAME);
	if (!*name) {
		intr_err("[%s]invalid dev name", desc);
		return -EFAULT;
	}
	const int ret = drv_intr_get_combiner_id(*name, combiner_id);
	if (ret != 0)
		intr_err("[%s]get combiner id fail", desc);
	return ret;
}

static int drv_intr_dts_dev_probe(platform_device *device)
{
	static constexpr char desc[] = "intr dts dev probe";
	const char *name;
	u32 combiner_id = 0;

	intr_info("[%s]enter", desc);
	const int ret = parse_device_name(desc, device, &name, &combiner_id);
	if (ret != 0)
		return ret;
	if (drv_intr_get_combiner(combiner_id)) {
		intr_info("[%s]combiner_id=%u, combiner already exist", desc, combiner_id);
		return 0;
	}
	const int virq = platform_get_irq(device, 0);
	if (virq <= 0) {
		intr_err("[%s]get virq fail, virq=%d", desc, virq);
		return -EFAULT;
	}
	const int failed = create_combiner(desc, device, combiner_id, name, virq);
	if (failed != 0) {
		if (drv_intr_combiner *combiner = drv_intr_get_combiner(combiner_id))
			drv_intr_combiner_remove(*combiner);
		return failed;
	}
	intr_info("[%s]success", desc);
	return 0;
}

static void drv_intr_dts_dev_remove(platform_device *device)
{
	static constexpr char desc[] = "intr dts dev remove";
	const char *name;
	u32 combiner_id = 0;

	intr_info("[%s]enter", desc);
	if (parse_device_name(desc, device, &name, &combiner_id) != 0)
		return;
	// A device that was accepted without a combiner has none to lose: that of
	// another device with the same id stays.
	drv_intr_combiner *combiner = drv_intr_get_combiner_to_free(combiner_id);
	if (!combiner || combiner->owner != device) {
		intr_info("[%s]combiner ptr is NULL", desc);
		return;
	}
	drv_intr_combiner_remove(*combiner);
	intr_info("[%s]success", desc);
}

static int probe_acpi_combiner(const char *desc, platform_device *device, u32 combiner_id)
{
	char name[DRV_INTR_NAME_SIZE];
	const int virq = platform_get_irq(device, combiner_id);

	if (virq <= 0) {
		intr_err("[%s]get virq fail, virq=%d, combiner_id=%u", desc, virq, combiner_id);
		return -EFAULT;
	}
	const int ret = sprintf_s(name, sizeof(name), DRV_INTR_COMBINER_NAME_FORMAT, combiner_id);
	if (ret < 0) {
		intr_err("sprintf_s to combiner name failed, ret=%d", ret);
		return -EFAULT;
	}
	return create_combiner(desc, device, combiner_id, name, virq);
}

// A second device of this kind must not take away what the first one has.
static drv_intr_combiner *existing_combiner(u32 bitmap)
{
	for (drv_intr_combiner &combiner : drv_intr_get_ctrl()->combiner_list) {
		if (combiner.combiner_id < BOARD_COMBINERS &&
		    (bitmap & (1u << combiner.combiner_id)))
			return &combiner;
	}
	return nullptr;
}

static int drv_intr_acpi_dev_probe(platform_device *device)
{
	static constexpr char desc[] = "intr acpi dev probe";
	const u32 bitmap = drv_intr_get_ctrl()->global_cfg.acpi_bitmap;

	intr_info("[%s]enter, acpi_bitmap=0x%x", desc, bitmap);
	if (const drv_intr_combiner *existing = existing_combiner(bitmap)) {
		intr_err("[%s]combiner_id=%u, combiner already exist", desc, existing->combiner_id);
		return -EFAULT;
	}
	for (u32 id = 0; id < BOARD_COMBINERS; id++) {
		if (!(bitmap & (1u << id)))
			continue;
		const int ret = probe_acpi_combiner(desc, device, id);
		if (ret != 0) {
			drv_intr_free_combiner_by_bitmap(bitmap);
			return ret;
		}
	}
	intr_info("[%s]success", desc);
	return 0;
}

static void drv_intr_acpi_dev_remove(platform_device *device)
{
	static constexpr char desc[] = "intr acpi dev remove";

	intr_info("[%s]enter, platform_device.name=%s", desc, platform_device_name(device));
	drv_intr_free_combiner_by_bitmap(drv_intr_get_ctrl()->global_cfg.acpi_bitmap);
	intr_info("[%s]success", desc);
}

// The source of the configuration, not the driver that matched, says what a
// device is: with both in use every device is taken as the device tree's.
extern "C" {
static int drv_intr_dev_probe(platform_device *device)
{
	static constexpr char desc[] = "intr dev probe";
	const u32 cfg_type_bitmap = drv_intr_get_ctrl()->global_cfg.cfg_type_bitmap;
	const mutex_guard guard(g_drv_intr_lock);
	int ret = 0;

	intr_info("[%s]enter, %s, cfg_type_bitmap=0x%x", desc, platform_device_name(device),
		  cfg_type_bitmap);
	if (cfg_type_bitmap & DRV_INTR_CFG_DTS)
		ret = drv_intr_dts_dev_probe(device);
	else if (cfg_type_bitmap & DRV_INTR_CFG_ACPI)
		ret = drv_intr_acpi_dev_probe(device);
	if (ret != 0) {
		intr_err("[%s]dev init fail", desc);
		return ret;
	}
	intr_info("[%s]success", desc);
	return 0;
}

static void drv_intr_dev_remove(platform_device *device)
{
	static constexpr char desc[] = "intr dev remove";
	const u32 cfg_type_bitmap = drv_intr_get_ctrl()->global_cfg.cfg_type_bitmap;
	const mutex_guard guard(g_drv_intr_lock);

	intr_info("[%s]enter, %s, cfg_type_bitmap=0x%x", desc, platform_device_name(device),
		  cfg_type_bitmap);
	if (cfg_type_bitmap & DRV_INTR_CFG_DTS)
		drv_intr_dts_dev_remove(device);
	else if (cfg_type_bitmap & DRV_INTR_CFG_ACPI)
		drv_intr_acpi_dev_remove(device);
	intr_info("[%s]success", desc);
}
}

static constinit platform_driver g_irq_combiner_dts_driver = {
	.name = DRV_INTR_COMBINER_NAME,
	.second_name = nullptr,
	.of_compatible = "quorvatek,irq_combiner",
	.acpi_id = nullptr,
	.probe = drv_intr_dev_probe,
	.remove = drv_intr_dev_remove,
	.storage = {},
};

static constinit platform_driver g_irq_combiner_acpi_driver = {
	.name = DRV_INTR_COMBINER_NAME,
	.second_name = "irq_combiner-acpi",
	.of_compatible = nullptr,
	.acpi_id = DRV_INTR_ACPI_ID,
	.probe = drv_intr_dev_probe,
	.remove = drv_intr_dev_remove,
	.storage = {},
};

// A source with a platform driver. Only what was registered may be unregistered.
struct driver_source {
	u32 bit; // of cfg_type_bitmap
	const char *word;
	platform_driver *driver;
	bool registered;
};

static constinit driver_source driver_sources[] = {
	{DRV_INTR_CFG_DTS, "dts", &g_irq_combiner_dts_driver, false},
	{DRV_INTR_CFG_ACPI, "acpi", &g_irq_combiner_acpi_driver, false},
};

static int init_gpio_combiners(drv_intr_ctrl &ctrl)
{
	const mutex_guard guard(g_drv_intr_lock);

	return drv_intr_init_gpio_combiner(ctrl);
}

// Two combiners of one id could not be told apart. The ids of device-tree devices
// are not known yet; such a device with an id in use gets no combiner. Where they
// are a source, no combiner comes from ACPI.
static int check_ids(const char *desc, const drv_intr_global_cfg &cfg)
{
	static constexpr u32 BOTH = DRV_INTR_CFG_GPIO | DRV_INTR_CFG_ACPI;
	const u32 sources = cfg.cfg_type_bitmap & (BOTH | DRV_INTR_CFG_DTS);
	const u32 twice = cfg.gpio_bitmap & cfg.acpi_bitmap;

	if (sources != BOTH || twice == 0)
		return 0;
	for (u32 id = 0; id < BOARD_COMBINERS; id++) {
		if (twice & (1u << id))
			intr_err("[%s]combiner_id=%u is in gpio_bitmap and in acpi_bitmap", desc,
				 id);
	}
	return -EINVAL;
}

int drv_intr_init_combiner(drv_intr_ctrl &ctrl)
{
	static constexpr char desc[] = "intr init combiner";
	const drv_intr_global_cfg &cfg = ctrl.global_cfg;

	int ret = check_ids(desc, cfg);
	if (ret != 0)
		return ret;
	if (cfg.cfg_type_bitmap & DRV_INTR_CFG_GPIO) {
		ret = init_gpio_combiners(ctrl);
		if (ret != 0) {
			intr_err("[%s]init gpio combiner fail, ret=%d", desc, ret);
			return ret;
		}
	}
	for (driver_source &source : driver_sources) {
		if (!(cfg.cfg_type_bitmap & source.bit))
			continue;
		ret = platform_driver_register(source.driver);
		if (ret != 0) {
			intr_err("[%s]register %s platform driver fail, ret=%d", desc, source.word,
				 ret);
			return ret;
		}
		source.registered = true;
	}
	return 0;
}

void drv_intr_unregister_drivers()
{
	for (driver_source &source : driver_sources) {
		if (source.registered)
			platform_driver_unregister(source.driver);
		source.registered = false;
	}
}
