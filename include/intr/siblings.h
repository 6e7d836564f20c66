/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What crosses the module boundary between intr and its sibling modules.
 *
 * The symbol-version checksums are computed over these declarations: parameter
 * names do not count, struct, member and type names do. A struct that is only
 * declared here must stay undefined in the C file that exports the function,
 * or its members enter the checksum; such a file includes <linux/module.h> and
 * this header, and no <linux/irq.h>.
 */
#ifndef INTR_SIBLINGS_H
#define INTR_SIBLINGS_H

#include "intr/types.h"

#ifdef __cplusplus
extern "C" {
#endif

struct irq_desc;
struct proc_dir_entry;

/*
 * CPLD register access. Any context, hard interrupt and raw locks included:
 * never sleeps. 0 = success, anything else a failure.
 *
 * A field is (register >> bit_offset) & mask. drv_cpld_write changes the field
 * and keeps every other bit, atomically against other accesses of the chip.
 * drv_cpld_read is also called for a field that spans several levels' fields.
 */
struct drv_intr_reg_desc {
	u32 address;
	u16 bit_offset;
};
int drv_cpld_read(u32 inst_id, u32 chip_id, struct drv_intr_reg_desc desc, u32 mask, u32 *value);
int drv_cpld_write(u32 inst_id, u32 chip_id, struct drv_intr_reg_desc desc, u32 mask, u32 value);
int drv_cpld_reg_read(u32 inst_id, u32 chip_id, u32 reg, u32 *value);
int drv_cpld_reg_write(u32 inst_id, u32 chip_id, u32 reg, u32 value);

/* XML configuration. Process context. 0 = found; *value is meaningless otherwise. */
int xml_get_element_value_u32(u32 inst_id, const char *name1, const char *name2, const char *name3,
			      const char *key, u32 *value);
int xml_is_entry_exist(u32 inst_id, const char *name1, const char *name2, const char *name3,
		       u32 *exists);

/*
 * Interrupt monitor. 0 = success. do_check runs in hard-interrupt context and
 * never sleeps; the others run in process context and may.
 */
int drv_intr_monitor_set_param(u32 virq, u32 dev_virq, u32 allow_max, u32 suppress_ms, u32 policy,
			       void *reserved);
int drv_intr_monitor_unset_param(u32 virq, u32 dev_virq);
int drv_intr_monitor_do_check(u32 virq, struct irq_desc *desc, u32 dev_virq);
int drv_intr_mng_get_suppress_cnt(u32 virq, u32 *count);
int drv_intr_mng_get_irq_state(u32 virq, s32 *state);

/* Logging. Any context. level 1 = error, 2 = information. 0 = registered. */
int drv_log_register(u32 module_id, const char *name, u32 value);
void drv_log_record(u32 module_id, u32 level, u32 reserved, const char *format, ...)
	__attribute__((format(printf, 4, 5)));

/* Diagnostics: the proc directory for diagnostic entries, or null. */
struct proc_dir_entry *diag_get_proc_root(void);

/*
 * Bounded strings. dest_size is the size of dest in bytes. A negative result
 * is a failure. sscanf_s returns the number of conversions, or -1 when the
 * input ends before the first one; snprintf_truncated_s cuts, always
 * terminates, and returns the characters written.
 */
int memcpy_s(void *dest, size_t dest_size, const void *src, size_t count);
int sprintf_s(char *dest, size_t dest_size, const char *format, ...)
	__attribute__((format(printf, 3, 4)));
int sscanf_s(const char *buffer, const char *format, ...) __attribute__((format(scanf, 2, 3)));
int snprintf_truncated_s(char *dest, size_t dest_size, const char *format, ...)
	__attribute__((format(printf, 3, 4)));

/*
 * Backplane type: an optional module, looked up by name at run time and never
 * linked. It must be exported GPL-only, or the kernel's look-up refuses it.
 */
int drv_backplane_get_type(u32 *type);

#ifdef __cplusplus
}
#endif

#endif
