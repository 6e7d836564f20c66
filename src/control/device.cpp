// SPDX-License-Identifier: GPL-2.0
//
// The control device: one record in, one command, one record out. A process sees
// 0 or -EFAULT, whatever a handler returned.
//
// Cards are writers and take the driver's lock.
#include "control/device.h"

#include "config/keys.h"
#include "control/report.h"
#include "core/log.h"
#include "delivery/subscription.h"
#include "discovery/card.h"
#include "uapi/intr.h"

static constexpr u32 READ_DIRECTION = 1u << 31;

static u32 sequence_number(u32 cmd)
{
	return cmd & 0xff;
}

static int drv_intr_ioctl_set_pid(u32, drv_intr_ioctl_para &para)
{
	static constexpr char desc[] = "intr ioctl set pid";
	const u32 index_id = para.index_id, type = para.type, pid = para.pid;

	intr_info("[%s]enter, index_id=0x%x, type=%u, pid=%u", desc, index_id, type, pid);
	return drv_intr_subscribe(desc, index_id, type, pid);
}

static int drv_intr_ioctl_unset_pid(u32, drv_intr_ioctl_para &para)
{
	static constexpr char desc[] = "intr ioctl unset pid";
	const u32 index_id = para.index_id, type = para.type, pid = para.pid;

	intr_info("[%s]enter, index_id=0x%x, type=%u, pid=%u", desc, index_id, type, pid);
	return drv_intr_unsubscribe(desc, index_id, type, pid);
}

static int drv_intr_ioctl_set_int_en(u32, drv_intr_ioctl_para &para)
{
	return para.enable != 0 ? drv_intr_enable(para.index_id, para.type)
				: drv_intr_disable(para.index_id, para.type);
}

static int drv_intr_ioctl_get_netlink_id(u32, drv_intr_ioctl_para &para)
{
	para.result = drv_intr_get_ctrl()->global_cfg.netlink_id;
	return 0;
}

static int drv_intr_ioctl_get_int_debug_en(u32, drv_intr_ioctl_para &para)
{
	para.result = read_once(drv_intr_get_ctrl()->int_debug_switch);
	return 0;
}

static int drv_intr_ioctl_init_card_combiner(u32, drv_intr_ioctl_para &para)
{
	static constexpr char desc[] = "intr ioctl init card combiner";
	const u32 inst_id = para.inst_id;

	intr_info("[%s]enter, inst_id=0x%x", desc, inst_id);
	const mutex_guard guard(g_drv_intr_lock);
	const int ret = drv_intr_init_card_combiner(*drv_intr_get_ctrl(), inst_id);
	if (ret != 0) {
		intr_err("[%s]card combiner init fail, ret=%d", desc, ret);
		return ret;
	}
	intr_info("[%s]success", desc);
	return 0;
}

static int drv_intr_ioctl_deinit_card_combiner(u32, drv_intr_ioctl_para &para)
{
	static constexpr char desc[] = "intr ioctl deinit card combiner";
	const u32 inst_id = para.inst_id;
	u32 card_no = 0, bitmap = 0;

	intr_info("[%s]enter, inst_id=0x%x", desc, inst_id);
	if (drv_intr_get_card_no(inst_id, card_no) != 0) {
		intr_err("[%s]invalid inst id", desc);
		return -EINVAL;
	}
	const mutex_guard guard(g_drv_intr_lock);
	drv_intr_get_card_combiner_bitmap(inst_id, bitmap);
	drv_intr_free_card_combiner(card_no, bitmap);
	intr_info("[%s]success", desc);
	return 0;
}

static int drv_intr_ioctl_set_debug_switch(u32, drv_intr_ioctl_para &para)
{
	static constexpr char desc[] = "intr ioctl set debug switch";
	drv_intr_ctrl &ctrl = *drv_intr_get_ctrl();
	const u32 switch_on = para.switch_on, virq = para.virq;

	write_once(ctrl.int_debug_switch, switch_on);
	write_once(ctrl.debug_irq, virq);
	intr_info("[%s]switch_on=%u, virq=%u", desc, switch_on, virq);
	return 0;
}

static u32 drv_intr_ioctl_show_runtime(const drv_intr_ioctl_para &, char *buffer, u32 size)
{
	return drv_intr_dbg_print_runtime(buffer, size);
}

static u32 drv_intr_ioctl_show_debug_switch(const drv_intr_ioctl_para &, char *buffer, u32 size)
{
	return drv_intr_dbg_print_int_debug_switch(buffer, size);
}

static u32 drv_intr_ioctl_show_cfg(const drv_intr_ioctl_para &, char *buffer, u32 size)
{
	return drv_intr_dbg_print_cfg(buffer, size);
}

static u32 drv_intr_ioctl_show_virq(const drv_intr_ioctl_para &para, char *buffer, u32 size)
{
	return drv_intr_dbg_print_irq(buffer, size, para.virq);
}

template <typename function> struct drv_intr_ioctl_map_item {
	u32 cmd;
	function func;
};

using report_producer = u32 (*)(const drv_intr_ioctl_para &para, char *buffer, u32 size);
using command_handler = int (*)(u32 cmd, drv_intr_ioctl_para &para);

// The first row of this number, or null.
template <typename function, u32 count> static const drv_intr_ioctl_map_item<function> *
find_row(const drv_intr_ioctl_map_item<function> (&map)[count], u32 cmd)
{
	for (const auto &row : map) {
		if (row.cmd == cmd)
			return &row;
	}
	return nullptr;
}

static constexpr drv_intr_ioctl_map_item<report_producer> g_drv_intr_ioctrl_dbg_map[] = {
	{DRV_INTR_IOC_DBG_RUNTIME, drv_intr_ioctl_show_runtime},
	{DRV_INTR_IOC_DBG_SWITCH, drv_intr_ioctl_show_debug_switch},
	{DRV_INTR_IOC_DBG_CFG, drv_intr_ioctl_show_cfg},
	{DRV_INTR_IOC_DBG_VIRQ, drv_intr_ioctl_show_virq},
};

// The whole buffer goes out, so that a process finds its own bytes nowhere in it.
static int copy_report(u32 cmd, const drv_intr_ioctl_para &para, char *buffer, u32 size)
{
	const auto *row = find_row(g_drv_intr_ioctrl_dbg_map, cmd);

	if (!row || row->func(para, buffer, size) == 0)
		return -1;
	auto *user = reinterpret_cast<void *>(static_cast<unsigned long>(para.buf));
	return copy_to_user(user, buffer, size) == 0 ? 0 : -1;
}

static int drv_intr_ioctl_dbg(u32 cmd, drv_intr_ioctl_para &para)
{
	const u32 size = para.buf_len < DRV_INTR_REPORT_MAX ? para.buf_len : DRV_INTR_REPORT_MAX;

	if (size == 0)
		return -1;
	auto *buffer = static_cast<char *>(plat_kzalloc(size));
	if (!buffer)
		return -1;
	const int ret = copy_report(cmd, para, buffer, size);
	kfree(buffer);
	return ret;
}

static constexpr drv_intr_ioctl_map_item<command_handler> g_drv_intr_dev_ioctrl_map[] = {
	{DRV_INTR_IOC_SET_PID, drv_intr_ioctl_set_pid},
	{DRV_INTR_IOC_UNSET_PID, drv_intr_ioctl_unset_pid},
	{DRV_INTR_IOC_SET_INT_EN, drv_intr_ioctl_set_int_en},
	{DRV_INTR_IOC_GET_NETLINK_ID, drv_intr_ioctl_get_netlink_id},
	{DRV_INTR_IOC_GET_INT_DEBUG_EN, drv_intr_ioctl_get_int_debug_en},
	{DRV_INTR_IOC_INIT_CARD, drv_intr_ioctl_init_card_combiner},
	{DRV_INTR_IOC_DEINIT_CARD, drv_intr_ioctl_deinit_card_combiner},
	{DRV_INTR_IOC_DBG_RUNTIME, drv_intr_ioctl_dbg},
	{DRV_INTR_IOC_DBG_SWITCH, drv_intr_ioctl_dbg},
	{DRV_INTR_IOC_DBG_CFG, drv_intr_ioctl_dbg},
	{DRV_INTR_IOC_DBG_VIRQ, drv_intr_ioctl_dbg},
	{DRV_INTR_IOC_SET_DEBUG_SWITCH, drv_intr_ioctl_set_debug_switch},
};

extern "C" {
static int drv_intr_dev_open(inode *, file *)
{
	return 0;
}

static int drv_intr_dev_release(inode *, file *)
{
	return 0;
}

static long drv_intr_dev_ioctl(file *, unsigned int cmd, unsigned long arg)
{
	static constexpr char desc[] = "intr dev ioctl";
	auto *user = reinterpret_cast<void *>(arg);
	drv_intr_ioctl_para para;

	if (copy_from_user(&para, user, sizeof(para)) != 0) {
		intr_err("[%s]copy_from_user fail", desc);
		return -EFAULT;
	}
	const auto *row = find_row(g_drv_intr_dev_ioctrl_map, cmd);
	if (!row) {
		intr_err("[%s]invalid cmd, cmd=%u", desc, sequence_number(cmd));
		return -EFAULT;
	}
	if (row->func(cmd, para) != 0) {
		intr_err("[%s]cmd fail, cmd=%u", desc, sequence_number(cmd));
		return -EFAULT;
	}
	if (!(cmd & READ_DIRECTION))
		return 0;
	const unsigned long left = copy_to_user(user, &para, sizeof(para));
	if (left != 0) {
		intr_err("[%s]copy_to_user fail, ret=%d", desc, static_cast<int>(left));
		return -EFAULT;
	}
	return 0;
}
}

static constinit misc_device g_drv_intr_device = {
	.name = "intr",
	.open = drv_intr_dev_open,
	.release = drv_intr_dev_release,
	.ioctl = drv_intr_dev_ioctl,
	.storage = {},
};

int drv_intr_register_device()
{
	return misc_register(&g_drv_intr_device);
}

void drv_intr_deregister_device()
{
	misc_deregister(&g_drv_intr_device);
}
