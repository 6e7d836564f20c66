// SPDX-License-Identifier: GPL-2.0
//
// The driver's proc directory "intr" under the diagnostics module's: "cfg" and
// "runtime" show reports, "debug_irq" and "int_debug_switch" show and set the
// debug switches.
#include "control/proc.h"

#include "control/report.h"
#include "core/log.h"
#include "intr/siblings.h"

// Of a written text only so much is read.
static constexpr size_t MAX_VALUE_TEXT = 11;

// The number that a process wrote. 0, or -EFAULT with *value untouched.
static int read_value(const char *user, size_t count, u32 *value)
{
	char text[MAX_VALUE_TEXT + 1];
	const size_t length = count < MAX_VALUE_TEXT ? count : MAX_VALUE_TEXT;

	if (copy_from_user(text, user, length) != 0)
		return -EFAULT;
	text[length] = '\0';
	*value = static_cast<u32>(simple_strtoul(text, nullptr, 0));
	return 0;
}

extern "C" {
static int irq_combiner_int_debug_switch_show(seq_file *seq, void *)
{
	drv_intr_dbg_show(seq, DRV_INTR_REPORT_DEBUG_SWITCH);
	return 0;
}

static int irq_combiner_runtime_show(seq_file *seq, void *)
{
	drv_intr_dbg_show(seq, DRV_INTR_REPORT_RUNTIME);
	return 0;
}

static int irq_combiner_cfg_show(seq_file *seq, void *)
{
	drv_intr_dbg_show(seq, DRV_INTR_REPORT_CFG);
	return 0;
}

static int irq_combiner_int_debug_switch_open(inode *, file *file)
{
	return single_open(file, irq_combiner_int_debug_switch_show, nullptr);
}

static int irq_combiner_runtime_open(inode *, file *file)
{
	return single_open(file, irq_combiner_runtime_show, nullptr);
}

static int irq_combiner_cfg_open(inode *, file *file)
{
	return single_open(file, irq_combiner_cfg_show, nullptr);
}

static long irq_combiner_int_debug_switch_write(file *, const char *user, size_t count, long long *)
{
	static constexpr char desc[] = "irq combiner int debug switch write";
	u32 &stored = drv_intr_get_ctrl()->int_debug_switch;
	const u32 old_value = read_once(stored);
	u32 value = 0;

	if (read_value(user, count, &value) != 0)
		return -EFAULT;
	write_once(stored, value);
	intr_info("[%s]interrupt debug switch is set, old:%u(%s), new:%u(%s)", desc, old_value,
		  drv_intr_on_off(old_value), value, drv_intr_on_off(value));
	return static_cast<long>(count);
}

static long irq_combiner_debug_irq_write(file *, const char *user, size_t count, long long *)
{
	static constexpr char desc[] = "irq combiner debug irq write";
	u32 &stored = drv_intr_get_ctrl()->debug_irq;
	const u32 old_value = read_once(stored);
	u32 value = 0;

	if (read_value(user, count, &value) != 0)
		return -EFAULT;
	write_once(stored, value);
	intr_info("[%s]debug irq is set, old:%u, new:%u", desc, old_value, value);
	return static_cast<long>(count);
}
}

struct drv_intr_proc_item {
	const char *name;
	proc_ops ops;
};

// The kernel keeps the operations for as long as the files are there.
static constinit drv_intr_proc_item g_drv_intr_proc_map[] = {
	{"int_debug_switch",
	 {irq_combiner_int_debug_switch_open, irq_combiner_int_debug_switch_write, {}}},
	{"debug_irq", {irq_combiner_int_debug_switch_open, irq_combiner_debug_irq_write, {}}},
	{"runtime", {irq_combiner_runtime_open, nullptr, {}}},
	{"cfg", {irq_combiner_cfg_open, nullptr, {}}},
};

int drv_intr_init_proc()
{
	static constexpr char desc[] = "intr init proc";
	static constexpr u16 MODE = 0644;
	drv_intr_ctrl &ctrl = *drv_intr_get_ctrl();
	proc_dir_entry *root = diag_get_proc_root();

	intr_info("[%s]enter", desc);
	ctrl.proc_dir = proc_mkdir("intr", root);
	if (!ctrl.proc_dir) {
		intr_err("[%s]create intr proc fail", desc);
		return -EFAULT;
	}
	for (drv_intr_proc_item &item : g_drv_intr_proc_map) {
		if (!proc_create_data(item.name, MODE, ctrl.proc_dir, &item.ops, nullptr)) {
			intr_err("[%s]create %s proc fail", desc, item.name);
			return -EFAULT;
		}
	}
	intr_info("[%s]success", desc);
	return 0;
}

void drv_intr_del_proc()
{
	static constexpr char desc[] = "intr del proc";
	proc_dir_entry *directory = drv_intr_get_ctrl()->proc_dir;

	intr_info("[%s]enter", desc);
	if (directory)
		proc_remove(directory); // with the files in it
	intr_info("[%s]success", desc);
}
