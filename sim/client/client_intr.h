/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The driver's exported functions, as the client's kernel module gets them.
 * The client is there before and after the driver, so that its files and events
 * outlive it: intr_link.ko, loaded right after intr.ko and unloaded right before
 * it, links the functions and hands them over. It takes them back without
 * releasing a leaf, as a client with a fault would: the driver must cope with
 * leaves that are held when it is unloaded.
 */
#ifndef INTR_CLIENT_CLIENT_INTR_H
#define INTR_CLIENT_CLIENT_INTR_H

#include "intr/drv_intr.h"

struct client_intr {
	int (*enable)(u32 index_id, u32 type);
	int (*disable)(u32 index_id, u32 type);
	u32 (*mapping_irq)(u32 index_id, u32 type);
	u32 (*bsp_mapping_irq)(u32 key);
	u32 (*find_mapping_irq)(u32 index_id, u32 type);
	u32 (*bsp_find_mapping)(u32 key);
	int (*set_regist)(u32 index_id, u32 type, drv_intr_handler handler, void *data);
	int (*set_unregist)(u32 index_id, u32 type);
};

/* Null: the driver is about to go. Returns when no call into it runs. Process context. */
void client_set_intr(const struct client_intr *intr);

#endif
