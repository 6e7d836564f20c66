/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What a board vendor was told about intr.ko: the functions that it wants from
 * its siblings, and those that it offers. Typed in from the interface's
 * description and kept apart from the project's own headers on purpose: the
 * kernel loads intr.ko over the vendor's modules only when both sets of
 * declarations give the same symbol versions.
 */
#ifndef VENDOR_CONTRACT_H
#define VENDOR_CONTRACT_H

#include <linux/types.h>

struct irq_desc;
struct proc_dir_entry;

/* In a header: of a struct in the C file itself the symbol versions see no member. */
struct drv_intr_reg_desc {
	u32 address;
	u16 bit_offset;
};

/* Wanted by intr.ko. */
int drv_cpld_read(u32 inst, u32 chip, struct drv_intr_reg_desc field, u32 mask, u32 *value);
int drv_cpld_write(u32 inst, u32 chip, struct drv_intr_reg_desc field, u32 mask, u32 value);
int drv_cpld_reg_read(u32 inst, u32 chip, u32 reg, u32 *value);
int drv_cpld_reg_write(u32 inst, u32 chip, u32 reg, u32 value);

int xml_get_element_value_u32(u32 inst, const char *root, const char *node, const char *entry,
			      const char *key, u32 *value);
int xml_is_entry_exist(u32 inst, const char *root, const char *node, const char *entry,
		       u32 *exists);

int drv_intr_monitor_set_param(u32 virq, u32 dev_virq, u32 allow_max, u32 suppress_ms, u32 policy,
			       void *reserved);
int drv_intr_monitor_unset_param(u32 virq, u32 dev_virq);
int drv_intr_monitor_do_check(u32 virq, struct irq_desc *desc, u32 dev_virq);
int drv_intr_mng_get_suppress_cnt(u32 virq, u32 *count);
int drv_intr_mng_get_irq_state(u32 virq, s32 *state);

int drv_log_register(u32 module_id, const char *name, u32 value);
void drv_log_record(u32 module_id, u32 level, u32 reserved, const char *format, ...);

struct proc_dir_entry *diag_get_proc_root(void);

int memcpy_s(void *dest, size_t dest_size, const void *src, size_t count);
int sprintf_s(char *dest, size_t dest_size, const char *format, ...);
int sscanf_s(const char *buffer, const char *format, ...);
int snprintf_truncated_s(char *dest, size_t dest_size, const char *format, ...);

/* Offered by intr.ko. */
typedef void (*drv_intr_handler)(u32 index_id, u32 type, void *data);

int drv_intr_enable(u32 index_id, u32 type);
int drv_intr_disable(u32 index_id, u32 type);
u32 drv_mapping_irq(u32 index_id, u32 type);
u32 bsp_mapping_irq(u32 key);
u32 drv_find_mapping_irq(u32 index_id, u32 type);
u32 bsp_find_mapping(u32 key);
int drv_intr_set_regist(u32 index_id, u32 type, drv_intr_handler handler, void *data);
int drv_intr_set_unregist(u32 index_id, u32 type);

#endif
