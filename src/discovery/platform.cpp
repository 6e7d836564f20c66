// SPDX-License-Identifier: GPL-2.0
//
// Combiners from platform devices. On device-tree systems every combiner is a
// device of its own: "irq_combiner@3", whatever stands before it in the name,
// is combiner 3 with the configuration node of that name and the device's
// first interrupt as parent line.
#include "discovery/platform.h"

#include "combiner/lifecycle.h"
#include "core/log.h"

static constexpr char COMBINER_NAME[] = "irq_combiner";

static int bring_up(const char *desc, platform_device *device, u32 combiner_id, const char *name)
{
	const int virq = platform_get_irq(device, 0);

	if (virq <= 0) {
		intr_err("[%s]get virq fail, virq=%d", desc, virq);
		return -EFAULT;
	}
	drv_intr_combiner *combiner = drv_intr_combiner_init_soft(*drv_intr_get_ctrl(), combiner_id,
								  name, DRV_INTR_BOARD_INST_ID);
	if (!combiner) {
		intr_err("[%s]combiner init soft fail", desc);
		return -EFAULT;
	}
	const int ret = drv_intr_combiner_init(*combiner, device, static_cast<u32>(virq));
	if (ret != 0) {
		intr_err("[%s]combiner init fail", desc);
		drv_intr_combiner_remove(*combiner);
		return ret;
	}
	intr_info("[%s]success", desc);
	return 0;
}

// The configuration name and the id in a device's name. 0, or a negative code after a line.
static int parse_device_name(const char *desc, platform_device *device, const char **name,
			     u32 *combiner_id)
{
	*name = strstr(platform_device_name(device), COMBINER_NAME);
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
	return bring_up(desc, device, combiner_id, name);
}

static void drv_intr_dts_dev_remove(platform_device *device)
{
	static constexpr char desc[] = "intr dts dev remove";
	const char *name;
	u32 combiner_id = 0;

	intr_info("[%s]enter", desc);
	if (parse_device_name(desc, device, &name, &combiner_id) != 0)
		return;
	drv_intr_combiner *combiner = drv_intr_get_combiner(combiner_id);
	if (!combiner) {
		intr_info("[%s]combiner ptr is NULL", desc);
		return;
	}
	// A device that was accepted without a combiner must not take away that of
	// another device with the same id.
	if (combiner->owner != device) {
		intr_info("[%s]combiner_id=%u belongs to another device", desc, combiner_id);
		return;
	}
	drv_intr_combiner_remove(*combiner);
	intr_info("[%s]success", desc);
}

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
	if (ret != 0) {
		intr_err("[%s]dev init fail", desc);
		return ret;
	}
	intr_info("[%s]success", desc);
	return 0;
}

static int drv_intr_dev_remove(platform_device *device)
{
	static constexpr char desc[] = "intr dev remove";
	const u32 cfg_type_bitmap = drv_intr_get_ctrl()->global_cfg.cfg_type_bitmap;
	const mutex_guard guard(g_drv_intr_lock);

	intr_info("[%s]enter, %s, cfg_type_bitmap=0x%x", desc, platform_device_name(device),
		  cfg_type_bitmap);
	if (cfg_type_bitmap & DRV_INTR_CFG_DTS)
		drv_intr_dts_dev_remove(device);
	intr_info("[%s]success", desc);
	return 0;
}
}

static constinit platform_driver g_irq_combiner_dts_driver = {
	.name = COMBINER_NAME,
	.of_compatible = "quorvatek,irq_combiner",
	.probe = drv_intr_dev_probe,
	.remove = drv_intr_dev_remove,
	.storage = {},
};

// Only what was registered may be unregistered.
static constinit bool dts_driver_registered = false;

int drv_intr_init_combiner(drv_intr_ctrl &ctrl)
{
	static constexpr char desc[] = "intr init combiner";

	if (ctrl.global_cfg.cfg_type_bitmap & DRV_INTR_CFG_DTS) {
		const int ret = platform_driver_register(&g_irq_combiner_dts_driver);

		if (ret != 0) {
			intr_err("[%s]register dts platform driver fail, ret=%d", desc, ret);
			return ret;
		}
		dts_driver_registered = true;
	}
	return 0;
}

void drv_intr_unregister_drivers()
{
	if (!dts_driver_registered)
		return;
	platform_driver_unregister(&g_irq_combiner_dts_driver);
	dts_driver_registered = false;
}
