// SPDX-License-Identifier: GPL-2.0
//
// Start and stop of the driver.
#include "control/module.h"

#include "combiner/lifecycle.h"
#include "config/keys.h"
#include "control/device.h"
#include "control/proc.h"
#include "core/log.h"
#include "delivery/notify.h"
#include "discovery/platform.h"

static constexpr u32 LOG_REGISTER_VALUE = 0x20000;

// For good: a process that still has the control device open brings no card up again.
// Closed all at once, before their devices lose them one by one.
static void free_all_combiners(drv_intr_ctrl &ctrl)
{
	{
		const mutex_guard guard(g_drv_intr_lock);

		ctrl.stopping = 1;
		drv_intr_all_combiner_close(ctrl);
	}
	drv_intr_unregister_drivers();
	const mutex_guard guard(g_drv_intr_lock);
	drv_intr_all_combiner_free(ctrl);
}

// The logging module has given us no id yet when this fails, so the line goes
// out under id 0.
static int register_log(const char *desc)
{
	const int ret =
		drv_log_register(DRV_INTR_MODULE_ID, DRV_INTR_MODULE_NAME, LOG_REGISTER_VALUE);

	if (ret == 0)
		return 0;
	drv_log_record(0, DRV_LOG_ERROR, 0, "[%s]log register fail, module-id=%u, ret=0x%x", desc,
		       DRV_INTR_MODULE_ID, ret);
	return -EINVAL;
}

int drv_intr_module_init(void)
{
	static constexpr char desc[] = "intr module init";
	drv_intr_ctrl &ctrl = *drv_intr_get_ctrl();

	drv_intr_ctrl_init();
	int ret = register_log(desc);
	if (ret != 0)
		return ret;
	intr_info("[%s]enter", desc);
	ret = drv_intr_get_cfg();
	if (ret != 0) {
		intr_err("[%s]get cfg fail", desc);
		return ret;
	}
	ret = drv_intr_register_device();
	if (ret != 0) {
		intr_err("[%s]misc_register fail, ret=%d", desc, ret);
		return ret;
	}
	ret = drv_intr_init_combiner(ctrl);
	if (ret != 0) {
		intr_err("[%s]init combiner fail, ret=%d", desc, ret);
		free_all_combiners(ctrl);
		drv_intr_deregister_device();
		return ret;
	}
	// Without proc files or without notification the driver still works.
	(void)drv_intr_init_proc();
	(void)drv_intr_init_netlink_ker(ctrl.global_cfg.netlink_id);
	intr_info("[%s]success", desc);
	return 0;
}

void drv_intr_module_exit(void)
{
	static constexpr char desc[] = "intr module exit";

	intr_info("[%s]enter", desc);
	drv_intr_uninit_netlink_ker();
	drv_intr_del_proc();
	free_all_combiners(*drv_intr_get_ctrl());
	drv_intr_deregister_device();
	intr_info("[%s]success", desc);
}
