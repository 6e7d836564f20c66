// SPDX-License-Identifier: GPL-2.0
/*
 * The siblings of intr.ko as a board vendor would write them who has never
 * seen this project's: configuration compiled in, lines to the kernel log, a
 * monitor that never suppresses. CPLD access is vendor_cpld.c.
 *
 * The board has one combiner with one leaf behind one level: index_id 0x21,
 * type 4, bit 3 of the registers of chip 7.
 */
#include <linux/errno.h>
#include <linux/kernel.h>
#include <linux/module.h>
#include <linux/string.h>

#include "vendor_contract.h"

static const struct {
	const char *node, *entry, *key;
	u32 value;
} settings[] = {
	{ "irq_combiner@0", "global_cfg", "chip_id", 7 },
	{ "irq_combiner@0", "hwirq_cfg0", "index_id", 0x21 },
	{ "irq_combiner@0", "hwirq_cfg0", "type", 4 },
	{ "irq_combiner@0", "hwirq_cfg0", "hwirq", 11 },
	{ "irq_combiner@0", "hwirq_cfg0", "sync", 1 },
	{ "irq_combiner@0", "hwirq_cfg0", "level_num", 1 },
	{ "irq_combiner@0", "hwirq_cfg0", "l0_en", 0x10 },
	{ "irq_combiner@0", "hwirq_cfg0", "l0_status", 0x11 },
	{ "irq_combiner@0", "hwirq_cfg0", "l0_shift", 3 },
	{ "irq_combiner@0", "hwirq_cfg0", "l0_wc", 1 },
};

/* The place of the first setting of an entry, or of one key of it; negative when there is none. */
static int find_setting(const char *root, const char *node, const char *entry, const char *key)
{
	unsigned int i;

	if (strcmp(root, "irq_combiner"))
		return -ENOENT;
	for (i = 0; i < ARRAY_SIZE(settings); i++) {
		if (!strcmp(node, settings[i].node) && !strcmp(entry, settings[i].entry) &&
		    (!key || !strcmp(key, settings[i].key)))
			return i;
	}
	return -ENOENT;
}

int xml_get_element_value_u32(u32 inst, const char *root, const char *node, const char *entry,
			      const char *key, u32 *value)
{
	int at = find_setting(root, node, entry, key);

	if (at < 0)
		return at;
	*value = settings[at].value;
	return 0;
}
EXPORT_SYMBOL(xml_get_element_value_u32);

int xml_is_entry_exist(u32 inst, const char *root, const char *node, const char *entry,
		       u32 *exists)
{
	*exists = find_setting(root, node, entry, NULL) >= 0;
	return 0;
}
EXPORT_SYMBOL(xml_is_entry_exist);

int drv_intr_monitor_set_param(u32 virq, u32 dev_virq, u32 allow_max, u32 suppress_ms, u32 policy,
			       void *reserved)
{
	return 0;
}
EXPORT_SYMBOL(drv_intr_monitor_set_param);

int drv_intr_monitor_unset_param(u32 virq, u32 dev_virq)
{
	return 0;
}
EXPORT_SYMBOL(drv_intr_monitor_unset_param);

int drv_intr_monitor_do_check(u32 virq, struct irq_desc *desc, u32 dev_virq)
{
	return 0;
}
EXPORT_SYMBOL(drv_intr_monitor_do_check);

int drv_intr_mng_get_suppress_cnt(u32 virq, u32 *count)
{
	*count = 0;
	return 0;
}
EXPORT_SYMBOL(drv_intr_mng_get_suppress_cnt);

int drv_intr_mng_get_irq_state(u32 virq, s32 *state)
{
	*state = 0;
	return 0;
}
EXPORT_SYMBOL(drv_intr_mng_get_irq_state);

int drv_log_register(u32 module_id, const char *name, u32 value)
{
	pr_info("log: module %u is %s\n", module_id, name);
	return 0;
}
EXPORT_SYMBOL(drv_log_register);

void drv_log_record(u32 module_id, u32 level, u32 reserved, const char *format, ...)
{
	va_list arguments;
	struct va_format text = { .fmt = format, .va = &arguments };

	va_start(arguments, format);
	printk("%slog: %u: %pV\n", level == 1 ? KERN_ERR : KERN_INFO, module_id, &text);
	va_end(arguments);
}
EXPORT_SYMBOL(drv_log_record);

struct proc_dir_entry *diag_get_proc_root(void)
{
	return NULL;
}
EXPORT_SYMBOL(diag_get_proc_root);

int memcpy_s(void *dest, size_t dest_size, const void *src, size_t count)
{
	if (count > dest_size)
		return -ERANGE;
	memcpy(dest, src, count);
	return 0;
}
EXPORT_SYMBOL(memcpy_s);

int sprintf_s(char *dest, size_t dest_size, const char *format, ...)
{
	va_list arguments;
	int length;

	va_start(arguments, format);
	length = vsnprintf(dest, dest_size, format, arguments);
	va_end(arguments);
	return length < (int)dest_size ? length : -1;
}
EXPORT_SYMBOL(sprintf_s);

int sscanf_s(const char *buffer, const char *format, ...)
{
	va_list arguments;
	int count;

	va_start(arguments, format);
	count = vsscanf(buffer, format, arguments);
	va_end(arguments);
	return count;
}
EXPORT_SYMBOL(sscanf_s);

int snprintf_truncated_s(char *dest, size_t dest_size, const char *format, ...)
{
	va_list arguments;
	int length;

	va_start(arguments, format);
	length = vscnprintf(dest, dest_size, format, arguments);
	va_end(arguments);
	return length;
}
EXPORT_SYMBOL(snprintf_truncated_s);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("A vendor's own siblings of intr");
